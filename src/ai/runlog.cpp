#include "ai/runlog.h"

#include <QScrollBar>

RunLog::RunLog(QWidget* parent) : QTextEdit(parent), m_cursor(document())
{
    setReadOnly(true);
    setAcceptRichText(false);
    setUndoRedoEnabled(false);
    setStyleSheet(QStringLiteral("font-size:11px;"));
}

void RunLog::appendLine(const QString& text, const QString& color)
{
    if (text.isEmpty())
        return;
    appendSpans({{text, color}});
}

void RunLog::appendSpans(const QList<Span>& spans)
{
    m_cursor.movePosition(QTextCursor::End);
    bool afterBlank = true;
    for (const Span& span : spans) {
        QString text;
        text.reserve(span.text.size());
        for (const QChar c : span.text) {
            if (!c.isSpace() || c == QChar::Nbsp)
                text += c;
            else if (!afterBlank)
                text += QLatin1Char(' ');
            afterBlank = c.isSpace() && c != QChar::Nbsp;
        }
        QTextCharFormat format;
        format.setForeground(QColor(span.color));
        format.setFontWeight(span.bold ? QFont::Bold : QFont::Normal);
        m_cursor.insertText(text, format);
    }
    m_cursor.insertBlock();
    if (m_batchDepth == 0)
        scrollToEnd();
}

void RunLog::beginBatch()
{
    if (m_batchDepth++ == 0)
        m_cursor.beginEditBlock();
}

void RunLog::endBatch()
{
    if (m_batchDepth == 0 || --m_batchDepth > 0)
        return;
    m_cursor.endEditBlock();
    scrollToEnd();
}

void RunLog::scrollToEnd()
{
    QScrollBar* bar = verticalScrollBar();
    bar->setValue(bar->maximum());
}
