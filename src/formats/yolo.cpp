#include "formats/exportimport.h"

#include <climits>

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include "formats/converterrules.h"
#include "model/atomicbatch.h"

namespace ExportImport {

namespace {

void appendFixed6(QByteArray& out, double value)
{
    out += QByteArray::number(value, 'f', 6);
}

int clampToInt(qint64 value)
{
    return int(qBound(qint64(INT_MIN), value, qint64(INT_MAX)));
}

} // namespace

ExportImportResult exportYolo(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                              const QString& outputFolder)
{
    QDir().mkpath(outputFolder);

    QByteArray classes;
    QHash<QString, int> classOf;
    for (int i = 0; i < labels.size(); ++i) {
        // A line break in a name would shift every class after it.
        classes += cleanLabelName(labels.at(i).name).toUtf8();
        classes += '\n';
        if (!classOf.contains(labels.at(i).name))
            classOf.insert(labels.at(i).name, i);
    }
    QString error;
    if (!ConverterRules::writeFileAtomically(outputFolder + QStringLiteral("/classes.txt"), classes, &error))
        return { false, QStringLiteral("Cannot write classes.txt to ") + outputFolder + u'\n' + error, 0 };

    // One flush for the whole folder instead of one per file.
    AtomicBatch batch;
    int written = 0;
    int unwritten = 0;
    QByteArray out;
    for (const ImageAnnotations& image : images) {
        if (image.boxes.isEmpty())
            continue;
        const QSize size = ConverterRules::imageSize(image);
        const double w = size.width();
        const double h = size.height();
        out.clear();
        for (const BoxAnnotation& box : image.boxes) {
            const QRect r = ConverterRules::shapeRect(box);
            // Extents from the corners in double: QRect::width() may overflow.
            const double left = r.left();
            const double top = r.top();
            const double rw = double(r.right()) - r.left() + 1.0;
            const double rh = double(r.bottom()) - r.top() + 1.0;
            out += QByteArray::number(classOf.value(box.label, 0));
            out += ' ';
            appendFixed6(out, (left + rw * 0.5) / w);
            out += ' ';
            appendFixed6(out, (top + rh * 0.5) / h);
            out += ' ';
            appendFixed6(out, rw / w);
            out += ' ';
            appendFixed6(out, rh / h);
            out += '\n';
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
             QStringLiteral("Exported %1 YOLO annotation file(s) to:\n%2")
                     .arg(QString::number(written), outputFolder)
                 + ConverterRules::unwrittenNote(batch, unwritten, error),
             written };
}

ExportImportResult importYolo(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFolder)
{
    QStringList names;
    {
        QStringList lines;
        if (ConverterRules::readTextLines(inputFolder + QStringLiteral("/classes.txt"), &lines)) {
            for (const QString& line : std::as_const(lines)) {
                const QString name = cleanLabelName(line).trimmed();
                if (!name.isEmpty())
                    names.append(name);
            }
        }
    }

    const QHash<QString, int> index = ConverterRules::buildBaseNameIndex(images);
    // Names already in the label list, so that each line costs no scan of the list.
    QSet<QString> known;
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);

    const QDir dir(inputFolder);
    const QStringList files =
        dir.entryList({ QStringLiteral("*.txt") }, QDir::Files, QDir::Unsorted);

    int count = 0;
    QStringList lines;
    for (const QString& fileName : files) {
        const QString baseName = QFileInfo(fileName).completeBaseName();
        if (baseName == QLatin1String("classes"))
            continue;
        const auto it = index.constFind(baseName);
        if (it == index.constEnd())
            continue;
        ImageAnnotations& image = images[it.value()];
        const QSize size = ConverterRules::imageSize(image);
        const int W = size.width();
        const int H = size.height();
        if (!ConverterRules::readTextLines(dir.filePath(fileName), &lines))
            continue;

        QList<BoxAnnotation> boxes;
        for (const QString& rawLine : std::as_const(lines)) {
            const QString line = rawLine.trimmed();
            if (line.isEmpty())
                continue;
            const QList<QStringView> parts =
                QStringView(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            if (parts.size() < 5)
                continue;
            const int cls = ConverterRules::parseInt(parts.at(0));
            const double cx = ConverterRules::parseNumber(parts.at(1));
            const double cy = ConverterRules::parseNumber(parts.at(2));
            const double bw = ConverterRules::parseNumber(parts.at(3));
            const double bh = ConverterRules::parseNumber(parts.at(4));

            const QString name = (cls >= 0 && cls < names.size())
                ? names.at(cls)
                : QStringLiteral("class_%1").arg(cls);
            if (!known.contains(name)) {
                ConverterRules::ensureLabel(labels, name);
                known.insert(name);
            }

            const int left = ConverterRules::truncSafe((cx - bw * 0.5) * W);
            const int top = ConverterRules::truncSafe((cy - bh * 0.5) * H);
            const int width = ConverterRules::truncSafe(bw * W);
            const int height = ConverterRules::truncSafe(bh * H);
            const int right = clampToInt(qint64(left) + width - 1);
            const int bottom = clampToInt(qint64(top) + height - 1);
            boxes.append(ConverterRules::makeImportedBox(
                name, QRect(QPoint(left, top), QPoint(right, bottom))));
        }

        for (BoxAnnotation& box : boxes) {
            const QRect r = ConverterRules::clampToImage(ConverterRules::shapeRect(box), W, H);
            box.points = { QPointF(r.left(), r.top()), QPointF(r.right(), r.bottom()) };
        }

        image.boxes = boxes;
        image.dirty = true;
        ++count;
    }

    return { true, QStringLiteral("Imported YOLO annotations for %1 image(s).").arg(count), count };
}

} // namespace ExportImport
