#pragma once

#include <QList>
#include <QString>
#include <QTextCursor>
#include <QTextEdit>

// Colours of the AI dialogs' run log lines.
namespace LogColor {
inline constexpr char Start[] = "#5ab0e8";       // "Installing dependencies...", "Starting inference..."
inline constexpr char Info[] = "#6890cc";        // interpreter, helper INFO lines
inline constexpr char Warning[] = "#ffb040";     // NumPy fix, stopped by user
inline constexpr char Success[] = "#50d898";     // completion lines
inline constexpr char Failure[] = "#ff6060";     // launch failures, non-zero exit
inline constexpr char HelperError[] = "#ff5050"; // helper ERROR lines
inline constexpr char Stderr[] = "#ff9060";      // everything on the helper's standard error
} // namespace LogColor

// The read-only, coloured log of an AI dialog. Every line is shown as escaped HTML text
// followed by a line break would show: text that looks like HTML stays text, runs of
// white space shrink to one blank (none at the start of a line), an empty line stays
// below the last one, and the view follows the newest line.
//
// Lines go in as formatted text blocks rather than as HTML with "<br>", which would keep
// the whole log in one paragraph laid out again on every append. Between beginBatch and
// endBatch the lines are added as one edit: the view lays them out and scrolls once,
// which is what lets a helper print thousands of lines a second.
class RunLog : public QTextEdit {
    Q_OBJECT
public:
    struct Span {
        QString text;
        QString color;
        bool bold = false;
    };

    explicit RunLog(QWidget* parent = nullptr);

    // Appends one line in `color`; an empty text writes nothing.
    void appendLine(const QString& text, const QString& color);
    // Appends one line made of differently coloured pieces.
    void appendSpans(const QList<Span>& spans);

    void beginBatch();
    void endBatch();

private:
    void scrollToEnd();

    QTextCursor m_cursor;
    int m_batchDepth = 0;
};
