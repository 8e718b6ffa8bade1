#include "formats/yoloposeexportdialog.h"

#include <QDialogButtonBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

#include "ui/userprompts.h"

namespace {

QStringList sortedNames(const QSet<QString>& names)
{
    QStringList list(names.cbegin(), names.cend());
    list.sort(Qt::CaseSensitive);
    return list;
}

QPushButton* makeButton(const QString& objectName, const QString& text, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setObjectName(objectName);
    button->setAutoDefault(false);
    return button;
}

} // namespace

YoloPoseExportDialog::YoloPoseExportDialog(const QList<ImageAnnotations>& images,
                                           const QList<LabelDef>& /*labels*/, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Export YOLO Pose \u2014 Configure Keypoint Order"));
    setMinimumSize(700, 500);

    QSet<QString> boxLabels;
    QSet<QString> keypointLabels;
    for (const ImageAnnotations& image : images) {
        for (const BoxAnnotation& shape : image.boxes) {
            if (shape.type == ShapeType::BoundingBox)
                boxLabels.insert(shape.label);
            else if (shape.type == ShapeType::Keypoint)
                keypointLabels.insert(shape.label);
        }
    }
    const QStringList classes = sortedNames(boxLabels);
    const QStringList keypoints = sortedNames(keypointLabels);
    for (const QString& name : classes) {
        kpOrder.insert(name, keypoints);
        classList.append(name);
    }
    buildUI(classes, keypoints);
}

void YoloPoseExportDialog::buildUI(const QStringList& classes, const QStringList& keypointLabels)
{
    auto* layout = new QVBoxLayout(this);

    auto* explanation = new QLabel(
        QStringLiteral("Each detection class (bounding box label) needs an ordered list of its "
                       "keypoints.\nThe order defines slot indices 0,1,2,... in the YOLO pose "
                       "label file.\nKeypoints not present in an image will be exported as 0 0 0 "
                       "(invisible)."),
        this);
    explanation->setObjectName(QStringLiteral("explanationLabel"));
    explanation->setWordWrap(true);
    explanation->setStyleSheet(QStringLiteral("color:#888;font-size:12px;"));
    layout->addWidget(explanation);

    auto* columns = new QHBoxLayout;

    auto* classBox = new QGroupBox(QStringLiteral("Detection Classes (BBoxes)"), this);
    auto* classLayout = new QVBoxLayout(classBox);
    classListWidget = new QListWidget(classBox);
    classListWidget->setObjectName(QStringLiteral("classList"));
    classListWidget->addItems(classes);
    classLayout->addWidget(classListWidget);
    columns->addWidget(classBox, 1);

    auto* orderBox = new QGroupBox(QStringLiteral("Keypoint Order for Selected Class"), this);
    auto* orderLayout = new QVBoxLayout(orderBox);
    auto* orderHint = new QLabel(
        QStringLiteral("Slot 0 is first, slot N-1 is last. Drag or use buttons to reorder."), orderBox);
    orderHint->setWordWrap(true);
    orderLayout->addWidget(orderHint);
    orderListWidget = new QListWidget(orderBox);
    orderListWidget->setObjectName(QStringLiteral("kpOrderList"));
    orderListWidget->setDragDropMode(QAbstractItemView::InternalMove);
    orderListWidget->setDefaultDropAction(Qt::MoveAction);
    orderLayout->addWidget(orderListWidget);
    auto* orderButtons = new QHBoxLayout;
    QPushButton* upButton = makeButton(QStringLiteral("kpUpButton"), QStringLiteral("\u25B2 Up"), orderBox);
    QPushButton* downButton =
        makeButton(QStringLiteral("kpDownButton"), QStringLiteral("\u25BC Down"), orderBox);
    QPushButton* removeButton =
        makeButton(QStringLiteral("kpRemoveButton"), QStringLiteral("Remove"), orderBox);
    orderButtons->addWidget(upButton);
    orderButtons->addWidget(downButton);
    orderButtons->addWidget(removeButton);
    orderLayout->addLayout(orderButtons);
    columns->addWidget(orderBox, 2);

    auto* availableBox = new QGroupBox(QStringLiteral("Available Keypoint Labels"), this);
    auto* availableLayout = new QVBoxLayout(availableBox);
    auto* availableHint =
        new QLabel(QStringLiteral("Double-click or Add\u2192 to append to order:"), availableBox);
    availableHint->setWordWrap(true);
    availableLayout->addWidget(availableHint);
    availableListWidget = new QListWidget(availableBox);
    availableListWidget->setObjectName(QStringLiteral("availableList"));
    availableListWidget->addItems(keypointLabels);
    availableLayout->addWidget(availableListWidget);
    QPushButton* addButton =
        makeButton(QStringLiteral("kpAddButton"), QStringLiteral("\u2190 Add to Order"), availableBox);
    availableLayout->addWidget(addButton);
    columns->addWidget(availableBox, 1);

    layout->addLayout(columns, 1);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    layout->addWidget(buttons);

    connect(upButton, &QPushButton::clicked, this, &YoloPoseExportDialog::onKpUp);
    connect(downButton, &QPushButton::clicked, this, &YoloPoseExportDialog::onKpDown);
    connect(removeButton, &QPushButton::clicked, this, &YoloPoseExportDialog::onKpRemove);
    connect(addButton, &QPushButton::clicked, this, &YoloPoseExportDialog::onKpAdd);
    connect(availableListWidget, &QListWidget::itemDoubleClicked, this,
            &YoloPoseExportDialog::onKpAdd);
    connect(classListWidget, &QListWidget::currentTextChanged, this,
            &YoloPoseExportDialog::onClassSelected);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, this, &YoloPoseExportDialog::accept);

    if (classListWidget->count() > 0)
        classListWidget->setCurrentRow(0);
}

void YoloPoseExportDialog::saveCurrentKpOrder()
{
    if (currentClass.isEmpty())
        return;
    QStringList order;
    for (int row = 0; row < orderListWidget->count(); ++row)
        order.append(orderListWidget->item(row)->text());
    kpOrder[currentClass] = order;
}

void YoloPoseExportDialog::onClassSelected()
{
    saveCurrentKpOrder();
    const QListWidgetItem* item = classListWidget->currentItem();
    currentClass = item ? item->text() : QString();
    orderListWidget->clear();
    if (!currentClass.isEmpty())
        orderListWidget->addItems(kpOrder.value(currentClass));
}

void YoloPoseExportDialog::onKpAdd()
{
    const QListWidgetItem* item = availableListWidget->currentItem();
    if (!item)
        return;
    const QString name = item->text();
    if (!orderListWidget->findItems(name, Qt::MatchExactly).isEmpty())
        return;
    orderListWidget->addItem(name);
}

void YoloPoseExportDialog::onKpUp()
{
    const int row = orderListWidget->currentRow();
    if (row < 1)
        return;
    QListWidgetItem* item = orderListWidget->takeItem(row);
    orderListWidget->insertItem(row - 1, item);
    orderListWidget->setCurrentRow(row - 1);
}

void YoloPoseExportDialog::onKpDown()
{
    const int row = orderListWidget->currentRow();
    if (row < 0 || row >= orderListWidget->count() - 1)
        return;
    QListWidgetItem* item = orderListWidget->takeItem(row);
    orderListWidget->insertItem(row + 1, item);
    orderListWidget->setCurrentRow(row + 1);
}

void YoloPoseExportDialog::onKpRemove()
{
    const int row = orderListWidget->currentRow();
    if (row < 0)
        return;
    delete orderListWidget->takeItem(row);
}

void YoloPoseExportDialog::accept()
{
    saveCurrentKpOrder();
    if (classList.isEmpty()) {
        UserPrompts::current().warning(
            this, QStringLiteral("No Classes"),
            QStringLiteral("No bounding box annotations found.\nLoad images with bbox annotations first."));
        return;
    }
    QDialog::accept();
}
