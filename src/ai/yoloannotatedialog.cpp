#include "ai/yoloannotatedialog.h"

#include <QComboBox>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include "ai/aidialogparts.h"
#include "ai/pythonenv.h"
#include "ui/userprompts.h"

namespace {

const char kScriptName[] = "yolo_annotate_video.py";


} // namespace

YoloAnnotateDialog::YoloAnnotateDialog(QWidget* parent)
    : AiRunDialog({QStringLiteral("Installer script not found:\n"),
                   QStringLiteral("This will install Python (if needed) and:\n  - ultralytics\n"
                                  "  - opencv-python\n  - numpy<2.0\n\nMay take 5-15 min.\n\n"
                                  "Continue?")},
                  parent)
{
    setWindowTitle(QStringLiteral("YOLO Annotate Video"));
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    resize(qMin(screen.width(), 920) - 60, qMin(screen.height(), 660) - 80);
    setMinimumSize(700, 480);
    buildUI();
}

void YoloAnnotateDialog::buildUI()
{
    createCommonWidgets(QStringLiteral("Ready — configure options above then click Run"),
                        QStringLiteral("▶  Run Inference"), QStringLiteral("⏹  Stop"));
    connect(runButton, &QPushButton::clicked, this, &YoloAnnotateDialog::onRun);

    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(16, 16, 16, 10);
    column->setSpacing(10);
    column->addWidget(AiDialogParts::introLabel(QStringLiteral(
        "Runs YOLO inference on every frame of a video and writes an annotated output video.\n"
        "Bounding boxes, keypoints, labels and confidence scores are drawn on each frame.")));

    auto* config = new QGroupBox(QStringLiteral("Configuration"));
    auto* grid = new QGridLayout(config);
    grid->setSpacing(8);
    versionCombo = AiDialogParts::versionCombo();
    grid->addWidget(new QLabel(QStringLiteral("YOLO Version:")), 0, 0);
    grid->addWidget(versionCombo, 0, 1, Qt::AlignLeft);
    const auto fileRow = [&](int row, const QString& caption, const QString& placeholder,
                             const char* name, void (YoloAnnotateDialog::*browse)()) {
        auto* edit = new QLineEdit;
        edit->setPlaceholderText(placeholder);
        edit->setObjectName(QLatin1String(name));
        auto* button = new QPushButton(QStringLiteral("Browse..."));
        connect(button, &QPushButton::clicked, this, browse);
        grid->addWidget(new QLabel(caption), row, 0);
        grid->addWidget(edit, row, 1);
        grid->addWidget(button, row, 2);
        return edit;
    };
    modelEdit = fileRow(1, QStringLiteral("Model File (.pt):"),
                        QStringLiteral("Path to YOLO .pt model file..."), "modelEdit",
                        &YoloAnnotateDialog::onBrowseModel);
    videoEdit = fileRow(2, QStringLiteral("Input Video:"),
                        QStringLiteral("Path to input video file..."), "videoEdit",
                        &YoloAnnotateDialog::onBrowseVideo);
    outputEdit = fileRow(3, QStringLiteral("Output Folder:"),
                         QStringLiteral("Folder where annotated video will be saved..."),
                         "outputEdit", &YoloAnnotateDialog::onBrowseOutput);
    grid->setColumnStretch(1, 1);
    column->addWidget(config);
    column->addWidget(statusLabel);
    column->addWidget(progressBar);
    logView->setMinimumHeight(100);
    column->addWidget(logView, 1);

    AiDialogParts::assemble(this, content, createBottomBar());
}

void YoloAnnotateDialog::onBrowseModel()
{
    AiDialogParts::chooseFile(this, modelEdit, QStringLiteral("Select YOLO Model"),
                              QLatin1String(AiDialogParts::modelFilter));
}

void YoloAnnotateDialog::onBrowseVideo()
{
    AiDialogParts::chooseFile(this, videoEdit, QStringLiteral("Select Input Video"),
                              QLatin1String(AiDialogParts::videoFilter));
}

void YoloAnnotateDialog::onBrowseOutput()
{
    AiDialogParts::chooseFolder(this, outputEdit, QStringLiteral("Select Output Folder"));
}

void YoloAnnotateDialog::setRunning(bool running)
{
    runButton->setEnabled(!running);
    stopButton->setEnabled(running);
    modelEdit->setEnabled(!running);
    videoEdit->setEnabled(!running);
    outputEdit->setEnabled(!running);
    versionCombo->setEnabled(!running);
}

void YoloAnnotateDialog::onRun()
{
    if (!AiDialogParts::checkInputs(this, {modelEdit->text(), videoEdit->text(), outputEdit->text(),
                                           QStringLiteral("Select an input video file.")}))
        return;
    const QString python = PythonEnv::findPythonInterpreter();
    if (python.isEmpty()) {
        UserPrompts::current().critical(
            this, QStringLiteral("Python Not Found"),
            QStringLiteral("Could not find Python 3.\nInstall Python from ")
                + QLatin1String(PythonEnv::downloadUrl)
                + QStringLiteral(" or use Edit → AI Video Frame Extraction → Install AI "
                                 "Dependencies."));
        return;
    }
    const QString script = PythonEnv::helperScriptPath(QLatin1String(kScriptName));
    if (!QFileInfo::exists(script)) {
        UserPrompts::current().critical(
            this, QStringLiteral("Script Not Found"),
            QStringLiteral("yolo_annotate_video.py not found at:\n") + script
                + QStringLiteral("\n\nRe-run the installer."));
        return;
    }

    logView->clear();
    progressBar->setValue(0);
    appendLog(QStringLiteral("Python: ") + python, LogColor::Info);
    statusLabel->setText(QStringLiteral("Starting..."));
    QString error;
    if (!startHelper(python,
                     {script, QStringLiteral("--model"), modelEdit->text(),
                      QStringLiteral("--video"), videoEdit->text(), QStringLiteral("--output"),
                      outputEdit->text()},
                     5000, &error)) {
        appendLog(QStringLiteral("ERROR: ") + error, LogColor::Failure);
        return;
    }
    setRunning(true);
}

void YoloAnnotateDialog::handleOutputLine(const QString& line)
{
    if (line.isEmpty())
        return;
    if (line.startsWith(QLatin1String("TOTAL:"))) {
        return;
    } else if (line.startsWith(QLatin1String("PROGRESS:"))) {
        const QStringList f = line.mid(9).split(QLatin1Char(':'));
        if (f.size() < 2)
            return;
        const int current = AiDialogParts::protocolNumber(f[0]);
        const int total = AiDialogParts::protocolNumber(f[1]);
        if (total >= 1)
            progressBar->setValue(int(qint64(current) * 100 / total));
        statusLabel->setText(QStringLiteral("Processing frame %1 / %2").arg(current).arg(total));
        appendLog(QStringLiteral("Frame %1 / %2").arg(current).arg(total), QStringLiteral("#555555"));
    } else if (line.startsWith(QLatin1String("DONE:"))) {
        const QString path = line.mid(5);
        statusLabel->setText(QStringLiteral("Done — output saved to:\n") + path);
        appendLog(QStringLiteral("✓ Done: ") + path, LogColor::Success);
    } else if (line.startsWith(QLatin1String("INFO:"))) {
        appendLog(line.mid(5), LogColor::Info);
    } else if (line.startsWith(QLatin1String("ERROR:"))) {
        appendLog(QStringLiteral("ERROR: ") + line.mid(6), LogColor::HelperError);
    } else {
        appendLog(line, QStringLiteral("#aaaaaa"));
    }
}

void YoloAnnotateDialog::onProcessFinished(int exitCode, QProcess::ExitStatus)
{
    finishOutput();
    setRunning(false);
    progressBar->setRange(0, 100);
    if (exitCode == 0)
        progressBar->setValue(100);
    else
        appendLog(QStringLiteral("Process exited with code %1.").arg(exitCode), LogColor::Failure);
}
