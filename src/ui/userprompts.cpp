#include "ui/userprompts.h"

#include <QColorDialog>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QPushButton>

namespace {

UserPrompts* installedPrompts = nullptr;

const QLatin1String kRichTextStart("<qt>");

// The format is never guessed: QMessageBox would take a file name such as "<i>draft.png"
// on the first line for markup, and would miss the markup of a rich text whose first
// line has none.
void setMessageText(QMessageBox& box, const QString& text)
{
    box.setTextFormat(UserPrompts::isRichText(text) ? Qt::RichText : Qt::PlainText);
    box.setText(text);
}

void showMessage(QMessageBox::Icon icon, QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox box(icon, title, QString(), QMessageBox::Ok, parent);
    setMessageText(box, text);
    box.exec();
}

} // namespace

UserPrompts& UserPrompts::current()
{
    static QtUserPrompts realDialogs;
    return installedPrompts ? *installedPrompts : realDialogs;
}

void UserPrompts::install(UserPrompts* prompts)
{
    installedPrompts = prompts;
}

QString UserPrompts::richText(const QString& html)
{
    return kRichTextStart + QString(html).replace(QLatin1Char('\n'), QLatin1String("<br>"))
        + QLatin1String("</qt>");
}

bool UserPrompts::isRichText(const QString& text)
{
    return text.startsWith(kRichTextStart);
}

void QtUserPrompts::information(QWidget* parent, const QString& title, const QString& text)
{
    showMessage(QMessageBox::Information, parent, title, text);
}

void QtUserPrompts::warning(QWidget* parent, const QString& title, const QString& text)
{
    showMessage(QMessageBox::Warning, parent, title, text);
}

void QtUserPrompts::critical(QWidget* parent, const QString& title, const QString& text)
{
    showMessage(QMessageBox::Critical, parent, title, text);
}

QMessageBox::StandardButton QtUserPrompts::question(QWidget* parent, const QString& title,
                                                    const QString& text,
                                                    QMessageBox::StandardButtons buttons,
                                                    QMessageBox::StandardButton defaultButton)
{
    QMessageBox box(QMessageBox::Question, title, QString(), buttons, parent);
    setMessageText(box, text);
    box.setDefaultButton(defaultButton);
    return QMessageBox::StandardButton(box.exec());
}

int QtUserPrompts::choose(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                          const QString& text, const QString& informativeText,
                          const QList<Choice>& buttons, int defaultIndex)
{
    QMessageBox box(icon, title, QString(), QMessageBox::NoButton, parent);
    setMessageText(box, text);
    if (!informativeText.isEmpty())
        box.setInformativeText(informativeText);
    QList<QPushButton*> pushButtons;
    for (const Choice& choice : buttons)
        pushButtons.append(box.addButton(choice.text, choice.role));
    if (defaultIndex >= 0 && defaultIndex < pushButtons.size())
        box.setDefaultButton(pushButtons.at(defaultIndex));
    box.exec();
    // indexOf gives -1 when the box was closed without any of our buttons.
    return pushButtons.indexOf(qobject_cast<QPushButton*>(box.clickedButton()));
}

QString QtUserPrompts::existingDirectory(QWidget* parent, const QString& caption, const QString& dir)
{
    return QFileDialog::getExistingDirectory(parent, caption, dir, QFileDialog::ShowDirsOnly);
}

QString QtUserPrompts::openFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter)
{
    return QFileDialog::getOpenFileName(parent, caption, dir, filter);
}

QString QtUserPrompts::saveFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter)
{
    return QFileDialog::getSaveFileName(parent, caption, dir, filter);
}

QString QtUserPrompts::text(QWidget* parent, const QString& title, const QString& label,
                            const QString& initial, bool* ok)
{
    return QInputDialog::getText(parent, title, label, QLineEdit::Normal, initial, ok);
}

QString QtUserPrompts::item(QWidget* parent, const QString& title, const QString& label,
                            const QStringList& items, int current, bool* ok)
{
    return QInputDialog::getItem(parent, title, label, items, current, false, ok);
}

QColor QtUserPrompts::color(QWidget* parent, const QColor& initial, const QString& title)
{
    return QColorDialog::getColor(initial, parent, title);
}

int QtUserPrompts::exec(QDialog* dialog)
{
    return dialog->exec();
}
