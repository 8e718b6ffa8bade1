#pragma once

#include <QList>
#include <QString>

#include "model/annotation.h"

// Writing and removing the annotation file of a record so that nothing on disk is lost
// unseen. Before a file is replaced or removed:
//  - a file read only in part (or not at all) is kept as ".orig" (VocXml::keepOriginal);
//  - a file that another program changed since this session last read or wrote it (its
//    size, modification time or inode differ) is copied to xmlPath + ".theirs", replacing
//    an older such copy; the shapes in memory still win.
// The record's dirty, writeFailed, partial and stamp fields follow each outcome.
namespace AnnotationStore {

struct Outcome {
    bool ok = true;
    QString error;      // why the write or removal failed
    QString theirsPath; // where another program's version was kept, if it was
};

// The name the other version of xmlPath is kept under.
QString theirsPathFor(const QString& xmlPath);

// Writes the record's file with VocXml::save.
Outcome save(ImageAnnotations& record, const QString& folder);

// Writes the files of several records with one disk flush for all; one outcome per
// index, in order.
QList<Outcome> saveAll(QList<ImageAnnotations>& records, const QList<int>& indices,
                       const QString& folder);

// Deletes the record's file after its last shape went; a failed delete is not reported
// (the outcome is ok unless a copy that had to be kept could not be made).
Outcome remove(ImageAnnotations& record);

} // namespace AnnotationStore
