#include "app/loaddatadialog.h"

#include <QDir>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/userprompts.h"

LoadDataDialog::LoadDataDialog(QWidget* parent, const QString& imagesFolder,
                               const QString& annotationsFolder)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Load Data"));
    setModal(true);
    setMinimumWidth(640);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(16);
    layout->setContentsMargins(24, 24, 24, 24);

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(24);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);

    auto boldLabel = [this](const QString& text) {
        auto* label = new QLabel(text, this);
        QFont font = label->font();
        font.setWeight(QFont::Bold);
        label->setFont(font);
        return label;
    };
    grid->addWidget(boldLabel(QStringLiteral("Images folder")), 0, 0);
    grid->addWidget(boldLabel(QStringLiteral("Annotations folder")), 0, 1);

    imagesEdit = new QLineEdit(imagesFolder, this);
    imagesEdit->setObjectName(QStringLiteral("imagesEdit"));
    annotationsEdit = new QLineEdit(annotationsFolder, this);
    annotationsEdit->setObjectName(QStringLiteral("annotationsEdit"));
    for (QLineEdit* edit : {imagesEdit, annotationsEdit}) {
        edit->setReadOnly(true);
        edit->setPlaceholderText(QStringLiteral("(no folder selected)"));
    }
    grid->addWidget(imagesEdit, 1, 0);
    grid->addWidget(annotationsEdit, 1, 1);

    auto* browseImages = new QPushButton(QStringLiteral("Change..."), this);
    browseImages->setObjectName(QStringLiteral("browseImagesButton"));
    auto* browseAnnotations = new QPushButton(QStringLiteral("Change..."), this);
    browseAnnotations->setObjectName(QStringLiteral("browseAnnotationsButton"));
    grid->addWidget(browseImages, 2, 0);
    grid->addWidget(browseAnnotations, 2, 1);
    layout->addLayout(grid);

    auto* line = new QFrame(this);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    layout->addWidget(line);

    auto* note = new QLabel(
        QStringLiteral("If the annotations folder contains .xml files, bounding boxes will be\n"
                       "loaded automatically when you open each image."),
        this);
    note->setStyleSheet(QStringLiteral("color: gray; font-size: 11px;"));
    layout->addWidget(note);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    auto* ok = new QPushButton(QStringLiteral("OK"), this);
    ok->setObjectName(QStringLiteral("okButton"));
    ok->setDefault(true);
    ok->setMinimumWidth(80);
    buttons->addWidget(cancel);
    buttons->addWidget(ok);
    layout->addLayout(buttons);

    connect(browseImages, &QPushButton::clicked, this, &LoadDataDialog::onBrowseImages);
    connect(browseAnnotations, &QPushButton::clicked, this, &LoadDataDialog::onBrowseAnnotations);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(ok, &QPushButton::clicked, this, &LoadDataDialog::onAccept);
}

QString LoadDataDialog::imagesFolder() const { return imagesEdit->text(); }

QString LoadDataDialog::annotationsFolder() const { return annotationsEdit->text(); }

void LoadDataDialog::onBrowseImages()
{
    const QString start = imagesEdit->text().isEmpty() ? QDir::homePath() : imagesEdit->text();
    const QString dir = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select images folder"), start);
    if (dir.isEmpty())
        return;
    imagesEdit->setText(dir);
    if (annotationsEdit->text().isEmpty())
        annotationsEdit->setText(dir + QStringLiteral("/annotations"));
}

void LoadDataDialog::onBrowseAnnotations()
{
    QString start = annotationsEdit->text();
    if (start.isEmpty())
        start = imagesEdit->text();
    if (start.isEmpty())
        start = QDir::homePath();
    const QString dir = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select annotations folder"), start);
    if (!dir.isEmpty())
        annotationsEdit->setText(dir);
}

void LoadDataDialog::onAccept()
{
    if (imagesEdit->text().trimmed().isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("Missing folder"),
                                       QStringLiteral("Please select an images folder."));
        return;
    }
    if (annotationsEdit->text().trimmed().isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("Missing folder"),
                                       QStringLiteral("Please select an annotations folder."));
        return;
    }
    const QString annotations = annotationsEdit->text();
    if (!QDir(annotations).exists() && !QDir().mkpath(annotations)) {
        UserPrompts::current().warning(
            this, QStringLiteral("Error"),
            QStringLiteral("Could not create annotations folder:\n") + annotations);
        return;
    }
    accept();
}
