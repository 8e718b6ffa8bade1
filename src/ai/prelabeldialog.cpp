#include "ai/prelabeldialog.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QSlider>
#include <QSpinBox>
#include <QTableWidget>
#include <QTemporaryFile>
#include <QVBoxLayout>

#include <algorithm>

#include "ai/aidialogparts.h"
#include "ai/pythonenv.h"
#include "ui/userprompts.h"

namespace {

const char kScriptName[] = "yolo_prelabel.py";
const QString kSkip = QStringLiteral("(skip)");

QString fraction(int percent)
{
    return QString::number(percent / 100.0, 'f', 2);
}

// A threshold slider 5..95 with its value beside it, as the video dialog has.
QSlider* thresholdRow(QGridLayout* grid, int row, const QString& caption, int value,
                      const char* name, QLabel** valueLabel)
{
    auto* slider = new QSlider(Qt::Horizontal);
    slider->setObjectName(QLatin1String(name));
    slider->setRange(5, 95);
    slider->setValue(value);
    auto* label = new QLabel(fraction(value));
    label->setFixedWidth(38);
    label->setStyleSheet(QStringLiteral("color:#aaa;font-weight:bold;"));
    QObject::connect(slider, &QSlider::valueChanged, label,
                     [label](int v) { label->setText(fraction(v)); });
    auto* line = new QHBoxLayout;
    line->addWidget(slider, 1);
    line->addWidget(label);
    grid->addWidget(new QLabel(caption), row, 0);
    grid->addLayout(line, row, 1, 1, 2);
    *valueLabel = label;
    return slider;
}

} // namespace

PrelabelDialog::PrelabelDialog(const QList<QString>& labelNames, const Images& images,
                               Merge merge, QWidget* parent)
    : AiRunDialog({QStringLiteral("Script not found:\n"),
                   QStringLiteral("Installs Python (if needed) + ultralytics + opencv-python + "
                                  "numpy<2.0\n\nMay take 5-15 min. Requires internet.\n\n"
                                  "Continue?")},
                  parent),
      m_labelNames(labelNames), m_images(images), m_merge(std::move(merge))
{
    setWindowTitle(QStringLiteral("Pre-label with YOLO"));
    setMinimumSize(860, 600);
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    resize(qMin(screen.width(), 1100) - 60, qMin(screen.height(), 860) - 80);
    setStyleSheet(QStringLiteral(
        "QGroupBox{border:1px solid #444;border-radius:4px;margin-top:8px;"
        "padding:8px 6px 6px 6px;font-size:12px;}"
        "QGroupBox::title{subcontrol-origin:margin;subcontrol-position:top left;"
        "padding:0 4px;color:#aaaaaa;}QScrollArea{border:none;}"
        // The dark palette leaves the style's radio rings nearly invisible.
        "QRadioButton::indicator{width:12px;height:12px;border-radius:7px;border:1px solid #8a8d95;"
        "background:#1e2026;}"
        "QRadioButton::indicator:checked{border-color:#4a90d9;background:qradialgradient(cx:0.5,"
        "cy:0.5,radius:0.5,fx:0.5,fy:0.5,stop:0 #4a90d9,stop:0.5 #4a90d9,stop:0.56 #1e2026,"
        "stop:1 #1e2026);}"
        "QRadioButton::indicator:disabled{border-color:#4a4d55;}"));
    buildUI();
}

PrelabelDialog::~PrelabelDialog() = default;

void PrelabelDialog::buildUI()
{
    createCommonWidgets(QStringLiteral("Ready — choose a model, then click Run Pre-labelling"),
                        QStringLiteral("Run Pre-labelling"), QStringLiteral("Stop"));
    connect(runButton, &QPushButton::clicked, this, &PrelabelDialog::onRun);

    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(14, 14, 14, 10);
    column->addWidget(AiDialogParts::introLabel(QStringLiteral(
        "Run a YOLO model over the dataset's images. What it finds becomes proposals: dashed "
        "shapes on the canvas that you accept, correct or reject. Annotation files change only "
        "when you accept.")));
    auto* groups = new QHBoxLayout;
    groups->addWidget(buildConfiguration(), 3);
    groups->addWidget(buildMapping(), 2);
    column->addLayout(groups);
    column->addWidget(statusLabel);
    column->addWidget(progressBar);
    logView->setMinimumHeight(130);
    column->addWidget(logView, 1);
    AiDialogParts::assemble(this, content, createBottomBar());
}

QWidget* PrelabelDialog::buildConfiguration()
{
    auto* config = new QGroupBox(QStringLiteral("Configuration"));
    auto* grid = new QGridLayout(config);
    versionCombo = AiDialogParts::versionCombo();
    grid->addWidget(new QLabel(QStringLiteral("YOLO Version:")), 0, 0);
    grid->addWidget(versionCombo, 0, 1, Qt::AlignLeft);

    modelEdit = new QLineEdit;
    modelEdit->setObjectName(QStringLiteral("modelEdit"));
    modelEdit->setPlaceholderText(QStringLiteral("Path to YOLO .pt model file..."));
    connect(modelEdit, &QLineEdit::returnPressed, this, &PrelabelDialog::onReadClasses);
    auto* browse = new QPushButton(QStringLiteral("Browse..."));
    browse->setObjectName(QStringLiteral("browseModelButton"));
    browse->setAutoDefault(false); // Return in the model field reads its classes
    connect(browse, &QPushButton::clicked, this, &PrelabelDialog::onBrowseModel);
    grid->addWidget(new QLabel(QStringLiteral("Model File (.pt):")), 1, 0);
    grid->addWidget(modelEdit, 1, 1);
    grid->addWidget(browse, 1, 2);

    confSlider = thresholdRow(grid, 2, QStringLiteral("Confidence Threshold:"), 25, "confSlider",
                              &confValueLabel);
    grid->addWidget(AiDialogParts::hintLabel(QStringLiteral(
                        "Lower = more proposals   Higher = more confident only")),
                    3, 1, 1, 2);
    iouSlider = thresholdRow(grid, 4, QStringLiteral("IoU Threshold:"), 70, "iouSlider",
                             &iouValueLabel);
    grid->addWidget(AiDialogParts::hintLabel(QStringLiteral(
                        "Overlapping detections above this overlap count as one")),
                    5, 1, 1, 2);

    maxShapesSpin = new QSpinBox;
    maxShapesSpin->setObjectName(QStringLiteral("maxShapesSpin"));
    maxShapesSpin->setRange(1, 1000);
    maxShapesSpin->setValue(100);
    maxShapesSpin->setFixedWidth(80);
    grid->addWidget(new QLabel(QStringLiteral("Max Shapes per Image:")), 6, 0);
    grid->addWidget(maxShapesSpin, 6, 1, Qt::AlignLeft);

    auto* which = new QButtonGroup(this);
    const auto radio = [&](const QString& text, const char* name, int count) {
        auto* button = new QRadioButton(text);
        button->setObjectName(QLatin1String(name));
        button->setEnabled(count > 0);
        which->addButton(button);
        return button;
    };
    unlabelledRadio = radio(QStringLiteral("Unlabelled images only (%1)").arg(m_images.unlabelled.size()),
                            "unlabelledRadio", m_images.unlabelled.size());
    allRadio = radio(QStringLiteral("All images (%1)").arg(m_images.all.size()), "allRadio",
                     m_images.all.size());
    currentRadio = radio(m_images.current.isEmpty()
                             ? QStringLiteral("Current image only")
                             : QStringLiteral("Current image only (%1)")
                                   .arg(QFileInfo(m_images.current).fileName()),
                         "currentRadio", m_images.current.isEmpty() ? 0 : 1);
    (m_images.unlabelled.isEmpty() ? allRadio : unlabelledRadio)->setChecked(true);
    auto* radios = new QVBoxLayout;
    radios->setSpacing(2);
    for (QRadioButton* button : {unlabelledRadio, allRadio, currentRadio})
        radios->addWidget(button);
    grid->addWidget(new QLabel(QStringLiteral("Images:")), 7, 0, Qt::AlignTop);
    grid->addLayout(radios, 7, 1, 1, 2);
    grid->addWidget(AiDialogParts::hintLabel(QStringLiteral(
                        "An image's new proposals replace those it still has open.")),
                    8, 1, 1, 2);

    auto* requirements = new QGroupBox(QStringLiteral("Requirements"));
    requirements->setMaximumHeight(130);
    auto* reqLayout = new QVBoxLayout(requirements);
    auto* reqText = new QLabel(QStringLiteral(
        "Python 3.8+ required. Click Install AI Dependencies to set up.\n"
        "Or: pip install ultralytics opencv-python \"numpy<2.0\""));
    reqText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    reqLayout->addWidget(reqText);
    grid->addWidget(requirements, 9, 0, 1, 3);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(10, 1);
    return config;
}

QWidget* PrelabelDialog::buildMapping()
{
    auto* group = new QGroupBox(QStringLiteral("Class Mapping"));
    auto* layout = new QVBoxLayout(group);
    auto* note = new QLabel(QStringLiteral(
        "Each model class becomes the label chosen here (type a new one to add it). "
        "Classes set to (skip) are left out."));
    note->setWordWrap(true);
    layout->addWidget(note);
    mappingTable = new QTableWidget(0, 2);
    mappingTable->setObjectName(QStringLiteral("mappingTable"));
    mappingTable->setHorizontalHeaderLabels({QStringLiteral("Model class"), QStringLiteral("Label")});
    mappingTable->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    mappingTable->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    mappingTable->verticalHeader()->hide();
    mappingTable->setSelectionMode(QAbstractItemView::NoSelection);
    mappingTable->setMinimumHeight(160);
    layout->addWidget(mappingTable, 1);
    auto* ownNames = new QPushButton(QStringLiteral("Own Names"));
    ownNames->setObjectName(QStringLiteral("ownNamesButton"));
    ownNames->setToolTip(QStringLiteral("Every class to the label of its own name"));
    auto* skipUnmatched = new QPushButton(QStringLiteral("Skip Unmatched"));
    skipUnmatched->setObjectName(QStringLiteral("skipUnmatchedButton"));
    skipUnmatched->setToolTip(QStringLiteral("Skip the classes that have no label of the same name"));
    for (QPushButton* b : {ownNames, skipUnmatched})
        b->setAutoDefault(false);
    connect(ownNames, &QPushButton::clicked, this, &PrelabelDialog::onOwnNames);
    connect(skipUnmatched, &QPushButton::clicked, this, &PrelabelDialog::onSkipUnmatched);
    auto* mappingButtons = new QHBoxLayout;
    mappingButtons->addWidget(ownNames);
    mappingButtons->addWidget(skipUnmatched);
    mappingButtons->addStretch();
    layout->addLayout(mappingButtons);
    layout->addWidget(AiDialogParts::hintLabel(
        QStringLiteral("The classes are read when you choose the model, or at the start of the run.")));
    return group;
}

// --- Classes and their labels --------------------------------------------------------------

int PrelabelDialog::mappingRow(const QString& name, bool keypoint) const
{
    return m_rows.value(QLatin1Char(keypoint ? 'k' : 'c') + name, -1);
}

QString PrelabelDialog::sameNameLabel(const QString& name) const
{
    for (const QString& label : std::as_const(m_labelNames))
        if (label.compare(name, Qt::CaseInsensitive) == 0)
            return label;
    return QString();
}

// A class goes to the label of the same name (letter case aside). The others go to labels
// of their own names, unless some class of their kind found its label: then the dataset
// has labels of its own and they are skipped. Rows already there keep what was chosen.
void PrelabelDialog::addClasses(const QStringList& names, bool keypoint, bool decideDefault)
{
    if (decideDefault)
        m_skipUnmatched[keypoint] = std::any_of(names.begin(), names.end(), [this](const QString& n) {
            return !sameNameLabel(n).isEmpty();
        });
    for (const QString& name : names) {
        if (mappingRow(name, keypoint) >= 0)
            continue;
        const int row = mappingTable->rowCount();
        mappingTable->insertRow(row);
        auto* item = new QTableWidgetItem(keypoint ? name + QStringLiteral("  (keypoint)") : name);
        item->setFlags(Qt::ItemIsEnabled);
        item->setData(Qt::UserRole, name);
        mappingTable->setItem(row, 0, item);
        m_rows.insert(QLatin1Char(keypoint ? 'k' : 'c') + name, row);
        auto* combo = new QComboBox;
        combo->setEditable(true);
        combo->addItem(kSkip);
        combo->addItems(m_labelNames);
        mappingTable->setCellWidget(row, 1, combo);
        const QString label = sameNameLabel(name);
        setRowLabel(row, !label.isEmpty() ? label : m_skipUnmatched[keypoint] ? kSkip : name);
    }
}

void PrelabelDialog::setRowLabel(int row, const QString& label)
{
    auto* combo = static_cast<QComboBox*>(mappingTable->cellWidget(row, 1));
    if (combo->findText(label, Qt::MatchFixedString | Qt::MatchCaseSensitive) < 0)
        combo->addItem(label);
    combo->setCurrentText(label);
}

void PrelabelDialog::onOwnNames()
{
    for (int row = 0; row < mappingTable->rowCount(); ++row) {
        const QString name = mappingTable->item(row, 0)->data(Qt::UserRole).toString();
        const QString label = sameNameLabel(name);
        setRowLabel(row, label.isEmpty() ? name : label);
    }
}

void PrelabelDialog::onSkipUnmatched()
{
    for (int row = 0; row < mappingTable->rowCount(); ++row) {
        const QString label = sameNameLabel(mappingTable->item(row, 0)->data(Qt::UserRole).toString());
        setRowLabel(row, label.isEmpty() ? kSkip : label);
    }
}

QString PrelabelDialog::labelFor(const QString& name, bool keypoint) const
{
    const int row = mappingRow(name, keypoint);
    if (row < 0)
        return QString();
    const QString label =
        cleanLabelName(static_cast<QComboBox*>(mappingTable->cellWidget(row, 1))->currentText()).trimmed();
    return label == kSkip ? QString() : label;
}

// --- Running --------------------------------------------------------------------------------

void PrelabelDialog::onBrowseModel()
{
    if (AiDialogParts::chooseFile(this, modelEdit, QStringLiteral("Select YOLO Model"),
                                  QLatin1String(AiDialogParts::modelFilter)))
        onReadClasses();
}

QString PrelabelDialog::pythonAndScript(QString* script)
{
    if (m_python.isEmpty())
        m_python = PythonEnv::findPythonInterpreter();
    if (m_python.isEmpty()) {
        UserPrompts::current().critical(
            this, QStringLiteral("Python Not Found"),
            QStringLiteral("Could not find Python 3.\nClick 'Install AI Dependencies' or install from ")
                + QLatin1String(PythonEnv::downloadUrl));
        return QString();
    }
    *script = PythonEnv::helperScriptPath(QLatin1String(kScriptName));
    if (!QFileInfo::exists(*script)) {
        UserPrompts::current().critical(
            this, QStringLiteral("Script Not Found"),
            QStringLiteral("yolo_prelabel.py not found at:\n") + *script
                + QStringLiteral("\n\nPlease re-run the installer."));
        return QString();
    }
    return m_python;
}

// Lists the model's classes in the mapping table before a run, so that they can be
// mapped; a short run of the helper that only loads the model.
void PrelabelDialog::onReadClasses()
{
    const QString model = modelEdit->text();
    if (m_mode != Mode::Idle || model.isEmpty() || model == m_classesModel || !QFileInfo::exists(model))
        return;
    QString script;
    const QString python = pythonAndScript(&script);
    if (python.isEmpty())
        return;
    m_mode = Mode::Classes;
    statusLabel->setText(QStringLiteral("Reading the model's classes..."));
    QString error;
    if (!startHelper(python, {script, QStringLiteral("--model"), model, QStringLiteral("--classes-only")},
                     5000, &error)) {
        m_mode = Mode::Idle;
        appendLog(QStringLiteral("ERROR: ") + error, LogColor::Failure);
        return;
    }
    setRunning(true);
}

QStringList PrelabelDialog::chosenImages() const
{
    if (currentRadio->isChecked())
        return {m_images.current};
    return allRadio->isChecked() ? m_images.all : m_images.unlabelled;
}

void PrelabelDialog::onRun()
{
    const QString model = modelEdit->text();
    if (model.isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("Missing"),
                                       QStringLiteral("Select a YOLO model file."));
        return;
    }
    if (!QFileInfo::exists(model)) {
        UserPrompts::current().critical(this, QStringLiteral("Not Found"),
                                        QStringLiteral("Model file not found:\n") + model);
        return;
    }
    const QStringList images = chosenImages();
    if (images.isEmpty()) {
        UserPrompts::current().information(this, QStringLiteral("Nothing to Pre-label"),
                                           QStringLiteral("There are no images of that kind."));
        return;
    }
    QString script;
    const QString python = pythonAndScript(&script);
    if (python.isEmpty())
        return;

    // One path per line for the helper: the list may be far too long for a command line.
    m_list = std::make_unique<QTemporaryFile>(QDir::tempPath() + QStringLiteral("/brindle-prelabel-XXXXXX.txt"));
    QByteArray listed;
    for (const QString& path : images)
        if (!path.contains(QLatin1Char('\n')))
            listed += path.toUtf8() + '\n';
    if (!m_list->open() || m_list->write(listed) != listed.size() || !m_list->flush()) {
        UserPrompts::current().critical(this, QStringLiteral("Error"),
                                        QStringLiteral("Could not write the image list:\n")
                                            + m_list->errorString());
        return;
    }

    logView->clear();
    progressBar->setValue(0);
    m_total = images.size();
    m_done = m_proposed = m_withProposals = 0;
    appendLog(QStringLiteral("Python: ") + python, LogColor::Info);
    statusLabel->setText(QStringLiteral("Starting..."));
    PythonEnv::checkNumpyVersion(python, [this](const QString& text, const QString& color) {
        appendLog(text, color);
    });
    appendLog(QStringLiteral("Starting pre-labelling of %1 image(s)...").arg(m_total), LogColor::Start);
    QString error;
    m_mode = Mode::Run;
    if (!startHelper(python,
                     {script, QStringLiteral("--model"), model, QStringLiteral("--list"),
                      m_list->fileName(), QStringLiteral("--conf"), fraction(confSlider->value()),
                      QStringLiteral("--iou"), fraction(iouSlider->value()),
                      QStringLiteral("--max-det"), QString::number(maxShapesSpin->value())},
                     5000, &error)) {
        m_mode = Mode::Idle;
        appendLog(QStringLiteral("ERROR: ") + error, LogColor::Failure);
        UserPrompts::current().critical(this, QStringLiteral("Failed"),
                                        QStringLiteral("Could not launch Python:\n") + error);
        return;
    }
    setRunning(true);
}

void PrelabelDialog::setRunning(bool running)
{
    runButton->setEnabled(!running);
    stopButton->setEnabled(running);
    installButton->setEnabled(!running);
    for (QWidget* w : std::initializer_list<QWidget*>{modelEdit, confSlider, iouSlider, maxShapesSpin,
                                                      versionCombo, mappingTable})
        w->setEnabled(!running);
    unlabelledRadio->setEnabled(!running && !m_images.unlabelled.isEmpty());
    allRadio->setEnabled(!running && !m_images.all.isEmpty());
    currentRadio->setEnabled(!running && !m_images.current.isEmpty());
}

void PrelabelDialog::handleOutputLine(const QString& line)
{
    if (line.isEmpty())
        return;
    if (line.startsWith(QLatin1String("RESULT:"))) {
        handleResult(line.mid(7));
    } else if (line.startsWith(QLatin1String("CLASSES:"))) {
        const QJsonObject o = QJsonDocument::fromJson(line.mid(8).toUtf8()).object();
        QStringList names, keypoints;
        for (const QJsonValue& v : o.value(QLatin1String("names")).toArray())
            names << v.toString();
        for (const QJsonValue& v : o.value(QLatin1String("keypoints")).toArray())
            keypoints << v.toString();
        if (m_classesModel != modelEdit->text()) {
            mappingTable->setRowCount(0);
            m_rows.clear();
        }
        m_classesModel = modelEdit->text();
        addClasses(names, false, true);
        addClasses(keypoints, true, true);
        appendLog(QStringLiteral("Model: %1 (%2, %3 classes)")
                      .arg(QFileInfo(m_classesModel).fileName(), o.value(QLatin1String("task")).toString())
                      .arg(names.size()),
                  LogColor::Info);
    } else if (line.startsWith(QLatin1String("TOTAL:"))) {
        return;
    } else if (line.startsWith(QLatin1String("PROGRESS:"))) {
        const QStringList f = line.mid(9).split(QLatin1Char(':'));
        if (f.size() < 2)
            return;
        m_done = AiDialogParts::protocolNumber(f[0]);
        const int total = AiDialogParts::protocolNumber(f[1]);
        if (total >= 1)
            progressBar->setValue(int(qint64(m_done) * 100 / total));
        statusLabel->setText(QStringLiteral("Image %1 / %2  —  %3 proposals")
                                 .arg(m_done).arg(total).arg(m_proposed));
    } else if (line.startsWith(QLatin1String("DONE:"))) {
        statusLabel->setText(QStringLiteral("Done — %1 proposals on %2 images")
                                 .arg(m_proposed).arg(m_withProposals));
    } else if (line.startsWith(QLatin1String("INFO:"))) {
        appendLog(line.mid(5), LogColor::Info);
    } else if (line.startsWith(QLatin1String("ERROR:"))) {
        appendLog(QStringLiteral("ERROR: ") + line.mid(6), LogColor::HelperError);
        statusLabel->setText(QStringLiteral("Error — see log"));
    } else {
        appendLog(line, QStringLiteral("#b0b8cc"));
    }
}

void PrelabelDialog::handleResult(const QString& json)
{
    const QJsonObject o = QJsonDocument::fromJson(json.toUtf8()).object();
    const QString image = o.value(QLatin1String("image")).toString();
    if (image.isEmpty()) {
        appendLog(QStringLiteral("Unreadable result: ") + json.left(200), LogColor::Stderr);
        return;
    }
    QList<Proposal> proposals;
    for (const QJsonValue& value : o.value(QLatin1String("shapes")).toArray()) {
        const QJsonObject shape = value.toObject();
        Proposal p;
        if (!Proposals::shapeFromJson(shape, &p))
            continue;
        const QString name = shape.value(QLatin1String("class")).toString();
        const bool keypoint = p.shape.type == ShapeType::Keypoint;
        if (mappingRow(name, keypoint) < 0)
            addClasses({name}, keypoint, false);
        p.shape.label = labelFor(name, keypoint);
        if (!p.shape.label.isEmpty())
            proposals.append(p);
    }
    if (!m_merge(image, proposals)) {
        appendLog(image + QStringLiteral(": not in the dataset any more, skipped"), LogColor::Warning);
        return;
    }
    m_proposed += proposals.size();
    m_withProposals += proposals.isEmpty() ? 0 : 1;
    appendLog(proposals.isEmpty() ? image + QStringLiteral(": nothing found")
                                  : image + QStringLiteral(": %1 proposal(s)").arg(proposals.size()),
              proposals.isEmpty() ? QStringLiteral("#777777") : QStringLiteral("#50d060"));
}

void PrelabelDialog::onProcessFinished(int exitCode, QProcess::ExitStatus)
{
    finishOutput();
    const Mode mode = std::exchange(m_mode, Mode::Idle);
    setRunning(false);
    progressBar->setRange(0, 100);
    m_list.reset();
    if (mode == Mode::Classes) {
        statusLabel->setText(exitCode == 0 ? QStringLiteral("Ready — map the classes, then click Run Pre-labelling")
                                           : QStringLiteral("Error — see log"));
        return;
    }
    if (exitCode != 0) {
        appendLog(QStringLiteral("Process exited with code %1.").arg(exitCode), LogColor::Failure);
        return;
    }
    progressBar->setValue(100);
    if (mode == Mode::Run)
        appendLog(QStringLiteral("Done — %1 proposals on %2 images. Review them on the canvas: Enter "
                                 "accepts, Delete rejects, N goes to the next image with proposals.")
                      .arg(m_proposed).arg(m_withProposals),
                  LogColor::Success);
}
