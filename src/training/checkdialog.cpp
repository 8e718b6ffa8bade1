#include "training/checkdialog.h"

#include <QAbstractTableModel>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QVBoxLayout>

namespace {

enum Column { SeverityColumn, CodeColumn, ImageColumn, ShapeColumn, MessageColumn, ColumnCount };

const QColor kErrorColour(235, 90, 90);
const QColor kWarningColour(235, 180, 60);

} // namespace

// The problems as rows; the sort role gives each column its natural order (errors before
// warnings, shapes by number, then dataset order).
class CheckProblemsModel : public QAbstractTableModel {
public:
    using QAbstractTableModel::QAbstractTableModel;

    void setProblems(const QList<DatasetCheck::Problem>& problems)
    {
        beginResetModel();
        m_problems = problems;
        endResetModel();
    }
    const DatasetCheck::Problem& problem(int row) const { return m_problems.at(row); }

    int rowCount(const QModelIndex& parent = {}) const override
    {
        return parent.isValid() ? 0 : int(m_problems.size());
    }
    int columnCount(const QModelIndex& parent = {}) const override
    {
        return parent.isValid() ? 0 : ColumnCount;
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
            return {};
        static const char* const titles[] = {"Severity", "Code", "Image", "Shape", "Message"};
        return QString::fromLatin1(titles[section]);
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        const DatasetCheck::Problem& p = m_problems.at(index.row());
        const bool error = p.severity == DatasetCheck::Severity::Error;
        switch (role) {
        case Qt::DisplayRole:
            switch (index.column()) {
            case SeverityColumn: return DatasetCheck::severityName(p.severity);
            case CodeColumn: return p.code;
            case ImageColumn: return p.image;
            case ShapeColumn: return p.shape >= 0 ? QVariant(p.shape) : QVariant(QString());
            case MessageColumn: return p.message;
            }
            break;
        case Qt::ForegroundRole:
            if (index.column() == SeverityColumn)
                return error ? kErrorColour : kWarningColour;
            break;
        case Qt::ToolTipRole:
            return p.message;
        case Qt::UserRole: // sort key
            switch (index.column()) {
            case SeverityColumn: return error ? 0 : 1;
            case ShapeColumn: return p.shape;
            case ImageColumn: return p.image;
            default: return data(index, Qt::DisplayRole);
            }
        default:
            break;
        }
        return {};
    }

private:
    QList<DatasetCheck::Problem> m_problems;
};

CheckDialog::CheckDialog(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("checkDialog"));
    setWindowTitle(QStringLiteral("Check Dataset"));
    setMinimumSize(860, 460);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(10);

    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("checkSummaryLabel"));
    m_summary->setWordWrap(true);
    layout->addWidget(m_summary);

    m_model = new CheckProblemsModel(this);
    m_sorted = new QSortFilterProxyModel(this);
    m_sorted->setSourceModel(m_model);
    m_sorted->setSortRole(Qt::UserRole);
    m_sorted->setSortCaseSensitivity(Qt::CaseInsensitive);

    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("checkTable"));
    m_table->setModel(m_sorted);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(-1, Qt::AscendingOrder); // dataset order until a header is clicked
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 8);
    QHeaderView* header = m_table->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setStretchLastSection(true);
    header->resizeSection(SeverityColumn, 80);
    header->resizeSection(CodeColumn, 130);
    header->resizeSection(ImageColumn, 200);
    header->resizeSection(ShapeColumn, 60);
    layout->addWidget(m_table, 1);
    // Double-click, or Return on a row.
    connect(m_table, &QTableView::activated, this, &CheckDialog::onActivated);

    auto* hint = new QLabel(QStringLiteral("Double-click a row to open its image and select the shape."), this);
    hint->setStyleSheet(QStringLiteral("color: gray; font-size: 11px;"));
    layout->addWidget(hint);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
}

void CheckDialog::setReport(const DatasetCheck::Report& report)
{
    const int errors = report.errors();
    QString text = QStringLiteral("<b>%1</b>").arg(report.summary().toHtmlEscaped());
    if (report.problems.isEmpty())
        text += QStringLiteral("<br/>Nothing to fix: every shape is inside its image and every file reads.");
    else if (errors > 0)
        text += QStringLiteral("<br/><span style='color:%1;'>Errors leave shapes or images out of a "
                               "training export.</span>")
                    .arg(kErrorColour.name());
    m_summary->setText(text);
    m_model->setProblems(report.problems);
    m_table->sortByColumn(-1, Qt::AscendingOrder);
}

void CheckDialog::onActivated(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    const DatasetCheck::Problem& p = m_model->problem(m_sorted->mapToSource(index).row());
    Q_EMIT openRequested(p.record, p.image, p.shape);
}
