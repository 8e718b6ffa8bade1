#include "app/mainwindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QTextEdit>

#include "canvas/imagecanvas.h"

// Keys the focused widget left unhandled. Shortcuts live here rather than on actions so
// that the canvas and text fields see their keys first.
void MainWindow::keyPressEvent(QKeyEvent* event)
{
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

// Installed on the application: Space anywhere (dialogs included) drives the canvas's
// pan mode, except in widgets that type text or pick from a list.
bool MainWindow::eventFilter(QObject* /*watched*/, QEvent* event)
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
    if (key->key() != Qt::Key_Space || key->isAutoRepeat())
        return false;
    canvas->setSpaceHeld(type == QEvent::KeyPress);
    return true;
}

// Every record still marked dirty is written, not only the one shown: shapes that an
// import put into images never opened would otherwise be lost with the window.
void MainWindow::closeEvent(QCloseEvent* event)
{
    QList<int> dirty;
    for (int i = 0; i < images.size(); ++i) {
        if (images.at(i).dirty)
            dirty.append(i);
    }
    saveAnnotationsForAll(dirty);
    QMainWindow::closeEvent(event);
}
