#include <cstddef>
#include <cstdint>
#include <memory>

#include <QFile>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "fuzzsupport.h"

// Feeds the input to the COCO import as a file, then exports what arrived, so the
// export also sees whatever extreme boxes the import produced. The export goes to a
// folder that does not exist: the whole document is still built, but no file is
// synced to disk on every run.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString input = workDir().filePath(QStringLiteral("input.json"));
    if (!writeInput(input, reinterpret_cast<const char*>(data), qsizetype(size)))
        return 0;

    // Known sizes, so no image file is ever read.
    QList<ImageAnnotations> images{
        record(QStringLiteral("/d/img.png"), 640, 480),
        record(QStringLiteral("/d/a.jpg"), 1, 1),
        record(QStringLiteral("/d/dup.png"), 100, 50),
        record(QStringLiteral("/e/dup.jpg"), 3, 3),
        record(QStringLiteral("/d/.hidden"), 2147483647, 2147483647),
    };
    QList<LabelDef> labels{LabelDef{QStringLiteral("object"), QColor(0, 220, 220)}};

    ExportImport::importCoco(images, labels, input);
    ExportImport::exportCoco(images, labels, workDir().filePath(QStringLiteral("missing/output.json")));
    return 0;
}
