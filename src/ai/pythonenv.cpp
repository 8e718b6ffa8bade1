#include "ai/pythonenv.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include "ai/runlog.h"

namespace PythonEnv {

namespace {

// Runs `program` with `arguments`, waiting up to `timeoutMs` from the start on. False
// when it did not start or did not finish in time (it is then killed); *exitCode is set
// otherwise.
bool runAndWait(const QString& program, const QStringList& arguments, int timeoutMs,
                int* exitCode)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return true;
}

} // namespace

QStringList interpreterCandidates()
{
    const QString home = QDir::homePath();
    return {QStringLiteral("python"),
            QStringLiteral("python3"),
            QStringLiteral("python.exe"),
            QStringLiteral("C:/Python312/python.exe"),
            QStringLiteral("C:/Python311/python.exe"),
            QStringLiteral("C:/Python310/python.exe"),
            home + QStringLiteral("/AppData/Local/Programs/Python/Python312/python.exe"),
            home + QStringLiteral("/AppData/Local/Programs/Python/Python311/python.exe"),
            home + QStringLiteral("/AppData/Local/Programs/Python/Python310/python.exe")};
}

QString findPythonInterpreter()
{
    for (const QString& candidate : interpreterCandidates()) {
        int exitCode = -1;
        if (runAndWait(candidate, {QStringLiteral("--version")}, 2000, &exitCode) && exitCode == 0)
            return candidate;
    }
    return QString();
}

void checkNumpyVersion(const QString& python, const LogFn& log)
{
    int exitCode = 0;
    const QStringList check{QStringLiteral("-c"),
                            QStringLiteral("import numpy;v=numpy.__version__;"
                                           "exit(0 if int(v.split('.')[0])<2 else 1)")};
    if (!runAndWait(python, check, 5000, &exitCode) || exitCode == 0)
        return;
    log(QStringLiteral("Fixing NumPy version..."), LogColor::Warning);
    int ignored = 0;
    runAndWait(python,
               {QStringLiteral("-m"), QStringLiteral("pip"), QStringLiteral("install"),
                QStringLiteral("numpy<2.0"), QStringLiteral("-q")},
               60000, &ignored);
    log(QStringLiteral("NumPy fixed."), LogColor::Success);
}

QString helperScriptPath(const QString& fileName)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + fileName;
}

QString installerScriptPath()
{
    const QString dir = QFileInfo(QCoreApplication::applicationDirPath()).canonicalFilePath();
    return dir + QStringLiteral("/install_python_deps_mac.sh");
}

} // namespace PythonEnv
