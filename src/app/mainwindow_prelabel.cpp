#include "app/mainwindow.h"

#include <QDir>
#include <QDirIterator>
#include <QSet>

#include "ai/prelabeldialog.h"
#include "app/proposalreview.h"
#include "ui/userprompts.h"

// Edit → Pre-label with YOLO: a model's proposals for the dataset's images, merged into
// the review as the run delivers them.

void MainWindow::onPrelabel()
{
    if (!requireDataLoaded())
        return;
    syncCurrentBoxes();

    // Which images have annotations: one listing of the folder rather than a look-up per
    // image, and the shapes held in memory.
    QSet<QString> annotationFiles;
    const QDir annotations(annotationsFolder);
    QDirIterator it(annotationsFolder, {QStringLiteral("*.xml")}, QDir::Files);
    while (it.hasNext()) {
        it.next();
        annotationFiles.insert(annotations.filePath(it.fileName()));
    }
    PrelabelDialog::Images targets;
    for (const ImageAnnotations& record : std::as_const(images)) {
        targets.all << record.imagePath;
        if (record.boxes.isEmpty() && !annotationFiles.contains(record.xmlPath))
            targets.unlabelled << record.imagePath;
    }
    if (hasCurrentImage())
        targets.current = images.at(currentIndex).imagePath;

    QList<QString> names;
    for (const LabelDef& label : std::as_const(labels))
        names << label.name;
    PrelabelDialog dialog(names, targets,
                          [this](const QString& image, const QList<Proposal>& proposals) {
                              return proposalReview->merge(image, proposals);
                          },
                          this);
    UserPrompts::current().exec(&dialog);
    proposalReview->finishRun();
}
