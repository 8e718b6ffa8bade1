#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// Label names used by the shapes of one annotation XML file, in document order
// (trimmed, empty ones left out, repeats kept). Streams the file and looks only at
// element names: a <name> or <n> counts when it sits inside an <object> but not inside
// its <bndbox>. An unreadable file gives nothing; a malformed one gives the names read
// before the first error.
QStringList scanLabelNames(const QString& xmlPath);
// The same scan over the bytes of a file already read.
QStringList scanLabelNamesInData(const QByteArray& data);

// Appends to `labels` every name of scanLabelNames(xmlPath) that the list does not hold
// yet, each with the palette colour of its position. Returns the number appended.
int appendLabelsFromFile(QList<LabelDef>& labels, const QString& xmlPath);
