#include "labels/annotationspanel.h"

#include <QAbstractListModel>
#include <QEvent>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMouseEvent>
#include <QVBoxLayout>

#include "ui/imagelistdelegate.h"
#include "ui/sectionmenu.h"

namespace {

QString geometryToolTip(const BoxAnnotation& box)
{
    const QRect r = box.boundingRect();
    const bool empty = box.points.isEmpty();
    return QStringLiteral("x:%1 y:%2  w:%3 h:%4")
        .arg(empty ? 0 : r.left())
        .arg(empty ? 0 : r.top())
        .arg(empty ? 0 : r.width())
        .arg(empty ? 0 : r.height());
}

} // namespace

// The shapes as list rows: the label as text, the geometry as tool tip, made when a row
// is drawn or hovered.
class ShapeListModel : public QAbstractListModel {
public:
    using QAbstractListModel::QAbstractListModel;

    void setBoxes(const QList<BoxAnnotation>& boxes)
    {
        beginResetModel();
        m_boxes = boxes;
        endResetModel();
    }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : int(m_boxes.size());
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        if (!index.isValid() || index.row() >= m_boxes.size())
            return {};
        if (role == Qt::DisplayRole)
            return m_boxes.at(index.row()).label;
        if (role == Qt::ToolTipRole)
            return geometryToolTip(m_boxes.at(index.row()));
        return {};
    }

private:
    QList<BoxAnnotation> m_boxes;
};

AnnotationsPanel::AnnotationsPanel(QWidget* parent)
    : QWidget(parent)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 0, 4, 0);
    layout->setSpacing(4);

    auto* title = new QLabel(QStringLiteral("Annotations"), this);
    QFont titleFont = title->font();
    titleFont.setWeight(QFont::Bold);
    title->setFont(titleFont);
    layout->addWidget(title);

    m_list = new QListView(this);
    m_list->setObjectName(QStringLiteral("annotationsList"));
    m_model = new ShapeListModel(this);
    m_list->setModel(m_model);
    // Every row has the delegate's height: the view lays out 100,000 rows by arithmetic
    // instead of measuring each one.
    m_list->setUniformItemSizes(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setAlternatingRowColors(true);
    m_list->setMouseTracking(true);
    m_list->viewport()->setMouseTracking(true);
    m_delegate = new ImageListDelegate(this);
    m_list->setItemDelegate(m_delegate);
    connect(m_delegate, &ImageListDelegate::removeRequested, this,
            &AnnotationsPanel::deleteRequested);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_list, &QWidget::customContextMenuRequested, this, &AnnotationsPanel::onContextMenu);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex& current) { onRowChanged(current.isValid() ? current.row() : -1); });
    m_list->viewport()->installEventFilter(this);
    layout->addWidget(m_list);

    setMinimumWidth(180);
}

void AnnotationsPanel::setLabelNames(const QList<QString>& names)
{
    m_labelNames = names;
}

void AnnotationsPanel::setBoxes(const QList<BoxAnnotation>& boxes)
{
    m_updating = true;
    m_model->setBoxes(boxes);
    // Marks "no current row" as deliberate; otherwise the view makes row 0 current the
    // next time it gains focus (after a context menu, say) and that reads as a user pick.
    m_list->setCurrentIndex(QModelIndex());
    m_updating = false;
}

void AnnotationsPanel::setSelectedIndex(int index)
{
    m_updating = true;
    if (index >= 0 && index < m_model->rowCount())
        m_list->setCurrentIndex(m_model->index(index));
    else
        m_list->clearSelection();
    m_updating = false;
}

int AnnotationsPanel::rowCount() const
{
    return m_model->rowCount();
}

QString AnnotationsPanel::rowText(int row) const
{
    return m_model->index(row).data(Qt::DisplayRole).toString();
}

QString AnnotationsPanel::rowToolTip(int row) const
{
    return m_model->index(row).data(Qt::ToolTipRole).toString();
}

int AnnotationsPanel::currentRow() const
{
    const QModelIndex current = m_list->currentIndex();
    return current.isValid() ? current.row() : -1;
}

void AnnotationsPanel::onRowChanged(int row)
{
    if (!m_updating)
        Q_EMIT selectionRequested(row);
}

void AnnotationsPanel::onContextMenu(const QPoint& pos)
{
    const QModelIndex index = m_list->indexAt(pos);
    if (!index.isValid() || m_labelNames.isEmpty())
        return;
    const int row = index.row();
    const QString current = index.data(Qt::DisplayRole).toString();

    SectionMenu menu(this);
    menu.addSection(QStringLiteral("Change label to:"));
    for (const QString& name : m_labelNames) {
        QAction* action = menu.addLiteralAction(name);
        if (name == current) {
            action->setCheckable(true);
            action->setChecked(true);
        }
    }
    QAction* chosen = menu.exec(m_list->viewport()->mapToGlobal(pos));
    if (chosen && !chosen->isSeparator())
        Q_EMIT labelChangeRequested(row, chosen->data().toString());
}

bool AnnotationsPanel::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_list->viewport()) {
        switch (event->type()) {
        case QEvent::Leave:
            m_delegate->handleMouseMove(QPoint(-1, -1), QModelIndex(), QRect());
            m_list->viewport()->update();
            break;
        case QEvent::MouseMove: {
            const QPoint pos = static_cast<QMouseEvent*>(event)->position().toPoint();
            const QModelIndex index = m_list->indexAt(pos);
            const QRect rect = index.isValid() ? m_list->visualRect(index) : QRect();
            if (m_delegate->handleMouseMove(pos, index, rect))
                m_list->viewport()->update();
            break;
        }
        case QEvent::MouseButtonPress: {
            const QPoint pos = static_cast<QMouseEvent*>(event)->position().toPoint();
            const QModelIndex index = m_list->indexAt(pos);
            if (index.isValid() && m_delegate->handleMousePress(pos, index, m_list->visualRect(index)))
                return true;
            break;
        }
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}
