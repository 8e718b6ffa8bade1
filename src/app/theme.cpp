#include "app/theme.h"

#include <QApplication>
#include <QColor>

namespace Theme {

QPalette palette()
{
    QPalette p;
    p.setColor(QPalette::Window, QColor(40, 42, 48));
    p.setColor(QPalette::WindowText, QColor(220, 220, 220));
    p.setColor(QPalette::Base, QColor(28, 30, 34));
    p.setColor(QPalette::AlternateBase, QColor(35, 37, 43));
    p.setColor(QPalette::ToolTipBase, QColor(50, 52, 58));
    p.setColor(QPalette::ToolTipText, QColor(220, 220, 220));
    p.setColor(QPalette::Text, QColor(220, 220, 220));
    p.setColor(QPalette::Button, QColor(48, 50, 58));
    p.setColor(QPalette::ButtonText, QColor(220, 220, 220));
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Link, QColor(80, 160, 240));
    p.setColor(QPalette::Highlight, QColor(42, 90, 160));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Light, QColor(60, 62, 70));
    p.setColor(QPalette::Midlight, QColor(50, 52, 60));
    p.setColor(QPalette::Dark, QColor(20, 22, 26));
    p.setColor(QPalette::Mid, QColor(30, 32, 38));
    p.setColor(QPalette::Shadow, QColor(10, 10, 14));
    const QColor disabledText(100, 100, 100);
    p.setColor(QPalette::Disabled, QPalette::Text, disabledText);
    p.setColor(QPalette::Disabled, QPalette::ButtonText, disabledText);
    p.setColor(QPalette::Disabled, QPalette::WindowText, disabledText);
    return p;
}

QString applicationStyleSheet()
{
    return QStringLiteral(
        "QWidget { background-color: #282a30; color: #dcdcdc; }\n"
        "QMainWindow, QSplitter, QDialog { background-color: #282a30; }\n"
        "QSplitter::handle { background-color: #3a3d45; }\n"
        "QLabel { background: transparent; color: #dcdcdc; }\n"
        "QListWidget { background-color: #1e2024; color: #dcdcdc; border: 1px solid #3a3d45; }\n"
        "QListWidget::item:selected { background-color: #1e3a6e; color: white; }\n"
        "QListWidget::item:hover { background-color: #2a2d35; }\n"
        "QLineEdit { background-color: #1e2024; color: #dcdcdc; border: 1px solid #3a3d45;"
        " border-radius: 3px; padding: 2px 4px; }\n"
        "QLineEdit:focus { border-color: #4a90d9; }\n"
        "QPushButton { background-color: #35383f; color: #dcdcdc; border: 1px solid #4a4d55;"
        " border-radius: 4px; padding: 4px 10px; }\n"
        "QPushButton:hover { background-color: #42454d; border-color: #6a6d75; }\n"
        "QPushButton:pressed { background-color: #252830; }\n"
        "QPushButton:disabled { color: #606060; border-color: #35383f; }\n"
        "QComboBox { background-color: #35383f; color: #dcdcdc; border: 1px solid #4a4d55;"
        " border-radius: 4px; padding: 3px 6px; }\n"
        "QComboBox:hover { border-color: #6a6d75; }\n"
        "QComboBox::drop-down { border: none; width: 20px; }\n"
        "QComboBox QAbstractItemView { background-color: #1e2024; color: #dcdcdc;"
        " border: 1px solid #3a3d45; selection-background-color: #1e3a6e; }\n"
        "QToolBar { background-color: #1e2024; border-bottom: 1px solid #3a3d45; spacing: 4px;"
        " padding: 2px; }\n"
        // Only the toolbar's buttons: Qt's own dialogs (file and folder choosers) have
        // icon-only tool buttons that this padding would crush to dots.
        "QToolBar QToolButton { background-color: #35383f; color: #dcdcdc;"
        " border: 1px solid #4a4d55; border-radius: 4px; padding: 3px 8px; }\n"
        "QToolBar QToolButton:hover { background-color: #42454d; }\n"
        "QToolBar QToolButton:pressed { background-color: #252830; }\n"
        "QToolBar QToolButton:checked { background-color: #1e3a6e; border-color: #4a90d9; }\n"
        "QStatusBar { background-color: #1e2024; color: #aaaaaa; border-top: 1px solid #3a3d45; }\n"
        "QScrollBar:vertical { background-color: #1e2024; width: 10px; border-radius: 5px; }\n"
        "QScrollBar:horizontal { background-color: #1e2024; height: 10px; border-radius: 5px; }\n"
        "QScrollBar::handle:vertical { background-color: #3a3d45; border-radius: 5px;"
        " min-height: 20px; }\n"
        "QScrollBar::handle:horizontal { background-color: #3a3d45; border-radius: 5px;"
        " min-width: 20px; }\n"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical,"
        " QScrollBar::add-line:horizontal, QScrollBar::sub-line:horizontal"
        " { width: 0px; height: 0px; }\n"
        "QTextEdit { background-color: #1e2024; color: #dcdcdc; border: 1px solid #3a3d45; }\n"
        "QGroupBox { border: 1px solid #3a3d45; border-radius: 4px; margin-top: 8px; padding: 6px;"
        " color: #aaaaaa; }\n"
        "QGroupBox::title { subcontrol-origin: margin; subcontrol-position: top left;"
        " padding: 0 4px; }\n"
        "QSlider::groove:horizontal { background-color: #3a3d45; height: 4px; border-radius: 2px; }\n"
        "QSlider::handle:horizontal { background-color: #4a90d9; width: 14px; height: 14px;"
        " margin: -5px 0; border-radius: 7px; }\n"
        "QProgressBar { background-color: #1e2024; border: 1px solid #3a3d45; border-radius: 3px;"
        " text-align: center; color: #dcdcdc; }\n"
        "QProgressBar::chunk { background-color: #1e3a6e; border-radius: 3px; }\n"
        "QCheckBox { color: #dcdcdc; background: transparent; }\n"
        "QSpinBox { background-color: #1e2024; color: #dcdcdc; border: 1px solid #3a3d45;"
        " border-radius: 3px; padding: 2px 4px; }\n"
        "QHeaderView::section { background-color: #35383f; color: #aaaaaa; border: 1px solid #3a3d45;"
        " padding: 3px; }\n"
        "QMenu { background-color: #252830; border: 1px solid #3a4060; }\n"
        "QMenu::item { padding: 4px 20px; color: #dcdcdc; }\n"
        "QMenu::item:selected { background-color: #1e3a6e; }\n"
        "QMenu::separator { height: 1px; background-color: #3a4060; margin: 3px 0; }\n"
        "QToolTip { color: #dde1ed; background-color: #2c3248; border: 1px solid #404868; }\n"
        "QScrollArea { background-color: #282a30; border: none; }\n");
}

void apply(QApplication& app)
{
    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication::setPalette(palette());
    app.setStyleSheet(applicationStyleSheet());
}

QString menuButtonStyle()
{
    return QStringLiteral(
        "QToolButton { color: #aaaaaa; font-weight: bold; font-size: 13px; padding: 2px 8px;"
        " background: transparent; border: 1px solid #aaaaaa; border-radius: 3px; }"
        " QToolButton:hover { color: #ff4444; border-color: #ff4444; }"
        " QToolButton::menu-indicator { image: none; }");
}

QString reloadButtonStyle()
{
    return QStringLiteral(
        "QToolButton { color: #aaaaaa; font-weight: bold; font-size: 16px; max-height: 22px;"
        " padding: 2px 6px; background: transparent; border: 1px solid #aaaaaa;"
        " border-radius: 3px; }"
        " QToolButton:hover { color: #ff4444; border-color: #ff4444; }");
}

QString smallButtonStyle()
{
    return QStringLiteral(
        "QToolButton { color: #aaaaaa; font-weight: bold; font-size: 13px; padding: 2px 6px;"
        " background: transparent; border: 1px solid #aaaaaa; border-radius: 3px; }"
        " QToolButton:hover { color: #ff4444; border-color: #ff4444; }");
}

QString lockButtonStyle()
{
    return QStringLiteral(
        "QToolButton { background: transparent; border: 1px solid #aaaaaa; border-radius: 3px;"
        " padding: 2px 6px; max-height: 21px; }"
        " QToolButton:checked { border-color: #ff4444; }"
        " QToolButton:hover { border-color: #ff4444; }"
        " QToolButton:checked:hover { border-color: #ffffff; }");
}

QString helpButtonStyle()
{
    return QStringLiteral(
        "QToolButton { color: #aaaaaa; font-weight: bold; font-size: 13px; padding: 2px 8px;"
        " background: transparent; border: 1px solid #aaaaaa; border-radius: 3px; }"
        " QToolButton:hover { color: #ff4444; border-color: #ff4444; }");
}

} // namespace Theme
