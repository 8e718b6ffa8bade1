// One frame step in the frame viewer, from the key press to the new frame painted, on a
// 1920 x 1080 H.264 video of 60 s, stepping at 10 s, 30 s and 59 s; and, interleaved in the
// same run, what ffmpeg alone takes for the same extraction.
//
//   bench_videoframes [runs]   runs per time and direction (default 5)
//
// Two videos are made once with ffmpeg (libx264) and kept beside the executable for later
// runs: one with libx264's default key frame interval (250 frames, 10 s), on which a step
// at 59 s makes ffmpeg decode from the key frame at 50 s, and one with a key frame every
// second, as camera and streaming footage often has. Run with QT_QPA_PLATFORM=offscreen on machines without a
// display.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "app/theme.h"
#include "video/toollocator.h"
#include "video/videoframedialog.h"

namespace {

const int kTargetMs = 250;
const QList<qint64> kTimesMs{10000, 30000, 59000};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n == 0 ? 0.0 : n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

QString benchVideo(const QString& ffmpeg, const QString& name, const QStringList& keyFrames)
{
    const QString path = QCoreApplication::applicationDirPath() + '/' + name;
    if (QFileInfo(path).size() > 0)
        return path;
    std::printf("making %s (once)...\n", qPrintable(path));
    std::fflush(stdout);
    const QString partial = path + ".part.mp4";
    const ToolRun run = runTool(
        ffmpeg,
        QStringList{"-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=1920x1080:rate=25:duration=60",
         "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p"}
            + keyFrames + QStringList{partial},
        30 * 60 * 1000);
    if (!run.succeeded() || !QFile::rename(partial, path)) {
        QFile::remove(partial);
        return QString();
    }
    return path;
}

// Presses an arrow key on the viewer and returns the milliseconds until the new frame has
// been painted into the label.
double timedStep(VideoFrameDialog& viewer, Qt::Key key)
{
    QElapsedTimer clock;
    clock.start();
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QCoreApplication::sendEvent(&viewer, &press);
    viewer.frameLabel->repaint();
    return clock.nsecsElapsed() / 1e6;
}

// The viewer's own part of a step: reading the 1920 x 1080 preview, scaling and painting it.
double timedShow(VideoFrameDialog& viewer)
{
    QElapsedTimer clock;
    clock.start();
    viewer.showFrame(viewer.previewPath());
    viewer.frameLabel->repaint();
    return clock.nsecsElapsed() / 1e6;
}

double timedFfmpeg(const QString& ffmpeg, const QString& video, qint64 ms, const QString& out)
{
    QFile::remove(out);
    QElapsedTimer clock;
    clock.start();
    const ToolRun run = runTool(ffmpeg, VideoFrameDialog::frameArguments(ms, video, out), 30000);
    const double elapsed = clock.nsecsElapsed() / 1e6;
    return run.succeeded() && QFile::exists(out) ? elapsed : -1.0;
}

QString loadAverage()
{
    QFile file("/proc/loadavg");
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readLine()).trimmed()
                                          : QStringLiteral("unknown");
}

// Steps at each of the times on one video and prints one line per time.
bool benchOne(const QString& ffmpeg, const QString& video, const QTemporaryDir& scratch, int runs,
              bool& allUnder)
{
    const QString alone = scratch.filePath("alone.png");

    VideoFrameDialog viewer(video, ffmpeg, scratch.path());
    viewer.show();
    QElapsedTimer limit;
    limit.start();
    while (!viewer.addButton->isEnabled() && limit.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    if (!viewer.addButton->isEnabled() || viewer.duration() < 59000) {
        std::printf("the viewer did not open the video: %s\n", qPrintable(viewer.statusLabel->text()));
        return false;
    }

    std::printf("%-6s %28s %28s %8s %10s\n", "time", "viewer step median [min-max]",
                "ffmpeg alone median [min-max]", "ratio", "own part");
    for (qint64 t : kTimesMs) {
        viewer.stepForward(int(t - viewer.position())); // untimed: go to t
        if (viewer.position() != t)
            viewer.stepBackward(int(viewer.position() - t));
        std::vector<double> steps, tool, own;
        for (int i = 0; i < runs; ++i) {
            // Right then Left: both are one frame step next to t.
            steps.push_back(timedStep(viewer, Qt::Key_Right));
            own.push_back(timedShow(viewer));
            tool.push_back(timedFfmpeg(ffmpeg, video, t + viewer.frameStep(), alone));
            steps.push_back(timedStep(viewer, Qt::Key_Left));
            tool.push_back(timedFfmpeg(ffmpeg, video, t, alone));
        }
        if (std::count(tool.begin(), tool.end(), -1.0) > 0 || viewer.position() != t) {
            std::printf("extraction failed at %lld ms\n", static_cast<long long>(t));
            return false;
        }
        const double stepMedian = median(steps), toolMedian = median(tool);
        allUnder = allUnder && stepMedian < kTargetMs;
        std::printf("%4llds %12.0f ms [%4.0f-%4.0f] %12.0f ms [%4.0f-%4.0f] %8.2f %7.0f ms\n",
                    static_cast<long long>(t / 1000), stepMedian,
                    *std::min_element(steps.begin(), steps.end()),
                    *std::max_element(steps.begin(), steps.end()), toolMedian,
                    *std::min_element(tool.begin(), tool.end()),
                    *std::max_element(tool.begin(), tool.end()), stepMedian / toolMedian, median(own));
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    Theme::apply(app);
    const int runs = argc > 1 ? qMax(1, atoi(argv[1])) : 5;

    const QString ffmpeg = locateTool("ffmpeg");
    QTemporaryDir scratch;
    std::printf("load average at start: %s\n", qPrintable(loadAverage()));
    const QList<std::pair<QString, QStringList>> videos{
        {"videoframes_1080p_60s.mp4", {}}, {"videoframes_1080p_60s_gop25.mp4", {"-g", "25"}}};
    for (const auto& [name, keyFrames] : videos) {
        const QString video = benchVideo(ffmpeg, name, keyFrames);
        if (video.isEmpty()) {
            std::printf("could not make %s with %s (libx264 needed)\n", qPrintable(name), qPrintable(ffmpeg));
            return 1;
        }
        std::printf("%s\n", qPrintable(keyFrames.isEmpty() ? QStringLiteral("default key frames (every 10 s):")
                                                          : QStringLiteral("a key frame every second:")));
        bool allUnder = true;
        if (!benchOne(ffmpeg, video, scratch, runs, allUnder))
            return 1;
        std::printf("frame step median under %d ms at every time: %s\n", kTargetMs, allUnder ? "yes" : "no");
    }
    std::printf("load average at end: %s\n", qPrintable(loadAverage()));
    return 0;
}
