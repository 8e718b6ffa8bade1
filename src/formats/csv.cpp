#include "formats/exportimport.h"

#include <QFileInfo>
#include <QHash>
#include <QStringView>

#include "formats/converterrules.h"

namespace ExportImport {

ExportImportResult exportCsv(const QList<ImageAnnotations>& images, const QString& outputFile)
{
    QByteArray bytes("filename,width,height,class,xmin,ymin,xmax,ymax\n");
    int rows = 0;
    for (const ImageAnnotations& image : images) {
        if (image.boxes.isEmpty())
            continue;
        const QSize size = ConverterRules::imageSize(image);
        // Fields are written as they are: a comma in a name is not quoted.
        const QByteArray prefix = QFileInfo(image.imagePath).fileName().toUtf8() + ','
            + QByteArray::number(size.width()) + ',' + QByteArray::number(size.height()) + ',';
        for (const BoxAnnotation& box : image.boxes) {
            const QRect r = ConverterRules::shapeRect(box);
            bytes += prefix;
            bytes += box.label.toUtf8();
            bytes += ',';
            bytes += QByteArray::number(r.left());
            bytes += ',';
            bytes += QByteArray::number(r.top());
            bytes += ',';
            bytes += QByteArray::number(r.right());
            bytes += ',';
            bytes += QByteArray::number(r.bottom());
            bytes += '\n';
            ++rows;
        }
    }

    ExportImportResult result;
    QString error;
    if (!ConverterRules::writeFileAtomically(outputFile, bytes, &error)) {
        result.message = QStringLiteral("Cannot write to ") + outputFile + u'\n' + error;
        return result;
    }
    result.ok = true;
    result.message = QStringLiteral("Exported %1 CSV row(s) to:\n%2").arg(rows).arg(outputFile);
    result.count = rows;
    return result;
}

ExportImportResult importCsv(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                             const QString& inputFile)
{
    // Invalid UTF-8 decodes to replacement characters; such names simply match nothing.
    QStringList lines;
    if (!ConverterRules::readTextLines(inputFile, &lines)) {
        ExportImportResult result;
        result.message = QStringLiteral("Cannot open ") + inputFile;
        return result;
    }

    // Whole file name -> index; later images win.
    QHash<QString, int> byFileName;
    for (int i = 0; i < images.size(); ++i)
        byFileName.insert(QFileInfo(images.at(i).imagePath).fileName(), i);

    ConverterRules::BoxImporter importer(images);
    int imported = 0;
    // The first line is the header and is never read as data.
    for (qsizetype n = 1; n < lines.size(); ++n) {
        const QStringView line = QStringView(lines.at(n)).trimmed();
        if (line.isEmpty())
            continue;
        const QList<QStringView> fields = line.split(u',');
        if (fields.size() < 8)
            continue;
        const auto it = byFileName.constFind(fields.at(0).trimmed().toString());
        if (it == byFileName.constEnd())
            continue;
        const int index = *it;

        const QString label = cleanLabelName(fields.at(3).toString()).trimmed();
        ConverterRules::ensureLabel(labels, label);

        const QRect rect(QPoint(ConverterRules::parseInt(fields.at(4)), ConverterRules::parseInt(fields.at(5))),
                         QPoint(ConverterRules::parseInt(fields.at(6)), ConverterRules::parseInt(fields.at(7))));
        importer.add(index, label, rect);
        ++imported;
    }

    ExportImportResult result;
    result.ok = true;
    result.message = QStringLiteral("Imported %1 CSV annotation(s).").arg(imported);
    result.count = imported;
    return result;
}

} // namespace ExportImport
