#include "formats/datasettools.h"

#include <QDir>
#include <QFileInfo>

#include "model/atomicbatch.h"
#include "model/vocxml.h"

namespace DatasetTools {

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

    const int total = int(images.size());
    for (int i = 0; i < total; ++i) {
        if (progress && !progress(i, total)) {
            outcome.cancelled = true;
            break;
        }
        const ImageAnnotations& image = images.at(i);
        // Only images with an annotation file take part, even when their shapes are in
        // memory; a record without shapes is read from its file (a missing file fails
        // to load).
        QList<BoxAnnotation> shapes = image.boxes;
        if (shapes.isEmpty()) {
            ImageAnnotations stored;
            stored.xmlPath = image.xmlPath;
            if (!VocXml::load(stored) && !QFileInfo::exists(image.xmlPath))
                continue;
            shapes = stored.boxes;
        } else if (image.xmlPath.isEmpty() || !QFileInfo::exists(image.xmlPath)) {
            continue;
        }

        ImageAnnotations converted;
        converted.boxes = convertShapes(shapes, conversion, radius, image.width, image.height);
        if (converted.boxes.isEmpty()) {
            ++outcome.skipped;
            continue;
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
    }
    batch.commit();
    outcome.failed += int(batch.failedPaths().size());
    return outcome;
}

} // namespace DatasetTools
