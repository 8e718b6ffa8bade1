#include "formats/collagedialog.h"

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QString randomText(bool on)
{
    return on ? QStringLiteral("On  (randomly pick images)") : QStringLiteral("Off  (top to bottom)");
}

QLabel* grayNote(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setStyleSheet(QStringLiteral("color: gray; font-size: 11px;"));
    label->setWordWrap(true);
    return label;
}

} // namespace

CollageDialog::CollageDialog(int maximum, QWidget* parent)
    : QDialog(parent)
    , m_maximum(maximum > 0 ? maximum : 1000)
{
    setWindowTitle(QStringLiteral("Export Collage"));
    setModal(true);
    setMinimumWidth(400);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(14);
    layout->setContentsMargins(24, 24, 24, 24);

    auto* heading = new QLabel(QStringLiteral("<b>Export Collage</b>"), this);
    heading->setStyleSheet(QStringLiteral("font-size: 14px;"));
    layout->addWidget(heading);
    layout->addWidget(grayNote(
        QStringLiteral("Brindle will zoom in on annotated areas of selected images, capture each "
                       "region, and combine them into a single PNG collage."),
        this));

    auto* line = new QFrame(this);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    layout->addWidget(line);

    auto* grid = new QGridLayout;
    grid->setColumnStretch(1, 1);
    grid->setHorizontalSpacing(16);
    grid->setVerticalSpacing(12);

    m_countEdit = new QLineEdit(QString::number(qMin(m_maximum, 9)), this);
    m_countEdit->setObjectName(QStringLiteral("collageCountEdit"));
    m_countEdit->setFixedWidth(80);
    m_countEdit->setAlignment(Qt::AlignCenter);
    m_countEdit->setValidator(new QIntValidator(1, m_maximum, m_countEdit));
    m_countEdit->setPlaceholderText(QStringLiteral("1\u2013") + QString::number(m_maximum));
    auto* countRow = new QHBoxLayout;
    countRow->setSpacing(8);
    countRow->addWidget(m_countEdit);
    countRow->addWidget(new QLabel(QStringLiteral("(max %1 annotated)").arg(m_maximum), this));
    countRow->addStretch();
    grid->addWidget(new QLabel(QStringLiteral("Number of images in collage:"), this), 0, 0);
    grid->addLayout(countRow, 0, 1);

    m_randomCheck = new QCheckBox(randomText(true), this);
    m_randomCheck->setObjectName(QStringLiteral("collageRandomCheck"));
    m_randomCheck->setChecked(true);
    connect(m_randomCheck, &QCheckBox::toggled, this,
            [this](bool on) { m_randomCheck->setText(randomText(on)); });
    grid->addWidget(new QLabel(QStringLiteral("Randomize selection:"), this), 1, 0);
    grid->addWidget(m_randomCheck, 1, 1);
    layout->addLayout(grid);

    layout->addWidget(grayNote(
        QStringLiteral("Each annotated image is cropped to its annotation area with padding,\n"
                       "bounding boxes are drawn on the crop, and all crops are arranged in a grid."),
        this));
    layout->addStretch();

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancelButton = new QPushButton(QStringLiteral("Cancel"), this);
    cancelButton->setObjectName(QStringLiteral("collageCancelButton"));
    m_exportButton = new QPushButton(QStringLiteral("Export"), this);
    m_exportButton->setObjectName(QStringLiteral("collageExportButton"));
    m_exportButton->setStyleSheet(QStringLiteral("QPushButton { font-weight: bold; }"));
    for (QPushButton* button : {cancelButton, m_exportButton}) {
        button->setAutoDefault(false);
        button->setDefault(false);
        buttons->addWidget(button);
    }
    layout->addLayout(buttons);

    connect(cancelButton, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_exportButton, &QPushButton::clicked, this, &CollageDialog::onExport);
    // returnPressed is not sent while the validator rejects the text ("0", a number above
    // the maximum), but Return must still reach Export, which corrects the text.
    m_countEdit->installEventFilter(this);
    m_countEdit->setFocus();
}

bool CollageDialog::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_countEdit && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            m_exportButton->click();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void CollageDialog::onExport()
{
    const int n = m_countEdit->text().toInt();
    if (n < 1) {
        m_countEdit->setText(QStringLiteral("1"));
        return;
    }
    if (n > m_maximum) {
        m_countEdit->setText(QString::number(m_maximum));
        return;
    }
    accept();
}

int CollageDialog::imageCount() const
{
    bool ok = false;
    const int n = m_countEdit->text().toInt(&ok);
    return ok ? qBound(1, n, m_maximum) : 1;
}

bool CollageDialog::randomize() const
{
    return m_randomCheck->isChecked();
}
