// "Export YOLO labels text files" right after a dataset of 10,000 annotated images (20
// boxes each) is opened, so that no annotation file but the first has been read: the
// timing covers reading every file, the image sizes and the durable writes. The reading
// and the export are then timed apart on a second window, and the creation of as many
// plain files shows what the file system charges for the writes alone.

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

#include <sys/resource.h>

#include "app/mainwindow.h"
#include "model/vocxml.h"
#include "ui/userprompts.h"

namespace {

constexpr int kImages = 10000;
constexpr int kBoxesPerFile = 20;
const char* const kLabelNames[] = {"car", "person", "traffic light", "bicycle", "dog"};

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray pngBytes(int w, int h)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::gray);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray typicalXml(int seed)
{
    ImageAnnotations record;
    record.width = 640;
    record.height = 480;
    for (int k = 0; k < kBoxesPerFile; ++k) {
        BoxAnnotation b;
        b.label = QString::fromLatin1(kLabelNames[(seed + k) % 5]);
        b.points = {QPointF(10 + k * 25, 20 + k * 18), QPointF(40 + k * 25, 60 + k * 18)};
        record.boxes.append(b);
    }
    return VocXml::toXml(record, QStringLiteral("images"));
}

class BenchPrompts : public QtUserPrompts {
public:
    QString folder;
    QString lastNotice;
    int warnings = 0;

    QString existingDirectory(QWidget*, const QString&, const QString&) override { return folder; }
    void information(QWidget*, const QString&, const QString& text) override { lastNotice = text; }
    void warning(QWidget*, const QString& title, const QString& text) override
    {
        ++warnings;
        std::fprintf(stderr, "warning: %s: %s\n", qPrintable(title), qPrintable(text));
    }
};

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// Runs `work` and prints its wall and CPU time; returns the wall time.
qint64 timed(const char* name, const std::function<void()>& work)
{
    QElapsedTimer timer;
    const double cpu = cpuMs();
    timer.start();
    work();
    const qint64 wall = timer.elapsed();
    std::printf("%s_ms: %lld (cpu %.0f)\n", name, wall, cpuMs() - cpu);
    return wall;
}

// What the file system charges for creating this many small files, for comparison:
// every export below creates as many.
void createPlainFiles(const QString& folder)
{
    QDir().mkpath(folder);
    for (int i = 0; i < kImages; ++i)
        writeFile(folder + QStringLiteral("/f%1.txt").arg(i), "0 0.5 0.5 0.1 0.1\n");
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    BenchPrompts prompts;
    UserPrompts::install(&prompts);

    QTemporaryDir dir;
    const QString ann = dir.filePath(QStringLiteral("annotations"));
    QDir().mkpath(ann);
    const QByteArray png = pngBytes(640, 480);
    for (int i = 0; i < kImages; ++i) {
        const QString name = QStringLiteral("img%1").arg(i, 5, 10, QLatin1Char('0'));
        if (!writeFile(dir.filePath(name + QStringLiteral(".png")), png)
            || !writeFile(ann + QLatin1Char('/') + name + QStringLiteral(".xml"), typicalXml(i))) {
            std::fprintf(stderr, "bench_export: cannot write the dataset\n");
            return 1;
        }
    }
    std::printf("filesystem: %s\n", QStorageInfo(dir.path()).fileSystemType().constData());

    // As the user meets it: the export right after opening, nothing read yet.
    MainWindow window;
    window.openDataset(dir.path());
    // No event has run yet: the background scan has not read a single file.
    const bool unread = window.scanIndex == 0 && window.images.size() == kImages
                        && window.images[1].boxes.isEmpty();
    prompts.folder = dir.filePath(QStringLiteral("yolo1"));
    const qint64 total = timed("export_yolo_10k_unread_20_boxes", [&] {
        QMetaObject::invokeMethod(&window, "onExportYolo", Qt::DirectConnection);
    });
    std::printf("target: < 3000 ms: %s\n", total < 3000 ? "met" : "NOT met");
    std::printf("notice: %s\n", qPrintable(QString(prompts.lastNotice).replace('\n', ' ')));
    const bool complete = prompts.lastNotice.startsWith(
        QStringLiteral("Exported %1 YOLO annotation file(s)").arg(kImages));

    // The same in two steps on a second window: the reading, then the export itself.
    MainWindow second;
    second.openDataset(dir.path());
    timed("read_10k_unread_files", [&] { second.readWholeDataset(false); });
    prompts.folder = dir.filePath(QStringLiteral("yolo2"));
    timed("export_yolo_10k_read_before", [&] {
        QMetaObject::invokeMethod(&second, "onExportYolo", Qt::DirectConnection);
    });
    timed("create_10k_plain_files", [&] { createPlainFiles(dir.filePath(QStringLiteral("plain"))); });

    UserPrompts::install(nullptr);
    if (!unread || !complete || prompts.warnings != 0) {
        std::fprintf(stderr, "bench_export: unexpected result (unread %d, complete %d)\n", unread,
                     complete);
        return 1;
    }
    return 0;
}
