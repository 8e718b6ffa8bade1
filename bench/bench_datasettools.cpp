// Timings of the dataset tools: the train/test split against a plain copy loop over the
// same files, the box -> keypoint conversion against the bare file-system work, and the
// collage of nine large JPEGs with its peak memory (measured in a child process, so that
// the datasets of the other runs do not count). Prints "name: value" lines.
#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "formats/datasettools.h"
#include "formats/exportimport.h"
#include "model/vocxml.h"

namespace {

constexpr int kImages = 10000;
constexpr int kBoxesPerImage = 20;
constexpr int kRounds = 3;

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

// CPU time of this process (user + system) in ms.
double cpuMs()
{
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// The floor for copying: open, read, create, write, close, nothing else.
bool plainCopy(const QByteArray& from, const QByteArray& to)
{
    char buffer[64 * 1024];
    const int in = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    const int out = ::open(to.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    bool ok = out >= 0;
    for (ssize_t n; ok && (n = ::read(in, buffer, sizeof buffer)) > 0;)
        ok = ::write(out, buffer, size_t(n)) == n;
    ::close(in);
    return (out < 0 || ::close(out) == 0) && ok;
}

// 10,000 small JPEGs and their annotation files of 20 boxes.
QList<ImageAnnotations> makeDataset(const QString& root)
{
    QDir().mkpath(root + "/images");
    QDir().mkpath(root + "/annotations");
    QImage picture(96, 72, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 2, y * 3, (x ^ y) * 4));
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "JPG", 85);

    QList<ImageAnnotations> images;
    quint32 seed = 12345;
    const auto next = [&seed](int range) {
        seed = seed * 1664525u + 1013904223u;
        return int((seed >> 8) % quint32(range));
    };
    for (int i = 0; i < kImages; ++i) {
        ImageAnnotations image;
        const QString base = QStringLiteral("img_%1").arg(i, 5, 10, QLatin1Char('0'));
        image.imagePath = root + "/images/" + base + ".jpg";
        image.xmlPath = root + "/annotations/" + base + ".xml";
        image.width = 1920;
        image.height = 1080;
        for (int b = 0; b < kBoxesPerImage; ++b) {
            BoxAnnotation box;
            box.label = QStringLiteral("label_%1").arg(next(12));
            const int x = next(1800), y = next(1000);
            box.points = {QPointF(x, y), QPointF(x + 1 + next(100), y + 1 + next(70))};
            image.boxes.append(box);
        }
        if (!writeFile(image.imagePath, jpeg) || !writeFile(image.xmlPath, VocXml::toXml(image, "images")))
            return {};
        image.boxes.clear(); // as after a load: the shapes are in the files
        images.append(image);
    }
    return images;
}

// The split against a plain copy loop over the same 20,000 files, each into a fresh
// folder. The disk of a shared machine swings by a factor of several within seconds, so
// the two run interleaved in slices of 100 images (alternating which goes first) and the
// slices are summed: both see the same conditions.
bool benchSplit(const QString& root, const QList<ImageAnnotations>& images)
{
    constexpr int kSlice = 100;
    QList<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        // Fresh folders every round: deleting tens of thousands of files slows the file
        // system down for a while afterwards.
        const QString plainRoot = root + QStringLiteral("/plain%1/").arg(round);
        ::sync();
        DatasetTools::SplitPlan plan;
        double splitMs = timeMs([&] {
            plan = DatasetTools::planSplit(images, 80, root + QStringLiteral("/split%1").arg(round),
                                           DatasetTools::clockSeed());
        });
        double plainMs = timeMs([&] {
            QDir().mkpath(plainRoot + "images");
            QDir().mkpath(plainRoot + "annotations");
        });
        bool ok = true;
        int copied = 0;
        for (int first = 0; first < plan.items.size(); first += kSlice) {
            DatasetTools::SplitPlan slice = plan;
            slice.items = plan.items.mid(first, kSlice);
            QList<QPair<QByteArray, QByteArray>> names;
            for (const DatasetTools::SplitItem& item : std::as_const(slice.items)) {
                for (const QString& path : {item.imageSource, item.xmlSource}) {
                    const QString rel = QDir(root + "/source").relativeFilePath(path);
                    names.append({QFile::encodeName(path), QFile::encodeName(plainRoot + rel)});
                }
            }
            const auto runPlain = [&] {
                plainMs += timeMs([&] {
                    for (const auto& [from, to] : std::as_const(names))
                        ok = plainCopy(from, to) && ok;
                });
            };
            const auto runSplit = [&] {
                splitMs += timeMs([&] {
                    const DatasetTools::CopyOutcome outcome = DatasetTools::runSplit(slice, [](int, int) { return true; });
                    copied += outcome.copied;
                    ok = outcome.failed == 0 && ok;
                });
            };
            if ((first / kSlice) % 2 == 0) {
                runPlain();
                runSplit();
            } else {
                runSplit();
                runPlain();
            }
        }
        if (!ok || copied != 2 * kImages)
            return false;
        ratios << splitMs / plainMs;
        std::printf("split_round_%d: plain copy loop %.0f ms, split %.0f ms, ratio %.3f\n", round, plainMs,
                    splitMs, ratios.last());
    }
    print("split_over_plain_copy_x_median", median(ratios));
    print("split_over_plain_copy_x_worst", *std::max_element(ratios.begin(), ratios.end()));
    return true;
}

// The conversion, reading every file, against reading the same files and writing as many
// files of the output's size with plain calls (temporary name, write, rename, no flush).
// Creating files on ext4 slows down for a while after many files were deleted (the inode
// allocator steps around recently freed inodes), which moves both numbers alike.
bool benchConversion(const QString& root, const QList<ImageAnnotations>& images)
{
    QList<double> baseMs, convertMs, inMemoryMs, baseCpu, convertCpu;
    ImageAnnotations sample = images.first();
    VocXml::load(sample);
    sample.boxes = DatasetTools::convertShapes(sample.boxes, DatasetTools::Conversion::BoxesToKeypoints, 0, 1920, 1080);
    const QByteArray outputSize = VocXml::toXml(sample, "images");
    QList<ImageAnnotations> loaded = images;
    for (ImageAnnotations& image : loaded)
        VocXml::load(image);

    for (int round = 0; round < kRounds; ++round) {
        const QString suffix = QString::number(round);
        for (const char* folder : {"/raw", "/key_points", "/key_points_mem"})
            QDir().mkpath(root + folder + suffix);
        ::sync();
        bool ok = true;
        DatasetTools::ConversionOutcome outcome;
        const auto baseline = [&] {
            const double cpu = cpuMs();
            baseMs << timeMs([&] {
                char buffer[64 * 1024];
                for (int i = 0; i < images.size(); ++i) {
                    const int in = ::open(QFile::encodeName(images.at(i).xmlPath).constData(), O_RDONLY | O_CLOEXEC);
                    ok = in >= 0 && ::read(in, buffer, sizeof buffer) > 0 && ok;
                    ::close(in);
                    const QByteArray target = QFile::encodeName(root + QStringLiteral("/raw%1/%2.xml").arg(round).arg(i));
                    const QByteArray temp = target + ".tmp";
                    const int out = ::open(temp.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
                    ok = out >= 0 && ::write(out, outputSize.constData(), size_t(outputSize.size())) == outputSize.size() && ok;
                    ok = ::close(out) == 0 && std::rename(temp.constData(), target.constData()) == 0 && ok;
                }
            });
            baseCpu << cpuMs() - cpu;
        };
        const auto conversion = [&] {
            const double cpu = cpuMs();
            convertMs << timeMs([&] {
                outcome = DatasetTools::convertDataset(images, DatasetTools::Conversion::BoxesToKeypoints, 0,
                                                       root + "/key_points" + suffix, "images", [](int, int) { return true; });
            });
            convertCpu << cpuMs() - cpu;
        };
        // Alternating which goes first.
        if (round % 2 == 0) {
            baseline();
            conversion();
        } else {
            conversion();
            baseline();
        }
        std::printf("convert_round_%d: baseline %.0f ms (cpu %.0f), conversion %.0f ms (cpu %.0f)\n", round,
                    baseMs.last(), baseCpu.last(), convertMs.last(), convertCpu.last());
        if (!ok || outcome.processed != kImages || outcome.created != kImages * kBoxesPerImage || outcome.failed)
            return false;
        inMemoryMs << timeMs([&] {
            outcome = DatasetTools::convertDataset(loaded, DatasetTools::Conversion::BoxesToKeypoints, 0,
                                                   root + "/key_points_mem" + suffix, "images", {});
        });
    }
    print("convert_fs_baseline_read_and_write_ms_median", median(baseMs));
    print("convert_fs_baseline_read_and_write_ms_best", *std::min_element(baseMs.begin(), baseMs.end()));
    print("convert_10000_files_ms_median", median(convertMs));
    print("convert_10000_files_ms_best", *std::min_element(convertMs.begin(), convertMs.end()));
    print("convert_10000_shapes_in_memory_ms_median", median(inMemoryMs));
    print("convert_over_fs_baseline_x_median", median(convertMs) / median(baseMs));
    return true;
}

// Peak resident memory of this process image in MB: VmHWM, which starts afresh at exec
// (ru_maxrss keeps the peak of the process that forked the child).
long peakRssMb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmHWM:"))
                return line.mid(6).trimmed().split(' ').value(0).toLong() / 1024;
        }
    }
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

// Child: the collage of the nine images in `folder`. Prints its time and peak memory.
int runCollage(const QString& folder)
{
    QList<ImageAnnotations> images;
    for (int i = 0; i < 9; ++i) {
        ImageAnnotations image;
        image.imagePath = QStringLiteral("%1/photo_%2.jpg").arg(folder).arg(i);
        for (int b = 0; b < 6; ++b) {
            BoxAnnotation box;
            box.label = QStringLiteral("object_%1").arg(b);
            box.points = {QPointF(150 + b * 600, 200 + b * 400), QPointF(600 + b * 600, 700 + b * 400)};
            image.boxes.append(box);
        }
        images.append(image);
    }
    std::printf("collage_rss_before_mb: %ld\n", peakRssMb());
    ExportImportResult result;
    QElapsedTimer sinceStart;
    double imagesMs = 0;
    const double ms = timeMs([&] {
        sinceStart.start();
        result = ExportImport::exportCollage(images, {{"object_0", Qt::red}}, 9, false, folder + "/collage.png",
                                             [&](int done, int) {
                                                 if (done == -1)
                                                     imagesMs = sinceStart.nsecsElapsed() / 1e6;
                                                 return true;
                                             });
    });
    if (!result.ok || result.count != 9)
        return 20;
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    print("collage_9_jpegs_4000x3000_ms", ms);
    print("collage_read_crop_scale_draw_ms", imagesMs);
    print("collage_png_write_ms", ms - imagesMs);
    print("collage_process_cpu_ms", usage.ru_utime.tv_sec * 1e3 + usage.ru_utime.tv_usec / 1e3
                                        + usage.ru_stime.tv_sec * 1e3 + usage.ru_stime.tv_usec / 1e3);
    std::printf("collage_peak_rss_mb: %ld\n", peakRssMb());
    print("collage_png_mb", QFileInfo(folder + "/collage.png").size() / 1048576.0);
    return 0;
}

// Nine photo-like JPEGs: gradients with grain, so that neither the JPEG nor the PNG
// compresses unrealistically well.
bool makePhotos(const QString& folder)
{
    QImage image(4000, 3000, QImage::Format_RGB32);
    quint32 seed = 99;
    for (int i = 0; i < 9; ++i) {
        for (int y = 0; y < image.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                seed = seed * 1664525u + 1013904223u;
                const int grain = int(seed >> 28) - 8;
                line[x] = qRgb(qBound(0, x / 16 + i * 10 + grain, 255), qBound(0, y / 12 + grain, 255),
                               qBound(0, ((x + y) >> 5) + grain, 255));
            }
        }
        if (!image.save(QStringLiteral("%1/photo_%2.jpg").arg(folder).arg(i), "JPG", 90))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[1]) == "--collage") {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QGuiApplication app(argc, argv);
        return runCollage(QString::fromLocal8Bit(argv[2]));
    }

    // Optional argument: "split", "convert" or "collage" runs that part alone.
    const QByteArray only = argc > 1 ? QByteArray(argv[1]) : QByteArray();
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;
    if (only.isEmpty() || only == "collage") {
        const QString photos = dir.filePath("photos");
        QDir().mkpath(photos);
        if (!makePhotos(photos))
            return 5;
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(), {"--collage", photos});
        if (!child.waitForFinished(300000) || child.exitCode() != 0)
            return 6;
    }
    if (only == "collage")
        return 0;
    const QList<ImageAnnotations> images = makeDataset(dir.filePath("source"));
    if (images.size() != kImages)
        return 2;
    if ((only.isEmpty() || only == "split") && !benchSplit(dir.path(), images))
        return 3;
    if ((only.isEmpty() || only == "convert") && !benchConversion(dir.path(), images))
        return 4;
    return 0;
}
