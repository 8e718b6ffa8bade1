#include "app/mainwindow.h"

#include <QCoreApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include "formats/collagedialog.h"
#include "formats/datasettools.h"
#include "formats/exportimport.h"
#include "ui/userprompts.h"

// Dataset tools of the Edit and Export / Import menus: split, box/keypoint conversion,
// collage. The work is done by the core functions; these commands ask and report.

namespace {

QSpinBox* percentSpinBox(const QString& objectName, int value, QWidget* parent)
{
    auto* spin = new QSpinBox(parent);
    spin->setObjectName(objectName);
    spin->setRange(1, 99);
    spin->setValue(value);
    spin->setSuffix(QStringLiteral(" %"));
    return spin;
}

// The train/test percentage dialog. False when the user cancels.
bool askSplitPercentages(QWidget* parent, int* train, int* test)
{
    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("splitDialog"));
    dialog.setWindowTitle(QStringLiteral("Split Dataset into Train / Test Subsets"));
    dialog.setModal(true);
    dialog.setMinimumWidth(400);
    auto* layout = new QVBoxLayout(&dialog);
    layout->setSpacing(12);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->addWidget(new QLabel(
        QStringLiteral("<b>Split Dataset into Train / Test Subsets</b><br/><span "
                       "style='color:gray;font-size:11px;'>Images are randomly shuffled then "
                       "copied into Train and Test sub-directories.</span>"),
        &dialog));

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(16);
    grid->setVerticalSpacing(10);
    QSpinBox* trainSpin = percentSpinBox(QStringLiteral("trainSpinBox"), 80, &dialog);
    QSpinBox* testSpin = percentSpinBox(QStringLiteral("testSpinBox"), 20, &dialog);
    grid->addWidget(new QLabel(QStringLiteral("Train %:"), &dialog), 0, 0);
    grid->addWidget(trainSpin, 0, 1);
    grid->addWidget(new QLabel(QStringLiteral("Test %:"), &dialog), 1, 0);
    grid->addWidget(testSpin, 1, 1);
    layout->addLayout(grid);
    // Each box sets the other to the complement without that one answering back.
    for (auto [from, to] : {std::pair{trainSpin, testSpin}, std::pair{testSpin, trainSpin}}) {
        QObject::connect(from, &QSpinBox::valueChanged, to, [to = to](int value) {
            const QSignalBlocker blocker(to);
            to->setValue(100 - value);
        });
    }

    auto* note = new QLabel(QStringLiteral("Each subset gets its own <code>images/</code> and "
                                           "<code>annotations/</code> folders."),
                            &dialog);
    note->setStyleSheet(QStringLiteral("color:gray;font-size:11px;"));
    note->setWordWrap(true);
    layout->addWidget(note);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancelButton = new QPushButton(QStringLiteral("Cancel"), &dialog);
    auto* splitButton = new QPushButton(QStringLiteral("Split Dataset"), &dialog);
    cancelButton->setObjectName(QStringLiteral("splitCancelButton"));
    splitButton->setObjectName(QStringLiteral("splitButton"));
    splitButton->setStyleSheet(QStringLiteral("QPushButton{font-weight:bold;}"));
    for (QPushButton* button : {cancelButton, splitButton}) {
        button->setAutoDefault(false);
        button->setDefault(false);
        buttons->addWidget(button);
    }
    layout->addLayout(buttons);
    QObject::connect(cancelButton, &QPushButton::clicked, &dialog, &QDialog::reject);
    QObject::connect(splitButton, &QPushButton::clicked, &dialog, &QDialog::accept);

    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return false;
    *train = trainSpin->value();
    *test = testSpin->value();
    return true;
}

// The key point radius. False when the user cancels.
bool askRadius(QWidget* parent, int* radius)
{
    QInputDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("radiusDialog"));
    dialog.setInputMode(QInputDialog::IntInput);
    dialog.setWindowTitle(QStringLiteral("Bounding Box Radius"));
    dialog.setLabelText(QStringLiteral("Radius around each key point in pixels:\n"
                                       "(Box will be radius*2 x radius*2 centered on the key point)"));
    dialog.setIntRange(1, 9999);
    dialog.setIntStep(1);
    dialog.setIntValue(20);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return false;
    *radius = dialog.intValue();
    return true;
}

// A window-modal progress dialog that the core functions' callbacks drive.
void setUpProgress(QProgressDialog& progress, const QString& title, int minimumDuration)
{
    progress.setWindowTitle(title);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(minimumDuration);
    progress.setAutoClose(false);
    progress.setAutoReset(false);
}

QString failureNote(int failed, const char* what)
{
    if (failed <= 0)
        return QString();
    return QStringLiteral("\n\nFiles that could not be %1: %2").arg(QLatin1String(what)).arg(failed);
}

// Both conversion commands; the window's current shapes are already in its records.
void runConversion(MainWindow* window, DatasetTools::Conversion conversion)
{
    const bool toKeyPoints = conversion == DatasetTools::Conversion::BoxesToKeypoints;
    // A copy: events run during the conversion, and the records must hold still.
    const QList<ImageAnnotations> images = window->images;
    UserPrompts& prompts = UserPrompts::current();
    if (window->imagesFolder.isEmpty()) {
        prompts.information(window, QStringLiteral("No Data"), QStringLiteral("Please click 'Load Data' first."));
        return;
    }
    const int annotated = DatasetTools::annotationFileCount(images);
    if (annotated == 0) {
        prompts.information(window, QStringLiteral("No Annotations"),
                            QStringLiteral("No annotation files found for the loaded images."));
        return;
    }
    int radius = 0;
    if (!toKeyPoints && !askRadius(window, &radius))
        return;

    const QString question =
        toKeyPoints
            ? QStringLiteral("This will process %1 annotated image(s).\n\nFor each bounding box a "
                             "keypoint is placed at its center with the same label.\n\nOutput saved "
                             "to a 'key_points' folder next to your annotations folder.\n\nContinue?")
                  .arg(annotated)
            : QStringLiteral("This will process %1 annotated image(s).\n\nEach key point becomes a "
                             "%2x%2 px bounding box centered on it with the same label.\n\nOutput "
                             "saved to a 'bounding_boxes' folder next to your annotations "
                             "folder.\n\nContinue?")
                  .arg(annotated)
                  .arg(2 * radius);
    const QString title = toKeyPoints ? QStringLiteral("Convert BBoxes to Key Points")
                                      : QStringLiteral("Convert Key Points to BBoxes");
    if (prompts.question(window, title, question, QMessageBox::Yes | QMessageBox::No, QMessageBox::NoButton)
        != QMessageBox::Yes)
        return;

    const QString output = DatasetTools::conversionFolder(window->annotationsFolder, conversion);
    if (!QDir().mkpath(output)) {
        prompts.critical(window, QStringLiteral("Error"),
                         QStringLiteral("Could not create output directory:\n") + output);
        return;
    }
    // An annotations folder that is itself named key_points or bounding_boxes would be
    // its own output folder.
    if (QFileInfo(output).canonicalFilePath() == QFileInfo(window->annotationsFolder).canonicalFilePath()) {
        prompts.critical(window, QStringLiteral("Error"),
                         QStringLiteral("The output folder is your annotations folder:\n%1\n\n"
                                        "Nothing was converted, so that your annotations are "
                                        "not replaced.")
                             .arg(output));
        return;
    }

    QProgressDialog progress(toKeyPoints ? QStringLiteral("Converting bounding boxes to key points...")
                                         : QStringLiteral("Converting key points to bounding boxes..."),
                             QStringLiteral("Cancel"), 0, int(images.size()), window);
    setUpProgress(progress, title, 0);
    progress.show();
    const DatasetTools::ConversionOutcome outcome = DatasetTools::convertDataset(
        images, conversion, radius, output, QDir(window->imagesFolder).dirName(), [&](int done, int) {
            progress.setValue(done);
            if (progress.wasCanceled())
                return false;
            QCoreApplication::processEvents();
            return true;
        });
    progress.setValue(int(images.size()));
    progress.close();

    const QString summary =
        toKeyPoints ? QStringLiteral("Conversion complete!\n\nImages processed: %1\nKey points created: "
                                     "%2\nImages skipped (no bboxes): %3\n\nOutput folder:\n%4")
                    : QStringLiteral("Conversion complete!\n\nImages processed: %1\nBounding boxes "
                                     "created: %2\nImages skipped (no key points): %3\n\nOutput "
                                     "folder:\n%4");
    prompts.information(window, QStringLiteral("Conversion Complete"),
                        summary.arg(outcome.processed).arg(outcome.created).arg(outcome.skipped).arg(output)
                            + failureNote(outcome.failed, "written"));
}

} // namespace

void MainWindow::onExportSplit()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    int trainPercent = 80;
    int testPercent = 20;
    if (!askSplitPercentages(this, &trainPercent, &testPercent))
        return;
    const QString output = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select output folder for Train/Test split"), QString());
    if (output.isEmpty())
        return;

    const DatasetTools::SplitPlan plan =
        DatasetTools::planSplit(images, trainPercent, output, DatasetTools::clockSeed());
    // Small datasets copy in a moment; the dialog shows up only for long runs.
    QProgressDialog progress(QStringLiteral("Copying images into Train and Test folders..."),
                             QStringLiteral("Cancel"), 0, int(plan.items.size()), this);
    setUpProgress(progress, QStringLiteral("Split Dataset"), 800);
    QElapsedTimer sinceEvents;
    sinceEvents.start();
    const DatasetTools::CopyOutcome outcome = DatasetTools::runSplit(plan, [&](int done, int) {
        if (sinceEvents.elapsed() < 40)
            return true;
        sinceEvents.restart();
        progress.setValue(done);
        // Until the dialog shows, clicks and keys wait: the window must not act on them
        // in the middle of the split.
        QCoreApplication::processEvents(progress.isVisible() ? QEventLoop::AllEvents
                                                             : QEventLoop::ExcludeUserInputEvents);
        return !progress.wasCanceled();
    });
    progress.close();

    if (outcome.cancelled) {
        UserPrompts::current().information(
            this, QStringLiteral("Split cancelled"),
            QStringLiteral("Split cancelled after %1 of %2 images.\n\nOutput: %3")
                    .arg(outcome.imagesDone)
                    .arg(plan.items.size())
                    .arg(output)
                + failureNote(outcome.failed, "copied"));
        return;
    }
    UserPrompts::current().information(
        this, QStringLiteral("Split complete"),
        QStringLiteral("Split complete:\n\nTrain: %1 images (%2%)\nTest:  %3 images (%4%)\n\nOutput: %5")
                .arg(plan.train)
                .arg(trainPercent)
                .arg(plan.test)
                .arg(testPercent)
                .arg(output)
            + failureNote(outcome.failed, "copied"));
}

void MainWindow::onConvertBBoxesToKeyPoints()
{
    syncCurrentBoxes();
    runConversion(this, DatasetTools::Conversion::BoxesToKeypoints);
}

void MainWindow::onConvertKeyPointsToBBoxes()
{
    syncCurrentBoxes();
    runConversion(this, DatasetTools::Conversion::KeypointsToBoxes);
}

void MainWindow::onExportCollage()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();
    UserPrompts& prompts = UserPrompts::current();
    const int annotated = DatasetTools::annotatedCount(images);
    if (annotated == 0) {
        prompts.information(this, QStringLiteral("Export Collage"),
                            QStringLiteral("No annotated images found. Please annotate some images first."));
        return;
    }
    CollageDialog dialog(annotated, this);
    if (prompts.exec(&dialog) != QDialog::Accepted)
        return;
    const QString path = prompts.saveFileName(this, QStringLiteral("Save Collage PNG"),
                                              QStringLiteral("collage.png"),
                                              QStringLiteral("PNG Image (*.png)"));
    if (path.isEmpty())
        return;

    QMap<QString, QColor> colours;
    for (const LabelDef& label : std::as_const(labels))
        colours.insert(label.name, label.color);

    const int count = dialog.imageCount();
    QProgressDialog progress(QStringLiteral("Processing images for collage...\n%1 images total").arg(count),
                             QStringLiteral("Cancel"), 0, count, this);
    setUpProgress(progress, QStringLiteral("Exporting Collage"), 0);
    progress.setValue(0);
    progress.setMinimumWidth(360);
    progress.show();
    QCoreApplication::processEvents();

    const QList<ImageAnnotations> snapshot = images; // events run during the export
    const ExportImportResult result = ExportImport::exportCollage(
        snapshot, colours, count, dialog.randomize(), path, [&](int done, int total) {
            if (done == -1) {
                progress.setRange(0, 0);
                progress.setLabelText(QStringLiteral("Saving PNG file to disk...\n"
                                                     "This may take a moment for large collages."));
                progress.setCancelButton(nullptr);
            } else {
                progress.setValue(done);
                progress.setLabelText(QStringLiteral("Processing image %1 of %2...").arg(done).arg(total));
            }
            QCoreApplication::processEvents();
            return !progress.wasCanceled();
        });
    progress.close();

    if (result.ok)
        prompts.information(this, QStringLiteral("Export Collage"), result.message);
    else if (result.message != QLatin1String("Export cancelled by user."))
        prompts.warning(this, QStringLiteral("Export Collage failed"), result.message);
}
