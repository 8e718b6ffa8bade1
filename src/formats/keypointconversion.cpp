#include "formats/datasettools.h"

#include <QDir>
#include <QFileInfo>

#include "model/atomicbatch.h"
#include "model/vocxml.h"

namespace DatasetTools {

namespace {

// Files are staged and made durable in groups: one disk flush per group instead of one
// per file, and a cancelled or interrupted run keeps the groups already committed.
constexpr int kFilesPerCommit = 1000;

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
    AtomicBatch batch;
    const auto commit = [&] {
        batch.commit();
        outcome.failed += int(batch.failedPaths().size());
    };

    const int total = int(images.size());
    for (int i = 0; i < total; ++i) {
        if (progress && !progress(i, total)) {
            outcome.cancelled = true;
            break;
        }
        const ImageAnnotations& image = images.at(i);
        if (image.xmlPath.isEmpty() || !QFileInfo::exists(image.xmlPath))
            continue;
        QList<BoxAnnotation> shapes = image.boxes;
        if (shapes.isEmpty()) {
            ImageAnnotations stored;
            stored.xmlPath = image.xmlPath;
            VocXml::load(stored);
            shapes = stored.boxes;
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
        if (batch.stagedCount() >= kFilesPerCommit)
            commit();
    }
    commit();
    return outcome;
}

} // namespace DatasetTools
