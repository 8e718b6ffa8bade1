// Pre-labelling with the fake model (tests/ai/fake_ultralytics):
//  1. yolo_prelabel.py over 1,000 JPEG images of 640 x 480: seconds by the clock, and the
//     helper's own processor time per image (reading, decoding, batching, printing; the
//     model call left out).
//  2. The window merging those 1,000 results as fast as a helper can print them (the
//     output of run 1 replayed in one write): main-thread processor time per merged
//     result, time until every result is merged, and the largest gap of a 10 ms timer
//     meanwhile (by the clock, and in main-thread processor time), beside the largest gap
//     of the same timer on an idle event loop. "--merge" stops after this.
//  3. Opening a 10,000-image dataset with and without a sidecar of proposals for every
//     image: time to the first image painted, in alternating runs ("--open": this alone).

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QPainter>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

#include "ai/prelabeldialog.h"
#include "app/mainwindow.h"
#include "app/proposalreview.h"
#include "canvas/imagecanvas.h"
#include "model/proposals.h"
#include "ui/userprompts.h"

namespace {

constexpr int kImages = 1000;
constexpr int kLargeDataset = 10000;
constexpr int kOpenRuns = 15;

bool write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// 1,000 street-like JPEGs: a red "person" and a blue "car" whose places vary.
void makeImages(const QString& folder)
{
    QDir().mkpath(folder);
    for (int i = 0; i < kImages; ++i) {
        QImage img(640, 480, QImage::Format_RGB32);
        img.fill(QColor(90, 90, 90));
        QPainter p(&img);
        p.fillRect(40 + (i * 37) % 400, 60 + (i * 11) % 200, 60, 140, Qt::red);
        p.fillRect(200 + (i * 53) % 300, 250 + (i * 7) % 150, 160, 80, Qt::blue);
        p.end();
        img.save(QString("%1/img_%2.jpg").arg(folder).arg(i, 4, 10, QChar('0')), "JPG", 90);
    }
}

// The largest gap between ticks of a 10 ms timer while `until` is false, by the clock; and
// in *cpu the largest main-thread processor time between two ticks, which a busy machine
// that takes the processor away from the program does not inflate.
template <typename Until>
qint64 largestGap(Until until, double* cpu = nullptr)
{
    QElapsedTimer clock;
    clock.start();
    qint64 last = 0, gap = 0;
    double lastCpu = threadCpuMs(), cpuGap = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        gap = std::max(gap, clock.elapsed() - last);
        last = clock.elapsed();
        cpuGap = std::max(cpuGap, threadCpuMs() - lastCpu);
        lastCpu = threadCpuMs();
    });
    ticker.start(10);
    while (!until())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    if (cpu)
        *cpu = cpuGap;
    return std::max(gap, clock.elapsed() - last);
}

QByteArray helperRun(const QString& scratch)
{
    QStringList list;
    for (const QString& name : QDir(scratch + "/images").entryList({"*.jpg"}, QDir::Files, QDir::Name))
        list << scratch + "/images/" + name;
    write(scratch + "/list.txt", list.join('\n').toUtf8());
    write(scratch + "/model.pt", R"({"task": "detect", "classes": [{"name": "person", "bgr": [0, 0, 255],
        "conf": 0.9}, {"name": "car", "bgr": [255, 0, 0], "conf": 0.7}]})");
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("PYTHONPATH", BENCH_FAKE_ULTRALYTICS);
    env.insert("FAKE_YOLO_STATS", scratch + "/stats.json");
    QProcess helper;
    helper.setProcessEnvironment(env);
    QElapsedTimer clock;
    clock.start();
    helper.start("/usr/bin/python3", {BENCH_SCRIPTS "/yolo_prelabel.py", "--model", scratch + "/model.pt",
                                      "--list", scratch + "/list.txt"});
    helper.waitForFinished(600000);
    const double wall = clock.elapsed() / 1000.0;
    const QByteArray out = helper.readAllStandardOutput();
    QFile stats(scratch + "/stats.json");
    stats.open(QIODevice::ReadOnly);
    const QJsonObject s = QJsonDocument::fromJson(stats.readAll()).object();
    const double model = s["model_cpu"].toDouble(), own = s["process_cpu"].toDouble() - model;
    std::printf("helper: %d images, %d results, %d model calls; %.2f s by the clock (%.1f ms per image); "
                "processor time %.2f s in the model, %.2f s outside it = %.2f ms per image of the "
                "helper's own work\n",
                kImages, int(out.count("RESULT:")), s["calls"].toInt(), wall, wall * 1000 / kImages, model, own,
                own * 1000 / kImages);
    return out;
}

void mergeFlood(const QString& scratch, const QByteArray& recorded)
{
    write(scratch + "/recorded.txt", recorded);
    const QString script = QCoreApplication::applicationDirPath() + "/yolo_prelabel.py";
    write(script, "import os, sys\nsys.stdout.write(open(os.environ['BENCH_RECORDED']).read())\n");
    qputenv("BENCH_RECORDED", (scratch + "/recorded.txt").toUtf8());
    QDir(scratch + "/images/annotations").removeRecursively();
    MainWindow window;
    window.show();
    window.openDataset(scratch + "/images");
    PrelabelDialog::Images targets;
    for (const ImageAnnotations& r : std::as_const(window.images))
        targets.all << r.imagePath;
    PrelabelDialog dialog({"object"}, targets, [&](const QString& image, const QList<Proposal>& p) {
        return window.proposalReview->merge(image, p);
    }, &window);
    dialog.show();
    dialog.findChild<QLineEdit*>("modelEdit")->setText(scratch + "/model.pt");
    dialog.findChild<QRadioButton*>("allRadio")->setChecked(true);
    auto* run = dialog.findChild<QPushButton*>("runButton");
    run->click(); // finds the interpreter and checks NumPy before it returns
    QElapsedTimer clock;
    clock.start();
    const double cpu0 = threadCpuMs();
    double cpuGap = 0;
    const qint64 gap = largestGap([&] { return run->isEnabled(); }, &cpuGap);
    const double cpu = threadCpuMs() - cpu0, wall = clock.elapsed();
    QElapsedTimer flush;
    flush.start();
    window.proposalReview->store().flush();
    const int sidecars = QDir(scratch + "/images/annotations/.proposals").entryList(QDir::Files).size();
    std::printf("merge: %d results merged in %.0f ms; main thread %.0f ms of processor time = %.3f ms per "
                "result; largest event-loop gap %lld ms by the clock, %.1f ms of main-thread processor "
                "time (10 ms timer); %d sidecars on disk %lld ms later\n",
                kImages, wall, cpu, cpu / kImages, gap, cpuGap, sidecars, flush.elapsed());
    QFile::remove(script);
}

class PaintWatch : public QObject {
public:
    bool painted = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        painted |= event->type() == QEvent::Paint;
        return QObject::eventFilter(watched, event);
    }
};

// Milliseconds by the clock to the first image painted; *cpu gets the main thread's
// processor time for the same stretch, which a busy machine inflates far less.
double openToFirstImage(const QString& images, const QString& annotations, bool* marked, double* cpu)
{
    MainWindow window;
    window.show();
    QCoreApplication::processEvents();
    PaintWatch watch;
    window.canvas->installEventFilter(&watch);
    QElapsedTimer clock;
    clock.start();
    const double cpu0 = threadCpuMs();
    window.openDataset(images, annotations);
    while (!watch.painted || !window.canvas->hasImage())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double ms = clock.nsecsElapsed() / 1e6;
    *cpu = threadCpuMs() - cpu0;
    while (!window.proposalReview->store().listingDone())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    *marked = window.proposalReview->hasOpen(kLargeDataset - 1) && window.canvas->proposals().size() == 1;
    return ms;
}

void openLarge(const QString& scratch)
{
    const QString images = scratch + "/large";
    QDir().mkpath(images + "/plain");
    QDir().mkpath(images + "/proposed/.proposals");
    QImage tiny(64, 48, QImage::Format_RGB32);
    tiny.fill(Qt::darkCyan);
    tiny.save(images + "/t.png");
    QFile source(images + "/t.png");
    source.open(QIODevice::ReadOnly);
    const QByteArray png = source.readAll();
    const QList<Proposal> one{{BoxAnnotation{"car", ShapeType::BoundingBox, {{4, 4}, {30, 20}}, true, 0}, 0.8}};
    for (int i = 0; i < kLargeDataset; ++i) {
        const QString name = QString("img_%1").arg(i, 5, 10, QChar('0'));
        write(images + '/' + name + ".png", png);
        write(images + "/proposed/.proposals/" + name + ".json", Proposals::toJson(name + ".png", one));
    }
    QFile::remove(images + "/t.png");
    std::vector<double> plain, proposed, plainCpu, proposedCpu;
    bool marked = true;
    for (int run = 0; run < kOpenRuns; ++run) {
        bool ignored = false, ok = false;
        double cpu = 0;
        plain.push_back(openToFirstImage(images, images + "/plain", &ignored, &cpu));
        plainCpu.push_back(cpu);
        proposed.push_back(openToFirstImage(images, images + "/proposed", &ok, &cpu));
        proposedCpu.push_back(cpu);
        marked = marked && ok;
    }
    const auto range = [](const std::vector<double>& v) {
        return QString("median %1 ms (min %2, max %3)")
            .arg(median(v), 0, 'f', 1).arg(*std::min_element(v.begin(), v.end()), 0, 'f', 1)
            .arg(*std::max_element(v.begin(), v.end()), 0, 'f', 1);
    };
    std::printf("open %d images, first image painted, %d alternating runs each:\n"
                "  by the clock: without proposals %s; with a sidecar for every image %s; ratio of "
                "medians %.3f\n  main-thread processor time: without %s; with %s; ratio of medians %.3f\n"
                "  proposals shown and every mark known: %s\n",
                kLargeDataset, kOpenRuns, qPrintable(range(plain)), qPrintable(range(proposed)),
                median(proposed) / median(plain), qPrintable(range(plainCpu)), qPrintable(range(proposedCpu)),
                median(proposedCpu) / median(plainCpu), marked ? "yes" : "NO");
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTemporaryDir scratch;
    // The dialog finds "python" on PATH: make it Debian's interpreter, which has NumPy 1.
    QDir(scratch.path()).mkdir("bin");
    QFile::link("/usr/bin/python3", scratch.path() + "/bin/python");
    qputenv("PATH", (scratch.path() + "/bin:" + qgetenv("PATH")).toUtf8());
    QtUserPrompts prompts;
    UserPrompts::install(&prompts);
    if (argc > 1 && QByteArray(argv[1]) == "--open") { // the third figure only
        openLarge(scratch.path());
        return 0;
    }
    makeImages(scratch.path() + "/images");
    const QByteArray recorded = helperRun(scratch.path());
    std::printf("idle: largest event-loop gap %lld ms (10 ms timer, nothing running, 1.5 s)\n", [] {
        QElapsedTimer t;
        t.start();
        return largestGap([&] { return t.elapsed() > 1500; });
    }());
    for (int run = 0; run < 3; ++run)
        mergeFlood(scratch.path(), recorded);
    if (argc > 1 && QByteArray(argv[1]) == "--merge")
        return 0;
    openLarge(scratch.path());
    UserPrompts::install(nullptr);
    return 0;
}
