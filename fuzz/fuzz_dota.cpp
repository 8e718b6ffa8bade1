#include <cmath>
#include <cstddef>
#include <cstdint>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "fuzzsupport.h"

// The input is the DOTA file of the image "img". What the import produces is checked
// and exported again into a folder that cannot be created: every line is still
// formatted, but nothing is written (and synced) on each run.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString folder = workDir().filePath(QStringLiteral("in"));
    QDir().mkpath(folder);
    const QString blocker = workDir().filePath(QStringLiteral("blocker"));
    if (!QFile::exists(blocker))
        writeInput(blocker, "x", 1);
    if (!writeInput(folder + QStringLiteral("/img.txt"), reinterpret_cast<const char*>(data), qsizetype(size)))
        return 0;

    QList<ImageAnnotations> images{
        record(QStringLiteral("/d/img.jpg"), 1, 1),
        record(QStringLiteral("/e/img.png"), 640, 480),
        record(QStringLiteral("/d/other.jpg"), 2147483647, 2147483647),
    };
    images[1].boxes.append(BoxAnnotation{ QStringLiteral("old"), ShapeType::Ellipse, { { 10, 10 }, { 3, 2 } } });
    QList<LabelDef> labels{ LabelDef{ QStringLiteral("object"), QColor(0, 220, 220) } };

    const ExportImportResult result = ExportImport::importDota(images, labels, folder);
    if (!result.ok || result.count != 1 || !images[0].boxes.isEmpty() || images[0].dirty || !images[1].dirty)
        __builtin_trap();
    for (const BoxAnnotation& box : std::as_const(images[1].boxes)) {
        if (box.label.isEmpty() || box.points.size() != 2)
            __builtin_trap();
        bool known = false;
        for (const LabelDef& label : std::as_const(labels))
            known = known || label.name == box.label;
        if (!known)
            __builtin_trap();
        for (const QPointF& p : box.points) {
            if (!std::isfinite(p.x()) || !std::isfinite(p.y()))
                __builtin_trap();
        }
        if (box.points[0].x() < 0 || box.points[0].y() < 0 || box.points[1].x() > 639
            || box.points[1].y() > 479)
            __builtin_trap();
    }

    ExportImport::exportDota(images, blocker + QStringLiteral("/out"));
    return 0;
}
