#include <cmath>
#include <cstddef>
#include <cstdint>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "fuzzsupport.h"

// The input is one YOLO folder: the bytes before the first 0x1E byte are classes.txt,
// the rest is the label file of the image "img" (without a 0x1E there is no
// classes.txt). What the import produces is checked and then exported again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString folder = workDir().filePath(QStringLiteral("in"));
    QDir().mkpath(folder);
    const char* bytes = reinterpret_cast<const char*>(data);
    const QByteArray all = QByteArray::fromRawData(bytes, qsizetype(size));
    const qsizetype split = all.indexOf('\x1e');
    const QString classes = folder + QStringLiteral("/classes.txt");
    const QString labels = folder + QStringLiteral("/img.txt");
    if (split < 0) {
        QFile::remove(classes);
        if (!writeInput(labels, bytes, qsizetype(size)))
            return 0;
    } else if (!writeInput(classes, bytes, split)
               || !writeInput(labels, bytes + split + 1, qsizetype(size) - split - 1)) {
        return 0;
    }
    writeInput(folder + QStringLiteral("/classes.txt.txt"), "0 0.5 0.5 1 1\n", 14);

    // Known sizes, so no image file is read; the later "img" wins the base name.
    QList<ImageAnnotations> images{
        record(QStringLiteral("/d/img.jpg"), 640, 480),
        record(QStringLiteral("/e/img.png"), 7, 3),
        record(QStringLiteral("/d/classes.jpg"), 1, 1),
        record(QStringLiteral("/d/classes.txt.png"), 2147483647, 2147483647),
    };
    images[1].boxes.append(BoxAnnotation{ QStringLiteral("old"), ShapeType::Polygon, { { 1, 1 }, { 2, 2 }, { 0, 2 } } });
    QList<LabelDef> labelList{ LabelDef{ QStringLiteral("object"), QColor(0, 220, 220) } };

    const ExportImportResult result = ExportImport::importYolo(images, labelList, folder);
    if (!result.ok || result.count != 2)
        __builtin_trap();
    if (!images[0].boxes.isEmpty() || images[0].dirty || !images[1].dirty || images[2].dirty
        || !images[3].dirty)
        __builtin_trap();
    for (const ImageAnnotations& image : std::as_const(images)) {
        for (const BoxAnnotation& box : image.boxes) {
            if (box.label.isEmpty() || box.points.size() != 2)
                __builtin_trap();
            bool known = false;
            for (const LabelDef& label : std::as_const(labelList))
                known = known || label.name == box.label;
            if (!known)
                __builtin_trap();
            for (const QPointF& p : box.points) {
                if (!std::isfinite(p.x()) || !std::isfinite(p.y()))
                    __builtin_trap();
            }
            // Clamped corners: right and bottom never beyond the image, left and top
            // never negative.
            if (box.points[0].x() < 0 || box.points[0].y() < 0 || box.points[1].x() > image.width - 1.0
                || box.points[1].y() > image.height - 1.0)
                __builtin_trap();
        }
    }

    // The export of what arrived; rarely, since every export flushes the file system.
    static unsigned runs = 0;
    if (++runs % 64 == 0)
        ExportImport::exportYolo(images, labelList, workDir().filePath(QStringLiteral("out")));
    return 0;
}
