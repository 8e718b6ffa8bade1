#pragma once

#include <QColor>
#include <QList>
#include <QSet>
#include <QString>

#include "model/annotation.h"

namespace LabelPalette {

// The eight colours new labels cycle through; the first is the default label's colour.
const QList<QColor>& colors();
// Colour of the n-th label of a list (n counted from 0), cycling through the palette.
QColor colorForIndex(int n);
// Name and colour of the label present in every list: "object", rgb(0, 220, 220).
QString defaultLabelName();
QColor defaultColor();
LabelDef defaultLabel();

// Appends `name` with the palette colour of its position unless a label of that exact
// name is already present. Returns true when it appended. Looks through the whole list:
// to add many names, use a LabelAppender.
bool appendIfMissing(QList<LabelDef>& labels, const QString& name);

} // namespace LabelPalette

// Appends names to a label list as LabelPalette::appendIfMissing does, through a hash of
// the names in the list: adding to a list of 200,000 labels costs what adding to a short
// one does. Nothing else may change the list while the appender is in use.
class LabelAppender {
public:
    explicit LabelAppender(QList<LabelDef>& labels);
    // True when the name was appended.
    bool add(const QString& name);

private:
    QList<LabelDef>& m_labels;
    QSet<QString> m_names;
};
