#pragma once

#include <functional>

#include <QString>

class QWidget;

// Runs work that reads the whole dataset on a thread of its own, so the window keeps
// painting, while the GUI thread waits in a local event loop. User input is held back
// for a short moment; if the work takes longer, a window-modal progress dialog with
// Cancel appears. The work reports through the callback it is given (from its own
// thread) and stops when the callback returns false.
namespace BackgroundTask {

using Progress = std::function<bool(int done, int total)>;

// Returns false when the user cancelled. `objectName` names the progress dialog.
bool run(QWidget* parent, const QString& title, const QString& label,
         const std::function<void(const Progress&)>& work,
         const QString& objectName = QString());

} // namespace BackgroundTask
