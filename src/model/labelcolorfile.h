#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include "model/annotation.h"

// The per-dataset label colour file, label_colors.json in the annotations folder: a JSON
// array of {"color": "#rrggbb", "name": ...} objects in label-list order.
namespace LabelColorFile {

QString pathIn(const QString& annotationsFolder);

struct ReadOutcome {
    // A file is there but was not read as a colour list (not a regular file, larger than
    // 16 MB, unreadable, not JSON, or not an array): its bytes deserve keeping.
    bool damaged = false;
    QString problem; // what was wrong, for the user
};

// Appends the file's labels that the list does not hold yet (exact names; a label
// already there keeps its colour). Entries without a name or with a colour that does
// not parse are skipped; control characters in names become blanks.
ReadOutcome merge(const QString& path, QList<LabelDef>& labels);

// The file's text in Qt's indented JSON layout, written directly: a list of 200,000
// labels would take QJsonDocument far longer.
QByteArray toJson(const QList<LabelDef>& labels);

} // namespace LabelColorFile
