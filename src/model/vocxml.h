#pragma once

#include <QByteArray>
#include <QString>

#include "model/annotation.h"

// Reader and writer of the per-image annotation XML files (Pascal VOC, extended with
// six more shape kinds).
namespace VocXml {

// Writes ann to ann.xmlPath atomically: a temporary file beside the target, synced to
// disk, renamed over the target. `folder` is written into the <folder> element. Returns
// false when the file cannot be opened for writing or the data cannot be written, synced
// or renamed; the target is then left as it was.
bool save(const ImageAnnotations& ann, const QString& folder);

// Replaces ann.boxes with the shapes in ann.xmlPath. Returns false, leaving boxes
// untouched, when the file is missing or unreadable; returns false after a parse error,
// keeping the shapes completed before it. No other field of ann is touched. Numbers that
// do not read as finite values ("abc", "nan", "1e400") count as 0.
bool load(ImageAnnotations& ann);

// Same as load, from bytes already in memory (used by fuzzing and tests).
bool loadFromData(const QByteArray& data, QList<BoxAnnotation>& boxes);

// The bytes save would write.
QByteArray toXml(const ImageAnnotations& ann, const QString& folder);

} // namespace VocXml
