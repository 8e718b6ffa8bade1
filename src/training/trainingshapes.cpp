// What a shape becomes in each training layout: its clipped box, outline or oriented
// rectangle, or the reason it is left out.

#include "training/exportparts.h"

#include <algorithm>
#include <cmath>

#include "model/shapegeometry.h"

namespace TrainingExport::Parts {

namespace {

// Keypoints are matched within this many pixels around a shape, as the pose export does.
constexpr double kSearchMargin = 30.0;

QPolygonF rectCorners(const QRectF& r)
{
    return QPolygonF({r.topLeft(), r.topRight(), r.bottomRight(), r.bottomLeft()});
}

QPointF clampInto(const QPointF& p, const QRectF& area)
{
    return QPointF(std::clamp(p.x(), area.left(), area.right()),
                   std::clamp(p.y(), area.top(), area.bottom()));
}

bool hasArea(const QPolygonF& polygon)
{
    return polygon.size() >= 3 && ShapeGeometry::area(polygon) > 0.0;
}

} // namespace

Converted convert(const BoxAnnotation& shape, Layout layout, const QRectF& image)
{
    namespace G = ShapeGeometry;
    Converted c;
    if (shape.type == ShapeType::Keypoint) {
        c.leftOut = Reason::Keypoint;
        return c;
    }
    if (!G::degenerateReason(shape).isEmpty()) {
        c.leftOut = Reason::Degenerate;
        return c;
    }
    const QRectF bounds = G::bounds(shape);
    c.clipped = G::reachesOutside(bounds, image);
    switch (layout) {
    case Layout::UltralyticsDetect:
    case Layout::UltralyticsPose:
    case Layout::CocoInstances:
        c.box = G::clipRect(bounds, image);
        if (c.box.width() <= 0 || c.box.height() <= 0) {
            c.leftOut = Reason::Empty;
        } else if (layout == Layout::CocoInstances) {
            // Lines and cuboids have no outline of their own: their box stands for it.
            c.boxOnly = !G::hasOutline(shape.type) || shape.type == ShapeType::BoundingBox;
            c.polygon = c.boxOnly ? rectCorners(c.box) : G::clipPolygon(G::outline(shape), image);
            if (!hasArea(c.polygon))
                c.leftOut = Reason::Empty;
        }
        return c;
    case Layout::UltralyticsSegment:
    case Layout::UltralyticsObb: {
        if (!G::hasOutline(shape.type)) {
            c.leftOut = Reason::NotOutline;
            return c;
        }
        const QPolygonF clipped = G::clipPolygon(G::outline(shape), image);
        if (!hasArea(clipped)) {
            c.leftOut = Reason::Empty;
            return c;
        }
        c.box = G::clipRect(bounds, image);
        if (layout == Layout::UltralyticsSegment) {
            c.polygon = clipped;
            return c;
        }
        // The rectangle at the shape's own turn around what is left of it; a corner that
        // still pokes out of the image is pulled onto its edge.
        c.polygon = G::orientedBounds(clipped, G::orientation(shape));
        for (QPointF& corner : c.polygon) {
            const QPointF inside = clampInto(corner, image);
            if (std::abs(inside.x() - corner.x()) > 1e-9 || std::abs(inside.y() - corner.y()) > 1e-9)
                c.clipped = true;
            corner = inside;
        }
        return c;
    }
    }
    return c;
}

QList<Slot> placeKeypoints(const QRectF& bounds, const QStringList& order,
                           const QList<BoxAnnotation>& shapes, const QRectF& image,
                           QList<bool>& used)
{
    const QRectF search = bounds.adjusted(-kSearchMargin, -kSearchMargin, kSearchMargin, kSearchMargin);
    const QPointF centre = bounds.center();
    QList<Slot> keypointSlots;
    keypointSlots.reserve(order.size());
    for (const QString& name : order) {
        int best = -1;
        double bestDistance = 0;
        for (int i = 0; i < shapes.size(); ++i) {
            const BoxAnnotation& kp = shapes.at(i);
            if (kp.type != ShapeType::Keypoint || kp.points.isEmpty() || kp.label != name)
                continue;
            const QPointF p = kp.points.first();
            if (p.x() < search.left() || p.x() > search.right() || p.y() < search.top()
                || p.y() > search.bottom())
                continue;
            const double distance = std::hypot(p.x() - centre.x(), p.y() - centre.y());
            if (best < 0 || distance < bestDistance) {
                best = i;
                bestDistance = distance;
            }
        }
        Slot slot;
        if (best >= 0) {
            const QPointF p = shapes.at(best).points.first();
            if (image.contains(p)) {
                used[best] = true;
                slot.placed = true;
                slot.visible = shapes.at(best).visible;
                slot.point = p;
            }
        }
        keypointSlots.append(slot);
    }
    return keypointSlots;
}

} // namespace TrainingExport::Parts
