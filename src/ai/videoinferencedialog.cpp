#include "ai/videoinferencedialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSlider>
#include <QSpinBox>
#include <QSplitter>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>

#include <utility>

#include "ai/aidialogparts.h"
#include "ai/pythonenv.h"
#include "model/imageloading.h"
#include "ui/userprompts.h"

namespace {

const char kScriptName[] = "yolo_inference.py";


} // namespace

VideoInferenceDialog::VideoInferenceDialog(const QList<QString>& labelNames, QWidget* parent)
    : AiRunDialog({QStringLiteral("Script not found:\n"),
                   QStringLiteral("Installs Python (if needed) + ultralytics + opencv-python + "
                                  "numpy<2.0\n\nMay take 5-15 min. Requires internet.\n\n"
                                  "Continue?")},
                  parent)
{
    setWindowTitle(QStringLiteral("AI Video Frame Extraction — YOLO Inference"));
    setMinimumSize(900, 600);
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    resize(qMin(screen.width(), 1160) - 60, qMin(screen.height(), 880) - 80);
    setStyleSheet(QStringLiteral(
        "QGroupBox{border:1px solid #444;border-radius:4px;margin-top:8px;"
        "padding:8px 6px 6px 6px;font-size:12px;}"
        "QGroupBox::title{subcontrol-origin:margin;subcontrol-position:top left;"
        "padding:0 4px;color:#aaaaaa;}"
        "QListWidget::item{padding:3px 6px;}QScrollArea{border:none;}"));
    buildUI();
    for (const QString& name : labelNames) {
        auto* item = new QListWidgetItem(name, labelList);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
}

VideoInferenceDialog::~VideoInferenceDialog()
{
    previewTimer->stop();
}

QString VideoInferenceDialog::previewImagePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation)
           + QStringLiteral("/pt_preview_frame.jpg");
}

void VideoInferenceDialog::buildUI()
{
    createCommonWidgets(
        QStringLiteral("Ready — configure options above then click Run Inference"),
        QStringLiteral("Run Inference"), QStringLiteral("Stop"));
    connect(runButton, &QPushButton::clicked, this, &VideoInferenceDialog::onRun);

    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(14, 14, 14, 10);
    column->addWidget(AiDialogParts::introLabel(QStringLiteral(
        "Run a YOLO model on every frame of a video. Frames where selected objects are "
        "detected are saved to a dated output folder.")));

    // Configuration.
    auto* config = new QGroupBox(QStringLiteral("Configuration"));
    auto* grid = new QGridLayout(config);
    versionCombo = AiDialogParts::versionCombo();
    grid->addWidget(new QLabel(QStringLiteral("YOLO Version:")), 0, 0);
    grid->addWidget(versionCombo, 0, 1, Qt::AlignLeft);
    const auto fileRow = [&](int row, const QString& caption, const QString& placeholder,
                             const char* name, void (VideoInferenceDialog::*browse)()) {
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
                        &VideoInferenceDialog::onBrowseModel);
    videoEdit = fileRow(2, QStringLiteral("Video File:"), QStringLiteral("Path to video file..."),
                        "videoEdit", &VideoInferenceDialog::onBrowseVideo);
    outputEdit = fileRow(3, QStringLiteral("Output Folder:"),
                         QStringLiteral("Output root folder..."), "outputEdit",
                         &VideoInferenceDialog::onBrowseOutput);

    confSlider = new QSlider(Qt::Horizontal);
    confSlider->setObjectName(QStringLiteral("confSlider"));
    confSlider->setRange(5, 95);
    confSlider->setValue(25);
    confValueLabel = new QLabel(QStringLiteral("0.25"));
    confValueLabel->setFixedWidth(38);
    confValueLabel->setStyleSheet(QStringLiteral("color:#aaa;font-weight:bold;"));
    connect(confSlider, &QSlider::valueChanged, this, &VideoInferenceDialog::onConfSlider);
    auto* confRow = new QHBoxLayout;
    confRow->addWidget(confSlider, 1);
    confRow->addWidget(confValueLabel);
    grid->addWidget(new QLabel(QStringLiteral("Confidence Threshold:")), 4, 0);
    grid->addLayout(confRow, 4, 1, 1, 2);
    grid->addWidget(AiDialogParts::hintLabel(
                        QStringLiteral("Lower = more detections   Higher = more confident only")),
                    5, 1, 1, 2);

    frameSkipCheck = AiDialogParts::checkBox(QStringLiteral("Save every Nth frame only:"),
                                             "frameSkipCheck");
    frameSkipSpin = new QSpinBox;
    frameSkipSpin->setObjectName(QStringLiteral("frameSkipSpin"));
    frameSkipSpin->setRange(1, 9999);
    frameSkipSpin->setValue(10);
    frameSkipSpin->setFixedWidth(70);
    frameSkipSpin->setEnabled(false);
    connect(frameSkipCheck, &QCheckBox::toggled, frameSkipSpin, &QSpinBox::setEnabled);
    auto* skipRow = new QHBoxLayout;
    skipRow->addWidget(frameSkipSpin);
    skipRow->addWidget(AiDialogParts::hintLabel(QStringLiteral("(skips frames, speeds up processing)")), 1);
    grid->addWidget(frameSkipCheck, 6, 0);
    grid->addLayout(skipRow, 6, 1, 1, 2);

    saveXmlCheck = AiDialogParts::checkBox(QStringLiteral("Save Annotation XML Files"),
                                           "saveXmlCheck");
    saveXmlCheck->setToolTip(QStringLiteral(
        "When checked, output folder will contain:\n  images/       — saved frame JPGs\n"
        "  annotations/  — VOC XML files with detected bounding boxes"));
    grid->addWidget(saveXmlCheck, 7, 0);
    grid->addWidget(AiDialogParts::hintLabel(QStringLiteral(
                        "(creates images/ and annotations/ subfolders, saves detection XML "
                        "alongside each frame)")),
                    7, 1, 1, 2);

    invertCheck = AiDialogParts::checkBox(
        QStringLiteral("Save frames where labels are NOT detected (inverse mode)"), "invertCheck");
    invertCheck->setToolTip(QStringLiteral(
        "Unchecked (default): save frames where selected labels ARE detected\n"
        "Checked (inverse): save frames where selected labels are NOT detected"));
    grid->addWidget(invertCheck, 8, 0, 1, 3);
    grid->addWidget(AiDialogParts::hintLabel(
                        QStringLiteral("(useful for finding background/negative samples)")),
                    9, 0, 1, 3);

    auto* requirements = new QGroupBox(QStringLiteral("Requirements"));
    requirements->setMaximumHeight(130);
    auto* reqLayout = new QVBoxLayout(requirements);
    auto* reqText = new QLabel(QStringLiteral(
        "Python 3.8+ required. Click Install AI Dependencies to set up.\n"
        "Or: pip install ultralytics opencv-python \"numpy<2.0\""));
    reqText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    reqLayout->addWidget(reqText);
    grid->addWidget(requirements, 10, 0, 1, 3);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(11, 1); // rows keep together when the labels group is taller

    // Labels of interest.
    auto* labelsGroup = new QGroupBox(QStringLiteral("Labels of Interest"));
    auto* labelsColumn = new QVBoxLayout(labelsGroup);
    labelsColumn->addWidget(new QLabel(QStringLiteral(
        "Check labels to keep frames for.\nLeave all unchecked to save ALL detected frames.")));
    labelList = new QListWidget;
    labelList->setObjectName(QStringLiteral("labelList"));
    labelList->setMinimumHeight(160);
    labelsColumn->addWidget(labelList, 1);
    addLabelEdit = new QLineEdit;
    addLabelEdit->setObjectName(QStringLiteral("addLabelEdit"));
    addLabelEdit->setPlaceholderText(QStringLiteral("Add label..."));
    connect(addLabelEdit, &QLineEdit::returnPressed, this, &VideoInferenceDialog::onAddLabel);
    auto* plus = new QPushButton(QStringLiteral("+"));
    plus->setObjectName(QStringLiteral("addLabelButton"));
    plus->setFixedWidth(32);
    connect(plus, &QPushButton::clicked, this, &VideoInferenceDialog::onAddLabel);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(addLabelEdit, 1);
    addRow->addWidget(plus);
    labelsColumn->addLayout(addRow);
    auto* all = new QPushButton(QStringLiteral("All"));
    all->setFixedWidth(50);
    auto* none = new QPushButton(QStringLiteral("None"));
    none->setMinimumWidth(64);
    auto* remove = new QPushButton(QStringLiteral("Remove"));
    remove->setObjectName(QStringLiteral("removeLabelButton"));
    remove->setFixedWidth(70);
    connect(all, &QPushButton::clicked, this, &VideoInferenceDialog::onSelectAll);
    connect(none, &QPushButton::clicked, this, &VideoInferenceDialog::onClearAll);
    connect(remove, &QPushButton::clicked, this, &VideoInferenceDialog::onRemoveLabel);
    auto* listButtons = new QHBoxLayout;
    listButtons->addWidget(all);
    listButtons->addWidget(none);
    listButtons->addWidget(remove);
    listButtons->addStretch();
    labelsColumn->addLayout(listButtons);

    auto* groups = new QHBoxLayout;
    groups->addWidget(config, 3);
    groups->addWidget(labelsGroup, 2);
    column->addLayout(groups);
    column->addWidget(statusLabel);
    column->addWidget(progressBar);

    // Log and live preview.
    auto* splitter = new QSplitter(Qt::Horizontal);
    splitter->setMinimumHeight(140);
    splitter->setMaximumHeight(180);
    splitter->addWidget(logView);
    auto* previewPanel = new QFrame;
    previewPanel->setObjectName(QStringLiteral("previewPanel"));
    previewPanel->setStyleSheet(QStringLiteral("#previewPanel{background:#111;}"));
    auto* previewColumn = new QVBoxLayout(previewPanel);
    previewColumn->setContentsMargins(4, 4, 4, 4);
    previewColumn->setSpacing(2);
    auto* caption = new QLabel(QStringLiteral("Live Preview"));
    caption->setStyleSheet(QStringLiteral("color:#888;font-size:11px;"));
    previewColumn->addWidget(caption);
    previewLabel = new QLabel;
    previewLabel->setObjectName(QStringLiteral("previewLabel"));
    previewLabel->setAlignment(Qt::AlignCenter);
    previewLabel->setStyleSheet(QStringLiteral("background:#0a0a0a;color:#666;"));
    // An explicit minimum keeps the shown pixmap from dictating the panel's size.
    previewLabel->setMinimumSize(240, 1);
    previewLabel->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    previewColumn->addWidget(previewLabel, 1);
    splitter->addWidget(previewPanel);
    splitter->setSizes({600, 260});
    column->addWidget(splitter);

    previewTimer = new QTimer(this);
    previewTimer->setInterval(500);
    connect(previewTimer, &QTimer::timeout, this, &VideoInferenceDialog::onPreviewTick);

    AiDialogParts::assemble(this, content, createBottomBar());
}

void VideoInferenceDialog::onBrowseModel()
{
    AiDialogParts::chooseFile(this, modelEdit, QStringLiteral("Select YOLO Model"),
                              QLatin1String(AiDialogParts::modelFilter));
}

void VideoInferenceDialog::onBrowseVideo()
{
    AiDialogParts::chooseFile(this, videoEdit, QStringLiteral("Select Video File"),
                              QLatin1String(AiDialogParts::videoFilter));
}

void VideoInferenceDialog::onBrowseOutput()
{
    AiDialogParts::chooseFolder(this, outputEdit, QStringLiteral("Select Output Folder"));
}

void VideoInferenceDialog::onConfSlider(int value)
{
    confValueLabel->setText(QString::number(value / 100.0, 'f', 2));
}

void VideoInferenceDialog::onAddLabel()
{
    const QString text = addLabelEdit->text().trimmed();
    if (text.isEmpty())
        return;
    for (int i = 0; i < labelList->count(); ++i)
        if (labelList->item(i)->text().compare(text, Qt::CaseInsensitive) == 0)
            return;
    auto* item = new QListWidgetItem(text, labelList);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
    item->setCheckState(Qt::Checked);
    addLabelEdit->clear();
}

void VideoInferenceDialog::onSelectAll()
{
    for (int i = 0; i < labelList->count(); ++i)
        labelList->item(i)->setCheckState(Qt::Checked);
}

void VideoInferenceDialog::onClearAll()
{
    for (int i = 0; i < labelList->count(); ++i)
        labelList->item(i)->setCheckState(Qt::Unchecked);
}

void VideoInferenceDialog::onRemoveLabel()
{
    delete labelList->currentItem();
}

void VideoInferenceDialog::setRunning(bool running)
{
    if (running)
        savedCount = 0; // the installer, too, ends on "Done — 0 frames saved."
    runButton->setEnabled(!running);
    stopButton->setEnabled(running);
    for (QWidget* w : {static_cast<QWidget*>(modelEdit), static_cast<QWidget*>(videoEdit),
                       static_cast<QWidget*>(outputEdit), static_cast<QWidget*>(confSlider),
                       static_cast<QWidget*>(versionCombo), static_cast<QWidget*>(frameSkipCheck)})
        w->setEnabled(!running);
    if (!running) {
        frameSkipSpin->setEnabled(frameSkipCheck->isChecked());
        previewTimer->stop();
    }
}

QStringList VideoInferenceDialog::helperArguments() const
{
    QStringList labels;
    for (int i = 0; i < labelList->count(); ++i)
        if (labelList->item(i)->checkState() == Qt::Checked)
            labels << labelList->item(i)->text();
    QStringList args{PythonEnv::helperScriptPath(QLatin1String(kScriptName)),
                     QStringLiteral("--model"), modelEdit->text(),
                     QStringLiteral("--video"), videoEdit->text(),
                     QStringLiteral("--output"), outputEdit->text(),
                     QStringLiteral("--labels"), labels.join(QLatin1Char(',')),
                     QStringLiteral("--conf"), QString::number(confSlider->value() / 100.0, 'f', 2),
                     QStringLiteral("--frame-skip"),
                     frameSkipCheck->isChecked() ? QString::number(frameSkipSpin->value())
                                                 : QStringLiteral("1")};
    if (saveXmlCheck->isChecked())
        args << QStringLiteral("--save-xml");
    if (invertCheck->isChecked())
        args << QStringLiteral("--invert");
    return args;
}

void VideoInferenceDialog::onRun()
{
    const AiDialogParts::RunInputs inputs{modelEdit->text(), videoEdit->text(),
                                          outputEdit->text(), QStringLiteral("Select a video file.")};
    if (!AiDialogParts::checkInputs(this, inputs))
        return;
    const QString python = PythonEnv::findPythonInterpreter();
    if (python.isEmpty()) {
        UserPrompts::current().critical(
            this, QStringLiteral("Python Not Found"),
            QStringLiteral("Could not find Python 3.\nClick 'Install AI Dependencies' or install from ")
                + QLatin1String(PythonEnv::downloadUrl));
        return;
    }
    const QString script = PythonEnv::helperScriptPath(QLatin1String(kScriptName));
    if (!QFileInfo::exists(script)) {
        UserPrompts::current().critical(
            this, QStringLiteral("Script Not Found"),
            QStringLiteral("yolo_inference.py not found at:\n") + script
                + QStringLiteral("\n\nPlease re-run the installer."));
        return;
    }

    logView->clear();
    savedCount = 0;
    outputFolder.clear();
    progressBar->setValue(0);
    previewLabel->setPixmap(QPixmap());
    previewLabel->setText(QStringLiteral("Waiting for frames..."));
    const QStringList args = helperArguments();
    appendLog(QStringLiteral("Python: ") + python, LogColor::Info);
    statusLabel->setText(QStringLiteral("Starting..."));
    PythonEnv::checkNumpyVersion(python, [this](const QString& text, const QString& color) {
        appendLog(text, color);
    });
    appendLog(QStringLiteral("Starting inference..."), LogColor::Start);

    QString error;
    if (!startHelper(python, args, 5000, &error)) {
        appendLog(QStringLiteral("ERROR: ") + error, LogColor::Failure);
        UserPrompts::current().critical(this, QStringLiteral("Failed"),
                                        QStringLiteral("Could not launch Python:\n") + error);
        return;
    }
    setRunning(true);
    previewTimer->start();
}

void VideoInferenceDialog::parseLine(const QString& line)
{
    if (line.isEmpty())
        return;
    const auto fields = [&line](int prefixLength) {
        return line.mid(prefixLength).split(QLatin1Char(':'));
    };
    if (line.startsWith(QLatin1String("TOTAL:"))) {
        return;
    } else if (line.startsWith(QLatin1String("PROGRESS:"))) {
        const QStringList f = fields(9);
        if (f.size() < 3)
            return;
        const int current = AiDialogParts::protocolNumber(f[0]);
        const int total = AiDialogParts::protocolNumber(f[1]);
        savedCount = AiDialogParts::protocolNumber(f[2]);
        if (total >= 1)
            progressBar->setValue(int(qint64(current) * 100 / total));
        statusLabel->setText(QStringLiteral("Frame %1 / %2  —  %3 saved")
                                 .arg(current).arg(total).arg(savedCount));
    } else if (line.startsWith(QLatin1String("SAVED:"))) {
        const QStringList f = fields(6);
        const QString file = f.value(1);
        logView->appendSpans(
            {{QStringLiteral("SAVED"), QStringLiteral("#ff4444"), true},
             {QStringLiteral(" Frame %1  [%2]  %3").arg(f.value(0), f.value(2), file),
              QStringLiteral("#50d060")}});
        if (!outputFolder.isEmpty())
            showSavedFrame(outputFolder + QLatin1Char('/') + file);
        ++savedCount;
    } else if (line.startsWith(QLatin1String("PREVIEW:"))) {
        return;
    } else if (line.startsWith(QLatin1String("DETECTED:"))) {
        const QStringList f = fields(9);
        logView->appendSpans(
            {{QStringLiteral("Frame %1").arg(f.value(0)), QStringLiteral("#666666")},
             {QStringLiteral("  [%1]").arg(f.value(1)), QStringLiteral("#888888")}});
    } else if (line.startsWith(QLatin1String("INFO:"))) {
        const QString text = line.mid(5);
        appendLog(text, LogColor::Info);
        if (text.startsWith(QLatin1String("Output folder:")))
            outputFolder = text.mid(14).trimmed();
    } else if (line.startsWith(QLatin1String("DONE:"))) {
        const QStringList f = fields(5);
        statusLabel->setText(
            QStringLiteral("Done — %1 frames saved to: %2").arg(f.value(0), f.value(1)));
    } else if (line.startsWith(QLatin1String("ERROR:"))) {
        appendLog(QStringLiteral("ERROR: ") + line.mid(6), LogColor::HelperError);
        statusLabel->setText(QStringLiteral("Error — see log"));
    } else {
        appendLog(line, QStringLiteral("#b0b8cc"));
    }
}

void VideoInferenceDialog::handleOutputLine(const QString& line)
{
    m_inBurst = true;
    parseLine(line);
    m_inBurst = false;
}

void VideoInferenceDialog::outputHandled()
{
    if (!m_pendingFrame.isEmpty())
        showSavedFrame(std::exchange(m_pendingFrame, QString()));
}

void VideoInferenceDialog::showSavedFrame(const QString& file)
{
    if (m_inBurst) {
        m_pendingFrame = file;
        return;
    }
    const QPixmap frame = QPixmap::fromImage(ImageLoading::read(file));
    if (!frame.isNull())
        previewLabel->setPixmap(frame.scaled(previewLabel->size(), Qt::KeepAspectRatio,
                                             Qt::SmoothTransformation));
}

void VideoInferenceDialog::onPreviewTick()
{
    const QString path = previewImagePath();
    if (!QFileInfo::exists(path) || previewLabel->width() < 10 || previewLabel->height() < 10)
        return;
    const QPixmap frame = QPixmap::fromImage(ImageLoading::read(path));
    if (!frame.isNull())
        previewLabel->setPixmap(frame.scaled(previewLabel->size(), Qt::KeepAspectRatio,
                                             Qt::FastTransformation));
}

void VideoInferenceDialog::onProcessFinished(int exitCode, QProcess::ExitStatus)
{
    finishOutput();
    previewTimer->stop();
    setRunning(false);
    progressBar->setRange(0, 100);
    if (exitCode != 0) {
        appendLog(QStringLiteral("Process exited with code %1.").arg(exitCode), LogColor::Failure);
        return;
    }
    progressBar->setValue(100);
    appendLog(QStringLiteral("Done — %1 frames saved.").arg(savedCount), LogColor::Success);
}
