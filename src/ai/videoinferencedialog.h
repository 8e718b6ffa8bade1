#pragma once

#include <QList>
#include <QString>

#include "ai/airundialog.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QSlider;
class QSpinBox;
class QTimer;

// Runs a YOLO model over a video through "yolo_inference.py" and keeps the frames in
// which the chosen labels are (or, in inverse mode, are not) detected, with a live
// preview of the helper's current frame.
class VideoInferenceDialog : public AiRunDialog {
    Q_OBJECT
public:
    VideoInferenceDialog(const QList<QString>& labelNames, QWidget* parent = nullptr);
    ~VideoInferenceDialog() override;

    // Handles one line of the helper's output protocol.
    void parseLine(const QString& line);

    // Where the helper writes the frame it is working on.
    static QString previewImagePath();

    QComboBox* versionCombo = nullptr;
    QLineEdit* modelEdit = nullptr;
    QLineEdit* videoEdit = nullptr;
    QLineEdit* outputEdit = nullptr;
    QListWidget* labelList = nullptr;
    QLineEdit* addLabelEdit = nullptr;
    QSlider* confSlider = nullptr;
    QLabel* confValueLabel = nullptr;
    QCheckBox* frameSkipCheck = nullptr;
    QSpinBox* frameSkipSpin = nullptr;
    QCheckBox* saveXmlCheck = nullptr;
    QCheckBox* invertCheck = nullptr;
    QLabel* previewLabel = nullptr;
    QString outputFolder;
    QTimer* previewTimer = nullptr;
    int savedCount = 0;

public Q_SLOTS:
    void onBrowseModel();
    void onBrowseVideo();
    void onBrowseOutput();
    void onConfSlider(int value);
    void onAddLabel();
    void onSelectAll();
    void onClearAll();
    void onRemoveLabel();
    void onPreviewTick();
    void onRun();

protected:
    void handleOutputLine(const QString& line) override;
    void outputHandled() override;
    void setRunning(bool running) override;

protected Q_SLOTS:
    void onProcessFinished(int exitCode, QProcess::ExitStatus status) override;

private:
    void buildUI();
    QStringList helperArguments() const;
    void showSavedFrame(const QString& file);

    // While the helper's output is read in a burst, only its newest saved frame is
    // loaded, at the end of the burst.
    bool m_inBurst = false;
    QString m_pendingFrame;
};
