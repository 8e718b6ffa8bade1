#include "formats/exportimport.h"

#include <cmath>

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QRectF>
#include <QTextStream>

#include "formats/converterrules.h"
#include "model/atomicbatch.h"

namespace ExportImport {

namespace {

// Keypoints are matched within this many pixels around a box.
constexpr double kSearchMargin = 30.0;

// Numbers go through a text stream at its defaults: precision 6, smart notation.
void writeBoxLine(QTextStream& out, int classIndex, const BoxAnnotation& box,
                  const QList<const BoxAnnotation*>& keypoints, const QStringList& order, double W,
                  double H)
{
    const QPointF p0 = box.points.at(0);
    const QPointF p1 = box.points.at(1);
    out << classIndex << ' ' << (p0.x() + p1.x()) * 0.5 / W << ' ' << (p0.y() + p1.y()) * 0.5 / H
        << ' ' << std::abs(p1.x() - p0.x()) / W << ' ' << std::abs(p1.y() - p0.y()) / H;

    // The rectangle is taken corner to corner as stored, grown by the margin.
    const QRectF search(QPointF(p0.x() - kSearchMargin, p0.y() - kSearchMargin),
                        QPointF(p1.x() + kSearchMargin, p1.y() + kSearchMargin));
    const QPointF centre((p0.x() + p1.x()) / 2.0, (p0.y() + p1.y()) / 2.0);

    struct Candidate {
        QPointF point;
        double distance;
    };
    // Nearest keypoint to the centre per label; on a tie the earlier one stays.
    QHash<QString, Candidate> nearest;
    for (const BoxAnnotation* kp : keypoints) {
        const QPointF p = kp->points.at(0);
        if (!search.contains(p))
            continue;
        const double distance = std::hypot(p.x() - centre.x(), p.y() - centre.y());
        const auto it = nearest.constFind(kp->label);
        if (it != nearest.constEnd() && it->distance <= distance)
            continue;
        nearest.insert(kp->label, Candidate{p, distance});
    }

    for (const QString& name : order) {
        const auto it = nearest.constFind(name);
        if (it == nearest.constEnd())
            out << " 0 0 0";
        else
            out << ' ' << it->point.x() / W << ' ' << it->point.y() / H << " 2";
    }
    out << '\n';
}

// Words YAML 1.1 reads as booleans or null, whatever their letter case.
bool isYamlKeyword(const QString& text)
{
    static const QStringList words = {
        QStringLiteral("y"),    QStringLiteral("n"),     QStringLiteral("yes"),
        QStringLiteral("no"),   QStringLiteral("on"),    QStringLiteral("off"),
        QStringLiteral("true"), QStringLiteral("false"), QStringLiteral("null"),
    };
    return words.contains(text, Qt::CaseInsensitive);
}

// A plain scalar that every YAML reader takes as this very string: starts with a letter,
// "_" or "/" (so no number, date, indicator or blank), holds only letters, digits, inner
// blanks and "_-./()", ends without a blank, and is no keyword.
bool isPlainYaml(const QString& text)
{
    if (text.isEmpty() || text.endsWith(QLatin1Char(' ')) || isYamlKeyword(text))
        return false;
    const QChar first = text.front();
    if (!first.isLetter() && first != QLatin1Char('_') && first != QLatin1Char('/'))
        return false;
    for (QChar c : text) {
        if (!c.isLetterOrNumber() && !QStringView(u" _-./()").contains(c))
            return false;
    }
    return true;
}

// The text as a YAML scalar: unchanged when it is plain, otherwise double-quoted with
// backslash escapes, so that names like "no", "#1" or "sign: stop" read back as written.
QString yamlScalar(const QString& text)
{
    if (isPlainYaml(text))
        return text;
    QString quoted = QStringLiteral("\"");
    for (QChar c : text) {
        const QChar::Category category = c.category();
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            quoted += QLatin1Char('\\');
            quoted += c;
        } else if (category == QChar::Other_Control || category == QChar::Separator_Line
                   || category == QChar::Separator_Paragraph) {
            quoted += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            quoted += c;
        }
    }
    return quoted + QLatin1Char('"');
}

} // namespace

ExportImportResult exportYoloPose(const QList<ImageAnnotations>& images,
                                  const QMap<QString, QStringList>& keypointOrder,
                                  const QStringList& classNames, const QString& outputFolder)
{
    const QString labelsFolder = outputFolder + QStringLiteral("/labels/");
    QDir().mkpath(labelsFolder);
    QDir().mkpath(outputFolder + QStringLiteral("/images"));

    // One flush for the whole labels folder instead of one per file.
    AtomicBatch batch;
    int files = 0;
    int unwritten = 0;
    QString error;
    for (const ImageAnnotations& image : images) {
        // Only the stored size counts here; images without one are left out.
        if (image.width < 1 || image.height < 1)
            continue;

        QList<const BoxAnnotation*> boxes;
        QList<const BoxAnnotation*> keypoints;
        for (const BoxAnnotation& box : image.boxes) {
            if (box.type == ShapeType::BoundingBox)
                boxes.append(&box);
            else if (box.type == ShapeType::Keypoint && !box.points.isEmpty())
                keypoints.append(&box);
        }
        if (boxes.isEmpty())
            continue;

        QString text;
        QTextStream out(&text);
        for (const BoxAnnotation* box : boxes) {
            if (box->points.size() < 2)
                continue;
            const int classIndex = classNames.indexOf(box->label);
            if (classIndex < 0)
                continue;
            writeBoxLine(out, classIndex, *box, keypoints, keypointOrder.value(box->label),
                         image.width, image.height);
        }
        out.flush();

        const QString path =
            labelsFolder + QFileInfo(image.imagePath).completeBaseName() + QStringLiteral(".txt");
        if (batch.stage(path, text.toUtf8(), &error))
            ++files;
        else
            ++unwritten;
    }
    batch.commit();
    files -= int(batch.failedPaths().size());

    QString yaml = QStringLiteral("path: ") + yamlScalar(outputFolder)
        + QStringLiteral("\ntrain: images\nval: images\n\nnames:\n");
    for (const QString& name : classNames)
        yaml += QStringLiteral("  - ") + yamlScalar(name) + u'\n';
    if (!classNames.isEmpty() && keypointOrder.contains(classNames.first())) {
        yaml += QStringLiteral("\nkpt_shape: [%1, 3]\n")
                    .arg(keypointOrder.value(classNames.first()).size());
    }
    const QString yamlPath = outputFolder + QStringLiteral("/data.yaml");
    if (!ConverterRules::writeFileAtomically(yamlPath, yaml.toUtf8(), &error))
        ++unwritten;

    ExportImportResult result;
    result.ok = true;
    result.message =
        QStringLiteral("Exported YOLO Pose for %1 image(s) to:\n%2").arg(files).arg(outputFolder)
        + ConverterRules::unwrittenNote(batch, unwritten, error);
    result.count = files;
    return result;
}

} // namespace ExportImport
