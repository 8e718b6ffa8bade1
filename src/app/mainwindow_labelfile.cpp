// The per-dataset label colour file, label_colors.json in the annotations folder.

#include "app/mainwindow.h"

#include <QDir>
#include <QFileInfo>

#include "model/atomicbatch.h"
#include "model/labelcolorfile.h"
#include "model/vocxml.h"

void MainWindow::loadLabelConfig()
{
    labelFileDamaged = false;
    if (!annotationsFolder.isEmpty()) {
        // Anything but a readable top-level array counts as an empty file; its bytes are
        // kept beside it before the next write replaces it.
        const LabelColorFile::ReadOutcome outcome =
            LabelColorFile::merge(LabelColorFile::pathIn(annotationsFolder), labels);
        labelFileDamaged = outcome.damaged;
        if (outcome.damaged)
            showStatusNote(outcome.problem);
    }
    applyLabels();
}

void MainWindow::saveLabelConfig()
{
    if (annotationsFolder.isEmpty())
        return;
    const QString path = LabelColorFile::pathIn(annotationsFolder);
    const QString name = QFileInfo(path).fileName();
    QString error;
    if (labelFileDamaged) {
        QString copy;
        if (!VocXml::keepOriginal(path, &error, &copy)) {
            showStatusNote(QStringLiteral("%1 was left unchanged: a copy of the damaged file could "
                                          "not be kept (%2)").arg(name, error));
            return;
        }
        labelFileDamaged = false;
        if (!copy.isEmpty())
            showStatusNote(QStringLiteral("The damaged %1 is kept as %2")
                               .arg(name, QFileInfo(copy).fileName()));
    }
    // The colours are a convenience, the annotations are elsewhere: a failure is told in
    // the status bar, not in a box.
    if (!AtomicBatch::writeFile(path, LabelColorFile::toJson(labels), &error, annotationsFolder))
        showStatusNote(QStringLiteral("Could not write %1: %2").arg(name, error));
}
