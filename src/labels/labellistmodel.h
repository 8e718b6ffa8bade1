#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QIcon>
#include <QList>

#include "model/annotation.h"

// The label list as the rows of a combo box: the name, and a 16 x 16 swatch of the
// label's colour as its icon. Swatches are made when a row is drawn (one per colour), so
// a list of 200,000 labels is handed over at once.
class LabelListModel : public QAbstractListModel {
    Q_OBJECT
public:
    explicit LabelListModel(QObject* parent = nullptr);

    void setLabels(const QList<LabelDef>& labels);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    QList<LabelDef> m_labels;
    mutable QHash<QRgb, QIcon> m_swatches;
};
