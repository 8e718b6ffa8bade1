// Label changes on shapes: one shape from the canvas or the annotations panel, a label
// renamed or removed across the dataset, the Manage Labels dialog, and the label list
// brought in step with the annotation files after an import.

#include "app/mainwindow.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDirIterator>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "labels/labelsdialog.h"
#include "model/labelpalette.h"
#include "model/labelscan.h"
#include "ui/userprompts.h"

namespace {

// Keeps the first entry of every name, in order.
void removeDuplicateLabels(QList<LabelDef>& labels)
{
    QSet<QString> seen;
    QList<LabelDef> unique;
    unique.reserve(labels.size());
    for (const LabelDef& label : std::as_const(labels)) {
        if (seen.contains(label.name))
            continue;
        seen.insert(label.name);
        unique.append(label);
    }
    labels = unique;
}

QPushButton* makeDialogButton(const QString& text, const QString& objectName)
{
    auto* button = new QPushButton(text);
    button->setObjectName(objectName);
    button->setAutoDefault(false);
    button->setDefault(false);
    return button;
}

// The frame shared by the rename and remove dialogs.
QVBoxLayout* setUpLabelDialog(QDialog& dialog, const QString& title)
{
    dialog.setWindowTitle(title);
    dialog.setModal(true);
    dialog.setMinimumWidth(380);
    auto* layout = new QVBoxLayout(&dialog);
    layout->setSpacing(12);
    layout->setContentsMargins(20, 20, 20, 20);
    return layout;
}

QComboBox* makeLabelCombo(const QList<LabelDef>& labels, const QString& objectName)
{
    auto* combo = new QComboBox;
    combo->setObjectName(objectName);
    for (const LabelDef& label : labels)
        combo->addItem(label.name);
    combo->setCurrentIndex(0);
    return combo;
}

QLabel* makeNote(const QString& text, const QString& style)
{
    auto* note = new QLabel(text);
    note->setWordWrap(true);
    note->setStyleSheet(style);
    return note;
}

} // namespace

// --- One shape -------------------------------------------------------------------------

void MainWindow::onLabelChangeRequested(int index, const QString& label)
{
    if (!hasCurrentImage())
        return;
    // The snapshot comes before the index is checked, as for the panel's delete.
    pushUndo();
    QList<BoxAnnotation> shapes = canvas->boxes();
    if (index < 0 || index >= shapes.size())
        return;
    shapes[index].label = label;
    canvas->setBoxes(shapes);
    canvas->setSelectedIndex(index);
    images[currentIndex].boxes = shapes;
    saveAnnotationsFor(currentIndex);
    refreshAnnotationsPanel();
    updateStatusLabel();
}

// --- The label list --------------------------------------------------------------------

void MainWindow::onManageLabels()
{
    LabelsDialog dialog(labels, this);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    labels = dialog.result();
    if (labels.isEmpty())
        labels.append(LabelPalette::defaultLabel());
    applyLabels();
    if (!annotationsFolder.isEmpty())
        saveLabelConfig();
}

void MainWindow::syncClassComboFromAnnotations()
{
    removeDuplicateLabels(labels);
    if (annotationsFolder.isEmpty())
        return;
    int added = 0;
    LabelAppender appender(labels);
    QDirIterator it(annotationsFolder, {QStringLiteral("*.xml")}, QDir::Files);
    while (it.hasNext())
        added += appendLabelsFromFile(appender, it.next());
    if (added > 0) {
        applyLabels();
        saveLabelConfig();
    }
}

// --- Across the dataset ----------------------------------------------------------------

void MainWindow::onRenameLabel()
{
    if (!requireDataLoaded())
        return;
    const QString title = QStringLiteral("Rename Label");
    if (labels.isEmpty()) {
        UserPrompts::current().information(this, title, QStringLiteral("No labels defined yet."));
        return;
    }

    QDialog dialog(this);
    QVBoxLayout* layout = setUpLabelDialog(dialog, title);
    layout->addWidget(new QLabel(QStringLiteral("Select label to rename:")));
    QComboBox* combo = makeLabelCombo(labels, QStringLiteral("renameLabelCombo"));
    layout->addWidget(combo);
    layout->addWidget(new QLabel(QStringLiteral("New name:")));
    auto* nameEdit = new QLineEdit;
    nameEdit->setObjectName(QStringLiteral("newLabelNameEdit"));
    nameEdit->setPlaceholderText(QStringLiteral("Enter new label name..."));
    layout->addWidget(nameEdit);
    layout->addWidget(makeNote(QStringLiteral("All bounding boxes with the selected label will be renamed."),
                               QStringLiteral("color: gray; font-size: 11px;")));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    QPushButton* cancelButton = makeDialogButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"));
    QPushButton* renameButton = makeDialogButton(QStringLiteral("Rename"), QStringLiteral("renameButton"));
    buttons->addWidget(cancelButton);
    buttons->addWidget(renameButton);
    layout->addLayout(buttons);

    connect(nameEdit, &QLineEdit::returnPressed, renameButton, &QPushButton::click);
    connect(cancelButton, &QPushButton::clicked, &dialog, &QDialog::reject);
    connect(renameButton, &QPushButton::clicked, &dialog, [&dialog, nameEdit] {
        if (cleanLabelName(nameEdit->text()).trimmed().isEmpty()) {
            UserPrompts::current().warning(&dialog, QStringLiteral("Invalid name"),
                                           QStringLiteral("Please enter a new label name."));
            return;
        }
        dialog.accept();
    });

    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    const QString oldName = combo->currentText();
    const QString newName = cleanLabelName(nameEdit->text()).trimmed();
    if (newName == oldName)
        return;

    syncCurrentBoxes();
    // Images whose files were never read (the background scan only collects names) are
    // read now, so the rename reaches every file of the dataset. A malformed file leaves
    // its record empty, as an unreadable or missing one does.
    QList<int> incomplete;
    if (!readWholeDataset(false, &incomplete))
        return;
    for (int i : std::as_const(incomplete)) {
        images[i].boxes.clear();
        images[i].partial = false;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    int shapeCount = 0;
    int imageCount = 0;
    QList<int> toSave;
    for (int i = 0; i < images.size(); ++i) {
        ImageAnnotations& record = images[i];
        int changed = 0;
        for (BoxAnnotation& shape : record.boxes) {
            if (shape.label == oldName) {
                shape.label = newName;
                ++changed;
            }
        }
        if (changed == 0)
            continue;
        shapeCount += changed;
        ++imageCount;
        record.dirty = true;
        if (i == currentIndex)
            canvas->setBoxes(record.boxes);
        toSave.append(i);
    }
    // A file that cannot be written is reported on its own; the others still go ahead.
    saveAnnotationsForAll(toSave);
    // The snapshots still hold the old label; undoing into them would bring it back
    // into one image after the whole dataset dropped it.
    undoStack.clear();
    redoStack.clear();
    QApplication::restoreOverrideCursor();

    for (LabelDef& label : labels) {
        if (label.name == oldName) {
            label.name = newName;
            break;
        }
    }
    // Renaming onto an existing label leaves the one that stood first.
    removeDuplicateLabels(labels);
    applyLabels();
    saveLabelConfig();
    if (hasCurrentImage()) {
        canvas->setBoxes(images[currentIndex].boxes);
        refreshAnnotationsPanel();
        updateStatusLabel();
    }

    UserPrompts::current().information(
        this, QStringLiteral("Rename complete"),
        QStringLiteral("Renamed label \"%1\" to \"%2\".\n%3 bounding box(es) in %4 image(s) updated.")
            .arg(oldName, newName, QString::number(shapeCount), QString::number(imageCount)));
}

void MainWindow::onRemoveLabel()
{
    if (!requireDataLoaded())
        return;
    const QString title = QStringLiteral("Remove Label");
    if (labels.isEmpty()) {
        UserPrompts::current().information(this, title, QStringLiteral("No labels defined yet."));
        return;
    }

    QDialog dialog(this);
    QVBoxLayout* layout = setUpLabelDialog(dialog, title);
    layout->addWidget(new QLabel(QStringLiteral("Select label to remove:")));
    QComboBox* combo = makeLabelCombo(labels, QStringLiteral("removeLabelCombo"));
    layout->addWidget(combo);
    layout->addWidget(makeNote(
        QStringLiteral("All bounding boxes with this label will be permanently deleted from the dataset."),
        QStringLiteral("color: #cc4444; font-size: 11px;")));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    QPushButton* cancelButton = makeDialogButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"));
    QPushButton* removeButton = makeDialogButton(QStringLiteral("Remove"), QStringLiteral("removeButton"));
    removeButton->setStyleSheet(QStringLiteral("QPushButton { color: #cc4444; font-weight: bold; }"));
    buttons->addWidget(cancelButton);
    buttons->addWidget(removeButton);
    layout->addLayout(buttons);
    connect(cancelButton, &QPushButton::clicked, &dialog, &QDialog::reject);
    connect(removeButton, &QPushButton::clicked, &dialog, &QDialog::accept);

    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    const QString name = combo->currentText();

    const QList<UserPrompts::Choice> choices = {
        {QStringLiteral("Yes, delete all"), QMessageBox::DestructiveRole},
        {QStringLiteral("No"), QMessageBox::RejectRole},
    };
    const int answer = UserPrompts::current().choose(
        this, QMessageBox::Warning, QStringLiteral("Confirm Removal"),
        UserPrompts::richText(QStringLiteral("Are you sure you want to globally delete all annotations\n"
                                             "for the selected label: <b>%1</b>?")
                                  .arg(name.toHtmlEscaped())),
        QStringLiteral("This will remove the label and all its bounding boxes from every image. "
                       "This cannot be undone."),
        choices, 1);
    if (answer != 0)
        return;

    syncCurrentBoxes();
    QApplication::setOverrideCursor(Qt::WaitCursor);
    int shapeCount = 0;
    int imageCount = 0;
    QList<int> toSave;
    // Only shapes held in memory: files never read keep the label.
    for (int i = 0; i < images.size(); ++i) {
        ImageAnnotations& record = images[i];
        const auto removed = record.boxes.removeIf(
            [&name](const BoxAnnotation& shape) { return shape.label == name; });
        if (removed == 0)
            continue;
        if (!record.boxes.isEmpty()) {
            record.dirty = true;
            if (i == currentIndex)
                canvas->setBoxes(record.boxes);
            toSave.append(i);
        } else {
            removeAnnotationFile(record);
        }
        updateImageListItem(i);
        shapeCount += int(removed);
        ++imageCount;
    }
    saveAnnotationsForAll(toSave);
    // The snapshots still hold the old label; undoing into them would bring it back
    // into one image after the whole dataset dropped it.
    undoStack.clear();
    redoStack.clear();
    QApplication::restoreOverrideCursor();

    labels.removeIf([&name](const LabelDef& label) { return label.name == name; });
    if (labels.isEmpty())
        labels.append(LabelPalette::defaultLabel());
    applyLabels();
    saveLabelConfig();
    if (hasCurrentImage()) {
        canvas->setBoxes(images[currentIndex].boxes);
        refreshAnnotationsPanel();
        updateStatusLabel();
    }

    UserPrompts::current().information(
        this, QStringLiteral("Removal complete"),
        QStringLiteral("Label \"%1\" removed.\n%2 bounding box(es) deleted across %3 image(s).")
            .arg(name, QString::number(shapeCount), QString::number(imageCount)));
}
