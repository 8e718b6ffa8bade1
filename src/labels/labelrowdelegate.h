#pragma once

#include <QStyledItemDelegate>

// Paints one row of the Manage Labels list (colour swatch, name, delete mark) and edits
// the name in place. The row's display text stays empty; the label lives in two roles.
class LabelRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    static constexpr int LabelColorRole = Qt::UserRole + 1; // QColor
    static constexpr int LabelNameRole = Qt::UserRole + 2;  // QString

    explicit LabelRowDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override;
    void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const override;

    // Row geometry shared with the dialog's mouse handling; option.rect is the row.
    static QRect swatchRect(const QStyleOptionViewItem& option);
    static QRect deleteRect(const QStyleOptionViewItem& option);
    // Where the name is drawn and edited: between the swatch and the delete mark.
    static QRect nameRect(const QStyleOptionViewItem& option);
};
