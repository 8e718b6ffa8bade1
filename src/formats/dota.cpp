#include "formats/exportimport.h"

#include <algorithm>

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include "formats/converterrules.h"
#include "model/atomicbatch.h"

namespace ExportImport {

ExportImportResult exportDota(const QList<ImageAnnotations>& images, const QString& outputFolder)
{
    QDir().mkpath(outputFolder);

    // One flush for the whole folder instead of one per file.
    AtomicBatch batch;
    int written = 0;
    int unwritten = 0;
    QString error;
    QByteArray out;
    for (const ImageAnnotations& image : images) {
        if (image.boxes.isEmpty())
            continue;
        out.clear();
        for (const BoxAnnotation& box : image.boxes) {
            const QRect r = ConverterRules::shapeRect(box);
            const QByteArray left = QByteArray::number(r.left());
            const QByteArray top = QByteArray::number(r.top());
            const QByteArray right = QByteArray::number(r.right());
            const QByteArray bottom = QByteArray::number(r.bottom());
            out += left + ' ' + top + ' ' + right + ' ' + top + ' ' + right + ' ' + bottom + ' '
                + left + ' ' + bottom + ' ';
            out += box.label.toUtf8();
            out += " 0\n";
        }
        const QString path = outputFolder + QLatin1Char('/')
            + QFileInfo(image.imagePath).completeBaseName() + QStringLiteral(".txt");
        if (batch.stage(path, out, &error))
            ++written;
        else
            ++unwritten;
    }
    batch.commit();
    written -= batch.failedPaths().size();

    return { true,
             QStringLiteral("Exported %1 DOTA file(s) to:\n%2").arg(QString::number(written), outputFolder)
                 + ConverterRules::unwrittenNote(batch, unwritten, error),
             written };
}

ExportImportResult importDota(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFolder)
{
    const QHash<QString, int> index = ConverterRules::buildBaseNameIndex(images);
    QSet<QString> known;
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);

    const QDir dir(inputFolder);
    const QStringList files =
        dir.entryList({ QStringLiteral("*.txt") }, QDir::Files, QDir::Unsorted);

    int count = 0;
    QStringList lines;
    for (const QString& fileName : files) {
        const auto it = index.constFind(QFileInfo(fileName).completeBaseName());
        if (it == index.constEnd())
            continue;
        if (!ConverterRules::readTextLines(dir.filePath(fileName), &lines))
            continue;
        ImageAnnotations& image = images[it.value()];
        image.boxes.clear();

        QSize size;
        for (const QString& rawLine : std::as_const(lines)) {
            const QString line = rawLine.trimmed();
            if (line.isEmpty() || line.startsWith(QLatin1String("imagesource"))
                || line.startsWith(QLatin1String("gsd")))
                continue;
            const QList<QStringView> parts =
                QStringView(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            if (parts.size() < 9)
                continue;
            double xs[4];
            double ys[4];
            for (int i = 0; i < 4; ++i) {
                xs[i] = ConverterRules::parseNumber(parts.at(2 * i));
                ys[i] = ConverterRules::parseNumber(parts.at(2 * i + 1));
            }
            const QString name = cleanLabelName(parts.at(8).toString());
            if (!known.contains(name)) {
                ConverterRules::ensureLabel(labels, name);
                known.insert(name);
            }
            // The size is looked up once per file, and only for a file with a box.
            if (!size.isValid())
                size = ConverterRules::imageSize(image);

            const QRect rect(QPoint(ConverterRules::truncSafe(*std::min_element(xs, xs + 4)),
                                    ConverterRules::truncSafe(*std::min_element(ys, ys + 4))),
                             QPoint(ConverterRules::truncSafe(*std::max_element(xs, xs + 4)),
                                    ConverterRules::truncSafe(*std::max_element(ys, ys + 4))));
            image.boxes.append(ConverterRules::makeImportedBox(
                name, ConverterRules::clampToImage(rect, size.width(), size.height())));
        }
        image.dirty = true;
        ++count;
    }

    return { true, QStringLiteral("Imported DOTA annotations for %1 image(s).").arg(count), count };
}

} // namespace ExportImport
