// Timings of brindle-convert on a large dataset on disk: the export for segmentation with
// hard-linked images (wall time, peak memory, and the shares of reading, converting and
// writing), the check, and four shards in parallel plus the merge against the single run
// (whose output they must equal). BENCH_IMAGES sets the dataset size (default 100,000
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
#include "model/vocxml.h"
#include "training/trainingexport.h"

namespace {

constexpr int kShapesPerImage = 20;

void print(const char* name, double value, const char* unit = "")
{
    std::printf("%s: %.3f%s\n", name, value, unit);
    std::fflush(stdout);
}

double timeMs(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return timer.nsecsElapsed() / 1e6;
}

// Runs the program; wall time in ms and peak RSS of the child in MB.
struct ChildRun {
    int code = -1;
    double ms = 0;
    double peakMb = 0;
    double cpuMs = 0; // user + system: on a shared machine the wall time says little alone
};

ChildRun runChild(const QStringList& args)
{
    QList<QByteArray> bytes;
    for (const QString& a : args)
        bytes << a.toLocal8Bit();
    QList<char*> argv;
    for (QByteArray& b : bytes)
        argv << b.data();
    argv << nullptr;
    ChildRun run;
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::execv(argv.first(), argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage {};
    ::wait4(pid, &status, 0, &usage);
    run.ms = timer.nsecsElapsed() / 1e6;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.peakMb = usage.ru_maxrss / 1024.0;
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
        record.setXmlPath(annotations + QLatin1Char('/') + name + QStringLiteral(".xml"));
        record.width = 640;
        record.height = 480;
        record.boxes = shapesFor(i);
        QFile xml(record.xmlPath());
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
    print("export_segment_peak_rss_mb", single.peakMb);
    const QByteArray singleDigest = digest(out);

    const ChildRun check = runChild({program, QStringLiteral("check"), images, annotations});
    print("check_exit", check.code);
    print("check_wall_s", check.ms / 1000);
    print("check_cpu_s", check.cpuMs / 1000);
    print("check_peak_rss_mb", check.peakMb);

    // The shares, in this process: reading every file alone, then reading and
    // converting without writing; writing is what the full run adds.
    const QList<ImageAnnotations> records =
        DatasetFolders::records(images, annotations, DatasetFolders::listImageFiles(images));
    const double readMs = timeMs([&] {
        DatasetReading::readAll(records, DatasetReading::recordsToRead(records, {}), {});
    });
    const double convertMs = timeMs([&] {
        QList<LabelDef> labels = {{QStringLiteral("object"), Qt::red}};
        TrainingExport::Options options;
        options.layout = TrainingExport::Layout::UltralyticsSegment;
        options.outputFolder = out;
        options.scanLabels = true;
        options.dryRun = true;
        TrainingExport::run(records, labels, options);
    }) - readMs;
    const double writeMs = single.ms - readMs - convertMs;
    print("share_read_pct", 100 * readMs / single.ms);
    print("share_convert_pct", 100 * convertMs / single.ms);
    print("share_write_pct", 100 * writeMs / single.ms);

    // Four shards at once, then the merge, into the same folder.
    QDir(out).removeRecursively();
    const QStringList files = DatasetFolders::listImageFiles(images);
    QElapsedTimer shardTimer;
    shardTimer.start();
    QList<pid_t> pids;
    for (int s = 0; s < 4; ++s) {
        const QString list = dir.filePath(QStringLiteral("list-%1").arg(s));
        QFile f(list);
        f.open(QIODevice::WriteOnly);
        for (int i = s; i < files.size(); i += 4)
            f.write(files.at(i).toUtf8() + '\n');
        f.close();
        QList<QByteArray> bytes;
        for (const QString& a : exportArgs + QStringList{QStringLiteral("--files"), list, QStringLiteral("--shard"), QString::number(s)})
            bytes << a.toLocal8Bit();
        const pid_t pid = ::fork();
        if (pid == 0) {
            QList<char*> argv;
            for (QByteArray& b : bytes)
                argv << b.data();
            argv << nullptr;
            const int null = ::open("/dev/null", O_WRONLY);
            ::dup2(null, STDOUT_FILENO);
            ::execv(argv.first(), argv.data());
            ::_exit(127);
        }
        pids << pid;
    }
    int failures = 0;
    for (pid_t pid : std::as_const(pids)) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        failures += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const ChildRun merge = runChild({program, QStringLiteral("merge"), out});
    const double shardedMs = shardTimer.nsecsElapsed() / 1e6;
    print("shards_failed", failures + (merge.code != 0));
    print("shards4_plus_merge_wall_s", shardedMs / 1000);
    print("merge_wall_s", merge.ms / 1000);
    print("shards4_over_single", shardedMs / single.ms);
    print("shards_equal_single", digest(out) == singleDigest ? 1 : 0);
    return 0;
}
