#include "canvas/imagecanvas.h"

#include <QAction>
#include <QFontMetrics>
#include <QPainter>
#include <QVarLengthArray>

#include <algorithm>
#include <cmath>
#include <limits>

#include "ui/sectionmenu.h"

// Proposals: shapes a model suggested, shown dashed with their confidence and taken over
// as shapes by a drag, or by the main window on a key or a menu choice.

namespace {

const QColor NoLabelColour(0, 220, 220);
constexpr double KeypointRadius = 6.0;
constexpr double HandleRadius = 4.0;

QRectF circle(const QPointF& centre, double radius)
{
    return QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius);
}

QString confidenceText(double confidence)
{
    return QString::number(confidence, 'f', 2);
}

} // namespace

void ImageCanvas::setProposals(const QList<Proposal>& proposals, int selected)
{
    m_proposals = proposals;
    m_pendingProposal = -1;
    m_selectedProposal = validProposal(selected) ? selected : -1;
    if (m_selectedProposal >= 0) {
        m_selectedIndex = -1;
        m_allSelected = false;
    }
    update();
}

int ImageCanvas::hitTestProposal(const QPointF& pos) const
{
    double bestArea = std::numeric_limits<double>::max();
    int result = -1;
    for (int i = 0; i < m_proposals.size(); ++i) {
        const BoxAnnotation& b = m_proposals.at(i).shape;
        if (b.points.isEmpty())
            continue;
        double area = 0.0;
        bool hit = false;
        if (b.type == ShapeType::Keypoint) {
            const QPointF d = pos - imageToWidget(b.points.at(0));
            hit = QPointF::dotProduct(d, d) <= (KeypointRadius + 2) * (KeypointRadius + 2);
            area = KeypointRadius * KeypointRadius;
        } else {
            const QRectF r = imageRectToWidget(b.boundingRect());
            hit = r.contains(pos);
            area = r.width() * r.height();
        }
        if (hit && area < bestArea) {
            bestArea = area;
            result = i;
        }
    }
    return result;
}

// The selected proposal's grips are those it will have as a shape: it stands in as the
// last shape for the shape hit tests.
bool ImageCanvas::onSelectedProposal(const QPointF& pos)
{
    if (!validProposal(m_selectedProposal))
        return false;
    const int saved = m_selectedIndex;
    m_boxes.append(m_proposals.at(m_selectedProposal).shape);
    m_selectedIndex = m_boxes.size() - 1;
    const bool hit = hitTestRotHandle(pos, m_selectedIndex) == 0
        || hitTestHandle(pos, m_selectedIndex) >= 0 || hitSelectedBox(pos);
    m_boxes.removeLast();
    m_selectedIndex = saved;
    return hit;
}

// A left press with no points in progress. Shapes come first, except where the selected
// proposal is. True when the press went to a proposal.
bool ImageCanvas::proposalPress(const QPointF& pos)
{
    if (m_proposals.isEmpty())
        return false;
    int index = -1;
    if (onSelectedProposal(pos)) {
        index = m_selectedProposal;
    } else {
        const bool onShapeGrip = hasValidSelection()
            && (hitTestHandle(pos, m_selectedIndex) >= 0 || hitTestRotHandle(pos, m_selectedIndex) == 0);
        if (!onShapeGrip && hitTestBox(pos) < 0)
            index = hitTestProposal(pos);
    }
    if (index < 0) {
        if (m_selectedProposal >= 0) {
            m_selectedProposal = -1;
            update();
        }
        return false;
    }
    if (hasValidSelection() || m_allSelected)
        deselect();
    m_selectedProposal = index;
    m_pendingProposal = index;
    m_pendingPress = pos;
    update();
    return true;
}

// The pressed proposal is dragged: it becomes a shape, and the drag goes on as the edit
// its grip under the press stands for.
void ImageCanvas::takePendingProposal()
{
    const int index = m_pendingProposal;
    m_pendingProposal = -1;
    if (!validProposal(index))
        return;
    Q_EMIT aboutToChange();
    m_boxes.append(m_proposals.takeAt(index).shape);
    m_selectedProposal = -1;
    m_allSelected = false;
    m_selectedIndex = m_boxes.size() - 1;
    Q_EMIT proposalAccepted(index);
    Q_EMIT selectionChanged(m_selectedIndex);

    const BoxAnnotation& b = m_boxes.last();
    m_dragStart = widgetToImage(m_pendingPress);
    m_dragOrigPoints = b.points;
    m_dragOrigRect = b.type == ShapeType::BoundingBox ? b.rect() : QRect();
    m_dragMode = Move;
    if (m_currentShape == ShapeType::Keypoint)
        return; // as for shapes: too small to resize with that kind current
    const int handle = hitTestHandle(m_pendingPress, m_selectedIndex);
    if (hitTestRotHandle(m_pendingPress, m_selectedIndex) == 0) {
        m_dragMode = Rotate;
    } else if (handle >= 0) {
        m_dragMode = Handle;
        m_activeHandle = handle;
    }
}

bool ImageCanvas::proposalDoubleClick(const QPointF& pos)
{
    if (!m_wipPoints.isEmpty() || hitTestBox(pos) >= 0)
        return false;
    const int index = hitTestProposal(pos);
    if (index < 0)
        return false;
    m_pendingProposal = -1;
    Q_EMIT proposalAcceptRequested(index, QString());
    return true;
}

bool ImageCanvas::proposalMenu(const QPointF& pos)
{
    const int index = hitTestProposal(pos);
    if (index < 0)
        return false;
    if (hasValidSelection() || m_allSelected)
        deselect();
    m_selectedProposal = index;
    update();
    SectionMenu menu(this);
    QAction* accept = menu.addAction(QStringLiteral("Accept"));
    QAction* reject = menu.addAction(QStringLiteral("Reject"));
    menu.addSection(QStringLiteral("Accept as:"));
    const QString own = m_proposals.at(index).shape.label;
    for (const QString& name : std::as_const(m_labelNames)) {
        QAction* action = menu.addLiteralAction(name);
        action->setCheckable(true);
        action->setChecked(name == own);
    }
    const QAction* chosen = menu.exec(mapToGlobal(pos.toPoint()));
    if (chosen == reject)
        Q_EMIT proposalRejectRequested(index);
    else if (chosen == accept)
        Q_EMIT proposalAcceptRequested(index, QString());
    else if (chosen)
        Q_EMIT proposalAcceptRequested(index, chosen->data().toString());
    return true;
}

// --- Painting ----------------------------------------------------------------------------

void ImageCanvas::drawProposals(QPainter& p) const
{
    if (m_proposals.isEmpty())
        return;
    QFont small = p.font();
    small.setPointSize(8);
    const QFontMetrics fm(small, this);
    p.save();
    p.setRenderHint(QPainter::Antialiasing, true);
    // The selected one last, on top of the others and their badges.
    QVarLengthArray<int, 64> order;
    for (int i = 0; i < m_proposals.size(); ++i)
        if (i != m_selectedProposal)
            order.append(i);
    if (validProposal(m_selectedProposal))
        order.append(m_selectedProposal);
    for (const int i : order) {
        const Proposal& proposal = m_proposals.at(i);
        const BoxAnnotation& b = proposal.shape;
        if (b.points.isEmpty())
            continue;
        const bool selected = i == m_selectedProposal;
        const QColor colour = m_labelColors.value(b.label, NoLabelColour);
        QPen pen(colour, selected ? 2.0 : 1.5, Qt::CustomDashLine);
        pen.setDashPattern({4, 3});
        p.setPen(pen);
        p.setBrush(Qt::NoBrush);

        QVarLengthArray<QPointF, 16> pts(b.points.size());
        for (int k = 0; k < b.points.size(); ++k)
            pts[k] = imageToWidget(b.points.at(k));
        QPointF badgeAt;
        switch (b.type) {
        case ShapeType::BoundingBox: {
            const QRectF r = imageRectToWidget(b.rect());
            p.drawRect(r);
            badgeAt = r.topLeft();
            if (selected) {
                const double l = r.left(), t = r.top(), w = r.width(), h = r.height();
                pts = {{l, t}, {l + w / 2, t}, {l + w, t}, {l, t + h / 2}, {l + w, t + h / 2},
                       {l, t + h}, {l + w / 2, t + h}, {l + w, t + h}};
            }
            break;
        }
        case ShapeType::Keypoint: {
            const QPointF c = pts[0];
            p.drawEllipse(circle(c, KeypointRadius));
            p.setPen(Qt::NoPen);
            p.setBrush(colour);
            p.drawEllipse(circle(c, 2.0));
            p.setBrush(Qt::NoBrush);
            badgeAt = c + QPointF(KeypointRadius + 2, -KeypointRadius + 1);
            if (selected) {
                p.setPen(QPen(Qt::white, 1, Qt::DotLine));
                p.drawEllipse(circle(c, KeypointRadius + 4));
            }
            pts.clear(); // too small for handles
            break;
        }
        case ShapeType::Line:
            p.drawPolyline(pts.constData(), pts.size());
            badgeAt = pts[0];
            break;
        case ShapeType::Ellipse: {
            if (b.points.size() < 2)
                continue;
            const QPointF c = pts[0];
            p.translate(c);
            p.rotate(b.angle);
            p.drawEllipse(QPointF(0, 0), b.points.at(1).x() * m_scale, b.points.at(1).y() * m_scale);
            p.resetTransform();
            badgeAt = c - QPointF(0, b.points.at(1).y() * m_scale);
            pts.clear();
            break;
        }
        default: { // polygons, rotated boxes; a cuboid by its front face
            const int n = b.type == ShapeType::Cuboid ? std::min<int>(4, pts.size()) : pts.size();
            QColor fill = colour;
            fill.setAlpha(b.type == ShapeType::Polygon ? 28 : 0);
            p.setBrush(fill);
            p.drawPolygon(pts.constData(), n);
            p.setBrush(Qt::NoBrush);
            badgeAt = *std::min_element(pts.begin(), pts.begin() + n, [](const QPointF& a, const QPointF& c) {
                return a.y() < c.y();
            });
            break;
        }
        }
        if (selected && !pts.isEmpty()) {
            p.setPen(QPen(Qt::black, 1));
            p.setBrush(colour);
            for (const QPointF& h : pts)
                p.drawEllipse(circle(h, HandleRadius));
            p.setBrush(Qt::NoBrush);
        }

        // The badge: label and confidence, on a see-through fill that marks it unreviewed.
        const QString text = b.label + QLatin1Char(' ') + confidenceText(proposal.confidence);
        const QRectF badge(badgeAt.x(), badgeAt.y() - 15, fm.horizontalAdvance(text) + 8, 15);
        QColor back = colour.darker(selected ? 130 : 160);
        back.setAlpha(selected ? 230 : 170);
        p.setPen(Qt::NoPen);
        p.setBrush(back);
        p.drawRoundedRect(badge, 2, 2);
        p.setFont(small);
        p.setPen(Qt::white);
        p.drawText(badge, Qt::AlignCenter, text);
    }

    // How many are left on this image, under the image counter.
    const QString count = m_proposals.size() == 1 ? QStringLiteral("1 proposal")
                                                  : QStringLiteral("%1 proposals").arg(m_proposals.size());
    QFont bold = small;
    bold.setPointSize(9);
    bold.setBold(true);
    p.setFont(bold);
    const QRect box(8, m_imageIndex >= 1 ? 38 : 8, QFontMetrics(bold, this).horizontalAdvance(count) + 14, 20);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 160));
    p.drawRect(box);
    p.setPen(QColor(255, 176, 64));
    p.drawText(box, Qt::AlignCenter, count);
    p.restore();
}

QString ImageCanvas::proposalHint() const
{
    const Proposal& p = m_proposals.at(m_selectedProposal);
    return QStringLiteral("Proposal: %1 %2  |  Enter accept  |  Drag to accept & edit  |  Del reject")
        .arg(p.shape.label, confidenceText(p.confidence));
}
