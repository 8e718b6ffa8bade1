#pragma once

#include <QDialog>
#include <QString>

class QLineEdit;

// Asks for the video file whose frames the frame viewer will show.
class VideoPickerDialog : public QDialog {
    Q_OBJECT
public:
    explicit VideoPickerDialog(QWidget* parent);

    QString videoPath() const;

    QLineEdit* pathEdit = nullptr;

public Q_SLOTS:
    void onBrowse();
    void onContinue();
};
