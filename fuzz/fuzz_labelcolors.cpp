#include <cstddef>
#include <cstdint>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "fuzzsupport.h"
#include "model/labelcolorfile.h"

// The input is a label colour file. What it gives must come back unchanged from the
// file written for it, and that file must be the text Qt's JSON writer makes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString input = workDir().filePath(QStringLiteral("label_colors.json"));
    if (!writeInput(input, reinterpret_cast<const char*>(data), qsizetype(size)))
        return 0;
    QList<LabelDef> labels{LabelDef{QStringLiteral("object"), QColor(0, 220, 220)}};
    LabelColorFile::merge(input, labels);
    for (const LabelDef& label : std::as_const(labels)) {
        if (label.name.isEmpty() || label.name != cleanLabelName(label.name) || !label.color.isValid())
            __builtin_trap();
    }

    const QByteArray written = LabelColorFile::toJson(labels);
    QJsonArray entries;
    for (const LabelDef& label : std::as_const(labels))
        entries.append(QJsonObject{{QStringLiteral("name"), label.name},
                                   {QStringLiteral("color"), label.color.name(QColor::HexRgb)}});
    if (written != QJsonDocument(entries).toJson(QJsonDocument::Indented))
        __builtin_trap();

    if (!writeInput(input, written.constData(), written.size()))
        return 0;
    QList<LabelDef> again;
    LabelColorFile::merge(input, again);
    if (again.size() != labels.size())
        __builtin_trap();
    for (qsizetype i = 0; i < again.size(); ++i) {
        if (again.at(i).name != labels.at(i).name
            || again.at(i).color.rgb() != labels.at(i).color.rgb())
            __builtin_trap();
    }
    return 0;
}
