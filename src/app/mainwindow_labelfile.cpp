// The per-dataset label colour file, label_colors.json in the annotations folder.

#include "app/mainwindow.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSet>

namespace {
QString labelFilePath(const QString& annotationsFolder)
{
    return QDir(annotationsFolder).filePath(QStringLiteral("label_colors.json"));
}
} // namespace

void MainWindow::loadLabelConfig()
{
    QSet<QString> known;
    for (const LabelDef& label : std::as_const(labels))
        known.insert(label.name);

    QFile file(labelFilePath(annotationsFolder));
    if (annotationsFolder.isEmpty() || !file.exists() || !file.open(QIODevice::ReadOnly)) {
        applyLabels();
        return;
    }
    // Anything but a top-level array counts as an empty file; the next write replaces it.
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll());
    const QJsonArray entries = doc.isArray() ? doc.array() : QJsonArray();
    for (const QJsonValue& entry : entries) {
        const QJsonObject object = entry.toObject();
        const QString name = object.value(QLatin1String("name")).toString();
        const QColor color = QColor::fromString(object.value(QLatin1String("color")).toString());
        // Labels already in the list keep their colour.
        if (name.isEmpty() || !color.isValid() || known.contains(name))
            continue;
        labels.append({name, color});
        known.insert(name);
    }
    applyLabels();
}

void MainWindow::saveLabelConfig()
{
    if (annotationsFolder.isEmpty())
        return;
    QJsonArray entries;
    for (const LabelDef& label : std::as_const(labels)) {
        QJsonObject object;
        object.insert(QLatin1String("name"), label.name);
        object.insert(QLatin1String("color"), label.color.name(QColor::HexRgb));
        entries.append(object);
    }
    // Failures are silent: the colours are a convenience, the annotations are elsewhere.
    QSaveFile file(labelFilePath(annotationsFolder));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QJsonDocument(entries).toJson(QJsonDocument::Indented));
    file.commit();
}
