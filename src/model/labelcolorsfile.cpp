#include "model/labelcolorsfile.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace LabelColorsFile {

QString path(const QString& annotationsFolder)
{
    return QDir(annotationsFolder).filePath(QStringLiteral("label_colors.json"));
}

void merge(QList<LabelDef>& labels, const QString& annotationsFolder)
{
    if (annotationsFolder.isEmpty())
        return;
    QFile file(path(annotationsFolder));
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return;
    QSet<QString> known;
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);
    // Anything but a top-level array counts as an empty file.
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll());
    const QJsonArray entries = doc.isArray() ? doc.array() : QJsonArray();
    for (const QJsonValue& entry : entries) {
        const QJsonObject object = entry.toObject();
        const QString name = object.value(QLatin1String("name")).toString();
        const QColor color = QColor::fromString(object.value(QLatin1String("color")).toString());
        if (name.isEmpty() || !color.isValid() || known.contains(name))
            continue;
        labels.append({name, color});
        known.insert(name);
    }
}

} // namespace LabelColorsFile
