#include "formats/datasetreading.h"

#include <QFileInfo>

#include "formats/converterrules.h"
#include "model/labelpalette.h"
#include "model/labelscan.h"
#include "model/vocxml.h"

namespace DatasetReading {

namespace {

bool needsFile(const ImageAnnotations& record)
{
    return record.boxes.isEmpty() && QFileInfo::exists(record.xmlPath);
}

bool needsSize(const ImageAnnotations& record, const Options& options)
{
    return options.imageSizes && (record.width < 1 || record.height < 1);
}

} // namespace

QList<int> recordsToRead(const QList<ImageAnnotations>& images, const Options& options)
{
    QList<int> indices;
    for (int i = 0; i < images.size(); ++i) {
        const ImageAnnotations& record = images.at(i);
        if (record.boxes.isEmpty() ? needsFile(record) : needsSize(record, options))
            indices.append(i);
    }
    return indices;
}

RecordRead readRecord(const ImageAnnotations& record, const Options& options)
{
    RecordRead read;
    ImageAnnotations copy = record;
    if (copy.boxes.isEmpty()) {
        read.loaded = VocXml::load(copy) || copy.partial;
        read.partial = copy.partial;
        read.boxes = copy.boxes;
    }
    if (!copy.boxes.isEmpty() && needsSize(copy, options)) {
        const QSize size = ConverterRules::imageFileSize(copy.imagePath);
        if (size.width() >= 1 && size.height() >= 1)
            read.size = size;
    }
    return read;
}

QList<RecordRead> readAll(const QList<ImageAnnotations>& images, const QList<int>& indices,
                          const Options& options, const Progress& progress, bool* cancelled)
{
    // The workers read from a copy of their own: whatever the caller does to `images`
    // meanwhile cannot move the records under them.
    const QList<ImageAnnotations> snapshot = images;
    QList<RecordRead> reads;
    reads.reserve(indices.size());
    const bool whole = forEachOrdered<RecordRead>(
        int(indices.size()),
        [&](int k) {
            const int index = indices.at(k);
            if (index < 0 || index >= snapshot.size())
                return RecordRead();
            return readRecord(snapshot.at(index), options);
        },
        [&](int, RecordRead& read) { reads.append(std::move(read)); }, progress);
    if (cancelled)
        *cancelled = !whole;
    return reads;
}

Outcome apply(QList<ImageAnnotations>& images, const QList<int>& indices,
              const QList<RecordRead>& reads)
{
    Outcome outcome;
    for (int k = 0; k < reads.size() && k < indices.size(); ++k) {
        ++outcome.done;
        const int index = indices.at(k);
        if (index < 0 || index >= images.size())
            continue;
        const RecordRead& read = reads.at(k);
        ImageAnnotations& record = images[index];
        if (read.loaded && record.boxes.isEmpty()) {
            record.boxes = read.boxes;
            record.partial = read.partial;
            if (read.partial)
                outcome.incomplete.append(index);
        }
        if (read.size.isValid() && !record.boxes.isEmpty()) {
            record.width = read.size.width();
            record.height = read.size.height();
        }
    }
    return outcome;
}

bool scanLabels(const QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                const Progress& progress)
{
    return forEachOrdered<QStringList>(
        int(images.size()),
        [&](int i) {
            const ImageAnnotations& record = images.at(i);
            if (record.boxes.isEmpty())
                return scanLabelNames(record.xmlPath);
            QStringList names;
            for (const BoxAnnotation& shape : record.boxes)
                names << shape.label;
            return names;
        },
        [&](int, QStringList& names) {
            for (const QString& name : std::as_const(names))
                LabelPalette::appendIfMissing(labels, name);
        },
        progress);
}

Outcome readRecords(QList<ImageAnnotations>& images, const QList<int>& indices,
                    const Options& options, const Progress& progress)
{
    bool cancelled = false;
    const QList<RecordRead> reads = readAll(images, indices, options, progress, &cancelled);
    Outcome outcome = apply(images, indices, reads);
    outcome.cancelled = cancelled;
    return outcome;
}

} // namespace DatasetReading
