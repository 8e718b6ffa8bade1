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
// keeping the shapes completed before it. Of the other fields only `partial` is set: true
// exactly when the file was read and stopped at a parse error. Numbers that do not read as
// finite values ("abc", "nan", "1e400") count as 0.
bool load(ImageAnnotations& ann);

// Copies the file at xmlPath to xmlPath + ".orig", a name that no listing of annotation
// files picks up, so that the original of a file read only in part survives the first
// write over it. An existing copy with other bytes is kept and the next free name
// (".orig2", ".orig3" ...) is used. True when the bytes are safe: copied, already there,
// or no file to copy. On failure *error (when given) holds the reason.
bool keepOriginal(const QString& xmlPath, QString* error = nullptr);

// Same as load, from bytes already in memory (used by fuzzing and tests).
bool loadFromData(const QByteArray& data, QList<BoxAnnotation>& boxes);
// loadFromData without its fast path for files in the form this program writes: the
// same result, always through QXmlStreamReader (for cross-checks).
bool loadWithStreamReader(const QByteArray& data, QList<BoxAnnotation>& boxes);

// The bytes save would write.
QByteArray toXml(const ImageAnnotations& ann, const QString& folder);

} // namespace VocXml
