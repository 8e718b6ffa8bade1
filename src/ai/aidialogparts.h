#pragma once

#include <QString>

class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QWidget;

// Small pieces the AI dialogs build the same way.
namespace AiDialogParts {

inline constexpr char videoFilter[] =
    "Video files (*.mp4 *.avi *.mov *.mkv *.wmv *.m4v *.webm);;All files (*.*)";

// A number field of the helper line protocol: anything that is not a valid 32-bit
// integer counts as 0.
int protocolNumber(const QString& field);

// The grey introduction at the top of a dialog.
QLabel* introLabel(const QString& text);
// A small grey note beside or below a control.
QLabel* hintLabel(const QString& text);
// A check box whose box shows on the dark theme.
QCheckBox* checkBox(const QString& text, const char* objectName);
// "YOLOv10", "YOLOv11", "YOLOv12" with "YOLOv11" chosen; informational only.
QComboBox* versionCombo();
// Gives `dialog` a margin-less layout: `content` in a resizable scroll area, `bottomBar`
// fixed below it.
void assemble(QWidget* dialog, QWidget* content, QFrame* bottomBar);

struct RunInputs {
    QString model;
    QString video;
    QString output;
    QString missingVideoText; // the dialog's words for an empty video field
};
// Asks for a file (chooseFile) or a folder (chooseFolder) and puts the path chosen in
// `edit`; returns false when the user cancelled, leaving `edit` as it was.
bool chooseFile(QWidget* parent, QLineEdit* edit, const QString& title, const QString& filter);
bool chooseFolder(QWidget* parent, QLineEdit* edit, const QString& title);
inline constexpr char modelFilter[] = "YOLO model (*.pt);;All files (*.*)";

// The checks before a run: every field filled in, model and video files present. Tells
// the user about the first problem and returns false.
bool checkInputs(QWidget* parent, const RunInputs& inputs);

} // namespace AiDialogParts
