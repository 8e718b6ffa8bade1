#include "training/datasetcheck.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QSet>

#include "formats/datasetreading.h"
#include "model/datasetfolders.h"
#include "model/labelpalette.h"
#include "model/shapegeometry.h"
#include "training/imageinput.h"

namespace DatasetCheck {

namespace {

struct ImageResult {
    QList<Problem> problems;   // without unknown-label, which needs the label list
    QList<QString> shapeLabels;
    QStringList scanNames;
    int shapes = 0;
};

Problem problem(const char* code, Severity severity, int shape, const QString& message)
{
    Problem p;
    p.code = QLatin1String(code);
    p.severity = severity;
    p.shape = shape;
    p.message = message;
    return p;
}

QString sizeText(const QSize& size)
{
    return QStringLiteral("%1 x %2").arg(size.width()).arg(size.height());
}

bool sameGeometry(const BoxAnnotation& a, const BoxAnnotation& b)
{
    return a.label == b.label && a.type == b.type && a.points == b.points && a.angle == b.angle;
}

// How much of the shape lies inside the image: 2 all, 1 part, 0 none.
int insideness(const BoxAnnotation& shape, const QRectF& image)
{
    if (shape.type == ShapeType::Keypoint) {
        const QPointF p = shape.points.value(0);
        return image.contains(p) ? 2 : 0;
    }
    const bool outside = ShapeGeometry::reachesOutside(ShapeGeometry::bounds(shape), image);
    if (!outside)
        return 2;
    if (ShapeGeometry::hasOutline(shape.type)) {
        const QPolygonF clipped = ShapeGeometry::clipPolygon(ShapeGeometry::outline(shape), image);
        return clipped.size() >= 3 && ShapeGeometry::area(clipped) > 0 ? 1 : 0;
    }
    // Lines and cuboids: whether any of their points or edges reaches in.
    return ShapeGeometry::clipPolygon(QPolygonF(shape.points), image).isEmpty() ? 0 : 1;
}

ImageResult checkImage(const ImageAnnotations& record, const Options& options)
{
    ImageInput::Request request;
    request.scanNames = options.scanLabels;
    request.recordedSize = true;
    request.structure = true;
    request.decode = options.decodeImages;
    const ImageInput::Input in = ImageInput::read(record, request);

    ImageResult result;
    result.scanNames = in.scanNames;
    result.shapes = int(in.shapes.size());
    if (in.xml == ImageInput::XmlState::Unreadable) {
        result.problems.append(problem("unreadable-xml", Severity::Error, -1,
                                       QStringLiteral("The annotation file cannot be read.")));
    } else if (in.xml == ImageInput::XmlState::Partial) {
        result.problems.append(problem(
            "unreadable-xml", Severity::Error, -1,
            QStringLiteral("The annotation file is not well-formed XML; only the %1 shape(s) "
                           "before the error are read.")
                .arg(in.shapes.size())));
    }
    if (in.image != ImageInput::ImageState::Readable) {
        result.problems.append(problem(
            "unreadable-image", Severity::Error, -1,
            in.image == ImageInput::ImageState::Missing
                ? QStringLiteral("The image file is gone.")
                : in.damage.isEmpty() ? QStringLiteral("The image cannot be decoded.") : in.damage));
    } else if (in.recordedSize.width() >= 1 && in.recordedSize.height() >= 1
               && in.recordedSize != in.imageSize) {
        result.problems.append(problem(
            "size-mismatch", Severity::Warning, -1,
            QStringLiteral("The annotation file records %1 but the image is %2%3.")
                .arg(sizeText(in.recordedSize), sizeText(in.imageSize),
                     in.turned ? QStringLiteral(" (EXIF orientation applied)") : QString())));
    }

    const bool sized = in.imageSize.isValid();
    const QRectF imageRect(0, 0, in.imageSize.width(), in.imageSize.height());
    for (int i = 0; i < in.shapes.size(); ++i) {
        const BoxAnnotation& shape = in.shapes.at(i);
        result.shapeLabels.append(shape.label);
        const QString kind = ShapeGeometry::kindName(shape.type);
        const QString degenerate = ShapeGeometry::degenerateReason(shape);
        if (!degenerate.isEmpty()) {
            result.problems.append(problem("degenerate", Severity::Error, i, degenerate));
        } else if (sized) {
            const int inside = insideness(shape, imageRect);
            if (inside == 0)
                result.problems.append(problem(
                    "outside-all", Severity::Error, i,
                    QStringLiteral("The %1 lies wholly outside the %2 image.").arg(kind, sizeText(in.imageSize))));
            else if (inside == 1)
                result.problems.append(problem(
                    "outside", Severity::Warning, i,
                    QStringLiteral("The %1 reaches outside the %2 image.").arg(kind, sizeText(in.imageSize))));
        }
        for (int j = 0; j < i; ++j) {
            if (sameGeometry(in.shapes.at(j), shape)) {
                result.problems.append(problem(
                    "duplicate", Severity::Warning, i,
                    QStringLiteral("The %1 repeats shape %2: same label, same geometry.").arg(kind).arg(j)));
                break;
            }
        }
    }
    return result;
}

} // namespace

QString severityName(Severity severity)
{
    return severity == Severity::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

int Report::errors() const
{
    int n = 0;
    for (const Problem& p : problems)
        n += p.severity == Severity::Error;
    return n;
}

int Report::warnings() const
{
    return int(problems.size()) - errors();
}

QString Report::summary() const
{
    const int e = errors();
    const int w = warnings();
    return QStringLiteral("%1 error%2, %3 warning%4 in %5 image%6 (%7 without shapes).")
        .arg(e).arg(e == 1 ? "" : "s").arg(w).arg(w == 1 ? "" : "s")
        .arg(images).arg(images == 1 ? "" : "s").arg(imagesWithoutShapes);
}

QJsonObject Report::toJson() const
{
    QJsonArray list;
    for (const Problem& p : problems) {
        QJsonObject o;
        o.insert(QStringLiteral("code"), p.code);
        o.insert(QStringLiteral("severity"), severityName(p.severity));
        o.insert(QStringLiteral("image"), p.image);
        o.insert(QStringLiteral("shape"), p.shape);
        o.insert(QStringLiteral("message"), p.message);
        list.append(o);
    }
    QJsonObject root;
    root.insert(QStringLiteral("images"), images);
    root.insert(QStringLiteral("shapes"), shapes);
    root.insert(QStringLiteral("images_without_shapes"), imagesWithoutShapes);
    root.insert(QStringLiteral("errors"), errors());
    root.insert(QStringLiteral("warnings"), warnings());
    root.insert(QStringLiteral("problems"), list);
    return root;
}

Report run(const QList<ImageAnnotations>& records, QList<LabelDef>& labels,
           const QString& annotationsFolder, const Options& options, const Progress& progress)
{
    Report report;
    QSet<QString> known;
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);

    const bool whole = DatasetReading::forEachOrdered<ImageResult>(
        int(records.size()), [&](int i) { return checkImage(records.at(i), options); },
        [&](int i, ImageResult& result) {
            for (const QString& name : std::as_const(result.scanNames)) {
                if (!known.contains(name)) {
                    LabelPalette::appendIfMissing(labels, name);
                    known.insert(name);
                }
            }
            for (int s = 0; s < result.shapeLabels.size(); ++s) {
                if (known.contains(result.shapeLabels.at(s)))
                    continue;
                result.problems.append(problem(
                    "unknown-label", Severity::Warning, s,
                    QStringLiteral("The label \u201c%1\u201d is not in the label list.").arg(result.shapeLabels.at(s))));
            }
            std::stable_sort(result.problems.begin(), result.problems.end(),
                             [](const Problem& a, const Problem& b) { return a.shape < b.shape; });
            const QString name = QFileInfo(records.at(i).imagePath).fileName();
            for (Problem& p : result.problems) {
                p.record = i;
                p.image = name;
                report.problems.append(p);
            }
            ++report.images;
            report.shapes += result.shapes;
            report.imagesWithoutShapes += result.shapes == 0;
        },
        progress);
    if (!whole) {
        report.cancelled = true;
        return report;
    }

    // Annotation files that no listed image claims.
    QSet<QString> claimed;
    for (const ImageAnnotations& record : records)
        claimed.insert(QFileInfo(record.xmlPath).fileName());
    for (const QString& file : DatasetFolders::listAnnotationFiles(annotationsFolder)) {
        if (claimed.contains(file))
            continue;
        Problem p = problem("missing-image", Severity::Error, -1,
                            QStringLiteral("No image of the images folder goes with this annotation file."));
        p.image = file;
        report.problems.append(p);
    }
    return report;
}

} // namespace DatasetCheck
