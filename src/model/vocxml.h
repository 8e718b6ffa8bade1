#pragma once

#include <QString>

#include "model/annotation.h"

// Reader and writer of the per-image annotation XML files (Pascal VOC, extended with
// six more shape kinds).
namespace VocXml {

// Writes ann to ann.xmlPath atomically (temporary file renamed over the target).
// `folder` is written into the <folder> element. Returns false when the file cannot
// be opened for writing or the final rename fails; nothing on disk is changed then.
bool save(const ImageAnnotations& ann, const QString& folder);

// Replaces ann.boxes with the shapes in ann.xmlPath. Returns false, leaving boxes
// untouched, when the file is missing or unreadable; returns false after a parse error,
// keeping the shapes completed before it. No other field of ann is touched.
bool load(ImageAnnotations& ann);

// Same as load, from bytes already in memory (used by fuzzing and tests).
bool loadFromData(const QByteArray& data, QList<BoxAnnotation>& boxes);

// The bytes save would write.
QByteArray toXml(const ImageAnnotations& ann, const QString& folder);

} // namespace VocXml
