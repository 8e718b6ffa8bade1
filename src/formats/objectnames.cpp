#include "formats/exportimport.h"

#include <QSet>

#include "formats/converterrules.h"
#include "model/labelpalette.h"

namespace ExportImport {

namespace {

// The label palette followed by four lighter colours; only the class names import
// cycles through all twelve.
QColor importColor(int labelCount)
{
    const QList<QColor>& base = LabelPalette::colors();
    static const QColor extra[] = { QColor(255, 120, 120), QColor(120, 255, 120),
                                    QColor(120, 120, 255), QColor(255, 255, 80) };
    const int n = int(base.size()) + 4;
    const int i = labelCount % n;
    return i < base.size() ? base.at(i) : extra[i - base.size()];
}

} // namespace

ExportImportResult exportObjectNames(const QList<LabelDef>& labels, const QString& outputFile)
{
    QByteArray out;
    for (const LabelDef& label : labels) {
        out += cleanLabelName(label.name).toUtf8();
        out += '\n';
    }
    QString error;
    if (!ConverterRules::writeFileAtomically(outputFile, out, &error))
        return { false, QStringLiteral("Cannot write to ") + outputFile + u'\n' + error, 0 };
    const int count = int(labels.size());
    return { true,
             QStringLiteral("Wrote %1 label(s) to:\n%2").arg(QString::number(count), outputFile),
             count };
}

ExportImportResult importObjectNames(QList<LabelDef>& labels, const QString& inputFile)
{
    QStringList lines;
    if (!ConverterRules::readTextLines(inputFile, &lines))
        return { false, QStringLiteral("Cannot open ") + inputFile, 0 };

    QSet<QString> folded;
    for (const LabelDef& label : std::as_const(labels))
        folded.insert(label.name.toCaseFolded());

    int added = 0;
    int skipped = 0;
    for (const QString& rawLine : std::as_const(lines)) {
        const QString name = cleanLabelName(rawLine).trimmed();
        if (name.isEmpty())
            continue;
        const QString key = name.toCaseFolded();
        if (folded.contains(key)) {
            ++skipped;
            continue;
        }
        labels.append(LabelDef{ name, importColor(int(labels.size())) });
        folded.insert(key);
        ++added;
    }

    QString message = QStringLiteral("Imported %1 label(s)").arg(added);
    if (skipped > 0)
        message += QStringLiteral(" (%1 already existed, skipped)").arg(skipped);
    message += QStringLiteral(":\n") + inputFile;
    return { true, message, added };
}

} // namespace ExportImport
