#pragma once

#include <QStyledItemDelegate>

// Paints a list row with a clickable X mark at its right end. Used by the image list
// and by the annotations panel.
class ImageListDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit ImageListDelegate(QObject* parent = nullptr);

    QRect xButtonRect(const QRect& itemRect) const;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    bool handleMousePress(const QPoint& pos, const QModelIndex& index, const QRect& itemRect);
    bool handleMouseMove(const QPoint& pos, const QModelIndex& index, const QRect& itemRect);

    int hoverRow = -1;

Q_SIGNALS:
    void removeRequested(int row);
};
