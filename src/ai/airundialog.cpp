#include "ai/airundialog.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include "ai/pythonenv.h"
#include "ui/userprompts.h"

namespace {

// Output lines are handled in slices of about this many milliseconds, so a helper that
// prints faster than the log can take them never freezes the window. Laying out the
// lines a slice added to the log costs a few times as much again, after the slice.
constexpr qint64 kSliceMs = 3;

const char kButtonStyle[] =
    "QPushButton{background:transparent;color:#aaaaaa;border:1px solid #777777;"
    "border-radius:3px;padding:5px 14px;}"
    "QPushButton:hover{color:#ff4444;border-color:#ff4444;}"
    "QPushButton:disabled{color:#5a5a5a;border-color:#3e3e3e;}";
const char kStopButtonStyle[] =
    "QPushButton{background:transparent;color:#ff8888;border:1px solid #ff4444;"
    "border-radius:3px;padding:5px 14px;}"
    "QPushButton:hover{color:#ff4444;}"
    "QPushButton:disabled{color:#6a4848;border-color:#5a3434;}";

QPushButton* makeButton(const QString& text, const char* style, const char* objectName)
{
    auto* button = new QPushButton(text);
    button->setStyleSheet(QLatin1String(style));
    button->setObjectName(QLatin1String(objectName));
    button->setCursor(Qt::PointingHandCursor);
    button->setAutoDefault(false);
    return button;
}

} // namespace

AiRunDialog::AiRunDialog(const InstallerTexts& texts, QWidget* parent)
    : QDialog(parent), m_installerTexts(texts), m_readMore(new QTimer(this))
{
    // A timer rather than a posted event, so that a long stream of lines cannot starve
    // the other timers (the live preview) of the event loop.
    m_readMore->setSingleShot(true);
    m_readMore->setInterval(0);
    connect(m_readMore, &QTimer::timeout, this, &AiRunDialog::onReadOutput);
}

AiRunDialog::~AiRunDialog()
{
    if (!m_process)
        return;
    // The subclass is gone by now: nothing may reach its slots any more.
    m_process->disconnect(this);
    if (m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(2000);
    }
}

void AiRunDialog::appendLog(const QString& text, const QString& color)
{
    logView->appendLine(text, color);
}

void AiRunDialog::createCommonWidgets(const QString& readyText, const QString& runText,
                                      const QString& stopText)
{
    statusLabel = new QLabel(readyText);
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    statusLabel->setStyleSheet(QStringLiteral("color:#888;"));
    statusLabel->setWordWrap(true);

    progressBar = new QProgressBar;
    progressBar->setObjectName(QStringLiteral("progressBar"));
    progressBar->setRange(0, 100);
    progressBar->setValue(0);
    progressBar->setFixedHeight(14);

    logView = new RunLog;
    logView->setObjectName(QStringLiteral("logView"));

    installButton = makeButton(QStringLiteral("Install AI Dependencies"), kButtonStyle,
                               "installButton");
    runButton = makeButton(runText, kButtonStyle, "runButton");
    stopButton = makeButton(stopText, kStopButtonStyle, "stopButton");
    stopButton->setEnabled(false);
    closeButton = makeButton(QStringLiteral("Close"), kButtonStyle, "closeButton");
    connect(installButton, &QPushButton::clicked, this, &AiRunDialog::onInstallDeps);
    connect(stopButton, &QPushButton::clicked, this, &AiRunDialog::onStop);
    connect(closeButton, &QPushButton::clicked, this, &QDialog::accept);
}

QFrame* AiRunDialog::createBottomBar()
{
    auto* bar = new QFrame;
    bar->setObjectName(QStringLiteral("bottomBar"));
    bar->setFixedHeight(54);
    bar->setStyleSheet(QStringLiteral("border-top:1px solid #444;"));
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(14, 8, 14, 8);
    row->setSpacing(8);
    row->addWidget(installButton);
    row->addWidget(runButton);
    row->addWidget(stopButton);
    row->addStretch();
    row->addWidget(closeButton);
    return bar;
}

bool AiRunDialog::startHelper(const QString& program, const QStringList& arguments,
                              int timeoutMs, QString* error)
{
    if (m_process) {
        // A stopped helper whose end has not arrived yet: let it go quietly.
        m_process->disconnect(this);
        connect(m_process, &QProcess::finished, m_process, &QObject::deleteLater);
        m_process = nullptr;
    }
    m_exitPending = false;
    m_process = new QProcess(this);
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    connect(m_process, &QProcess::readyReadStandardOutput, this, &AiRunDialog::onReadOutput);
    connect(m_process, &QProcess::readyReadStandardError, this, &AiRunDialog::onReadError);
    connect(m_process, &QProcess::finished, this, &AiRunDialog::onHelperExited);
    m_process->start(program, arguments);
    if (m_process->waitForStarted(timeoutMs))
        return true;
    *error = m_process->errorString();
    m_process->disconnect(this);
    m_process->deleteLater();
    m_process = nullptr;
    return false;
}

void AiRunDialog::onReadOutput()
{
    if (!m_process)
        return;
    QElapsedTimer slice;
    slice.start();
    m_process->setReadChannel(QProcess::StandardOutput);
    logView->beginBatch();
    while (m_process && m_process->canReadLine()) {
        handleOutputLine(QString::fromUtf8(m_process->readLine()).trimmed());
        if (m_process && m_process->canReadLine() && slice.elapsed() >= kSliceMs) {
            // The rest after the timers and the repaint that are due.
            m_readMore->start();
            logView->endBatch();
            outputHandled();
            return;
        }
    }
    logView->endBatch();
    outputHandled();
    if (m_exitPending) {
        m_exitPending = false;
        onProcessFinished(m_exitCode, m_exitStatus);
    }
}

void AiRunDialog::onReadError()
{
    if (!m_process)
        return;
    m_process->setReadChannel(QProcess::StandardError);
    logView->beginBatch();
    while (m_process->canReadLine())
        appendLog(QString::fromUtf8(m_process->readLine()).trimmed(), LogColor::Stderr);
    logView->endBatch();
    m_process->setReadChannel(QProcess::StandardOutput);
}

void AiRunDialog::onHelperExited(int exitCode, QProcess::ExitStatus status)
{
    m_exitCode = exitCode;
    m_exitStatus = status;
    m_exitPending = true;
    // The end is reported after every complete line still buffered.
    onReadOutput();
}

void AiRunDialog::finishOutput()
{
    if (!m_process)
        return;
    logView->beginBatch();
    const QByteArray out = m_process->readAllStandardOutput();
    for (const QByteArray& line : out.split('\n')) {
        const QString text = QString::fromUtf8(line).trimmed();
        if (!text.isEmpty())
            handleOutputLine(text);
    }
    const QByteArray err = m_process->readAllStandardError();
    for (const QByteArray& line : err.split('\n'))
        appendLog(QString::fromUtf8(line).trimmed(), LogColor::Stderr);
    logView->endBatch();
    outputHandled();
    discardProcess();
}

void AiRunDialog::discardProcess()
{
    m_process->disconnect(this);
    m_process->deleteLater();
    m_process = nullptr;
    m_exitPending = false;
}

void AiRunDialog::onStop()
{
    if (m_process) {
        m_process->kill();
        appendLog(QStringLiteral("Stopped by user."), LogColor::Warning);
    }
    setRunning(false);
}

void AiRunDialog::onInstallDeps()
{
    // One process per dialog: the installer waits until the helper has ended.
    if (m_process && m_process->state() != QProcess::NotRunning)
        return;
    const QString script = PythonEnv::installerScriptPath();
    if (!QFile::exists(script)) {
        UserPrompts::current().warning(
            this, QStringLiteral("Not Found"),
            m_installerTexts.notFound + script
                + QStringLiteral("\n\nManually run:\npip install ultralytics opencv-python "
                                 "\"numpy<2.0\""));
        return;
    }
    if (UserPrompts::current().question(this, QStringLiteral("Install AI Dependencies"),
                                        m_installerTexts.question,
                                        QMessageBox::Yes | QMessageBox::No, QMessageBox::No)
        != QMessageBox::Yes)
        return;
    appendLog(QStringLiteral("Installing dependencies..."), LogColor::Start);
    progressBar->setRange(0, 0);
    setRunning(true);
    QString error;
    if (!startHelper(QLatin1String(PythonEnv::installerShell), {script}, 3000, &error)) {
        appendLog(QStringLiteral("ERROR: Could not launch installer."), LogColor::Failure);
        setRunning(false);
        progressBar->setRange(0, 100);
    }
}
