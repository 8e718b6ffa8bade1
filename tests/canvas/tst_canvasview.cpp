#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>

#include <cmath>
#include <memory>

#include "canvas/imagecanvas.h"

Q_DECLARE_METATYPE(BoxAnnotation)

using Boxes = QList<BoxAnnotation>;

namespace {

BoxAnnotation shape(ShapeType type, const QList<QPointF>& points, const QString& label = "object")
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

QPixmap solid(const QSize& size, const QColor& colour = Qt::darkYellow)
{
    QPixmap p(size);
    p.fill(colour);
    return p;
}

// Every pixel carries its own coordinates, so a grab shows which image pixel landed where.
QColor codeOf(int x, int y)
{
    return QColor(x * 2 % 256, y * 3 % 256, 77);
}

QPixmap coded(const QSize& size)
{
    QImage img(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            img.setPixel(x, y, codeOf(x, y).rgb());
    return QPixmap::fromImage(img);
}

const QColor Background(45, 45, 48);

bool fuzzyPoint(const QPointF& a, const QPointF& b, double eps = 1e-6)
{
    return std::abs(a.x() - b.x()) < eps && std::abs(a.y() - b.y()) < eps;
}

} // namespace

class TestCanvasView : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<ImageCanvas> c;
    // Shows the canvas at exactly this size (the offscreen platform applies sizes late).
    bool showAt(const QSize& size);
    void sendWheel(const QPointF& pos, const QPoint& angleDelta, bool* accepted = nullptr);
    // A mouse move without buttons, delivered directly (no platform cursor involved).
    void hover(const QPoint& pos);

private Q_SLOTS:
    void init();
    void cleanup();

    void fit_data();
    void fit();
    void resizeKeepsZoomAndPan();
    void zoomSteps_data();
    void zoomSteps();
    void zoomKeepsTargetCentred_data();
    void zoomKeepsTargetCentred();
    void zoomToAnnotations_data();
    void zoomToAnnotations();
    void wheelKeepsPixelUnderCursor_data();
    void wheelKeepsPixelUnderCursor();
    void wheelStopsAtLowerLimit();
    void withoutImage();
    void dragPans_data();
    void dragPans();
    void panPositionsAreRounded_data();
    void panPositionsAreRounded();
    void leftDragWithoutSpaceDoesNotPan();
    void rightPressOnShapeOpensLabelMenu();
    void cursorFollowsSelection_data();
    void cursorFollowsSelection();
    void spaceCursors();
    void hitTestBox_data();
    void hitTestBox();
    void rotationHandleStaysAboveCentre_data();
    void rotationHandleStaysAboveCentre();
    void setImageAndSetBoxes();
    void selectionOperations();
    void deleteSelected_data();
    void deleteSelected();
    void escapeKey();
    void clampPoint_data();
    void clampPoint();
    void clampRect_data();
    void clampRect();
    void paintedImageMatchesTransform_data();
    void paintedImageMatchesTransform();
    void paintsImageCounter();
};

bool TestCanvasView::showAt(const QSize& size)
{
    c->resize(size);
    c->show();
    if (!QTest::qWaitForWindowExposed(c.get()))
        return false;
    return QTest::qWaitFor([&] { return c->size() == size; });
}

void TestCanvasView::sendWheel(const QPointF& pos, const QPoint& angleDelta, bool* accepted)
{
    QWheelEvent ev(pos, c->mapToGlobal(pos), QPoint(), angleDelta, Qt::NoButton, Qt::NoModifier,
                   Qt::NoScrollPhase, false);
    QApplication::sendEvent(c.get(), &ev);
    if (accepted)
        *accepted = ev.isAccepted();
}

void TestCanvasView::hover(const QPoint& pos)
{
    QMouseEvent ev(QEvent::MouseMove, QPointF(pos), c->mapToGlobal(QPointF(pos)), Qt::NoButton,
                   Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &ev);
}

void TestCanvasView::init()
{
    c = std::make_unique<ImageCanvas>();
}

void TestCanvasView::cleanup()
{
    c.reset();
}

void TestCanvasView::fit_data()
{
    QTest::addColumn<QSize>("imageSize");
    QTest::addColumn<QSize>("widgetSize");
    QTest::addColumn<double>("scale");
    QTest::addColumn<QPointF>("offset");

    QTest::newRow("wide image, square widget")
        << QSize(1000, 500) << QSize(800, 800) << 0.8 << QPointF(0, 200);
    QTest::newRow("tall image, wide widget")
        << QSize(500, 1000) << QSize(800, 600) << 0.6 << QPointF(250, 0);
    QTest::newRow("small image is enlarged")
        << QSize(200, 100) << QSize(800, 600) << 4.0 << QPointF(0, 100);
    QTest::newRow("odd leftover halves")
        << QSize(2, 2) << QSize(301, 300) << 150.0 << QPointF(0.5, 0);
}

void TestCanvasView::fit()
{
    QFETCH(QSize, imageSize);
    QFETCH(QSize, widgetSize);
    QFETCH(double, scale);
    QFETCH(QPointF, offset);

    QVERIFY(showAt(widgetSize));
    c->setImage(solid(imageSize));
    QCOMPARE(c->zoom(), 1.0);
    QCOMPARE(c->scale(), scale);
    QVERIFY(fuzzyPoint(c->offset(), offset));
    const QRectF shown = c->imageRectToWidget(QRect(QPoint(0, 0), imageSize));
    QVERIFY(fuzzyPoint(shown.topLeft(), offset));
    QVERIFY(fuzzyPoint(QPointF(shown.width(), shown.height()),
                       QPointF(imageSize.width() * scale, imageSize.height() * scale)));
    // The last pixel of an integer rectangle is covered: a one-pixel rectangle is one
    // scaled pixel wide, not zero.
    const QRectF onePixel = c->imageRectToWidget(QRect(1, 1, 1, 1));
    QVERIFY(std::abs(onePixel.width() - scale) < 1e-9);
    QVERIFY(fuzzyPoint(c->widgetToImage(c->imageToWidget(QPointF(1.25, 0.5))), QPointF(1.25, 0.5)));
}

void TestCanvasView::resizeKeepsZoomAndPan()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes({bbox(100, 100, 120, 130)});
    c->zoomIn();
    const double zoom = c->zoom();
    const QPointF pan = c->pan();
    QVERIFY(pan != QPointF(0, 0));

    QVERIFY(showAt(QSize(600, 500)));
    QCOMPARE(c->zoom(), zoom);
    QCOMPARE(c->pan(), pan);
    QCOMPARE(c->scale(), 0.6 * zoom);
    const QPointF fitOffset((600 - 1000 * c->scale()) / 2, (500 - 500 * c->scale()) / 2);
    QVERIFY(fuzzyPoint(c->offset(), fitOffset + pan));
}

void TestCanvasView::zoomSteps_data()
{
    QTest::addColumn<int>("ins");
    QTest::addColumn<int>("outs");
    QTest::addColumn<double>("zoom");

    QTest::newRow("one step in") << 1 << 0 << 1.25;
    QTest::newRow("in and out again") << 3 << 3 << 1.0;
    QTest::newRow("ten steps out, above the limit") << 0 << 10 << std::pow(1.25, -10);
    // 0.107 / 1.25 would be 0.086: the buttons stop at 0.1.
    QTest::newRow("eleventh step out stops at 0.1") << 0 << 11 << 0.1;
    QTest::newRow("far out stays at 0.1") << 0 << 30 << 0.1;
    QTest::newRow("no maximum") << 40 << 0 << std::pow(1.25, 40);
}

void TestCanvasView::zoomSteps()
{
    QFETCH(int, ins);
    QFETCH(int, outs);
    QFETCH(double, zoom);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    for (int i = 0; i < ins; ++i)
        c->zoomIn();
    for (int i = 0; i < outs; ++i)
        c->zoomOut();
    QVERIFY(qFuzzyCompare(c->zoom(), zoom));
    QVERIFY(qFuzzyCompare(c->scale(), 0.8 * zoom));

    c->zoomFit();
    QCOMPARE(c->zoom(), 1.0);
    QCOMPARE(c->pan(), QPointF(0, 0));
    QCOMPARE(c->offset(), QPointF(0, 200));
}

void TestCanvasView::zoomKeepsTargetCentred_data()
{
    QTest::addColumn<Boxes>("boxes");
    QTest::addColumn<int>("selected"); // -2: select all
    QTest::addColumn<QPointF>("target");

    const BoxAnnotation box = bbox(100, 100, 200, 150);               // rect 100..199 x 100..149
    const BoxAnnotation poly = shape(ShapeType::Polygon,
        {QPointF(301, 40), QPointF(320.7, 60), QPointF(310, 90.2)}); // rect 301..319 x 40..89

    QTest::newRow("no shapes: image centre") << Boxes() << -1 << QPointF(500, 250);
    QTest::newRow("union of all shapes") << Boxes{box, poly} << -1 << QPointF(209, 94);
    QTest::newRow("selected shape") << Boxes{box, poly} << 1 << QPointF(310, 64);
    QTest::newRow("select-all uses the union") << Boxes{box, poly} << -2 << QPointF(209, 94);
    QTest::newRow("shape without points is ignored")
        << Boxes{BoxAnnotation(), poly} << -1 << QPointF(310, 64);
    // (-8 + 1) / 2 and (-8 + 5) / 2 truncate toward zero.
    QTest::newRow("negative centre truncates toward zero")
        << Boxes{shape(ShapeType::Polygon, {QPointF(-8, -8), QPointF(2, -3), QPointF(0, 6)})}
        << -1 << QPointF(-3, -1);
    // A keypoint's rectangle has no extent: left 40, right 39.
    QTest::newRow("keypoint alone")
        << Boxes{shape(ShapeType::Keypoint, {QPointF(40.6, 30.2)})} << -1
        << QPointF(39, 29);
}

void TestCanvasView::zoomKeepsTargetCentred()
{
    QFETCH(Boxes, boxes);
    QFETCH(int, selected);
    QFETCH(QPointF, target);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes(boxes);
    if (selected == -2)
        c->selectAll();
    else
        c->setSelectedIndex(selected);

    const QPointF centre(400, 400);
    c->zoomIn();
    c->zoomIn();
    QVERIFY(fuzzyPoint(c->imageToWidget(target), centre));
    c->zoomOut();
    QVERIFY(fuzzyPoint(c->imageToWidget(target), centre));
    QVERIFY(qFuzzyCompare(c->zoom(), 1.25));
}

void TestCanvasView::zoomToAnnotations_data()
{
    QTest::addColumn<QSize>("widgetSize");
    QTest::addColumn<Boxes>("boxes");
    QTest::addColumn<int>("border");
    QTest::addColumn<double>("zoom");
    QTest::addColumn<QPointF>("centre"); // image point expected in the widget's centre
    QTest::addColumn<bool>("reset");

    const QSize square(800, 800);
    // The image is 4000 x 3000; fitted into 800 x 800 its scale is 0.2.
    QTest::newRow("10 x 10 box grows to 110 x 110")
        << square << Boxes{bbox(2000, 1500, 2010, 1510)} << 50
        << (800.0 / 110) / 0.2 << QPointF(2004, 1504) << false;
    QTest::newRow("cut at the top-left border")
        << square << Boxes{bbox(5, 5, 15, 15)} << 50
        << (800.0 / 65) / 0.2 << QPointF(32, 32) << false;
    QTest::newRow("cut at the bottom-right border")
        << square << Boxes{bbox(3990, 2990, 3999.5, 2999.5)} << 50
        << (800.0 / 60) / 0.2 << QPointF(3969, 2969) << false;
    // Union 310 x 200 in an 800 x 400 widget: the height is the tighter direction.
    QTest::newRow("tighter direction decides")
        << QSize(800, 400)
        << Boxes{bbox(1000, 1000, 1100, 1010), bbox(1300, 1100, 1310, 1200)} << 0
        << 2.0 / (400.0 / 3000) << QPointF(1154, 1099) << false;
    QTest::newRow("keypoint and line")
        << square
        << Boxes{shape(ShapeType::Keypoint, {QPointF(100, 100)}),
                                shape(ShapeType::Line, {QPointF(300, 100), QPointF(100, 100)})}
        << 50 << (800.0 / 300) / 0.2 << QPointF(199, 99) << false;
    QTest::newRow("shapes outside the image reset the view")
        << square << Boxes{bbox(5000, 5000, 5010, 5010)} << 50 << 1.0
        << QPointF(2000, 1500) << true;
    QTest::newRow("no shapes reset the view")
        << square << Boxes() << 50 << 1.0 << QPointF(2000, 1500) << true;
}

void TestCanvasView::zoomToAnnotations()
{
    QFETCH(QSize, widgetSize);
    QFETCH(Boxes, boxes);
    QFETCH(int, border);
    QFETCH(double, zoom);
    QFETCH(QPointF, centre);
    QFETCH(bool, reset);

    QVERIFY(showAt(widgetSize));
    c->setImage(solid(QSize(4000, 3000)));
    c->setBoxes(boxes);
    c->zoomIn();
    c->zoomIn();

    c->zoomToAnnotations(border);
    QVERIFY2(qFuzzyCompare(c->zoom(), zoom), qPrintable(QString::number(c->zoom())));
    const QPointF middle(widgetSize.width() / 2.0, widgetSize.height() / 2.0);
    QVERIFY(fuzzyPoint(c->imageToWidget(centre), middle, 1e-6 * c->scale() * 4000));
    if (reset)
        QCOMPARE(c->pan(), QPointF(0, 0));
}

void TestCanvasView::wheelKeepsPixelUnderCursor_data()
{
    QTest::addColumn<QPointF>("pos");
    QTest::addColumn<QPoint>("angleDelta");
    QTest::addColumn<double>("factor");

    QTest::newRow("up at the centre") << QPointF(400, 400) << QPoint(0, 120) << 1.15;
    QTest::newRow("down off centre, fractional position")
        << QPointF(123.25, 611.75) << QPoint(0, -120) << 1 / 1.15;
    QTest::newRow("small up step") << QPointF(700, 250) << QPoint(0, 15) << 1.15;
    QTest::newRow("horizontal only zooms out") << QPointF(300, 500) << QPoint(120, 0) << 1 / 1.15;
    QTest::newRow("outside the image") << QPointF(10, 10) << QPoint(0, 120) << 1.15;
}

void TestCanvasView::wheelKeepsPixelUnderCursor()
{
    QFETCH(QPointF, pos);
    QFETCH(QPoint, angleDelta);
    QFETCH(double, factor);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes({bbox(600, 100, 700, 150)});
    c->zoomIn(); // start from a panned view
    const double zoomBefore = c->zoom();
    const QPointF under = c->widgetToImage(pos);

    bool accepted = false;
    sendWheel(pos, angleDelta, &accepted);
    QVERIFY(accepted);
    QVERIFY(qFuzzyCompare(c->zoom(), zoomBefore * factor));
    QVERIFY(fuzzyPoint(c->imageToWidget(under), pos, 1e-9));
    QVERIFY(fuzzyPoint(c->offset(), c->m_fitOffset + c->pan(), 1e-9));

    // A second step in the same place keeps the same pixel too.
    sendWheel(pos, angleDelta);
    QVERIFY(fuzzyPoint(c->imageToWidget(under), pos, 1e-9));
}

void TestCanvasView::wheelStopsAtLowerLimit()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    for (int i = 0; i < 30; ++i)
        sendWheel(QPointF(200, 300), QPoint(0, -120));
    // Below the buttons' limit of 0.1.
    QCOMPARE(c->zoom(), 0.05);
    QCOMPARE(c->scale(), 0.8 * 0.05);
    c->zoomIn();
    QVERIFY(qFuzzyCompare(c->zoom(), 0.0625));
}

void TestCanvasView::withoutImage()
{
    QVERIFY(showAt(QSize(400, 300)));
    QSignalSpy coords(c.get(), &ImageCanvas::drawingCoords);

    c->zoomIn();
    QCOMPARE(c->zoom(), 1.0);
    c->zoomOut();
    c->zoomOut();
    QCOMPARE(c->zoom(), 1.0);
    c->zoomToAnnotations(50);
    bool accepted = true;
    sendWheel(QPointF(100, 100), QPoint(0, 120), &accepted);
    QVERIFY(!accepted);
    QCOMPARE(c->scale(), 1.0);
    QCOMPARE(c->offset(), QPointF(0, 0));
    QCOMPARE(c->zoom(), 1.0);

    QTest::mousePress(c.get(), Qt::RightButton, {}, QPoint(50, 50));
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QTest::mouseRelease(c.get(), Qt::RightButton, {}, QPoint(50, 50));

    QCOMPARE(c->clampPtToImage(QPointF(-5, 1e6)), QPointF(-5, 1e6));
    const QRect reversed(QPoint(9, 9), QPoint(-3, -3));
    QCOMPARE(c->clampToImage(reversed), reversed);
    QCOMPARE(coords.count(), 0);

    // Only the hint is painted, centred.
    const QImage shot = c->grab().toImage();
    QCOMPARE(shot.pixelColor(0, 0), Background);
    QRect ink;
    for (int y = 0; y < shot.height(); ++y)
        for (int x = 0; x < shot.width(); ++x)
            if (shot.pixelColor(x, y) != Background)
                ink |= QRect(x, y, 1, 1);
    QVERIFY(!ink.isEmpty());
    QVERIFY(std::abs(ink.center().x() - 200) <= 3);
    QVERIFY(std::abs(ink.center().y() - 150) <= 3);
    QVERIFY(ink.height() < 30);
}

void TestCanvasView::dragPans_data()
{
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<bool>("space");
    QTest::addColumn<Boxes>("boxes");
    QTest::addColumn<QStringList>("labels");

    // Press at widget (100, 300) = image (125, 125).
    const Boxes under{bbox(100, 100, 200, 200)};
    QTest::newRow("right drag on empty area")
        << Qt::RightButton << false << Boxes{bbox(600, 100, 700, 200)} << QStringList{"object"};
    QTest::newRow("right drag on a shape without label names")
        << Qt::RightButton << false << under << QStringList();
    QTest::newRow("space + left drag on a shape")
        << Qt::LeftButton << true << under << QStringList{"object"};
}

void TestCanvasView::dragPans()
{
    QFETCH(Qt::MouseButton, button);
    QFETCH(bool, space);
    QFETCH(Boxes, boxes);
    QFETCH(QStringList, labels);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes(boxes);
    c->setLabelNames(labels);
    const QPointF panBefore = c->pan();
    const QPointF offsetBefore = c->offset();
    if (space) {
        QTest::keyPress(c.get(), Qt::Key_Space);
        QVERIFY(c->spaceHeld());
        QCOMPARE(c->cursor().shape(), Qt::OpenHandCursor);
    }

    QTest::mousePress(c.get(), button, {}, QPoint(100, 300));
    QCOMPARE(c->dragMode(), ImageCanvas::Pan);
    QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
    QTest::mouseMove(c.get(), QPoint(160, 270));
    QCOMPARE(c->pan(), panBefore + QPointF(60, -30));
    QCOMPARE(c->offset(), offsetBefore + QPointF(60, -30));
    // No limit: the image may leave the widget.
    QTest::mouseMove(c.get(), QPoint(-2000, 270));
    QCOMPARE(c->pan(), panBefore + QPointF(-2100, -30));
    QTest::mouseMove(c.get(), QPoint(150, 310));
    QTest::mouseRelease(c.get(), button, {}, QPoint(150, 310));
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QCOMPARE(c->pan(), panBefore + QPointF(50, 10));
    QCOMPARE(c->cursor().shape(), space ? Qt::OpenHandCursor : Qt::CrossCursor);
    QCOMPARE(c->boxes(), boxes);
    QCOMPARE(c->selectedIndex(), -1);

    if (space) {
        QTest::keyRelease(c.get(), Qt::Key_Space);
        QVERIFY(!c->spaceHeld());
        QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
    }
}

void TestCanvasView::panPositionsAreRounded_data()
{
    QTest::addColumn<QPointF>("press");
    QTest::addColumn<QPointF>("move");
    QTest::addColumn<QPointF>("delta");

    QTest::newRow("halves round up")
        << QPointF(100.5, 200.5) << QPointF(130.4, 180.6) << QPointF(29, -20);
    QTest::newRow("negative halves round away from zero")
        << QPointF(10, 10) << QPointF(-0.5, -2.5) << QPointF(-11, -13);
    QTest::newRow("just below a half")
        << QPointF(50.49, 50) << QPointF(60.49, 70.51) << QPointF(10, 21);
}

void TestCanvasView::panPositionsAreRounded()
{
    QFETCH(QPointF, press);
    QFETCH(QPointF, move);
    QFETCH(QPointF, delta);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    QMouseEvent down(QEvent::MouseButtonPress, press, c->mapToGlobal(press), Qt::RightButton,
                     Qt::RightButton, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &down);
    QMouseEvent drag(QEvent::MouseMove, move, c->mapToGlobal(move), Qt::NoButton, Qt::RightButton,
                     Qt::NoModifier);
    QApplication::sendEvent(c.get(), &drag);
    QCOMPARE(c->pan(), delta);
    QCOMPARE(c->m_panStartMouse, QPointF(std::round(press.x()), std::round(press.y())));
}

void TestCanvasView::leftDragWithoutSpaceDoesNotPan()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    QTest::mousePress(c.get(), Qt::LeftButton, {}, QPoint(100, 300));
    QVERIFY(c->dragMode() != ImageCanvas::Pan);
    QTest::mouseMove(c.get(), QPoint(200, 350));
    QTest::mouseRelease(c.get(), Qt::LeftButton, {}, QPoint(200, 350));
    QCOMPARE(c->pan(), QPointF(0, 0));
    QCOMPARE(c->offset(), QPointF(0, 200));
}

void TestCanvasView::rightPressOnShapeOpensLabelMenu()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes({bbox(600, 100, 700, 200, "dog"), bbox(100, 100, 200, 200, "cat")});
    c->setLabelNames({"cat", "dog", "bird", "R&D"});
    QSignalSpy selection(c.get(), &ImageCanvas::selectionChanged);
    QSignalSpy request(c.get(), &ImageCanvas::labelChangeRequested);

    QStringList offered;
    QStringList checked;
    bool menuSeen = false;
    QTimer poll;
    poll.setInterval(10);
    connect(&poll, &QTimer::timeout, this, [&] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu)
            return;
        poll.stop();
        menuSeen = true;
        QAction* bird = nullptr;
        for (QAction* a : menu->actions()) {
            if (a->isSeparator()) {
                offered << "[" + a->text() + "]";
                continue;
            }
            offered << a->text();
            if (a->isChecked())
                checked << a->text();
            if (a->text() == "bird")
                bird = a;
        }
        menu->setActiveAction(bird);
        QTest::keyClick(menu, Qt::Key_Return);
    });
    poll.start();
    // Widget (100, 300) = image (125, 125): inside the "cat" box.
    QTest::mousePress(c.get(), Qt::RightButton, {}, QPoint(100, 300));
    QVERIFY(menuSeen);
    // "&&" shows one "&": R&D is not read as R with a mnemonic D.
    QCOMPARE(offered, (QStringList{"[Change label to:]", "cat", "dog", "bird", "R&&D"}));
    QCOMPARE(checked, QStringList{"cat"});
    QCOMPARE(c->selectedIndex(), 1);
    QCOMPARE(selection.count(), 1);
    QCOMPARE(selection.at(0).at(0).toInt(), 1);
    QCOMPARE(request.count(), 1);
    QCOMPARE(request.at(0).at(0).toInt(), 1);
    QCOMPARE(request.at(0).at(1).toString(), QStringLiteral("bird"));
    QCOMPARE(c->dragMode(), ImageCanvas::None);
    QCOMPARE(c->pan(), QPointF(0, 0));
}

void TestCanvasView::cursorFollowsSelection_data()
{
    QTest::addColumn<BoxAnnotation>("box");
    QTest::addColumn<QPoint>("pos");
    QTest::addColumn<Qt::CursorShape>("cursor");

    // Image 1000 x 500 at scale 0.8, offset (0, 200). The box's integer rectangle
    // 100..300 x 100..200 covers widget x 80..240.8 and y 280..360.8.
    const BoxAnnotation b = bbox(300, 200, 100, 100);
    QTest::newRow("top-left handle") << b << QPoint(82, 278) << Qt::SizeFDiagCursor;
    QTest::newRow("top handle") << b << QPoint(160, 285) << Qt::SizeVerCursor;
    QTest::newRow("top-right handle") << b << QPoint(247, 274) << Qt::SizeBDiagCursor;
    QTest::newRow("left handle") << b << QPoint(74, 320) << Qt::SizeHorCursor;
    QTest::newRow("right handle") << b << QPoint(241, 321) << Qt::SizeHorCursor;
    QTest::newRow("bottom-left handle") << b << QPoint(80, 361) << Qt::SizeBDiagCursor;
    QTest::newRow("bottom handle") << b << QPoint(161, 366) << Qt::SizeVerCursor;
    QTest::newRow("bottom-right handle") << b << QPoint(248, 368) << Qt::SizeFDiagCursor;
    QTest::newRow("just outside a handle") << b << QPoint(249, 369) << Qt::CrossCursor;
    QTest::newRow("inside the box") << b << QPoint(120, 300) << Qt::SizeAllCursor;
    QTest::newRow("on the badge band") << b << QPoint(130, 265) << Qt::SizeAllCursor;
    QTest::newRow("above the badge band") << b << QPoint(130, 261) << Qt::CrossCursor;
    QTest::newRow("elsewhere") << b << QPoint(500, 500) << Qt::CrossCursor;

    // Rotated box centred on image (500, 250) = widget (400, 400); handle at (400, 370).
    const BoxAnnotation r = shape(ShapeType::RotatedBox,
                                  rotatedBoxCorners(QPointF(500, 250), 100, 50, 0));
    QTest::newRow("rotation handle") << r << QPoint(405, 362) << Qt::SizeAllCursor;
    QTest::newRow("corner handle of a rotated box") << r << QPoint(354, 376) << Qt::SizeAllCursor;
    QTest::newRow("beside a rotated box") << r << QPoint(470, 400) << Qt::CrossCursor;
    // Just outside the polygon's rectangle, on the grab square of vertex 1.
    const BoxAnnotation p =
        shape(ShapeType::Polygon, {QPointF(100, 100), QPointF(200, 100), QPointF(150, 150)});
    QTest::newRow("polygon vertex handle") << p << QPoint(166, 286) << Qt::SizeAllCursor;
}

void TestCanvasView::cursorFollowsSelection()
{
    QFETCH(BoxAnnotation, box);
    QFETCH(QPoint, pos);
    QFETCH(Qt::CursorShape, cursor);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes({box});
    // Without a selection the canvas shows the cross everywhere.
    hover(pos);
    QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
    c->setSelectedIndex(0);
    hover(pos);
    QCOMPARE(c->cursor().shape(), cursor);
    c->setSpaceHeld(true);
    QCOMPARE(c->cursor().shape(), Qt::OpenHandCursor);
    hover(pos + QPoint(1, 0));
    QCOMPARE(c->cursor().shape(), Qt::OpenHandCursor);
}

void TestCanvasView::spaceCursors()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
    c->setSpaceHeld(true);
    QVERIFY(c->spaceHeld());
    QCOMPARE(c->cursor().shape(), Qt::OpenHandCursor);
    QTest::mousePress(c.get(), Qt::LeftButton, {}, QPoint(300, 300));
    QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
    // Pressing Space again while panning keeps the closed hand.
    c->setSpaceHeld(true);
    QCOMPARE(c->cursor().shape(), Qt::ClosedHandCursor);
    c->setSpaceHeld(false);
    QCOMPARE(c->cursor().shape(), Qt::CrossCursor);
    QCOMPARE(c->dragMode(), ImageCanvas::Pan);
    QTest::mouseMove(c.get(), QPoint(320, 310));
    QCOMPARE(c->pan(), QPointF(20, 10));
    QTest::mouseRelease(c.get(), Qt::LeftButton, {}, QPoint(320, 310));
    QCOMPARE(c->cursor().shape(), Qt::CrossCursor);

    // An auto-repeated Space press does not switch pan mode on.
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, " ", true);
    QApplication::sendEvent(c.get(), &repeat);
    QVERIFY(!c->spaceHeld());
    QVERIFY(!repeat.isAccepted());
}

void TestCanvasView::hitTestBox_data()
{
    QTest::addColumn<Boxes>("boxes");
    QTest::addColumn<QPoint>("pos");
    QTest::addColumn<int>("index");

    // Image 1000 x 500 at scale 0.8, offset (0, 200): image (x, y) = widget (0.8x, 0.8y + 200).
    const BoxAnnotation outer = bbox(100, 100, 400, 400);
    const BoxAnnotation inner = bbox(200, 200, 250, 250);
    QTest::newRow("inner box wins, listed last") << Boxes{outer, inner} << QPoint(180, 380) << 1;
    QTest::newRow("inner box wins, listed first") << Boxes{inner, outer} << QPoint(180, 380) << 0;
    QTest::newRow("between the boxes") << Boxes{inner, outer} << QPoint(100, 300) << 1;
    QTest::newRow("equal boxes: the earlier wins") << Boxes{inner, inner} << QPoint(180, 380) << 0;
    QTest::newRow("nothing there") << Boxes{inner} << QPoint(600, 600) << -1;
    const BoxAnnotation tri =
        shape(ShapeType::Polygon, {QPointF(100, 100), QPointF(300, 100), QPointF(100, 300)});
    QTest::newRow("polygon hit outside its outline") << Boxes{tri} << QPoint(220, 420) << 0;
    // Horizontal line at image y 100 = widget y 280, x 80..240.
    const BoxAnnotation flat = shape(ShapeType::Line, {QPointF(100, 100), QPointF(300, 100)});
    QTest::newRow("flat line: just below it") << Boxes{flat} << QPoint(160, 281) << -1;
    QTest::newRow("flat line: badge band above it") << Boxes{flat} << QPoint(160, 270) << 0;
    // A vertical line is 0 wide; its band is still 60 wide.
    const BoxAnnotation upright = shape(ShapeType::Line, {QPointF(100, 100), QPointF(100, 300)});
    QTest::newRow("upright line: wide badge band") << Boxes{upright} << QPoint(135, 275) << 0;
    // Keypoint at image (500, 250) = widget (400, 400).
    BoxAnnotation kp = shape(ShapeType::Keypoint, {QPointF(500, 250)});
    QTest::newRow("visible keypoint at 7 px") << Boxes{kp} << QPoint(407, 400) << 0;
    QTest::newRow("visible keypoint at 8 px") << Boxes{kp} << QPoint(408, 400) << -1;
    kp.visible = false;
    QTest::newRow("occluded keypoint at 5 px") << Boxes{kp} << QPoint(403, 404) << 0;
    QTest::newRow("occluded keypoint at 5.7 px") << Boxes{kp} << QPoint(404, 404) << -1;
    QTest::newRow("occluded keypoint at 6 px") << Boxes{kp} << QPoint(400, 394) << -1;
    QTest::newRow("keypoint inside a box wins")
        << Boxes{bbox(400, 200, 600, 300), kp} << QPoint(401, 401) << 1;
}

void TestCanvasView::hitTestBox()
{
    QFETCH(Boxes, boxes);
    QFETCH(QPoint, pos);
    QFETCH(int, index);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes(boxes);
    QCOMPARE(c->hitTestBox(pos), index);
    if (index >= 0) {
        c->setSelectedIndex(index);
        QVERIFY(c->hitSelectedBox(pos));
    }
}

void TestCanvasView::rotationHandleStaysAboveCentre_data()
{
    QTest::addColumn<double>("angle");
    QTest::addColumn<int>("zoomSteps");

    QTest::newRow("upright") << 0.0 << 0;
    QTest::newRow("turned, zoomed in") << 37.0 << 3;
    QTest::newRow("upside down, zoomed out") << 180.0 << -2;
}

void TestCanvasView::rotationHandleStaysAboveCentre()
{
    QFETCH(double, angle);
    QFETCH(int, zoomSteps);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    BoxAnnotation r = shape(ShapeType::RotatedBox,
                            ImageCanvas::rotatedBoxCorners(QPointF(480, 260), 120, 40, angle));
    r.angle = angle;
    c->setBoxes({r});
    for (int i = 0; i < std::abs(zoomSteps); ++i)
        zoomSteps > 0 ? c->zoomIn() : c->zoomOut();
    const QPointF handle = c->imageToWidget(QPointF(480, 260)) - QPointF(0, 30);
    QCOMPARE(c->hitTestRotHandle(handle + QPointF(11.95, 0), 0), 0);
    QCOMPARE(c->hitTestRotHandle(handle + QPointF(0, -12.05), 0), -1);
    QCOMPARE(c->hitTestRotHandle(handle + QPointF(-8.4, 8.4), 0), 0);
    QCOMPARE(c->hitTestRotHandle(handle + QPointF(0, 60), 0), -1);
    QCOMPARE(c->hitTestRotHandle(handle, 1), -1);
}

void TestCanvasView::setImageAndSetBoxes()
{
    QVERIFY(showAt(QSize(800, 800)));
    QSignalSpy coords(c.get(), &ImageCanvas::drawingCoords);
    QSignalSpy selection(c.get(), &ImageCanvas::selectionChanged);
    c->setImage(solid(QSize(1000, 500)));
    QCOMPARE(coords.count(), 1);
    QCOMPARE(coords.at(0), (QList<QVariant>{-1, -1, -1, -1}));

    const Boxes boxes{bbox(10, 10, 50, 50), bbox(600, 100, 700, 200)};
    c->setBoxes(boxes);
    QCOMPARE(coords.count(), 2);
    QCOMPARE(coords.at(1), (QList<QVariant>{-1, -1, -1, -1}));
    QCOMPARE(c->boxes(), boxes);

    // The view survives new shapes; the selection does not, and no signal tells of it.
    c->setSelectedIndex(1);
    c->zoomIn();
    const QPointF pan = c->pan();
    c->setBoxes(boxes);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(c->zoom(), 1.25);
    QCOMPARE(c->pan(), pan);
    c->selectAll();
    c->setBoxes(boxes);
    QVERIFY(!c->allSelected());

    // A new image resets the view and keeps the shapes until the next setBoxes.
    c->setSelectedIndex(0);
    c->setImage(solid(QSize(500, 1000)));
    QCOMPARE(c->zoom(), 1.0);
    QCOMPARE(c->pan(), QPointF(0, 0));
    QCOMPARE(c->scale(), 0.8);
    QCOMPARE(c->offset(), QPointF(200, 0));
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(c->boxes(), boxes);
    QCOMPARE(selection.count(), 0);
    QCOMPARE(coords.count(), 5);
}

void TestCanvasView::selectionOperations()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    QSignalSpy selection(c.get(), &ImageCanvas::selectionChanged);

    c->selectAll();
    QVERIFY(!c->allSelected()); // nothing to select
    QCOMPARE(c->selectedBox(), BoxAnnotation());

    const Boxes boxes{bbox(10, 10, 50, 50), shape(ShapeType::Keypoint, {QPointF(7, 8)})};
    c->setBoxes(boxes);
    c->setSelectedIndex(1);
    QCOMPARE(c->selectedIndex(), 1);
    QCOMPARE(c->selectedBox(), boxes.at(1));
    c->setSelectedIndex(2);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(c->selectedBox(), BoxAnnotation());

    c->selectAll();
    QVERIFY(c->allSelected());
    QCOMPARE(c->selectedIndex(), -1);
    // Same index as now: select-all mode stays on.
    c->setSelectedIndex(-1);
    QVERIFY(c->allSelected());
    c->setSelectedIndex(0);
    QVERIFY(!c->allSelected());
    QCOMPARE(c->selectedIndex(), 0);
    QCOMPARE(selection.count(), 0);

    c->deselect();
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(selection.count(), 1);
    QCOMPARE(selection.at(0).at(0).toInt(), -1);
}

void TestCanvasView::deleteSelected_data()
{
    QTest::addColumn<int>("selected"); // -2: select all
    QTest::addColumn<int>("remaining");
    QTest::addColumn<int>("aboutToChange");
    QTest::addColumn<int>("changed");

    QTest::newRow("one shape") << 1 << 2 << 1 << 1;
    QTest::newRow("select-all mode") << -2 << 0 << 0 << 1;
    QTest::newRow("nothing selected") << -1 << 3 << 0 << 0;
}

void TestCanvasView::deleteSelected()
{
    QFETCH(int, selected);
    QFETCH(int, remaining);
    QFETCH(int, aboutToChange);
    QFETCH(int, changed);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    const Boxes boxes{bbox(10, 10, 50, 50, "a"), bbox(20, 20, 60, 60, "b"),
                                     bbox(30, 30, 70, 70, "c")};
    c->setBoxes(boxes);
    if (selected == -2)
        c->selectAll();
    else
        c->setSelectedIndex(selected);

    QSignalSpy before(c.get(), &ImageCanvas::aboutToChange);
    QSignalSpy after(c.get(), &ImageCanvas::boxesChanged);
    QSignalSpy selection(c.get(), &ImageCanvas::selectionChanged);
    // The delete key is the user's way in.
    QTest::keyClick(c.get(), Qt::Key_Delete);

    QCOMPARE(c->boxes().size(), remaining);
    QCOMPARE(before.count(), aboutToChange);
    QCOMPARE(after.count(), changed);
    QCOMPARE(selection.count(), changed);
    QCOMPARE(c->selectedIndex(), -1);
    QVERIFY(!c->allSelected());
    if (selected == 1) {
        QCOMPARE(c->boxes().at(0).label, QStringLiteral("a"));
        QCOMPARE(c->boxes().at(1).label, QStringLiteral("c"));
    }
}

void TestCanvasView::escapeKey()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500)));
    c->setBoxes({bbox(10, 10, 50, 50)});
    QSignalSpy selection(c.get(), &ImageCanvas::selectionChanged);

    QKeyEvent idle(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &idle);
    QVERIFY(idle.isAccepted());
    QCOMPARE(selection.count(), 0);

    c->setSelectedIndex(0);
    QTest::keyClick(c.get(), Qt::Key_Escape);
    QCOMPARE(c->selectedIndex(), -1);
    QCOMPARE(selection.count(), 1);

    c->selectAll();
    QTest::keyClick(c.get(), Qt::Key_Escape);
    QVERIFY(!c->allSelected());
    QCOMPARE(selection.count(), 2);

    // Keys the canvas does not use are left to the window.
    QKeyEvent right(QEvent::KeyPress, Qt::Key_Right, Qt::NoModifier);
    QApplication::sendEvent(c.get(), &right);
    QVERIFY(!right.isAccepted());
}

void TestCanvasView::clampPoint_data()
{
    QTest::addColumn<QPointF>("in");
    QTest::addColumn<QPointF>("out");

    QTest::newRow("inside") << QPointF(12.5, 7.25) << QPointF(12.5, 7.25);
    QTest::newRow("left and below") << QPointF(-5, 60) << QPointF(0, 49);
    QTest::newRow("past the last pixel") << QPointF(99.5, 49.01) << QPointF(99, 49);
    QTest::newRow("above and right") << QPointF(1000, -0.1) << QPointF(99, 0);
}

void TestCanvasView::clampPoint()
{
    QFETCH(QPointF, in);
    QFETCH(QPointF, out);
    c->setImage(solid(QSize(100, 50)));
    QCOMPARE(c->clampPtToImage(in), out);
}

void TestCanvasView::clampRect_data()
{
    QTest::addColumn<QRect>("in");
    QTest::addColumn<QRect>("out");

    const QRect inside(QPoint(3, 4), QPoint(20, 30));
    QTest::newRow("inside") << inside << inside;
    // Normalised the way Qt does it: (120, 30)-(-5, -10) is 124 x 39 pixels, (-4, -9)-(119, 29).
    QTest::newRow("reversed and overhanging")
        << QRect(QPoint(120, 30), QPoint(-5, -10)) << QRect(QPoint(0, 0), QPoint(99, 29));
    QTest::newRow("past bottom-right")
        << QRect(QPoint(90, 40), QPoint(150, 80)) << QRect(QPoint(90, 40), QPoint(99, 49));
    QTest::newRow("wholly right of and below the image")
        << QRect(QPoint(120, 60), QPoint(150, 80)) << QRect(QPoint(120, 60), QPoint(99, 49));
}

void TestCanvasView::clampRect()
{
    QFETCH(QRect, in);
    QFETCH(QRect, out);
    c->setImage(solid(QSize(100, 50)));
    QCOMPARE(c->clampToImage(in), out);
}

void TestCanvasView::paintedImageMatchesTransform_data()
{
    QTest::addColumn<int>("zoomSteps");
    QTest::addColumn<QPoint>("drag"); // right-drag pan
    QTest::addColumn<bool>("background");

    QTest::newRow("fitted") << 0 << QPoint() << true;
    QTest::newRow("zoomed in") << 6 << QPoint() << false;
    QTest::newRow("zoomed in, panned partly out of view") << 3 << QPoint(-250, 170) << true;
    QTest::newRow("far in") << 20 << QPoint(13, -7) << false;
}

void TestCanvasView::paintedImageMatchesTransform()
{
    QFETCH(int, zoomSteps);
    QFETCH(QPoint, drag);
    QFETCH(bool, background);

    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(coded(QSize(100, 80)));
    c->setBoxes({bbox(30, 20, 34, 23)});
    for (int i = 0; i < zoomSteps; ++i)
        c->zoomIn();
    if (!drag.isNull()) {
        QTest::mousePress(c.get(), Qt::RightButton, {}, QPoint(400, 400));
        QTest::mouseMove(c.get(), QPoint(400, 400) + drag);
        QTest::mouseRelease(c.get(), Qt::RightButton, {}, QPoint(400, 400) + drag);
    }

    const QImage shot = c->grab().toImage();
    int imageSamples = 0;
    int backgroundSamples = 0;
    for (int y = 3; y < 800; y += 37) {
        for (int x = 5; x < 800; x += 37) {
            const QPointF p = c->widgetToImage(QPointF(x + 0.5, y + 0.5));
            const double fx = p.x() - std::floor(p.x());
            const double fy = p.y() - std::floor(p.y());
            const QColor got = shot.pixelColor(x, y);
            if (y > 800 - 25 && x > 300)
                continue; // under the hint line
            if (p.x() >= 0.2 && p.y() >= 0.2 && p.x() < 99.8 && p.y() < 79.8) {
                if (fx < 0.1 || fx > 0.9 || fy < 0.1 || fy > 0.9)
                    continue; // too close to a pixel edge to tell
                QCOMPARE(got, codeOf(int(p.x()), int(p.y())));
                ++imageSamples;
            } else if (p.x() < -0.5 || p.y() < -0.5 || p.x() > 100.5 || p.y() > 80.5) {
                if (y < 45 && x < 120)
                    continue; // under the image counter, if any
                QCOMPARE(got, Background);
                ++backgroundSamples;
            }
        }
    }
    QVERIFY(imageSamples > 20);
    QCOMPARE(backgroundSamples > 5, background);
}

void TestCanvasView::paintsImageCounter()
{
    QVERIFY(showAt(QSize(800, 800)));
    c->setImage(solid(QSize(1000, 500), Qt::white));
    QImage shot = c->grab().toImage();
    QCOMPARE(shot.pixelColor(10, 10), Background);

    c->setImageInfo(3, 120);
    shot = c->grab().toImage();
    QFont f;
    f.setPointSize(13);
    f.setBold(true);
    const int width = QFontMetrics(f).horizontalAdvance(QStringLiteral("3 / 120")) + 14;
    // Black at alpha 160 over the background.
    const QColor box = shot.pixelColor(9, 9);
    QVERIFY(box.red() < 25 && box.green() < 25 && box.blue() < 25);
    QCOMPARE(shot.pixelColor(8, 33), box);
    QCOMPARE(shot.pixelColor(7 + width, 8), box);
    QCOMPARE(shot.pixelColor(7, 20), Background);
    QCOMPARE(shot.pixelColor(8, 34), Background);
    QCOMPARE(shot.pixelColor(8 + width, 20), Background);
    bool text = false;
    for (int x = 8; x < 8 + width && !text; ++x)
        for (int y = 8; y < 34 && !text; ++y)
            text = shot.pixelColor(x, y).red() > 150;
    QVERIFY(text);

    // The counter is drawn over the image too, and only with both numbers.
    c->setImageInfo(0, 120);
    shot = c->grab().toImage();
    QCOMPARE(shot.pixelColor(9, 9), Background);
}

QTEST_MAIN(TestCanvasView)
#include "tst_canvasview.moc"
