#pragma once

#include <QColor>
#include <QMessageBox>
#include <QString>
#include <QStringList>

class QDialog;
class QWidget;

// Every modal question, notice, file or folder chooser and input dialog that a command
// raises goes through this interface. The program uses QtUserPrompts (the real Qt
// dialogs); tests install a scripted implementation so that no test waits on a box.
class UserPrompts {
public:
    virtual ~UserPrompts() = default;

    virtual void information(QWidget* parent, const QString& title, const QString& text) = 0;
    virtual void warning(QWidget* parent, const QString& title, const QString& text) = 0;
    virtual void critical(QWidget* parent, const QString& title, const QString& text) = 0;
    virtual QMessageBox::StandardButton question(QWidget* parent, const QString& title,
                                                 const QString& text,
                                                 QMessageBox::StandardButtons buttons,
                                                 QMessageBox::StandardButton defaultButton) = 0;

    // A message box with custom buttons. Returns the index of the button chosen in
    // `buttons`, or -1 when the box was closed or escaped without a choice that
    // has the reject role.
    struct Choice {
        QString text;
        QMessageBox::ButtonRole role = QMessageBox::AcceptRole;
    };
    virtual int choose(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                       const QString& text, const QString& informativeText,
                       const QList<Choice>& buttons, int defaultIndex) = 0;

    // Empty string when cancelled.
    virtual QString existingDirectory(QWidget* parent, const QString& caption, const QString& dir) = 0;
    virtual QString openFileName(QWidget* parent, const QString& caption, const QString& dir,
                                 const QString& filter) = 0;
    virtual QString saveFileName(QWidget* parent, const QString& caption, const QString& dir,
                                 const QString& filter) = 0;
    // *ok is false when cancelled.
    virtual QString text(QWidget* parent, const QString& title, const QString& label,
                         const QString& initial, bool* ok) = 0;
    virtual QString item(QWidget* parent, const QString& title, const QString& label,
                         const QStringList& items, int current, bool* ok) = 0;

    // An invalid colour when cancelled.
    virtual QColor color(QWidget* parent, const QColor& initial, const QString& title) = 0;

    // Runs one of the program's own modal dialogs (Load Data, Manage Labels ...) and
    // returns its QDialog::DialogCode result.
    virtual int exec(QDialog* dialog) = 0;

    // Message texts are plain text, shown exactly as written (a file or label name never
    // reads as markup), except texts made by richText: those are shown as rich text with
    // their line breaks kept. Names put into a rich text must be escaped (toHtmlEscaped).
    static QString richText(const QString& html);
    static bool isRichText(const QString& text);

    // The implementation in force. Defaults to QtUserPrompts.
    static UserPrompts& current();
    // Installs `prompts` (not owned); nullptr restores the real dialogs.
    static void install(UserPrompts* prompts);
};

class QtUserPrompts : public UserPrompts {
public:
    void information(QWidget* parent, const QString& title, const QString& text) override;
    void warning(QWidget* parent, const QString& title, const QString& text) override;
    void critical(QWidget* parent, const QString& title, const QString& text) override;
    QMessageBox::StandardButton question(QWidget* parent, const QString& title, const QString& text,
                                         QMessageBox::StandardButtons buttons,
                                         QMessageBox::StandardButton defaultButton) override;
    int choose(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text,
               const QString& informativeText, const QList<Choice>& buttons,
               int defaultIndex) override;
    QString existingDirectory(QWidget* parent, const QString& caption, const QString& dir) override;
    QString openFileName(QWidget* parent, const QString& caption, const QString& dir,
                         const QString& filter) override;
    QString saveFileName(QWidget* parent, const QString& caption, const QString& dir,
                         const QString& filter) override;
    QString text(QWidget* parent, const QString& title, const QString& label,
                 const QString& initial, bool* ok) override;
    QString item(QWidget* parent, const QString& title, const QString& label,
                 const QStringList& items, int current, bool* ok) override;
    QColor color(QWidget* parent, const QColor& initial, const QString& title) override;
    int exec(QDialog* dialog) override;
};
