#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

class QApplication;

// The fixed dark look of the program: Fusion style, palette and application style
// sheet, plus the per-button style sheets of the toolbar.
namespace Theme {

QPalette palette();
QString applicationStyleSheet();

// Sets the Fusion style, the palette and the application style sheet.
void apply(QApplication& app);

// Toolbar button looks: transparent, grey outline, red on hover.
QString menuButtonStyle();   // "Load Data", "Edit", "Export / Import" (no menu arrow)
QString reloadButtonStyle(); // the reload arrow
QString smallButtonStyle();  // "+/-" and the zoom buttons
QString lockButtonStyle();   // the auto-zoom lock
QString helpButtonStyle();   // "Help"

} // namespace Theme
