#pragma once

#include <QList>
#include <QString>

#include "model/annotation.h"

// The label colour file of a dataset, label_colors.json in its annotations folder.
namespace LabelColorsFile {

QString path(const QString& annotationsFolder);

// Appends the file's labels that `labels` does not hold yet, in file order; labels
// already in the list keep their colour. A missing, unreadable or malformed file adds
// nothing; entries without a name or with an unreadable colour are skipped.
void merge(QList<LabelDef>& labels, const QString& annotationsFolder);

} // namespace LabelColorsFile
