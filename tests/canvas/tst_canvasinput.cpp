#include <QLineF>
#include <QtMath>

#include "support/canvasfixture.h"

// Drawing and editing shapes with mouse and keys. The 800 x 600 canvas shows a 400 x 200
// image at scale 2, offset (0, 100), and an 80 x 50 image at scale 10, offset (0, 50).
class TestCanvasInput : public QObject {
    Q_OBJECT
    std::unique_ptr<CanvasDriver> d;
    ImageCanvas* c = nullptr;

    // A 400 x 200 image holding `boxes`, the first one selected when `select` is set.
    bool start(const Boxes& boxes = {}, bool select = false)
    {
        if (!d->show(QSize(800, 600), QSize(400, 200)))
            return false;
        c->setBoxes(boxes);
        if (select)
            c->setSelectedIndex(0);
        d->log.clear();
        return true;
    }

private Q_SLOTS:
    void init()
    {
        d = std::make_unique<CanvasDriver>();
        c = d->c.get();
    }
    void cleanup() { d.reset(); }

    void drawByDragging_data()
    {
        // On the 80 x 50 image, where tenths of a pixel can be dragged.
        // to: image position, may lie beyond the image; points: none when too small to keep
        // live: the last report during the drag ("": unchecked)
        columns<ShapeType, QPointF, QPointF, Points, QString>("kind", "from", "to", "points", "live");
        const ShapeType B = ShapeType::BoundingBox, R = ShapeType::RotatedBox, E = ShapeType::Ellipse, L = ShapeType::Line;
        const QPointF s(10, 10);
        QTest::newRow("box") << B << s << QPointF(60, 40) << Points{{10, 10}, {60, 40}} << "coords(10,10,59,39)";
        QTest::newRow("box dragged up and left") << B << QPointF(60, 40) << s << Points{{10, 10}, {60, 40}} << "coords(10,10,59,39)";
        // Half pixels are truncated to whole pixels when the box is stored.
        QTest::newRow("box on half pixels") << B << QPointF(10.5, 20.5) << QPointF(60.5, 40.5) << Points{{10, 20}, {60, 40}} << "coords(10,20,59,39)";
        QTest::newRow("rotated box") << R << QPointF(30, 20) << s << Points{{10, 10}, {30, 10}, {30, 20}, {10, 20}} << "coords(10,10,29,19)";
        // The second entry holds the semi-axes, not a position.
        QTest::newRow("ellipse") << E << s << QPointF(30, 20) << Points{{20, 15}, {10, 5}} << "coords(10,5,19,14)";
        QTest::newRow("line keeps its direction") << L << QPointF(30, 20) << s << Points{{30, 20}, {10, 10}} << "coords(10,10,29,19)";
        // Beyond the image, the end is clamped to its last pixel.
        QTest::newRow("box past bottom-right") << B << QPointF(70, 40) << QPointF(85, 60) << Points{{70, 40}, {79, 49}} << "";
        QTest::newRow("box past top-left") << B << QPointF(20, 20) << QPointF(-15, -40) << Points{{0, 0}, {20, 20}} << "";
        QTest::newRow("line past the corner") << L << QPointF(40, 20) << QPointF(85, 55) << Points{{40, 20}, {79, 49}} << "";
        QTest::newRow("ellipse past the right") << E << QPointF(69, 20) << QPointF(90, 30) << Points{{74, 25}, {5, 5}} << "";
        QTest::newRow("rotated box past the top") << R << QPointF(30, 10) << QPointF(50, -30) << Points{{30, 0}, {50, 0}, {50, 10}, {30, 10}} << "";
        // Minimum sizes.
        QTest::newRow("box: click") << B << s << s << Points{} << "";
        QTest::newRow("box 3 x 10") << B << s << QPointF(13, 20) << Points{} << "";
        QTest::newRow("box 10 x 3") << B << s << QPointF(20, 13) << Points{} << "";
        QTest::newRow("box 4 x 4") << B << s << QPointF(14, 14) << Points{{10, 10}, {14, 14}} << "";
        // 10.5 .. 14.4 covers only 3.9 pixels, but the truncated corners are 4 apart.
        QTest::newRow("box 3.9 over 4 truncated pixels") << B << QPointF(10.5, 10) << QPointF(14.4, 20) << Points{{10, 10}, {14, 20}} << "";
        QTest::newRow("box 3.7 over 3 truncated pixels") << B << QPointF(10.2, 10) << QPointF(13.9, 20) << Points{} << "";
        QTest::newRow("rotated box 10 x 1") << R << s << QPointF(20, 11) << Points{{10, 10}, {20, 10}, {20, 11}, {10, 11}} << "";
        QTest::newRow("rotated box 3.9 x 20") << R << s << QPointF(13.9, 30) << Points{} << "";
        QTest::newRow("rotated box click") << R << s << s << Points{} << "";
        QTest::newRow("ellipse 3 x 10") << E << s << QPointF(13, 20) << Points{} << "";
        QTest::newRow("ellipse 10 x 3.9") << E << s << QPointF(20, 13.9) << Points{} << "";
        QTest::newRow("ellipse 4 x 4") << E << s << QPointF(14, 14) << Points{{12, 12}, {2, 2}} << "";
        QTest::newRow("line 2.9") << L << s << QPointF(12.9, 10) << Points{} << "";
        QTest::newRow("line 3.0") << L << s << QPointF(10, 13) << Points{{10, 10}, {10, 13}} << "";
        QTest::newRow("line click") << L << s << s << Points{} << "";
    }
    void drawByDragging()
    {
        auto [kind, from, to, points, live] = row<ShapeType, QPointF, QPointF, Points, QString>("kind", "from", "to", "points", "live");
        const BoxAnnotation existing = box("dog", 2, 44, 8, 48);
        QVERIFY(d->show(QSize(800, 600), QSize(80, 50)));
        c->setBoxes({existing});
        c->setCurrentShape(kind);
        c->currentLabel = "cat";
        d->log.clear();
        if (from == to)
            d->click(from);
        else
            d->drag(d->at(from), d->at(to));

        const bool kept = !points.isEmpty();
        QCOMPARE(c->boxes().size(), kept ? 2 : 1);
        QCOMPARE(c->boxes().at(0), existing);
        QCOMPARE(c->selectedIndex(), kept ? 1 : -1);
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        // Nothing made, nothing reported as changed.
        QCOMPARE(d->settled(), QStringList({"about", kept ? "sel(1)" : "sel(-1)", "coords(-1,-1,-1,-1)"}) + QStringList(kept ? 1 : 0, "changed"));
        // Each move of the drag reports the rectangle being drawn, before the release.
        QCOMPARE(d->liveReports(), from == to ? 0 : 2);
        if (!live.isEmpty())
            QCOMPARE(d->log.at(d->log.size() - 4), live);
        if (kept)
            QCOMPARE(c->boxes().at(1), shape("cat", kind, points));
    }

    void keypoints()
    {
        QVERIFY(start());
        c->setCurrentShape(ShapeType::Keypoint);
        c->currentLabel = "nose";
        // Above the image, inside the widget: the point lands on the top border.
        d->click(c->widgetToImage(QPointF(401, 51)));
        QCOMPARE(c->boxes(), Boxes{shape("nose", ShapeType::Keypoint, {{200.5, 0}})});
        QCOMPARE(d->log, (QStringList{"about", "sel(0)", "changed"}));
        // With a shape selected, a press elsewhere only deselects; then it places one.
        d->log.clear();
        d->click(QPointF(50, 50));
        QCOMPARE(d->log, QStringList{"sel(-1)"});
        d->click(QPointF(50, 50));
        QCOMPARE(c->boxes().size(), 2);
        COMPARE_POINTS(c->boxes().at(1).points, (Points{{50, 50}}));
        // A press within 7 pixels of a keypoint picks it up instead of placing another.
        c->setSelectedIndex(-1);
        d->log.clear();
        const QPoint onFirst = d->at(QPointF(200.5, 0)) + QPoint(4, 4);
        d->drag(onFirst, onFirst + QPoint(20, 40));
        QCOMPARE(c->boxes().size(), 2);
        QCOMPARE(c->selectedIndex(), 0);
        COMPARE_POINTS(c->boxes().at(0).points, (Points{{210.5, 20}}));
        QCOMPARE(d->log, (QStringList{"sel(0)", "changed"}));
    }

    void polygonClosing_data()
    {
        // inProgress: points still open after the finish (-1: stored)
        columns<Points, QString, int>("clicks", "finish", "inProgress");
        const Points three{{10, 10}, {100, 20}, {50, 80}};
        const Points two{{10, 10}, {100, 20}};
        QTest::newRow("Return with 3") << three << "return" << -1;
        QTest::newRow("keypad Enter with 3") << three << "enter" << -1;
        QTest::newRow("Return with 2 does nothing") << two << "return" << 2;
        // The double-click's own press adds the vertex under it, once.
        QTest::newRow("double-click after 2") << two << "dclick" << -1;
        QTest::newRow("double-click after 3") << three << "dclick" << -1;
        QTest::newRow("double-click after 1 keeps going") << Points{{10, 10}} << "dclick" << 2;
        QTest::newRow("Escape drops the points") << three << "escape" << 0;
        QTest::newRow("another kind drops them") << three << "kind" << 0;
        QTest::newRow("another image drops them") << three << "image" << 0;
        QTest::newRow("new shapes drop them") << three << "boxes" << 0;
    }
    void polygonClosing()
    {
        auto [clicks, finish, inProgress] = row<Points, QString, int>("clicks", "finish", "inProgress");
        QVERIFY(start({}));
        c->setCurrentShape(ShapeType::Polygon);
        c->currentLabel = "roof";
        for (const QPointF& p : clicks)
            d->click(p);
        QCOMPARE(d->log, QStringList(clicks.size(), "about"));
        QVERIFY(c->boxes().isEmpty());

        d->log.clear();
        const QPointF last(150, 150);
        if (finish == "dclick") {
            d->click(last);
            d->doubleClick(last);
            clicks << last;
        } else if (finish == "kind") {
            c->setCurrentShape(ShapeType::Cuboid);
            c->setCurrentShape(ShapeType::Polygon);
        } else if (finish == "image" || finish == "boxes") {
            finish == "image" ? c->setImage(solid(QSize(400, 200))) : c->setBoxes({});
            d->log.clear();
        } else {
            QVERIFY(d->key(finish == "escape" ? Qt::Key_Escape : finish == "enter" ? Qt::Key_Enter : Qt::Key_Return,
                           finish == "enter" ? Qt::KeypadModifier : Qt::NoModifier));
        }
        const QStringList pressLog(finish == "dclick" ? 1 : 0, "about");
        if (inProgress < 0) {
            QCOMPARE(c->boxes(), Boxes{shape("roof", ShapeType::Polygon, clicks)});
            QCOMPARE(c->selectedIndex(), 0);
            QCOMPARE(c->dragMode(), ImageCanvas::None);
            QCOMPARE(d->log, pressLog + QStringList({"sel(0)", "changed"}));
            return;
        }
        QVERIFY(c->boxes().isEmpty());
        QCOMPARE(d->log, pressLog);
        // Whatever is still in progress is what a later Return closes.
        for (const QPointF& p : {QPointF(300, 30), QPointF(350, 60), QPointF(320, 90)})
            d->click(p);
        QVERIFY(d->key(Qt::Key_Return));
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(c->boxes().at(0).points.size(), inProgress + 3);
    }

    void polygonClickOnShapeAddsVertex()
    {
        QVERIFY(start({box("object", 100, 50, 200, 150)}, true));
        c->setCurrentShape(ShapeType::Polygon);
        d->click(QPointF(150, 100)); // inside the selected box
        QCOMPARE(d->log, (QStringList{"sel(-1)", "about"}));
        d->click(QPointF(120, 60));  // on the box again: still a vertex
        d->click(QPointF(-20, 300)); // outside the image: clamped
        QVERIFY(d->key(Qt::Key_Return));
        QCOMPARE(c->boxes().size(), 2);
        COMPARE_POINTS(c->boxes().at(1).points, (Points{{150, 100}, {120, 60}, {0, 199}}));
    }

    void cuboidClosesAtEighthClick()
    {
        QVERIFY(start());
        c->setCurrentShape(ShapeType::Cuboid);
        const Points clicks{{10, 10}, {60, 10}, {60, 60}, {10, 60}, {30, 0.5}, {80, 0.5}, {80, 40}, {30, 40}};
        for (int i = 0; i < 6; ++i)
            d->click(clicks.at(i));
        // A quick second click (press, release, double-click, release) is a point each time.
        d->doubleClick(clicks.at(6));
        QVERIFY(c->boxes().isEmpty());
        QCOMPARE(d->log, QStringList(7, "about"));
        d->log.clear();
        d->click(clicks.at(7));
        QCOMPARE(c->boxes(), Boxes{shape("object", ShapeType::Cuboid, clicks)});
        QCOMPARE(d->log, (QStringList{"about", "sel(0)", "changed"}));
        // A ninth click starts the next cuboid, which Return does not close.
        d->log.clear();
        d->click(QPointF(200, 100));
        QCOMPARE(d->log, (QStringList{"sel(-1)", "about"}));
        d->key(Qt::Key_Return);
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(c->dragMode(), ImageCanvas::PlacePoints);
    }

    void pressOnAnotherShapeSelectsAndMoves()
    {
        QVERIFY(start({box("a", 10, 10, 60, 60), box("b", 200, 50, 300, 150)}, true));
        d->drag(d->at(QPointF(250, 100)), d->at(QPointF(260, 90)));
        QCOMPARE(c->selectedIndex(), 1);
        QCOMPARE(c->boxes(), (Boxes{box("a", 10, 10, 60, 60), box("b", 210, 40, 310, 140)}));
        QCOMPARE(d->log, (QStringList{"sel(1)", "changed"}));
        // A press on empty area while a box is selected only deselects: no new box.
        d->log.clear();
        d->drag(d->at(QPointF(100, 150)), d->at(QPointF(150, 190)));
        QCOMPARE(c->boxes().size(), 2);
        QCOMPARE(d->log, QStringList{"sel(-1)"});
    }

    void moveSelected_data()
    {
        columns<BoxAnnotation, QPointF, QPointF, Points>("before", "grab", "delta", "after");
        const BoxAnnotation b = box("object", 10, 10, 60, 40);
        QTest::newRow("box") << b << QPointF(30, 30) << QPointF(20, 10) << Points{{30, 20}, {80, 50}};
        // Not clamped while dragging; the box is cut at the border when released.
        QTest::newRow("box partly off the image") << b << QPointF(30, 30) << QPointF(-30, 0) << Points{{0, 10}, {30, 40}};
        // Only the overhanging side moves: left is raised to 0, right stays at -40.
        QTest::newRow("box wholly off the image") << b << QPointF(30, 30) << QPointF(-100, 0) << Points{{0, 10}, {-40, 40}};
        QTest::newRow("box wholly off the right") << b << QPointF(30, 30) << QPointF(400, 0) << Points{{410, 10}, {399, 40}};
        QTest::newRow("polygon partly off keeps its points") << shape("object", ShapeType::Polygon, {{10, 10}, {60, 10}, {30, 50}})
            << QPointF(30, 30) << QPointF(-20, 160) << Points{{-10, 170}, {40, 170}, {10, 210}};
        // An ellipse is grabbed inside the rectangle of its two entries; the semi-axes stay.
        QTest::newRow("ellipse") << ellipse(QPointF(100, 80), 30, 20) << QPointF(60, 50) << QPointF(10.5, -5) << Points{{110.5, 75}, {30, 20}};
        QTest::newRow("grabbed by the badge") << box("object", 100, 100, 150, 150) << QPointF(110, 96) << QPointF(5, 5) << Points{{105, 105}, {155, 155}};
    }
    void moveSelected()
    {
        auto [before, grab, delta, after] = row<BoxAnnotation, QPointF, QPointF, Points>("before", "grab", "delta", "after");
        QVERIFY(start({before}, true));
        d->drag(d->at(grab), d->at(grab + delta));
        COMPARE_POINTS(c->boxes().at(0).points, after);
        QCOMPARE(c->selectedIndex(), 0);
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        QCOMPARE(d->log, (QStringList{"about", "changed"}));
    }

    void handles_data()
    {
        // grab: image position of the handle
        columns<BoxAnnotation, int, QPointF, QPointF, Points, bool>("before", "handle", "grab", "to", "after", "reported");
        // The box covers pixels 100..200 x 50..120: its far handles sit on 201 and 121.
        const BoxAnnotation b = box("object", 200, 120, 100, 50); // corners in either order
        const QPointF tl(100, 50), top(150.5, 50), tr(201, 50), left(100, 85.5), right(201, 85.5),
            bl(100, 121), bottom(150.5, 121), br(201, 121);
        QTest::newRow("box bottom-right grows") << b << 7 << br << QPointF(250, 150) << Points{{100, 50}, {250, 150}} << true;
        QTest::newRow("box bottom-right past top-left flips") << b << 7 << br << QPointF(50, 20) << Points{{50, 20}, {100, 50}} << true;
        QTest::newRow("box top past the bottom flips") << b << 1 << top << QPointF(170, 180) << Points{{100, 120}, {200, 180}} << true;
        QTest::newRow("box left past the right flips") << b << 3 << left << QPointF(300, 90) << Points{{200, 50}, {300, 120}} << true;
        QTest::newRow("box top-right") << b << 2 << tr << QPointF(300, 10) << Points{{100, 10}, {300, 120}} << true;
        QTest::newRow("box bottom-left") << b << 5 << bl << QPointF(20, 190) << Points{{20, 50}, {200, 190}} << true;
        QTest::newRow("box bottom") << b << 6 << bottom << QPointF(10, 199) << Points{{100, 50}, {200, 199}} << true;
        QTest::newRow("box right to a half pixel truncates") << b << 4 << right << QPointF(250.5, 50) << Points{{100, 50}, {250, 120}} << true;
        QTest::newRow("box top-left clamped") << b << 0 << tl << QPointF(-10, -25) << Points{{0, 0}, {200, 120}} << true;
        QTest::newRow("box right clamped") << b << 4 << right << QPointF(450, 100) << Points{{100, 50}, {399, 120}} << true;
        QTest::newRow("box 3 pixels wide stays, unreported") << b << 4 << right << QPointF(103, 80) << Points{{100, 50}, {103, 120}} << false;
        QTest::newRow("box 4 pixels wide is reported") << b << 3 << left << QPointF(196, 80) << Points{{196, 50}, {200, 120}} << true;

        const BoxAnnotation line = shape("object", ShapeType::Line, {{50, 50}, {150, 100}});
        QTest::newRow("line end") << line << 1 << QPointF(150, 100) << QPointF(200, 100) << Points{{50, 50}, {200, 100}} << true;
        QTest::newRow("line start beyond the image") << line << 0 << QPointF(50, 50) << QPointF(-20, -30) << Points{{0, 0}, {150, 100}} << true;
        QTest::newRow("polygon vertex") << shape("object", ShapeType::Polygon, {{50, 50}, {150, 50}, {100, 120}}) << 2 << QPointF(100, 120)
            << QPointF(100.5, 145.5) << Points{{50, 50}, {150, 50}, {100.5, 145.5}} << true;
        // One corner of a rotated box moves alone.
        QTest::newRow("rotated box corner") << rotated(QPointF(100, 100), 100, 50, 0) << 2 << QPointF(150, 125)
            << QPointF(160, 130) << Points{{50, 75}, {150, 75}, {160, 130}, {50, 125}} << true;
        const Points cube{{50, 50}, {100, 50}, {100, 100}, {50, 100}, {70, 30}, {120, 30}, {120, 80}, {70, 80}};
        Points moved = cube;
        moved[5] = QPointF(140, 20);
        QTest::newRow("cuboid back corner") << shape("object", ShapeType::Cuboid, cube) << 5 << cube[5] << QPointF(140, 20) << moved << true;

        // Centre (200, 100), semi-axes (40, 30), turned by 30 degrees; the handles are not.
        const BoxAnnotation e = ellipse(QPointF(200, 100), 40, 30, 30);
        const QPointF er(240, 100), el(160, 100), eb(200, 130), et(200, 70);
        QTest::newRow("ellipse right widens") << e << 0 << er << QPointF(260, 120) << Points{{200, 100}, {60, 30}} << true;
        QTest::newRow("ellipse left narrows") << e << 1 << el << QPointF(170, 90) << Points{{200, 100}, {30, 30}} << true;
        QTest::newRow("ellipse right past the centre") << e << 0 << er << QPointF(150, 100) << Points{{200, 100}, {50, 30}} << true;
        QTest::newRow("ellipse bottom") << e << 2 << eb << QPointF(205, 150) << Points{{200, 100}, {40, 50}} << true;
        QTest::newRow("ellipse top") << e << 3 << et << QPointF(190, 20.5) << Points{{200, 100}, {40, 79.5}} << true;
        QTest::newRow("ellipse top onto the centre keeps 1") << e << 3 << et << QPointF(200, 99.5) << Points{{200, 100}, {40, 1}} << true;
        QTest::newRow("ellipse bottom stops at the border") << e << 2 << eb << QPointF(200, 260) << Points{{200, 100}, {40, 99}} << true;
    }
    void handles()
    {
        auto [before, handle, grab, to, after, reported] = row<BoxAnnotation, int, QPointF, QPointF, Points, bool>("before", "handle", "grab", "to", "after", "reported");
        QVERIFY(start({before}, true));
        const QPoint from = d->at(grab) + QPoint(4, -3); // a hand is never exact
        QCOMPARE(c->hitTestHandle(QPointF(from), 0), handle);
        d->moveTo(from, Qt::NoButton);
        QCOMPARE(c->cursor().shape() == Qt::CrossCursor, false);
        d->drag(from, d->at(to));

        COMPARE_POINTS(c->boxes().at(0).points, after);
        QCOMPARE(c->boxes().at(0).angle, before.angle);
        QCOMPARE(c->selectedIndex(), 0);
        QVERIFY(d->liveReports() >= 1);
        QCOMPARE(d->settled(), QStringList({"about", "coords(-1,-1,-1,-1)"}) + QStringList(reported ? 1 : 0, "changed"));
    }

    void rotation_data()
    {
        // corner0: of a 100 x 50 box centred on (200, 100)
        columns<ShapeType, QPointF, double, QPointF>("kind", "direction", "angle", "corner0");
        const double h = std::sqrt(0.5);
        const struct { const char* name; QPointF direction; double angle; QPointF corner0; } compass[] = {
            {"up", {0, -60}, 0, {150, 75}}, {"right", {60, 0}, 90, {225, 50}},
            {"down", {0, 60}, 180, {250, 125}}, {"left", {-60, 0}, 270, {175, 150}},
            {"up-right", {60, -60}, 45, {200 - 25 * h, 100 - 75 * h}}};
        for (const auto& r : compass) {
            QTest::addRow("rotated box, %s", r.name) << ShapeType::RotatedBox << r.direction << r.angle << r.corner0;
            QTest::addRow("ellipse, %s", r.name) << ShapeType::Ellipse << r.direction << r.angle << QPointF();
        }
    }
    void rotation()
    {
        auto [kind, direction, angle, corner0] = row<ShapeType, QPointF, double, QPointF>("kind", "direction", "angle", "corner0");
        const QPointF centre(200, 100);
        const bool isBox = kind == ShapeType::RotatedBox;
        const BoxAnnotation before = isBox ? rotated(centre, 100, 50, 0) : ellipse(centre, 40, 30);
        QVERIFY(start({before}, true));
        // The rotation handle: 30 widget pixels above a box's centre, 24 above an ellipse's top.
        const QPoint from = d->at(centre) - QPoint(0, isBox ? 30 : 60 + 24) + QPoint(5, 5);
        QCOMPARE(c->hitTestRotHandle(QPointF(from), 0), 0);
        d->drag(from, d->at(centre + direction));

        const BoxAnnotation b = c->boxes().at(0);
        QVERIFY2(std::abs(b.angle - angle) < 1e-9, qPrintable(QString::number(b.angle)));
        if (isBox)
            COMPARE_POINTS(b.points, rotated(centre, 100, 50, angle).points);
        else
            QCOMPARE(b.points, before.points);
        if (isBox)
            COMPARE_POINTS(b.points.mid(0, 1), Points{corner0});
        QCOMPARE(d->log, (QStringList{"about", "changed"}));
    }

    void rotationKeepsBoxSize()
    {
        const QPointF centre(200, 100);
        QVERIFY(start({rotated(centre, 100, 50, 0)}, true));
        // Round and round the centre in one drag: no error may pile up.
        d->press(d->at(centre) - QPoint(0, 30));
        for (int step = 0; step <= 36; ++step) {
            const double a = qDegreesToRadians(step * 10.0);
            d->moveTo(d->at(centre + QPointF(std::sin(a), -std::cos(a)) * 70.0));
            const BoxAnnotation b = c->boxes().at(0);
            QVERIFY(std::abs(QLineF(b.points.at(0), b.points.at(1)).length() - 100) < 1e-6);
            QVERIFY(std::abs(QLineF(b.points.at(1), b.points.at(2)).length() - 50) < 1e-6);
            QVERIFY(b.angle > -90 && b.angle <= 270);
        }
        d->release(d->at(centre + QPointF(0, -70)));
        QVERIFY(std::abs(c->boxes().at(0).angle) < 1e-6);
    }

    void nudge_data()
    {
        columns<BoxAnnotation, int, int, Points>("before", "key", "modifiers", "after");
        const BoxAnnotation b = box("object", 10, 10, 60, 40);
        QTest::newRow("Right") << b << int(Qt::Key_Right) << 0 << Points{{11, 10}, {61, 40}};
        QTest::newRow("Shift+Right") << b << int(Qt::Key_Right) << int(Qt::ShiftModifier) << Points{{20, 10}, {70, 40}};
        QTest::newRow("Shift+Up past the border, unclamped") << box("object", 10, 5, 60, 40) << int(Qt::Key_Up) << int(Qt::ShiftModifier) << Points{{10, -5}, {60, 30}};
        QTest::newRow("Left on the keypad") << b << int(Qt::Key_Left) << int(Qt::KeypadModifier) << Points{{9, 10}, {59, 40}};
        QTest::newRow("Shift+Down moves an ellipse's centre only") << ellipse(QPointF(100, 100), 30, 20) << int(Qt::Key_Down) << int(Qt::ShiftModifier) << Points{{100, 110}, {30, 20}};
        QTest::newRow("Left beyond the image edge") << shape("object", ShapeType::Keypoint, {{0, 5}}) << int(Qt::Key_Left) << 0 << Points{{-1, 5}};
    }
    void nudge()
    {
        auto [before, key, modifiers, after] = row<BoxAnnotation, int, int, Points>("before", "key", "modifiers", "after");
        QVERIFY(start({before}, true));
        QVERIFY(d->key(key, Qt::KeyboardModifiers(modifiers)));
        COMPARE_POINTS(c->boxes().at(0).points, after);
        QCOMPARE(d->log, (QStringList{"about", "changed"}));
    }

    void selectAllMoveAndDelete()
    {
        const Boxes boxes{box("object", 10, 10, 60, 40), shape("object", ShapeType::Polygon, {{100, 100}, {150, 100}, {120, 150}}),
                          ellipse(QPointF(300, 100), 30, 20), shape("object", ShapeType::Keypoint, {{380, 20}})};
        QVERIFY(start(boxes));
        c->selectAll();
        QVERIFY(!d->key(Qt::Key_Right)); // arrows are the main window's in select-all mode
        QCOMPARE(c->boxes(), boxes);
        // Grab the polygon; everything moves with it, the ellipse's semi-axes excepted.
        d->drag(d->at(QPointF(120, 120)), d->at(QPointF(125, 110)));
        const QPointF m(5, -10);
        Points all, moved;
        for (const BoxAnnotation& b : c->boxes())
            all << b.points;
        for (const BoxAnnotation& b : boxes)
            for (int i = 0; i < b.points.size(); ++i)
                moved << b.points[i] + (b.type == ShapeType::Ellipse && i == 1 ? QPointF() : m);
        COMPARE_POINTS(all, moved);
        QVERIFY(c->allSelected());
        QCOMPARE(d->log, (QStringList{"about", "changed"}));
        // Delete removes them all, with one change and no aboutToChange.
        d->log.clear();
        QVERIFY(d->key(Qt::Key_Backspace));
        QVERIFY(c->boxes().isEmpty());
        QVERIFY(!c->allSelected());
        QCOMPARE(d->log, (QStringList{"sel(-1)", "changed"}));
        // An empty press ends select-all mode and draws nothing.
        QVERIFY(start({boxes[0]}));
        c->selectAll();
        d->drag(d->at(QPointF(200, 100)), d->at(QPointF(300, 150)));
        QVERIFY(!c->allSelected());
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(d->log, QStringList());
    }

    // Escape drops points in progress (see polygonClosing), then the selection and
    // select-all mode, and a box being dragged out.
    void escape()
    {
        QVERIFY(start({box("object", 10, 10, 60, 40)}, true));
        QVERIFY(d->key(Qt::Key_Escape));
        QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
        c->selectAll();
        QVERIFY(d->key(Qt::Key_Escape));
        QVERIFY(!c->allSelected());
        QCOMPARE(d->log, (QStringList{"sel(-1)", "sel(-1)"}));
        // Nothing left to cancel: accepted, nothing happens.
        d->log.clear();
        QVERIFY(d->key(Qt::Key_Escape));
        QCOMPARE(d->log, QStringList());
        // A box being dragged out is dropped from the canvas too, not only from the undo history.
        d->press(d->at(QPointF(100, 100)));
        d->moveTo(d->at(QPointF(150, 150)));
        QCOMPARE(c->boxes().size(), 2);
        QVERIFY(d->key(Qt::Key_Escape));
        d->release(d->at(QPointF(150, 150)));
        QCOMPARE(c->boxes().size(), 1);
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        QVERIFY(!d->log.contains("changed"));
    }

    void keysLeftToMainWindow_data()
    {
        columns<int, int, bool>("key", "modifiers", "selected");
        QTest::newRow("A (previous image)") << int(Qt::Key_A) << 0 << true;
        QTest::newRow("Ctrl+A") << int(Qt::Key_A) << int(Qt::ControlModifier) << true;
        QTest::newRow("Right without a selection") << int(Qt::Key_Right) << 0 << false;
        QTest::newRow("PageDown") << int(Qt::Key_PageDown) << 0 << true;
        QTest::newRow("Insert") << int(Qt::Key_Insert) << 0 << true;
        QTest::newRow("Ctrl+Z") << int(Qt::Key_Z) << int(Qt::ControlModifier) << true;
    }
    void keysLeftToMainWindow()
    {
        auto [key, modifiers, selected] = row<int, int, bool>("key", "modifiers", "selected");
        const BoxAnnotation b = box("object", 10, 10, 60, 40);
        QVERIFY(start({b}, selected));
        QVERIFY(!d->key(key, Qt::KeyboardModifiers(modifiers)));
        QCOMPARE(c->boxes().at(0), b);
        QCOMPARE(c->selectedIndex(), selected ? 0 : -1);
        QCOMPARE(d->log, QStringList());
    }
};

QTEST_MAIN(TestCanvasInput)
#include "tst_canvasinput.moc"
