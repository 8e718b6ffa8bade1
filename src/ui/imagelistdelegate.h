#pragma once

#include <QStyledItemDelegate>

#include <functional>

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
    // Rows for which this says true carry a small dashed mark before the X (the image
    // list: images with open proposals). The row text is left as it is.
    std::function<bool(int row)> rowMarked;

Q_SIGNALS:
    void removeRequested(int row);
};
