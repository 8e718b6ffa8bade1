#pragma once

#include <functional>

#include <QColor>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// What every converter returns: ok is false only for the failures each converter names
// (a file that cannot be opened or written ...); message is shown to the user; count is
// what the converter counted (files, rows, annotations, labels or images).
struct ExportImportResult {
    bool ok = false;
    QString message;
    int count = 0;
};

// Converters between the session's records and the interchange formats. Exports take
// the lists as const references; imports change them in place and set `dirty` on
// every record they change. No converter writes annotation XML files. Output files are
// written atomically.
namespace ExportImport {

ExportImportResult exportYolo(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                              const QString& outputFolder);
ExportImportResult importYolo(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFolder);

ExportImportResult exportCoco(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                              const QString& outputFile);
ExportImportResult importCoco(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFile);
// The part of importCoco after the file was read and parsed.
ExportImportResult parseCocoDocument(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                                     const QJsonObject& root);

ExportImportResult exportDota(const QList<ImageAnnotations>& images, const QString& outputFolder);
ExportImportResult importDota(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFolder);

ExportImportResult exportCsv(const QList<ImageAnnotations>& images, const QString& outputFile);
ExportImportResult importCsv(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                             const QString& inputFile);

ExportImportResult exportObjectNames(const QList<LabelDef>& labels, const QString& outputFile);
ExportImportResult importObjectNames(QList<LabelDef>& labels, const QString& inputFile);

ExportImportResult exportYoloPose(const QList<ImageAnnotations>& images,
                                  const QMap<QString, QStringList>& keypointOrder,
                                  const QStringList& classNames, const QString& outputFolder);

// Renders a grid of annotated crops of up to `count` annotated images (the first ones,
// or a random pick) into one PNG at `path`; count is the number of images placed.
// progress(done, total) is called after each placed image, where returning false
// cancels and nothing is written, and once with done = -1 before the file is written,
// whatever it returns. The file is replaced atomically. A canvas too large for memory is
// refused with a message.
ExportImportResult exportCollage(const QList<ImageAnnotations>& images,
                                 const QMap<QString, QColor>& colours, int count, bool randomize,
                                 const QString& path, std::function<bool(int, int)> progress);

} // namespace ExportImport
