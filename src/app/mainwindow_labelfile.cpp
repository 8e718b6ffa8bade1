// The per-dataset label colour file, label_colors.json in the annotations folder.

#include "app/mainwindow.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSet>

#include "model/labelcolorsfile.h"

void MainWindow::loadLabelConfig()
{
    LabelColorsFile::merge(labels, annotationsFolder);
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
    QSaveFile file(LabelColorsFile::path(annotationsFolder));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QJsonDocument(entries).toJson(QJsonDocument::Indented));
    file.commit();
}
