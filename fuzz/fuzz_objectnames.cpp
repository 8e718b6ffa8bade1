#include <cstddef>
#include <cstdint>

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "fuzzsupport.h"

// The input is a class names file, imported into a short label list and exported
// again into a folder that does not exist.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString input = workDir().filePath(QStringLiteral("names.txt"));
    {
        QFile::remove(input);
        QFile file(input);
        if (!file.open(QIODevice::WriteOnly))
            return 0;
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }

    QList<LabelDef> labels{ LabelDef{ QStringLiteral("object"), QColor(0, 220, 220) },
                            LabelDef{ QStringLiteral("Car"), QColor(255, 100, 100) } };
    const ExportImportResult result = ExportImport::importObjectNames(labels, input);
    if (!result.ok || result.count != labels.size() - 2)
        __builtin_trap();
    QSet<QString> seen;
    for (const LabelDef& label : std::as_const(labels)) {
        const QString folded = label.name.toCaseFolded();
        if (label.name.isEmpty() || label.name != label.name.trimmed() || seen.contains(folded)
            || !label.color.isValid())
            __builtin_trap();
        seen.insert(folded);
    }

    ExportImport::exportObjectNames(labels, workDir().filePath(QStringLiteral("missing/out.txt")));
    return 0;
}
