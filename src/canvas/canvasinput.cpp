#include "canvas/imagecanvas.h"

#include <QAction>
#include <QCursor>
#include <QKeyEvent>
#include <QLineF>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QtMath>

#include <algorithm>
#include <cmath>

#include "ui/sectionmenu.h"

namespace {

// Mouse positions are whole widget pixels, halves rounded away from zero, so that
// presses, moves and releases agree with each other on every platform.
QPointF roundedPosition(const QPointF& p)
{
    return QPointF(std::round(p.x()), std::round(p.y()));
}

// An ellipse's second entry holds its semi-axes: moving the shape never touches it.
bool isSemiAxes(const BoxAnnotation& b, int pointIndex)
{
    return b.type == ShapeType::Ellipse && pointIndex == 1;
}

int truncatedCoordinate(double v)
{
    return static_cast<int>(std::clamp(v, -1.0e9, 1.0e9));
}

// Smallest shapes kept after a creating drag (image pixels).
bool largeEnough(const BoxAnnotation& b)
{
    switch (b.type) {
    case ShapeType::BoundingBox: {
        const QRect r = b.rect();
        return r.right() - r.left() >= 4 && r.bottom() - r.top() >= 4;
    }
    case ShapeType::RotatedBox:
        // Only the width: a box dragged out flat is still a usable rotated box.
        return b.boundingRect().width() >= 4;
    case ShapeType::Ellipse:
        return b.points.size() >= 2 && b.points.at(1).x() >= 2.0 && b.points.at(1).y() >= 2.0;
    case ShapeType::Line:
        return b.points.size() >= 2 && QLineF(b.points.at(0), b.points.at(1)).length() >= 3.0;
    case ShapeType::Polygon:
        return b.points.size() >= 3;
    case ShapeType::Cuboid:
        return b.points.size() == 8;
    case ShapeType::Keypoint:
        return true;
    }
    return true;
}

// Too narrow or too low to be kept after an edit.
bool tooSmallBox(const QRect& r)
{
    return r.right() - r.left() < 4 || r.bottom() - r.top() < 4;
}


} // namespace

void ImageCanvas::wheelEvent(QWheelEvent* event)
{
    if (!hasImage()) {
        event->ignore();
        return;
    }
    // The exact position: the image point under the cursor must stay there.
    const QPointF p = event->position();
    const QPointF q = (p - m_offset) / m_scale;
    const double factor = event->angleDelta().y() > 0 ? 1.15 : 1.0 / 1.15;
    m_zoom = std::max(m_zoom * factor, 0.05);
    recomputeFitScale();
    m_pan += p - (q * m_scale + m_offset);
    m_offset = m_fitOffset + m_pan;
    update();
    event->accept();
}

void ImageCanvas::startPan(const QPointF& widgetPos)
{
    m_dragMode = Pan;
    m_panStartMouse = widgetPos;
    m_panStartPan = m_pan;
    setCursor(Qt::ClosedHandCursor);
}

void ImageCanvas::rightPress(const QPointF& widgetPos)
{
    const int index = m_labelNames.isEmpty() ? -1 : hitTestBox(widgetPos);
    if (index < 0) {
        if (!proposalMenu(widgetPos))
            startPan(widgetPos);
        return;
    }
    if (index != m_selectedIndex) {
        m_allSelected = false;
        m_selectedIndex = index;
        Q_EMIT selectionChanged(index);
        update();
    }
    SectionMenu menu(this);
    menu.addSection(QStringLiteral("Change label to:"));
    const QString current = m_boxes.at(index).label;
    for (const QString& name : std::as_const(m_labelNames)) {
        QAction* action = menu.addLiteralAction(name);
        action->setCheckable(true);
        action->setChecked(name == current);
    }
    const QAction* chosen = menu.exec(mapToGlobal(widgetPos.toPoint()));
    if (chosen)
        Q_EMIT labelChangeRequested(index, chosen->data().toString());
}

void ImageCanvas::mousePressEvent(QMouseEvent* event)
{
    if (!hasImage())
        return;
    setFocus(Qt::MouseFocusReason);
    // A second button pressed in the middle of a drag would leave the first gesture
    // half done (a new shape without its closing signals).
    if (m_dragMode != None && m_dragMode != PlacePoints)
        return;
    const QPointF pos = roundedPosition(event->position());
    switch (event->button()) {
    case Qt::RightButton:
        rightPress(pos);
        break;
    case Qt::LeftButton:
        if (m_spaceHeld)
            startPan(pos);
        else
            leftPress(pos);
        break;
    default:
        break;
    }
}

void ImageCanvas::leftPress(const QPointF& pos)
{
    const QPointF imagePos = widgetToImage(pos);

    if (m_allSelected) {
        if (hitTestBox(pos) >= 0) {
            Q_EMIT aboutToChange();
            m_dragMode = MoveAll;
            m_dragStart = imagePos;
            m_dragOrigPoints.clear();
            for (const BoxAnnotation& b : std::as_const(m_boxes))
                m_dragOrigPoints += b.points;
        } else {
            // The press only ends select-all mode; it does not also start a shape.
            m_allSelected = false;
            update();
        }
        return;
    }

    if (m_wipPoints.isEmpty() && proposalPress(pos))
        return;

    if (m_currentShape == ShapeType::Polygon || m_currentShape == ShapeType::Cuboid) {
        // Every click is a vertex, also one on an existing shape.
        placePoint(imagePos);
        return;
    }

    // A keypoint is too small to resize or rotate: with that kind current, presses on a
    // selected shape only move it.
    const bool keypointKind = m_currentShape == ShapeType::Keypoint;
    if (hasValidSelection()) {
        if (!keypointKind) {
            if (hitTestRotHandle(pos, m_selectedIndex) == 0) {
                startEdit(Rotate, imagePos);
                return;
            }
            const int handle = hitTestHandle(pos, m_selectedIndex);
            if (handle >= 0) {
                startEdit(Handle, imagePos);
                m_activeHandle = handle;
                return;
            }
        }
        if (hitSelectedBox(pos)) {
            startEdit(Move, imagePos);
            return;
        }
        if (!keypointKind) {
            const int other = hitTestBox(pos);
            if (other >= 0 && other != m_selectedIndex) {
                selectForMove(other, imagePos);
                return;
            }
        }
        m_dragMode = None;
        deselect();
        return;
    }

    const int index = hitTestBox(pos);
    if (index >= 0)
        selectForMove(index, imagePos);
    else
        createShape(clampPtToImage(imagePos));
}

void ImageCanvas::startEdit(DragMode mode, const QPointF& imagePos)
{
    Q_EMIT aboutToChange();
    const BoxAnnotation& b = m_boxes.at(m_selectedIndex);
    m_dragMode = mode;
    m_dragStart = imagePos;
    m_dragOrigPoints = b.points;
    m_dragOrigRect = b.type == ShapeType::BoundingBox ? b.rect() : QRect();
}

// Selecting a shape by pressing on it also picks it up for moving. No aboutToChange():
// the press only changes the selection.
void ImageCanvas::selectForMove(int index, const QPointF& imagePos)
{
    m_allSelected = false;
    m_selectedIndex = index;
    m_dragMode = Move;
    m_dragStart = imagePos;
    m_dragOrigPoints = m_boxes.at(index).points;
    setCursor(Qt::SizeAllCursor);
    Q_EMIT selectionChanged(index);
    update();
}

void ImageCanvas::placePoint(const QPointF& imagePos)
{
    if (hasValidSelection())
        deselect();
    Q_EMIT aboutToChange();
    m_dragMode = PlacePoints;
    m_wipPoints.append(clampPtToImage(imagePos));
    if (m_currentShape == ShapeType::Cuboid && m_wipPoints.size() == 8)
        finaliseWip();
    update();
}

void ImageCanvas::createShape(const QPointF& start)
{
    BoxAnnotation b;
    b.label = currentLabel;
    b.type = m_currentShape;
    switch (m_currentShape) {
    case ShapeType::Keypoint:
        b.points = {start};
        Q_EMIT aboutToChange();
        m_boxes.append(b);
        m_selectedIndex = m_boxes.size() - 1;
        Q_EMIT selectionChanged(m_selectedIndex);
        Q_EMIT boxesChanged();
        update();
        return;
    case ShapeType::BoundingBox:
    case ShapeType::Line:
        b.points = {start, start};
        break;
    case ShapeType::RotatedBox:
        b.points = rotatedBoxCorners(start, 0, 0, 0);
        break;
    case ShapeType::Ellipse:
        b.points = {start, QPointF(0, 0)};
        break;
    case ShapeType::Polygon:
    case ShapeType::Cuboid:
        return; // placed point by point
    }
    Q_EMIT aboutToChange();
    m_dragMode = m_currentShape == ShapeType::Line ? CreateLine : CreateDrag;
    m_dragStart = start;
    m_boxes.append(b);
    m_selectedIndex = m_boxes.size() - 1;
    update();
}

void ImageCanvas::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF pos = roundedPosition(event->position());
    m_hoverImagePos = widgetToImage(pos);
    if (m_pendingProposal >= 0 && event->buttons().testFlag(Qt::LeftButton) && pos != m_pendingPress)
        takePendingProposal();
    switch (m_dragMode) {
    case None:
        updateCursor(pos);
        if (!m_wipPoints.isEmpty())
            update(); // the rubber band follows the mouse
        break;
    case PlacePoints:
        update();
        break;
    case Pan:
        // Panning has no limits: the image may leave the widget entirely.
        m_pan = m_panStartPan + (pos - m_panStartMouse);
        m_offset = m_fitOffset + m_pan;
        update();
        break;
    default:
        dragTo(m_hoverImagePos);
        break;
    }
}

void ImageCanvas::dragTo(const QPointF& imagePos)
{
    const QPointF d = imagePos - m_dragStart;
    const QPointF clamped = clampPtToImage(imagePos);

    if (m_dragMode == MoveAll) {
        // Points are counted across the whole list, as they were collected at the press.
        int k = 0;
        for (BoxAnnotation& b : m_boxes) {
            for (int i = 0; i < b.points.size() && k < m_dragOrigPoints.size(); ++i, ++k) {
                if (!isSemiAxes(b, i))
                    b.points[i] = m_dragOrigPoints.at(k) + d;
            }
        }
        update();
        return;
    }
    if (!hasValidSelection())
        return;

    BoxAnnotation& b = m_boxes[m_selectedIndex];
    bool reportCoords = false;
    switch (m_dragMode) {
    case CreateDrag: {
        const QPointF s = m_dragStart;
        const QPointF mid = (s + clamped) / 2.0;
        const double w = std::abs(clamped.x() - s.x());
        const double h = std::abs(clamped.y() - s.y());
        if (b.type == ShapeType::BoundingBox) {
            b.points = {QPointF(std::min(s.x(), clamped.x()), std::min(s.y(), clamped.y())),
                        QPointF(std::max(s.x(), clamped.x()), std::max(s.y(), clamped.y()))};
        } else if (b.type == ShapeType::Ellipse) {
            b.points = {mid, QPointF(w / 2.0, h / 2.0)};
        } else if (b.type == ShapeType::RotatedBox) {
            b.points = rotatedBoxCorners(mid, w, h, b.angle);
        }
        reportCoords = true;
        break;
    }
    case CreateLine:
        if (b.points.size() >= 2)
            b.points[1] = clamped;
        reportCoords = true;
        break;
    case Move:
        for (int i = 0; i < b.points.size() && i < m_dragOrigPoints.size(); ++i) {
            if (!isSemiAxes(b, i))
                b.points[i] = m_dragOrigPoints.at(i) + d;
        }
        break;
    case Handle:
        if (b.type == ShapeType::BoundingBox) {
            // The dragged sides take the mouse's pixel; dragging past the opposite side
            // flips the box, which stays a rectangle of whole pixels.
            const int x = truncatedCoordinate(imagePos.x());
            const int y = truncatedCoordinate(imagePos.y());
            int left = m_dragOrigRect.left(), top = m_dragOrigRect.top();
            int right = m_dragOrigRect.right(), bottom = m_dragOrigRect.bottom();
            switch (m_activeHandle) {
            case 0: left = x; top = y; break;
            case 1: top = y; break;
            case 2: top = y; right = x; break;
            case 3: left = x; break;
            case 4: right = x; break;
            case 5: left = x; bottom = y; break;
            case 6: bottom = y; break;
            case 7: right = x; bottom = y; break;
            default: break;
            }
            const QRect r(QPoint(std::min(left, right), std::min(top, bottom)),
                          QPoint(std::max(left, right), std::max(top, bottom)));
            b.setRect(clampToImage(r));
        } else if (b.type == ShapeType::Ellipse) {
            // Handles 0 and 1 (right, left) set rx, 2 and 3 (bottom, top) set ry; the
            // centre stays.
            if (b.points.size() >= 2) {
                const QPointF c = b.points.at(0);
                QPointF axes = b.points.at(1);
                if (m_activeHandle == 0 || m_activeHandle == 1)
                    axes.setX(std::max(std::abs(clamped.x() - c.x()), 1.0));
                else if (m_activeHandle == 2 || m_activeHandle == 3)
                    axes.setY(std::max(std::abs(clamped.y() - c.y()), 1.0));
                b.points[1] = axes;
            }
        } else if (m_activeHandle >= 0 && m_activeHandle < b.points.size()) {
            // A rotated box's corner moves alone, like any other point.
            b.points[m_activeHandle] = clamped;
        }
        reportCoords = true;
        break;
    case Rotate: {
        const bool rotatedBox = b.type == ShapeType::RotatedBox;
        if (b.points.isEmpty())
            break;
        const QPointF c = rotatedBox ? b.centroid() : b.points.at(0);
        // The handle straight above the centre means 0 degrees.
        double angle = qRadiansToDegrees(std::atan2(imagePos.y() - c.y(), imagePos.x() - c.x()))
            + 90.0;
        if (angle <= -90.0) // atan2 of a negative zero
            angle += 360.0;
        if (rotatedBox && b.points.size() >= 4) {
            const double w = QLineF(b.points.at(0), b.points.at(1)).length();
            const double h = QLineF(b.points.at(1), b.points.at(2)).length();
            b.points = rotatedBoxCorners(c, w, h, angle);
        }
        b.angle = angle;
        break;
    }
    default:
        break;
    }
    if (reportCoords)
        emitDrawingCoords();
    update();
}

void ImageCanvas::mouseReleaseEvent(QMouseEvent* event)
{
    const QPointF pos = roundedPosition(event->position());
    m_pendingProposal = -1;
    switch (m_dragMode) {
    case Pan:
        m_dragMode = None;
        updateCursor(pos);
        break;
    case CreateDrag:
    case CreateLine:
        if (event->button() == Qt::LeftButton)
            finishCreate();
        break;
    case Move:
    case MoveAll:
    case Handle:
    case Rotate:
        if (event->button() == Qt::LeftButton) {
            finishEdit(m_dragMode);
            updateCursor(pos);
        }
        break;
    default:
        break;
    }
}

void ImageCanvas::finishCreate()
{
    m_dragMode = None;
    if (!hasValidSelection()) {
        update();
        return;
    }
    const int index = m_selectedIndex;
    BoxAnnotation& b = m_boxes[index];
    if (b.type == ShapeType::BoundingBox)
        b.setRect(clampToImage(b.rect()));
    if (!largeEnough(b)) {
        m_boxes.removeAt(index);
        deselect();
        clearDrawingCoords();
        update();
        return;
    }
    Q_EMIT selectionChanged(index);
    clearDrawingCoords();
    Q_EMIT boxesChanged();
    update();
}

void ImageCanvas::finishEdit(DragMode mode)
{
    m_dragMode = None;
    m_activeHandle = -1;
    if (hasValidSelection()) {
        BoxAnnotation& b = m_boxes[m_selectedIndex];
        if (b.type == ShapeType::BoundingBox && b.points.size() >= 2) {
            b.setRect(clampToImage(b.rect()));
            // Kept on the canvas as it is, but not reported: too small to save.
            if (tooSmallBox(b.rect())) {
                clearDrawingCoords();
                update();
                return;
            }
        }
    }
    if (mode == Handle)
        clearDrawingCoords();
    Q_EMIT boxesChanged();
    update();
}

void ImageCanvas::finaliseWip()
{
    const int n = m_wipPoints.size();
    const bool complete = (m_currentShape == ShapeType::Polygon && n >= 3)
        || (m_currentShape == ShapeType::Cuboid && n == 8);
    if (complete) {
        BoxAnnotation b;
        b.label = currentLabel;
        b.type = m_currentShape;
        b.points = m_wipPoints;
        m_wipPoints.clear();
        m_dragMode = None;
        m_boxes.append(b);
        m_selectedIndex = m_boxes.size() - 1;
        Q_EMIT selectionChanged(m_selectedIndex);
        Q_EMIT boxesChanged();
    }
    m_wipPoints.clear();
    m_dragMode = None;
    update();
}

void ImageCanvas::mouseDoubleClickEvent(QMouseEvent* event)
{
    // The first press of the pair has already placed the vertex; for a polygon the
    // double-click only closes it. A cuboid is closed by its 8th point alone: there the
    // double-click stands for the second press of two quick clicks, each adding a point.
    event->accept();
    if (event->button() == Qt::LeftButton && proposalDoubleClick(roundedPosition(event->position())))
        return;
    if (event->button() == Qt::LeftButton && m_currentShape == ShapeType::Polygon
        && m_wipPoints.size() >= 3)
        finaliseWip();
    else if (event->button() == Qt::LeftButton && m_currentShape == ShapeType::Cuboid)
        mousePressEvent(event);
    event->accept();
}

bool ImageCanvas::nudgeSelected(int key, Qt::KeyboardModifiers modifiers)
{
    if (m_allSelected || !hasValidSelection())
        return false;
    const double step = modifiers.testFlag(Qt::ShiftModifier) ? 10.0 : 1.0;
    QPointF d;
    switch (key) {
    case Qt::Key_Left: d = QPointF(-step, 0); break;
    case Qt::Key_Right: d = QPointF(step, 0); break;
    case Qt::Key_Up: d = QPointF(0, -step); break;
    case Qt::Key_Down: d = QPointF(0, step); break;
    default: return false;
    }
    Q_EMIT aboutToChange();
    BoxAnnotation& b = m_boxes[m_selectedIndex];
    for (int i = 0; i < b.points.size(); ++i) {
        if (!isSemiAxes(b, i))
            b.points[i] += d;
    }
    Q_EMIT boxesChanged();
    update();
    return true;
}

void ImageCanvas::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Space:
        if (event->isAutoRepeat())
            break;
        m_spaceHeld = true;
        setCursor(Qt::OpenHandCursor);
        update();
        event->accept();
        return;
    case Qt::Key_Escape:
        if (!m_wipPoints.isEmpty()) {
            cancelWip();
        } else if (m_dragMode == CreateDrag || m_dragMode == CreateLine) {
            // The shape being dragged out is dropped and the shapes are as they were
            // before the press: the change announced there is called off.
            if (hasValidSelection())
                m_boxes.removeAt(m_selectedIndex);
            m_dragMode = None;
            deselect();
            clearDrawingCoords();
            Q_EMIT changeCancelled();
        } else if (hasValidSelection() || m_allSelected || m_selectedProposal >= 0) {
            deselect();
        }
        event->accept();
        return;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        if (event->modifiers().testFlag(Qt::ShiftModifier) && !m_proposals.isEmpty())
            break; // the main window's: rejecting every proposal
        deleteSelected();
        event->accept();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_currentShape == ShapeType::Polygon && m_wipPoints.size() >= 3)
            finaliseWip();
        else if (!m_proposals.isEmpty() && m_wipPoints.isEmpty())
            break; // the main window's: accepting proposals
        event->accept();
        return;
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
        if (nudgeSelected(event->key(), event->modifiers())) {
            event->accept();
            return;
        }
        break; // the main window steps through the images
    default:
        break;
    }
    // Left to the main window: image navigation, zoom keys, copy and paste ...
    event->ignore();
}

void ImageCanvas::keyReleaseEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        m_spaceHeld = false;
        if (m_dragMode != Pan)
            updateCursor(mapFromGlobal(QCursor::pos()));
        update();
        event->accept();
        return;
    }
    event->ignore();
}
