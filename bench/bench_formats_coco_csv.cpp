// Times the COCO and CSV converters on a large dataset whose image sizes are known,
// so no image file is read. Prints one "name: value" line per measurement.

#include <cstdio>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "model/labelpalette.h"

namespace {

constexpr int kImages = 10000;
constexpr int kBoxesPerImage = 20;

QList<ImageAnnotations> makeDataset(const QList<LabelDef>& labels)
{
    QRandomGenerator rng(20240611);
    QList<ImageAnnotations> images;
    images.reserve(kImages);
    for (int i = 0; i < kImages; ++i) {
        ImageAnnotations img;
        img.imagePath = QStringLiteral("/bench/images/frame_%1.jpg").arg(i, 5, 10, QLatin1Char('0'));
        img.xmlPath = QStringLiteral("/bench/annotations/frame_%1.xml").arg(i, 5, 10, QLatin1Char('0'));
        img.width = 1920;
        img.height = 1080;
        for (int b = 0; b < kBoxesPerImage; ++b) {
            BoxAnnotation box;
            box.label = labels.at(int(rng.bounded(int(labels.size())))).name;
            const double x = rng.bounded(1800.0);
            const double y = rng.bounded(1000.0);
            box.points = {QPointF(x, y), QPointF(x + rng.bounded(400.0), y + rng.bounded(300.0))};
            img.boxes.append(box);
        }
        images.append(img);
    }
    return images;
}

QList<ImageAnnotations> withoutBoxes(QList<ImageAnnotations> images)
{
    for (ImageAnnotations& img : images)
        img.boxes.clear();
    return images;
}

void report(const char* name, qint64 ms, const ExportImportResult& r)
{
    std::printf("%s_ms: %lld\n", name, static_cast<long long>(ms));
    std::printf("%s_count: %d\n", name, r.count);
    if (!r.ok)
        std::printf("%s_error: %s\n", name, qPrintable(r.message));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::printf("error: no temporary folder\n");
        return 1;
    }

    QList<LabelDef> labels;
    for (const char* name : {"car", "person", "bicycle", "dog", "cat", "truck", "bus", "tree", "sign", "light"})
        LabelPalette::appendIfMissing(labels, QString::fromLatin1(name));
    const QList<ImageAnnotations> images = makeDataset(labels);
    const QList<ImageAnnotations> empty = withoutBoxes(images);

    std::printf("images: %d\n", kImages);
    std::printf("boxes: %d\n", kImages * kBoxesPerImage);

    QElapsedTimer timer;
    bool ok = true;

    const QString cocoPath = dir.filePath(QStringLiteral("annotations.json"));
    timer.start();
    ExportImportResult r = ExportImport::exportCoco(images, labels, cocoPath);
    report("exportCoco", timer.elapsed(), r);
    ok = ok && r.ok;

    {
        QList<ImageAnnotations> target = empty;
        QList<LabelDef> targetLabels;
        timer.start();
        r = ExportImport::importCoco(target, targetLabels, cocoPath);
        report("importCoco", timer.elapsed(), r);
        ok = ok && r.ok && r.count == kImages * kBoxesPerImage;
    }

    const QString csvPath = dir.filePath(QStringLiteral("annotations.csv"));
    timer.start();
    r = ExportImport::exportCsv(images, csvPath);
    report("exportCsv", timer.elapsed(), r);
    ok = ok && r.ok;

    {
        QList<ImageAnnotations> target = empty;
        QList<LabelDef> targetLabels;
        timer.start();
        r = ExportImport::importCsv(target, targetLabels, csvPath);
        report("importCsv", timer.elapsed(), r);
        ok = ok && r.ok && r.count == kImages * kBoxesPerImage;
    }

    std::printf("all_ok: %s\n", ok ? "true" : "false");
    return ok ? 0 : 1;
}
