// Timings of brindle-convert on a large dataset on disk: the export for segmentation with
// hard-linked images (wall and CPU time, peak memory, and the shares of reading,
// converting and writing), the check, and four shards in parallel plus the merge against
// the single run (whose output they must equal), with and without a class list. BENCH_IMAGES sets the dataset size (default 100,000
// images, 20 shapes of mixed kinds each); BENCH_DATASET names a folder where the dataset
// is kept and reused by later runs (made when absent). Prints "name: value" lines.
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "formats/datasetreading.h"
#include "model/datasetfolders.h"
#include "model/labelpalette.h"
#include "model/vocxml.h"
#include "training/imageinput.h"
#include "training/trainingexport.h"

namespace {

constexpr int kShapesPerImage = 20;

void print(const QByteArray& name, double value, const char* unit = "")
{
    std::printf("%s: %.3f%s\n", name.constData(), value, unit);
    std::fflush(stdout);
}

double timeMs(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return timer.nsecsElapsed() / 1e6;
}

double cpuMsOfThisProcess()
{
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

struct Usage {
    double wallMs = 0;
    double cpuMs = 0;
};

Usage measure(const std::function<void()>& work)
{
    const double cpu = cpuMsOfThisProcess();
    Usage usage;
    usage.wallMs = timeMs(work);
    usage.cpuMs = cpuMsOfThisProcess() - cpu;
    return usage;
}

// Runs the program; wall time in ms and peak RSS of the child in MB.
struct ChildRun {
    int code = -1;
    double ms = 0;
    double peakMb = 0;
    double cpuMs = 0; // user + system: on a shared machine the wall time says little alone
    double sysMs = 0;
};

pid_t startChild(const QStringList& args)
{
    QList<QByteArray> bytes;
    for (const QString& a : args)
        bytes << a.toLocal8Bit();
    QList<char*> argv;
    for (QByteArray& b : bytes)
        argv << b.data();
    argv << nullptr;
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::execv(argv.first(), argv.data());
        ::_exit(127);
    }
    return pid;
}

ChildRun runChild(const QStringList& args)
{
    ChildRun run;
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = startChild(args);
    int status = 0;
    rusage usage {};
    ::wait4(pid, &status, 0, &usage);
    run.ms = timer.nsecsElapsed() / 1e6;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.peakMb = usage.ru_maxrss / 1024.0;
    run.sysMs = usage.ru_stime.tv_sec * 1e3 + usage.ru_stime.tv_usec / 1e3;
    run.cpuMs = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
    return run;
}

// Shapes of every kind, a few reaching over the image's edges.
QList<BoxAnnotation> shapesFor(int i)
{
    QList<BoxAnnotation> shapes;
    const char* labels[] = {"car", "person", "sign", "no", "truck"};
    for (int s = 0; s < kShapesPerImage; ++s) {
        BoxAnnotation b;
        b.label = QLatin1String(labels[(i + s) % 5]);
        const double x = (i * 37 + s * 53) % 600, y = (i * 11 + s * 29) % 440;
        switch (s % 7) {
        case 0: b.type = ShapeType::BoundingBox; b.points = {{x, y}, {x + 60, y + 50}}; break;
        case 1: b.type = ShapeType::Polygon; b.points = {{x, y}, {x + 40, y + 5}, {x + 50, y + 45}, {x + 5, y + 60}, {x - 10, y + 20}}; break;
        case 2: b.type = ShapeType::Line; b.points = {{x, y}, {x + 30, y + 40}}; break;
        case 3: b.type = ShapeType::Keypoint; b.points = {{x + 5, y + 5}}; break;
        case 4: b.type = ShapeType::RotatedBox; b.angle = 30; b.points = rotatedBoxCorners({x + 20, y + 20}, 50, 30, 30); break;
        case 5: b.type = ShapeType::Cuboid;
            b.points = {{x, y}, {x + 30, y}, {x + 30, y + 30}, {x, y + 30}, {x + 10, y - 10}, {x + 40, y - 10}, {x + 40, y + 20}, {x + 10, y + 20}};
            break;
        default: b.type = ShapeType::Ellipse; b.angle = 20; b.points = {{x + 20, y + 20}, {35, 15}}; break;
        }
        shapes << b;
    }
    return shapes;
}

void makeDataset(const QString& images, const QString& annotations, int count)
{
    QDir().mkpath(images);
    QDir().mkpath(annotations);
    QImage picture(640, 480, QImage::Format_RGB32);
    picture.fill(Qt::darkGray);
    const QString first = images + QStringLiteral("/img_000000.png");
    picture.save(first);
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("img_%1").arg(i, 6, 10, QLatin1Char('0'));
        if (i > 0)
            QFile::copy(first, images + QLatin1Char('/') + name + QStringLiteral(".png"));
        ImageAnnotations record;
        record.imagePath = images + QLatin1Char('/') + name + QStringLiteral(".png");
        record.xmlPath = annotations + QLatin1Char('/') + name + QStringLiteral(".xml");
        record.width = 640;
        record.height = 480;
        record.boxes = shapesFor(i);
        QFile xml(record.xmlPath);
        if (xml.open(QIODevice::WriteOnly))
            xml.write(VocXml::toXml(record, QStringLiteral("images")));
    }
}

// A digest of every file under the folder by relative path.
QByteArray digest(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next();
    files.sort();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString& path : std::as_const(files)) {
        hash.addData(QDir(folder).relativeFilePath(path).toUtf8());
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            hash.addData(&file);
    }
    return hash.result().toHex();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int count = qEnvironmentVariableIntValue("BENCH_IMAGES") > 0 ? qEnvironmentVariableIntValue("BENCH_IMAGES") : 100000;
    const QString program = QStringLiteral(BENCH_CONVERT);
    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/bench_brindleconvert-XXXXXX"));
    const QString kept = qEnvironmentVariable("BENCH_DATASET");
    const QDir data(kept.isEmpty() ? dir.path() : kept);
    const QString images = data.filePath(QStringLiteral("images")), annotations = data.filePath(QStringLiteral("annotations"));
    if (kept.isEmpty() || !QFileInfo::exists(annotations))
        print("dataset_make_s", timeMs([&] { makeDataset(images, annotations, count); }) / 1000);
    print("images", DatasetFolders::listImageFiles(images).size());

    const QString out = dir.filePath(QStringLiteral("out"));
    const QStringList exportArgs = {program, QStringLiteral("export"), QStringLiteral("ultralytics-segment"), images,
                                    annotations, out, QStringLiteral("--images"), QStringLiteral("link"),
                                    QStringLiteral("--seed"), QStringLiteral("3")};
    const ChildRun single = runChild(exportArgs);
    print("export_segment_exit", single.code);
    print("export_segment_wall_s", single.ms / 1000);
    print("export_segment_cpu_s", single.cpuMs / 1000);
    print("export_segment_sys_s", single.sysMs / 1000);
    print("export_segment_peak_rss_mb", single.peakMb);
    const QByteArray singleDigest = digest(out);

    const ChildRun check = runChild({program, QStringLiteral("check"), images, annotations});
    print("check_exit", check.code);
    print("check_wall_s", check.ms / 1000);
    print("check_cpu_s", check.cpuMs / 1000);
    print("check_sys_s", check.sysMs / 1000);
    print("check_peak_rss_mb", check.peakMb);

    // The shares, as CPU time (steadier than wall time on a shared machine), in this
    // process: reading every annotation file and image header as the export does, then
    // reading and converting without writing; writing is what the full run adds.
    const QList<ImageAnnotations> records =
        DatasetFolders::records(images, annotations, DatasetFolders::listImageFiles(images));
    const Usage read = measure([&] {
        ImageInput::Request request;
        request.scanNames = true;
        DatasetReading::forEachOrdered<int>(
            int(records.size()), [&](int i) { return int(ImageInput::read(records.at(i), request).shapes.size()); },
            [](int, int&) {});
    });
    QList<LabelDef> labels = {LabelPalette::defaultLabel()};
    const Usage dry = measure([&] {
        TrainingExport::Options options;
        options.layout = TrainingExport::Layout::UltralyticsSegment;
        options.outputFolder = out;
        options.scanLabels = true;
        options.dryRun = true;
        TrainingExport::run(records, labels, options);
    });
    print("read_wall_s", read.wallMs / 1000);
    print("read_convert_wall_s", dry.wallMs / 1000);
    print("share_read_cpu_pct", 100 * read.cpuMs / single.cpuMs);
    print("share_convert_cpu_pct", 100 * (dry.cpuMs - read.cpuMs) / single.cpuMs);
    print("share_write_cpu_pct", 100 * (single.cpuMs - dry.cpuMs) / single.cpuMs);

    // Four shards at once, then the merge, into the same folder (the single run's output
    // is moved aside, not deleted: creating files right after deleting as many costs the
    // file system more than the export itself). First as the README says (--classes),
    // then without, when every shard reads every file for the label list.
    const QString classes = dir.filePath(QStringLiteral("classes.txt"));
    {
        QFile f(classes);
        f.open(QIODevice::WriteOnly);
        for (const LabelDef& label : std::as_const(labels))
            f.write(label.name.toUtf8() + '\n');
    }
    const QStringList files = DatasetFolders::listImageFiles(images);
    for (int s = 0; s < 4; ++s) {
        QFile f(dir.filePath(QStringLiteral("list-%1").arg(s)));
        f.open(QIODevice::WriteOnly);
        for (int i = s; i < files.size(); i += 4)
            f.write(files.at(i).toUtf8() + '\n');
    }
    const auto sharded = [&](const char* name, const QStringList& extra) {
        static int round = 0;
        QDir().rename(out, dir.filePath(QStringLiteral("out-moved-%1").arg(round++)));
        QElapsedTimer timer;
        timer.start();
        QList<pid_t> pids;
        for (int s = 0; s < 4; ++s) {
            const QStringList args = exportArgs + extra
                + QStringList{QStringLiteral("--files"), dir.filePath(QStringLiteral("list-%1").arg(s)),
                              QStringLiteral("--shard"), QString::number(s)};
            pids << startChild(args);
        }
        int failures = 0;
        for (pid_t pid : std::as_const(pids)) {
            int status = 0;
            ::waitpid(pid, &status, 0);
            failures += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        }
        const ChildRun merge = runChild({program, QStringLiteral("merge"), out});
        const double ms = timer.nsecsElapsed() / 1e6;
        const QByteArray prefix = QByteArray("shards4_") + name;
        print(prefix + "_failed", failures + (merge.code != 0));
        print(prefix + "_plus_merge_wall_s", ms / 1000);
        print(prefix + "_merge_wall_s", merge.ms / 1000);
        print(prefix + "_over_single", ms / single.ms);
        print(prefix + "_equal_single", digest(out) == singleDigest ? 1 : 0);
    };
    sharded("classes", {QStringLiteral("--classes"), classes});
    sharded("scan", {});
    return 0;
}
