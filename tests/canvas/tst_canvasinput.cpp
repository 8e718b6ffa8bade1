#include <QApplication>
#include <QKeyEvent>
#include <QLineF>
#include <QMouseEvent>
#include <QTest>
#include <QtMath>

#include <cmath>
#include <memory>

#include "canvas/imagecanvas.h"

Q_DECLARE_METATYPE(BoxAnnotation)
Q_DECLARE_METATYPE(ShapeType)

using Points = QList<QPointF>;
using Boxes = QList<BoxAnnotation>;

namespace {

BoxAnnotation shape(ShapeType type, const Points& points, const QString& label = "object")
{
    BoxAnnotation b;
    b.type = type;
    b.points = points;
    b.label = label;
    return b;
}

BoxAnnotation bbox(double x1, double y1, double x2, double y2, const QString& label = "object")
{
    return shape(ShapeType::BoundingBox, {QPointF(x1, y1), QPointF(x2, y2)}, label);
}

BoxAnnotation ellipse(const QPointF& centre, double rx, double ry, double angle = 0)
{
    BoxAnnotation b = shape(ShapeType::Ellipse, {centre, QPointF(rx, ry)});
    b.angle = angle;
    return b;
}

QPixmap solid(const QSize& size)
{
    QPixmap p(size);
    p.fill(Qt::darkCyan);
    return p;
}

bool near(const QPointF& a, const QPointF& b, double eps = 1e-6)
{
    return std::abs(a.x() - b.x()) < eps && std::abs(a.y() - b.y()) < eps;
}

bool nearPoints(const Points& a, const Points& b, double eps = 1e-6)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (!near(a.at(i), b.at(i), eps))
            return false;
    }
    return true;
}

QString describe(const Points& points)
{
    QStringList parts;
    for (const QPointF& p : points)
        parts << QStringLiteral("(%1, %2)").arg(p.x()).arg(p.y());
    return parts.join(' ');
}

#define COMPARE_POINTS(actual, expected)                                                   \
    QVERIFY2(nearPoints((actual), (expected)),                                             \
             qPrintable(describe(actual) + QStringLiteral("  expected  ") + describe(expected)))

} // namespace

class TestCanvasInput : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<ImageCanvas> c;
    // Every signal of the canvas, in the order it arrived.
    QStringList log;

    // 800 x 600 widget. A 400 x 200 image is shown at scale 2, offset (0, 100); an 80 x 50
    // image at scale 10, offset (0, 50).
    bool showWith(const QSize& imageSize);
    QPoint at(const QPointF& imagePos) const;
    void press(const QPoint& pos, Qt::MouseButton button = Qt::LeftButton);
    void moveTo(const QPoint& pos, Qt::MouseButtons buttons = Qt::LeftButton);
    void release(const QPoint& pos, Qt::MouseButton button = Qt::LeftButton);
    // Press, two moves, release: the way a hand drags.
    void drag(const QPoint& from, const QPoint& to);
    void click(const QPointF& imagePos);
    bool key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    // The log without the live reports of a drag (drawingCoords other than -1).
    QStringList settled() const;
    int liveCoordReports() const;

private Q_SLOTS:
    void init();
    void cleanup();

    void drawDragKinds_data();
    void drawDragKinds();
    void minimumSizes_data();
    void minimumSizes();
    void clampedToImage_data();
    void clampedToImage();
    void keypointPlacing();
    void polygonClosing_data();
    void polygonClosing();
    void polygonClickOnShapeAddsVertex();
    void pointsInProgressDropped_data();
    void pointsInProgressDropped();
    void cuboidClosesAtEighthClick();
    void nestedSelection_data();
    void nestedSelection();
    void pressOnAnotherShapeSelectsAndMoves();
    void moveSelected_data();
    void moveSelected();
    void boxHandles_data();
    void boxHandles();
    void pointHandles_data();
    void pointHandles();
    void ellipseHandles_data();
    void ellipseHandles();
    void rotation_data();
    void rotation();
    void rotationKeepsBoxSize();
    void nudge_data();
    void nudge();
    void selectAllMoveAndDelete();
    void selectAllEndsOnEmptyPress();
    void escapeRules();
    void keysLeftToMainWindow_data();
    void keysLeftToMainWindow();
};

void TestCanvasInput::init()
{
    c = std::make_unique<ImageCanvas>();
    log.clear();
    connect(c.get(), &ImageCanvas::aboutToChange, this, [this] { log << "about"; });
    connect(c.get(), &ImageCanvas::boxesChanged, this, [this] { log << "changed"; });
    connect(c.get(), &ImageCanvas::selectionChanged, this,
            [this](int i) { log << QStringLiteral("sel(%1)").arg(i); });
    connect(c.get(), &ImageCanvas::drawingCoords, this, [this](int l, int t, int r, int b) {
        log << QStringLiteral("coords(%1,%2,%3,%4)").arg(l).arg(t).arg(r).arg(b);
    });
    connect(c.get(), &ImageCanvas::labelChangeRequested, this,
            [this](int i, const QString& label) { log << QStringLiteral("label(%1,%2)").arg(i).arg(label); });
}

void TestCanvasInput::cleanup()
{
    c.reset();
}

bool TestCanvasInput::showWith(const QSize& imageSize)
{
    const QSize size(800, 600);
    c->resize(size);
    c->show();
    if (!QTest::qWaitForWindowExposed(c.get()))
        return false;
    if (!QTest::qWaitFor([&] { return c->size() == size; }))
        return false;
    c->setImage(solid(imageSize));
    log.clear();
    return true;
}

QPoint TestCanvasInput::at(const QPointF& imagePos) const
{
    const QPointF w = c->imageToWidget(imagePos);
    return QPoint(int(std::lround(w.x())), int(std::lround(w.y())));
}

void TestCanvasInput::press(const QPoint& pos, Qt::MouseButton button)
{
    QTest::mousePress(c.get(), button, {}, pos);
}

void TestCanvasInput::moveTo(const QPoint& pos, Qt::MouseButtons buttons)
{
    QMouseEvent ev(QEvent::MouseMove, QPointF(pos), c->mapToGlobal(QPointF(pos)), Qt::NoButton,
                   buttons, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &ev);
}

void TestCanvasInput::release(const QPoint& pos, Qt::MouseButton button)
{
    QTest::mouseRelease(c.get(), button, {}, pos);
}

void TestCanvasInput::drag(const QPoint& from, const QPoint& to)
{
    press(from);
    moveTo((from + to) / 2);
    moveTo(to);
    release(to);
}

void TestCanvasInput::click(const QPointF& imagePos)
{
    const QPoint p = at(imagePos);
    press(p);
    release(p);
}

bool TestCanvasInput::key(int k, Qt::KeyboardModifiers modifiers)
{
    QKeyEvent ev(QEvent::KeyPress, k, modifiers);
    QApplication::sendEvent(c.get(), &ev);
    return ev.isAccepted();
}

QStringList TestCanvasInput::settled() const
{
    QStringList out;
    for (const QString& s : log) {
        if (!s.startsWith("coords(") || s == "coords(-1,-1,-1,-1)")
            out << s;
    }
    return out;
}

int TestCanvasInput::liveCoordReports() const
{
    return log.size() - settled().size();
}

// --- Drawing ----------------------------------------------------------------------------

void TestCanvasInput::drawDragKinds_data()
{
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QPointF>("from");
    QTest::addColumn<QPointF>("to");
    QTest::addColumn<Points>("points");
    QTest::addColumn<QString>("lastLiveCoords");

    QTest::newRow("box") << ShapeType::BoundingBox << QPointF(10, 10) << QPointF(60, 40)
                         << Points{{10, 10}, {60, 40}} << "coords(10,10,59,39)";
    QTest::newRow("box dragged up and left") << ShapeType::BoundingBox << QPointF(60, 40)
                                             << QPointF(10, 10) << Points{{10, 10}, {60, 40}}
                                             << "coords(10,10,59,39)";
    // Half pixels are truncated to whole pixels when the box is stored.
    QTest::newRow("box on half pixels") << ShapeType::BoundingBox << QPointF(10.5, 20.5)
                                        << QPointF(60.5, 40.5) << Points{{10, 20}, {60, 40}}
                                        << "coords(10,20,59,39)";
    QTest::newRow("rotated box") << ShapeType::RotatedBox << QPointF(30, 20) << QPointF(10, 10)
                                 << Points{{10, 10}, {30, 10}, {30, 20}, {10, 20}}
                                 << "coords(10,10,29,19)";
    // The second entry holds the semi-axes, not a position.
    QTest::newRow("ellipse") << ShapeType::Ellipse << QPointF(10, 10) << QPointF(30, 20)
                             << Points{{20, 15}, {10, 5}} << "coords(10,5,19,14)";
    QTest::newRow("line keeps its direction") << ShapeType::Line << QPointF(30, 20)
                                              << QPointF(10, 10) << Points{{30, 20}, {10, 10}}
                                              << "coords(10,10,29,19)";
}

void TestCanvasInput::drawDragKinds()
{
    QFETCH(ShapeType, kind);
    QFETCH(QPointF, from);
    QFETCH(QPointF, to);
    QFETCH(Points, points);
    QFETCH(QString, lastLiveCoords);

    QVERIFY(showWith(QSize(400, 200)));
    const BoxAnnotation existing = bbox(300, 150, 350, 190, "dog");
    c->setBoxes({existing});
    c->setCurrentShape(kind);
    c->currentLabel = "cat";
    log.clear();

    drag(at(from), at(to));

    QCOMPARE(c->boxes().size(), 2);
    QCOMPARE(c->boxes().at(0), existing);
    const BoxAnnotation made = c->boxes().at(1);
    QCOMPARE(made.type, kind);
    QCOMPARE(made.label, QStringLiteral("cat"));
    QVERIFY(made.visible);
    QCOMPARE(made.angle, 0.0);
    COMPARE_POINTS(made.points, points);
    QCOMPARE(c->selectedIndex(), 1);
    QCOMPARE(c->dragMode(), ImageCanvas::None);

    QCOMPARE(settled(), (QStringList{"about", "sel(1)", "coords(-1,-1,-1,-1)", "changed"}));
    // Each move of the drag reports the rectangle being drawn, before the release.
    QCOMPARE(liveCoordReports(), 2);
    QCOMPARE(log.at(log.size() - 4), lastLiveCoords);
}

void TestCanvasInput::minimumSizes_data()
{
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QPointF>("from");
    QTest::addColumn<QPointF>("to");
    QTest::addColumn<bool>("kept");

    // The 80 x 50 image is shown at scale 10, so tenths of a pixel can be dragged.
    const QPointF s(10, 10);
    QTest::newRow("box: click without movement") << ShapeType::BoundingBox << s << s << false;
    QTest::newRow("box 3 x 10") << ShapeType::BoundingBox << s << QPointF(13, 20) << false;
    QTest::newRow("box 10 x 3") << ShapeType::BoundingBox << s << QPointF(20, 13) << false;
    QTest::newRow("box 4 x 4") << ShapeType::BoundingBox << s << QPointF(14, 14) << true;
    // 10.5 .. 14.4 covers only 3.9 pixels, but the truncated corners are 4 apart.
    QTest::newRow("box 3.9 wide over 4 truncated pixels")
        << ShapeType::BoundingBox << QPointF(10.5, 10) << QPointF(14.4, 20) << true;
    QTest::newRow("box 3.7 wide over 3 truncated pixels")
        << ShapeType::BoundingBox << QPointF(10.2, 10) << QPointF(13.9, 20) << false;
    QTest::newRow("rotated box 10 x 1") << ShapeType::RotatedBox << s << QPointF(20, 11) << true;
    QTest::newRow("rotated box 3.9 x 20") << ShapeType::RotatedBox << s << QPointF(13.9, 30) << false;
    QTest::newRow("rotated box click") << ShapeType::RotatedBox << s << s << false;
    QTest::newRow("ellipse 3 x 10") << ShapeType::Ellipse << s << QPointF(13, 20) << false;
    QTest::newRow("ellipse 10 x 3.9") << ShapeType::Ellipse << s << QPointF(20, 13.9) << false;
    QTest::newRow("ellipse 4 x 4") << ShapeType::Ellipse << s << QPointF(14, 14) << true;
    QTest::newRow("line 2.9") << ShapeType::Line << s << QPointF(12.9, 10) << false;
    QTest::newRow("line 3.0") << ShapeType::Line << s << QPointF(10, 13) << true;
    QTest::newRow("line click") << ShapeType::Line << s << s << false;
}

void TestCanvasInput::minimumSizes()
{
    QFETCH(ShapeType, kind);
    QFETCH(QPointF, from);
    QFETCH(QPointF, to);
    QFETCH(bool, kept);

    QVERIFY(showWith(QSize(80, 50)));
    QCOMPARE(c->scale(), 10.0);
    c->setCurrentShape(kind);
    log.clear();

    if (from == to) {
        click(from);
    } else {
        drag(at(from), at(to));
    }

    QCOMPARE(c->dragMode(), ImageCanvas::None);
    if (kept) {
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(c->selectedIndex(), 0);
        QCOMPARE(settled(), (QStringList{"about", "sel(0)", "coords(-1,-1,-1,-1)", "changed"}));
    } else {
        QVERIFY(c->boxes().isEmpty());
        QCOMPARE(c->selectedIndex(), -1);
        // Nothing was made, so nothing is reported as changed.
        QCOMPARE(settled(), (QStringList{"about", "sel(-1)", "coords(-1,-1,-1,-1)"}));
    }
    if (from == to)
        QCOMPARE(liveCoordReports(), 0);
}

void TestCanvasInput::clampedToImage_data()
{
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QPointF>("from");
    QTest::addColumn<QPoint>("toWidget");
    QTest::addColumn<Points>("points");

    // Image 400 x 200 occupies widget x 0 .. 800, y 100 .. 500.
    QTest::newRow("box past bottom-right")
        << ShapeType::BoundingBox << QPointF(390, 190) << QPoint(799, 599)
        << Points{{390, 190}, {399, 199}};
    QTest::newRow("box past top-left")
        << ShapeType::BoundingBox << QPointF(20, 20) << QPoint(-30, 20)
        << Points{{0, 0}, {20, 20}};
    QTest::newRow("line past the corner") << ShapeType::Line << QPointF(200, 100)
                                          << QPoint(850, 650) << Points{{200, 100}, {399, 199}};
    QTest::newRow("ellipse past the right border")
        << ShapeType::Ellipse << QPointF(379, 100) << QPoint(900, 340)
        << Points{{389, 110}, {10, 10}};
    QTest::newRow("rotated box past the top")
        << ShapeType::RotatedBox << QPointF(100, 10) << QPoint(240, 40)
        << Points{{100, 0}, {120, 0}, {120, 10}, {100, 10}};
}

void TestCanvasInput::clampedToImage()
{
    QFETCH(ShapeType, kind);
    QFETCH(QPointF, from);
    QFETCH(QPoint, toWidget);
    QFETCH(Points, points);

    QVERIFY(showWith(QSize(400, 200)));
    c->setCurrentShape(kind);
    drag(at(from), toWidget);
    QCOMPARE(c->boxes().size(), 1);
    COMPARE_POINTS(c->boxes().at(0).points, points);
}

void TestCanvasInput::keypointPlacing()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setCurrentShape(ShapeType::Keypoint);
    c->currentLabel = "nose";

    // Above the image, inside the widget: the point lands on the top border.
    click(c->widgetToImage(QPointF(401, 51)));
    QCOMPARE(c->boxes().size(), 1);
    QCOMPARE(c->boxes().at(0).type, ShapeType::Keypoint);
    QCOMPARE(c->boxes().at(0).label, QStringLiteral("nose"));
    COMPARE_POINTS(c->boxes().at(0).points, (Points{{200.5, 0}}));
    QCOMPARE(c->selectedIndex(), 0);
    QCOMPARE(log, (QStringList{"about", "sel(0)", "changed"}));

    // With a shape selected, a press elsewhere only deselects.
    log.clear();
    click(QPointF(50, 50));
    QCOMPARE(c->boxes().size(), 1);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(log, QStringList{"sel(-1)"});

    // Now nothing is selected: a new keypoint.
    log.clear();
    click(QPointF(50, 50));
    QCOMPARE(c->boxes().size(), 2);
    COMPARE_POINTS(c->boxes().at(1).points, (Points{{50, 50}}));
    QCOMPARE(log, (QStringList{"about", "sel(1)", "changed"}));

    // Pressing on an existing keypoint (within its 7-pixel grab radius) selects it and
    // picks it up instead of placing another one.
    c->setSelectedIndex(-1);
    log.clear();
    const QPoint onFirst = at(QPointF(200.5, 0)) + QPoint(4, 4);
    drag(onFirst, onFirst + QPoint(20, 40));
    QCOMPARE(c->boxes().size(), 2);
    QCOMPARE(c->selectedIndex(), 0);
    COMPARE_POINTS(c->boxes().at(0).points, (Points{{210.5, 20}}));
    QCOMPARE(log, (QStringList{"sel(0)", "changed"}));
}

void TestCanvasInput::polygonClosing_data()
{
    QTest::addColumn<Points>("clicks");
    QTest::addColumn<QString>("finish");
    QTest::addColumn<int>("stored"); // vertices of the new polygon, 0 for none
    QTest::addColumn<int>("inProgress");

    const Points three{{10, 10}, {100, 20}, {50, 80}};
    const Points two{{10, 10}, {100, 20}};
    QTest::newRow("Return with 3") << three << "return" << 3 << 0;
    QTest::newRow("keypad Enter with 3") << three << "enter" << 3 << 0;
    QTest::newRow("Return with 2 does nothing") << two << "return" << 0 << 2;
    // The double-click's own press adds the vertex under it, once.
    QTest::newRow("double-click after 2") << two << "dclick" << 3 << 0;
    QTest::newRow("double-click after 3") << three << "dclick" << 4 << 0;
    QTest::newRow("double-click after 1 keeps going") << Points{{10, 10}} << "dclick" << 0 << 2;
    QTest::newRow("Escape drops the points") << three << "escape" << 0 << 0;
}

void TestCanvasInput::polygonClosing()
{
    QFETCH(Points, clicks);
    QFETCH(QString, finish);
    QFETCH(int, stored);
    QFETCH(int, inProgress);

    QVERIFY(showWith(QSize(400, 200)));
    c->setCurrentShape(ShapeType::Polygon);
    c->currentLabel = "roof";
    for (const QPointF& p : clicks)
        click(p);
    QCOMPARE(c->dragMode(), ImageCanvas::PlacePoints);
    QCOMPARE(log, QStringList(clicks.size(), "about"));
    QVERIFY(c->boxes().isEmpty());

    log.clear();
    const QPointF last(150, 150);
    if (finish == "return") {
        QVERIFY(key(Qt::Key_Return));
    } else if (finish == "enter") {
        QVERIFY(key(Qt::Key_Enter, Qt::KeypadModifier));
    } else if (finish == "escape") {
        QVERIFY(key(Qt::Key_Escape));
    } else {
        // What the window system delivers: press, release, double-click, release.
        click(last);
        QTest::mouseDClick(c.get(), Qt::LeftButton, {}, at(last));
        release(at(last));
    }

    const QStringList pressLog = finish == "dclick" ? QStringList{"about"} : QStringList();
    if (stored > 0) {
        QCOMPARE(c->boxes().size(), 1);
        const BoxAnnotation made = c->boxes().at(0);
        QCOMPARE(made.type, ShapeType::Polygon);
        QCOMPARE(made.label, QStringLiteral("roof"));
        Points expected = clicks;
        if (finish == "dclick")
            expected << last;
        COMPARE_POINTS(made.points, expected);
        QCOMPARE(c->selectedIndex(), 0);
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        QCOMPARE(log, pressLog + QStringList({"sel(0)", "changed"}));
    } else {
        QVERIFY(c->boxes().isEmpty());
        QCOMPARE(log, pressLog);
        QCOMPARE(c->dragMode(), inProgress ? ImageCanvas::PlacePoints : ImageCanvas::None);
        // Whatever is still in progress is what a later Return closes.
        click(QPointF(300, 30));
        click(QPointF(350, 60));
        click(QPointF(320, 90));
        QVERIFY(key(Qt::Key_Return));
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(c->boxes().at(0).points.size(), inProgress + 3);
    }
}

void TestCanvasInput::polygonClickOnShapeAddsVertex()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({bbox(100, 50, 200, 150)});
    c->setSelectedIndex(0);
    c->setCurrentShape(ShapeType::Polygon);
    log.clear();

    click(QPointF(150, 100)); // inside the selected box
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(log, (QStringList{"sel(-1)", "about"}));
    QCOMPARE(c->boxes().size(), 1);

    click(QPointF(120, 60)); // on the box again: still a vertex
    click(QPointF(-20, 300)); // outside the image: clamped
    QVERIFY(key(Qt::Key_Return));
    QCOMPARE(c->boxes().size(), 2);
    COMPARE_POINTS(c->boxes().at(1).points, (Points{{150, 100}, {120, 60}, {0, 199}}));
    QCOMPARE(c->boxes().at(0), bbox(100, 50, 200, 150));
}

void TestCanvasInput::pointsInProgressDropped_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("another kind") << "kind";
    QTest::newRow("another image") << "image";
    QTest::newRow("new shapes") << "boxes";
}

void TestCanvasInput::pointsInProgressDropped()
{
    QFETCH(QString, how);

    QVERIFY(showWith(QSize(400, 200)));
    c->setCurrentShape(ShapeType::Polygon);
    click(QPointF(10, 10));
    click(QPointF(50, 10));
    click(QPointF(50, 50));
    if (how == "kind") {
        c->setCurrentShape(ShapeType::Cuboid);
        c->setCurrentShape(ShapeType::Polygon);
    } else if (how == "image") {
        c->setImage(solid(QSize(400, 200)));
    } else {
        c->setBoxes({});
    }
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    key(Qt::Key_Return);
    QVERIFY(c->boxes().isEmpty());

    click(QPointF(100, 100));
    click(QPointF(150, 100));
    click(QPointF(150, 150));
    key(Qt::Key_Return);
    QCOMPARE(c->boxes().size(), 1);
    COMPARE_POINTS(c->boxes().at(0).points, (Points{{100, 100}, {150, 100}, {150, 150}}));
}

void TestCanvasInput::cuboidClosesAtEighthClick()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setCurrentShape(ShapeType::Cuboid);
    const Points clicks{{10, 10},  {60, 10},  {60, 60},  {10, 60},
                        {30, 0.5}, {80, 0.5}, {80, 40},  {30, 40}};
    for (int i = 0; i < 6; ++i)
        click(clicks.at(i));
    // Two quick clicks arrive as press, release, double-click, release: each is a point.
    QTest::mouseDClick(c.get(), Qt::LeftButton, {}, at(clicks.at(6)));
    release(at(clicks.at(6)));
    QVERIFY(c->boxes().isEmpty());
    QCOMPARE(log, QStringList(7, "about"));

    log.clear();
    click(clicks.at(7));
    QCOMPARE(c->boxes().size(), 1);
    QCOMPARE(c->boxes().at(0).type, ShapeType::Cuboid);
    COMPARE_POINTS(c->boxes().at(0).points, clicks);
    QCOMPARE(c->selectedIndex(), 0);
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QCOMPARE(log, (QStringList{"about", "sel(0)", "changed"}));

    // A ninth click starts the next cuboid and deselects the first.
    log.clear();
    click(QPointF(200, 100));
    QCOMPARE(c->boxes().size(), 1);
    QCOMPARE(c->dragMode(), ImageCanvas::PlacePoints);
    QCOMPARE(log, (QStringList{"sel(-1)", "about"}));
    // Enter does not close a cuboid.
    key(Qt::Key_Return);
    QCOMPARE(c->boxes().size(), 1);
}

// --- Selecting and editing ------------------------------------------------------------------

void TestCanvasInput::nestedSelection_data()
{
    QTest::addColumn<bool>("innerFirst");
    QTest::addColumn<QPointF>("pos");
    QTest::addColumn<QString>("expected"); // "inner", "outer", "none"

    for (bool innerFirst : {true, false}) {
        const QString order = innerFirst ? "inner listed first" : "outer listed first";
        QTest::newRow(qPrintable("inside the inner, " + order))
            << innerFirst << QPointF(75, 75) << "inner";
        QTest::newRow(qPrintable("between the two, " + order))
            << innerFirst << QPointF(30, 120) << "outer";
        QTest::newRow(qPrintable("outside both, " + order))
            << innerFirst << QPointF(300, 180) << "none";
    }
}

void TestCanvasInput::nestedSelection()
{
    QFETCH(bool, innerFirst);
    QFETCH(QPointF, pos);
    QFETCH(QString, expected);

    QVERIFY(showWith(QSize(400, 200)));
    const BoxAnnotation outer = bbox(10, 10, 200, 150, "outer");
    const BoxAnnotation inner = bbox(50, 50, 100, 100, "inner");
    c->setBoxes(innerFirst ? Boxes{inner, outer} : Boxes{outer, inner});
    log.clear();

    click(pos);
    if (expected == "none") {
        // An empty press with nothing selected starts a new box (too small: dropped).
        QCOMPARE(c->selectedIndex(), -1);
        QCOMPARE(c->boxes().size(), 2);
        return;
    }
    QVERIFY(c->selectedIndex() >= 0);
    QCOMPARE(c->selectedBox().label, expected);
    // Selecting by a press emits no aboutToChange; the release reports the (empty) move.
    QCOMPARE(log, (QStringList{QStringLiteral("sel(%1)").arg(c->selectedIndex()), "changed"}));
}

void TestCanvasInput::pressOnAnotherShapeSelectsAndMoves()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({bbox(10, 10, 60, 60, "a"), bbox(200, 50, 300, 150, "b")});
    c->setSelectedIndex(0);
    log.clear();

    drag(at(QPointF(250, 100)), at(QPointF(260, 90)));
    QCOMPARE(c->selectedIndex(), 1);
    QCOMPARE(c->boxes().at(1), bbox(210, 40, 310, 140, "b"));
    QCOMPARE(c->boxes().at(0), bbox(10, 10, 60, 60, "a"));
    QCOMPARE(log, (QStringList{"sel(1)", "changed"}));

    // A press on empty area while a box is selected only deselects: no new box.
    log.clear();
    drag(at(QPointF(100, 150)), at(QPointF(150, 190)));
    QCOMPARE(c->boxes().size(), 2);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(log, QStringList{"sel(-1)"});
}

void TestCanvasInput::moveSelected_data()
{
    QTest::addColumn<BoxAnnotation>("before");
    QTest::addColumn<QPointF>("grab");
    QTest::addColumn<QPointF>("delta");
    QTest::addColumn<Points>("after");

    QTest::newRow("box") << bbox(10, 10, 60, 40) << QPointF(30, 30) << QPointF(20, 10)
                         << Points{{30, 20}, {80, 50}};
    // Not clamped while dragging; the box is cut at the border when released.
    QTest::newRow("box partly off the image")
        << bbox(10, 10, 60, 40) << QPointF(30, 30) << QPointF(-30, 0) << Points{{0, 10}, {30, 40}};
    // Only the overhanging side moves: left is raised to 0, right stays at -40.
    QTest::newRow("box wholly off the image is not squeezed onto the border")
        << bbox(10, 10, 60, 40) << QPointF(30, 30) << QPointF(-100, 0) << Points{{0, 10}, {-40, 40}};
    QTest::newRow("polygon partly off the image keeps its points")
        << shape(ShapeType::Polygon, {{10, 10}, {60, 10}, {30, 50}}) << QPointF(30, 30)
        << QPointF(-20, 160) << Points{{-10, 170}, {40, 170}, {10, 210}};
    // An ellipse is grabbed inside the rectangle of its two entries; the semi-axes stay.
    QTest::newRow("ellipse") << ellipse(QPointF(100, 80), 30, 20) << QPointF(60, 50)
                             << QPointF(10.5, -5) << Points{{110.5, 75}, {30, 20}};
    QTest::newRow("grabbed by the badge")
        << bbox(100, 100, 150, 150) << QPointF(110, 96) << QPointF(5, 5)
        << Points{{105, 105}, {155, 155}};
}

void TestCanvasInput::moveSelected()
{
    QFETCH(BoxAnnotation, before);
    QFETCH(QPointF, grab);
    QFETCH(QPointF, delta);
    QFETCH(Points, after);

    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({before});
    c->setSelectedIndex(0);
    log.clear();
    drag(at(grab), at(grab + delta));

    COMPARE_POINTS(c->boxes().at(0).points, after);
    QCOMPARE(c->selectedIndex(), 0);
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QCOMPARE(log, (QStringList{"about", "changed"}));
}

void TestCanvasInput::boxHandles_data()
{
    QTest::addColumn<int>("handle");
    QTest::addColumn<QPoint>("toWidget");
    QTest::addColumn<QRect>("result");
    QTest::addColumn<bool>("reported");

    // The box (100, 50)-(200, 120) at scale 2, offset (0, 100). Widget = 2 * image + (0, 100).
    const auto w = [](double x, double y) { return QPoint(int(2 * x), int(2 * y + 100)); };
    QTest::newRow("bottom-right grows") << 7 << w(250, 150) << QRect(QPoint(100, 50), QPoint(250, 150)) << true;
    QTest::newRow("bottom-right past top-left flips")
        << 7 << w(50, 20) << QRect(QPoint(50, 20), QPoint(100, 50)) << true;
    QTest::newRow("top past the bottom flips")
        << 1 << w(170, 180) << QRect(QPoint(100, 120), QPoint(200, 180)) << true;
    QTest::newRow("left past the right flips")
        << 3 << w(300, 90) << QRect(QPoint(200, 50), QPoint(300, 120)) << true;
    QTest::newRow("top-right moves two sides")
        << 2 << w(300, 10) << QRect(QPoint(100, 10), QPoint(300, 120)) << true;
    QTest::newRow("bottom-left moves two sides")
        << 5 << w(20, 190) << QRect(QPoint(20, 50), QPoint(200, 190)) << true;
    QTest::newRow("bottom moves one side")
        << 6 << w(10, 199) << QRect(QPoint(100, 50), QPoint(200, 199)) << true;
    QTest::newRow("right to a half pixel truncates")
        << 4 << QPoint(501, 200) << QRect(QPoint(100, 50), QPoint(250, 120)) << true;
    QTest::newRow("top-left beyond the image is clamped")
        << 0 << QPoint(-20, 50) << QRect(QPoint(0, 0), QPoint(200, 120)) << true;
    QTest::newRow("right beyond the image is clamped")
        << 4 << QPoint(900, 300) << QRect(QPoint(100, 50), QPoint(399, 120)) << true;
    QTest::newRow("3 pixels wide stays, unreported")
        << 4 << w(103, 80) << QRect(QPoint(100, 50), QPoint(103, 120)) << false;
    QTest::newRow("4 pixels wide is reported")
        << 3 << w(196, 80) << QRect(QPoint(196, 50), QPoint(200, 120)) << true;
}

void TestCanvasInput::boxHandles()
{
    QFETCH(int, handle);
    QFETCH(QPoint, toWidget);
    QFETCH(QRect, result);
    QFETCH(bool, reported);

    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({bbox(200, 120, 100, 50)}); // corners in either order
    c->setSelectedIndex(0);
    log.clear();

    const QRectF r = c->imageRectToWidget(QRect(QPoint(100, 50), QPoint(200, 120)));
    const QPointF handles[8] = {
        r.topLeft(),    {r.center().x(), r.top()},    r.topRight(),
        {r.left(), r.center().y()},                    {r.right(), r.center().y()},
        r.bottomLeft(), {r.center().x(), r.bottom()}, r.bottomRight()};
    const QPoint from = handles[handle].toPoint() + QPoint(3, -2);
    QCOMPARE(c->hitTestHandle(QPointF(from), 0), handle);

    drag(from, toWidget);

    QCOMPARE(c->boxes().at(0).rect(), result);
    // Stored as (left, top), (right, bottom): normalised.
    COMPARE_POINTS(c->boxes().at(0).points,
                   (Points{QPointF(result.topLeft()), QPointF(result.bottomRight())}));
    QCOMPARE(c->selectedIndex(), 0);
    QVERIFY(liveCoordReports() >= 1);
    QStringList expected{"about", "coords(-1,-1,-1,-1)"};
    if (reported)
        expected << "changed";
    QCOMPARE(settled(), expected);
}

void TestCanvasInput::pointHandles_data()
{
    QTest::addColumn<BoxAnnotation>("before");
    QTest::addColumn<int>("handle");
    QTest::addColumn<QPoint>("toWidget");
    QTest::addColumn<Points>("after");

    const BoxAnnotation line = shape(ShapeType::Line, {{50, 50}, {150, 100}});
    QTest::newRow("line end") << line << 1 << QPoint(400, 300) << Points{{50, 50}, {200, 100}};
    QTest::newRow("line start beyond the image")
        << line << 0 << QPoint(-40, 40) << Points{{0, 0}, {150, 100}};
    QTest::newRow("polygon vertex")
        << shape(ShapeType::Polygon, {{50, 50}, {150, 50}, {100, 120}}) << 2 << QPoint(201, 391)
        << Points{{50, 50}, {150, 50}, {100.5, 145.5}};
    // One corner of a rotated box moves alone.
    QTest::newRow("rotated box corner")
        << shape(ShapeType::RotatedBox, rotatedBoxCorners(QPointF(100, 100), 100, 50, 0)) << 2
        << QPoint(320, 360) << Points{{50, 75}, {150, 75}, {160, 130}, {50, 125}};
    Points cube{{50, 50}, {100, 50}, {100, 100}, {50, 100},
                {70, 30}, {120, 30}, {120, 80}, {70, 80}};
    Points movedCube = cube;
    movedCube[5] = QPointF(140, 20);
    QTest::newRow("cuboid back corner")
        << shape(ShapeType::Cuboid, cube) << 5 << QPoint(280, 140) << movedCube;
}

void TestCanvasInput::pointHandles()
{
    QFETCH(BoxAnnotation, before);
    QFETCH(int, handle);
    QFETCH(QPoint, toWidget);
    QFETCH(Points, after);

    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({before});
    c->setSelectedIndex(0);
    log.clear();
    const QPoint from = at(before.points.at(handle)) + QPoint(-5, 6);
    QCOMPARE(c->hitTestHandle(QPointF(from), 0), handle);

    drag(from, toWidget);

    COMPARE_POINTS(c->boxes().at(0).points, after);
    QCOMPARE(c->boxes().at(0).angle, before.angle);
    QCOMPARE(settled(), (QStringList{"about", "coords(-1,-1,-1,-1)", "changed"}));
    QVERIFY(liveCoordReports() >= 1);
}

void TestCanvasInput::ellipseHandles_data()
{
    QTest::addColumn<int>("handle");
    QTest::addColumn<QPointF>("to");
    QTest::addColumn<QPointF>("axes");

    // Centre (200, 100), semi-axes (40, 30); the handles are not turned with the ellipse.
    QTest::newRow("right widens") << 0 << QPointF(260, 120) << QPointF(60, 30);
    QTest::newRow("left narrows") << 1 << QPointF(170, 90) << QPointF(30, 30);
    QTest::newRow("right dragged past the centre") << 0 << QPointF(150, 100) << QPointF(50, 30);
    QTest::newRow("bottom") << 2 << QPointF(205, 150) << QPointF(40, 50);
    QTest::newRow("top") << 3 << QPointF(190, 20.5) << QPointF(40, 79.5);
    QTest::newRow("top onto the centre keeps 1 pixel") << 3 << QPointF(200, 99.5) << QPointF(40, 1);
    QTest::newRow("bottom beyond the image stops at the border")
        << 2 << QPointF(200, 260) << QPointF(40, 99);
}

void TestCanvasInput::ellipseHandles()
{
    QFETCH(int, handle);
    QFETCH(QPointF, to);
    QFETCH(QPointF, axes);

    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({ellipse(QPointF(200, 100), 40, 30, 30)});
    c->setSelectedIndex(0);
    log.clear();

    // Right, left, bottom and top of the centre, in widget pixels (scale 2).
    const QPoint centre = at(QPointF(200, 100));
    const QPoint handles[4] = {centre + QPoint(80, 0), centre - QPoint(80, 0),
                               centre + QPoint(0, 60), centre - QPoint(0, 60)};
    const QPoint from = handles[handle] + QPoint(6, -7);
    QCOMPARE(c->hitTestHandle(QPointF(from), 0), handle);
    moveTo(from, Qt::NoButton);
    QCOMPARE(c->cursor().shape(), Qt::SizeAllCursor);

    drag(from, at(to));

    const BoxAnnotation b = c->boxes().at(0);
    COMPARE_POINTS(b.points, (Points{{200, 100}, axes}));
    QCOMPARE(b.angle, 30.0);
    QCOMPARE(settled(), (QStringList{"about", "coords(-1,-1,-1,-1)", "changed"}));
}

void TestCanvasInput::rotation_data()
{
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QPointF>("direction");
    QTest::addColumn<double>("angle");
    QTest::addColumn<QPointF>("corner0"); // rotated box only

    // A 100 x 50 box centred on (200, 100): corner 0 after turning by the angle.
    const struct {
        const char* name;
        QPointF direction;
        double angle;
        QPointF corner0;
    } compass[] = {
        {"up", {0, -60}, 0, {150, 75}},
        {"right", {60, 0}, 90, {225, 50}},
        {"down", {0, 60}, 180, {250, 125}},
        {"left", {-60, 0}, 270, {175, 150}},
        {"up-right", {60, -60}, 45, {200 - 25 * std::sqrt(0.5), 100 - 75 * std::sqrt(0.5)}},
    };
    for (const auto& row : compass) {
        QTest::newRow(qPrintable(QStringLiteral("rotated box, %1").arg(row.name)))
            << ShapeType::RotatedBox << row.direction << row.angle << row.corner0;
        QTest::newRow(qPrintable(QStringLiteral("ellipse, %1").arg(row.name)))
            << ShapeType::Ellipse << row.direction << row.angle << QPointF();
    }
}

void TestCanvasInput::rotation()
{
    QFETCH(ShapeType, kind);
    QFETCH(QPointF, direction);
    QFETCH(double, angle);
    QFETCH(QPointF, corner0);

    QVERIFY(showWith(QSize(400, 200)));
    const QPointF centre(200, 100);
    const BoxAnnotation before = kind == ShapeType::RotatedBox
        ? shape(kind, rotatedBoxCorners(centre, 100, 50, 0))
        : ellipse(centre, 40, 30);
    c->setBoxes({before});
    c->setSelectedIndex(0);
    log.clear();

    // The rotation handle: 30 widget pixels above a box's centre, 24 above an ellipse's top.
    const QPoint handle = kind == ShapeType::RotatedBox ? at(centre) - QPoint(0, 30)
                                                        : at(centre) - QPoint(0, 60 + 24);
    const QPoint from = handle + QPoint(5, 5);
    QCOMPARE(c->hitTestRotHandle(QPointF(from), 0), 0);
    drag(from, at(centre + direction));

    const BoxAnnotation b = c->boxes().at(0);
    QVERIFY2(std::abs(b.angle - angle) < 1e-9, qPrintable(QString::number(b.angle)));
    if (kind == ShapeType::RotatedBox) {
        QCOMPARE(b.points.size(), 4);
        QVERIFY(near(b.points.at(0), corner0, 1e-9));
        QVERIFY(near(b.centroid(), centre, 1e-9));
        QCOMPARE(qRound(QLineF(b.points.at(0), b.points.at(1)).length() * 1e6), 100000000);
        QCOMPARE(qRound(QLineF(b.points.at(1), b.points.at(2)).length() * 1e6), 50000000);
    } else {
        QCOMPARE(b.points, before.points);
    }
    QCOMPARE(log, (QStringList{"about", "changed"}));
}

void TestCanvasInput::rotationKeepsBoxSize()
{
    QVERIFY(showWith(QSize(400, 200)));
    const QPointF centre(200, 100);
    c->setBoxes({shape(ShapeType::RotatedBox, rotatedBoxCorners(centre, 100, 50, 0))});
    c->setSelectedIndex(0);

    // Round and round the centre in one drag, then once more from where it stopped.
    press(at(centre) - QPoint(0, 30));
    for (int step = 0; step <= 36; ++step) {
        const double a = qDegreesToRadians(step * 10.0);
        moveTo(at(centre + QPointF(std::sin(a), -std::cos(a)) * 70.0));
        const BoxAnnotation b = c->boxes().at(0);
        QVERIFY(std::abs(QLineF(b.points.at(0), b.points.at(1)).length() - 100) < 1e-6);
        QVERIFY(std::abs(QLineF(b.points.at(1), b.points.at(2)).length() - 50) < 1e-6);
        QVERIFY(b.angle > -90 && b.angle <= 270);
    }
    release(at(centre + QPointF(0, -70)));
    QVERIFY(std::abs(c->boxes().at(0).angle) < 1e-6);
}

void TestCanvasInput::nudge_data()
{
    QTest::addColumn<BoxAnnotation>("before");
    QTest::addColumn<int>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<Points>("after");

    const BoxAnnotation box = bbox(10, 10, 60, 40);
    QTest::newRow("Right") << box << int(Qt::Key_Right) << Qt::KeyboardModifiers()
                           << Points{{11, 10}, {61, 40}};
    QTest::newRow("Shift+Right") << box << int(Qt::Key_Right)
                                 << Qt::KeyboardModifiers(Qt::ShiftModifier)
                                 << Points{{20, 10}, {70, 40}};
    QTest::newRow("Shift+Up past the border, unclamped")
        << bbox(10, 5, 60, 40) << int(Qt::Key_Up) << Qt::KeyboardModifiers(Qt::ShiftModifier)
        << Points{{10, -5}, {60, 30}};
    QTest::newRow("Left on the keypad") << box << int(Qt::Key_Left)
                                        << Qt::KeyboardModifiers(Qt::KeypadModifier)
                                        << Points{{9, 10}, {59, 40}};
    QTest::newRow("Shift+Down moves an ellipse's centre only")
        << ellipse(QPointF(100, 100), 30, 20) << int(Qt::Key_Down)
        << Qt::KeyboardModifiers(Qt::ShiftModifier) << Points{{100, 110}, {30, 20}};
    QTest::newRow("Left beyond the image edge")
        << shape(ShapeType::Keypoint, {{0, 5}}) << int(Qt::Key_Left) << Qt::KeyboardModifiers()
        << Points{{-1, 5}};
}

void TestCanvasInput::nudge()
{
    QFETCH(BoxAnnotation, before);
    QFETCH(int, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(Points, after);

    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({before});
    c->setSelectedIndex(0);
    log.clear();
    QVERIFY(this->key(key, modifiers));
    COMPARE_POINTS(c->boxes().at(0).points, after);
    QCOMPARE(log, (QStringList{"about", "changed"}));
}

void TestCanvasInput::selectAllMoveAndDelete()
{
    QVERIFY(showWith(QSize(400, 200)));
    const Boxes boxes{bbox(10, 10, 60, 40), shape(ShapeType::Polygon, {{100, 100}, {150, 100}, {120, 150}}),
                      ellipse(QPointF(300, 100), 30, 20), shape(ShapeType::Keypoint, {{380, 20}})};
    c->setBoxes(boxes);
    c->selectAll();
    QVERIFY(c->allSelected());
    // Arrows are the main window's in select-all mode.
    QVERIFY(!key(Qt::Key_Right));
    QCOMPARE(c->boxes(), boxes);
    log.clear();

    // Grab the polygon; everything moves with it, the ellipse's semi-axes excepted.
    drag(at(QPointF(120, 120)), at(QPointF(125, 110)));
    const QPointF d(5, -10);
    QCOMPARE(c->boxes().size(), 4);
    COMPARE_POINTS(c->boxes().at(0).points, (Points{QPointF(10, 10) + d, QPointF(60, 40) + d}));
    COMPARE_POINTS(c->boxes().at(1).points,
                   (Points{QPointF(100, 100) + d, QPointF(150, 100) + d, QPointF(120, 150) + d}));
    COMPARE_POINTS(c->boxes().at(2).points, (Points{QPointF(300, 100) + d, QPointF(30, 20)}));
    COMPARE_POINTS(c->boxes().at(3).points, (Points{QPointF(380, 20) + d}));
    QVERIFY(c->allSelected());
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(log, (QStringList{"about", "changed"}));

    // Delete removes them all, with one change and no aboutToChange.
    log.clear();
    QVERIFY(key(Qt::Key_Backspace));
    QVERIFY(c->boxes().isEmpty());
    QVERIFY(!c->allSelected());
    QCOMPARE(log, (QStringList{"sel(-1)", "changed"}));
}

void TestCanvasInput::selectAllEndsOnEmptyPress()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({bbox(10, 10, 60, 40)});
    c->selectAll();
    log.clear();
    drag(at(QPointF(200, 100)), at(QPointF(300, 150)));
    QVERIFY(!c->allSelected());
    QCOMPARE(c->boxes().size(), 1); // the press did not also draw
    QCOMPARE(log, QStringList());
}

void TestCanvasInput::escapeRules()
{
    QVERIFY(showWith(QSize(400, 200)));
    c->setBoxes({bbox(10, 10, 60, 40)});
    c->setSelectedIndex(0);

    // Points in progress go first; the selection was already cleared by the first click.
    c->setCurrentShape(ShapeType::Polygon);
    click(QPointF(100, 100));
    click(QPointF(150, 100));
    log.clear();
    QVERIFY(key(Qt::Key_Escape));
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QCOMPARE(log, QStringList());
    QVERIFY(key(Qt::Key_Return));
    QCOMPARE(c->boxes().size(), 1);

    // Then the selection.
    c->setSelectedIndex(0);
    QVERIFY(key(Qt::Key_Escape));
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
    QCOMPARE(log, QStringList{"sel(-1)"});

    // Nothing left to cancel: accepted, nothing happens.
    log.clear();
    QVERIFY(key(Qt::Key_Escape));
    QCOMPARE(log, QStringList());

    // Escape in the middle of dragging out a box drops the box.
    c->setCurrentShape(ShapeType::BoundingBox);
    press(at(QPointF(100, 100)));
    moveTo(at(QPointF(150, 150)));
    QCOMPARE(c->boxes().size(), 2);
    QVERIFY(key(Qt::Key_Escape));
    release(at(QPointF(150, 150)));
    QCOMPARE(c->boxes().size(), 1);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QVERIFY(!settled().contains("changed"));
}

void TestCanvasInput::keysLeftToMainWindow_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<bool>("selected");

    const Qt::KeyboardModifiers none;
    QTest::newRow("A (previous image)") << int(Qt::Key_A) << none << true;
    QTest::newRow("Ctrl+A") << int(Qt::Key_A) << Qt::KeyboardModifiers(Qt::ControlModifier) << true;
    QTest::newRow("Right without a selection") << int(Qt::Key_Right) << none << false;
    QTest::newRow("PageDown") << int(Qt::Key_PageDown) << none << true;
    QTest::newRow("Insert") << int(Qt::Key_Insert) << none << true;
    QTest::newRow("Ctrl+Z") << int(Qt::Key_Z) << Qt::KeyboardModifiers(Qt::ControlModifier) << true;
}

void TestCanvasInput::keysLeftToMainWindow()
{
    QFETCH(int, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(bool, selected);

    QVERIFY(showWith(QSize(400, 200)));
    const BoxAnnotation box = bbox(10, 10, 60, 40);
    c->setBoxes({box});
    c->setSelectedIndex(selected ? 0 : -1);
    log.clear();
    QVERIFY(!this->key(key, modifiers));
    QCOMPARE(c->boxes().at(0), box);
    QCOMPARE(c->selectedIndex(), selected ? 0 : -1);
    QCOMPARE(log, QStringList());
}

QTEST_MAIN(TestCanvasInput)
#include "tst_canvasinput.moc"
