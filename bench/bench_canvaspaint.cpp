// The canvas with a large photo and many shapes: one full paint at the fitted view (also
// with every shape selected) and zoomed in 8x, the first paint of an image and after a
// zoom step, and finding the shape under the mouse.

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>

#include "canvas/imagecanvas.h"

namespace {

constexpr int kImageWidth = 6000;
constexpr int kImageHeight = 4000;
constexpr int kShapes = 1000;
constexpr int kWarmUp = 5;
constexpr int kPaints = 50;
constexpr int kHitTests = 2000;

const char* const kLabels[] = {"person", "car", "bicycle", "dog", "traffic light", "bus",
                               "cat", "a rather long label name"};

QPixmap photo()
{
    QImage image(kImageWidth, kImageHeight, QImage::Format_RGB32);
    for (int y = 0; y < kImageHeight; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < kImageWidth; ++x)
            line[x] = qRgb((x * 7 + y) & 255, (y * 3) & 255, ((x ^ y) * 5) & 255);
    }
    return QPixmap::fromImage(image);
}

QList<BoxAnnotation> mixedShapes()
{
    QRandomGenerator rng(20240611);
    QList<BoxAnnotation> shapes;
    shapes.reserve(kShapes);
    for (int i = 0; i < kShapes; ++i) {
        BoxAnnotation b;
        b.label = QString::fromLatin1(kLabels[i % 8]);
        b.type = static_cast<ShapeType>(i % 7);
        const double x = rng.bounded(100, kImageWidth - 400);
        const double y = rng.bounded(100, kImageHeight - 400);
        const double w = rng.bounded(40, 300);
        const double h = rng.bounded(40, 300);
        switch (b.type) {
        case ShapeType::BoundingBox:
        case ShapeType::Line:
            b.points = {QPointF(x, y), QPointF(x + w, y + h)};
            break;
        case ShapeType::Polygon:
            b.points = {QPointF(x, y), QPointF(x + w, y + h * 0.2), QPointF(x + w * 0.8, y + h),
                        QPointF(x + w * 0.1, y + h * 0.7), QPointF(x - w * 0.1, y + h * 0.3)};
            break;
        case ShapeType::Keypoint:
            b.points = {QPointF(x, y)};
            b.visible = i % 2 == 0;
            break;
        case ShapeType::RotatedBox:
            b.angle = rng.bounded(90);
            b.points = ImageCanvas::rotatedBoxCorners(QPointF(x + w / 2, y + h / 2), w, h, b.angle);
            break;
        case ShapeType::Cuboid:
            b.points = {QPointF(x, y),
                        QPointF(x + w, y),
                        QPointF(x + w, y + h),
                        QPointF(x, y + h),
                        QPointF(x + w * 0.3, y - h * 0.3),
                        QPointF(x + w * 1.3, y - h * 0.3),
                        QPointF(x + w * 1.3, y + h * 0.7),
                        QPointF(x + w * 0.3, y + h * 0.7)};
            break;
        case ShapeType::Ellipse:
            b.angle = rng.bounded(180);
            b.points = {QPointF(x + w / 2, y + h / 2), QPointF(w / 2, h / 2)};
            break;
        }
        shapes.append(b);
    }
    return shapes;
}

double threadCpuMs()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

void report(const char* name, double value)
{
    std::printf("%s: %.3f\n", name, value);
    std::fflush(stdout);
}

// One full paint of the canvas into an image, `repeats` times: mean wall-clock
// milliseconds; with `name` the mean is reported, and with it the fastest single paint
// and the mean CPU time of this thread (both closer to what the paint costs when the
// machine is busy with other work).
double paintMs(ImageCanvas& canvas, QImage& target, int repeats, const char* name = nullptr)
{
    const double cpuStart = threadCpuMs();
    double total = 0;
    double fastest = 1e9;
    QElapsedTimer timer;
    for (int i = 0; i < repeats; ++i) {
        timer.start();
        canvas.render(&target);
        const double ms = timer.nsecsElapsed() / 1e6;
        total += ms;
        fastest = std::min(fastest, ms);
    }
    const double cpu = (threadCpuMs() - cpuStart) / repeats;
    if (name) {
        report(name, total / repeats);
        if (repeats > 1)
            report((std::string(name) + "_fastest").c_str(), fastest);
        report((std::string(name) + "_cpu").c_str(), cpu);
    }
    return total / repeats;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    ImageCanvas canvas;
    canvas.resize(1280, 800);
    canvas.show();
    QApplication::processEvents();

    QMap<QString, QColor> colours;
    const QColor palette[] = {{0, 220, 220},  {255, 100, 100}, {100, 220, 100}, {255, 200, 0},
                              {180, 100, 255}, {255, 160, 40}, {80, 200, 255}};
    for (int i = 0; i < 7; ++i) // the last label keeps the fallback colour
        colours.insert(QString::fromLatin1(kLabels[i]), palette[i]);
    canvas.setLabelColors(colours);
    canvas.setImage(photo());
    canvas.setBoxes(mixedShapes());
    canvas.setImageInfo(17, 4200);

    QImage target(canvas.size(), QImage::Format_ARGB32_Premultiplied);

    // The first paint of a new image makes its halved copies (partly on Qt's worker
    // threads, which the CPU figure does not count).
    paintMs(canvas, target, 1, "paint_fit_first_ms");
    paintMs(canvas, target, kWarmUp);
    paintMs(canvas, target, kPaints, "paint_fit_ms");

    // The image alone, to tell its share from the shapes'.
    canvas.setBoxes({});
    paintMs(canvas, target, kWarmUp);
    paintMs(canvas, target, kPaints, "paint_fit_image_only_ms");
    canvas.setBoxes(mixedShapes());

    canvas.selectAll();
    paintMs(canvas, target, kWarmUp);
    paintMs(canvas, target, kPaints, "paint_fit_all_selected_ms");
    canvas.deselect();

    // The first paint at a new scale.
    canvas.zoomIn();
    paintMs(canvas, target, 1, "paint_after_zoom_step_ms");
    canvas.zoomFit();

    // Exactly 8x, centred on the shapes as the zoom buttons centre it.
    canvas.m_zoom = 8.0 / 1.25;
    canvas.zoomIn();
    report("zoom", canvas.zoom());
    paintMs(canvas, target, kWarmUp);
    paintMs(canvas, target, kPaints, "paint_zoom8_ms");

    canvas.zoomFit();
    QRandomGenerator rng(7);
    QList<QPointF> probes;
    for (int i = 0; i < kHitTests; ++i)
        probes.append(QPointF(rng.bounded(1280.0), rng.bounded(800.0)));
    int hits = 0;
    QElapsedTimer timer;
    timer.start();
    for (const QPointF& pos : probes)
        hits += canvas.hitTestBox(pos) >= 0 ? 1 : 0;
    report("hit_test_box_ms", timer.nsecsElapsed() / 1e6 / kHitTests);
    report("hit_test_box_hit_ratio", double(hits) / kHitTests);
    return 0;
}
