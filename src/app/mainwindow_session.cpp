// The dataset session: loading the folder pair, the background label scan, showing an
// image, auto-save, undo and redo, copy and paste, removal of images, the status line.

#include "app/mainwindow.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QPixmap>
#include <QTimer>
#include <QToolButton>

#include <algorithm>

#include "app/imagelistwidget.h"
#include "app/loaddatadialog.h"
#include "app/proposalreview.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/imagecache.h"
#include "model/imagefolder.h"
#include "model/annotationstore.h"
#include "model/datasetfolders.h"
#include "model/imageloading.h"
#include "model/labelpalette.h"
#include "model/labelscan.h"
#include "model/vocxml.h"
#include "ui/userprompts.h"

namespace {

constexpr int kScanBatch = 8;
constexpr int kFirstScanDelayMs = 50;
constexpr int kNextScanDelayMs = 30;
constexpr int kScanStatusEvery = 150;
constexpr int kUndoLimit = 10;
constexpr int kAutoZoomBorder = 50;

const QString kNoDataText = QStringLiteral("No data loaded. Click 'Load Data' to begin.");

QString fileNameOf(const QString& path)
{
    return QFileInfo(path).fileName();
}

void pushLimited(QList<QList<BoxAnnotation>>& stack, const QList<BoxAnnotation>& snapshot)
{
    stack.append(snapshot);
    if (stack.size() > kUndoLimit)
        stack.removeFirst();
}

} // namespace

// --- Loading ---------------------------------------------------------------------------

void MainWindow::onLoadData()
{
    LoadDataDialog dialog(this, imagesFolder, annotationsFolder);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    if (hasCurrentImage() && images[currentIndex].dirty)
        saveAnnotationsFor(currentIndex);
    imagesFolder = dialog.imagesFolder();
    annotationsFolder = dialog.annotationsFolder();
    rebuildImageList();
}

bool MainWindow::openDataset(const QString& imagesDir, const QString& annotationsDir)
{
    if (imagesDir.trimmed().isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("Missing folder"),
                                       QStringLiteral("Please select an images folder."));
        return false;
    }
    const QString imagesPath = QDir::cleanPath(QFileInfo(imagesDir).absoluteFilePath());
    const QString annotations =
        annotationsDir.trimmed().isEmpty()
            ? imagesPath + QStringLiteral("/annotations")
            : QDir::cleanPath(QFileInfo(annotationsDir).absoluteFilePath());
    // A mistyped images folder only earns the "No images found" status; making the
    // annotations folder would leave a stray folder tree behind.
    const bool imagesExist = QFileInfo(imagesPath).isDir();
    if (imagesExist && !QDir(annotations).exists() && !QDir().mkpath(annotations)) {
        UserPrompts::current().warning(
            this, QStringLiteral("Error"),
            QStringLiteral("Could not create annotations folder:\n") + annotations);
        return false;
    }
    if (hasCurrentImage() && images[currentIndex].dirty)
        saveAnnotationsFor(currentIndex);
    imagesFolder = imagesPath;
    annotationsFolder = annotations;
    rebuildImageList();
    return true;
}

void MainWindow::onReloadData()
{
    if (imagesFolder.isEmpty()) {
        onLoadData();
        return;
    }
    if (currentIndex < 0) {
        rebuildImageList();
        return;
    }
    if (hasCurrentImage() && images[currentIndex].dirty)
        saveAnnotationsFor(currentIndex);
    const int row = currentIndex;
    rebuildImageList();
    if (row < images.size())
        selectImageRow(row);
}

void MainWindow::rebuildImageList()
{
    // The paths are listed as the records keep them: the folder as QDir spells it, a
    // slash, the file name. Listing whole paths spares a second string per image.
    const QString imagePrefix =
        imagesFolder.isEmpty() ? QString()
                               : QDir(imagesFolder).absoluteFilePath(QStringLiteral("x")).chopped(1);
    QStringList paths = ImageFolder::list(imagesFolder, imagePrefix);

    images.clear();
    imageList->clear();
    currentIndex = -1;
    scanIndex = 0;
    lastShownRow = -1;
    scanFound.clear();
    scanFoundSet.clear();
    // The image shown belongs to the list just dropped; left on the canvas it would take
    // drawing that no record receives.
    showNoImage();
    proposalReview->datasetOpened();

    if (paths.isEmpty()) {
        statusLabel->setText(QStringLiteral("No images found in: ") + imagesFolder);
        return;
    }

    loadLabelConfig();

    const QString xmlPrefix =
        QDir(annotationsFolder).filePath(QStringLiteral("x")).chopped(1);
    images.reserve(paths.size());
    for (QString& path : paths) {
        ImageAnnotations record;
        // Every listed name has a suffix, so there is a dot after the folder.
        qsizetype dot = path.size() - 1;
        while (dot > imagePrefix.size() && path.at(dot) != QLatin1Char('.'))
            --dot;
        const QStringView base = QStringView(path).mid(imagePrefix.size(), dot - imagePrefix.size());
        record.xmlPath.reserve(xmlPrefix.size() + base.size() + 4);
        record.xmlPath.append(xmlPrefix).append(base).append(QLatin1String(".xml"));
        record.imagePath = std::move(path);
        images.append(std::move(record));
    }
    paths = QStringList();
    imageList->setUpdatesEnabled(false);
    imageList->appendRecordRows(images.size());
    imageList->setUpdatesEnabled(true);

    selectImageRow(0);

    statusLabel->setText(
        QStringLiteral("Loaded %1 images  |  Scanning annotations in background...")
            .arg(images.size()));
    QTimer::singleShot(kFirstScanDelayMs, this, &MainWindow::scanNextBatch);
}

void MainWindow::scanNextBatch()
{
    const int count = images.size();
    const int end = qMin(scanIndex + kScanBatch, count);
    for (int i = scanIndex; i < end; ++i) {
        const QString xmlPath = images[i].xmlPath;
        if (!QFileInfo::exists(xmlPath))
            continue;
        imageList->setUpdatesEnabled(false);
        updateImageListItem(i);
        imageList->setUpdatesEnabled(true);
        for (const QString& name : scanLabelNames(xmlPath)) {
            if (!scanFoundSet.contains(name)) {
                scanFoundSet.insert(name);
                scanFound.append(name);
            }
        }
    }
    scanIndex = end;

    if (end < count) {
        if (end % kScanStatusEvery == 0)
            statusLabel->setText(
                QStringLiteral("Scanning annotations: %1 / %2...").arg(end).arg(count));
        QTimer::singleShot(kNextScanDelayMs, this, &MainWindow::scanNextBatch);
        return;
    }
    // The names found join the label list at the end, in the order they were found: one
    // pass over the list instead of a search of the whole list for every name.
    LabelAppender appender(labels);
    for (const QString& name : std::as_const(scanFound))
        appender.add(name);
    scanFound.clear();
    scanFoundSet.clear();
    applyLabels();
    saveLabelConfig();
    updateStatusLabel();
}

void MainWindow::updateImageListItem(int row)
{
    if (row < 0 || row >= images.size())
        return;
    imageList->setRowAnnotated(row, QFileInfo::exists(images[row].xmlPath));
}

bool MainWindow::requireDataLoaded()
{
    if (!imagesFolder.isEmpty())
        return true;
    UserPrompts::current().information(
        this, QStringLiteral("No Data Loaded"),
        UserPrompts::richText(
            QStringLiteral("Please click <b>Load Data</b> first and point Brindle to your\n"
                           "images directory and annotations directory\n"
                           "(they can be empty folders if you are starting fresh).")));
    return false;
}

// --- The image shown -------------------------------------------------------------------

void MainWindow::loadImageAt(int row)
{
    undoStack.clear();
    redoStack.clear();
    historyBeforeChange.reset();
    if (row < 0 || row >= images.size())
        return;

    ImageAnnotations& record = images[row];
    const DecodedImage image = decodeForShowing(record.imagePath);
    if (image.isNull()) {
        UserPrompts::current().warning(
            this, QStringLiteral("Load error"),
            QStringLiteral("Could not load image:\n") + record.imagePath
                + (image.error.isEmpty() ? QString() : QStringLiteral("\n") + image.error));
        return;
    }
    record.width = image.fullSize.width();
    record.height = image.fullSize.height();
    if (record.boxes.isEmpty()) {
        VocXml::LoadProblem problem;
        VocXml::load(record, &problem);
        if (record.partial)
            noteLoadProblem(record, problem.refusal, problem.errorLine);
    }

    currentIndex = row;
    showDecoded(image);
    canvas->setBoxes(record.boxes);
    canvas->setImageInfo(row + 1, images.size());
    proposalReview->imageShown();

    if (QListWidgetItem* item = imageList->item(row))
        imageList->scrollToItem(item);
    if (autoZoom && !record.boxes.isEmpty())
        canvas->zoomToAnnotations(kAutoZoomBorder);

    refreshAnnotationsPanel();
    updateStatusLabel();
    prefetchAround(row);
}

void MainWindow::noteLoadProblem(const ImageAnnotations& record, const QString& refusal, int errorLine)
{
    if (toldAboutFile.contains(record.xmlPath))
        return;
    toldAboutFile.insert(record.xmlPath);
    const QString name = QFileInfo(record.xmlPath).fileName();
    if (!refusal.isEmpty())
        showStatusNote(QStringLiteral("%1 was not read: %2").arg(name, refusal));
    else
        showStatusNote(QStringLiteral("%1 has an XML error at line %2: only the %3 shape(s) before it "
                                      "were read; the file is kept as %1.orig before it is written")
                           .arg(name)
                           .arg(errorLine)
                           .arg(record.boxes.size()));
}

void MainWindow::reportSaveError(const QString& xmlPath, const QString& reason)
{
    // The status line says "NOT saved" while the box is up, not after it.
    updateStatusLabel();
    UserPrompts::current().warning(this, QStringLiteral("Save error"),
                                   QStringLiteral("Could not write:\n%1\n%2").arg(xmlPath, reason));
}

void MainWindow::noteOutcome(const QString& xmlPath, const QString& theirsPath)
{
    if (theirsPath.isEmpty())
        return;
    showStatusNote(QStringLiteral("%1 was changed by another program: that version is kept as %2")
                       .arg(QFileInfo(xmlPath).fileName(), QFileInfo(theirsPath).fileName()));
}

void MainWindow::saveAnnotationsFor(int index)
{
    if (index < 0 || index >= images.size())
        return;
    ImageAnnotations& record = images[index];
    if (index == currentIndex)
        record.boxes = canvas->boxes();
    const AnnotationStore::Outcome outcome =
        AnnotationStore::save(record, QDir(imagesFolder).dirName());
    noteOutcome(record.xmlPath, outcome.theirsPath);
    if (outcome.ok)
        updateImageListItem(index);
    else
        reportSaveError(record.xmlPath, outcome.error);
}

QStringList MainWindow::saveAnnotationsForAll(const QList<int>& indices, bool reportEach)
{
    QList<int> valid;
    for (int index : indices) {
        if (index < 0 || index >= images.size())
            continue;
        if (index == currentIndex)
            images[index].boxes = canvas->boxes();
        valid.append(index);
    }
    const QList<AnnotationStore::Outcome> outcomes =
        AnnotationStore::saveAll(images, valid, QDir(imagesFolder).dirName());
    QStringList failures;
    for (int k = 0; k < valid.size(); ++k) {
        const AnnotationStore::Outcome& outcome = outcomes.at(k);
        const QString& xmlPath = images.at(valid.at(k)).xmlPath;
        noteOutcome(xmlPath, outcome.theirsPath);
        if (outcome.ok) {
            updateImageListItem(valid.at(k));
            continue;
        }
        failures.append(xmlPath + QLatin1Char('\n') + outcome.error);
        if (reportEach)
            reportSaveError(xmlPath, outcome.error);
    }
    return failures;
}

void MainWindow::removeAnnotationFile(ImageAnnotations& record)
{
    const AnnotationStore::Outcome outcome = AnnotationStore::remove(record);
    noteOutcome(record.xmlPath, outcome.theirsPath);
    if (!outcome.ok)
        reportSaveError(record.xmlPath, outcome.error);
}

void MainWindow::removeFileOfEmptiedImage()
{
    if (hasCurrentImage())
        removeAnnotationFile(images[currentIndex]);
}

void MainWindow::onSaveCurrent()
{
    if (currentIndex >= 0)
        saveAnnotationsFor(currentIndex);
    updateStatusLabel();
}

void MainWindow::syncCurrentBoxes()
{
    if (hasCurrentImage())
        images[currentIndex].boxes = canvas->boxes();
}

void MainWindow::onImageRowChanged(int row)
{
    if (row < 0 || row >= images.size())
        return;
    if (hasCurrentImage()) {
        images[currentIndex].boxes = canvas->boxes();
        if (!canvas->boxes().isEmpty())
            saveAnnotationsFor(currentIndex);
    }
    loadImageAt(row);
}

void MainWindow::showNoImage()
{
    canvas->setImage(QPixmap());
    canvas->setBoxes({});
    canvas->setImageInfo(0, 0);
    annotationsPanel->setBoxes({});
}

void MainWindow::selectImageRow(int row)
{
    imageList->setCurrentRow(row);
}

int MainWindow::navigationRow() const
{
    const int row = imageList->currentRow();
    return row >= 0 && row < images.size() ? row : currentIndex;
}

void MainWindow::onPrevImage()
{
    const int row = navigationRow();
    if (row >= 1)
        selectImageRow(row - 1);
}

void MainWindow::onNextImage()
{
    const int row = navigationRow();
    if (row + 1 < images.size())
        selectImageRow(row + 1);
}

void MainWindow::onToggleAutoZoom()
{
    autoZoom = autoZoomButton->isChecked();
    if (!autoZoom)
        canvas->zoomFit();
    else if (hasCurrentImage() && !canvas->boxes().isEmpty())
        canvas->zoomToAnnotations(kAutoZoomBorder);
}

// --- Changes, undo and redo ------------------------------------------------------------

void MainWindow::pushUndo()
{
    if (currentIndex < 0)
        return;
    historyBeforeChange = History{undoStack, redoStack};
    pushLimited(undoStack, canvas->boxes());
    redoStack.clear();
    proposalReview->historyPushed();
}

void MainWindow::onCanvasChangeCancelled()
{
    if (!historyBeforeChange)
        return;
    undoStack = historyBeforeChange->undo;
    redoStack = historyBeforeChange->redo;
    historyBeforeChange.reset();
    proposalReview->historyCancelled();
}

void MainWindow::onCanvasBoxesChanged()
{
    if (!hasCurrentImage())
        return;
    images[currentIndex].boxes = canvas->boxes();
    if (!canvas->boxes().isEmpty())
        saveAnnotationsFor(currentIndex);
    else
        removeFileOfEmptiedImage();
    refreshAnnotationsPanel();
    updateImageListItem(currentIndex);
    updateStatusLabel();
}

void MainWindow::restoreSnapshot(const QList<BoxAnnotation>& shapes)
{
    historyBeforeChange.reset();
    canvas->setBoxes(shapes);
    images[currentIndex].boxes = shapes;
    if (shapes.isEmpty())
        removeFileOfEmptiedImage();
    else
        saveAnnotationsFor(currentIndex);
    refreshAnnotationsPanel();
    updateImageListItem(currentIndex);
    updateStatusLabel();
}

void MainWindow::onUndo()
{
    if (undoStack.isEmpty() || !hasCurrentImage())
        return;
    pushLimited(redoStack, canvas->boxes());
    restoreSnapshot(undoStack.takeLast());
    proposalReview->stepBack();
}

void MainWindow::onRedo()
{
    if (redoStack.isEmpty() || !hasCurrentImage())
        return;
    pushLimited(undoStack, canvas->boxes());
    restoreSnapshot(redoStack.takeLast());
    proposalReview->stepForward();
}

void MainWindow::onAnnotationDeleteRequested(int index)
{
    if (!hasCurrentImage())
        return;
    // The snapshot is taken even when the index turns out to be stale.
    pushUndo();
    QList<BoxAnnotation> shapes = canvas->boxes();
    if (index < 0 || index >= shapes.size())
        return;
    shapes.removeAt(index);
    canvas->setBoxes(shapes);
    images[currentIndex].boxes = shapes;
    if (!shapes.isEmpty())
        saveAnnotationsFor(currentIndex);
    else
        removeFileOfEmptiedImage();
    refreshAnnotationsPanel();
    updateImageListItem(currentIndex);
    updateStatusLabel();
}

void MainWindow::onCanvasSelectionChanged(int index)
{
    annotationsPanel->setSelectedIndex(index);
    updateStatusLabel();
}

void MainWindow::onAnnotationSelected(int index)
{
    canvas->setSelectedIndex(index);
    canvas->update();
}

void MainWindow::refreshAnnotationsPanel()
{
    if (hasCurrentImage()) {
        annotationsPanel->setBoxes(canvas->boxes());
        annotationsPanel->setSelectedIndex(canvas->m_selectedIndex);
    } else {
        annotationsPanel->setBoxes({});
    }
}

// --- Copy and paste --------------------------------------------------------------------

void MainWindow::copySelection()
{
    if (canvas->m_allSelected)
        clipboard = canvas->boxes();
    else if (canvas->m_selectedIndex >= 0 && canvas->m_selectedIndex < canvas->boxes().size())
        clipboard = {canvas->selectedBox()};
}

void MainWindow::paste()
{
    if (clipboard.isEmpty() || currentIndex < 0)
        return;
    pushUndo();
    const int first = canvas->boxes().size();
    QList<BoxAnnotation> shapes = canvas->boxes();
    shapes.append(clipboard);
    canvas->setBoxes(shapes);
    canvas->setSelectedIndex(first);
    images[currentIndex].boxes = shapes;
    saveAnnotationsFor(currentIndex);
    refreshAnnotationsPanel();
    annotationsPanel->setSelectedIndex(first);
    updateImageListItem(currentIndex);
    updateStatusLabel();
}

// --- Status line -----------------------------------------------------------------------

void MainWindow::updateStatusLabel()
{
    if (!hasCurrentImage()) {
        statusLabel->setText(kNoDataText);
        return;
    }
    const ImageAnnotations& record = images[currentIndex];
    const int shapes = canvas->boxes().size();
    // "saved" is no check of the file, but a write that failed is never shown as saved.
    const QString annotations =
        shapes == 0           ? QStringLiteral("No annotations")
        : record.writeFailed ? QStringLiteral("%1 annotation(s) - NOT saved").arg(shapes)
                             : QStringLiteral("%1 annotation(s) - saved").arg(shapes);
    statusLabel->setText(QStringLiteral("Image %1 / %2   |   %3   |   %4 x %5 px   |   %6")
                             .arg(currentIndex + 1)
                             .arg(images.size())
                             .arg(fileNameOf(record.imagePath))
                             .arg(record.width)
                             .arg(record.height)
                             .arg(annotations));
}

void MainWindow::onDrawingCoords(int left, int top, int right, int bottom)
{
    if (left < 0) {
        updateStatusLabel();
        return;
    }
    statusLabel->setText(QStringLiteral("Drawing: (%1, %2) to (%3, %4)  |  Size: %5 x %6 px")
                             .arg(left)
                             .arg(top)
                             .arg(right)
                             .arg(bottom)
                             .arg(right - left + 1)
                             .arg(bottom - top + 1));
}

// --- Removing an image -----------------------------------------------------------------

void MainWindow::onRemoveImageRequested(int row)
{
    if (row < 0 || row >= images.size())
        return;

    enum { DeleteFile = 0, KeepFile = 1, Cancel = 2 };
    const QList<UserPrompts::Choice> buttons = {
        {QStringLiteral("Yes, delete file"), QMessageBox::DestructiveRole},
        {QStringLiteral("No, keep file"), QMessageBox::AcceptRole},
        {QStringLiteral("Cancel"), QMessageBox::RejectRole},
    };
    const int answer = UserPrompts::current().choose(
        this, QMessageBox::Question, QStringLiteral("Remove Image"),
        UserPrompts::richText(QStringLiteral("Remove <b>%1</b> from this session?")
                                  .arg(fileNameOf(images[row].imagePath).toHtmlEscaped())),
        QStringLiteral("Would you also like to delete the image file from disk?"), buttons,
        KeepFile);
    if (answer != DeleteFile && answer != KeepFile)
        return;
    if (answer == DeleteFile)
        QFile::remove(images[row].imagePath);

    if (hasCurrentImage() && currentIndex != row && images[currentIndex].dirty)
        saveAnnotationsFor(currentIndex);

    images.removeAt(row);
    {
        // Taking the current item out would otherwise move the list's current row and
        // run the row-change path against records that have already shifted.
        const QSignalBlocker blocker(imageList);
        delete imageList->takeItem(row);
    }
    if (scanIndex > row)
        --scanIndex;

    currentIndex = -1;
    if (images.isEmpty()) {
        showNoImage();
        updateStatusLabel();
        return;
    }
    const int next = qMin(row, int(images.size()) - 1);
    {
        const QSignalBlocker blocker(imageList);
        imageList->setCurrentRow(next);
    }
    loadImageAt(next);
}
