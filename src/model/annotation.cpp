#include "model/annotation.h"

#include <QtMath>

#include <algorithm>
#include <cmath>

namespace {

// Coordinates come from files and imports, so NaN, infinities and absurd magnitudes are
// possible. NaN counts as 0 and everything is clamped to +/-(2^30 - 1): any width or
// right edge computed from two such values still fits in an int.
constexpr double kCoordinateLimit = 1073741823.0;

double sanitized(double v)
{
    if (std::isnan(v))
        return 0.0;
    return std::clamp(v, -kCoordinateLimit, kCoordinateLimit);
}

int truncated(double v)
{
    return static_cast<int>(sanitized(v));
}

} // namespace

QRect integerRect(const QPointF& a, const QPointF& b)
{
    const double ax = sanitized(a.x()), bx = sanitized(b.x());
    const double ay = sanitized(a.y()), by = sanitized(b.y());
    const int left = truncated(std::min(ax, bx));
    const int right = truncated(std::max(ax, bx));
    const int top = truncated(std::min(ay, by));
    const int bottom = truncated(std::max(ay, by));
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

QRect pointsBoundingRect(const QList<QPointF>& points)
{
    if (points.isEmpty())
        return QRect();
    double minX = sanitized(points.first().x()), maxX = minX;
    double minY = sanitized(points.first().y()), maxY = minY;
    for (const QPointF& p : points) {
        const double x = sanitized(p.x()), y = sanitized(p.y());
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    // The extent is truncated on its own, not derived from the truncated corners.
    return QRect(truncated(minX), truncated(minY), static_cast<int>(maxX - minX),
                 static_cast<int>(maxY - minY));
}

QList<QPointF> rotatedBoxCorners(const QPointF& centre, double w, double h, double angleDegrees)
{
    const double a = qDegreesToRadians(angleDegrees);
    const QPointF u(std::cos(a), std::sin(a));
    const QPointF v(-std::sin(a), std::cos(a));
    const QPointF hu = u * (w / 2.0);
    const QPointF hv = v * (h / 2.0);
    return {centre - hu - hv, centre + hu - hv, centre + hu + hv, centre - hu + hv};
}

QRect BoxAnnotation::rect() const
{
    if (points.size() < 2)
        return QRect();
    return integerRect(points.at(0), points.at(1));
}

void BoxAnnotation::setRect(const QRect& r)
{
    points = {QPointF(r.left(), r.top()), QPointF(r.right(), r.bottom())};
}

QRect BoxAnnotation::boundingRect() const
{
    return pointsBoundingRect(points);
}

QPointF BoxAnnotation::centroid() const
{
    if (points.isEmpty())
        return QPointF();
    QPointF sum;
    for (const QPointF& p : points)
        sum += p;
    return sum / points.size();
}

bool BoxAnnotation::operator==(const BoxAnnotation& o) const
{
    return label == o.label && type == o.type && points == o.points && visible == o.visible
        && angle == o.angle;
}

const char* shapeTypeWord(ShapeType t)
{
    switch (t) {
    case ShapeType::BoundingBox:
        return "bndbox";
    case ShapeType::Polygon:
        return "polygon";
    case ShapeType::Line:
        return "line";
    case ShapeType::Keypoint:
        return "keypoint";
    case ShapeType::RotatedBox:
        return "rotatedbox";
    case ShapeType::Cuboid:
        return "cuboid";
    case ShapeType::Ellipse:
        return "ellipse";
    }
    return "bndbox";
}

ShapeType shapeTypeFromWord(QStringView word)
{
    static const ShapeType all[] = {ShapeType::BoundingBox, ShapeType::Polygon, ShapeType::Line,
                                    ShapeType::Keypoint,    ShapeType::RotatedBox,
                                    ShapeType::Cuboid,      ShapeType::Ellipse};
    for (ShapeType t : all) {
        if (word == QLatin1String(shapeTypeWord(t)))
            return t;
    }
    return ShapeType::BoundingBox;
}

namespace {

bool breaksLine(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 0x80)
        return u < 0x20 || u == 0x7f;
    const QChar::Category category = c.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line
        || category == QChar::Separator_Paragraph;
}

} // namespace

QString cleanLabelName(const QString& name)
{
    const auto first = std::find_if(name.cbegin(), name.cend(), breaksLine);
    if (first == name.cend())
        return name;
    QString clean = name;
    for (auto it = clean.begin() + (first - name.cbegin()); it != clean.end(); ++it) {
        if (breaksLine(*it))
            *it = QLatin1Char(' ');
    }
    return clean;
}
