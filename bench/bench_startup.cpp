// Start-up time to a shown, painted main window.
//
//   bench_startup            runs the whole program start several times as child
//                            processes (exec to first paint) and the window part
//                            several times in this process; prints "startup: N ms"
//   bench_startup --once     one start: application, theme, window, show, first paint;
//                            prints the microseconds since main began and exits
//
// Run with QT_QPA_PLATFORM=offscreen on machines without a display.

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QStringList>
#include <QWindow>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "app/mainwindow.h"
#include "app/theme.h"

namespace {

const int kProcessRuns = 5;
const int kWindowRuns = 8;
const int kTargetMs = 300;

// Watches for the first paint of the window.
class PaintWatch : public QObject {
public:
    bool painted = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            painted = true;
        return QObject::eventFilter(watched, event);
    }
};

// Builds, shows and waits for the first paint of a main window; returns false when
// that does not happen within five seconds.
bool showWindowAndWaitForPaint()
{
    MainWindow window;
    PaintWatch watch;
    window.installEventFilter(&watch);
    window.show();
    QElapsedTimer limit;
    limit.start();
    while (!(watch.painted && window.windowHandle() && window.windowHandle()->isExposed())) {
        if (limit.elapsed() > 5000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

int runOnce(int argc, char** argv, const QElapsedTimer& sinceMain)
{
    QApplication app(argc, argv);
    Theme::apply(app);
    if (!showWindowAndWaitForPaint()) {
        std::fprintf(stderr, "window was not painted\n");
        return 1;
    }
    std::printf("%lld\n", static_cast<long long>(sinceMain.nsecsElapsed() / 1000));
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QElapsedTimer sinceMain;
    sinceMain.start();
    if (argc > 1 && !std::strcmp(argv[1], "--once"))
        return runOnce(argc, argv, sinceMain);

    QApplication app(argc, argv);
    Theme::apply(app);
    const qint64 toTheme = sinceMain.nsecsElapsed();

    // Whole program: from starting a child process to its first painted window, as the
    // parent sees it (process creation and dynamic loading included), and from the
    // child's main to that paint, as the child reports it.
    std::vector<double> processMs;
    std::vector<double> inMainMs;
    for (int i = 0; i < kProcessRuns; ++i) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QElapsedTimer t;
        t.start();
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--once")});
        if (!child.waitForReadyRead(30000)) {
            std::fprintf(stderr, "child run %d printed nothing\n", i);
            return 1;
        }
        processMs.push_back(t.nsecsElapsed() / 1e6);
        if (!child.waitForFinished(30000) || child.exitCode() != 0) {
            std::fprintf(stderr, "child run %d failed\n", i);
            return 1;
        }
        inMainMs.push_back(child.readAllStandardOutput().trimmed().toDouble() / 1000.0);
    }

    // Window part only, in this process: the first run pays for fonts and style caches.
    std::vector<double> windowMs;
    for (int i = 0; i < kWindowRuns; ++i) {
        QElapsedTimer t;
        t.start();
        if (!showWindowAndWaitForPaint()) {
            std::fprintf(stderr, "window was not painted\n");
            return 1;
        }
        windowMs.push_back(t.nsecsElapsed() / 1e6);
    }

    const double startup = median(processMs);
    std::printf("application + theme (this process): %.1f ms\n", toTheme / 1e6);
    std::printf("process start to painted window, %d runs: median %.1f ms (min %.1f, max %.1f)\n",
                kProcessRuns, startup, *std::min_element(processMs.begin(), processMs.end()),
                *std::max_element(processMs.begin(), processMs.end()));
    std::printf("main() to painted window, %d runs: median %.1f ms\n", kProcessRuns,
                median(inMainMs));
    std::printf("window build + show + paint in one process, %d runs: first %.1f ms, median "
                "of the rest %.1f ms\n",
                kWindowRuns, windowMs.front(),
                median(std::vector<double>(windowMs.begin() + 1, windowMs.end())));
    std::printf("startup: %.0f ms (target < %d ms: %s)\n", startup, kTargetMs,
                startup < kTargetMs ? "met" : "MISSED");
    return 0;
}
