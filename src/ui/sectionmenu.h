#pragma once

#include <QMenu>

// A menu that shows the titles of its sections (QMenu::addSection). Under a style sheet
// that styles menu separators, the style draws a section as a bare line and drops its
// title; this menu gives section rows the height of a title line and paints the title,
// followed by the separator line.
class SectionMenu : public QMenu {
public:
    explicit SectionMenu(QWidget* parent = nullptr);

    // An entry showing `text` as written: an "&" is not taken for a keyboard mnemonic.
    // The entry's data holds `text`.
    QAction* addLiteralAction(const QString& text);

protected:
    void actionEvent(QActionEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QFont titleFont() const;
};
