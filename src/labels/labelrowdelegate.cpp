#include "labels/labelrowdelegate.h"

#include "model/annotation.h"

#include <QColor>
#include <QLineEdit>
#include <QPainter>

namespace {

constexpr int kSwatchSize = 22;
constexpr int kSwatchLeft = 6;
constexpr int kNameLeft = 35;  // 8 px right of the swatch
constexpr int kNameRightGap = 36;
constexpr int kDeleteWidth = 20;
constexpr int kDeleteHeight = 16;
constexpr int kDeleteFromRight = 28;

} // namespace

LabelRowDelegate::LabelRowDelegate(QObject* parent)
    : QStyledItemDelegate(parent)
{
}

// Vertical centring uses QRect's inclusive bottom and integer division, so a 34 px row
// puts the swatch at top + 5 and the mark at top + 9.
QRect LabelRowDelegate::swatchRect(const QStyleOptionViewItem& option)
{
    const QRect& r = option.rect;
    return QRect(r.left() + kSwatchLeft, r.top() + (r.bottom() - r.top() - (kSwatchSize - 1)) / 2,
                 kSwatchSize, kSwatchSize);
}

QRect LabelRowDelegate::deleteRect(const QStyleOptionViewItem& option)
{
    const QRect& r = option.rect;
    return QRect(r.right() - kDeleteFromRight,
                 r.top() + (r.bottom() - r.top() - (kDeleteHeight - 1)) / 2, kDeleteWidth,
                 kDeleteHeight);
}

QRect LabelRowDelegate::nameRect(const QStyleOptionViewItem& option)
{
    const QRect& r = option.rect;
    return QRect(QPoint(r.left() + kNameLeft, r.top()), QPoint(r.right() - kNameRightGap, r.bottom()));
}

void LabelRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);

    painter->save();
    const QRect swatch = swatchRect(option);
    painter->fillRect(swatch, index.data(LabelColorRole).value<QColor>());
    painter->setPen(QPen(QColor(120, 120, 120), 1));
    painter->setBrush(Qt::NoBrush);
    // drawRect of a 1 px pen covers one pixel more than the rectangle on each axis.
    painter->drawRect(swatch.adjusted(0, 0, -1, -1));
    painter->restore();

    painter->save();
    painter->setPen(option.palette.color(QPalette::Text));
    painter->drawText(nameRect(option), Qt::AlignLeft | Qt::AlignVCenter,
                      index.data(LabelNameRole).toString());
    painter->restore();

    painter->save();
    QPen markPen(QColor(180, 40, 40));
    markPen.setWidthF(1.5);
    painter->setPen(markPen);
    QFont markFont = painter->font();
    markFont.setWeight(QFont::Bold);
    markFont.setPointSize(9);
    painter->setFont(markFont);
    painter->drawText(deleteRect(option), Qt::AlignCenter, QStringLiteral("X"));
    painter->restore();
}

QSize LabelRowDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const
{
    return QSize(300, 34);
}

QWidget* LabelRowDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&,
                                        const QModelIndex&) const
{
    return new QLineEdit(parent);
}

void LabelRowDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const
{
    if (auto* edit = qobject_cast<QLineEdit*>(editor))
        edit->setText(index.data(LabelNameRole).toString());
}

void LabelRowDelegate::setModelData(QWidget* editor, QAbstractItemModel* model,
                                    const QModelIndex& index) const
{
    auto* edit = qobject_cast<QLineEdit*>(editor);
    if (!edit)
        return;
    const QString name = cleanLabelName(edit->text()).trimmed();
    if (!name.isEmpty())
        model->setData(index, name, LabelNameRole);
}

void LabelRowDelegate::updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                                            const QModelIndex&) const
{
    // Leaves the swatch and the delete mark visible while editing.
    editor->setGeometry(nameRect(option).adjusted(0, 2, 0, -2));
}
