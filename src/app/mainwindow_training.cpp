// The dataset check and the export for training: both read the whole dataset off the GUI
// thread through the core functions brindle-convert runs too.

#include "app/mainwindow.h"

#include <QDir>
#include <QFileInfo>

#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "training/checkdialog.h"
#include "training/datasetcheck.h"
#include "training/trainingexport.h"
#include "training/trainingexportdialog.h"
#include "ui/backgroundtask.h"
#include "ui/userprompts.h"

namespace {

// "The check found 2 errors and 1 warning." or that it found nothing.
QString checkSentence(const DatasetCheck::Report& report)
{
    const int e = report.errors();
    const int w = report.warnings();
    if (e == 0 && w == 0)
        return QStringLiteral("The check found no problem.");
    return QStringLiteral("The check found %1 error%2 and %3 warning%4 (Edit > Check Dataset... "
                          "lists them).")
        .arg(e).arg(e == 1 ? QString() : QStringLiteral("s"))
        .arg(w).arg(w == 1 ? QString() : QStringLiteral("s"));
}

// The dry run's summary, worded as what the export will do.
QString previewText(const TrainingExport::Summary& preview)
{
    QStringList lines = preview.text().split(QLatin1Char('\n'));
    lines.removeFirst(); // "... export to ...:", said by the question itself
    return lines.join(QLatin1Char('\n'));
}

// Whether the background label scan has read every annotation file.
bool labelScanDone(const MainWindow& window)
{
    return window.scanIndex >= window.images.size();
}

} // namespace

void MainWindow::onCheckDataset()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    const QList<ImageAnnotations> snapshot = images;
    QList<LabelDef> labelList = labels;
    const QString folder = annotationsFolder;
    DatasetCheck::Options checkOptions;
    checkOptions.scanLabels = !labelScanDone(*this);
    DatasetCheck::Report report;
    const bool finished = BackgroundTask::run(
        this, QStringLiteral("Check Dataset"), QStringLiteral("Checking annotations and images..."),
        [&](const BackgroundTask::Progress& progress) {
            report = DatasetCheck::run(snapshot, labelList, folder, checkOptions, progress);
        },
        QStringLiteral("checkProgressDialog"));
    if (!finished || report.cancelled)
        return;
    if (!checkDialog) {
        checkDialog = new CheckDialog(this);
        connect(checkDialog, &CheckDialog::openRequested, this, &MainWindow::openCheckedShape);
    }
    checkDialog->setReport(report);
    checkDialog->show();
    checkDialog->raise();
    checkDialog->activateWindow();
}

void MainWindow::openCheckedShape(int record, const QString& image, int shape)
{
    // The list may have been reloaded since the check: the file name decides.
    const auto nameAt = [this](int i) { return QFileInfo(images.at(i).imagePath).fileName(); };
    if (record < 0 || record >= images.size() || nameAt(record) != image) {
        record = -1;
        for (int i = 0; i < images.size() && record < 0; ++i)
            if (nameAt(i) == image)
                record = i;
    }
    if (record < 0)
        return;
    if (record != currentIndex)
        selectImageRow(record);
    if (currentIndex != record || shape < 0 || shape >= canvas->boxes().size())
        return;
    canvas->setSelectedIndex(shape);
    annotationsPanel->setSelectedIndex(shape);
    canvas->update();
    updateStatusLabel();
}

void MainWindow::onExportForTraining()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    // The dialog offers the keypoint labels found in the records.
    if (!readWholeDataset(false))
        return;
    TrainingExportDialog dialog(images, labels, this);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    TrainingExport::Options options = dialog.options();
    options.outputFolder = QDir::cleanPath(QFileInfo(options.outputFolder).absoluteFilePath());
    // Until the label scan has read every file, the runs find the rest of the names
    // themselves, in the order the scan would add them.
    options.scanLabels = !labelScanDone(*this);
    DatasetCheck::Options checkOptions;
    checkOptions.scanLabels = options.scanLabels;

    // First the check and a dry run, so the user sees what will be clipped or left out.
    const QList<ImageAnnotations> snapshot = images;
    const QString folder = annotationsFolder;
    DatasetCheck::Report report;
    TrainingExport::Summary preview;
    bool stopped = false;
    const bool previewed = BackgroundTask::run(
        this, QStringLiteral("Export for Training"), QStringLiteral("Checking the dataset..."),
        [&](const BackgroundTask::Progress& progress) {
            QList<LabelDef> checkLabels = labels;
            report = DatasetCheck::run(snapshot, checkLabels, folder, checkOptions,
                                       [&](int done, int total) { return progress(done, 2 * total); });
            if (report.cancelled) {
                stopped = true;
                return;
            }
            TrainingExport::Options dry = options;
            dry.dryRun = true;
            QList<LabelDef> exportLabels = labels;
            preview = TrainingExport::run(snapshot, exportLabels, dry, [&](int done, int total) {
                return progress(total + done, 2 * total);
            });
            stopped = preview.cancelled;
        },
        QStringLiteral("checkProgressDialog"));
    if (!previewed || stopped)
        return;

    const QString question = QStringLiteral("Export %1 to\n%2?\n\n%3\n\n%4")
                                 .arg(TrainingExport::layoutName(options.layout), options.outputFolder,
                                      checkSentence(report), previewText(preview));
    const int answer = UserPrompts::current().choose(
        this, QMessageBox::Question, QStringLiteral("Export for Training"), question, QString(),
        {{QStringLiteral("Export"), QMessageBox::AcceptRole},
         {QStringLiteral("Cancel"), QMessageBox::RejectRole}},
        0);
    if (answer != 0)
        return;

    TrainingExport::Summary summary;
    const bool finished = BackgroundTask::run(
        this, QStringLiteral("Export for Training"), QStringLiteral("Writing images and labels..."),
        [&](const BackgroundTask::Progress& progress) {
            QList<LabelDef> exportLabels = labels;
            summary = TrainingExport::run(snapshot, exportLabels, options, progress);
        },
        QStringLiteral("trainingExportProgressDialog"));
    if (!finished || summary.cancelled) {
        UserPrompts::current().warning(this, QStringLiteral("Export cancelled"), summary.text());
        return;
    }
    if (summary.ok)
        UserPrompts::current().information(this, QStringLiteral("Export complete"), summary.text());
    else
        UserPrompts::current().warning(this, QStringLiteral("Export failed"), summary.text());
}
