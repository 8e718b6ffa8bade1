#pragma once

#include <QDialog>
#include <QList>
#include <QMap>
#include <QStringList>

#include "model/annotation.h"
#include "training/trainingexport.h"

class QButtonGroup;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

// The options of "Export for Training...": layout, output folder, split, seed, copies or
// hard links, and for pose and COCO the keypoint order (set in the pose export dialog).
class TrainingExportDialog : public QDialog {
    Q_OBJECT
public:
    // `images` are the session's records, read whole; they give the keypoint labels.
    TrainingExportDialog(const QList<ImageAnnotations>& images, const QList<LabelDef>& labels,
                         QWidget* parent = nullptr);

    TrainingExport::Options options() const;

    QComboBox* layoutCombo = nullptr;
    QLineEdit* folderEdit = nullptr;
    QDoubleSpinBox* valSpin = nullptr;
    QDoubleSpinBox* testSpin = nullptr;
    QSpinBox* seedSpin = nullptr;
    QPushButton* keypointButton = nullptr;

public Q_SLOTS:
    void accept() override;

private:
    void onBrowse();
    void onKeypointOrder();
    void onLayoutChanged();
    void updateKeypointNote();

    const QList<ImageAnnotations>& m_images;
    const QList<LabelDef>& m_labels;
    QButtonGroup* m_imageMode = nullptr;
    QLabel* m_keypointNote = nullptr;
    QLabel* m_splitNote = nullptr;
    QMap<QString, QStringList> m_keypointOrder;
    bool m_orderChosen = false;
};
