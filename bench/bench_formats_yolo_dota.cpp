// Timings of the YOLO and DOTA converters on a large dataset, and of the header-only
// image size lookup against decoding. Prints "name: value" lines.
#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>
#include <functional>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "formats/converterrules.h"
#include "formats/exportimport.h"

namespace {

constexpr int kImages = 10000;
constexpr int kBoxesPerImage = 20;
constexpr int kSizeFilesPerFormat = 500;

void print(const char* name, double value, const char* unit = "")
{
    std::printf("%s: %.3f%s\n", name, value, unit);
    std::fflush(stdout);
}

QList<LabelDef> makeLabels()
{
    QList<LabelDef> labels;
    for (int i = 0; i < 12; ++i)
        labels.append({ QStringLiteral("label_%1").arg(i), QColor(0, 220, 220) });
    return labels;
}

QList<ImageAnnotations> makeImages(const QList<LabelDef>& labels)
{
    QList<ImageAnnotations> images;
    images.reserve(kImages);
    quint32 seed = 12345;
    const auto next = [&seed](int range) {
        seed = seed * 1664525u + 1013904223u;
        return int((seed >> 8) % quint32(range));
    };
    for (int i = 0; i < kImages; ++i) {
        ImageAnnotations image;
        image.imagePath = QStringLiteral("/data/images/img_%1.jpg").arg(i, 5, 10, QLatin1Char('0'));
        image.width = 1920;
        image.height = 1080;
        for (int b = 0; b < kBoxesPerImage; ++b) {
            BoxAnnotation box;
            box.label = labels.at(next(int(labels.size()))).name;
            const int x = next(1800), y = next(1000);
            box.points = { QPointF(x, y), QPointF(x + 1 + next(100), y + 1 + next(70)) };
            image.boxes.append(box);
        }
        images.append(image);
    }
    return images;
}

QList<ImageAnnotations> emptied(QList<ImageAnnotations> images)
{
    for (ImageAnnotations& image : images)
        image.boxes.clear();
    return images;
}

double timeMs(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return timer.nsecsElapsed() / 1e6;
}

// Wall time and the process's user and system CPU time: most of an export's wall time
// is the file system's (creating files, the flush of the batch), not the converter's.
double timeConverter(const char* name, const std::function<void()>& work)
{
    rusage before {};
    rusage after {};
    ::getrusage(RUSAGE_SELF, &before);
    const double wall = timeMs(work);
    ::getrusage(RUSAGE_SELF, &after);
    const auto ms = [](const timeval& a, const timeval& b) {
        return (b.tv_sec - a.tv_sec) * 1000.0 + (b.tv_usec - a.tv_usec) / 1000.0;
    };
    std::printf("%s_ms: %.3f\n%s_user_ms: %.3f\n%s_sys_ms: %.3f\n", name, wall, name,
                ms(before.ru_utime, after.ru_utime), name, ms(before.ru_stime, after.ru_stime));
    std::fflush(stdout);
    return wall;
}

// The floor for any export of one file per image: kImages files of the size of a label
// file written with plain POSIX calls (temporary name, write, close, rename), no flush.
// Returns false when a call fails.
bool rawWriteFiles(const QString& folder, const QByteArray& bytes)
{
    const QByteArray base = QFile::encodeName(folder);
    char temp[4096];
    char target[4096];
    for (int i = 0; i < kImages; ++i) {
        std::snprintf(temp, sizeof temp, "%s/img_%05d.txt.tmp", base.constData(), i);
        std::snprintf(target, sizeof target, "%s/img_%05d.txt", base.constData(), i);
        const int fd = ::open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0)
            return false;
        const bool written = ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
        if (::close(fd) != 0 || !written || std::rename(temp, target) != 0)
            return false;
    }
    return true;
}

// A smooth picture: a few hundred KB per file instead of MBs of noise, so that writing
// the thousand files does not dominate the run.
QByteArray encodedImage(const char* format)
{
    QImage image(4000, 3000, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            line[x] = qRgb(x * 255 / (image.width() - 1), y * 255 / (image.height() - 1), ((x + y) >> 4) & 0xFF);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format, format == QByteArray("PNG") ? 0 : 85);
    return bytes;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;

    const QList<LabelDef> labels = makeLabels();
    const QList<ImageAnnotations> images = makeImages(labels);

    ExportImportResult result;
    // Creating files costs far more than replacing them on this kind of file system: the
    // plain POSIX floor for creating as many files, next to the export into a fresh and
    // into a filled folder.
    const QString rawDir = dir.filePath("raw");
    QDir().mkpath(rawDir);
    bool rawOk = true;
    const double rawCreateMs =
        timeMs([&] { rawOk = rawWriteFiles(rawDir, QByteArray(kBoxesPerImage * 40, 'x')); });
    if (!rawOk)
        return 8;
    print("raw_posix_create_files_ms", rawCreateMs);

    const double yoloFreshMs = timeConverter(
        "yolo_export", [&] { result = ExportImport::exportYolo(images, labels, dir.filePath("yolo")); });
    if (result.count != kImages)
        return 2;
    const double yoloOverwriteMs = timeConverter(
        "yolo_export_overwrite", [&] { result = ExportImport::exportYolo(images, labels, dir.filePath("yolo")); });
    if (result.count != kImages)
        return 2;
    print("yolo_export_over_raw_create_x", yoloFreshMs / rawCreateMs);
    print("yolo_export_overwrite_over_raw_create_x", yoloOverwriteMs / rawCreateMs);

    QList<ImageAnnotations> target = emptied(images);
    QList<LabelDef> targetLabels = labels;
    timeConverter("yolo_import", [&] { result = ExportImport::importYolo(target, targetLabels, dir.filePath("yolo")); });
    if (result.count != kImages || target.at(kImages - 1).boxes.size() != kBoxesPerImage)
        return 3;

    const double dotaFreshMs = timeConverter(
        "dota_export", [&] { result = ExportImport::exportDota(images, dir.filePath("dota")); });
    if (result.count != kImages)
        return 4;
    const double dotaOverwriteMs = timeConverter(
        "dota_export_overwrite", [&] { result = ExportImport::exportDota(images, dir.filePath("dota")); });
    if (result.count != kImages)
        return 4;
    print("dota_export_over_raw_create_x", dotaFreshMs / rawCreateMs);
    print("dota_export_overwrite_over_raw_create_x", dotaOverwriteMs / rawCreateMs);
    target = emptied(images);
    timeConverter("dota_import", [&] { result = ExportImport::importDota(target, targetLabels, dir.filePath("dota")); });
    if (result.count != kImages || target.first().boxes != images.first().boxes)
        return 5;

    // 1,000 images of 4000 x 3000 whose size the records do not know.
    const QString sizeDir = dir.filePath("sizes");
    QDir().mkpath(sizeDir);
    QStringList paths;
    for (const char* format : { "JPG", "PNG" }) {
        const QByteArray bytes = encodedImage(format);
        for (int i = 0; i < kSizeFilesPerFormat; ++i) {
            const QString path = QStringLiteral("%1/img_%2.%3").arg(sizeDir).arg(i).arg(QString::fromLatin1(format).toLower());
            QFile f(path);
            if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
                return 6;
            paths.append(path);
        }
    }
    QList<ImageAnnotations> unknown;
    for (const QString& path : std::as_const(paths)) {
        ImageAnnotations image;
        image.imagePath = path;
        unknown.append(image);
    }
    qint64 checksum = 0;
    const double headerMs = timeMs([&] {
        for (const ImageAnnotations& image : std::as_const(unknown))
            checksum += ConverterRules::imageSize(image).width();
    });
    if (checksum != 4000LL * 2 * kSizeFilesPerFormat)
        return 7;
    print("image_size_header_1000_ms", headerMs);

    // Decoding all 1,000 would take minutes: decode a sample of each format and scale.
    const int sample = 6;
    double decodeMs = 0;
    for (int f = 0; f < 2; ++f) {
        const double ms = timeMs([&] {
            for (int i = 0; i < sample; ++i) {
                QImageReader reader(paths.at(f * kSizeFilesPerFormat + i));
                reader.setAutoTransform(true);
                checksum += reader.read().width();
            }
        });
        print(f == 0 ? "image_decode_jpeg_per_image_ms" : "image_decode_png_per_image_ms", ms / sample);
        decodeMs += ms / sample * kSizeFilesPerFormat;
    }
    print("image_decode_1000_estimated_ms", decodeMs);
    print("image_size_speedup_x", decodeMs / headerMs);
    return 0;
}
