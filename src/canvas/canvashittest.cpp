#include "canvas/imagecanvas.h"

#include <QLineF>

#include <algorithm>
#include <limits>

// All tests work in widget pixels so that the grab areas keep their size at every zoom.
namespace {

constexpr double HandleHalf = 8.0;          // handle grab square is 16 x 16
constexpr double RotHandleDistance = 30.0;  // above a rotated box's centre
constexpr double EllipseRotHandleGap = 24.0; // above the top of an ellipse
constexpr double RotHandleRadius = 12.0;
constexpr double BadgeBand = 18.0;
constexpr double BadgeMinWidth = 60.0;
constexpr double Pi = 3.14159265358979323846;

bool onHandle(const QPointF& pos, const QPointF& handle)
{
    return QRectF(handle.x() - HandleHalf, handle.y() - HandleHalf, 2 * HandleHalf,
                  2 * HandleHalf)
        .contains(pos);
}

double keypointRadius(const BoxAnnotation& b)
{
    return b.visible ? 7.0 : 5.0;
}

// The label badge sits in a band directly above the shape's rectangle.
QRectF badgeBand(const QRectF& r)
{
    return QRectF(r.x(), r.y() - BadgeBand, std::max(r.width(), BadgeMinWidth), BadgeBand);
}

} // namespace

QRectF ImageCanvas::shapeWidgetRect(const BoxAnnotation& box) const
{
    return imageRectToWidget(box.boundingRect());
}

int ImageCanvas::hitTestHandle(const QPointF& pos, int index) const
{
    if (index < 0 || index >= m_boxes.size())
        return -1;
    const BoxAnnotation& b = m_boxes.at(index);
    switch (b.type) {
    case ShapeType::BoundingBox: {
        if (b.points.size() < 2)
            return -1;
        const QRectF r = imageRectToWidget(b.rect());
        const double l = r.x(), t = r.y(), w = r.width(), h = r.height();
        const QPointF handles[8] = {
            {l, t},         {l + w / 2, t},     {l + w, t},
            {l, t + h / 2}, {l + w, t + h / 2},
            {l, t + h},     {l + w / 2, t + h}, {l + w, t + h},
        };
        for (int i = 0; i < 8; ++i) {
            if (onHandle(pos, handles[i]))
                return i;
        }
        return -1;
    }
    case ShapeType::Polygon:
    case ShapeType::Line:
    case ShapeType::Keypoint:
    case ShapeType::RotatedBox:
    case ShapeType::Cuboid:
        for (int i = 0; i < b.points.size(); ++i) {
            if (onHandle(pos, imageToWidget(b.points.at(i))))
                return i;
        }
        return -1;
    case ShapeType::Ellipse: {
        // points[1] holds the semi-axes, not a position. The four handles sit at the ends
        // of the axes as drawn unturned: 0 right, 1 left, 2 bottom, 3 top.
        if (b.points.size() < 2)
            return -1;
        const QPointF c = imageToWidget(b.points.at(0));
        const double rx = b.points.at(1).x() * m_scale;
        const double ry = b.points.at(1).y() * m_scale;
        const QPointF handles[4] = {c + QPointF(rx, 0), c - QPointF(rx, 0), c + QPointF(0, ry),
                                    c - QPointF(0, ry)};
        for (int i = 0; i < 4; ++i) {
            if (onHandle(pos, handles[i]))
                return i;
        }
        return -1;
    }
    }
    return -1;
}

int ImageCanvas::hitTestRotHandle(const QPointF& pos, int index) const
{
    if (index < 0 || index >= m_boxes.size())
        return -1;
    const BoxAnnotation& b = m_boxes.at(index);
    if (b.points.isEmpty())
        return -1;
    QPointF handle;
    if (b.type == ShapeType::RotatedBox) {
        // Straight up on screen, whatever the box's angle.
        handle = imageToWidget(b.centroid()) - QPointF(0, RotHandleDistance);
    } else if (b.type == ShapeType::Ellipse) {
        const double ry = b.points.size() > 1 ? b.points.at(1).y() : 0.0;
        handle = imageToWidget(b.points.at(0)) - QPointF(0, ry * m_scale + EllipseRotHandleGap);
    } else {
        return -1;
    }
    return QLineF(pos, handle).length() < RotHandleRadius ? 0 : -1;
}

int ImageCanvas::hitTestBox(const QPointF& pos) const
{
    double bestArea = std::numeric_limits<double>::max();
    int result = -1;
    for (int i = 0; i < m_boxes.size(); ++i) {
        const BoxAnnotation& b = m_boxes.at(i);
        if (b.points.isEmpty())
            continue;
        bool hit = false;
        double area = 0.0;
        if (b.type == ShapeType::Keypoint) {
            const double radius = keypointRadius(b);
            const QPointF d = pos - imageToWidget(b.points.at(0));
            hit = QPointF::dotProduct(d, d) <= radius * radius;
            area = radius * radius * Pi;
        } else {
            const QRectF r = shapeWidgetRect(b);
            hit = r.contains(pos) || badgeBand(r).contains(pos);
            area = r.width() * r.height();
        }
        // Strictly smaller: among equal areas the earliest shape wins.
        if (hit && area < bestArea) {
            bestArea = area;
            result = i;
        }
    }
    return result;
}

bool ImageCanvas::hitSelectedBox(const QPointF& pos) const
{
    if (!hasValidSelection())
        return false;
    const BoxAnnotation& b = m_boxes.at(m_selectedIndex);
    if (b.points.isEmpty())
        return false;
    if (b.type == ShapeType::Keypoint) {
        const double radius = keypointRadius(b);
        const QPointF d = pos - imageToWidget(b.points.at(0));
        return QPointF::dotProduct(d, d) <= radius * radius;
    }
    const QRectF r = shapeWidgetRect(b);
    return r.contains(pos) || badgeBand(r).contains(pos);
}
