#include "support/scriptedprompts.h"

#include <QDialog>
#include <QTextDocument>

QString ScriptedPrompts::Call::shown() const
{
    QTextDocument document;
    document.setHtml(text);
    return UserPrompts::isRichText(text) ? document.toPlainText() : text;
}

ScriptedPrompts::ScriptedPrompts() { UserPrompts::install(this); }
ScriptedPrompts::~ScriptedPrompts() { UserPrompts::install(nullptr); }

QList<ScriptedPrompts::Call> ScriptedPrompts::callsOf(const QString& kind) const
{
    QList<Call> out;
    for (const Call& c : calls)
        if (c.kind == kind)
            out.append(c);
    return out;
}

void ScriptedPrompts::information(QWidget*, const QString& title, const QString& text)
{
    calls.append({QStringLiteral("information"), title, text, {}, {}});
}

void ScriptedPrompts::warning(QWidget*, const QString& title, const QString& text)
{
    calls.append({QStringLiteral("warning"), title, text, {}, {}});
}

void ScriptedPrompts::critical(QWidget*, const QString& title, const QString& text)
{
    calls.append({QStringLiteral("critical"), title, text, {}, {}});
}

QMessageBox::StandardButton ScriptedPrompts::question(QWidget*, const QString& title,
                                                      const QString& text,
                                                      QMessageBox::StandardButtons,
                                                      QMessageBox::StandardButton)
{
    calls.append({QStringLiteral("question"), title, text, {}, {}});
    return questionAnswers.isEmpty() ? QMessageBox::Cancel : questionAnswers.dequeue();
}

int ScriptedPrompts::choose(QWidget*, QMessageBox::Icon, const QString& title, const QString& text,
                            const QString& informativeText, const QList<Choice>& buttons, int)
{
    QStringList names;
    for (const Choice& c : buttons)
        names << c.text;
    calls.append({QStringLiteral("choose"), title, text, informativeText, names});
    return chooseAnswers.isEmpty() ? -1 : chooseAnswers.dequeue();
}

QString ScriptedPrompts::existingDirectory(QWidget*, const QString& caption, const QString& dir)
{
    calls.append({QStringLiteral("directory"), caption, dir, {}, {}});
    return directoryAnswers.isEmpty() ? QString() : directoryAnswers.dequeue();
}

QString ScriptedPrompts::openFileName(QWidget*, const QString& caption, const QString& dir,
                                      const QString& filter)
{
    calls.append({QStringLiteral("open"), caption, dir, filter, {}});
    return openFileAnswers.isEmpty() ? QString() : openFileAnswers.dequeue();
}

QString ScriptedPrompts::saveFileName(QWidget*, const QString& caption, const QString& dir,
                                      const QString& filter)
{
    calls.append({QStringLiteral("save"), caption, dir, filter, {}});
    return saveFileAnswers.isEmpty() ? QString() : saveFileAnswers.dequeue();
}

QString ScriptedPrompts::text(QWidget*, const QString& title, const QString& label,
                              const QString& initial, bool* ok)
{
    calls.append({QStringLiteral("text"), title, label, initial, {}});
    QString answer = textAnswers.isEmpty() ? QString() : textAnswers.dequeue();
    if (ok)
        *ok = !answer.isNull();
    return answer;
}

QString ScriptedPrompts::item(QWidget*, const QString& title, const QString& label,
                              const QStringList& items, int, bool* ok)
{
    calls.append({QStringLiteral("item"), title, label, {}, items});
    QString answer = itemAnswers.isEmpty() ? QString() : itemAnswers.dequeue();
    if (ok)
        *ok = !answer.isNull();
    return answer;
}

QColor ScriptedPrompts::color(QWidget*, const QColor& initial, const QString& title)
{
    // The initial colour is recorded as the text, in #rrggbb form.
    calls.append({QStringLiteral("color"), title, initial.name(QColor::HexRgb), {}, {}});
    return colorAnswers.isEmpty() ? QColor() : colorAnswers.dequeue();
}

int ScriptedPrompts::exec(QDialog* dialog)
{
    calls.append({QStringLiteral("dialog"), dialog->windowTitle(), {}, {}, {}});
    return dialogHandler ? dialogHandler(dialog) : int(QDialog::Rejected);
}
