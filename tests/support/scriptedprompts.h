#pragma once

#include <QColor>
#include <QList>
#include <functional>
#include <QQueue>
#include <QString>
#include <QStringList>

#include "ui/userprompts.h"

// A UserPrompts that answers from queues filled by the test and records every call.
// Installs itself on construction and restores the real dialogs on destruction.
// When a queue is empty the prompt is answered as if the user cancelled.
class ScriptedPrompts : public UserPrompts {
public:
    ScriptedPrompts();
    ~ScriptedPrompts() override;

    struct Call {
        QString kind;   // "information", "warning", "critical", "question", "choose",
                        // "directory", "open", "save", "text", "item", "color", "dialog"
        QString title;
        QString text;   // message text, or the caption / label of a chooser
        QString informativeText;
        QStringList buttons; // for choose: the button texts in order
        // The message as the real box shows it: rich text rendered, line breaks as "\n".
        QString shown() const;
    };
    QList<Call> calls;

    QQueue<QMessageBox::StandardButton> questionAnswers;
    QQueue<int> chooseAnswers;      // index into the buttons, -1 = escaped
    QQueue<QString> directoryAnswers;
    QQueue<QString> openFileAnswers;
    QQueue<QString> saveFileAnswers;
    QQueue<QString> textAnswers;     // a null QString means "cancelled"
    QQueue<QString> itemAnswers;     // a null QString means "cancelled"
    QQueue<QColor> colorAnswers;     // an invalid QColor means "cancelled"

    // Answers the program's own modal dialogs: called with the dialog instead of running
    // it; returns the dialog's result (QDialog::Accepted / Rejected). Without a handler
    // every such dialog is rejected.
    std::function<int(QDialog*)> dialogHandler;

    // Convenience: the calls of one kind, and the last call (empty Call if none).
    QList<Call> callsOf(const QString& kind) const;
    Call last() const { return calls.isEmpty() ? Call{} : calls.last(); }

    void information(QWidget*, const QString& title, const QString& text) override;
    void warning(QWidget*, const QString& title, const QString& text) override;
    void critical(QWidget*, const QString& title, const QString& text) override;
    QMessageBox::StandardButton question(QWidget*, const QString& title, const QString& text,
                                         QMessageBox::StandardButtons buttons,
                                         QMessageBox::StandardButton defaultButton) override;
    int choose(QWidget*, QMessageBox::Icon icon, const QString& title, const QString& text,
               const QString& informativeText, const QList<Choice>& buttons,
               int defaultIndex) override;
    QString existingDirectory(QWidget*, const QString& caption, const QString& dir) override;
    QString openFileName(QWidget*, const QString& caption, const QString& dir,
                         const QString& filter) override;
    QString saveFileName(QWidget*, const QString& caption, const QString& dir,
                         const QString& filter) override;
    QString text(QWidget*, const QString& title, const QString& label, const QString& initial,
                 bool* ok) override;
    QString item(QWidget*, const QString& title, const QString& label, const QStringList& items,
                 int current, bool* ok) override;
    QColor color(QWidget*, const QColor& initial, const QString& title) override;
    int exec(QDialog* dialog) override;
};
