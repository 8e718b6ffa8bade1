#include "labels/labelsdialog.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QVBoxLayout>

#include "labels/labelrowdelegate.h"
#include "model/labelpalette.h"
#include "ui/userprompts.h"

namespace {

QPushButton* makeButton(const QString& text, const QString& objectName)
{
    auto* button = new QPushButton(text);
    button->setObjectName(objectName);
    // Return in the name field adds a label; it must never press a button of the dialog.
    button->setAutoDefault(false);
    button->setDefault(false);
    return button;
}

} // namespace

LabelsDialog::LabelsDialog(const QList<LabelDef>& labels, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Manage Labels"));
    setModal(true);
    setMinimumSize(460, 420);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(10);
    layout->setContentsMargins(16, 16, 16, 16);

    auto* header = new QLabel(
        QStringLiteral("<b>Labels</b>  (drag rows to reorder  |  double-click name to rename  |  "
                       "click color swatch to change color  |  click X to delete)"));
    header->setObjectName(QStringLiteral("labelsHeader"));
    header->setTextFormat(Qt::RichText);
    header->setWordWrap(true);
    layout->addWidget(header);

    m_list = new QListWidget;
    m_list->setObjectName(QStringLiteral("labelList"));
    m_list->setDragDropMode(QAbstractItemView::InternalMove);
    m_list->setDefaultDropAction(Qt::MoveAction);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setSpacing(1);
    m_list->setMinimumHeight(260);
    m_list->setItemDelegate(new LabelRowDelegate(m_list));
    m_list->viewport()->installEventFilter(this);
    layout->addWidget(m_list);

    auto* separator = new QFrame;
    separator->setFrameShape(QFrame::HLine);
    separator->setFrameShadow(QFrame::Sunken);
    layout->addWidget(separator);

    auto* addRow = new QHBoxLayout;
    QPushButton* deleteAllButton = makeButton(QStringLiteral("Delete All"),
                                              QStringLiteral("deleteAllButton"));
    deleteAllButton->setStyleSheet(QStringLiteral("color:#cc3333;font-weight:bold;"));
    addRow->addWidget(deleteAllButton);
    addRow->addWidget(new QLabel(QStringLiteral("New label:")));
    m_nameEdit = new QLineEdit;
    m_nameEdit->setObjectName(QStringLiteral("newLabelEdit"));
    m_nameEdit->setPlaceholderText(QStringLiteral("Enter label name..."));
    addRow->addWidget(m_nameEdit, 1);
    QPushButton* addButton = makeButton(QStringLiteral("+ Add"), QStringLiteral("addLabelButton"));
    addButton->setStyleSheet(QStringLiteral(
        "QPushButton{color:white;background:#2a7a2a;border-radius:4px;padding:4px 10px;}"));
    addRow->addWidget(addButton);
    layout->addLayout(addRow);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addStretch();
    QPushButton* cancelButton = makeButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"));
    QPushButton* okButton = makeButton(QStringLiteral("OK"), QStringLiteral("okButton"));
    okButton->setMinimumWidth(80);
    buttonRow->addWidget(cancelButton);
    buttonRow->addWidget(okButton);
    layout->addLayout(buttonRow);

    connect(addButton, &QPushButton::clicked, this, &LabelsDialog::onAddLabel);
    connect(m_nameEdit, &QLineEdit::returnPressed, this, &LabelsDialog::onAddLabel);
    connect(deleteAllButton, &QPushButton::clicked, this, &LabelsDialog::onDeleteAll);
    connect(cancelButton, &QPushButton::clicked, this, &QDialog::reject);
    connect(okButton, &QPushButton::clicked, this, &QDialog::accept);

    for (const LabelDef& label : labels)
        appendRow(label.name, label.color);
}

void LabelsDialog::appendRow(const QString& name, const QColor& color)
{
    auto* item = new QListWidgetItem;
    item->setData(LabelRowDelegate::LabelColorRole, color);
    item->setData(LabelRowDelegate::LabelNameRole, name);
    // Not drop-enabled: rows land between rows, never onto one.
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemIsDragEnabled
                   | Qt::ItemIsEnabled);
    m_list->addItem(item);
}

QList<LabelDef> LabelsDialog::result() const
{
    QList<LabelDef> labels;
    for (int row = 0; row < m_list->count(); ++row) {
        const QListWidgetItem* item = m_list->item(row);
        const QString name = item->data(LabelRowDelegate::LabelNameRole).toString();
        if (name.isEmpty())
            continue;
        labels.append({name, item->data(LabelRowDelegate::LabelColorRole).value<QColor>()});
    }
    return labels;
}

void LabelsDialog::onAddLabel()
{
    const QString name = cleanLabelName(m_nameEdit->text()).trimmed();
    if (name.isEmpty())
        return;
    for (int row = 0; row < m_list->count(); ++row) {
        const QString existing = m_list->item(row)->data(LabelRowDelegate::LabelNameRole).toString();
        if (existing.compare(name, Qt::CaseInsensitive) == 0) {
            UserPrompts::current().warning(this, QStringLiteral("Duplicate"),
                                           QStringLiteral("Label '") + name
                                               + QStringLiteral("' already exists."));
            return;
        }
    }
    // The colour follows the row count, so after deletions a colour can come round again.
    appendRow(name, LabelPalette::colorForIndex(m_list->count()));
    m_nameEdit->clear();
}

void LabelsDialog::onDeleteAll()
{
    if (m_list->count() == 0)
        return;
    const QList<UserPrompts::Choice> buttons = {
        {QStringLiteral("Delete All"), QMessageBox::DestructiveRole},
        {QStringLiteral("Cancel"), QMessageBox::RejectRole},
    };
    const int answer = UserPrompts::current().choose(
        this, QMessageBox::Warning, QStringLiteral("Delete All Labels"),
        QStringLiteral("Delete all labels from the list?\n"
                       "Existing annotation files will NOT be modified."),
        QString(), buttons, -1);
    if (answer == 0)
        m_list->clear();
}

bool LabelsDialog::eventFilter(QObject* watched, QEvent* event)
{
    const bool press = event->type() == QEvent::MouseButtonPress;
    const bool doubleClick = event->type() == QEvent::MouseButtonDblClick;
    if (watched != m_list->viewport() || (!press && !doubleClick))
        return QDialog::eventFilter(watched, event);

    const auto* mouse = static_cast<QMouseEvent*>(event);
    if (mouse->button() != Qt::LeftButton)
        return false;
    const QPoint pos = mouse->position().toPoint();
    QListWidgetItem* item = m_list->itemAt(pos);
    if (!item)
        return false;

    QStyleOptionViewItem option;
    option.rect = m_list->visualItemRect(item);
    const bool inSwatch = LabelRowDelegate::swatchRect(option).contains(pos);
    const bool inDelete = !inSwatch && LabelRowDelegate::deleteRect(option).contains(pos);

    if (doubleClick) {
        if (!inSwatch && !inDelete)
            m_list->editItem(item);
        return true;
    }
    if (inSwatch) {
        const QString name = item->data(LabelRowDelegate::LabelNameRole).toString();
        const QColor chosen = UserPrompts::current().color(
            this, item->data(LabelRowDelegate::LabelColorRole).value<QColor>(),
            QStringLiteral("Choose color for '") + name + QStringLiteral("'"));
        if (chosen.isValid()) {
            item->setData(LabelRowDelegate::LabelColorRole, chosen);
            m_list->viewport()->update();
        }
        return true;
    }
    if (inDelete) {
        delete m_list->takeItem(m_list->row(item));
        return true;
    }
    return QDialog::eventFilter(watched, event);
}
