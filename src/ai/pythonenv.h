#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// The Python side of the AI tools: which interpreter runs the helper scripts, where the
// scripts and the dependency installer lie, and the NumPy version the helpers need.
// Every probe is a child process waited for with a time limit.
namespace PythonEnv {

// Writes one coloured line into a run log.
using LogFn = std::function<void(const QString& text, const QString& color)>;

// Where users are sent when no interpreter works.
inline constexpr char downloadUrl[] = "https://www.python.org/downloads/";

// The interpreters tried, in order: bare names (found through PATH when started), then
// the usual Windows installation folders.
QStringList interpreterCandidates();

// The first candidate that answers "--version" with exit code 0 within 2 s; empty when
// none does.
QString findPythonInterpreter();

// Helpers built against NumPy 1 break on NumPy 2: when `python` has NumPy 2 or none at
// all, installs "numpy<2.0" with pip (waiting up to a minute) and logs what it did.
void checkNumpyVersion(const QString& python, const LogFn& log);

// A helper script lying next to the executable.
QString helperScriptPath(const QString& fileName);

// The dependency installer next to the executable (symbolic links resolved), run with
// "/bin/bash".
QString installerScriptPath();
inline constexpr char installerShell[] = "/bin/bash";

} // namespace PythonEnv
