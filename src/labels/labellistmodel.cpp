#include "labels/labellistmodel.h"

#include <QPixmap>

LabelListModel::LabelListModel(QObject* parent)
    : QAbstractListModel(parent)
{
}

void LabelListModel::setLabels(const QList<LabelDef>& labels)
{
    beginResetModel();
    m_labels = labels;
    endResetModel();
}

int LabelListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_labels.size());
}

QVariant LabelListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_labels.size())
        return {};
    const LabelDef& label = m_labels.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return label.name;
    case Qt::DecorationRole: {
        const QRgb key = label.color.rgba();
        auto it = m_swatches.find(key);
        if (it == m_swatches.end()) {
            QPixmap swatch(16, 16);
            swatch.fill(label.color);
            it = m_swatches.insert(key, QIcon(swatch));
        }
        return *it;
    }
    default:
        return {};
    }
}
