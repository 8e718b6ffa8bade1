#include "app/imagelistwidget.h"

#include <QMouseEvent>

namespace {

// A row of the image list. Its text is the file name of its record, followed by "  *"
// once the record's annotation file was seen; it has a tool tip from then on. Texts set
// on the row directly win over these.
class ImageListItem : public QListWidgetItem {
public:
    ImageListItem() = default;

    bool annotated = false;
    bool described = false;

    QVariant data(int role) const override
    {
        const QVariant own = QListWidgetItem::data(role);
        if (own.isValid() || (role != Qt::DisplayRole && role != Qt::EditRole
                              && role != Qt::ToolTipRole))
            return own;
        const auto* list = static_cast<const ImageListWidget*>(listWidget());
        if (!list || !list->records)
            return own;
        const int row = list->row(this);
        if (row < 0 || row >= list->records->size())
            return own;
        const ImageAnnotations& record = list->records->at(row);
        if (role == Qt::ToolTipRole) {
            if (!described)
                return own;
            return QString(record.imagePath + QLatin1Char('\n')
                           + (annotated ? QStringLiteral("Annotations: ") + record.xmlPath
                                        : QStringLiteral("No annotations yet")));
        }
        const QStringView path(record.imagePath);
        const QStringView name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
        return annotated ? name.toString() + QStringLiteral("  *") : name.toString();
    }
};

} // namespace

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

void ImageListWidget::appendRecordRows(int count)
{
    if (count <= 0)
        return;
    // Added one by one, every row would be announced to the view and the selection on
    // its own; at a million rows that alone takes seconds. The view is told once, by a
    // reset, that the rows are there.
    {
        const QSignalBlocker blocker(model());
        for (int i = 0; i < count; ++i)
            addItem(new ImageListItem);
    }
    reset();
}

void ImageListWidget::setRowAnnotated(int row, bool annotated)
{
    auto* rowItem = dynamic_cast<ImageListItem*>(item(row));
    if (!rowItem)
        return;
    rowItem->annotated = annotated;
    rowItem->described = true;
    // Tells the view that the row changed (the flags stay as they are).
    rowItem->setFlags(rowItem->flags());
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
