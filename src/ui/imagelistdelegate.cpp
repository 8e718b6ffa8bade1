#include "ui/imagelistdelegate.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>

namespace {
constexpr int kXSize = 18;
constexpr int kMinRowHeight = 30;
// Width kept free at the right of a row for the X mark.
constexpr int kXReserve = 32;
constexpr int kMarkReserve = 16;

// The mark of a row with open proposals: a dashed ring round a dot, drawn like the
// proposals themselves.
void paintMark(QPainter* painter, const QPointF& centre)
{
    const QColor amber(255, 176, 64);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    QPen ring(amber, 1.3, Qt::CustomDashLine);
    ring.setDashPattern({2.0, 1.6});
    painter->setPen(ring);
    painter->setBrush(Qt::NoBrush);
    painter->drawEllipse(centre, 5.5, 5.5);
    painter->setPen(Qt::NoPen);
    painter->setBrush(amber);
    painter->drawEllipse(centre, 2.2, 2.2);
    painter->restore();
}
} // namespace

ImageListDelegate::ImageListDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

QRect ImageListDelegate::xButtonRect(const QRect& itemRect) const
{
    return QRect(itemRect.right() - 24, itemRect.top() + (itemRect.height() - kXSize) / 2, kXSize,
                 kXSize);
}

QSize ImageListDelegate::sizeHint(const QStyleOptionViewItem& option,
                                  const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(qMax(size.height(), kMinRowHeight));
    return size;
}

void ImageListDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    QStyleOptionViewItem textOpt = opt;
    textOpt.rect.setRight(textOpt.rect.right() - kXReserve);
    const bool marked = rowMarked && rowMarked(index.row());
    if (marked)
        textOpt.rect.setRight(textOpt.rect.right() - kMarkReserve);
    QApplication::style()->drawControl(QStyle::CE_ItemViewItem, &textOpt, painter, nullptr);
    if (marked)
        paintMark(painter, QPointF(textOpt.rect.right() + kMarkReserve / 2.0 + 1,
                                   option.rect.center().y() + 0.5));

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    const int x = option.rect.right();
    const int y = xButtonRect(option.rect).top();

    QColor crossColor(160, 80, 80);
    if (index.row() == hoverRow) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(200, 50, 50));
        painter->drawRoundedRect(QRectF(x - 24, y, kXSize, kXSize), 3, 3);
        crossColor = Qt::white;
    }
    painter->setBrush(Qt::NoBrush);
    painter->setPen(QPen(crossColor, 1.8));
    painter->drawLine(QPointF(x - 19, y + 5), QPointF(x - 12, y + 12));
    painter->drawLine(QPointF(x - 12, y + 5), QPointF(x - 19, y + 12));
    painter->restore();
}

bool ImageListDelegate::handleMousePress(const QPoint& pos, const QModelIndex& index,
                                         const QRect& itemRect)
{
    if (!index.isValid())
        return false;
    if (!xButtonRect(itemRect).contains(pos))
        return false;
    Q_EMIT removeRequested(index.row());
    return true;
}

bool ImageListDelegate::handleMouseMove(const QPoint& pos, const QModelIndex& index,
                                        const QRect& itemRect)
{
    if (!index.isValid()) {
        if (hoverRow == -1)
            return false;
        hoverRow = -1;
        return true;
    }
    const int newHover = xButtonRect(itemRect).contains(pos) ? index.row() : -1;
    const bool changed = newHover != hoverRow;
    hoverRow = newHover;
    return changed;
}
