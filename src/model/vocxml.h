#pragma once

#include <QByteArray>
#include <QString>

#include "model/annotation.h"

// Reader and writer of the per-image annotation XML files (Pascal VOC, extended with
// six more shape kinds).
namespace VocXml {

// Writes ann to ann.xmlPath atomically (see AtomicBatch): a temporary file beside the
// target, synced to disk, renamed over the target. `folder` is written into the <folder>
// element. A link at xmlPath is written through only when it points into the folder of
// xmlPath. Returns false, with the reason in *error, when anything fails; the target is
// then left as it was.
bool save(const ImageAnnotations& ann, const QString& folder, QString* error = nullptr);

// Why a load did not give the whole file.
struct LoadProblem {
    int errorLine = 0; // line of the XML error the reading stopped at
    QString refusal;   // why the file was not read at all ("it is not a regular file" ...)
};

// Replaces ann.boxes with the shapes in ann.xmlPath. Returns false, leaving boxes
// untouched, when the file is missing, unreadable, not a regular file or larger than
// 256 MB; returns false after a parse error, keeping the shapes completed before it.
// Of the other fields only `partial` and `stamp` are set: partial is true when a file is
// there but was read in part or not at all, stamp describes the file read (or Missing).
// Numbers that do not read as finite values ("abc", "nan", "1e400") count as 0.
bool load(ImageAnnotations& ann, LoadProblem* problem = nullptr);

// Copies the file at xmlPath to xmlPath + ".orig", a name that no listing of annotation
// files picks up, so that the original of a file read only in part survives the first
// write over it. An existing copy with other bytes is kept and the next free name
// (".orig2", ".orig3" ...) is used. True when the bytes are safe: copied, already there,
// or no file to copy. On failure *error (when given) holds the reason; *copyPath (when
// given) is set to the copy that holds the bytes.
bool keepOriginal(const QString& xmlPath, QString* error = nullptr, QString* copyPath = nullptr);

// Same as load, from bytes already in memory (used by fuzzing and tests).
bool loadFromData(const QByteArray& data, QList<BoxAnnotation>& boxes);
// loadFromData without its fast path for files in the form this program writes: the
// same result, always through QXmlStreamReader (for cross-checks).
bool loadWithStreamReader(const QByteArray& data, QList<BoxAnnotation>& boxes);

// The bytes save would write.
QByteArray toXml(const ImageAnnotations& ann, const QString& folder);

} // namespace VocXml
