#include "formats/exportimport.h"

#include <algorithm>
#include <cmath>

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include "formats/converterrules.h"

namespace ExportImport {

namespace {

// A JSON number exactly as Qt's writer prints a double: whole numbers that a double
// holds exactly print as integers, anything else in shortest round-trip form.
void appendJsonNumber(QByteArray& out, double value)
{
    if (std::isfinite(value) && value == std::trunc(value) && std::abs(value) < 9007199254740992.0) {
        out += QByteArray::number(qint64(value));
        return;
    }
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    out += wrapped.mid(1, wrapped.size() - 2);
}

// One element of "annotations" in the layout of Qt's indented writer (keys sorted,
// four blanks per level, the array two levels deep). Building 100,000s of QJsonObjects
// is far slower than writing the text directly.
void appendAnnotation(QByteArray& out, const BoxAnnotation& box, int width, int height,
                      int annotationId, int imageId, int categoryId)
{
    const QRect clamped = ConverterRules::clampToImage(ConverterRules::shapeRect(box), width, height);
    // The clamped corners become the two points of a box, whose integer rectangle gives
    // the bbox. Widths are computed in 64 bits: a box far outside the image can span
    // nearly the whole int range.
    const qint64 left = std::min(clamped.left(), clamped.right());
    const qint64 right = std::max(clamped.left(), clamped.right());
    const qint64 top = std::min(clamped.top(), clamped.bottom());
    const qint64 bottom = std::max(clamped.top(), clamped.bottom());
    const qint64 w = right - left + 1;
    const qint64 h = bottom - top + 1;

    out += "        {\n            \"area\": ";
    appendJsonNumber(out, double(w) * double(h));
    out += ",\n            \"bbox\": [\n                ";
    out += QByteArray::number(left);
    out += ",\n                ";
    out += QByteArray::number(top);
    out += ",\n                ";
    out += QByteArray::number(w);
    out += ",\n                ";
    out += QByteArray::number(h);
    out += "\n            ],\n            \"category_id\": ";
    out += QByteArray::number(categoryId);
    out += ",\n            \"id\": ";
    out += QByteArray::number(annotationId);
    out += ",\n            \"image_id\": ";
    out += QByteArray::number(imageId);
    out += ",\n            \"iscrowd\": 0\n        }";
}

} // namespace

ExportImportResult exportCoco(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                              const QString& outputFile)
{
    QJsonObject info;
    info.insert(QStringLiteral("description"), QStringLiteral("Quillmark"));
    info.insert(QStringLiteral("version"), QStringLiteral("1.0"));

    QJsonArray categories;
    for (int i = 0; i < labels.size(); ++i) {
        QJsonObject cat;
        cat.insert(QStringLiteral("id"), i + 1);
        cat.insert(QStringLiteral("name"), labels.at(i).name);
        cat.insert(QStringLiteral("supercategory"), QStringLiteral("none"));
        categories.append(cat);
    }

    QJsonArray imageArray;
    QByteArray annotationText;
    qsizetype boxCount = 0;
    for (const ImageAnnotations& image : images)
        boxCount += image.boxes.size();
    annotationText.reserve(boxCount * 300);
    int annotationId = 0;
    for (int i = 0; i < images.size(); ++i) {
        const ImageAnnotations& image = images.at(i);
        const QSize size = ConverterRules::imageSize(image);
        const int imageId = i + 1;

        QJsonObject img;
        img.insert(QStringLiteral("id"), imageId);
        img.insert(QStringLiteral("file_name"), QFileInfo(image.imagePath).fileName());
        img.insert(QStringLiteral("width"), size.width());
        img.insert(QStringLiteral("height"), size.height());
        imageArray.append(img);

        for (const BoxAnnotation& box : image.boxes) {
            // Labels missing from the list fall into the first category.
            const int index = ConverterRules::labelIndex(labels, box.label);
            const int categoryId = index >= 0 ? index + 1 : 1;
            if (annotationId > 0)
                annotationText += ",\n";
            appendAnnotation(annotationText, box, size.width(), size.height(), ++annotationId,
                             imageId, categoryId);
        }
    }

    // Qt writes everything but the annotations; "annotations" sorts first, so its empty
    // array opens the document and the written objects go inside it.
    QJsonObject root;
    root.insert(QStringLiteral("info"), info);
    root.insert(QStringLiteral("categories"), categories);
    root.insert(QStringLiteral("images"), imageArray);
    root.insert(QStringLiteral("annotations"), QJsonArray());
    QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);
    if (annotationId > 0) {
        static const QByteArray opening("{\n    \"annotations\": [\n");
        Q_ASSERT(bytes.startsWith(opening));
        annotationText += '\n';
        bytes.insert(opening.size(), annotationText);
    }

    ExportImportResult result;
    QString error;
    if (!ConverterRules::writeFileAtomically(outputFile, bytes, &error)) {
        result.message = QStringLiteral("Cannot write to ") + outputFile + u'\n' + error;
        return result;
    }
    result.ok = true;
    result.message = QStringLiteral("Exported COCO JSON to:\n%1").arg(outputFile);
    result.count = annotationId;
    return result;
}

ExportImportResult importCoco(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                              const QString& inputFile)
{
    QByteArray bytes;
    if (!ConverterRules::readImportFile(inputFile, &bytes)) {
        ExportImportResult result;
        result.message = QStringLiteral("Cannot open ") + inputFile;
        return result;
    }

    // Anything that is not a JSON object imports nothing, without complaint.
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    return parseCocoDocument(images, labels, doc.isObject() ? doc.object() : QJsonObject());
}

ExportImportResult parseCocoDocument(QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                                     const QJsonObject& root)
{
    QHash<int, QString> categoryNames;
    const QJsonArray categories = root.value(QStringLiteral("categories")).toArray();
    for (const QJsonValue& value : categories) {
        const QJsonObject cat = value.toObject();
        const QString name = cleanLabelName(cat.value(QStringLiteral("name")).toString());
        categoryNames.insert(cat.value(QStringLiteral("id")).toInt(), name);
        ConverterRules::ensureLabel(labels, name);
    }

    // JSON image id -> index in the session; the extension of file_name is ignored.
    const QHash<QString, int> baseNames = ConverterRules::buildBaseNameIndex(images);
    QHash<int, int> imageIndexById;
    const QJsonArray imageArray = root.value(QStringLiteral("images")).toArray();
    for (const QJsonValue& value : imageArray) {
        const QJsonObject img = value.toObject();
        const QString baseName =
            QFileInfo(img.value(QStringLiteral("file_name")).toString()).completeBaseName();
        const auto it = baseNames.constFind(baseName);
        if (it != baseNames.constEnd())
            imageIndexById.insert(img.value(QStringLiteral("id")).toInt(), *it);
    }

    // The image size rule may read an image header; read each image at most once.
    ConverterRules::BoxImporter importer(images);
    int added = 0;
    const QJsonArray annotations = root.value(QStringLiteral("annotations")).toArray();
    for (const QJsonValue& value : annotations) {
        const QJsonObject ann = value.toObject();
        const auto imageIt = imageIndexById.constFind(ann.value(QStringLiteral("image_id")).toInt());
        if (imageIt == imageIndexById.constEnd())
            continue;
        const int imageIndex = *imageIt;

        // An unknown category is imported as "object" without adding it to the labels.
        const auto catIt = categoryNames.constFind(ann.value(QStringLiteral("category_id")).toInt());
        const QString name = catIt != categoryNames.constEnd() ? *catIt : QStringLiteral("object");

        const QJsonArray bbox = ann.value(QStringLiteral("bbox")).toArray();
        if (bbox.size() < 4)
            continue;
        // Each number is truncated on its own before the corners are formed; the sums are
        // done in doubles (exact at these magnitudes) and brought back into int range.
        const double x = ConverterRules::truncSafe(bbox.at(0).toDouble());
        const double y = ConverterRules::truncSafe(bbox.at(1).toDouble());
        const double w = ConverterRules::truncSafe(bbox.at(2).toDouble());
        const double h = ConverterRules::truncSafe(bbox.at(3).toDouble());
        const QRect rect(QPoint(int(x), int(y)),
                         QPoint(ConverterRules::toIntSafe(x + w - 1), ConverterRules::toIntSafe(y + h - 1)));

        importer.add(imageIndex, name, rect);
        ++added;
    }

    ExportImportResult result;
    result.ok = true;
    result.message = QStringLiteral("Imported %1 COCO annotation(s).").arg(added);
    result.count = added;
    return result;
}

} // namespace ExportImport
