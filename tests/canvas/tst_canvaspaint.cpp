#include <QApplication>
#include <QLineF>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QTest>
#include <QtMath>

#include <cmath>
#include <memory>

#include "canvas/imagecanvas.h"

Q_DECLARE_METATYPE(BoxAnnotation)
Q_DECLARE_METATYPE(ShapeType)

using Points = QList<QPointF>;

namespace {

// 1000 x 750 in an 800 x 600 widget: 0.8 when fitted (the image is shrunk), about 1.6
// after five wheel steps (enlarged). Shapes sit around the image centre so both views
// show them.
const QSize ImageSize(1000, 750);
const QSize WidgetSize(800, 600);
const QColor ImageColour(60, 60, 60);
const QColor Background(45, 45, 48);
const QColor Car(255, 100, 100);
const QColor Person(100, 220, 100);
const QColor Dog(255, 200, 0);
const QColor Unlisted(0, 220, 220);

BoxAnnotation shape(ShapeType type, const Points& points, const QString& label)
{
    BoxAnnotation b;
    b.type = type;
    b.points = points;
    b.label = label;
    return b;
}

BoxAnnotation bbox(double x1, double y1, double x2, double y2, const QString& label)
{
    return shape(ShapeType::BoundingBox, {QPointF(x1, y1), QPointF(x2, y2)}, label);
}

BoxAnnotation rotated(const QPointF& centre, double w, double h, double angle, const QString& label)
{
    BoxAnnotation b = shape(ShapeType::RotatedBox,
                            ImageCanvas::rotatedBoxCorners(centre, w, h, angle), label);
    b.angle = angle;
    return b;
}

BoxAnnotation ellipse(const QPointF& centre, double rx, double ry, double angle,
                      const QString& label)
{
    BoxAnnotation b = shape(ShapeType::Ellipse, {centre, QPointF(rx, ry)}, label);
    b.angle = angle;
    return b;
}

BoxAnnotation keypoint(const QPointF& at, bool visible, const QString& label)
{
    BoxAnnotation b = shape(ShapeType::Keypoint, {at}, label);
    b.visible = visible;
    return b;
}

BoxAnnotation cuboid(const QString& label)
{
    return shape(ShapeType::Cuboid,
                 {QPointF(400, 320), QPointF(560, 320), QPointF(560, 460), QPointF(400, 460),
                  QPointF(450, 280), QPointF(610, 280), QPointF(610, 420), QPointF(450, 420)},
                 label);
}

// A point of a turned ellipse, t in degrees along its own axes.
QPointF onEllipse(const QPointF& c, double rx, double ry, double angle, double t)
{
    const double a = qDegreesToRadians(angle);
    const double u = rx * std::cos(qDegreesToRadians(t));
    const double v = ry * std::sin(qDegreesToRadians(t));
    return c + QPointF(u * std::cos(a) - v * std::sin(a), u * std::sin(a) + v * std::cos(a));
}

QPixmap solid(const QSize& size, const QColor& colour)
{
    QPixmap p(size);
    p.fill(colour);
    return p;
}

// An image of 100 x 100 blocks, each in its own colour; `seed` changes every colour.
QColor blockColour(int bx, int by, int seed)
{
    return QColor((bx * 23 + seed * 71) % 256, (by * 37 + seed * 13) % 256, (bx * by * 11 + 90) % 256);
}

QPixmap blocks(const QSize& size, int seed)
{
    QImage img(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            img.setPixel(x, y, blockColour(x / 100, y / 100, seed).rgb());
    return QPixmap::fromImage(img);
}

bool sameColour(const QColor& a, const QColor& b, int tolerance)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

// Whether a pixel of `colour` lies within `radius` pixels of `pos`: lines drawn without
// antialiasing land on the nearest whole pixel, which may be either side of a half.
bool colourNear(const QImage& img, const QPointF& pos, const QColor& colour, int radius = 2,
                int tolerance = 3)
{
    const int cx = int(std::floor(pos.x()));
    const int cy = int(std::floor(pos.y()));
    for (int y = cy - radius; y <= cy + radius; ++y)
        for (int x = cx - radius; x <= cx + radius; ++x)
            if (img.valid(x, y) && sameColour(img.pixelColor(x, y), colour, tolerance))
                return true;
    return false;
}

bool darkNear(const QImage& img, const QPointF& pos, int radius)
{
    return colourNear(img, pos, Qt::black, radius, 20);
}

// Pixels of `colour` in the band of width 2 along the segment's middle 80 per cent, per
// pixel of its length along the main direction: about 1 for a solid line, 1/3 dotted,
// 2/3 dashed, 0 where nothing is drawn.
double lineCoverage(const QImage& img, const QLineF& line, const QColor& colour)
{
    const QLineF middle(line.pointAt(0.1), line.pointAt(0.9));
    const QPointF d = middle.p2() - middle.p1();
    const double length = middle.length();
    const QRect area = QRectF(middle.p1(), middle.p2()).normalized().toAlignedRect().adjusted(-2, -2, 2, 2);
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const QPointF p(x + 0.5, y + 0.5);
            const QPointF r = p - middle.p1();
            const double along = QPointF::dotProduct(r, d) / length;
            const double across = std::abs(r.x() * d.y() - r.y() * d.x()) / length;
            if (along < 0 || along > length || across > 1.0)
                continue;
            if (img.valid(x, y) && sameColour(img.pixelColor(x, y), colour, 3))
                ++count;
        }
    }
    return count / std::max(std::abs(d.x()), std::abs(d.y()));
}

int countColour(const QImage& img, const QRect& area, const QColor& colour, int tolerance)
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            if (img.valid(x, y) && sameColour(img.pixelColor(x, y), colour, tolerance))
                ++n;
    return n;
}

QColor blend(const QColor& over, int alpha, const QColor& under)
{
    auto mix = [&](int a, int b) { return int(std::lround(b + (a - b) * alpha / 255.0)); };
    return QColor(mix(over.red(), under.red()), mix(over.green(), under.green()),
                  mix(over.blue(), under.blue()));
}

QFont fontAt(int points, bool bold = false)
{
    QFont f;
    f.setPointSize(points);
    if (bold)
        f.setWeight(QFont::Bold);
    return f;
}

} // namespace

class TestCanvasPaint : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<ImageCanvas> c;
    bool showAt(const QSize& size);
    void zoomSteps(int steps);
    QImage shot() { return c->grab().toImage(); }
    QPointF w(const QPointF& imagePoint) const { return c->imageToWidget(imagePoint); }
    void hover(const QPointF& widgetPos);

private Q_SLOTS:
    void init();
    void cleanup();

    void kindsInLabelColour_data();
    void kindsInLabelColour();
    void shapesWithTooFewPointsAreNotDrawn_data();
    void shapesWithTooFewPointsAreNotDrawn();
    void keypointVisibility_data();
    void keypointVisibility();
    void handlesOfSelectedShape_data();
    void handlesOfSelectedShape();
    void rotationHandleOverPointHandles_data();
    void rotationHandleOverPointHandles();
    void badgesFollowSelection_data();
    void badgesFollowSelection();
    void pointsInProgress_data();
    void pointsInProgress();
    void hintLine_data();
    void hintLine();
    void shrunkImageMatchesTransform_data();
    void shrunkImageMatchesTransform();
};

bool TestCanvasPaint::showAt(const QSize& size)
{
    c->resize(size);
    c->show();
    if (!QTest::qWaitForWindowExposed(c.get()))
        return false;
    return QTest::qWaitFor([&] { return c->size() == size; });
}

void TestCanvasPaint::zoomSteps(int steps)
{
    // Wheel steps over the widget's centre keep the image centre (500, 375) there.
    const QPointF centre(WidgetSize.width() / 2.0, WidgetSize.height() / 2.0);
    for (int i = 0; i < steps; ++i) {
        QWheelEvent ev(centre, c->mapToGlobal(centre), QPoint(), QPoint(0, 120), Qt::NoButton,
                       Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(c.get(), &ev);
    }
}

void TestCanvasPaint::hover(const QPointF& widgetPos)
{
    QMouseEvent ev(QEvent::MouseMove, widgetPos, c->mapToGlobal(widgetPos), Qt::NoButton,
                   Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &ev);
}

void TestCanvasPaint::init()
{
    c = std::make_unique<ImageCanvas>();
    QVERIFY(showAt(WidgetSize));
    c->setImage(solid(ImageSize, ImageColour));
    c->setLabelColors({{"car", Car}, {"person", Person}, {"dog", Dog}});
}

void TestCanvasPaint::cleanup()
{
    c.reset();
}

// --- Each kind --------------------------------------------------------------------------------

void TestCanvasPaint::kindsInLabelColour_data()
{
    QTest::addColumn<BoxAnnotation>("box");
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<Points>("outline");      // image points the outline passes through
    QTest::addColumn<QPointF>("inside");      // image point inside the shape ...
    QTest::addColumn<QColor>("insideColour"); // ... and its colour (invalid: not checked)
    QTest::addColumn<QLineF>("broken");       // a dashed or dotted line (null: none)
    QTest::addColumn<QColor>("brokenColour");
    QTest::addColumn<int>("zoom"); // wheel steps in over the image centre

    const QPointF c(500, 375);
    const BoxAnnotation poly = shape(
        ShapeType::Polygon, {QPointF(400, 300), QPointF(620, 320), QPointF(600, 460), QPointF(420, 430)},
        "person");
    const BoxAnnotation turned = rotated(c, 240, 120, 30, "person");
    const Points corners = turned.points;
    const BoxAnnotation tilted = ellipse(c, 150, 80, 30, "car");

    for (int zoom : {0, 5}) {
        const char* view = zoom ? "zoomed" : "fitted";
        QTest::addRow("box, %s", view)
            << bbox(400, 300, 600, 450, "car") << Car
            << Points {{400, 375}, {601, 375}, {500, 451}, {550, 300}} << c << ImageColour
            << QLineF() << QColor() << zoom;
        QTest::addRow("box with an unlisted label, %s", view)
            << bbox(400, 300, 600, 450, "tree") << Unlisted
            << Points {{400, 375}, {601, 375}, {500, 451}} << c << ImageColour << QLineF()
            << QColor() << zoom;
        QTest::addRow("polygon, %s", view)
            << poly << Person << Points {{510, 310}, {610, 390}, {510, 445}, {410, 365}}
            << QPointF(560, 420) << blend(Person, 40, ImageColour) << QLineF() << QColor() << zoom;
        QTest::addRow("line, %s", view)
            << shape(ShapeType::Line, {QPointF(400, 300), QPointF(600, 420)}, "dog") << Dog
            << Points {{450, 330}, {550, 390}} << QPointF() << QColor() << QLineF() << QColor()
            << zoom;
        QTest::addRow("keypoint, %s", view)
            << keypoint(c, true, "car") << Car << Points {c} << QPointF() << QColor() << QLineF()
            << QColor() << zoom;
        QTest::addRow("rotated box, %s", view)
            << turned << Person
            << Points {(corners[0] + corners[1]) / 2, (corners[1] + corners[2]) / 2,
                       (corners[2] + corners[3]) / 2, (corners[3] + corners[0]) / 2}
            << c << ImageColour << QLineF() << QColor() << zoom;
        QTest::addRow("cuboid, %s", view)
            << cuboid("dog") << Dog << Points {{480, 460}, {400, 390}, {560, 350}, {480, 320}}
            << QPointF(480, 440) << ImageColour << QLineF(610, 280, 610, 420) << Dog.darker(150)
            << zoom;
        QTest::addRow("cuboid with an unlisted label, %s", view)
            << cuboid("tree") << Unlisted << Points {{480, 460}, {400, 390}} << QPointF()
            << QColor() << QLineF(610, 280, 610, 420) << Unlisted.darker(150) << zoom;
        QTest::addRow("tilted ellipse, %s", view)
            << tilted << Car
            << Points {onEllipse(c, 150, 80, 30, 0), onEllipse(c, 150, 80, 30, 45),
                       onEllipse(c, 150, 80, 30, 90), onEllipse(c, 150, 80, 30, 180)}
            << c + QPointF(30, 30) << ImageColour
            << QLineF(onEllipse(c, 150, 80, 30, 180), onEllipse(c, 150, 80, 30, 0)) << Car << zoom;
    }
    // Every corner out of sight: only the fill shows.
    QTest::newRow("polygon larger than the view, zoomed")
        << shape(ShapeType::Polygon,
                 {QPointF(100, 100), QPointF(900, 120), QPointF(880, 700), QPointF(120, 650)}, "person")
        << Person << Points {} << QPointF(450, 300) << blend(Person, 40, ImageColour) << QLineF()
        << QColor() << 5;
}

void TestCanvasPaint::kindsInLabelColour()
{
    QFETCH(BoxAnnotation, box);
    QFETCH(QColor, colour);
    QFETCH(Points, outline);
    QFETCH(QPointF, inside);
    QFETCH(QColor, insideColour);
    QFETCH(QLineF, broken);
    QFETCH(QColor, brokenColour);
    QFETCH(int, zoom);

    c->setBoxes({box});
    zoomSteps(zoom);
    const QImage img = shot();

    for (const QPointF& p : outline)
        QVERIFY2(colourNear(img, w(p), colour),
                 qPrintable(QStringLiteral("no outline at image (%1, %2)").arg(p.x()).arg(p.y())));
    if (insideColour.isValid()) {
        const QPointF p = w(inside);
        QVERIFY2(sameColour(img.pixelColor(p.toPoint()), insideColour, 2),
                 qPrintable(img.pixelColor(p.toPoint()).name()));
    }
    if (!broken.isNull()) {
        const double coverage = lineCoverage(img, QLineF(w(broken.p1()), w(broken.p2())), brokenColour);
        QVERIFY2(coverage > 0.15 && coverage < 0.85, qPrintable(QString::number(coverage)));
    }
    if (box.type == ShapeType::Line) {
        // Two 12-pixel strokes at 0.4 radians either side of the reversed line.
        const QPointF a = w(box.points[0]);
        const QPointF e = w(box.points[1]);
        const double angle = std::atan2(e.y() - a.y(), e.x() - a.x());
        for (double side : {-0.4, 0.4}) {
            const QPointF mid = e - 6.0 * QPointF(std::cos(angle + side), std::sin(angle + side));
            QVERIFY(colourNear(img, mid, colour, 1));
        }
        // Nothing beyond the tip.
        QVERIFY(!colourNear(img, e + 6.0 * QPointF(std::cos(angle), std::sin(angle)), colour, 1));
    }
}

void TestCanvasPaint::shapesWithTooFewPointsAreNotDrawn_data()
{
    QTest::addColumn<BoxAnnotation>("box");

    QTest::newRow("box with one corner") << shape(ShapeType::BoundingBox, {QPointF(400, 300)}, "car");
    QTest::newRow("polygon with one point") << shape(ShapeType::Polygon, {QPointF(400, 300)}, "car");
    QTest::newRow("line with one point") << shape(ShapeType::Line, {QPointF(400, 300)}, "car");
    QTest::newRow("keypoint without a point") << shape(ShapeType::Keypoint, {}, "car");
    QTest::newRow("rotated box with three corners")
        << shape(ShapeType::RotatedBox, {QPointF(400, 300), QPointF(500, 300), QPointF(500, 400)}, "car");
    BoxAnnotation seven = cuboid("car");
    seven.points.removeLast();
    QTest::newRow("cuboid with seven points") << seven;
    QTest::newRow("ellipse without radii") << shape(ShapeType::Ellipse, {QPointF(500, 375)}, "car");
}

void TestCanvasPaint::shapesWithTooFewPointsAreNotDrawn()
{
    QFETCH(BoxAnnotation, box);

    const QImage empty = shot();
    c->setBoxes({box});
    QCOMPARE(shot(), empty);
    c->selectAll();
    QVERIFY(c->allSelected());
    QCOMPARE(countColour(shot(), QRect(QPoint(0, 0), WidgetSize), Car, 3), 0);
}

// --- Keypoints ----------------------------------------------------------------------------------

void TestCanvasPaint::keypointVisibility_data()
{
    QTest::addColumn<bool>("visible");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<int>("zoom"); // wheel steps in over the image centre

    for (int zoom : {0, 5}) {
        for (bool selected : {false, true}) {
            QTest::addRow("visible%s, zoom %d", selected ? ", selected" : "", zoom)
                << true << selected << zoom;
            QTest::addRow("occluded%s, zoom %d", selected ? ", selected" : "", zoom)
                << false << selected << zoom;
        }
    }
}

void TestCanvasPaint::keypointVisibility()
{
    QFETCH(bool, visible);
    QFETCH(bool, selected);
    QFETCH(int, zoom);

    c->setBoxes({keypoint(QPointF(500.3, 374.6), visible, "dog")});
    zoomSteps(zoom);
    if (selected)
        c->setSelectedIndex(0);
    const QImage img = shot();
    const QPoint k = w(QPointF(500.3, 374.6)).toPoint();
    const int radius = visible ? 7 : 5;
    const QColor grey(150, 150, 150);

    if (visible) {
        // A disc of radius 7 in the label colour.
        QCOMPARE(img.pixelColor(k), Dog);
        QCOMPARE(img.pixelColor(k + QPoint(3, 0)), Dog);
        QCOMPARE(img.pixelColor(k + QPoint(6, 0)), Dog);
        QCOMPARE(img.pixelColor(k + QPoint(0, -6)), Dog);
        QCOMPARE(countColour(img, QRect(k - QPoint(7, 7), QSize(15, 15)), grey, 3), 0);
    } else {
        // Smaller, grey, with a white cross over the diagonals.
        QCOMPARE(img.pixelColor(k), QColor(Qt::white));
        QCOMPARE(img.pixelColor(k + QPoint(2, 2)), QColor(Qt::white));
        QCOMPARE(img.pixelColor(k + QPoint(-2, 2)), QColor(Qt::white));
        QCOMPARE(img.pixelColor(k + QPoint(3, 0)), grey);
        QCOMPARE(img.pixelColor(k + QPoint(0, -3)), grey);
        QCOMPARE(img.pixelColor(k + QPoint(6, 0)), ImageColour);
        QVERIFY(colourNear(img, k + QPoint(5, 0), Dog, 1)); // the outline
    }

    // The label as plain text in the label colour, above and right of the disc.
    const QFontMetrics fm(fontAt(8));
    const QRect caption(k.x() + radius + 2, k.y() - radius - fm.ascent(),
                        fm.horizontalAdvance(QStringLiteral("dog")), fm.ascent());
    QVERIFY(countColour(img, caption, Dog, 40) > 5);
    QCOMPARE(countColour(img, caption, Dog.darker(110), 3), 0); // no badge

    // Selected: a dotted white ring 4 pixels outside the disc.
    int ring = 0;
    for (int y = -radius - 6; y <= radius + 6; ++y)
        for (int x = -radius - 6; x <= radius + 6; ++x) {
            const double d = std::hypot(x, y);
            if (d > radius + 2.5 && d < radius + 5.5 && img.pixelColor(k + QPoint(x, y)) == Qt::white)
                ++ring;
        }
    if (selected)
        QVERIFY2(ring > 8 && ring < 6.28 * (radius + 4) * 0.8, qPrintable(QString::number(ring)));
    else
        QCOMPARE(ring, 0);
}

// --- Handles ------------------------------------------------------------------------------------

void TestCanvasPaint::handlesOfSelectedShape_data()
{
    QTest::addColumn<BoxAnnotation>("box");
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<Points>("handles");   // image positions, in handle order
    QTest::addColumn<QPointF>("rotation"); // offset of the rotation handle in widget pixels ...
    QTest::addColumn<QPointF>("pivot");    // ... from this image point (null: no handle)
    QTest::addColumn<int>("zoom"); // wheel steps in over the image centre

    const QPointF c(500, 375);
    const BoxAnnotation turned = rotated(c, 240, 120, 30, "car");
    const BoxAnnotation poly = shape(
        ShapeType::Polygon, {QPointF(400, 300), QPointF(620, 320), QPointF(600, 460), QPointF(420, 430)},
        "person");
    const BoxAnnotation line = shape(ShapeType::Line, {QPointF(400, 300), QPointF(600, 420)}, "dog");
    for (int zoom : {0, 5}) {
        const char* view = zoom ? "zoomed" : "fitted";
        // The box's handles lie on its pixel edges: the right and bottom edges are one
        // pixel past the last covered pixel.
        QTest::addRow("box, %s", view)
            << bbox(400, 300, 599, 449, "car") << Car
            << Points {{400, 300}, {500, 300}, {600, 300}, {400, 375}, {600, 375},
                       {400, 450}, {500, 450}, {600, 450}}
            << QPointF() << QPointF() << zoom;
        QTest::addRow("polygon, %s", view) << poly << Person << poly.points << QPointF() << QPointF() << zoom;
        QTest::addRow("line, %s", view) << line << Dog << line.points << QPointF() << QPointF() << zoom;
        QTest::addRow("cuboid, %s", view)
            << cuboid("tree") << Unlisted << cuboid("tree").points << QPointF() << QPointF() << zoom;
        QTest::addRow("rotated box, %s", view)
            << turned << Car << turned.points << QPointF(0, -30) << c << zoom;
        // Right, left, bottom and top of the centre, not turned with the ellipse.
        QTest::addRow("tilted ellipse, %s", view)
            << ellipse(c, 150, 80, 30, "car") << Car
            << Points {{650, 375}, {350, 375}, {500, 455}, {500, 295}} << QPointF(0, -24)
            << QPointF(500, 295) << zoom;
    }
}

void TestCanvasPaint::handlesOfSelectedShape()
{
    QFETCH(BoxAnnotation, box);
    QFETCH(QColor, colour);
    QFETCH(Points, handles);
    QFETCH(QPointF, rotation);
    QFETCH(QPointF, pivot);
    QFETCH(int, zoom);

    c->setBoxes({box});
    zoomSteps(zoom);
    const QImage plain = shot();
    c->setSelectedIndex(0);
    const QImage selected = shot();

    // Each handle is an 8-pixel mark with a black outline, where the mouse grabs it.
    for (int k = 0; k < handles.size(); ++k) {
        const QPointF at = w(handles[k]);
        QVERIFY2(darkNear(selected, at, 5), qPrintable(QStringLiteral("handle %1").arg(k)));
        QVERIFY(!darkNear(plain, at, 5));
        // Filled with the label colour (off the centre line, where an ellipse's rotation
        // line starts over its top handle).
        QCOMPARE(selected.pixelColor(at.toPoint() + QPoint(2, 1)), colour);
        QCOMPARE(c->hitTestHandle(at, 0), k);
    }

    const QColor green(0, 255, 0);
    if (pivot.isNull()) {
        QCOMPARE(countColour(selected, QRect(QPoint(0, 0), WidgetSize), green, 0), 0);
        return;
    }
    const QPointF knob = w(pivot) + rotation;
    QCOMPARE(selected.pixelColor(knob.toPoint()), green);
    QVERIFY(darkNear(selected, knob + QPointF(0, -6), 1));
    QVERIFY(!colourNear(plain, knob, green, 6, 0));
    QCOMPARE(c->hitTestRotHandle(knob, 0), 0);
    // Joined to the shape by a dotted green line.
    const double coverage = lineCoverage(selected, QLineF(w(pivot), knob + QPointF(0, 7)), green);
    QVERIFY2(coverage > 0.15 && coverage < 0.85, qPrintable(QString::number(coverage)));
}

void TestCanvasPaint::rotationHandleOverPointHandles_data()
{
    QTest::addColumn<BoxAnnotation>("box");
    QTest::addColumn<QRect>("overlap"); // widget pixels where a point handle lies under ...
    QTest::addColumn<int>("minGreen");  // ... the rotation handle or its dotted line

    // Fitted at 0.8, the image centre (500, 375) is widget (400, 300).
    // A box 8 x 64 widget pixels: its top corner handles reach into the rotation knob
    // 30 pixels above the centre.
    QTest::newRow("narrow rotated box")
        << rotated(QPointF(500, 375), 10, 80, 0, "car") << QRect(397, 268, 2, 2) << 4;
    // The dotted line starts at the top of the vertical semi-axis, inside the top handle.
    QTest::newRow("ellipse")
        << ellipse(QPointF(500, 375), 150, 80, 0, "car") << QRect(398, 232, 5, 4) << 1;
}

void TestCanvasPaint::rotationHandleOverPointHandles()
{
    QFETCH(BoxAnnotation, box);
    QFETCH(QRect, overlap);
    QFETCH(int, minGreen);

    c->setBoxes({box});
    c->setSelectedIndex(0);
    QCOMPARE(c->scale(), 0.8);
    const QImage img = shot();
    QVERIFY(countColour(img, overlap.adjusted(-6, -6, 6, 6), Car, 0) > 0);
    const int green = countColour(img, overlap, QColor(0, 255, 0), 0);
    QVERIFY2(green >= minGreen, qPrintable(QString::number(green)));
}

// --- Badges and select-all --------------------------------------------------------------------

void TestCanvasPaint::badgesFollowSelection_data()
{
    QTest::addColumn<int>("selection"); // -1 none, 0 or 1 that shape, 2 all
    QTest::addColumn<bool>("firstSelected");
    QTest::addColumn<bool>("secondSelected");

    QTest::newRow("nothing selected") << -1 << false << false;
    QTest::newRow("first selected") << 0 << true << false;
    QTest::newRow("second selected") << 1 << false << true;
    QTest::newRow("all selected") << 2 << true << true;
}

void TestCanvasPaint::badgesFollowSelection()
{
    QFETCH(int, selection);
    QFETCH(bool, firstSelected);
    QFETCH(bool, secondSelected);

    // A 1000 x 500 image leaves 100 pixels of background above it: the badge of a box at
    // the image's top edge is drawn there.
    c->setImage(solid(QSize(1000, 500), ImageColour));
    const BoxAnnotation top = bbox(100, 0, 300, 200, "car");
    const BoxAnnotation poly = shape(
        ShapeType::Polygon, {QPointF(500, 100), QPointF(800, 120), QPointF(700, 400)}, "person");
    c->setBoxes({top, poly});
    const QImage plain = shot();
    if (selection == 2)
        c->selectAll();
    else
        c->setSelectedIndex(selection);
    const QImage img = shot();

    const QFontMetrics normal(fontAt(9));
    const QFontMetrics bold(fontAt(9, true));

    // The box's badge: bottom-left corner on the box's top-left corner, 17 high, filled
    // with the plain label colour only while the box is selected.
    const QPointF tl = w(QPointF(100, 0));
    QVERIFY(tl.y() > 90); // in the background above the image
    const int boxBadgeWidth = (firstSelected ? bold : normal).horizontalAdvance("car") + 8;
    const QColor boxFill = firstSelected ? Car : Car.darker(110);
    auto at = [&](double x, double y) { return img.pixelColor(QPointF(x, y).toPoint()).name(); };
    QCOMPARE(at(tl.x() + 1, tl.y() - 6), boxFill.name());
    QCOMPARE(at(tl.x() + 1, tl.y() - 16), boxFill.name());
    QCOMPARE(at(tl.x() + boxBadgeWidth - 2, tl.y() - 9), boxFill.name());
    QCOMPARE(at(tl.x() + 1, tl.y() - 19), Background.name());
    QCOMPARE(at(tl.x() + boxBadgeWidth + 2, tl.y() - 9), Background.name());
    const QRect boxBadge = QRectF(tl.x(), tl.y() - 17, boxBadgeWidth, 17).toRect();
    QVERIFY(countColour(img, boxBadge, Qt::white, 60) > 5);

    // The polygon's badge sits on the mean of its points, always in the darker fill.
    QPointF mean(0, 0);
    for (const QPointF& p : poly.points)
        mean += w(p);
    mean /= poly.points.size();
    const QColor polyFill = Person.darker(110);
    const int polyBadgeWidth = (secondSelected ? bold : normal).horizontalAdvance("person") + 8;
    QCOMPARE(at(mean.x() - polyBadgeWidth / 2.0 + 1, mean.y() - 7), polyFill.name());
    QCOMPARE(at(mean.x() + polyBadgeWidth / 2.0 - 2, mean.y() + 6), polyFill.name());
    QVERIFY(sameColour(img.pixelColor((mean + QPointF(0, 10)).toPoint()),
                       blend(Person, 40, ImageColour), 2));
    const QRect polyBadge = QRectF(mean.x() - polyBadgeWidth / 2.0, mean.y() - 8, polyBadgeWidth, 16).toRect();

    // Bold text covers more pixels than normal text.
    const int boxText = countColour(img, boxBadge, Qt::white, 60);
    const int boxTextPlain = countColour(plain, boxBadge, Qt::white, 60);
    const int polyText = countColour(img, polyBadge, Qt::white, 60);
    const int polyTextPlain = countColour(plain, polyBadge, Qt::white, 60);
    QCOMPARE(boxText > boxTextPlain, firstSelected);
    QCOMPARE(polyText > polyTextPlain, secondSelected);

    // Handles on every selected shape, and only there.
    QCOMPARE(darkNear(img, w(QPointF(300, 200)), 5), firstSelected);
    QCOMPARE(darkNear(img, w(QPointF(700, 400)), 5), secondSelected);
    // A selected outline is 2 pixels wide.
    const QPointF leftEdge = w(QPointF(100, 50));
    int wide = 0;
    for (int dx = -2; dx <= 2; ++dx)
        wide += img.pixelColor(leftEdge.toPoint() + QPoint(dx, 0)) == Car ? 1 : 0;
    QCOMPARE(wide, firstSelected ? 2 : 1);
}

// --- Drawing in progress and the hint -----------------------------------------------------------

void TestCanvasPaint::pointsInProgress_data()
{
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<Points>("clicks"); // image positions
    QTest::addColumn<bool>("closing");  // last point joined back to the first
    QTest::addColumn<int>("zoom"); // wheel steps in over the image centre

    const Points triangle {{350, 250}, {650, 260}, {520, 480}};
    for (int zoom : {0, 5}) {
        QTest::addRow("polygon, two points, zoom %d", zoom)
            << ShapeType::Polygon << triangle.mid(0, 2) << false << zoom;
        QTest::addRow("polygon, three points, zoom %d", zoom)
            << ShapeType::Polygon << triangle << true << zoom;
        QTest::addRow("cuboid, three points, zoom %d", zoom)
            << ShapeType::Cuboid << triangle << false << zoom;
    }
}

void TestCanvasPaint::pointsInProgress()
{
    QFETCH(ShapeType, kind);
    QFETCH(Points, clicks);
    QFETCH(bool, closing);
    QFETCH(int, zoom);

    zoomSteps(zoom);
    c->setCurrentShape(kind);
    c->currentLabel = QStringLiteral("dog");
    for (const QPointF& p : clicks)
        QTest::mouseClick(c.get(), Qt::LeftButton, {}, w(p).toPoint());
    QCOMPARE(c->m_wipPoints.size(), clicks.size());
    const QPointF mouse = w(QPointF(380, 450));
    hover(mouse);
    const QImage img = shot();

    // Dashed segments in the colour of the label new shapes get, a ring on every point.
    for (int i = 1; i < clicks.size(); ++i) {
        const double coverage = lineCoverage(img, QLineF(w(clicks[i - 1]), w(clicks[i])), Dog);
        QVERIFY2(coverage > 0.3 && coverage < 0.85, qPrintable(QString::number(coverage)));
    }
    const QPointF last = w(clicks.last());
    const double toMouse = lineCoverage(img, QLineF(last, mouse), Dog);
    QVERIFY2(toMouse > 0.3 && toMouse < 0.85, qPrintable(QString::number(toMouse)));
    const double back = lineCoverage(img, QLineF(last, w(clicks.first())), Dog);
    if (closing)
        QVERIFY2(back > 0.3 && back < 0.85, qPrintable(QString::number(back)));
    else if (clicks.size() > 2)
        QCOMPARE(back, 0.0);
    // A ring, not a disc, on every point.
    for (const QPointF& p : clicks) {
        const int n = countColour(img, QRect(w(p).toPoint() - QPoint(5, 5), QSize(11, 11)), Dog, 3);
        QVERIFY2(n > 6 && n < 40, qPrintable(QString::number(n)));
    }
}

void TestCanvasPaint::hintLine_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QString>("text");

    const QString box = QStringLiteral("Click & drag to draw %1  |  Right-click drag to pan");
    const QString click = QStringLiteral("Click to draw %1  |  Right-click drag to pan");
    QTest::newRow("box") << "idle" << ShapeType::BoundingBox << box.arg("Box");
    QTest::newRow("polygon") << "idle" << ShapeType::Polygon << click.arg("Polygon");
    QTest::newRow("line") << "idle" << ShapeType::Line << box.arg("Line");
    QTest::newRow("keypoint") << "idle" << ShapeType::Keypoint << click.arg("Keypoint");
    QTest::newRow("rotated box") << "idle" << ShapeType::RotatedBox << box.arg("RotatedBox");
    QTest::newRow("cuboid") << "idle" << ShapeType::Cuboid << click.arg("Cuboid");
    QTest::newRow("ellipse") << "idle" << ShapeType::Ellipse << box.arg("Ellipse");
    QTest::newRow("polygon, 2 points")
        << "2 points" << ShapeType::Polygon
        << "Polygon: 2 pts  |  DblClick or Enter to close  |  Esc cancel";
    QTest::newRow("polygon, 5 points")
        << "5 points" << ShapeType::Polygon
        << "Polygon: 5 pts  |  DblClick or Enter to close  |  Esc cancel";
    QTest::newRow("cuboid, 2 points")
        << "2 points" << ShapeType::Cuboid << "Cuboid: 2/8 pts  |  Click to add  |  Esc cancel";
    QTest::newRow("cuboid, 7 points")
        << "7 points" << ShapeType::Cuboid << "Cuboid: 7/8 pts  |  Click to add  |  Esc cancel";
    QTest::newRow("shape selected")
        << "selected" << ShapeType::Ellipse
        << "Drag to move  |  Handles to resize  |  Click outside to deselect";
    QTest::newRow("all selected")
        << "all" << ShapeType::BoundingBox << "All selected  |  Ctrl+C copy  |  Del delete";
    QTest::newRow("space held") << "space" << ShapeType::BoundingBox << "Pan mode";
    QTest::newRow("space held while placing points")
        << "space, 2 points" << ShapeType::Polygon << "Pan mode";
}

void TestCanvasPaint::hintLine()
{
    QFETCH(QString, state);
    QFETCH(ShapeType, kind);
    QFETCH(QString, text);

    c->setBoxes({bbox(100, 100, 200, 200, "car")});
    c->setCurrentShape(kind);
    if (state.endsWith(QLatin1String("points"))) {
        const int n = state.section(' ', -2, -2).toInt();
        for (int i = 0; i < n; ++i)
            QTest::mouseClick(c.get(), Qt::LeftButton, {}, QPoint(300 + 40 * i, 250 + (i % 2) * 60));
        QCOMPARE(c->m_wipPoints.size(), n);
    }
    if (state == "selected")
        c->setSelectedIndex(0);
    if (state == "all")
        c->selectAll();
    if (state.startsWith(QLatin1String("space")))
        c->setSpaceHeld(true);

    QCOMPARE(c->hintText(), text);

    // Black at alpha 140 from (W - a - 18, H - 22) to (W - 7, H - 5), a the text's advance
    // at 8 points; the text itself in light grey.
    const QImage img = shot();
    const int a = QFontMetrics(fontAt(8)).horizontalAdvance(text);
    const int right = WidgetSize.width() - 7;
    const int left = WidgetSize.width() - a - 18;
    const int top = WidgetSize.height() - 22;
    const int bottom = WidgetSize.height() - 5;
    const QColor box = blend(Qt::black, 140, ImageColour);
    for (const QPoint& p : {QPoint(left, top), QPoint(right, top), QPoint(left, bottom),
                            QPoint(right, bottom), QPoint(left + 2, top + 9)})
        QVERIFY2(sameColour(img.pixelColor(p), box, 2), qPrintable(img.pixelColor(p).name()));
    for (const QPoint& p : {QPoint(left - 1, top + 9), QPoint(right + 1, top + 9),
                            QPoint(left + 5, top - 1), QPoint(left + 5, bottom + 1)})
        QCOMPARE(img.pixelColor(p), ImageColour);
    QVERIFY(countColour(img, QRect(QPoint(left, top), QPoint(right, bottom)), QColor(200, 200, 200), 30) > 20);
}

// --- The image when shrunk ----------------------------------------------------------------------

void TestCanvasPaint::shrunkImageMatchesTransform_data()
{
    QTest::addColumn<QSize>("imageSize");
    QTest::addColumn<int>("zoomSteps"); // negative: zoom out
    QTest::addColumn<bool>("background");
    QTest::addColumn<QPoint>("pan");    // right-drag after the first look (null: none)

    QTest::newRow("fitted, half size") << QSize(1600, 1200) << 0 << false << QPoint();
    QTest::newRow("fitted, a fifth") << QSize(4000, 3000) << 0 << false << QPoint();
    QTest::newRow("one step in") << QSize(1600, 1200) << 1 << false << QPoint();
    QTest::newRow("zoomed out") << QSize(1600, 1200) << -2 << true << QPoint();
    QTest::newRow("a fifth, zoomed out") << QSize(4000, 3000) << -2 << true << QPoint();
    // Still covering the whole widget after the pan: the visible area keeps its size.
    QTest::newRow("two steps in, then panned")
        << QSize(4000, 3000) << 2 << false << QPoint(-130, 57);
    QTest::newRow("zoomed out, then panned")
        << QSize(4000, 3000) << -1 << true << QPoint(211, -33);
}

void TestCanvasPaint::shrunkImageMatchesTransform()
{
    QFETCH(QSize, imageSize);
    QFETCH(int, zoomSteps);
    QFETCH(bool, background);
    QFETCH(QPoint, pan);

    // Compares the painted image with the view transform, away from block borders.
    auto check = [&](int seed, bool expectBackground) {
        const QImage img = shot();
        int inside = 0;
        int outside = 0;
        for (int y = 40; y < WidgetSize.height() - 30; y += 7) {
            for (int x = 3; x < WidgetSize.width(); x += 7) {
                const QPointF p = c->widgetToImage(QPointF(x + 0.5, y + 0.5));
                const double fx = p.x() / 100 - std::floor(p.x() / 100);
                const double fy = p.y() / 100 - std::floor(p.y() / 100);
                const QColor got = img.pixelColor(x, y);
                if (p.x() >= 0 && p.y() >= 0 && p.x() < imageSize.width() && p.y() < imageSize.height()) {
                    // Filtering blends neighbouring blocks near their borders.
                    const double margin = 3.0 / (c->scale() * 100);
                    if (fx < margin || fx > 1 - margin || fy < margin || fy > 1 - margin)
                        continue;
                    const QColor want = blockColour(int(p.x()) / 100, int(p.y()) / 100, seed);
                    if (!sameColour(got, want, 1)) {
                        qWarning("at (%d, %d): %s, expected %s", x, y, qPrintable(got.name()),
                                 qPrintable(want.name()));
                        return false;
                    }
                    ++inside;
                } else if (p.x() < -3 / c->scale() || p.y() < -3 / c->scale()
                           || p.x() > imageSize.width() + 3 / c->scale()
                           || p.y() > imageSize.height() + 3 / c->scale()) {
                    if (got != Background) {
                        qWarning("at (%d, %d): %s, expected the background", x, y,
                                 qPrintable(got.name()));
                        return false;
                    }
                    ++outside;
                }
            }
        }
        return inside > 100 && (outside > 20) == expectBackground;
    };

    for (int seed : {1, 2}) {
        // A second image of the same size must not show the first one's pixels.
        c->setImage(blocks(imageSize, seed));
        for (int i = 0; i < std::abs(zoomSteps); ++i)
            zoomSteps > 0 ? c->zoomIn() : c->zoomOut();
        QVERIFY(c->scale() < 1.0);
        QVERIFY(check(seed, pan.isNull() ? background : zoomSteps < 0));
        if (pan.isNull())
            continue;
        // The same view moved: the image must follow, not stay where it was painted.
        const QPoint from(400, 300);
        QTest::mousePress(c.get(), Qt::RightButton, {}, from);
        QMouseEvent move(QEvent::MouseMove, QPointF(from + pan), c->mapToGlobal(QPointF(from + pan)),
                         Qt::NoButton, Qt::RightButton, Qt::NoModifier);
        QApplication::sendEvent(c.get(), &move);
        QTest::mouseRelease(c.get(), Qt::RightButton, {}, from + pan);
        QVERIFY(check(seed, background));
        // And a zoom step from there, which centres the image again and fills the widget.
        c->zoomIn();
        QVERIFY(c->scale() < 1.0);
        QVERIFY(check(seed, false));
    }
}

QTEST_MAIN(TestCanvasPaint)
#include "tst_canvaspaint.moc"
