#include "ai/aidialogparts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QScrollArea>
#include <QVBoxLayout>

#include "ui/userprompts.h"

namespace AiDialogParts {

int protocolNumber(const QString& field)
{
    bool ok = false;
    const int value = field.toInt(&ok);
    return ok ? value : 0;
}

QLabel* introLabel(const QString& text)
{
    auto* label = new QLabel(text);
    label->setStyleSheet(QStringLiteral("color:#888;font-size:12px;"));
    label->setWordWrap(true);
    return label;
}

QLabel* hintLabel(const QString& text)
{
    auto* label = new QLabel(text);
    label->setStyleSheet(QStringLiteral("color:#777;font-size:11px;"));
    label->setWordWrap(true);
    return label;
}

QCheckBox* checkBox(const QString& text, const char* objectName)
{
    auto* box = new QCheckBox(text);
    box->setObjectName(QLatin1String(objectName));
    // On a transparent background the style draws the box in transparent colours, which
    // leaves only the tick of a checked box visible.
    box->setStyleSheet(QStringLiteral("QCheckBox{background-color:#282a30;}"));
    return box;
}

QComboBox* versionCombo()
{
    auto* combo = new QComboBox;
    combo->setObjectName(QStringLiteral("versionCombo"));
    combo->addItems({QStringLiteral("YOLOv10"), QStringLiteral("YOLOv11"), QStringLiteral("YOLOv12")});
    combo->setCurrentText(QStringLiteral("YOLOv11"));
    return combo;
}

bool chooseFile(QWidget* parent, QLineEdit* edit, const QString& title, const QString& filter)
{
    const QString path = UserPrompts::current().openFileName(parent, title, QString(), filter);
    if (path.isEmpty())
        return false;
    edit->setText(path);
    return true;
}

bool chooseFolder(QWidget* parent, QLineEdit* edit, const QString& title)
{
    const QString path = UserPrompts::current().existingDirectory(parent, title, QString());
    if (path.isEmpty())
        return false;
    edit->setText(path);
    return true;
}

void assemble(QWidget* dialog, QWidget* content, QFrame* bottomBar)
{
    auto* outer = new QVBoxLayout(dialog);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    outer->addWidget(scroll, 1);
    outer->addWidget(bottomBar);
}

bool checkInputs(QWidget* parent, const RunInputs& in)
{
    UserPrompts& prompts = UserPrompts::current();
    const QString missing = QStringLiteral("Missing");
    if (in.model.isEmpty()) {
        prompts.warning(parent, missing, QStringLiteral("Select a YOLO model file."));
        return false;
    }
    if (in.video.isEmpty()) {
        prompts.warning(parent, missing, in.missingVideoText);
        return false;
    }
    if (in.output.isEmpty()) {
        prompts.warning(parent, missing, QStringLiteral("Select an output folder."));
        return false;
    }
    if (!QFileInfo::exists(in.model)) {
        prompts.critical(parent, QStringLiteral("Not Found"),
                         QStringLiteral("Model file not found:\n") + in.model);
        return false;
    }
    if (!QFileInfo::exists(in.video)) {
        prompts.critical(parent, QStringLiteral("Not Found"),
                         QStringLiteral("Video file not found:\n") + in.video);
        return false;
    }
    return true;
}

} // namespace AiDialogParts
