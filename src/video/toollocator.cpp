#include "video/toollocator.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

QString locateToolIn(const QString& dir, const QString& name)
{
    // The ".exe" name is tried everywhere, so a folder prepared for Windows works too.
    for (const QString& candidate : {dir + QLatin1Char('/') + name + QStringLiteral(".exe"),
                                     dir + QLatin1Char('/') + name}) {
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return name;
}

QString locateTool(const QString& name)
{
    return locateToolIn(QCoreApplication::applicationDirPath(), name);
}

ToolRun runTool(const QString& program, const QStringList& arguments, int timeoutMs)
{
    ToolRun run;
    QProcess process;
    // Diagnostics on standard error are not read; let them go instead of filling a pipe.
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments, QIODevice::ReadOnly);
    QElapsedTimer clock;
    clock.start();
    run.started = process.waitForStarted(timeoutMs);
    if (!run.started)
        return run;
    const int left = int(qMax<qint64>(1, timeoutMs - clock.elapsed()));
    run.finished = process.waitForFinished(left) && process.exitStatus() == QProcess::NormalExit;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(1000);
    }
    if (run.finished)
        run.exitCode = process.exitCode();
    run.output = process.readAllStandardOutput();
    return run;
}
