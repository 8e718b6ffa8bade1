#pragma once

#include <QColor>
#include <QList>
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
// name is already present. Returns true when it appended.
bool appendIfMissing(QList<LabelDef>& labels, const QString& name);

} // namespace LabelPalette
