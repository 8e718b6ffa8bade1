#include "formats/datasetreading.h"

#include <QFileInfo>

#include "formats/converterrules.h"
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

Outcome readRecords(QList<ImageAnnotations>& images, const QList<int>& indices,
                    const Options& options, const Progress& progress)
{
    Outcome outcome;
    const int total = indices.size();
    for (int index : indices) {
        if (progress && !progress(outcome.done, total)) {
            outcome.cancelled = true;
            return outcome;
        }
        ++outcome.done;
        if (index < 0 || index >= images.size())
            continue;
        ImageAnnotations& record = images[index];
        if (record.boxes.isEmpty()) {
            VocXml::load(record);
            if (record.partial)
                outcome.incomplete.append(index);
        }
        if (!record.boxes.isEmpty() && needsSize(record, options)) {
            const QSize size = ConverterRules::imageFileSize(record.imagePath);
            if (size.width() >= 1 && size.height() >= 1) {
                record.width = size.width();
                record.height = size.height();
            }
        }
    }
    if (progress)
        progress(outcome.done, total);
    return outcome;
}

} // namespace DatasetReading
