#include "training/trainingexportdialog.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "formats/yoloposeexportdialog.h"
#include "ui/userprompts.h"

namespace {

struct LayoutChoice {
    TrainingExport::Layout layout;
    const char* text;
};
const LayoutChoice kChoices[] = {
    {TrainingExport::Layout::UltralyticsDetect, "Ultralytics YOLO detect (boxes)"},
    {TrainingExport::Layout::UltralyticsSegment, "Ultralytics YOLO segment (outlines)"},
    {TrainingExport::Layout::UltralyticsObb, "Ultralytics YOLO OBB (oriented boxes)"},
    {TrainingExport::Layout::UltralyticsPose, "Ultralytics YOLO pose (boxes with keypoints)"},
    {TrainingExport::Layout::CocoInstances, "COCO instances (boxes, polygons, keypoints)"},
};

const char* const kNoteStyle = "color: gray; font-size: 11px;";

} // namespace

TrainingExportDialog::TrainingExportDialog(const QList<ImageAnnotations>& images,
                                           const QList<LabelDef>& labels, QWidget* parent)
    : QDialog(parent), m_images(images), m_labels(labels)
{
    setObjectName(QStringLiteral("trainingExportDialog"));
    setWindowTitle(QStringLiteral("Export for Training"));
    setMinimumWidth(560);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(12);

    auto* heading = new QLabel(
        QStringLiteral("<b>Export for Training</b><br/><span style='color:gray;font-size:11px;'>"
                       "Images and labels in the layout a trainer reads as it is, split into "
                       "train, val and test.</span>"),
        this);
    layout->addWidget(heading);

    auto* form = new QFormLayout;
    form->setHorizontalSpacing(16);
    form->setVerticalSpacing(10);

    layoutCombo = new QComboBox(this);
    layoutCombo->setObjectName(QStringLiteral("layoutCombo"));
    for (const LayoutChoice& choice : kChoices)
        layoutCombo->addItem(QString::fromLatin1(choice.text), TrainingExport::layoutName(choice.layout));
    form->addRow(QStringLiteral("Layout:"), layoutCombo);

    auto* folderRow = new QHBoxLayout;
    folderEdit = new QLineEdit(this);
    folderEdit->setObjectName(QStringLiteral("folderEdit"));
    folderEdit->setPlaceholderText(QStringLiteral("(no folder selected)"));
    auto* browse = new QPushButton(QStringLiteral("Browse..."), this);
    browse->setObjectName(QStringLiteral("browseButton"));
    browse->setAutoDefault(false);
    folderRow->addWidget(folderEdit, 1);
    folderRow->addWidget(browse);
    form->addRow(QStringLiteral("Output folder:"), folderRow);

    auto* splitRow = new QHBoxLayout;
    const auto percentSpin = [this](const QString& name, double value) {
        auto* spin = new QDoubleSpinBox(this);
        spin->setObjectName(name);
        spin->setRange(0, 100);
        spin->setDecimals(1);
        spin->setSingleStep(5);
        spin->setSuffix(QStringLiteral(" %"));
        spin->setValue(value);
        return spin;
    };
    valSpin = percentSpin(QStringLiteral("valSpin"), 20);
    testSpin = percentSpin(QStringLiteral("testSpin"), 0);
    seedSpin = new QSpinBox(this);
    seedSpin->setObjectName(QStringLiteral("seedSpin"));
    seedSpin->setRange(0, 2147483647);
    splitRow->addWidget(new QLabel(QStringLiteral("Val"), this));
    splitRow->addWidget(valSpin);
    splitRow->addSpacing(12);
    splitRow->addWidget(new QLabel(QStringLiteral("Test"), this));
    splitRow->addWidget(testSpin);
    splitRow->addSpacing(12);
    splitRow->addWidget(new QLabel(QStringLiteral("Seed"), this));
    splitRow->addWidget(seedSpin);
    splitRow->addStretch(1);
    form->addRow(QStringLiteral("Split:"), splitRow);
    m_splitNote = new QLabel(this);
    m_splitNote->setStyleSheet(QLatin1String(kNoteStyle));
    m_splitNote->setWordWrap(true);
    form->addRow(QString(), m_splitNote);

    auto* imagesRow = new QHBoxLayout;
    m_imageMode = new QButtonGroup(this);
    auto* copy = new QRadioButton(QStringLiteral("Copy"), this);
    copy->setObjectName(QStringLiteral("copyRadio"));
    auto* link = new QRadioButton(QStringLiteral("Hard-link (same disk, no extra space)"), this);
    link->setObjectName(QStringLiteral("linkRadio"));
    copy->setChecked(true);
    m_imageMode->addButton(copy, int(TrainingExport::ImageMode::Copy));
    m_imageMode->addButton(link, int(TrainingExport::ImageMode::Link));
    imagesRow->addWidget(copy);
    imagesRow->addWidget(link);
    imagesRow->addStretch(1);
    form->addRow(QStringLiteral("Images:"), imagesRow);

    auto* keypointRow = new QHBoxLayout;
    keypointButton = new QPushButton(QStringLiteral("Keypoint Order..."), this);
    keypointButton->setObjectName(QStringLiteral("keypointOrderButton"));
    keypointButton->setAutoDefault(false);
    m_keypointNote = new QLabel(this);
    m_keypointNote->setStyleSheet(QLatin1String(kNoteStyle));
    m_keypointNote->setWordWrap(true);
    keypointRow->addWidget(keypointButton);
    keypointRow->addWidget(m_keypointNote, 1);
    form->addRow(QStringLiteral("Keypoints:"), keypointRow);
    layout->addLayout(form);

    auto* note = new QLabel(
        QStringLiteral("The dataset is checked first: you see what will be clipped or left out "
                       "before anything is written."),
        this);
    note->setStyleSheet(QLatin1String(kNoteStyle));
    note->setWordWrap(true);
    layout->addWidget(note);

    auto* buttons = new QDialogButtonBox(this);
    auto* exportButton = buttons->addButton(QStringLiteral("Export..."), QDialogButtonBox::AcceptRole);
    exportButton->setObjectName(QStringLiteral("exportButton"));
    exportButton->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, &TrainingExportDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(browse, &QPushButton::clicked, this, &TrainingExportDialog::onBrowse);
    connect(keypointButton, &QPushButton::clicked, this, &TrainingExportDialog::onKeypointOrder);
    connect(layoutCombo, &QComboBox::currentIndexChanged, this, &TrainingExportDialog::onLayoutChanged);
    const auto updateSplit = [this] {
        const double train = 100.0 - valSpin->value() - testSpin->value();
        m_splitNote->setText(train < 0 ? QStringLiteral("Val and test add up to more than 100 %.")
                                       : QStringLiteral("Train gets the other %1 %. An image's subset follows from "
                                                        "the seed and its file name alone.")
                                             .arg(train, 0, 'g', 4));
    };
    connect(valSpin, &QDoubleSpinBox::valueChanged, this, updateSplit);
    connect(testSpin, &QDoubleSpinBox::valueChanged, this, updateSplit);
    updateSplit();

    m_keypointOrder = TrainingExport::defaultKeypointOrder(m_images);
    onLayoutChanged();
}

TrainingExport::Options TrainingExportDialog::options() const
{
    TrainingExport::Options o;
    TrainingExport::layoutFromName(layoutCombo->currentData().toString(), &o.layout);
    o.outputFolder = folderEdit->text().trimmed();
    o.valPercent = valSpin->value();
    o.testPercent = testSpin->value();
    o.seed = quint64(seedSpin->value());
    o.images = TrainingExport::ImageMode(m_imageMode->checkedId());
    // COCO carries keypoints only when the user set an order; pose always needs one.
    if (o.layout == TrainingExport::Layout::UltralyticsPose || m_orderChosen)
        o.keypointOrder = m_keypointOrder;
    return o;
}

void TrainingExportDialog::accept()
{
    const TrainingExport::Options o = options();
    if (o.outputFolder.isEmpty()) {
        UserPrompts::current().warning(this, QStringLiteral("Missing folder"),
                                       QStringLiteral("Please select an output folder."));
        return;
    }
    if (o.valPercent + o.testPercent > 100) {
        UserPrompts::current().warning(this, QStringLiteral("Split"),
                                       QStringLiteral("Val and test add up to more than 100 %."));
        return;
    }
    if (o.layout == TrainingExport::Layout::UltralyticsPose) {
        int k = 0;
        for (const QStringList& order : o.keypointOrder)
            k = std::max(k, int(order.size()));
        if (k == 0) {
            UserPrompts::current().warning(
                this, QStringLiteral("No Keypoints"),
                QStringLiteral("A pose export needs keypoints near the boxes of its classes.\n"
                               "Draw keypoints, or set the order with Keypoint Order..."));
            return;
        }
    }
    QDialog::accept();
}

void TrainingExportDialog::onBrowse()
{
    const QString folder = UserPrompts::current().existingDirectory(
        this, QStringLiteral("Select output folder for the training export"), folderEdit->text());
    if (!folder.isEmpty())
        folderEdit->setText(folder);
}

void TrainingExportDialog::onKeypointOrder()
{
    YoloPoseExportDialog dialog(m_images, m_labels, this);
    if (UserPrompts::current().exec(&dialog) != QDialog::Accepted)
        return;
    m_keypointOrder = dialog.kpOrder;
    m_orderChosen = true;
    updateKeypointNote();
}

void TrainingExportDialog::onLayoutChanged()
{
    TrainingExport::Layout layout;
    TrainingExport::layoutFromName(layoutCombo->currentData().toString(), &layout);
    keypointButton->setEnabled(layout == TrainingExport::Layout::UltralyticsPose
                               || layout == TrainingExport::Layout::CocoInstances);
    updateKeypointNote();
}

void TrainingExportDialog::updateKeypointNote()
{
    TrainingExport::Layout layout;
    TrainingExport::layoutFromName(layoutCombo->currentData().toString(), &layout);
    const bool pose = layout == TrainingExport::Layout::UltralyticsPose;
    const bool coco = layout == TrainingExport::Layout::CocoInstances;
    if (!pose && !coco) {
        m_keypointNote->setText(QStringLiteral("Not used by this layout."));
        return;
    }
    if (coco && !m_orderChosen) {
        m_keypointNote->setText(QStringLiteral("None: set an order to give classes keypoints."));
        return;
    }
    int classes = 0, k = 0;
    for (const QStringList& order : std::as_const(m_keypointOrder)) {
        classes += !order.isEmpty();
        k = std::max(k, int(order.size()));
    }
    m_keypointNote->setText(k == 0 ? QStringLiteral("No keypoint labels in the dataset.")
                                   : QStringLiteral("%1 keypoint slot(s) for %2 class(es).").arg(k).arg(classes));
}
