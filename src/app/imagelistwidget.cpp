#include "app/imagelistwidget.h"

#include <QMouseEvent>

ImageListWidget::ImageListWidget(QWidget* parent) : QListWidget(parent)
{
    delegate = new ImageListDelegate(this);
    setItemDelegate(delegate);
    setMouseTracking(true);
    // Every row is one line of text with the same mark. Without this the view measures
    // every row again after each change, which freezes a list of 100,000 images for a
    // noticeable moment each time the background scan marks a row.
    setUniformItemSizes(true);
}

void ImageListWidget::mousePressEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    if (index.isValid() && delegate->handleMousePress(pos, index, visualRect(index))) {
        event->accept();
        return;
    }
    QListWidget::mousePressEvent(event);
}

void ImageListWidget::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    const QRect rect = index.isValid() ? visualRect(index) : QRect();
    if (delegate->handleMouseMove(pos, index, rect))
        viewport()->update();
    QListWidget::mouseMoveEvent(event);
}

void ImageListWidget::leaveEvent(QEvent* event)
{
    delegate->handleMouseMove(QPoint(-1, -1), QModelIndex(), QRect());
    viewport()->update();
    QListWidget::leaveEvent(event);
}
