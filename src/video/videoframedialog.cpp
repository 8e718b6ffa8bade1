#include "video/videoframedialog.h"

#include <QBuffer>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

#include "model/atomicbatch.h"
#include "model/imageloading.h"
#include "ui/userprompts.h"
#include "video/toollocator.h"

namespace {

constexpr int kProbeTimeoutMs = 8000;
constexpr int kFrameTimeoutMs = 5000;
constexpr int kStartDelayMs = 50;
constexpr int kSavedFlashMs = 1200;
constexpr int kSliderRange = 10000;
constexpr double kMaxFrameRate = 240.0;
constexpr double kDefaultFrameRate = 30.0;

const char kArrowStyle[] =
    "QPushButton { color:#aaaaaa; font-size:20px; font-weight:bold; border:1px solid #555; "
    "border-radius:4px; background:#2a2a2a; padding:12px 4px; }"
    "QPushButton:hover { color:white; border-color:white; }"
    "QPushButton:disabled { color:#444; border-color:#333; }";
const char kAddStyle[] =
    "QPushButton { font-weight:bold; font-size:13px; padding:6px 18px; color:white; "
    "background:#2a7a2a; border:none; border-radius:4px; }"
    "QPushButton:hover { background:#3a9a3a; }"
    "QPushButton:disabled { background:#444; color:#888; }";
const char kSavedStyle[] =
    "QPushButton { font-weight:bold; font-size:13px; padding:6px 18px; color:white; "
    "background:#2a5a9a; border:none; border-radius:4px; }";

// ffprobe writes durations as strings of seconds; a number is accepted as well.
double secondsOf(const QJsonValue& value)
{
    return value.isString() ? value.toString().toDouble() : value.toDouble();
}

// "HH:MM:SS.fffffffff", the form Matroska and WebM streams carry in their tags.
double clockSeconds(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() != 3)
        return 0.0;
    return parts[0].toDouble() * 3600.0 + parts[1].toDouble() * 60.0 + parts[2].toDouble();
}

QString twoDigits(qint64 value) { return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')); }

// The ffprobe path that goes with `ffmpegPath`: the same folder, "ffmpeg" in the file name
// replaced by "ffprobe". A bare name, or no such file, means ffprobe on the PATH.
QString ffprobeBeside(const QString& ffmpegPath)
{
    const QFileInfo info(ffmpegPath);
    if (!ffmpegPath.contains(QLatin1Char('/')) && !ffmpegPath.contains(QLatin1Char('\\')))
        return QStringLiteral("ffprobe");
    const QString candidate = info.path() + QLatin1Char('/')
                              + info.fileName().replace(QLatin1String("ffmpeg"),
                                                        QLatin1String("ffprobe"));
    return QFileInfo(candidate).isFile() ? candidate : QStringLiteral("ffprobe");
}

} // namespace

VideoFrameDialog::VideoFrameDialog(const QString& videoPath, const QString& ffmpegPath,
                                   const QString& imagesFolder, QWidget* parent)
    : QDialog(parent)
    , m_videoPath(videoPath)
    , m_ffmpegPath(ffmpegPath)
    , m_ffprobePath(ffprobeBeside(ffmpegPath))
    , m_imagesFolder(imagesFolder)
    , m_previewPath(QDir::tempPath() + QStringLiteral("/brindle_frame_preview.png"))
{
    setWindowTitle(QStringLiteral("Extract Video Frames  -  ") + QFileInfo(videoPath).fileName());
    setModal(true);
    resize(900, 620);
    setMinimumSize(700, 500);
    setFocusPolicy(Qt::StrongFocus);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(10);
    layout->setContentsMargins(16, 16, 16, 16);

    statusLabel = new QLabel(QStringLiteral("Reading video info..."), this);
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    statusLabel->setAlignment(Qt::AlignCenter);
    statusLabel->setStyleSheet(QStringLiteral("font-size: 12px; color: #aaaaaa;"));
    layout->addWidget(statusLabel);

    auto* frameArea = new QFrame(this);
    frameArea->setObjectName(QStringLiteral("frameArea"));
    frameArea->setStyleSheet(QStringLiteral("background: #1a1a1a;"));
    auto* frameRow = new QHBoxLayout(frameArea);
    frameRow->setContentsMargins(0, 0, 0, 0);
    prevButton = new QPushButton(QStringLiteral("<"), frameArea);
    prevButton->setObjectName(QStringLiteral("prevButton"));
    nextButton = new QPushButton(QStringLiteral(">"), frameArea);
    nextButton->setObjectName(QStringLiteral("nextButton"));
    for (QPushButton* arrow : {prevButton, nextButton}) {
        arrow->setFixedWidth(44);
        arrow->setStyleSheet(QLatin1String(kArrowStyle));
        arrow->setEnabled(false);
        arrow->setFocusPolicy(Qt::NoFocus);
        arrow->setAutoDefault(false);
    }
    frameLabel = new QLabel(QStringLiteral("Loading first frame..."), frameArea);
    frameLabel->setObjectName(QStringLiteral("frameLabel"));
    frameLabel->setAlignment(Qt::AlignCenter);
    frameLabel->setMinimumSize(640, 380);
    frameLabel->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    frameLabel->setStyleSheet(
        QStringLiteral("border:4px solid white; background:#111; color:#666; font-size:13px;"));
    frameRow->addWidget(prevButton);
    frameRow->addWidget(frameLabel, 1);
    frameRow->addWidget(nextButton);
    layout->addWidget(frameArea, 1);

    infoLabel = new QLabel(QStringLiteral("Frame: \u2014 / \u2014    Time: \u2014"), this);
    infoLabel->setObjectName(QStringLiteral("infoLabel"));
    infoLabel->setAlignment(Qt::AlignCenter);
    infoLabel->setStyleSheet(QStringLiteral("font-size:11px; color:#aaaaaa;"));
    layout->addWidget(infoLabel);

    slider = new QSlider(Qt::Horizontal, this);
    slider->setObjectName(QStringLiteral("positionSlider"));
    slider->setRange(0, kSliderRange);
    slider->setValue(0);
    slider->setEnabled(false);
    slider->setToolTip(QStringLiteral("Drag to jump to any position"));
    slider->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(slider);

    auto* buttons = new QHBoxLayout;
    addButton = new QPushButton(QStringLiteral("Add to Dataset"), this);
    addButton->setObjectName(QStringLiteral("addButton"));
    m_addStyle = QLatin1String(kAddStyle);
    addButton->setStyleSheet(m_addStyle);
    addButton->setEnabled(false);
    addButton->setFocusPolicy(Qt::NoFocus);
    addButton->setAutoDefault(false);
    auto* closeButton = new QPushButton(QStringLiteral("Close"), this);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    closeButton->setStyleSheet(QStringLiteral("QPushButton { padding:6px 16px; }"));
    closeButton->setAutoDefault(false);
    closeButton->setDefault(false);
    // A focused button would turn the arrow keys into focus moves; the dialog keeps the
    // focus so that they always step (Escape closes).
    closeButton->setFocusPolicy(Qt::NoFocus);
    buttons->addWidget(addButton);
    buttons->addStretch();
    buttons->addWidget(closeButton);
    layout->addLayout(buttons);
    // The frame label's own minimum with the arrows beside it needs more than 700 x 500;
    // never let the window cut them off.
    layout->setSizeConstraint(QLayout::SetMinimumSize);

    m_flashTimer = new QTimer(this);
    m_flashTimer->setSingleShot(true);
    m_flashTimer->setInterval(kSavedFlashMs);
    connect(m_flashTimer, &QTimer::timeout, this, [this] {
        addButton->setText(QStringLiteral("Add to Dataset"));
        addButton->setStyleSheet(m_addStyle);
    });

    connect(prevButton, &QPushButton::clicked, this, [this] { stepBackward(0); });
    connect(nextButton, &QPushButton::clicked, this, [this] { stepForward(0); });
    connect(slider, &QSlider::sliderReleased, this, &VideoFrameDialog::onSliderReleased);
    connect(slider, &QSlider::actionTriggered, this, &VideoFrameDialog::onSliderAction);
    connect(addButton, &QPushButton::clicked, this, &VideoFrameDialog::addToDataset);
    connect(closeButton, &QPushButton::clicked, this, &QDialog::accept);

    // Deferred so that the dialog is on screen while ffprobe and ffmpeg run.
    QTimer::singleShot(kStartDelayMs, this, &VideoFrameDialog::start);
}

VideoFrameDialog::~VideoFrameDialog()
{
    QFile::remove(m_previewPath);
}

QStringList VideoFrameDialog::probeArguments(const QString& videoPath)
{
    return {QStringLiteral("-v"), QStringLiteral("quiet"), QStringLiteral("-print_format"),
            QStringLiteral("json"), QStringLiteral("-show_streams"),
            QStringLiteral("-select_streams"), QStringLiteral("v:0"), videoPath};
}

QStringList VideoFrameDialog::frameArguments(qint64 ms, const QString& videoPath,
                                             const QString& previewPath)
{
    // -ss before -i: ffmpeg seeks in the input instead of decoding up to the time.
    return {QStringLiteral("-y"), QStringLiteral("-ss"), QString::number(ms / 1000.0, 'f', 3),
            QStringLiteral("-i"), videoPath, QStringLiteral("-vframes"), QStringLiteral("1"),
            QStringLiteral("-q:v"), QStringLiteral("2"), previewPath};
}

void VideoFrameDialog::start()
{
    setFocus();
    if (!getVideoInfo()) {
        frameLabel->setText(QStringLiteral("No frame to show"));
        return;
    }
    if (extractFrame(0))
        showFrame(m_previewPath);
    refreshInfoBar(true);
    prevButton->setEnabled(false);
    nextButton->setEnabled(m_frameStep < m_duration);
    slider->setEnabled(true);
    addButton->setEnabled(true);
    m_ready = true;
    if (m_currentFrame.isNull()) {
        frameLabel->setText(QStringLiteral("No frame to show"));
        statusLabel->setText(QStringLiteral("Could not extract the frame at %1.").arg(formatTime(0)));
    } else {
        statusLabel->setText(readyText());
    }
}

QString VideoFrameDialog::readyText() const
{
    return QStringLiteral("Duration: %1  |  \u2190 \u2192 = one frame  |  Shift+\u2190\u2192 = 1 second")
        .arg(formatTime(m_duration));
}

bool VideoFrameDialog::getVideoInfo()
{
    const ToolRun run = runTool(m_ffprobePath, probeArguments(m_videoPath), kProbeTimeoutMs);
    if (!run.finished) {
        statusLabel->setText(QStringLiteral("Could not read video info. Is ffprobe available?"));
        return false;
    }
    const QJsonObject root = QJsonDocument::fromJson(run.output).object();
    const QJsonArray streams = root.value(QLatin1String("streams")).toArray();
    if (streams.isEmpty()) {
        statusLabel->setText(QStringLiteral("No video stream found in file."));
        return false;
    }
    const QJsonObject stream = streams.first().toObject();

    double seconds = secondsOf(stream.value(QLatin1String("duration")));
    if (!(seconds > 0.0))
        seconds = secondsOf(root.value(QLatin1String("format")).toObject().value(QLatin1String("duration")));
    if (!(seconds > 0.0)) {
        const QJsonObject tags = stream.value(QLatin1String("tags")).toObject();
        seconds = clockSeconds(tags.value(QLatin1String("DURATION")).toString());
    }
    // Truncate the decimal value: 2.002 s is 2002 ms, although 2.002 * 1000 is 2001.99...
    m_duration = seconds > 0.0 ? qint64(std::floor(seconds * 1000.0 + 1e-6)) : 0;

    const QString rate = stream.value(QLatin1String("r_frame_rate")).toString();
    const int slash = rate.indexOf(QLatin1Char('/'));
    if (slash >= 0) {
        const double numerator = rate.left(slash).toDouble();
        const double denominator = rate.mid(slash + 1).toDouble();
        if (denominator > 0.0)
            m_frameRate = numerator / denominator;
    }
    if (!(m_frameRate > 0.0 && m_frameRate <= kMaxFrameRate))
        m_frameRate = kDefaultFrameRate;
    m_frameStep = qMax<qint64>(1, qint64(1000.0 / m_frameRate));
    return true;
}

bool VideoFrameDialog::extractFrame(qint64 ms)
{
    // A preview left from the previous frame must not pass for this one: one that cannot
    // be removed (another user's, in a shared temporary folder) is no frame of this video.
    if (!QFile::remove(m_previewPath) && QFileInfo::exists(m_previewPath))
        return false;
    QElapsedTimer clock;
    clock.start();
    ToolRun run = runTool(m_ffmpegPath, frameArguments(ms, m_videoPath, m_previewPath),
                          kFrameTimeoutMs);
    // ffmpeg hands out the first frame at or after the time asked for, so a time inside the
    // last frame finds none and ffmpeg ends without writing anything. One frame step earlier
    // lies at or before the start of that last frame; the retry shares the time limit.
    const qint64 left = kFrameTimeoutMs - clock.elapsed();
    if (run.succeeded() && ms > 0 && !QFileInfo::exists(m_previewPath) && left > 0)
        run = runTool(m_ffmpegPath,
                      frameArguments(qMax<qint64>(0, ms - m_frameStep), m_videoPath, m_previewPath),
                      int(left));
    return run.finished && QFileInfo::exists(m_previewPath);
}

void VideoFrameDialog::showFrame(const QString& path)
{
    const QImage image = ImageLoading::read(path);
    if (image.isNull())
        return;
    m_currentFrame = image;
    updateDisplay();
}

void VideoFrameDialog::updateDisplay()
{
    if (m_currentFrame.isNull())
        return;
    // Inside the label's 4-pixel border.
    const QSize room = frameLabel->size() - QSize(8, 8);
    if (room.isEmpty())
        return;
    frameLabel->setPixmap(QPixmap::fromImage(
        m_currentFrame.scaled(room, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

void VideoFrameDialog::updateInfoBar()
{
    refreshInfoBar(true);
}

void VideoFrameDialog::refreshInfoBar(bool moveSlider)
{
    const qint64 frameNumber = m_frameStep < 1 ? 1 : m_position / m_frameStep + 1;
    const qint64 frameCount = m_frameStep < 1 ? 0 : m_duration / m_frameStep;
    infoLabel->setText(QStringLiteral("Frame: %1 / %2    Time: %3 / %4")
                           .arg(frameNumber)
                           .arg(frameCount)
                           .arg(formatTime(m_position), formatTime(m_duration)));
    if (moveSlider && !slider->isSliderDown() && m_duration > 0)
        slider->setValue(int(m_position * kSliderRange / m_duration));
    prevButton->setEnabled(m_position > 0);
    nextButton->setEnabled(m_duration <= 0 || m_position + m_frameStep < m_duration);
}

QString VideoFrameDialog::formatTime(qint64 ms)
{
    const qint64 hours = ms / 3600000;
    const qint64 minutes = ms / 60000 % 60;
    const qint64 seconds = ms / 1000 % 60;
    const QString millis = QStringLiteral("%1").arg(ms % 1000, 3, 10, QLatin1Char('0'));
    if (hours > 0)
        return QStringLiteral("%1:%2:%3.%4")
            .arg(QString::number(hours), twoDigits(minutes), twoDigits(seconds), millis);
    return QStringLiteral("%1:%2.%3").arg(twoDigits(minutes), twoDigits(seconds), millis);
}

void VideoFrameDialog::showPosition(bool moveSlider)
{
    if (extractFrame(m_position)) {
        showFrame(m_previewPath);
        statusLabel->setText(readyText());
    } else {
        // The picture shown stays; the position moves on.
        statusLabel->setText(
            QStringLiteral("Could not extract the frame at %1.").arg(formatTime(m_position)));
    }
    refreshInfoBar(moveSlider);
}

void VideoFrameDialog::stepForward(int ms)
{
    if (!m_ready)
        return;
    const qint64 step = ms < 1 ? m_frameStep : ms;
    qint64 target = m_position + step;
    if (m_duration >= 1)
        target = qMin(target, m_duration - 1);
    if (target == m_position)
        return;
    m_position = target;
    showPosition(true);
}

void VideoFrameDialog::stepBackward(int ms)
{
    if (!m_ready)
        return;
    const qint64 step = ms < 1 ? m_frameStep : ms;
    const qint64 target = qMax<qint64>(0, m_position - step);
    if (target == m_position)
        return;
    m_position = target;
    showPosition(true);
}

void VideoFrameDialog::onSliderReleased()
{
    if (!m_ready || m_duration <= 0)
        return;
    // The far right end is the last millisecond, as when stepping.
    const qint64 target = qMin(m_duration * slider->value() / kSliderRange, m_duration - 1);
    if (target == m_position)
        return;
    m_position = target;
    showPosition(false);
}

void VideoFrameDialog::onSliderAction(int action)
{
    // A click beside the handle or the wheel moves the slider without a drag and release:
    // seek there too, once the new value has been applied. Actions that arrive while a
    // frame is being extracted end in one seek.
    if (action == QAbstractSlider::SliderNoAction || slider->isSliderDown() || m_seekPending)
        return;
    m_seekPending = true;
    QTimer::singleShot(0, this, [this] {
        m_seekPending = false;
        if (!slider->isSliderDown())
            onSliderReleased();
    });
}

void VideoFrameDialog::addToDataset()
{
    if (m_currentFrame.isNull())
        return;
    // Without a dataset the frames go to the working folder, as the command announced.
    const QString folder = m_imagesFolder.isEmpty() ? QDir::currentPath() : m_imagesFolder;
    if (!QFileInfo(folder).isDir()) {
        UserPrompts::current().warning(
            this, QStringLiteral("No images folder"),
            QStringLiteral("Load a dataset first so Brindle knows where to save frames."));
        return;
    }
    const QString name = QStringLiteral("brindle_")
                         + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_HHmmss_zzz"))
                         + QStringLiteral(".png");
    const QString path = QDir(folder).absoluteFilePath(name);
    QByteArray png;
    QBuffer buffer(&png);
    QString error;
    const bool saved = buffer.open(QIODevice::WriteOnly) && m_currentFrame.save(&buffer, "PNG")
                       && AtomicBatch::writeFile(path, png, &error);
    if (!saved) {
        UserPrompts::current().warning(this, QStringLiteral("Save failed"),
                                       QStringLiteral("Could not save:\n") + path
                                           + (error.isEmpty() ? QString() : u'\n' + error));
        return;
    }
    addButton->setText(QStringLiteral("Saved!"));
    addButton->setStyleSheet(QLatin1String(kSavedStyle));
    m_flashTimer->start();
}

void VideoFrameDialog::resizeEvent(QResizeEvent* event)
{
    QDialog::resizeEvent(event);
    updateDisplay();
}

void VideoFrameDialog::keyPressEvent(QKeyEvent* event)
{
    const int ms = (event->modifiers() & Qt::ShiftModifier) ? 1000 : 0;
    switch (event->key()) {
    case Qt::Key_Left:
        stepBackward(ms);
        return;
    case Qt::Key_Right:
        stepForward(ms);
        return;
    case Qt::Key_Escape:
        accept();
        return;
    default:
        QDialog::keyPressEvent(event);
    }
}
