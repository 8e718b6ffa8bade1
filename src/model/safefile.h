#pragma once

#include <QByteArray>
#include <QString>

#include "model/annotation.h"

// Reading the dataset's own files without trusting what lies in its folders: only
// regular files are read (a FIFO or a link to /dev/zero neither blocks nor fills the
// memory), each kind up to a size, and writes never go through a link to elsewhere.
namespace SafeFile {

constexpr qint64 kMaxAnnotationFileBytes = qint64(256) << 20;
constexpr qint64 kMaxLabelColorFileBytes = qint64(16) << 20;

enum class ReadResult {
    Ok,
    Missing, // no file at the path
    Refused, // not a regular file, or larger than allowed
    Failed,  // the system refused to open or read it
};

// Reads the whole file at path (links followed). On anything but Ok, *error (when given)
// holds the reason as a sentence part: "it is not a regular file", "it is larger than
// 256 MB", or the system's reason. *stamp (when given) describes the file read, or is
// Missing when there is none.
ReadResult read(const QString& path, qint64 maxBytes, QByteArray* bytes, QString* error = nullptr,
                FileStamp* stamp = nullptr);

// The file at path as it is now (links followed): Known with its size, modification
// time and inode, or Missing.
FileStamp stampOf(const QString& path);

// Where a write to path must land so that it replaces the file the user sees: path
// itself, or the file a symbolic link at path finally points to. Refused (false, with
// the reason in *error) when that file exists but is not a regular file or, with
// confineTo given, when it lies outside that folder.
bool resolveWriteTarget(const QString& path, const QString& confineTo, QString* target,
                        QString* error);

// Whether two paths hold regular files with the same bytes (compared in pieces).
bool sameContent(const QString& a, const QString& b);

// The system's text for an errno value.
QString systemReason(int errorNumber);

} // namespace SafeFile
