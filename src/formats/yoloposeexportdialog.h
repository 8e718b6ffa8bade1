#pragma once

#include <QDialog>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

class QListWidget;

// Lets the user fix, per detection class (bounding box label), which keypoint labels
// fill which slot of a YOLO pose label line. The order list starts as every keypoint
// label of the dataset, sorted; the user removes, adds and reorders entries.
class YoloPoseExportDialog : public QDialog {
    Q_OBJECT
public:
    // `labels` is accepted for symmetry with the other dialogs; the classes and
    // keypoint labels come from the shapes in `images`.
    YoloPoseExportDialog(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                         QWidget* parent = nullptr);

    // Per class name, the keypoint label names in slot order.
    QMap<QString, QStringList> kpOrder;
    // Class names in class-index order.
    QStringList classList;
    // The class whose order the middle list shows; empty when none.
    QString currentClass;

    QListWidget* classListWidget = nullptr;
    QListWidget* orderListWidget = nullptr;
    QListWidget* availableListWidget = nullptr;

public Q_SLOTS:
    void onKpUp();
    void onKpDown();
    void onKpRemove();
    void onKpAdd();
    void onClassSelected();
    // OK: keeps the dialog open while there is no class to export.
    void accept() override;

private:
    void buildUI(const QStringList& classes, const QStringList& keypointLabels);
    void saveCurrentKpOrder();
};
