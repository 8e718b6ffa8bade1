#include "model/shapegeometry.h"

#include <algorithm>
#include <cmath>

namespace ShapeGeometry {

namespace {

constexpr double kPi = 3.14159265358979323846;

QPolygonF boxCorners(const BoxAnnotation& shape)
{
    if (shape.points.size() < 2)
        return {};
    const QRect r = integerRect(shape.points.at(0), shape.points.at(1));
    const double left = r.left();
    const double top = r.top();
    const double right = double(r.right()) + 1.0;
    const double bottom = double(r.bottom()) + 1.0;
    return QPolygonF({QPointF(left, top), QPointF(right, top), QPointF(right, bottom),
                      QPointF(left, bottom)});
}

QRectF pointBounds(const QList<QPointF>& points)
{
    if (points.isEmpty())
        return {};
    double x0 = points.first().x(), x1 = x0, y0 = points.first().y(), y1 = y0;
    for (const QPointF& p : points) {
        x0 = std::min(x0, p.x());
        x1 = std::max(x1, p.x());
        y0 = std::min(y0, p.y());
        y1 = std::max(y1, p.y());
    }
    return QRectF(QPointF(x0, y0), QPointF(x1, y1));
}

int distinctCount(const QList<QPointF>& points, int enough)
{
    QList<QPointF> seen;
    for (const QPointF& p : points) {
        if (!seen.contains(p))
            seen.append(p);
        if (seen.size() >= enough)
            break;
    }
    return int(seen.size());
}

double cross(const QPointF& o, const QPointF& a, const QPointF& b)
{
    return (a.x() - o.x()) * (b.y() - o.y()) - (a.y() - o.y()) * (b.x() - o.x());
}

QPolygonF convexHull(QPolygonF pts)
{
    std::sort(pts.begin(), pts.end(), [](const QPointF& a, const QPointF& b) {
        return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y());
    });
    pts.erase(std::unique(pts.begin(), pts.end()), pts.end());
    if (pts.size() < 3)
        return pts;
    QPolygonF hull(2 * pts.size());
    qsizetype k = 0;
    for (qsizetype i = 0; i < pts.size(); ++i) {
        while (k >= 2 && cross(hull[k - 2], hull[k - 1], pts[i]) <= 0)
            --k;
        hull[k++] = pts[i];
    }
    for (qsizetype i = pts.size() - 1, lower = k + 1; i > 0; --i) {
        while (k >= lower && cross(hull[k - 2], hull[k - 1], pts[i - 1]) <= 0)
            --k;
        hull[k++] = pts[i - 1];
    }
    hull.resize(k - 1);
    return hull;
}

// One side of the clip rectangle: keeps the points for which inside() holds.
template <typename Inside, typename Cut>
QPolygonF clipSide(const QPolygonF& in, Inside inside, Cut cut)
{
    QPolygonF out;
    if (in.isEmpty())
        return out;
    QPointF prev = in.last();
    bool prevInside = inside(prev);
    for (const QPointF& cur : in) {
        const bool curInside = inside(cur);
        if (curInside != prevInside)
            out.append(cut(prev, cur));
        if (curInside)
            out.append(cur);
        prev = cur;
        prevInside = curInside;
    }
    return out;
}

QPointF atX(const QPointF& a, const QPointF& b, double x)
{
    const double t = (x - a.x()) / (b.x() - a.x());
    return QPointF(x, a.y() + t * (b.y() - a.y()));
}

QPointF atY(const QPointF& a, const QPointF& b, double y)
{
    const double t = (y - a.y()) / (b.y() - a.y());
    return QPointF(a.x() + t * (b.x() - a.x()), y);
}

} // namespace

bool hasOutline(ShapeType type)
{
    return type == ShapeType::BoundingBox || type == ShapeType::Polygon
        || type == ShapeType::RotatedBox || type == ShapeType::Ellipse;
}

QPolygonF outline(const BoxAnnotation& shape)
{
    switch (shape.type) {
    case ShapeType::BoundingBox:
        return boxCorners(shape);
    case ShapeType::Polygon:
    case ShapeType::RotatedBox:
        return QPolygonF(shape.points);
    case ShapeType::Ellipse:
        if (shape.points.size() < 2)
            return {};
        return ellipsePolygon(shape.points.at(0), shape.points.at(1).x(), shape.points.at(1).y(),
                              shape.angle);
    default:
        return {};
    }
}

QRectF bounds(const BoxAnnotation& shape)
{
    switch (shape.type) {
    case ShapeType::BoundingBox:
        return boxCorners(shape).boundingRect();
    case ShapeType::Ellipse:
        if (shape.points.size() < 2)
            return pointBounds(shape.points.mid(0, 1));
        return ellipseBounds(shape.points.at(0), shape.points.at(1).x(), shape.points.at(1).y(),
                             shape.angle);
    default:
        return pointBounds(shape.points);
    }
}

QPolygonF ellipsePolygon(const QPointF& c, double rx, double ry, double angleDegrees, int n)
{
    const double a = angleDegrees * kPi / 180.0;
    const double ca = std::cos(a), sa = std::sin(a);
    QPolygonF polygon;
    polygon.reserve(n);
    for (int k = 0; k < n; ++k) {
        const double t = 2.0 * kPi * k / n;
        const double lx = rx * std::cos(t);
        const double ly = ry * std::sin(t);
        polygon.append(QPointF(c.x() + lx * ca - ly * sa, c.y() + lx * sa + ly * ca));
    }
    return polygon;
}

QRectF ellipseBounds(const QPointF& c, double rx, double ry, double angleDegrees)
{
    const double a = angleDegrees * kPi / 180.0;
    const double ca = std::cos(a), sa = std::sin(a);
    const double hx = std::sqrt(rx * rx * ca * ca + ry * ry * sa * sa);
    const double hy = std::sqrt(rx * rx * sa * sa + ry * ry * ca * ca);
    return QRectF(QPointF(c.x() - hx, c.y() - hy), QPointF(c.x() + hx, c.y() + hy));
}

QRectF clipRect(const QRectF& rect, const QRectF& area)
{
    const double x0 = std::max(rect.left(), area.left());
    const double y0 = std::max(rect.top(), area.top());
    const double x1 = std::max(x0, std::min(rect.right(), area.right()));
    const double y1 = std::max(y0, std::min(rect.bottom(), area.bottom()));
    return QRectF(QPointF(x0, y0), QPointF(x1, y1));
}

QPolygonF clipPolygon(const QPolygonF& polygon, const QRectF& area)
{
    const double l = area.left(), t = area.top(), r = area.right(), b = area.bottom();
    QPolygonF p = clipSide(polygon, [l](const QPointF& q) { return q.x() >= l; },
                           [l](const QPointF& a, const QPointF& c) { return atX(a, c, l); });
    p = clipSide(p, [r](const QPointF& q) { return q.x() <= r; },
                 [r](const QPointF& a, const QPointF& c) { return atX(a, c, r); });
    p = clipSide(p, [t](const QPointF& q) { return q.y() >= t; },
                 [t](const QPointF& a, const QPointF& c) { return atY(a, c, t); });
    p = clipSide(p, [b](const QPointF& q) { return q.y() <= b; },
                 [b](const QPointF& a, const QPointF& c) { return atY(a, c, b); });
    QPolygonF out;
    for (const QPointF& q : std::as_const(p)) {
        if (out.isEmpty() || out.last() != q)
            out.append(q);
    }
    while (out.size() > 1 && out.first() == out.last())
        out.removeLast();
    return out;
}

double area(const QPolygonF& polygon)
{
    double sum = 0;
    for (qsizetype i = 0, n = polygon.size(); i < n; ++i) {
        const QPointF& a = polygon.at(i);
        const QPointF& b = polygon.at((i + 1) % n);
        sum += a.x() * b.y() - b.x() * a.y();
    }
    return std::abs(sum) / 2.0;
}

bool reachesOutside(const QRectF& rect, const QRectF& area)
{
    return rect.left() < area.left() || rect.top() < area.top() || rect.right() > area.right()
        || rect.bottom() > area.bottom();
}

QPolygonF orientedBounds(const QPolygonF& points, double angleRadians)
{
    if (points.isEmpty())
        return {};
    const QPointF u(std::cos(angleRadians), std::sin(angleRadians));
    const QPointF v(-u.y(), u.x());
    double u0 = 0, u1 = 0, v0 = 0, v1 = 0;
    for (qsizetype i = 0; i < points.size(); ++i) {
        const QPointF& p = points.at(i);
        const double pu = p.x() * u.x() + p.y() * u.y();
        const double pv = p.x() * v.x() + p.y() * v.y();
        if (i == 0 || pu < u0) u0 = pu;
        if (i == 0 || pu > u1) u1 = pu;
        if (i == 0 || pv < v0) v0 = pv;
        if (i == 0 || pv > v1) v1 = pv;
    }
    return QPolygonF({u * u0 + v * v0, u * u1 + v * v0, u * u1 + v * v1, u * u0 + v * v1});
}

double minimumAreaAngle(const QPolygonF& points)
{
    const QPolygonF hull = convexHull(points);
    double best = 0;
    double bestArea = -1;
    for (qsizetype i = 0; i < hull.size(); ++i) {
        const QPointF d = hull.at((i + 1) % hull.size()) - hull.at(i);
        double angle = std::atan2(d.y(), d.x());
        // The same rectangle every quarter turn: keep the turn nearest to none.
        while (angle > kPi / 4)
            angle -= kPi / 2;
        while (angle <= -kPi / 4)
            angle += kPi / 2;
        const double a = area(orientedBounds(hull, angle));
        if (bestArea < 0 || a < bestArea - 1e-9 || (a <= bestArea + 1e-9 && std::abs(angle) < std::abs(best))) {
            bestArea = a;
            best = angle;
        }
    }
    return best;
}

double orientation(const BoxAnnotation& shape)
{
    switch (shape.type) {
    case ShapeType::RotatedBox:
        if (shape.points.size() >= 2) {
            const QPointF d = shape.points.at(1) - shape.points.at(0);
            if (d.x() != 0 || d.y() != 0)
                return std::atan2(d.y(), d.x());
        }
        return shape.angle * kPi / 180.0;
    case ShapeType::Ellipse:
        return shape.angle * kPi / 180.0;
    case ShapeType::Polygon:
        return minimumAreaAngle(QPolygonF(shape.points));
    default:
        return 0;
    }
}

QString degenerateReason(const BoxAnnotation& shape)
{
    const QList<QPointF>& p = shape.points;
    switch (shape.type) {
    case ShapeType::BoundingBox:
        if (p.size() < 2 || std::abs(p.at(1).x() - p.at(0).x()) < 1.0
            || std::abs(p.at(1).y() - p.at(0).y()) < 1.0)
            return QStringLiteral("The box is under 1 px wide or high.");
        return {};
    case ShapeType::RotatedBox: {
        if (p.size() < 4)
            return QStringLiteral("The rotated box has fewer than 4 corners.");
        const QPointF w = p.at(1) - p.at(0);
        const QPointF h = p.at(2) - p.at(1);
        if (std::hypot(w.x(), w.y()) < 1.0 || std::hypot(h.x(), h.y()) < 1.0)
            return QStringLiteral("The rotated box is under 1 px wide or high.");
        return {};
    }
    case ShapeType::Ellipse:
        if (p.size() < 2 || 2.0 * std::abs(p.at(1).x()) < 1.0 || 2.0 * std::abs(p.at(1).y()) < 1.0)
            return QStringLiteral("The ellipse is under 1 px wide or high.");
        return {};
    case ShapeType::Polygon:
        if (distinctCount(p, 3) < 3)
            return QStringLiteral("The polygon has fewer than 3 distinct vertices.");
        if (area(QPolygonF(p)) < 1.0)
            return QStringLiteral("The polygon encloses under 1 px\u00b2 of area.");
        return {};
    case ShapeType::Line:
        if (distinctCount(p, 2) < 2)
            return QStringLiteral("The line has fewer than 2 distinct points.");
        return {};
    default:
        return {};
    }
}

QString kindName(ShapeType type)
{
    switch (type) {
    case ShapeType::BoundingBox: return QStringLiteral("box");
    case ShapeType::Polygon: return QStringLiteral("polygon");
    case ShapeType::Line: return QStringLiteral("line");
    case ShapeType::Keypoint: return QStringLiteral("keypoint");
    case ShapeType::RotatedBox: return QStringLiteral("rotated box");
    case ShapeType::Cuboid: return QStringLiteral("cuboid");
    case ShapeType::Ellipse: return QStringLiteral("ellipse");
    }
    return QStringLiteral("shape");
}

} // namespace ShapeGeometry
