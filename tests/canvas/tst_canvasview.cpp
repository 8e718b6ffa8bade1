#include <QSignalSpy>

#include "support/canvasfixture.h"

// Fitting, zooming, panning, hit testing and selection of the canvas. Mostly an 800 x 800
// canvas with a 1000 x 500 image: scale 0.8, offset (0, 200).
class TestCanvasView : public QObject {
    Q_OBJECT
    std::unique_ptr<CanvasDriver> d;
    ImageCanvas* c = nullptr;

    bool start(const Boxes& boxes = {}, const QSize& image = QSize(1000, 500))
    {
        if (!d->show(QSize(800, 800), image))
            return false;
        c->setBoxes(boxes);
        d->log.clear();
        return true;
    }
    static bool near(const QPointF& a, const QPointF& b, double eps = 1e-6) { return nearPoints({a}, {b}, eps); }

private Q_SLOTS:
    void init()
    {
        d = std::make_unique<CanvasDriver>();
        c = d->c.get();
    }
    void cleanup() { d.reset(); }

    void fit_data()
    {
        columns<QSize, QSize, double, QPointF>("image", "widget", "scale", "offset");
        QTest::newRow("wide image, square widget") << QSize(1000, 500) << QSize(800, 800) << 0.8 << QPointF(0, 200);
        QTest::newRow("tall image, wide widget") << QSize(500, 1000) << QSize(800, 600) << 0.6 << QPointF(250, 0);
        QTest::newRow("small image is enlarged") << QSize(200, 100) << QSize(800, 600) << 4.0 << QPointF(0, 100);
        QTest::newRow("odd leftover halves") << QSize(2, 2) << QSize(301, 300) << 150.0 << QPointF(0.5, 0);
    }
    void fit()
    {
        auto [image, widget, scale, offset] = row<QSize, QSize, double, QPointF>("image", "widget", "scale", "offset");
        QVERIFY(d->show(widget, image));
        QCOMPARE(c->scale(), scale);
        QVERIFY(near(c->imageToWidget(QPointF(0, 0)), offset));
        QVERIFY(near(c->widgetToImage(c->imageToWidget(QPointF(1.25, 0.5))), QPointF(1.25, 0.5)));
        // The last pixel of an integer rectangle is covered: one pixel is one scaled pixel wide.
        const QRectF shown = c->imageRectToWidget(QRect(QPoint(0, 0), image));
        QVERIFY(near(shown.bottomRight(), offset + QPointF(image.width(), image.height()) * scale));
        QVERIFY(std::abs(c->imageRectToWidget(QRect(1, 1, 1, 1)).width() - scale) < 1e-9);
    }

    void resizeKeepsZoomAndPan()
    {
        QVERIFY(start({box("object", 100, 100, 120, 130)}));
        c->zoomIn();
        const QPointF pan = c->pan();
        QVERIFY(pan != QPointF(0, 0));
        QVERIFY(d->show(QSize(600, 500)));
        QCOMPARE(c->zoom(), 1.25);
        QCOMPARE(c->pan(), pan);
        QCOMPARE(c->scale(), 0.6 * 1.25);
        QVERIFY(near(c->offset(), QPointF((600 - 1000 * c->scale()) / 2, (500 - 500 * c->scale()) / 2) + pan));
    }

    void zoomSteps_data()
    {
        // wheel: wheel steps first (negative: down) ...
        // ins: ... then zoom-in and zoom-out steps
        columns<int, int, int, double>("wheel", "ins", "outs", "zoom");
        QTest::newRow("one step in") << 0 << 1 << 0 << 1.25;
        QTest::newRow("in and out again") << 0 << 3 << 3 << 1.0;
        QTest::newRow("ten steps out, above the limit") << 0 << 0 << 10 << std::pow(1.25, -10);
        // 0.107 / 1.25 would be 0.086: the buttons stop at 0.1.
        QTest::newRow("eleventh step out stops at 0.1") << 0 << 0 << 11 << 0.1;
        QTest::newRow("far out stays at 0.1") << 0 << 0 << 30 << 0.1;
        QTest::newRow("no maximum") << 0 << 40 << 0 << std::pow(1.25, 40);
        // The wheel goes further out than the buttons.
        QTest::newRow("wheel stops at 0.05") << -30 << 0 << 0 << 0.05;
        QTest::newRow("a step in from the wheel's limit") << -30 << 1 << 0 << 0.0625;
    }
    void zoomSteps()
    {
        auto [wheel, ins, outs, zoom] = row<int, int, int, double>("wheel", "ins", "outs", "zoom");
        QVERIFY(start());
        for (int i = 0; i < -wheel; ++i)
            d->wheel(QPointF(200, 300), QPoint(0, -120));
        d->zoomSteps(ins);
        d->zoomSteps(-outs);
        QVERIFY2(qFuzzyCompare(c->zoom(), zoom), qPrintable(QString::number(c->zoom())));
        QVERIFY(qFuzzyCompare(c->scale(), 0.8 * zoom));
        c->zoomFit();
        QCOMPARE(c->zoom(), 1.0);
        QCOMPARE(c->offset(), QPointF(0, 200));
    }

    void zoomKeepsTargetCentred_data()
    {
        // selected: -2: select all
        columns<Boxes, int, QPointF>("boxes", "selected", "target");
        const BoxAnnotation b = box("object", 100, 100, 200, 150); // rect 100..199 x 100..149
        const BoxAnnotation poly = shape("object", ShapeType::Polygon, {{301, 40}, {320.7, 60}, {310, 90.2}}); // 301..319 x 40..89
        QTest::newRow("no shapes: image centre") << Boxes() << -1 << QPointF(500, 250);
        QTest::newRow("union of all shapes") << Boxes{b, poly} << -1 << QPointF(209, 94);
        QTest::newRow("selected shape") << Boxes{b, poly} << 1 << QPointF(310, 64);
        QTest::newRow("select-all uses the union") << Boxes{b, poly} << -2 << QPointF(209, 94);
        QTest::newRow("shape without points is ignored") << Boxes{BoxAnnotation(), poly} << -1 << QPointF(310, 64);
        // (-8 + 1) / 2 and (-8 + 5) / 2 truncate toward zero.
        QTest::newRow("negative centre truncates toward zero") << Boxes{shape("object", ShapeType::Polygon, {{-8, -8}, {2, -3}, {0, 6}})} << -1 << QPointF(-3, -1);
        // A keypoint's rectangle has no extent: left 40, right 39.
        QTest::newRow("keypoint alone") << Boxes{shape("object", ShapeType::Keypoint, {{40.6, 30.2}})} << -1 << QPointF(39, 29);
    }
    void zoomKeepsTargetCentred()
    {
        auto [boxes, selected, target] = row<Boxes, int, QPointF>("boxes", "selected", "target");
        QVERIFY(start(boxes));
        selected == -2 ? c->selectAll() : c->setSelectedIndex(selected);
        d->zoomSteps(2);
        QVERIFY(near(c->imageToWidget(target), QPointF(400, 400)));
        c->zoomOut();
        QVERIFY(near(c->imageToWidget(target), QPointF(400, 400)));
    }

    void zoomToAnnotations_data()
    {
        // centre: image point expected in the widget's centre
        columns<QSize, Boxes, int, double, QPointF>("widget", "boxes", "border", "zoom", "centre");
        // The image is 4000 x 3000; fitted into 800 x 800 its scale is 0.2.
        const QSize sq(800, 800);
        QTest::newRow("10 x 10 box grows to 110 x 110") << sq << Boxes{box("o", 2000, 1500, 2010, 1510)} << 50 << (800.0 / 110) / 0.2 << QPointF(2004, 1504);
        QTest::newRow("cut at the top-left border") << sq << Boxes{box("o", 5, 5, 15, 15)} << 50 << (800.0 / 65) / 0.2 << QPointF(32, 32);
        QTest::newRow("cut at the bottom-right border") << sq << Boxes{box("o", 3990, 2990, 3999.5, 2999.5)} << 50 << (800.0 / 60) / 0.2 << QPointF(3969, 2969);
        // Union 310 x 200 in an 800 x 400 widget: the height is the tighter direction.
        QTest::newRow("tighter direction decides") << QSize(800, 400) << Boxes{box("o", 1000, 1000, 1100, 1010), box("o", 1300, 1100, 1310, 1200)}
                                                   << 0 << 2.0 / (400.0 / 3000) << QPointF(1154, 1099);
        QTest::newRow("keypoint and line") << sq << Boxes{shape("o", ShapeType::Keypoint, {{100, 100}}), shape("o", ShapeType::Line, {{300, 100}, {100, 100}})}
                                           << 50 << (800.0 / 300) / 0.2 << QPointF(199, 99);
        QTest::newRow("shapes outside the image reset the view") << sq << Boxes{box("o", 5000, 5000, 5010, 5010)} << 50 << 1.0 << QPointF(2000, 1500);
        QTest::newRow("no shapes reset the view") << sq << Boxes() << 50 << 1.0 << QPointF(2000, 1500);
    }
    void zoomToAnnotations()
    {
        auto [widget, boxes, border, zoom, centre] = row<QSize, Boxes, int, double, QPointF>("widget", "boxes", "border", "zoom", "centre");
        QVERIFY(d->show(widget, QSize(4000, 3000)));
        c->setBoxes(boxes);
        d->zoomSteps(2);
        c->zoomToAnnotations(border);
        QVERIFY2(qFuzzyCompare(c->zoom(), zoom), qPrintable(QString::number(c->zoom())));
        QVERIFY(near(c->imageToWidget(centre), QPointF(widget.width(), widget.height()) / 2, 1e-6 * c->scale() * 4000));
    }

    void wheelKeepsPixelUnderCursor_data()
    {
        columns<QPointF, QPoint, double>("pos", "angleDelta", "factor");
        QTest::newRow("up at the centre") << QPointF(400, 400) << QPoint(0, 120) << 1.15;
        QTest::newRow("down off centre, fractional") << QPointF(123.25, 611.75) << QPoint(0, -120) << 1 / 1.15;
        QTest::newRow("small up step") << QPointF(700, 250) << QPoint(0, 15) << 1.15;
        QTest::newRow("horizontal only zooms out") << QPointF(300, 500) << QPoint(120, 0) << 1 / 1.15;
        QTest::newRow("outside the image") << QPointF(10, 10) << QPoint(0, 120) << 1.15;
    }
    void wheelKeepsPixelUnderCursor()
    {
        auto [pos, angleDelta, factor] = row<QPointF, QPoint, double>("pos", "angleDelta", "factor");
        QVERIFY(start({box("object", 600, 100, 700, 150)}));
        c->zoomIn(); // start from a panned view
        const QPointF under = c->widgetToImage(pos);
        for (int step = 1; step <= 2; ++step) {
            QVERIFY(d->wheel(pos, angleDelta));
            QVERIFY(qFuzzyCompare(c->zoom(), 1.25 * std::pow(factor, step)));
            QVERIFY(near(c->imageToWidget(under), pos, 1e-9));
        }
    }

    void withoutImage()
    {
        QVERIFY(d->show(QSize(400, 300)));
        c->zoomIn();
        c->zoomOut();
        c->zoomToAnnotations(50);
        QVERIFY(!d->wheel(QPointF(100, 100), QPoint(0, 120)));
        d->press(QPointF(50, 50), Qt::RightButton);
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        d->release(QPointF(50, 50), Qt::RightButton);
        QCOMPARE(c->zoom(), 1.0);
        QCOMPARE(c->offset(), QPointF(0, 0));
        QCOMPARE(d->log, QStringList());
        // Only the hint is painted, centred.
        const QImage shot = d->shot();
        QRect ink;
        for (int y = 0; y < shot.height(); ++y)
            for (int x = 0; x < shot.width(); ++x)
                if (shot.pixelColor(x, y) != CanvasBackground)
                    ink |= QRect(x, y, 1, 1);
        QVERIFY(!ink.isEmpty() && ink.height() < 30);
        QVERIFY(std::abs(ink.center().x() - 200) <= 3 && std::abs(ink.center().y() - 150) <= 3);
    }

    void dragPans_data()
    {
        columns<int, bool, Boxes, QStringList>("button", "space", "boxes", "labels");
        // Press at widget (100, 300) = image (125, 125).
        const Boxes under{box("object", 100, 100, 200, 200)};
        QTest::newRow("right drag on empty area") << int(Qt::RightButton) << false << Boxes{box("object", 600, 100, 700, 200)} << QStringList{"object"};
        QTest::newRow("right drag on a shape without label names") << int(Qt::RightButton) << false << under << QStringList();
        QTest::newRow("space + left drag on a shape") << int(Qt::LeftButton) << true << under << QStringList{"object"};
    }
    void dragPans()
    {
        auto [button, space, boxes, labels] = row<int, bool, Boxes, QStringList>("button", "space", "boxes", "labels");
        QVERIFY(start(boxes));
        c->setLabelNames(labels);
        const auto b = Qt::MouseButton(button);
        if (space)
            QTest::keyPress(c, Qt::Key_Space);
        QCOMPARE(c->cursor().shape(), space ? Qt::OpenHandCursor : Qt::CrossCursor);
        d->press(QPointF(100, 300), b);
        QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
        d->moveTo(QPointF(160, 270), b);
        QCOMPARE(c->offset(), QPointF(60, 170));
        d->moveTo(QPointF(-2000, 270), b); // no limit: the image may leave the widget
        QCOMPARE(c->pan(), QPointF(-2100, -30));
        d->moveTo(QPointF(150, 310), b);
        d->release(QPointF(150, 310), b);
        QCOMPARE(c->pan(), QPointF(50, 10));
        QCOMPARE(c->cursor().shape(), space ? Qt::OpenHandCursor : Qt::CrossCursor);
        QCOMPARE(c->boxes(), boxes);
        QCOMPARE(d->log, QStringList());
        if (space) {
            QTest::keyRelease(c, Qt::Key_Space);
            QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
        }
    }

    void panPositionsAreRounded_data()
    {
        columns<QPointF, QPointF, QPointF>("press", "move", "pan");
        QTest::newRow("halves round up") << QPointF(100.5, 200.5) << QPointF(130.4, 180.6) << QPointF(29, -20);
        QTest::newRow("negative halves round away from zero") << QPointF(10, 10) << QPointF(-0.5, -2.5) << QPointF(-11, -13);
        QTest::newRow("just below a half") << QPointF(50.49, 50) << QPointF(60.49, 70.51) << QPointF(10, 21);
    }
    void panPositionsAreRounded()
    {
        auto [press, move, pan] = row<QPointF, QPointF, QPointF>("press", "move", "pan");
        QVERIFY(start());
        d->press(press, Qt::RightButton);
        d->moveTo(move, Qt::RightButton);
        QCOMPARE(c->pan(), pan);
    }

    void rightPressOnShapeOpensLabelMenu()
    {
        QVERIFY(start({box("dog", 600, 100, 700, 200), box("cat", 100, 100, 200, 200)}));
        c->setLabelNames({"cat", "dog", "bird", "R&D"});
        QSignalSpy request(c, &ImageCanvas::labelChangeRequested);
        // Widget (100, 300) = image (125, 125): inside the "cat" box.
        const MenuSeen menu = answerMenu([&] { d->press(QPointF(100, 300), Qt::RightButton); }, "bird");
        // "&&" shows one "&": R&D is not read as R with a mnemonic D.
        QCOMPARE(menu.entries, (QStringList{"[Change label to:]", "cat", "dog", "bird", "R&&D"}));
        QCOMPARE(menu.checked, QStringList{"cat"});
        QCOMPARE(d->log, QStringList{"sel(1)"});
        QCOMPARE(request.count(), 1);
        QCOMPARE(request.at(0), (QList<QVariant>{1, "bird"}));
        QCOMPARE(c->dragMode(), ImageCanvas::None);
        QCOMPARE(c->pan(), QPointF(0, 0));
    }

    void cursorFollowsSelection_data()
    {
        columns<BoxAnnotation, QPoint, int>("shape", "pos", "cursor");
        // The box's integer rectangle 100..300 x 100..200 covers widget x 80..240.8 and y 280..360.8.
        const BoxAnnotation b = box("object", 300, 200, 100, 100);
        QTest::newRow("top-left handle") << b << QPoint(82, 278) << int(Qt::SizeFDiagCursor);
        QTest::newRow("top handle") << b << QPoint(160, 285) << int(Qt::SizeVerCursor);
        QTest::newRow("top-right handle") << b << QPoint(247, 274) << int(Qt::SizeBDiagCursor);
        QTest::newRow("left handle") << b << QPoint(74, 320) << int(Qt::SizeHorCursor);
        QTest::newRow("right handle") << b << QPoint(241, 321) << int(Qt::SizeHorCursor);
        QTest::newRow("bottom-left handle") << b << QPoint(80, 361) << int(Qt::SizeBDiagCursor);
        QTest::newRow("bottom handle") << b << QPoint(161, 366) << int(Qt::SizeVerCursor);
        QTest::newRow("bottom-right handle") << b << QPoint(248, 368) << int(Qt::SizeFDiagCursor);
        QTest::newRow("just outside a handle") << b << QPoint(249, 369) << int(Qt::CrossCursor);
        QTest::newRow("inside the box") << b << QPoint(120, 300) << int(Qt::SizeAllCursor);
        QTest::newRow("on the badge band") << b << QPoint(130, 265) << int(Qt::SizeAllCursor);
        QTest::newRow("above the badge band") << b << QPoint(130, 261) << int(Qt::CrossCursor);
        QTest::newRow("elsewhere") << b << QPoint(500, 500) << int(Qt::CrossCursor);
        // Rotated box centred on image (500, 250) = widget (400, 400); handle at (400, 370).
        const BoxAnnotation r = rotated(QPointF(500, 250), 100, 50, 0);
        QTest::newRow("rotation handle") << r << QPoint(405, 362) << int(Qt::SizeAllCursor);
        QTest::newRow("12 px from the rotation handle") << r << QPoint(400, 358) << int(Qt::CrossCursor);
        QTest::newRow("corner handle of a rotated box") << r << QPoint(354, 376) << int(Qt::SizeAllCursor);
        QTest::newRow("beside a rotated box") << r << QPoint(470, 400) << int(Qt::CrossCursor);
        // Just outside the polygon's rectangle, on the grab square of vertex 1.
        QTest::newRow("polygon vertex handle") << shape("object", ShapeType::Polygon, {{100, 100}, {200, 100}, {150, 150}})
                                               << QPoint(166, 286) << int(Qt::SizeAllCursor);
    }
    void cursorFollowsSelection()
    {
        auto [shape, pos, cursor] = row<BoxAnnotation, QPoint, int>("shape", "pos", "cursor");
        QVERIFY(start({shape}));
        d->moveTo(pos, Qt::NoButton);
        QCOMPARE(c->cursor().shape(), Qt::CrossCursor); // nothing selected
        c->setSelectedIndex(0);
        d->moveTo(pos, Qt::NoButton);
        QCOMPARE(int(c->cursor().shape()), cursor);
        c->setSpaceHeld(true);
        d->moveTo(pos + QPoint(1, 0), Qt::NoButton);
        QCOMPARE(c->cursor().shape(), Qt::OpenHandCursor);
    }

    void spaceCursors()
    {
        QVERIFY(start());
        c->setSpaceHeld(true);
        d->press(QPointF(300, 300));
        QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
        c->setSpaceHeld(true); // Space again while panning keeps the closed hand
        QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
        c->setSpaceHeld(false); // the pan goes on until the release
        QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
        d->moveTo(QPointF(320, 310));
        QCOMPARE(c->pan(), QPointF(20, 10));
        d->release(QPointF(320, 310));
        // An auto-repeated Space press does not switch pan mode on.
        QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, " ", true);
        QApplication::sendEvent(c, &repeat);
        QVERIFY(!c->spaceHeld());
        QVERIFY(!repeat.isAccepted());
    }

    void hitTestBox_data()
    {
        columns<Boxes, QPoint, int>("boxes", "pos", "index");
        // Image (x, y) = widget (0.8x, 0.8y + 200).
        const BoxAnnotation outer = box("o", 100, 100, 400, 400), inner = box("i", 200, 200, 250, 250);
        QTest::newRow("inner box wins, listed last") << Boxes{outer, inner} << QPoint(180, 380) << 1;
        QTest::newRow("inner box wins, listed first") << Boxes{inner, outer} << QPoint(180, 380) << 0;
        QTest::newRow("between the boxes") << Boxes{inner, outer} << QPoint(100, 300) << 1;
        QTest::newRow("equal boxes: the earlier wins") << Boxes{inner, inner} << QPoint(180, 380) << 0;
        QTest::newRow("nothing there") << Boxes{inner} << QPoint(600, 600) << -1;
        QTest::newRow("polygon hit outside its outline") << Boxes{shape("p", ShapeType::Polygon, {{100, 100}, {300, 100}, {100, 300}})} << QPoint(220, 420) << 0;
        // Horizontal line at image y 100 = widget y 280, x 80..240.
        const BoxAnnotation flat = shape("l", ShapeType::Line, {{100, 100}, {300, 100}});
        QTest::newRow("flat line: just below it") << Boxes{flat} << QPoint(160, 281) << -1;
        QTest::newRow("flat line: badge band above it") << Boxes{flat} << QPoint(160, 270) << 0;
        // A vertical line is 0 wide; its band is still 60 wide.
        QTest::newRow("upright line: wide badge band") << Boxes{shape("l", ShapeType::Line, {{100, 100}, {100, 300}})} << QPoint(135, 275) << 0;
        // Keypoint at image (500, 250) = widget (400, 400).
        BoxAnnotation kp = shape("k", ShapeType::Keypoint, {{500, 250}});
        QTest::newRow("visible keypoint at 7 px") << Boxes{kp} << QPoint(407, 400) << 0;
        QTest::newRow("visible keypoint at 8 px") << Boxes{kp} << QPoint(408, 400) << -1;
        kp.visible = false;
        QTest::newRow("occluded keypoint at 5 px") << Boxes{kp} << QPoint(403, 404) << 0;
        QTest::newRow("occluded keypoint at 5.7 px") << Boxes{kp} << QPoint(404, 404) << -1;
        QTest::newRow("occluded keypoint at 6 px") << Boxes{kp} << QPoint(400, 394) << -1;
        QTest::newRow("keypoint inside a box wins") << Boxes{box("b", 400, 200, 600, 300), kp} << QPoint(401, 401) << 1;
    }
    void hitTestBox()
    {
        auto [boxes, pos, index] = row<Boxes, QPoint, int>("boxes", "pos", "index");
        QVERIFY(start(boxes));
        QCOMPARE(c->hitTestBox(pos), index);
        c->setSelectedIndex(index);
        QCOMPARE(c->hitSelectedBox(pos), index >= 0);
    }

    void setImageAndSetBoxes()
    {
        QVERIFY(d->show(QSize(800, 800)));
        const Boxes boxes{box("a", 10, 10, 50, 50), box("b", 600, 100, 700, 200)};
        c->setImage(solid(QSize(1000, 500)));
        c->setBoxes(boxes);
        QCOMPARE(d->log, QStringList(2, "coords(-1,-1,-1,-1)"));
        // The view survives new shapes; the selection does not, and no signal tells of it.
        c->setSelectedIndex(1);
        c->zoomIn();
        const QPointF pan = c->pan();
        c->setBoxes(boxes);
        QCOMPARE(c->selectedIndex(), -1);
        QCOMPARE(c->pan(), pan);
        c->selectAll();
        c->setBoxes(boxes);
        QVERIFY(!c->allSelected());
        // A new image resets the view and keeps the shapes until the next setBoxes.
        c->setSelectedIndex(0);
        c->setImage(solid(QSize(500, 1000)));
        QCOMPARE(c->zoom(), 1.0);
        QCOMPARE(c->offset(), QPointF(200, 0));
        QCOMPARE(c->selectedIndex(), -1);
        QCOMPARE(c->boxes(), boxes);
        QCOMPARE(d->log, QStringList(5, "coords(-1,-1,-1,-1)"));
    }

    void selection()
    {
        QVERIFY(start());
        c->selectAll();
        QVERIFY(!c->allSelected()); // nothing to select
        const Boxes boxes{box("a", 10, 10, 50, 50), box("b", 20, 20, 60, 60), box("c", 30, 30, 70, 70)};
        QVERIFY(start(boxes));
        c->setSelectedIndex(1);
        QCOMPARE(c->selectedBox(), boxes.at(1));
        c->setSelectedIndex(3);
        QCOMPARE(c->selectedIndex(), -1);
        QCOMPARE(c->selectedBox(), BoxAnnotation());
        c->selectAll();
        c->setSelectedIndex(-1); // the same index as now: select-all mode stays on
        QVERIFY(c->allSelected());
        c->setSelectedIndex(1);
        QVERIFY(!c->allSelected());
        QCOMPARE(d->log, QStringList());
        // Delete takes out the selected shape only.
        d->log.clear();
        QTest::keyClick(c, Qt::Key_Delete);
        QCOMPARE(c->boxes(), (Boxes{boxes[0], boxes[2]}));
        QCOMPARE(d->log, (QStringList{"about", "sel(-1)", "changed"}));
        QTest::keyClick(c, Qt::Key_Delete); // nothing selected: nothing happens
        QCOMPARE(c->boxes().size(), 2);
        QCOMPARE(d->log.size(), 3);
    }

};

QTEST_MAIN(TestCanvasView)
#include "tst_canvasview.moc"
