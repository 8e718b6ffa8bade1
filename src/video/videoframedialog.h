#pragma once

#include <QDialog>
#include <QImage>
#include <QString>
#include <QStringList>

class QLabel;
class QPushButton;
class QSlider;
class QTimer;

// Frame viewer over a video file: shows one frame at a time, extracted by ffmpeg into a
// preview PNG in the temporary folder, and saves the frame shown into the images folder.
// The video's length and frame rate come from ffprobe, found beside ffmpeg.
class VideoFrameDialog : public QDialog {
    Q_OBJECT
public:
    VideoFrameDialog(const QString& videoPath, const QString& ffmpegPath,
                     const QString& imagesFolder, QWidget* parent = nullptr);
    ~VideoFrameDialog() override;

    // Reads duration and frame rate with ffprobe; on failure the reason is put in the
    // status label and false returned.
    bool getVideoInfo();
    // Writes the frame at `ms` to the preview file; true when ffmpeg wrote it in time.
    bool extractFrame(qint64 ms);
    // Makes the image in `path` the current frame; an unreadable file changes nothing.
    void showFrame(const QString& path);
    void updateDisplay();
    void updateInfoBar();
    // 03:07.042, or 1:03:07.042 from one hour on.
    static QString formatTime(qint64 ms);

    // Arguments of the two external programs, in the order they are passed.
    static QStringList probeArguments(const QString& videoPath);
    static QStringList frameArguments(qint64 ms, const QString& videoPath,
                                      const QString& previewPath);

    QString ffprobePath() const { return m_ffprobePath; }
    QString previewPath() const { return m_previewPath; }
    qint64 duration() const { return m_duration; }
    double frameRate() const { return m_frameRate; }
    qint64 frameStep() const { return m_frameStep; }
    qint64 position() const { return m_position; }
    QImage currentFrame() const { return m_currentFrame; }

    QLabel* statusLabel = nullptr;
    QLabel* frameLabel = nullptr;
    QLabel* infoLabel = nullptr;
    QSlider* slider = nullptr;
    QPushButton* addButton = nullptr;
    QPushButton* prevButton = nullptr;
    QPushButton* nextButton = nullptr;

public Q_SLOTS:
    // One frame step when `ms` is below 1.
    void stepForward(int ms = 0);
    void stepBackward(int ms = 0);
    void addToDataset();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void start();
    void onSliderReleased();
    void onSliderAction(int action);
    // Extracts and shows the frame at the current position and refreshes the info bar.
    void showPosition(bool moveSlider);
    void refreshInfoBar(bool moveSlider);
    QString readyText() const;

    QString m_videoPath;
    QString m_ffmpegPath;
    QString m_ffprobePath;
    QString m_imagesFolder;
    QString m_previewPath;
    qint64 m_duration = 0;
    double m_frameRate = 30.0;
    qint64 m_frameStep = 33;
    qint64 m_position = 0;
    QImage m_currentFrame;

    bool m_ready = false;
    bool m_seekPending = false;
    QString m_addStyle;
    QTimer* m_flashTimer = nullptr;
};
