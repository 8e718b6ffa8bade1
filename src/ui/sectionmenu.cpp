#include "ui/sectionmenu.h"

#include <QActionEvent>
#include <QPaintEvent>
#include <QPainter>

#include <algorithm>

namespace {

const QColor kTitleColor(0xaa, 0xaa, 0xaa);
const QColor kLineColor(0x3a, 0x40, 0x60); // the colour of every menu separator

} // namespace

SectionMenu::SectionMenu(QWidget* parent) : QMenu(parent)
{
    setStyleSheet(QStringLiteral(
        "QMenu::separator { height: 18px; background: transparent; margin: 2px 0; }"));
}

QAction* SectionMenu::addLiteralAction(const QString& text)
{
    QAction* action = addAction(QString(text).replace(QLatin1Char('&'), QLatin1String("&&")));
    action->setData(text);
    return action;
}

QFont SectionMenu::titleFont() const
{
    QFont bold = font();
    bold.setBold(true);
    return bold;
}

// The style sizes a section row without its title: the menu is made wide enough for the
// titles, with room for the text insets and a stretch of the line after them.
void SectionMenu::actionEvent(QActionEvent* event)
{
    QMenu::actionEvent(event);
    const QFontMetrics metrics(titleFont());
    int width = 0;
    for (QAction* action : actions()) {
        if (action->isSeparator() && !action->text().isEmpty())
            width = std::max(width, metrics.horizontalAdvance(action->text()) + 48);
    }
    setMinimumWidth(width);
}

void SectionMenu::paintEvent(QPaintEvent* event)
{
    QMenu::paintEvent(event);
    QPainter p(this);
    p.setFont(titleFont());
    const QFontMetrics metrics(p.font());
    for (QAction* action : actions()) {
        if (!action->isSeparator() || action->text().isEmpty())
            continue;
        const QRect row = actionGeometry(action);
        if (!row.intersects(event->rect()))
            continue;
        const QRect textRect = row.adjusted(8, 0, -8, 0);
        p.setPen(kTitleColor);
        p.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter, action->text());
        const int lineStart = textRect.left() + metrics.horizontalAdvance(action->text()) + 6;
        if (lineStart < textRect.right())
            p.fillRect(QRect(lineStart, row.center().y(), textRect.right() - lineStart + 1, 1),
                       kLineColor);
    }
}
