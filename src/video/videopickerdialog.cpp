#include "video/videopickerdialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/userprompts.h"

VideoPickerDialog::VideoPickerDialog(QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Extract Video Frames"));
    setModal(true);
    setMinimumWidth(480);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->setContentsMargins(24, 24, 24, 24);

    auto* header = new QLabel(
        QStringLiteral("<b>Extract Video Frames</b><br/><span style='color:gray;font-size:11px;'>"
                       "Supported: MP4, AVI, MOV, WMV, MKV, M4V, WebM</span>"),
        this);
    header->setTextFormat(Qt::RichText);
    layout->addWidget(header);

    auto* fileRow = new QHBoxLayout;
    pathEdit = new QLineEdit(this);
    pathEdit->setObjectName(QStringLiteral("videoPathEdit"));
    pathEdit->setReadOnly(true);
    pathEdit->setPlaceholderText(QStringLiteral("Select a video file..."));
    fileRow->addWidget(pathEdit, 1);
    auto* browse = new QPushButton(QStringLiteral("Browse..."), this);
    browse->setObjectName(QStringLiteral("browseButton"));
    fileRow->addWidget(browse);
    layout->addLayout(fileRow);

    layout->addStretch();

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    auto* proceed = new QPushButton(QStringLiteral("Continue"), this);
    proceed->setObjectName(QStringLiteral("continueButton"));
    proceed->setStyleSheet(QStringLiteral("QPushButton { font-weight: bold; }"));
    buttons->addWidget(cancel);
    buttons->addWidget(proceed);
    layout->addLayout(buttons);

    // Return must not pick a button behind the user's back.
    for (QPushButton* button : {browse, cancel, proceed}) {
        button->setAutoDefault(false);
        button->setDefault(false);
    }

    connect(browse, &QPushButton::clicked, this, &VideoPickerDialog::onBrowse);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(proceed, &QPushButton::clicked, this, &VideoPickerDialog::onContinue);
}

QString VideoPickerDialog::videoPath() const { return pathEdit->text(); }

void VideoPickerDialog::onBrowse()
{
    const QString path = UserPrompts::current().openFileName(
        this, QStringLiteral("Select video file"), QString(),
        QStringLiteral("Video files (*.mp4 *.avi *.mov *.wmv *.mkv *.m4v *.webm *.flv *.ts);;"
                       "All files (*.*)"));
    if (!path.isEmpty())
        pathEdit->setText(path);
}

void VideoPickerDialog::onContinue()
{
    if (pathEdit->text().trimmed().isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("No file selected"),
                                       QStringLiteral("Please select a video file first."));
        return;
    }
    accept();
}
