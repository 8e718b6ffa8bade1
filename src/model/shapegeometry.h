#pragma once

#include <QPointF>
#include <QPolygonF>
#include <QRectF>
#include <QString>

#include "model/annotation.h"

// The geometry that turns shapes into what trainers read: the bounds of a whole shape,
// its outline as a polygon, clipping to the image, areas, and the degenerate-shape rules.
// All in continuous image coordinates; an axis-aligned box covers its right and bottom
// pixels, so its outline runs from (left, top) to (right + 1, bottom + 1) of its integer
// rectangle.
namespace ShapeGeometry {

// Vertices of the polygon that stands for an ellipse.
constexpr int kEllipseVertices = 36;

// Boxes, polygons, rotated boxes and ellipses enclose an area; lines, keypoints and
// cuboids do not.
bool hasOutline(ShapeType type);

// The closed outline of an area shape: a box's four pixel-coverage corners (clockwise
// from the top-left), a rotated box's four stored corners, a polygon's vertices, an
// ellipse's 36 vertices. Empty for the other kinds.
QPolygonF outline(const BoxAnnotation& shape);

// Bounds of the whole shape: the box's pixel coverage, every rotated-box corner, every
// polygon, line or cuboid point, the exact bounds of a (tilted) ellipse, the point of a
// keypoint (zero size). A default QRectF when the shape has no points.
QRectF bounds(const BoxAnnotation& shape);

// n vertices of the ellipse with centre c, semi-axes rx and ry, the rx axis turned by
// angleDegrees (clockwise on screen); vertex 0 lies at the end of the rx axis.
QPolygonF ellipsePolygon(const QPointF& c, double rx, double ry, double angleDegrees,
                         int n = kEllipseVertices);
QRectF ellipseBounds(const QPointF& c, double rx, double ry, double angleDegrees);

// The part of `rect` inside `area`; width or height 0 when they do not overlap.
QRectF clipRect(const QRectF& rect, const QRectF& area);
// The polygon cut to `area` (Sutherland-Hodgman), repeated vertices removed. Fewer than
// three vertices when nothing of it lies inside.
QPolygonF clipPolygon(const QPolygonF& polygon, const QRectF& area);
// Absolute area enclosed by a polygon (shoelace).
double area(const QPolygonF& polygon);
// True when `rect` reaches outside `area`.
bool reachesOutside(const QRectF& rect, const QRectF& area);

// The rectangle turned by angleRadians that bounds the points, as four corners in the
// order of rotatedBoxCorners (at angle 0: top-left, top-right, bottom-right, bottom-left).
QPolygonF orientedBounds(const QPolygonF& points, double angleRadians);
// The turn of the smallest-area rectangle around the points, in radians.
double minimumAreaAngle(const QPolygonF& points);
// The turn of a shape's own axes: 0 for a box, the first edge of a rotated box, the tilt
// of an ellipse, the smallest-area rectangle of a polygon.
double orientation(const BoxAnnotation& shape);

// Why a shape is too small to mean anything: a box, rotated box or ellipse under 1 px
// wide or high, a polygon with fewer than 3 distinct vertices or under 1 px² of area, a
// line with fewer than 2 distinct points. Empty when the shape is fine.
QString degenerateReason(const BoxAnnotation& shape);

// The word users read for a kind: "box", "polygon", "line", "keypoint", "rotated box",
// "cuboid", "ellipse".
QString kindName(ShapeType type);

} // namespace ShapeGeometry
