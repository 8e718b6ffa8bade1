#include "formats/datasettools.h"

#include <QDir>
#include <QFileInfo>

#include "formats/datasetreading.h"
#include "model/atomicbatch.h"
#include "model/vocxml.h"

namespace DatasetTools {

namespace {

struct StoredShapes {
    bool fileExists = false;
    QList<BoxAnnotation> shapes; // read only for records that hold none in memory
};

// Only images with an annotation file take part, even when their shapes are in memory;
// a record without shapes is read from its file.
StoredShapes readStored(const ImageAnnotations& image)
{
    StoredShapes stored;
    if (image.boxes.isEmpty()) {
        ImageAnnotations file;
        file.xmlPath = image.xmlPath;
        // A file that cannot be parsed to its end still exists.
        stored.fileExists = VocXml::load(file) || QFileInfo::exists(file.xmlPath);
        stored.shapes = file.boxes;
    } else {
        const QString xmlPath = image.xmlPath;
        stored.fileExists = !xmlPath.isEmpty() && QFileInfo::exists(xmlPath);
    }
    return stored;
}

} // namespace

QString conversionFolder(const QString& annotationsFolder, Conversion conversion)
{
    const QString annotations = QDir::cleanPath(QDir(annotationsFolder).absolutePath());
    return QFileInfo(annotations).absolutePath()
        + (conversion == Conversion::BoxesToKeypoints ? QStringLiteral("/key_points")
                                                      : QStringLiteral("/bounding_boxes"));
}

QList<BoxAnnotation> convertShapes(const QList<BoxAnnotation>& shapes, Conversion conversion,
                                   int radius, int width, int height)
{
    QList<BoxAnnotation> out;
    for (const BoxAnnotation& shape : shapes) {
        BoxAnnotation made;
        made.label = shape.label;
        if (conversion == Conversion::BoxesToKeypoints) {
            if (shape.type != ShapeType::BoundingBox || shape.points.size() < 2)
                continue;
            const QPointF a = shape.points.at(0);
            const QPointF b = shape.points.at(1);
            made.type = ShapeType::Keypoint;
            made.points = {QPointF((a.x() + b.x()) / 2, (a.y() + b.y()) / 2)};
        } else {
            if (shape.type != ShapeType::Keypoint || shape.points.isEmpty())
                continue;
            const QPointF p = shape.points.at(0);
            double left = p.x() - radius;
            double right = p.x() + radius;
            double top = p.y() - radius;
            double bottom = p.y() + radius;
            if (width >= 1) {
                left = qMax(0.0, left);
                right = qMin(double(width - 1), right);
            }
            if (height >= 1) {
                top = qMax(0.0, top);
                bottom = qMin(double(height - 1), bottom);
            }
            made.type = ShapeType::BoundingBox;
            made.points = {QPointF(left, top), QPointF(right, bottom)};
        }
        out.append(made);
    }
    return out;
}

ConversionOutcome convertDataset(const QList<ImageAnnotations>& images, Conversion conversion,
                                 int radius, const QString& outputFolder,
                                 const QString& folderName, const Progress& progress)
{
    ConversionOutcome outcome;
    // Every file replaced atomically, with one disk flush for all of them at the end; a
    // cancelled run still commits the files of the images it did.
    AtomicBatch batch;

    // Reading the annotation files is most of the work: they are read on every core
    // while this thread converts and writes them in the dataset's order.
    const int total = int(images.size());
    bool stopped = false;
    DatasetReading::forEachOrdered<StoredShapes>(
        total, [&images](int i) { return readStored(images.at(i)); },
        [&](int i, StoredShapes& stored) {
            if (stopped)
                return;
            if (progress && !progress(i, total)) {
                outcome.cancelled = stopped = true;
                return;
            }
            if (!stored.fileExists)
                return;
            const ImageAnnotations& image = images.at(i);
            const QList<BoxAnnotation>& shapes = image.boxes.isEmpty() ? stored.shapes : image.boxes;

            ImageAnnotations converted;
            converted.boxes = convertShapes(shapes, conversion, radius, image.width, image.height);
            if (converted.boxes.isEmpty()) {
                ++outcome.skipped;
                return;
            }
            converted.imagePath = image.imagePath;
            converted.width = image.width;
            converted.height = image.height;
            converted.xmlPath = outputFolder + QLatin1Char('/')
                + QFileInfo(image.xmlPath).completeBaseName() + QStringLiteral(".xml");
            ++outcome.processed;
            outcome.created += int(converted.boxes.size());
            if (!batch.stage(converted.xmlPath, VocXml::toXml(converted, folderName)))
                ++outcome.failed;
        },
        [&stopped](int, int) { return !stopped; });
    batch.commit();
    outcome.failed += int(batch.failedPaths().size());
    return outcome;
}

} // namespace DatasetTools
