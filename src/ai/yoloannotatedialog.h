#pragma once

#include "ai/airundialog.h"

class QComboBox;
class QLineEdit;

// Runs a YOLO model over every frame of a video through "yolo_annotate_video.py", which
// writes a copy of the video with the detections drawn on it into the output folder.
class YoloAnnotateDialog : public AiRunDialog {
    Q_OBJECT
public:
    explicit YoloAnnotateDialog(QWidget* parent = nullptr);

    QComboBox* versionCombo = nullptr;
    QLineEdit* modelEdit = nullptr;
    QLineEdit* videoEdit = nullptr;
    QLineEdit* outputEdit = nullptr;

public Q_SLOTS:
    void onBrowseModel();
    void onBrowseVideo();
    void onBrowseOutput();
    void onRun();

protected:
    void handleOutputLine(const QString& line) override;
    void setRunning(bool running) override;

protected Q_SLOTS:
    void onProcessFinished(int exitCode, QProcess::ExitStatus status) override;

private:
    void buildUI();
};
