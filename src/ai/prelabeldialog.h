#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

#include "ai/airundialog.h"
#include "model/proposals.h"

class QButtonGroup;
class QComboBox;
class QLabel;
class QLineEdit;
class QRadioButton;
class QSlider;
class QSpinBox;
class QTableWidget;
class QTemporaryFile;

// Runs a YOLO model over the dataset's images through "yolo_prelabel.py". What the model
// finds comes back image by image, its classes mapped to labels, and is handed to the
// window as proposals while the run goes on; the annotation files are not touched.
class PrelabelDialog : public AiRunDialog {
    Q_OBJECT
public:
    // The images a run may cover: every image, those without annotations, the one shown
    // (empty when none is).
    struct Images {
        QStringList all;
        QStringList unlabelled;
        QString current;
    };
    // Receives one image's proposals (labels already mapped); false when the image is no
    // longer in the dataset.
    using Merge = std::function<bool(const QString& imageName, const QList<Proposal>& proposals)>;

    PrelabelDialog(const QList<QString>& labelNames, const Images& images, Merge merge,
                   QWidget* parent = nullptr);
    ~PrelabelDialog() override;

    // The label a model class (or, with keypoint, a keypoint name) goes to; empty when
    // its shapes are skipped.
    QString labelFor(const QString& name, bool keypoint) const;

    QComboBox* versionCombo = nullptr;
    QLineEdit* modelEdit = nullptr;
    QSlider* confSlider = nullptr;
    QLabel* confValueLabel = nullptr;
    QSlider* iouSlider = nullptr;
    QLabel* iouValueLabel = nullptr;
    QSpinBox* maxShapesSpin = nullptr;
    QRadioButton* unlabelledRadio = nullptr;
    QRadioButton* allRadio = nullptr;
    QRadioButton* currentRadio = nullptr;
    QTableWidget* mappingTable = nullptr;

public Q_SLOTS:
    void onBrowseModel();
    void onReadClasses();
    void onRun();
    void onOwnNames();
    void onSkipUnmatched();

protected:
    void handleOutputLine(const QString& line) override;
    void setRunning(bool running) override;

protected Q_SLOTS:
    void onProcessFinished(int exitCode, QProcess::ExitStatus status) override;

private:
    enum class Mode { Idle, Classes, Run };

    void buildUI();
    QWidget* buildConfiguration();
    QWidget* buildMapping();
    QStringList chosenImages() const;
    // The interpreter and the script, or empty after telling the user what is missing.
    QString pythonAndScript(QString* script);
    // decideDefault: the names are all the model has of their kind (see the .cpp).
    void addClasses(const QStringList& names, bool keypoint, bool decideDefault);
    QString sameNameLabel(const QString& name) const;
    void setRowLabel(int row, const QString& label);
    int mappingRow(const QString& name, bool keypoint) const;
    void handleResult(const QString& json);

    QList<QString> m_labelNames;
    Images m_images;
    Merge m_merge;
    Mode m_mode = Mode::Idle;
    QString m_python;
    QString m_classesModel; // the model the table lists the classes of
    QHash<QString, int> m_rows; // "c" + class or "k" + keypoint name -> table row
    bool m_skipUnmatched[2] = {false, false}; // classes, keypoints
    std::unique_ptr<QTemporaryFile> m_list;
    int m_total = 0;
    int m_done = 0;
    int m_proposed = 0;
    int m_withProposals = 0;
};
