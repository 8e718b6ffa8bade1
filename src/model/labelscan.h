#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

class LabelAppender;
class PlainXmlReader;

// Label names used by the shapes of one annotation XML file, in document order
// (control characters made blanks, trimmed, empty ones left out, repeats kept). Streams
// the file and looks only at element names: a <name> or <n> counts when it sits inside an
// <object> but not inside its <bndbox>. A file that is missing, unreadable, not a regular
// file or larger than 256 MB gives nothing; a malformed one gives the names read before
// the first error.
QStringList scanLabelNames(const QString& xmlPath);
// The same scan over the bytes of a file already read.
QStringList scanLabelNamesInData(const QByteArray& data);
// The same scan over a document already tokenised (from its current token on).
QStringList scanLabelNamesInTokens(PlainXmlReader& xml);

// Adds every name of scanLabelNames(xmlPath) through the appender, or to the list with
// the palette colour of its position. Returns the number appended.
int appendLabelsFromFile(LabelAppender& labels, const QString& xmlPath);
int appendLabelsFromFile(QList<LabelDef>& labels, const QString& xmlPath);
