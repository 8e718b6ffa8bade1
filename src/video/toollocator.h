#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The path to start for an external program such as "ffmpeg": NAME.exe or NAME in the
// application's own folder when there, else the bare name (found on the PATH at start).
QString locateTool(const QString& name);
// The same search in `dir` instead of the application's folder.
QString locateToolIn(const QString& dir, const QString& name);

// One run of an external program, started directly with its argument list (no shell)
// and waited for on the calling thread.
struct ToolRun {
    bool started = false;
    bool finished = false; // exited by itself within the time limit
    int exitCode = -1;     // meaningful when finished
    QByteArray output;     // standard output

    bool succeeded() const { return finished && exitCode == 0; }
};

// Runs `program` with `arguments` and waits at most `timeoutMs`. A program still running
// at the limit is killed, so nothing outlives the call.
ToolRun runTool(const QString& program, const QStringList& arguments, int timeoutMs);
