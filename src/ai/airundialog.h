#pragma once

#include <QDialog>
#include <QProcess>
#include <QString>
#include <QStringList>

#include "ai/runlog.h"

class QFrame;
class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

// What every AI dialog shares: the helper process and its output plumbing, the run log,
// the status line, the progress bar, the button bar with "Install AI Dependencies",
// run, "Stop" and "Close", the installer launch, Stop, and killing a helper that still
// runs when the dialog goes away. A dialog derives from it, lays out the common widgets
// with its own, and handles the helper's standard output lines and its end.
class AiRunDialog : public QDialog {
    Q_OBJECT
public:
    ~AiRunDialog() override;

    // One line of `color` in the run log; an empty text writes nothing.
    void appendLog(const QString& text, const QString& color);

protected:
    // The texts of the installer prompts, which differ between the dialogs.
    struct InstallerTexts {
        QString notFound; // followed by the script path and the manual pip command
        QString question;
    };

    AiRunDialog(const InstallerTexts& texts, QWidget* parent);

    // Creates the status label, progress bar, log view and buttons; the dialog lays
    // them out. Stop starts disabled; Close accepts the dialog.
    void createCommonWidgets(const QString& readyText, const QString& runText,
                             const QString& stopText);
    // The bar at the bottom: install, run, Stop, a stretch, Close.
    QFrame* createBottomBar();

    // Starts the helper with its standard output and error read apart: complete output
    // lines reach handleOutputLine, error lines the log, the end onProcessFinished once
    // every line before it has been handled. Returns false, with the process discarded
    // and its error text in *error, when it has not started within timeoutMs.
    bool startHelper(const QString& program, const QStringList& arguments, int timeoutMs,
                     QString* error);
    bool helperExists() const { return m_process != nullptr; }
    // At the end: hands what the helper left without a line break to handleOutputLine,
    // logs what is left of its standard error, and discards it.
    void finishOutput();

    // One trimmed line of the helper's (or installer's) standard output.
    virtual void handleOutputLine(const QString& line) = 0;
    // After a burst of handleOutputLine calls, before the event loop goes on.
    virtual void outputHandled() {}
    virtual void setRunning(bool running) = 0;

    RunLog* logView = nullptr;
    QLabel* statusLabel = nullptr;
    QProgressBar* progressBar = nullptr;
    QPushButton* installButton = nullptr;
    QPushButton* runButton = nullptr;
    QPushButton* stopButton = nullptr;
    QPushButton* closeButton = nullptr;

protected Q_SLOTS:
    virtual void onProcessFinished(int exitCode, QProcess::ExitStatus status) = 0;
    void onInstallDeps();
    void onReadOutput();
    void onReadError();
    void onStop();

private:
    void onHelperExited(int exitCode, QProcess::ExitStatus status);
    void discardProcess();

    InstallerTexts m_installerTexts;
    QProcess* m_process = nullptr;
    bool m_exitPending = false;
    QTimer* m_readMore;
    int m_exitCode = 0;
    QProcess::ExitStatus m_exitStatus = QProcess::NormalExit;
};
