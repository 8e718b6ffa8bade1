#include "canvas/imagecanvas.h"

#include <QCursor>
#include <QResizeEvent>

#include <algorithm>

ImageCanvas::ImageCanvas(QWidget* parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::CrossCursor);
    // paintEvent fills every pixel itself.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

// --- Called by the main window -------------------------------------------------------

void ImageCanvas::setImage(const QPixmap& pixmap)
{
    setImage(pixmap, pixmap.size());
}

void ImageCanvas::setImage(const QPixmap& pixmap, const QSize& fullSize)
{
    cancelWip();
    m_pixmap = pixmap;
    m_imageSize = pixmap.isNull() ? QSize() : fullSize;
    m_reducedPixmap = pixmap.size() != fullSize ? pixmap : QPixmap();
    m_zoom = 1.0;
    m_pan = QPointF(0, 0);
    m_selectedIndex = -1;
    m_allSelected = false;
    m_dragMode = None;
    setProposals({});
    recomputeFitScale();
    setCursor(Qt::CrossCursor);
    clearDrawingCoords();
    update();
}

void ImageCanvas::setBoxes(const QList<BoxAnnotation>& boxes)
{
    cancelWip();
    m_boxes = boxes;
    m_selectedIndex = -1;
    m_allSelected = false;
    setCursor(Qt::CrossCursor);
    clearDrawingCoords();
    update();
}

void ImageCanvas::setFullResolution(const QPixmap& full)
{
    if (!hasImage() || full.size() != m_imageSize || full.cacheKey() == m_pixmap.cacheKey())
        return;
    if (m_pixmap.size() != m_imageSize)
        m_reducedPixmap = m_pixmap;
    m_pixmap = full;
    update();
}

void ImageCanvas::setImageInfo(int index, int count)
{
    m_imageIndex = index;
    m_imageCount = count;
    update();
}

void ImageCanvas::setLabelColors(const QMap<QString, QColor>& colors)
{
    m_labelColors = colors;
    update();
}

void ImageCanvas::setLabelNames(const QList<QString>& names)
{
    m_labelNames = names;
}

void ImageCanvas::setCurrentShape(ShapeType type)
{
    cancelWip();
    m_currentShape = type;
    setCursor(Qt::CrossCursor);
}

void ImageCanvas::setSpaceHeld(bool held)
{
    m_spaceHeld = held;
    if (held) {
        setCursor(m_dragMode == Pan ? Qt::ClosedHandCursor : Qt::OpenHandCursor);
    } else {
        setCursor(Qt::CrossCursor);
        if (m_dragMode != Pan)
            updateCursor(mapFromGlobal(QCursor::pos()));
    }
    update();
}

// --- View transform --------------------------------------------------------------------

QPointF ImageCanvas::imageToWidget(const QPointF& p) const
{
    return p * m_scale + m_offset;
}

QPointF ImageCanvas::widgetToImage(const QPointF& w) const
{
    return (w - m_offset) / m_scale;
}

QRectF ImageCanvas::imageRectToWidget(const QRect& r) const
{
    // The rectangle covers its right and bottom pixels, hence the + 1.
    const double left = r.left() * m_scale + m_offset.x();
    const double top = r.top() * m_scale + m_offset.y();
    const double right = (r.right() + 1) * m_scale + m_offset.x();
    const double bottom = (r.bottom() + 1) * m_scale + m_offset.y();
    return QRectF(left, top, right - left, bottom - top);
}

QPointF ImageCanvas::clampPtToImage(const QPointF& p) const
{
    if (!hasImage())
        return p;
    return QPointF(std::clamp(p.x(), 0.0, double(m_imageSize.width() - 1)),
                   std::clamp(p.y(), 0.0, double(m_imageSize.height() - 1)));
}

QRect ImageCanvas::clampToImage(const QRect& r) const
{
    if (!hasImage())
        return r;
    const QRect n = r.normalized();
    // Only the sides that overhang move: left and top up to 0, right and bottom down to
    // the last pixel. A rectangle wholly outside the image is not squeezed onto its border.
    return QRect(QPoint(std::max(n.left(), 0), std::max(n.top(), 0)),
                 QPoint(std::min(n.right(), m_imageSize.width() - 1),
                        std::min(n.bottom(), m_imageSize.height() - 1)));
}

QList<QPointF> ImageCanvas::rotatedBoxCorners(const QPointF& centre, double w, double h,
                                              double angleDegrees)
{
    return ::rotatedBoxCorners(centre, w, h, angleDegrees);
}

// --- Fit, zoom and pan ---------------------------------------------------------------------

void ImageCanvas::recomputeFitScale()
{
    if (!hasImage() || width() < 1 || height() < 1) {
        m_scale = 1.0;
        return;
    }
    const double iw = m_imageSize.width();
    const double ih = m_imageSize.height();
    const double fit = std::min(width() / iw, height() / ih);
    m_scale = fit * m_zoom;
    m_fitOffset = QPointF((width() - iw * m_scale) / 2.0, (height() - ih * m_scale) / 2.0);
    m_offset = m_fitOffset + m_pan;
}

void ImageCanvas::resetView()
{
    m_zoom = 1.0;
    m_pan = QPointF(0, 0);
    recomputeFitScale();
    update();
}

void ImageCanvas::centreOn(const QPointF& target)
{
    m_pan = QPointF(width() * 0.5 - (target.x() * m_scale + m_fitOffset.x()),
                    height() * 0.5 - (target.y() * m_scale + m_fitOffset.y()));
    m_offset = m_fitOffset + m_pan;
}

// Centre of an integer rectangle as the view uses it: integer division, so a rectangle
// with an odd coordinate sum centres on the pixel left of / above the exact middle.
static QPointF rectCentre(const QRect& r)
{
    return QPointF((r.left() + r.right()) / 2, (r.top() + r.bottom()) / 2);
}

std::optional<QRect> ImageCanvas::shapesUnion() const
{
    std::optional<QRect> result;
    for (const BoxAnnotation& b : m_boxes) {
        if (b.points.isEmpty())
            continue;
        const QRect r = b.boundingRect();
        if (!result) {
            result = r;
            continue;
        }
        result = QRect(QPoint(std::min(result->left(), r.left()), std::min(result->top(), r.top())),
                       QPoint(std::max(result->right(), r.right()),
                              std::max(result->bottom(), r.bottom())));
    }
    return result;
}

QPointF ImageCanvas::zoomTarget() const
{
    if (hasValidSelection())
        return rectCentre(m_boxes.at(m_selectedIndex).boundingRect());
    if (const std::optional<QRect> u = shapesUnion())
        return rectCentre(*u);
    return QPointF(m_imageSize.width() * 0.5, m_imageSize.height() * 0.5);
}

void ImageCanvas::zoomIn()
{
    if (hasImage()) {
        m_zoom *= 1.25;
        recomputeFitScale();
        centreOn(zoomTarget());
    }
    update();
}

void ImageCanvas::zoomOut()
{
    if (hasImage()) {
        // The buttons stop at 0.1; the wheel may go further out.
        m_zoom = std::max(m_zoom / 1.25, 0.1);
        recomputeFitScale();
        centreOn(zoomTarget());
    }
    update();
}

void ImageCanvas::zoomFit()
{
    resetView();
}

void ImageCanvas::zoomToAnnotations(int border)
{
    const std::optional<QRect> u = hasImage() ? shapesUnion() : std::nullopt;
    if (!u) {
        resetView();
        return;
    }
    const QRect grown(QPoint(u->left() - border, u->top() - border),
                      QPoint(u->right() + border, u->bottom() + border));
    const QRect area = grown.intersected(QRect(0, 0, m_imageSize.width(), m_imageSize.height()));
    if (area.isEmpty()) {
        resetView();
        return;
    }
    const double w = width();
    const double h = height();
    const double fitArea = std::min(w / area.width(), h / area.height());
    const double fitImage = std::min(w / m_imageSize.width(), h / m_imageSize.height());
    m_zoom = std::max(fitArea / fitImage, 0.05);
    recomputeFitScale();
    centreOn(rectCentre(area));
    update();
}

void ImageCanvas::resizeEvent(QResizeEvent* event)
{
    recomputeFitScale();
    QWidget::resizeEvent(event);
}

// --- Selection -------------------------------------------------------------------------

bool ImageCanvas::hasValidSelection() const
{
    return m_selectedIndex >= 0 && m_selectedIndex < m_boxes.size();
}

void ImageCanvas::deselect()
{
    m_selectedIndex = -1;
    m_allSelected = false;
    m_selectedProposal = -1;
    setCursor(Qt::CrossCursor);
    Q_EMIT selectionChanged(-1);
    update();
}

void ImageCanvas::setSelectedIndex(int index)
{
    if (index == m_selectedIndex)
        return;
    m_allSelected = false;
    if (index < 0 || index >= m_boxes.size()) {
        index = -1;
        setCursor(Qt::CrossCursor);
    } else {
        m_selectedProposal = -1;
    }
    m_selectedIndex = index;
    update();
}

BoxAnnotation ImageCanvas::selectedBox() const
{
    return hasValidSelection() ? m_boxes.at(m_selectedIndex) : BoxAnnotation();
}

void ImageCanvas::selectAll()
{
    if (m_boxes.isEmpty())
        return;
    m_allSelected = true;
    m_selectedIndex = -1;
    m_selectedProposal = -1;
    update();
}

void ImageCanvas::deleteSelected()
{
    if (validProposal(m_selectedProposal)) {
        Q_EMIT proposalRejectRequested(m_selectedProposal);
        return;
    }
    if (m_allSelected) {
        m_boxes.clear();
        m_allSelected = false;
        m_selectedIndex = -1;
        Q_EMIT selectionChanged(-1);
        Q_EMIT boxesChanged();
        update();
        return;
    }
    if (!hasValidSelection())
        return;
    Q_EMIT aboutToChange();
    m_boxes.removeAt(m_selectedIndex);
    m_selectedIndex = -1;
    setCursor(Qt::CrossCursor);
    Q_EMIT selectionChanged(-1);
    Q_EMIT boxesChanged();
    update();
}

void ImageCanvas::cancelWip()
{
    m_wipPoints.clear();
    m_dragMode = None;
    update();
}

void ImageCanvas::emitDrawingCoords()
{
    if (!hasValidSelection()) {
        clearDrawingCoords();
        return;
    }
    const QRect r = m_boxes.at(m_selectedIndex).boundingRect();
    Q_EMIT drawingCoords(r.left(), r.top(), r.right(), r.bottom());
}

void ImageCanvas::clearDrawingCoords()
{
    Q_EMIT drawingCoords(-1, -1, -1, -1);
}

// --- Cursor ----------------------------------------------------------------------------

static Qt::CursorShape boxHandleCursor(int handle)
{
    // Handles: 0 top-left, 1 top, 2 top-right, 3 left, 4 right, 5 bottom-left, 6 bottom,
    // 7 bottom-right.
    switch (handle) {
    case 0:
    case 7:
        return Qt::SizeFDiagCursor;
    case 2:
    case 5:
        return Qt::SizeBDiagCursor;
    case 1:
    case 6:
        return Qt::SizeVerCursor;
    default:
        return Qt::SizeHorCursor;
    }
}

void ImageCanvas::updateCursor(const QPointF& widgetPos)
{
    if (m_spaceHeld) {
        setCursor(Qt::OpenHandCursor);
        return;
    }
    if (hasValidSelection()) {
        if (hitTestRotHandle(widgetPos, m_selectedIndex) == 0) {
            setCursor(Qt::SizeAllCursor);
            return;
        }
        const int handle = hitTestHandle(widgetPos, m_selectedIndex);
        if (handle >= 0) {
            const bool isBox = m_boxes.at(m_selectedIndex).type == ShapeType::BoundingBox;
            setCursor(isBox ? boxHandleCursor(handle) : Qt::SizeAllCursor);
            return;
        }
        if (hitSelectedBox(widgetPos)) {
            setCursor(Qt::SizeAllCursor);
            return;
        }
    }
    setCursor(Qt::CrossCursor);
}
