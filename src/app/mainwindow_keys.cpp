#include "app/mainwindow.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QTextEdit>

#include "app/proposalreview.h"
#include "canvas/imagecanvas.h"
#include "ui/userprompts.h"

// Keys the focused widget left unhandled. Shortcuts live here rather than on actions so
// that the canvas and text fields see their keys first.
void MainWindow::keyPressEvent(QKeyEvent* event)
{
    if (proposalReview->handleKey(event))
        return;
    const bool ctrl = event->modifiers().testFlag(Qt::ControlModifier);
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        canvas->zoomIn();
        return;
    case Qt::Key_Minus:
        canvas->zoomOut();
        return;
    case Qt::Key_F:
        canvas->zoomFit();
        return;
    case Qt::Key_Left:
    case Qt::Key_PageUp:
        onPrevImage();
        return;
    case Qt::Key_Right:
    case Qt::Key_PageDown:
        onNextImage();
        return;
    case Qt::Key_D:
        if (ctrl)
            break;
        onNextImage();
        return;
    case Qt::Key_A:
        // Plain A steps back, the partner of D, as the Prev tool tip promises.
        if (ctrl)
            canvas->selectAll();
        else
            onPrevImage();
        return;
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
        canvas->deleteSelected();
        return;
    case Qt::Key_C:
        if (!ctrl)
            break;
        copySelection();
        return;
    case Qt::Key_V:
        if (!ctrl)
            break;
        paste();
        return;
    case Qt::Key_Z:
        if (!ctrl)
            break;
        onUndo();
        return;
    case Qt::Key_Y:
        if (!ctrl)
            break;
        onRedo();
        return;
    case Qt::Key_S:
    case Qt::Key_M:
    case Qt::Key_Escape:
        if (!ctrl)
            break;
        onSaveCurrent();
        return;
    default:
        break;
    }
    QMainWindow::keyPressEvent(event);
}

void MainWindow::keyReleaseEvent(QKeyEvent* event)
{
    QMainWindow::keyReleaseEvent(event);
}

namespace {

// Keys of the window's own table that a list view would take for itself (jumping to a
// row by its first letter, a page at a time, select all, copying the row's text).
bool isWindowKeyTakenByLists(const QKeyEvent* key)
{
    const bool ctrl = key->modifiers().testFlag(Qt::ControlModifier);
    switch (key->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
    case Qt::Key_Minus:
    case Qt::Key_F:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_A:
        return true;
    case Qt::Key_D:
    case Qt::Key_N:
        return !ctrl;
    case Qt::Key_C:
    case Qt::Key_V:
    case Qt::Key_Z:
    case Qt::Key_Y:
    case Qt::Key_S:
    case Qt::Key_M:
        return ctrl;
    default:
        return false;
    }
}

} // namespace

// Installed on the application: Space anywhere (dialogs included) drives the canvas's
// pan mode, except in widgets that type text or pick from a list.
bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (!canvas)
        return false;
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::KeyRelease)
        return false;
    QWidget* focus = QApplication::focusWidget();
    if (qobject_cast<QLineEdit*>(focus) || qobject_cast<QTextEdit*>(focus)
        || qobject_cast<QComboBox*>(focus))
        return false;
    auto* key = static_cast<QKeyEvent*>(event);
    // The image list and the annotations list would use the window's keys for their own
    // navigation; the keys act the same whichever pane has the focus. Their arrow keys
    // still move the current row.
    auto* view = qobject_cast<QAbstractItemView*>(watched);
    if (type == QEvent::KeyPress && view && view->window() == this
        && isWindowKeyTakenByLists(key)) {
        key->accept();
        keyPressEvent(key);
        return key->isAccepted();
    }
    if (key->key() != Qt::Key_Space || key->isAutoRepeat())
        return false;
    canvas->setSpaceHeld(type == QEvent::KeyPress);
    return true;
}

// Every record still marked dirty is written, not only the one shown: shapes that an
// import put into images never opened would otherwise be lost with the window. What still
// cannot be written is named before the window goes.
void MainWindow::closeEvent(QCloseEvent* event)
{
    QList<int> dirty;
    for (int i = 0; i < images.size(); ++i) {
        if (images.at(i).dirty)
            dirty.append(i);
    }
    const QStringList failures = saveAnnotationsForAll(dirty, false);
    if (!failures.isEmpty() && !confirmQuitWithUnsaved(failures)) {
        event->ignore();
        updateStatusLabel();
        return;
    }
    QMainWindow::closeEvent(event);
}

bool MainWindow::confirmQuitWithUnsaved(const QStringList& failures)
{
    constexpr int kListed = 5;
    QStringList listed = failures.mid(0, kListed);
    if (failures.size() > kListed)
        listed.append(QStringLiteral("... and %1 more").arg(failures.size() - kListed));
    enum { Quit = 0, Cancel = 1 };
    const QList<UserPrompts::Choice> buttons = {
        {QStringLiteral("Quit without saving"), QMessageBox::DestructiveRole},
        {QStringLiteral("Cancel"), QMessageBox::RejectRole},
    };
    const int answer = UserPrompts::current().choose(
        this, QMessageBox::Warning, QStringLiteral("Unsaved annotations"),
        QStringLiteral("The annotation files of %1 image(s) could not be written; their changes "
                       "exist only in this window.\n\n%2")
            .arg(failures.size())
            .arg(listed.join(QStringLiteral("\n\n"))),
        QStringLiteral("Quit anyway and lose these changes? Cancel keeps the window open, so "
                       "that you can free some space or fix the folder and close it again."),
        buttons, Cancel);
    return answer == Quit;
}
