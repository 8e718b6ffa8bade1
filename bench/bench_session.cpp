// The dataset session at scale: opening a folder of 100,000 images up to the first image
// on screen, the memory that costs, and one slice of the background label scan.

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "model/labelscan.h"
#include "model/vocxml.h"
#include "ui/userprompts.h"

namespace {

constexpr int kImages = 100000;
constexpr int kScanFiles = 16;
constexpr int kShapesPerFile = 20;
constexpr int kSliceRepeats = 50;

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

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

// An annotation file of 20 bounding boxes, as a typical labelled photo has.
bool writeTypicalXml(const QString& xmlPath, int seed)
{
    static const char* const labelNames[] = {"car", "person", "traffic light", "bicycle", "dog"};
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    record.width = 1920;
    record.height = 1080;
    for (int k = 0; k < kShapesPerFile; ++k) {
        BoxAnnotation b;
        b.label = QString::fromLatin1(labelNames[(seed + k) % 5]);
        b.points = {QPointF(10 + k * 40, 20 + k * 30), QPointF(60 + k * 40, 90 + k * 30)};
        record.boxes.append(b);
    }
    return VocXml::save(record, QStringLiteral("images"));
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0.0 : values[values.size() / 2];
}

// Answers every prompt as if cancelled, so a benchmark never blocks on a box.
class SilentPrompts : public QtUserPrompts {
public:
    void information(QWidget*, const QString&, const QString&) override {}
    void warning(QWidget*, const QString& title, const QString& text) override
    {
        std::fprintf(stderr, "warning: %s: %s\n", qPrintable(title), qPrintable(text));
    }
    int exec(QDialog*) override { return 0; }
};

bool benchLargeFolder()
{
    QTemporaryDir dir;
    const QByteArray png = pngBytes(1, 1);
    QElapsedTimer setup;
    setup.start();
    for (int i = 0; i < kImages; ++i)
        if (!writeFile(dir.filePath(QStringLiteral("img%1.png").arg(i, 6, 10, QLatin1Char('0'))), png))
            return false;
    // The first slice of the scan finds eight annotated images.
    const QString ann = dir.filePath(QStringLiteral("annotations"));
    QDir().mkpath(ann);
    for (int i = 0; i < 8; ++i)
        if (!writeTypicalXml(ann + QStringLiteral("/img%1.xml").arg(i, 6, 10, QLatin1Char('0')), i))
            return false;
    std::printf("setup_100k_files_ms: %lld\n", setup.elapsed());

    const long rssBefore = residentKiB();
    MainWindow window;
    window.resize(1280, 800);
    window.show();
    QApplication::processEvents();

    QElapsedTimer timer;
    timer.start();
    window.openDataset(dir.path());
    const qint64 opened = timer.elapsed();
    // Let the window lay out and paint the new list once, as a user would see it.
    QApplication::processEvents();
    const qint64 painted = timer.elapsed();

    const bool ok = window.images.size() == kImages && window.currentIndex == 0;
    std::printf("open_100k_to_first_image_ms: %lld (target < 1500)\n", opened);
    std::printf("open_100k_to_first_paint_ms: %lld\n", painted);
    std::printf("rss_after_open_100k_mb: %.1f (target < 150)\n", residentKiB() / 1024.0);
    std::printf("rss_growth_open_100k_mb: %.1f\n", (residentKiB() - rssBefore) / 1024.0);
    std::printf("status: %s\n", qPrintable(window.statusLabel->text()));

    // One scan slice that marks eight rows of the 100,000, with the repaint it causes.
    QList<double> slices;
    for (int r = 0; r < 10; ++r) {
        window.scanIndex = 0;
        QElapsedTimer slice;
        slice.start();
        QMetaObject::invokeMethod(&window, "scanNextBatch", Qt::DirectConnection);
        QApplication::processEvents();
        slices << slice.nsecsElapsed() / 1e6;
    }
    std::printf("scan_slice_in_100k_list_with_repaint_median_ms: %.3f\n", median(slices));

    window.imageList->setCurrentRow(5);
    QElapsedTimer reload;
    reload.start();
    QMetaObject::invokeMethod(&window, "onReloadData", Qt::DirectConnection);
    QApplication::processEvents();
    std::printf("reload_100k_keeping_row_ms: %lld\n", reload.elapsed());
    return ok && window.currentIndex == 5;
}

bool benchScanSlice()
{
    QTemporaryDir dir;
    const QString ann = dir.filePath(QStringLiteral("annotations"));
    QDir().mkpath(ann);
    const QByteArray png = pngBytes(64, 48);
    QStringList xmlPaths;
    for (int i = 0; i < kScanFiles; ++i) {
        const QString name = QStringLiteral("img%1").arg(i, 2, 10, QLatin1Char('0'));
        const QString xmlPath = ann + QLatin1Char('/') + name + QStringLiteral(".xml");
        if (!writeFile(dir.filePath(name + QStringLiteral(".png")), png)
            || !writeTypicalXml(xmlPath, i))
            return false;
        xmlPaths << xmlPath;
    }

    MainWindow window;
    window.openDataset(dir.path());

    // A slice in the middle of a scan: eight images, each with a file of 20 shapes.
    QList<double> slices;
    for (int r = 0; r < kSliceRepeats; ++r) {
        window.scanIndex = 0;
        QElapsedTimer timer;
        timer.start();
        QMetaObject::invokeMethod(&window, "scanNextBatch", Qt::DirectConnection);
        slices << timer.nsecsElapsed() / 1e6;
    }
    QList<double> scans;
    for (int r = 0; r < kSliceRepeats; ++r) {
        QList<LabelDef> labels;
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 8; ++i)
            appendLabelsFromFile(labels, xmlPaths[i]);
        scans << timer.nsecsElapsed() / 1e6;
    }
    std::printf("scan_slice_8_files_median_ms: %.3f (target < 4)\n", median(slices));
    std::printf("scan_slice_8_files_max_ms: %.3f\n",
                *std::max_element(slices.begin(), slices.end()));
    std::printf("label_scanner_8_files_median_ms: %.3f\n", median(scans));
    return window.scanIndex == 8;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    SilentPrompts prompts;
    UserPrompts::install(&prompts);
    const bool scanOk = benchScanSlice();
    const bool openOk = benchLargeFolder();
    UserPrompts::install(nullptr);
    if (!scanOk || !openOk) {
        std::fprintf(stderr, "bench_session: unexpected session state\n");
        return 1;
    }
    return 0;
}
