// How fast the window answers at sizes users reach: a million images, 24-megapixel
// photos walked at one a second, a 200-megapixel photo.
//
//   bench_instant [million|walk|huge|reads|all] [--dir FOLDER]
//       million: starts the program on a folder of a million (tiny, hard-linked) images
//                three times as a child process: first image on screen after launch, peak
//                memory, and the longest stall of keys and list scrolling while the
//                background scan runs
//       walk:    key press to painted image walking through 24-megapixel JPEGs at one
//                image a second (neighbours decoded ahead), and the same without waiting
//                between keys
//       huge:    key press to a 200-megapixel JPEG on screen, and to its full resolution
//       reads:   reading every annotation file of a dataset on one thread and on all:
//                both rates and their ratio, paired run by run
//   bench_instant --child-million FOLDER      one start (used by million)
//
// Folders are made under the system's temporary folder and removed afterwards unless
// --dir names one. Run with QT_QPA_PLATFORM=offscreen on machines without a display.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QKeyEvent>
#include <QPainter>
#include <QProcess>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "app/theme.h"
#include "canvas/imagecanvas.h"
#include "formats/datasetreading.h"
#include "model/imagecache.h"
#include "model/vocxml.h"

namespace {

constexpr int kMillion = 1000000;

long peakRssMb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong() / 1024;
    return -1;
}

// CPU time of the calling thread in ms: on a shared, loaded machine the GUI thread's own
// work is a steadier figure than the wall clock, which also counts waiting for a core.
double threadCpuMs()
{
    rusage usage {};
    getrusage(RUSAGE_THREAD, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n == 0 ? 0 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

void printSpread(const char* what, const std::vector<double>& v, const char* unit)
{
    std::printf("%s: median %.1f %s (min %.1f, max %.1f, %zu runs)\n", what, median(v), unit,
                *std::min_element(v.begin(), v.end()), *std::max_element(v.begin(), v.end()),
                v.size());
}

// Counts the paints of a widget.
class PaintCount : public QObject {
public:
    int paints = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return QObject::eventFilter(watched, event);
    }
};

// Runs events until the canvas has painted once more (and `done` holds), or 20 s pass.
template <typename Done>
bool waitForPaint(ImageCanvas* canvas, PaintCount& count, int before, Done done)
{
    QElapsedTimer limit;
    limit.start();
    while (!(count.paints > before && done())) {
        if (limit.elapsed() > 20000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    Q_UNUSED(canvas);
    return true;
}

void pressKey(QWidget* window, int key)
{
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
    QCoreApplication::sendEvent(window, &press);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
    QCoreApplication::sendEvent(window, &release);
}

// --- A million images ------------------------------------------------------------------

bool makeMillionFolder(const QString& folder)
{
    QDir().mkpath(folder);
    QImage tiny(64, 48, QImage::Format_RGB32);
    tiny.fill(QColor(90, 120, 150));
    // A file system allows some tens of thousands of links to one file: one source per
    // 50,000 names.
    QString source;
    for (int i = 0; i < kMillion; ++i) {
        if (i % 50000 == 0) {
            source = folder + QStringLiteral("/.source%1.jpg").arg(i / 50000);
            if (!tiny.save(source, "JPEG"))
                return false;
        }
        const QByteArray target =
            QFile::encodeName(folder + QStringLiteral("/img_%1.jpg").arg(i, 7, 10, QLatin1Char('0')));
        if (::link(QFile::encodeName(source).constData(), target.constData()) != 0)
            return false;
    }
    return true;
}

int childMillion(int argc, char** argv, const QElapsedTimer& sinceMain)
{
    QApplication app(argc, argv);
    Theme::apply(app);
    MainWindow window;
    window.resize(1400, 900);
    PaintCount canvasPaints;
    window.canvas->installEventFilter(&canvasPaints);
    window.show();
    window.openDataset(QString::fromLocal8Bit(argv[2]));
    if (!waitForPaint(window.canvas, canvasPaints, 0, [&] { return window.canvas->hasImage(); })) {
        std::fprintf(stderr, "first image not painted\n");
        return 1;
    }
    const double firstImageMs = sinceMain.nsecsElapsed() / 1e6;
    const double firstImageCpuMs = threadCpuMs();
    const long rssAtFirst = peakRssMb();

    // While the scan runs: every 120 ms either the next image by key or a jump of the list
    // to another place; a 5 ms timer measures how late the event loop comes round.
    double worstGap = 0;
    double worstKey = 0;
    double worstScroll = 0;
    QElapsedTimer sinceTick;
    sinceTick.start();
    QTimer ticker;
    ticker.setInterval(5);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        worstGap = std::max(worstGap, sinceTick.nsecsElapsed() / 1e6 - 5.0);
        sinceTick.restart();
    });
    ticker.start();
    QScrollBar* bar = window.imageList->verticalScrollBar();
    QElapsedTimer run;
    run.start();
    int step = 0;
    while (run.elapsed() < 8000) {
        QElapsedTimer pause;
        pause.start();
        while (pause.elapsed() < 120)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QElapsedTimer op;
        op.start();
        const int paints = canvasPaints.paints;
        if (++step % 2) {
            pressKey(&window, Qt::Key_Right);
            waitForPaint(window.canvas, canvasPaints, paints, [] { return true; });
            worstKey = std::max(worstKey, op.nsecsElapsed() / 1e6);
        } else {
            bar->setValue(QRandomGenerator::global()->bounded(bar->maximum() + 1));
            window.imageList->viewport()->repaint();
            worstScroll = std::max(worstScroll, op.nsecsElapsed() / 1e6);
        }
        sinceTick.restart(); // the operation itself is measured above
    }
    std::printf("%.1f %ld %.1f %.1f %.1f %d %ld %.1f\n", firstImageMs, rssAtFirst, worstKey,
                worstScroll, worstGap, window.scanIndex, peakRssMb(), firstImageCpuMs);
    return 0;
}

void benchMillion(const QString& given)
{
    QTemporaryDir temp;
    QString folder = given;
    if (folder.isEmpty()) {
        folder = temp.filePath(QStringLiteral("million"));
        std::printf("making a folder of %d images (hard links)...\n", kMillion);
        std::fflush(stdout);
        if (!makeMillionFolder(folder)) {
            std::printf("could not make the folder\n");
            return;
        }
    }
    std::vector<double> first, firstCpu, rss, key, scroll, gap;
    for (int run = 0; run < 3; ++run) {
        QDir(folder + QStringLiteral("/annotations")).removeRecursively();
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--child-million"), folder});
        if (!child.waitForFinished(300000) || child.exitCode() != 0) {
            std::printf("run %d failed\n", run);
            return;
        }
        const QList<QByteArray> f = child.readAllStandardOutput().trimmed().split(' ');
        if (f.size() < 8)
            return;
        first.push_back(f[0].toDouble());
        firstCpu.push_back(f[7].toDouble());
        rss.push_back(f[6].toDouble());
        key.push_back(f[2].toDouble());
        scroll.push_back(f[3].toDouble());
        gap.push_back(f[4].toDouble());
        std::printf("  run %d: first image %.0f ms, peak RSS at first image %s MB, at end %s MB, "
                    "scan reached %s\n",
                    run, f[0].toDouble(), f[1].constData(), f[6].constData(), f[5].constData());
    }
    std::printf("A million images:\n");
    printSpread("  launch to first image painted", first, "ms");
    printSpread("    GUI thread CPU time for it", firstCpu, "ms");
    printSpread("  peak RSS", rss, "MB");
    printSpread("  worst key (next image) during the scan", key, "ms");
    printSpread("  worst list jump + repaint during the scan", scroll, "ms");
    printSpread("  worst event-loop lateness during the scan", gap, "ms");
    QDir(folder + QStringLiteral("/annotations")).removeRecursively();
}


// --- Photos --------------------------------------------------------------------------

// A photo-like picture: smooth light, edges and fine texture, so that the JPEG has the
// size and decoding cost of a real photo rather than of a flat colour.
bool writePhoto(const QString& path, const QSize& size, int variant)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient light(0, 0, size.width(), size.height());
    light.setColorAt(0, QColor::fromHsv((variant * 40) % 360, 120, 230));
    light.setColorAt(1, QColor::fromHsv((variant * 40 + 150) % 360, 200, 60));
    p.fillRect(image.rect(), light);
    QRandomGenerator random(variant + 1);
    for (int i = 0; i < 400; ++i) {
        const int w = size.width() / 20 + random.bounded(size.width() / 6);
        const int h = size.height() / 20 + random.bounded(size.height() / 6);
        p.setPen(QPen(QColor::fromRgb(random.generate()), 1 + random.bounded(8)));
        p.setBrush(QColor::fromRgba((random.generate() & 0x00ffffff) | 0x60000000));
        p.drawEllipse(random.bounded(size.width()), random.bounded(size.height()), w, h);
    }
    p.end();
    // Grain on every row: what a sensor leaves and a JPEG has to keep.
    for (int y = 0; y < size.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        quint32 seed = quint32(y) * 2654435761u + quint32(variant);
        for (int x = 0; x < size.width(); ++x) {
            seed = seed * 1664525u + 1013904223u;
            const int grain = int(seed >> 28) - 8;
            const QRgb c = line[x];
            line[x] = qRgb(qBound(0, qRed(c) + grain, 255), qBound(0, qGreen(c) + grain, 255),
                           qBound(0, qBlue(c) + grain, 255));
        }
    }
    QImageWriter writer(path, "jpeg");
    writer.setQuality(90);
    return writer.write(image);
}

struct Window {
    MainWindow window;
    PaintCount paints;
    Window()
    {
        window.resize(1400, 900);
        window.canvas->installEventFilter(&paints);
        window.show();
    }
    double lastCpuMs = 0;
    // Key press to the canvas's next paint, in ms (and the GUI thread's CPU time for it
    // in lastCpuMs).
    double keyToPaint(int key)
    {
        QElapsedTimer t;
        t.start();
        const double cpu = threadCpuMs();
        const int before = paints.paints;
        pressKey(&window, key);
        if (!waitForPaint(window.canvas, paints, before, [] { return true; }))
            return -1;
        lastCpuMs = threadCpuMs() - cpu;
        return t.nsecsElapsed() / 1e6;
    }
    void idle(int ms)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
};

void benchWalk()
{
    QTemporaryDir dir;
    constexpr int kPhotos = 8;
    std::printf("writing %d 24-megapixel JPEGs...\n", kPhotos);
    std::fflush(stdout);
    for (int i = 0; i < kPhotos; ++i) {
        if (!writePhoto(dir.filePath(QStringLiteral("photo_%1.jpg").arg(i)), QSize(6000, 4000), i)) {
            std::printf("could not write the photos\n");
            return;
        }
    }
    for (const bool ahead : {true, false}) {
        Window w;
        if (!ahead)
            w.window.imageCache->setBudget(0); // nothing kept beyond the image shown
        w.window.openDataset(dir.path());
        w.idle(1000);
        std::vector<double> walk, walkCpu;
        int ready = 0, readyFull = 0;
        for (int i = 1; i < kPhotos; ++i) {
            const DecodedImage next = w.window.imageCache->find(w.window.images[i].imagePath);
            ready += !next.isNull();
            readyFull += next.isFull();
            walk.push_back(w.keyToPaint(Qt::Key_Right));
            walkCpu.push_back(w.lastCpuMs);
            w.idle(1000);
        }
        std::vector<double> fast, fastCpu;
        for (int i = 1; i < kPhotos; ++i) {
            fast.push_back(w.keyToPaint(Qt::Key_Left));
            fastCpu.push_back(w.lastCpuMs);
        }
        std::printf("24-megapixel JPEGs, 1400 x 900 window, %s:\n",
                    ahead ? "neighbours decoded ahead" : "nothing decoded ahead (budget 0)");
        std::printf("  decoded ahead by the key press: %d of %d (at full resolution: %d)\n", ready,
                    kPhotos - 1, readyFull);
        printSpread("  key to painted, one image a second", walk, "ms");
        printSpread("    GUI thread CPU time for it", walkCpu, "ms");
        printSpread("  key to painted, keys back to back (images seen before)", fast, "ms");
        printSpread("    GUI thread CPU time for it", fastCpu, "ms");
    }
}

void benchHuge()
{
    QTemporaryDir dir;
    const QSize size(16384, 12288); // 201 megapixels
    std::printf("writing a %d x %d JPEG (%.0f megapixels)...\n", size.width(), size.height(),
                size.width() * double(size.height()) / 1e6);
    std::fflush(stdout);
    if (!writePhoto(dir.filePath(QStringLiteral("b_huge.jpg")), size, 7)
        || !writePhoto(dir.filePath(QStringLiteral("a_small.jpg")), QSize(800, 600), 1)) {
        std::printf("could not write the photos\n");
        return;
    }
    std::vector<double> shown, shownCpu, full, zoom;
    for (int run = 0; run < 3; ++run) {
        Window w;
        w.window.openDataset(dir.path());
        w.idle(300);
        const bool decoding = w.window.imageCache->isDecodingForView(w.window.images[1].imagePath);
        const bool kept = !w.window.imageCache->find(w.window.images[1].imagePath).isNull();
        QElapsedTimer t;
        t.start();
        const double first = w.keyToPaint(Qt::Key_Right);
        shownCpu.push_back(w.lastCpuMs);
        QElapsedTimer limit;
        limit.start();
        while (!w.window.canvas->hasFullResolution() && limit.elapsed() < 30000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        const double toFull = t.nsecsElapsed() / 1e6;
        // Zoom in four steps and pan: full-resolution pixels now.
        QElapsedTimer z;
        z.start();
        for (int i = 0; i < 4; ++i)
            w.keyToPaint(Qt::Key_Plus);
        zoom.push_back(z.nsecsElapsed() / 1e6 / 4);
        shown.push_back(first);
        full.push_back(toFull);
        std::printf("  run %d: on screen %.0f ms (at the key: %s), full resolution %.0f ms, %s x %s px\n",
                    run, first,
                    kept ? "already decoded ahead" : decoding ? "being decoded ahead" : "not decoded",
                    toFull, QByteArray::number(w.window.images[1].width).constData(),
                    QByteArray::number(w.window.images[1].height).constData());
        w.idle(200);
    }
    std::printf("A 200-megapixel JPEG:\n");
    printSpread("  key to on screen (reduced while decoding)", shown, "ms");
    printSpread("    GUI thread CPU time for it", shownCpu, "ms");
    printSpread("  key to full resolution on the canvas", full, "ms");
    printSpread("  zoom step (key to painted) at full resolution", zoom, "ms");
}

// --- Whole-dataset reads -----------------------------------------------------------------

// The read of every annotation file that exports and label rename and removal start
// with, on one thread and on all: the rate, and whether the records come out the same.
void benchReads()
{
    QTemporaryDir dir;
    constexpr int kFiles = 6000;
    QList<ImageAnnotations> records;
    for (int i = 0; i < kFiles; ++i) {
        ImageAnnotations record;
        record.imagePath = dir.filePath(QStringLiteral("img_%1.jpg").arg(i));
        record.xmlPath = dir.filePath(QStringLiteral("img_%1.xml").arg(i));
        record.width = 1920;
        record.height = 1080;
        for (int k = 0; k < 12; ++k) {
            BoxAnnotation box;
            box.label = QStringLiteral("label%1").arg((i + k) % 9);
            box.points = {QPointF(10 * k, 5 * k + i % 50), QPointF(10 * k + 80, 5 * k + 60)};
            record.boxes.append(box);
        }
        QFile file(record.xmlPath);
        if (!file.open(QIODevice::WriteOnly) || file.write(VocXml::toXml(record, QStringLiteral("bench"))) < 0)
            return;
        record.boxes.clear();
        records.append(record);
    }
    const QList<int> indices = DatasetReading::recordsToRead(records, {});
    const int threads = QThreadPool::globalInstance()->maxThreadCount();
    auto readOnce = [&](int threadCount, QByteArray* all) {
        QThreadPool::globalInstance()->setMaxThreadCount(threadCount);
        QList<ImageAnnotations> copy = records;
        QElapsedTimer t;
        t.start();
        DatasetReading::readRecords(copy, indices, {});
        const double ms = t.nsecsElapsed() / 1e6;
        all->clear();
        for (const ImageAnnotations& record : std::as_const(copy))
            all->append(VocXml::toXml(record, QStringLiteral("bench")));
        return ms;
    };
    std::vector<double> one, many, ratio;
    bool same = true;
    for (int run = 0; run < 5; ++run) {
        QByteArray a, b;
        const double single = readOnce(1, &a);
        const double parallel = readOnce(threads, &b);
        same = same && a == b;
        one.push_back(kFiles / (single / 1e3));
        many.push_back(kFiles / (parallel / 1e3));
        ratio.push_back(single / parallel);
    }
    QThreadPool::globalInstance()->setMaxThreadCount(threads);
    std::printf("Reading %d annotation files of 12 shapes each (%d threads):\n", kFiles, threads);
    printSpread("  one thread", one, "files/s");
    printSpread("  all threads", many, "files/s");
    printSpread("  speed-up, runs paired", ratio, "x");
    std::printf("  records the same byte for byte: %s\n", same ? "yes" : "NO");
}

} // namespace

int main(int argc, char** argv)
{
    QElapsedTimer sinceMain;
    sinceMain.start();
    if (argc > 2 && !std::strcmp(argv[1], "--child-million"))
        return childMillion(argc, argv, sinceMain);

    QApplication app(argc, argv);
    Theme::apply(app);
    const QStringList args = app.arguments();
    const QString part = args.size() > 1 && !args.at(1).startsWith(QLatin1String("--"))
                             ? args.at(1)
                             : QStringLiteral("all");
    const int dirAt = args.indexOf(QStringLiteral("--dir"));
    const QString dir = dirAt > 0 && dirAt + 1 < args.size() ? args.at(dirAt + 1) : QString();
    if (part == QLatin1String("million") || part == QLatin1String("all"))
        benchMillion(part == QLatin1String("million") ? dir : QString());
    if (part == QLatin1String("walk") || part == QLatin1String("all"))
        benchWalk();
    if (part == QLatin1String("huge") || part == QLatin1String("all"))
        benchHuge();
    if (part == QLatin1String("reads") || part == QLatin1String("all"))
        benchReads();
    return 0;
}
