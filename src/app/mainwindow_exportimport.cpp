// The Export / Import commands: ask for the target, run one converter on the session's
// lists, report its result.

#include "app/mainwindow.h"

#include "canvas/imagecanvas.h"
#include "formats/datasetreading.h"
#include "formats/exportimport.h"
#include "formats/yoloposeexportdialog.h"
#include "ui/backgroundtask.h"
#include "ui/userprompts.h"

namespace {

void reportExport(QWidget* parent, const ExportImportResult& result)
{
    if (result.ok)
        UserPrompts::current().information(parent, QStringLiteral("Export complete"), result.message);
    else
        UserPrompts::current().warning(parent, QStringLiteral("Export failed"), result.message);
}

} // namespace

// --- Reading the whole dataset ------------------------------------------------------------

bool MainWindow::readWholeDataset(bool imageSizes, QList<int>* incomplete)
{
    DatasetReading::Options options;
    options.imageSizes = imageSizes;
    const QList<int> pending = DatasetReading::recordsToRead(images, options);
    if (pending.isEmpty())
        return true;

    // The files are read off the GUI thread into a list of their own; only the GUI
    // thread changes the records, once the reading is done.
    QList<DatasetReading::RecordRead> reads;
    bool stopped = false;
    const QList<ImageAnnotations> snapshot = images;
    const bool finished = BackgroundTask::run(
        this, QStringLiteral("Reading annotations"), QStringLiteral("Reading annotation files..."),
        [&](const BackgroundTask::Progress& progress) {
            reads = DatasetReading::readAll(snapshot, pending, options, progress, &stopped);
        },
        QStringLiteral("readProgressDialog"));
    if (!finished || stopped)
        return false;
    const DatasetReading::Outcome outcome = DatasetReading::apply(images, pending, reads);
    if (incomplete)
        *incomplete = outcome.incomplete;
    return true;
}

// --- Exports ---------------------------------------------------------------------------
// Each export takes the canvas's shapes into the current record first, so that an edit
// on the image shown is part of the output even before it was written. Then every record
// never shown is read from its file: an export of only the images opened so far would
// silently hand on a dataset with most of its annotations missing.

void MainWindow::onExportYolo()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select output folder for YOLO files"), QString());
    if (folder.isEmpty())
        return;
    if (!readWholeDataset(false))
        return;
    reportExport(this, ExportImport::exportYolo(images, labels, folder));
}

void MainWindow::onExportCoco()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    const QString path = UserPrompts::current().saveFileName(
        this, QStringLiteral("Save COCO JSON file"), QStringLiteral("annotations.json"),
        QStringLiteral("JSON (*.json)"));
    if (path.isEmpty())
        return;
    if (!readWholeDataset(false))
        return;
    reportExport(this, ExportImport::exportCoco(images, labels, path));
}

void MainWindow::onExportDota()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select output folder for DOTA files"), QString());
    if (folder.isEmpty())
        return;
    if (!readWholeDataset(false))
        return;
    reportExport(this, ExportImport::exportDota(images, folder));
}

void MainWindow::onExportCsv()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    const QString path = UserPrompts::current().saveFileName(
        this, QStringLiteral("Save CSV file"), QStringLiteral("annotations.csv"),
        QStringLiteral("CSV (*.csv)"));
    if (path.isEmpty())
        return;
    if (!readWholeDataset(false))
        return;
    reportExport(this, ExportImport::exportCsv(images, path));
}

// Only the label list is written, so the canvas needs no synchronisation.
void MainWindow::onExportObjectNames()
{
    if (!requireDataLoaded())
        return;
    const QString path = UserPrompts::current().saveFileName(
        this, QStringLiteral("Save object names file"), QStringLiteral("classes.txt"),
        QStringLiteral("Text (*.txt)"));
    if (path.isEmpty())
        return;
    reportExport(this, ExportImport::exportObjectNames(labels, path));
}

void MainWindow::onExportYoloPose()
{
    if (images.isEmpty()) {
        UserPrompts::current().information(this, QStringLiteral("No Data"),
                                           QStringLiteral("Load images and annotations first."));
        return;
    }
    if (hasCurrentImage() && images[currentIndex].dirty)
        saveAnnotationsFor(currentIndex);
    // Before the dialog, which offers the classes found in the records. This export
    // leaves out images without a stored size, so the sizes are read as well.
    if (!readWholeDataset(true))
        return;

    YoloPoseExportDialog dialog(images, labels, this);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select output folder for YOLO Pose files"), QString());
    if (folder.isEmpty())
        return;

    const ExportImportResult result =
        ExportImport::exportYoloPose(images, dialog.kpOrder, dialog.classList, folder);
    if (result.ok)
        UserPrompts::current().information(this, QStringLiteral("Export Complete"), result.message);
    else
        UserPrompts::current().critical(this, QStringLiteral("Export Failed"), result.message);
}

// --- Imports ---------------------------------------------------------------------------
// Imports change the records in memory and mark them dirty; the session writes the files.

void MainWindow::onImportYolo()
{
    if (!requireDataLoaded())
        return;
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select folder containing YOLO txt files"), QString());
    if (folder.isEmpty())
        return;
    const ExportImportResult result = ExportImport::importYolo(images, labels, folder);
    doAfterImport(result.ok, result.message);
}

void MainWindow::onImportCoco()
{
    if (!requireDataLoaded())
        return;
    const QString path = UserPrompts::current().openFileName(
        this, QStringLiteral("Open COCO JSON file"), QString(), QStringLiteral("JSON (*.json)"));
    if (path.isEmpty())
        return;
    const ExportImportResult result = ExportImport::importCoco(images, labels, path);
    doAfterImport(result.ok, result.message);
}

void MainWindow::onImportDota()
{
    if (!requireDataLoaded())
        return;
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select folder containing DOTA txt files"), QString());
    if (folder.isEmpty())
        return;
    const ExportImportResult result = ExportImport::importDota(images, labels, folder);
    doAfterImport(result.ok, result.message);
}

void MainWindow::onImportCsv()
{
    if (!requireDataLoaded())
        return;
    const QString path = UserPrompts::current().openFileName(
        this, QStringLiteral("Open CSV file"), QString(), QStringLiteral("CSV (*.csv)"));
    if (path.isEmpty())
        return;
    const ExportImportResult result = ExportImport::importCsv(images, labels, path);
    doAfterImport(result.ok, result.message);
}

// Works without a dataset: only the label list changes.
void MainWindow::onImportObjectNames()
{
    const QString path = UserPrompts::current().openFileName(
        this, QStringLiteral("Open classes/labels file"), QString(),
        QStringLiteral("Text files (*.txt);;All files (*.*)"));
    if (path.isEmpty())
        return;
    const ExportImportResult result = ExportImport::importObjectNames(labels, path);
    if (!result.ok) {
        UserPrompts::current().critical(this, QStringLiteral("Import Failed"), result.message);
        return;
    }
    applyLabels();
    if (!annotationsFolder.isEmpty())
        saveLabelConfig();
    UserPrompts::current().information(this, QStringLiteral("Import Complete"), result.message);
}

void MainWindow::doAfterImport(bool ok, const QString& message)
{
    if (!ok) {
        UserPrompts::current().warning(this, QStringLiteral("Import failed"), message);
        return;
    }
    UserPrompts::current().information(this, QStringLiteral("Import complete"), message);

    if (hasCurrentImage()) {
        canvas->setBoxes(images[currentIndex].boxes);
        refreshAnnotationsPanel();
    }
    for (int row = 0; row < images.size(); ++row)
        updateImageListItem(row);
    syncClassComboFromAnnotations();
    applyLabels();
}
