#include "canvas/imagecanvas.h"

#include <QFontMetrics>
#include <QHash>
#include <QImage>
#include <QLineF>
#include <QPaintEvent>
#include <QPainter>
#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

const QColor BackgroundColour(45, 45, 48);
const QColor NoLabelColour(0, 220, 220);

constexpr double HandleRadius = 4.0;        // point handles and squares are 8 across
constexpr double RotHandleRadius = 6.0;     // the rotation handle is 12 across
constexpr double RotHandleDistance = 30.0;  // above a rotated box's centre
constexpr double EllipseRotHandleGap = 24.0;
constexpr double ArrowLength = 12.0;
constexpr double ArrowSpread = 0.4;         // radians either side of the reversed line
constexpr double KeypointRadius = 7.0;
constexpr double OccludedKeypointRadius = 5.0;

// Fonts of the labels. Lines and cuboids keep the weight of the painter's font; the
// other kinds switch between normal and bold with the selection.
enum FontIndex { BadgeNormal, BadgeBold, BadgePlain, Small, FontCount };

// Label badges come in the three badge fonts, two fills (darkened or the plain label
// colour) and two heights (16 and 17).
constexpr int BadgeKinds = 3 * 2 * 2;

// Everything a shape of one label is painted with, made once per label, colour and
// font. Label texts are drawn once into small pixmaps and then copied: laying text out
// again for every shape on every paint would cost more than all the outlines together.
struct LabelStyle {
    QColor colour;
    QColor badgeFill;
    QPen outline[2]; // width 1, width 2 (selected)
    QPen backEdge;
    QPen axis;
    QBrush fill;
    QBrush solidFill;
    std::array<int, FontCount> advance {-1, -1, -1, -1};
    std::array<QPixmap, BadgeKinds> badges;
    QPixmap caption; // keypoint label, drawn CaptionPad pixels inside its pixmap
};

constexpr int CaptionPad = 2;

// Small circles are centred on whole pixels: the painter draws circles with whole-pixel
// bounds from a much cheaper outline than the general curve.
QRectF circle(const QPointF& centre, double radius)
{
    return QRectF(std::round(centre.x()) - radius, std::round(centre.y()) - radius, 2 * radius,
                  2 * radius);
}

int minimumPoints(ShapeType type)
{
    switch (type) {
    case ShapeType::Keypoint:
        return 1;
    case ShapeType::RotatedBox:
        return 4;
    case ShapeType::Cuboid:
        return 8;
    default:
        return 2;
    }
}

const char* kindWord(ShapeType type)
{
    switch (type) {
    case ShapeType::BoundingBox:
        return "Box";
    case ShapeType::Polygon:
        return "Polygon";
    case ShapeType::Line:
        return "Line";
    case ShapeType::Keypoint:
        return "Keypoint";
    case ShapeType::RotatedBox:
        return "RotatedBox";
    case ShapeType::Cuboid:
        return "Cuboid";
    case ShapeType::Ellipse:
        return "Ellipse";
    }
    return "Box";
}

bool drawnByDragging(ShapeType type)
{
    return type == ShapeType::BoundingBox || type == ShapeType::Line
        || type == ShapeType::RotatedBox || type == ShapeType::Ellipse;
}

} // namespace

struct ImageCanvas::PaintCache {
    // --- Image ---
    qint64 imageKey = 0; // cacheKey of the pixmap the copies below were made from
    // The image at 1/2, 1/4, ... of its size, made as far as a view has needed them.
    QList<QImage> halves;
    // The visible part of the shrunk image as the last view showed it, with what it was
    // made for: repaints that only change shapes copy it instead of filtering again.
    QImage view;
    QRect viewArea;
    double viewScale = 0;
    QPointF viewOffset;

    // --- Labels ---
    // What the styles were made for: fonts, screen resolution and the colour map.
    bool ready = false;
    QFont baseFont;
    int dpiX = 0;
    int dpiY = 0;
    qreal dpr = 0;
    QMap<QString, QColor> colours;
    const QPaintDevice* device = nullptr;
    std::array<QFont, FontCount> fonts;
    std::array<int, FontCount> ascent {};
    QHash<QString, LabelStyle> styles;

    // Shared pens and brushes.
    QPen handleOutline {Qt::black, 1};
    QPen rotationLine {Qt::green, 1, Qt::DotLine};
    QPen whiteThin {Qt::white, 1};
    QPen whiteDotted {Qt::white, 1, Qt::DotLine};
    QBrush rotationFill {Qt::green};
    QBrush occludedFill {QColor(150, 150, 150)};

    void resetImage(qint64 key)
    {
        imageKey = key;
        halves.clear();
        view = QImage();
    }

    // The smallest halving of the image that is still at least `size` large (the image
    // itself when no halving is).
    QImage sourceFor(const QPixmap& pixmap, const QSize& size)
    {
        QImage src = pixmap.toImage();
        for (int level = 0;; ++level) {
            const QSize half(src.width() / 2, src.height() / 2);
            if (half.width() < size.width() || half.height() < size.height() || half.isEmpty())
                return src;
            if (level >= halves.size())
                halves.append(src.scaled(half, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
            src = halves.at(level);
        }
    }

    // Drops the label styles when the fonts, the resolution or the colours changed.
    void prepare(const QWidget* widget, const QPainter& p, const QMap<QString, QColor>& labelColours)
    {
        device = widget;
        const qreal ratio = p.device()->devicePixelRatio();
        if (ready && baseFont == p.font() && dpiX == widget->logicalDpiX()
            && dpiY == widget->logicalDpiY() && dpr == ratio && colours == labelColours)
            return;
        ready = true;
        baseFont = p.font();
        dpiX = widget->logicalDpiX();
        dpiY = widget->logicalDpiY();
        dpr = ratio;
        colours = labelColours;
        QFont badge = baseFont;
        badge.setPointSize(9);
        fonts[BadgePlain] = badge;
        badge.setWeight(QFont::Normal);
        fonts[BadgeNormal] = badge;
        badge.setWeight(QFont::Bold);
        fonts[BadgeBold] = badge;
        QFont small = baseFont;
        small.setPointSize(8);
        fonts[Small] = small;
        for (int i = 0; i < FontCount; ++i)
            ascent[i] = QFontMetrics(fonts[i], device).ascent();
        styles.clear();
    }

    LabelStyle& style(const QString& label)
    {
        auto it = styles.find(label);
        if (it != styles.end())
            return *it;
        LabelStyle s;
        const QColor c = colours.value(label, NoLabelColour);
        s.colour = c;
        s.badgeFill = c.darker(110);
        s.outline[0] = QPen(c, 1);
        s.outline[1] = QPen(c, 2);
        s.backEdge = QPen(c.darker(150), 1, Qt::DashLine);
        s.axis = QPen(c, 1, Qt::DotLine);
        QColor fill = c;
        fill.setAlpha(40);
        s.fill = QBrush(fill);
        s.solidFill = QBrush(c);
        return *styles.insert(label, s);
    }

    int advance(LabelStyle& s, const QString& label, int font)
    {
        if (s.advance[font] < 0)
            s.advance[font] = QFontMetrics(fonts[font], device).horizontalAdvance(label);
        return s.advance[font];
    }

    // An image for text of this widget's size and resolution.
    QImage textImage(int w, int h, QImage::Format format) const
    {
        QImage image(QSize(w, h) * dpr, format);
        image.setDevicePixelRatio(dpr);
        image.setDotsPerMeterX(qRound(dpiX / 0.0254));
        image.setDotsPerMeterY(qRound(dpiY / 0.0254));
        return image;
    }

    // The badge of `label`: white text centred in a `w` x `h` box (w = advance + 8), its
    // top-left corner at `topLeft`.
    void drawBadge(QPainter& p, LabelStyle& s, const QString& label, int font, bool plainFill,
                   int h, const QPointF& topLeft)
    {
        QPixmap& badge = s.badges[(font * 2 + (plainFill ? 1 : 0)) * 2 + (h == 17 ? 1 : 0)];
        if (badge.isNull()) {
            const QColor fill = plainFill ? s.colour : s.badgeFill;
            const int w = advance(s, label, font) + 8;
            QImage image = textImage(w, h, fill.alpha() == 255 ? QImage::Format_RGB32
                                                               : QImage::Format_ARGB32_Premultiplied);
            image.fill(fill);
            QPainter ip(&image);
            ip.setFont(fonts[font]);
            ip.setPen(Qt::white);
            ip.drawText(QRectF(0, 0, w, h), Qt::AlignCenter, label);
            ip.end();
            badge = QPixmap::fromImage(std::move(image));
        }
        p.drawPixmap(aligned(topLeft), badge);
    }

    // A keypoint's label in its colour at 8 points, the baseline starting at `origin`.
    void drawCaption(QPainter& p, LabelStyle& s, const QString& label, const QPointF& origin)
    {
        if (s.caption.isNull()) {
            const QFontMetrics fm(fonts[Small], device);
            QImage image = textImage(advance(s, label, Small) + 2 * CaptionPad,
                                     fm.height() + 2 * CaptionPad,
                                     QImage::Format_ARGB32_Premultiplied);
            image.fill(Qt::transparent);
            QPainter ip(&image);
            ip.setFont(fonts[Small]);
            ip.setPen(s.colour);
            ip.drawText(QPointF(CaptionPad, CaptionPad + fm.ascent()), label);
            ip.end();
            s.caption = QPixmap::fromImage(std::move(image));
        }
        p.drawPixmap(aligned(origin - QPointF(CaptionPad, CaptionPad + ascent[Small])), s.caption);
    }

    // Pixmaps are placed on whole device pixels, where copying them is a plain blit.
    QPointF aligned(const QPointF& pt) const
    {
        return QPointF(std::round(pt.x() * dpr) / dpr, std::round(pt.y() * dpr) / dpr);
    }

    void drawPointHandles(QPainter& p, const LabelStyle& s, const QPointF* pts, int n)
    {
        p.setPen(handleOutline);
        p.setBrush(s.solidFill);
        for (int i = 0; i < n; ++i)
            p.drawEllipse(circle(pts[i], HandleRadius));
        p.setBrush(Qt::NoBrush);
    }

    void drawRotationHandle(QPainter& p, const QPointF& from, const QPointF& handle)
    {
        p.setPen(rotationLine);
        p.drawLine(from, handle);
        p.setPen(handleOutline);
        p.setBrush(rotationFill);
        p.drawEllipse(circle(handle, RotHandleRadius));
        p.setBrush(Qt::NoBrush);
    }
};

// --- Frame -------------------------------------------------------------------------------

void ImageCanvas::paintEvent(QPaintEvent* event)
{
    QPainter p(this);
    p.fillRect(rect(), BackgroundColour);
    if (!hasImage()) {
        paintNoImageText(p);
        return;
    }
    if (!m_paintCache)
        m_paintCache = std::make_shared<PaintCache>();
    PaintCache& cache = *m_paintCache;
    cache.prepare(this, p, m_labelColors);

    paintImage(p, event->rect());

    // Shapes entirely outside the exposed area are skipped. Badges, handles and captions
    // reach beyond a shape's points by a fixed amount plus the width of the label text.
    const QRectF exposed(event->rect());
    for (int i = 0; i < m_boxes.size(); ++i) {
        const BoxAnnotation& b = m_boxes.at(i);
        if (b.points.size() < minimumPoints(b.type))
            continue;
        double x0, y0, x1, y1;
        if (b.type == ShapeType::Ellipse) {
            const QPointF c = imageToWidget(b.points.at(0));
            const double r = std::max(std::abs(b.points.at(1).x()), std::abs(b.points.at(1).y()))
                * m_scale;
            x0 = c.x() - r;
            x1 = c.x() + r;
            y0 = c.y() - r;
            y1 = c.y() + r;
        } else {
            double minX = b.points.at(0).x(), maxX = minX;
            double minY = b.points.at(0).y(), maxY = minY;
            for (const QPointF& pt : b.points) {
                minX = std::min(minX, pt.x());
                maxX = std::max(maxX, pt.x());
                minY = std::min(minY, pt.y());
                maxY = std::max(maxY, pt.y());
            }
            x0 = minX * m_scale + m_offset.x();
            x1 = (maxX + 1) * m_scale + m_offset.x();
            y0 = minY * m_scale + m_offset.y();
            y1 = (maxY + 1) * m_scale + m_offset.y();
        }
        const double margin = 40.0 + cache.advance(cache.style(b.label), b.label, BadgeBold);
        if (x1 + margin < exposed.left() || x0 - margin > exposed.right()
            || y1 + margin < exposed.top() || y0 - margin > exposed.bottom())
            continue;
        drawAnnotation(p, b, m_allSelected || i == m_selectedIndex);
    }

    drawProposals(p);
    drawWipShape(p);
    paintImageCounter(p);
    paintHint(p);
}

void ImageCanvas::paintImage(QPainter& p, const QRect& exposed)
{
    const QRectF target(m_offset, QSizeF(m_imageSize.width() * m_scale, m_imageSize.height() * m_scale));
    const QRectF visible = target.intersected(QRectF(exposed));
    if (visible.isEmpty())
        return;
    // Pixmap pixels per image pixel: below 1 while only a reduced image is there.
    const double ratio = double(m_pixmap.width()) / m_imageSize.width();

    // Enlarged: crisp pixels straight from the image (placing a corner on a pixel needs
    // them), and only the visible part, which stays small however far the view zooms.
    if (m_scale >= 1.0) {
        const QRectF source((visible.x() - m_offset.x()) / m_scale * ratio,
                            (visible.y() - m_offset.y()) / m_scale * ratio,
                            visible.width() / m_scale * ratio, visible.height() / m_scale * ratio);
        p.drawPixmap(visible, m_pixmap, source);
        return;
    }

    // Shrunk: filtered by the painter from the smallest halving of the image that still
    // has at least as many pixels as the view, so the cost stays near the widget's size
    // however large the photo is. The result for the whole widget is kept until the view
    // moves, and each paint copies from it. The reduced copy of a large photo serves
    // while it has pixels enough.
    PaintCache& cache = *m_paintCache;
    const qreal dpr = cache.dpr;
    const QSize needed(int(std::ceil(m_imageSize.width() * m_scale * dpr)),
                       int(std::ceil(m_imageSize.height() * m_scale * dpr)));
    const bool reducedServes = !m_reducedPixmap.isNull()
                               && m_reducedPixmap.width() >= needed.width()
                               && m_reducedPixmap.height() >= needed.height();
    const QPixmap& pixmap = reducedServes ? m_reducedPixmap : m_pixmap;
    if (cache.imageKey != pixmap.cacheKey())
        cache.resetImage(pixmap.cacheKey());
    const QRect area = target.intersected(QRectF(rect())).toAlignedRect();
    if (area.isEmpty())
        return;
    if (cache.view.isNull() || cache.viewArea != area || cache.viewScale != m_scale
        || cache.viewOffset != m_offset || cache.view.devicePixelRatio() != dpr) {
        const QImage src = cache.sourceFor(pixmap, needed);
        // Made opaque on the background, so that copying it out is a plain blit. The
        // buffer is reused while the widget keeps its size.
        if (cache.view.size() != area.size() * dpr)
            cache.view = QImage(area.size() * dpr, QImage::Format_ARGB32_Premultiplied);
        QImage& view = cache.view;
        view.setDevicePixelRatio(dpr);
        view.fill(BackgroundColour);
        const QRectF part = target.intersected(QRectF(area));
        const double sx = double(src.width()) / m_imageSize.width();
        const double sy = double(src.height()) / m_imageSize.height();
        const QRectF source((part.x() - m_offset.x()) / m_scale * sx,
                            (part.y() - m_offset.y()) / m_scale * sy,
                            part.width() / m_scale * sx, part.height() / m_scale * sy);
        // Placed by its rectangle rather than by a painter transform: measurably cheaper.
        QPainter vp(&view);
        vp.setRenderHint(QPainter::SmoothPixmapTransform, true);
        vp.drawImage(part.translated(-QPointF(area.topLeft())), src, source);
        vp.end();
        cache.viewArea = area;
        cache.viewScale = m_scale;
        cache.viewOffset = m_offset;
    }
    const QRect shown = area.intersected(exposed);
    if (shown.isEmpty())
        return;
    const QRectF from(QPointF(shown.topLeft() - area.topLeft()) * dpr, QSizeF(shown.size()) * dpr);
    p.drawImage(QPointF(shown.topLeft()), cache.view, from);
}

// --- Shapes --------------------------------------------------------------------------------

void ImageCanvas::drawAnnotation(QPainter& p, const BoxAnnotation& box, bool selected) const
{
    const int n = box.points.size();
    if (n < minimumPoints(box.type))
        return;
    PaintCache& cache = *m_paintCache;
    LabelStyle& s = cache.style(box.label);
    const QString& label = box.label;
    const int weighted = selected ? BadgeBold : BadgeNormal;

    QVarLengthArray<QPointF, 16> pts(n);
    for (int i = 0; i < n; ++i)
        pts[i] = imageToWidget(box.points.at(i));

    p.setPen(s.outline[selected ? 1 : 0]);
    p.setBrush(Qt::NoBrush);

    switch (box.type) {
    case ShapeType::BoundingBox: {
        const QRectF r = imageRectToWidget(box.rect());
        p.drawRect(r);
        cache.drawBadge(p, s, label, weighted, selected, 17, r.topLeft() - QPointF(0, 17));
        if (selected) {
            const double l = r.x(), t = r.y(), w = r.width(), h = r.height();
            const QPointF handles[8] = {
                {l, t},         {l + w / 2, t},     {l + w, t},
                {l, t + h / 2}, {l + w, t + h / 2},
                {l, t + h},     {l + w / 2, t + h}, {l + w, t + h},
            };
            QRectF squares[8];
            for (int i = 0; i < 8; ++i)
                squares[i] = QRectF(handles[i].x() - HandleRadius, handles[i].y() - HandleRadius,
                                    2 * HandleRadius, 2 * HandleRadius);
            p.setPen(cache.handleOutline);
            p.setBrush(s.solidFill);
            p.drawRects(squares, 8);
            p.setBrush(Qt::NoBrush);
        }
        break;
    }
    case ShapeType::Polygon: {
        p.setBrush(s.fill);
        p.drawPolygon(pts.constData(), n);
        p.setBrush(Qt::NoBrush);
        QPointF mean(0, 0);
        for (const QPointF& pt : pts)
            mean += pt;
        mean /= n;
        const double w = cache.advance(s, label, weighted) + 8;
        cache.drawBadge(p, s, label, weighted, false, 16, mean - QPointF(w / 2, 8));
        if (selected)
            cache.drawPointHandles(p, s, pts.constData(), n);
        break;
    }
    case ShapeType::Line: {
        const QPointF a = pts[0], e = pts[1];
        p.drawLine(a, e);
        if (QLineF(a, e).length() >= 1.0) {
            const double angle = std::atan2(e.y() - a.y(), e.x() - a.x());
            const QLineF head[2] = {
                {e, e - ArrowLength * QPointF(std::cos(angle - ArrowSpread),
                                              std::sin(angle - ArrowSpread))},
                {e, e - ArrowLength * QPointF(std::cos(angle + ArrowSpread),
                                              std::sin(angle + ArrowSpread))},
            };
            p.drawLines(head, 2);
        }
        const double w = cache.advance(s, label, BadgePlain) + 8;
        cache.drawBadge(p, s, label, BadgePlain, false, 16, (a + e) / 2 - QPointF(w / 2, 8));
        if (selected)
            cache.drawPointHandles(p, s, pts.constData(), 2);
        break;
    }
    case ShapeType::Keypoint: {
        const QPointF c = pts[0];
        const double r = box.visible ? KeypointRadius : OccludedKeypointRadius;
        p.setBrush(box.visible ? s.solidFill : cache.occludedFill);
        p.drawEllipse(circle(c, r));
        p.setBrush(Qt::NoBrush);
        if (!box.visible) {
            const QRectF square = circle(c, r);
            p.setPen(cache.whiteThin);
            const QLineF cross[2] = {{square.topLeft(), square.bottomRight()},
                                     {square.bottomLeft(), square.topRight()}};
            p.drawLines(cross, 2);
        }
        cache.drawCaption(p, s, label, QPointF(c.x() + r + 2, c.y() - r));
        if (selected) {
            p.setPen(cache.whiteDotted);
            p.drawEllipse(circle(c, r + 4));
        }
        break;
    }
    case ShapeType::RotatedBox: {
        p.drawPolygon(pts.constData(), 4);
        cache.drawBadge(p, s, label, weighted, false, 17, pts[0] - QPointF(0, 17));
        if (selected) {
            QPointF c(0, 0);
            for (const QPointF& pt : pts)
                c += pt;
            c /= n;
            // The rotation handle goes over the corner handles, which it may touch on a
            // narrow box.
            cache.drawPointHandles(p, s, pts.constData(), 4);
            cache.drawRotationHandle(p, c, c - QPointF(0, RotHandleDistance));
        }
        break;
    }
    case ShapeType::Cuboid: {
        p.drawPolygon(pts.constData(), 4);
        p.setPen(s.backEdge);
        const QLineF back[8] = {
            {pts[4], pts[5]}, {pts[5], pts[6]}, {pts[6], pts[7]}, {pts[7], pts[4]},
            {pts[0], pts[4]}, {pts[1], pts[5]}, {pts[2], pts[6]}, {pts[3], pts[7]},
        };
        p.drawLines(back, 8);
        cache.drawBadge(p, s, label, BadgePlain, false, 17, pts[0] - QPointF(0, 17));
        if (selected)
            cache.drawPointHandles(p, s, pts.constData(), 8);
        break;
    }
    case ShapeType::Ellipse: {
        const QPointF c = pts[0];
        const double rx = box.points.at(1).x() * m_scale;
        const double ry = box.points.at(1).y() * m_scale;
        const QTransform base = p.worldTransform();
        p.translate(c);
        if (box.angle != 0.0)
            p.rotate(box.angle);
        p.drawEllipse(QPointF(0, 0), rx, ry);
        p.setPen(s.axis);
        const QLineF axes[2] = {{-rx, 0, rx, 0}, {0, -ry, 0, ry}};
        p.drawLines(axes, 2);
        p.setWorldTransform(base);
        const double w = cache.advance(s, label, weighted) + 8;
        cache.drawBadge(p, s, label, weighted, false, 17, QPointF(c.x() - w / 2, c.y() - ry - 17));
        if (selected) {
            // Handles 0 to 3: right, left, bottom and top of the centre, not turned.
            const QPointF handles[4] = {{c.x() + rx, c.y()}, {c.x() - rx, c.y()},
                                        {c.x(), c.y() + ry}, {c.x(), c.y() - ry}};
            cache.drawPointHandles(p, s, handles, 4);
            cache.drawRotationHandle(p, handles[3], handles[3] - QPointF(0, EllipseRotHandleGap));
        }
        break;
    }
    }
}

void ImageCanvas::drawWipShape(QPainter& p) const
{
    const int n = m_wipPoints.size();
    if (n == 0)
        return;
    QVarLengthArray<QPointF, 16> pts(n);
    for (int i = 0; i < n; ++i)
        pts[i] = imageToWidget(m_wipPoints.at(i));
    p.setPen(QPen(m_labelColors.value(currentLabel, NoLabelColour), 1, Qt::DashLine));
    p.setBrush(Qt::NoBrush);
    for (const QPointF& pt : pts)
        p.drawEllipse(circle(pt, HandleRadius));
    p.drawPolyline(pts.constData(), n);
    p.drawLine(pts[n - 1], imageToWidget(m_hoverImagePos));
    if (m_currentShape == ShapeType::Polygon && n >= 3)
        p.drawLine(pts[n - 1], pts[0]);
}

// --- Texts ---------------------------------------------------------------------------------

QString ImageCanvas::hintText() const
{
    if (m_spaceHeld)
        return QStringLiteral("Pan mode");
    if (!m_wipPoints.isEmpty()) {
        if (m_currentShape == ShapeType::Polygon)
            return QStringLiteral("Polygon: %1 pts  |  DblClick or Enter to close  |  Esc cancel")
                .arg(m_wipPoints.size());
        if (m_currentShape == ShapeType::Cuboid)
            return QStringLiteral("Cuboid: %1/8 pts  |  Click to add  |  Esc cancel")
                .arg(m_wipPoints.size());
    }
    if (validProposal(m_selectedProposal))
        return proposalHint();
    if (m_allSelected)
        return QStringLiteral("All selected  |  Ctrl+C copy  |  Del delete");
    if (hasValidSelection())
        return QStringLiteral("Drag to move  |  Handles to resize  |  Click outside to deselect");
    return QStringLiteral("Click%1 to draw %2  |  Right-click drag to pan")
        .arg(drawnByDragging(m_currentShape) ? QStringLiteral(" & drag") : QString(),
             QLatin1String(kindWord(m_currentShape)));
}

void ImageCanvas::paintHint(QPainter& p)
{
    const QString text = hintText();
    p.setFont(m_paintCache->fonts[Small]);
    const int advance = p.fontMetrics().horizontalAdvance(text);
    const QRect box(width() - advance - 18, height() - 22, advance + 12, 18);
    p.fillRect(box, QColor(0, 0, 0, 140));
    p.setPen(QColor(200, 200, 200));
    p.drawText(box, Qt::AlignCenter, text);
}

void ImageCanvas::paintImageCounter(QPainter& p)
{
    if (m_imageIndex < 1 || m_imageCount < 1)
        return;
    QFont f;
    f.setPointSize(13);
    f.setBold(true);
    p.save();
    p.setFont(f);
    const QString text = QStringLiteral("%1 / %2").arg(m_imageIndex).arg(m_imageCount);
    const QRect box(8, 8, p.fontMetrics().horizontalAdvance(text) + 14, 26);
    p.fillRect(box, QColor(0, 0, 0, 160));
    p.setPen(QColor(220, 220, 220));
    p.drawText(box, Qt::AlignCenter, text);
    p.restore();
}

void ImageCanvas::paintNoImageText(QPainter& p)
{
    p.save();
    p.setPen(QColor(120, 120, 120));
    p.drawText(rect(), Qt::AlignCenter, QStringLiteral("Click 'Load Data' to open images"));
    p.restore();
}
