#include <QLineF>
#include <QPainter>
#include <QtMath>

#include "support/canvasfixture.h"

// What the canvas paints, read back from its pixels. A 1000 x 750 image in an 800 x 600
// canvas: scale 0.8 fitted, about 1.6 after five wheel steps in over the centre. Shapes sit
// around the image centre so both views show them.
namespace {

const QColor ImageColour(60, 60, 60), Car(255, 100, 100), Person(100, 220, 100), Dog(255, 200, 0),
    Unlisted(0, 220, 220), Green(0, 255, 0);

bool same(const QColor& a, const QColor& b, int tolerance)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

int countColour(const QImage& img, const QRect& area, const QColor& colour, int tolerance = 3)
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            n += img.valid(x, y) && same(img.pixelColor(x, y), colour, tolerance);
    return n;
}

// Whether `colour` lies within `radius` pixels of `pos`: lines drawn without antialiasing
// land on the nearest whole pixel, either side of a half.
bool near(const QImage& img, const QPointF& pos, const QColor& colour, int radius = 2, int tolerance = 3)
{
    const QPoint c(int(std::floor(pos.x())), int(std::floor(pos.y())));
    return countColour(img, QRect(c - QPoint(radius, radius), c + QPoint(radius, radius)), colour, tolerance) > 0;
}

// Pixels of `colour` in a band of width 2 along the segment's middle 80 per cent, per pixel
// of its length: about 1 for a solid line, 1/3 dotted, 2/3 dashed, 0 where nothing is drawn.
double coverage(const QImage& img, const QLineF& line, const QColor& colour)
{
    const QLineF mid(line.pointAt(0.1), line.pointAt(0.9));
    const QPointF d = mid.p2() - mid.p1();
    const QRect area = QRectF(mid.p1(), mid.p2()).normalized().toAlignedRect().adjusted(-2, -2, 2, 2);
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QPointF r = QPointF(x + 0.5, y + 0.5) - mid.p1();
            const double along = QPointF::dotProduct(r, d) / mid.length();
            const double across = std::abs(r.x() * d.y() - r.y() * d.x()) / mid.length();
            count += along >= 0 && along <= mid.length() && across <= 1.0 && img.valid(x, y)
                && same(img.pixelColor(x, y), colour, 3);
        }
    return count / std::max(std::abs(d.x()), std::abs(d.y()));
}

bool broken(double coverage) { return coverage > 0.15 && coverage < 0.85; }

QColor blend(const QColor& over, int alpha, const QColor& under)
{
    auto mix = [&](int a, int b) { return int(std::lround(b + (a - b) * alpha / 255.0)); };
    return QColor(mix(over.red(), under.red()), mix(over.green(), under.green()), mix(over.blue(), under.blue()));
}

QFontMetrics metrics(int points, bool bold = false)
{
    QFont f;
    f.setPointSize(points);
    f.setBold(bold);
    return QFontMetrics(f);
}

// A point of a turned ellipse, t in degrees along its own axes.
QPointF onEllipse(const QPointF& c, double rx, double ry, double angle, double t)
{
    const double a = qDegreesToRadians(angle), u = rx * std::cos(qDegreesToRadians(t)), v = ry * std::sin(qDegreesToRadians(t));
    return c + QPointF(u * std::cos(a) - v * std::sin(a), u * std::sin(a) + v * std::cos(a));
}

BoxAnnotation cuboid(const QString& label)
{
    return shape(label, ShapeType::Cuboid, {{400, 320}, {560, 320}, {560, 460}, {400, 460}, {450, 280}, {610, 280}, {610, 420}, {450, 420}});
}

// Square blocks, each in its own colour; `seed` changes every colour.
QColor blockColour(int bx, int by, int seed)
{
    return QColor((bx * 23 + seed * 71) % 256, (by * 37 + seed * 13) % 256, (bx * by * 11 + 90) % 256);
}

QPixmap blocks(const QSize& size, int block, int seed)
{
    QPixmap p(size);
    QPainter painter(&p);
    for (int y = 0; y < size.height(); y += block)
        for (int x = 0; x < size.width(); x += block)
            painter.fillRect(x, y, block, block, blockColour(x / block, y / block, seed));
    return p;
}

} // namespace

class TestCanvasPaint : public QObject {
    Q_OBJECT
    std::unique_ptr<CanvasDriver> d;
    ImageCanvas* c = nullptr;
    QPointF w(const QPointF& image) const { return c->imageToWidget(image); }
    // Wheel steps over the widget's centre keep the image centre (500, 375) there.
    void wheelIn(int steps)
    {
        for (int i = 0; i < steps; ++i)
            d->wheel(QPointF(400, 300), QPoint(0, 120));
    }

private Q_SLOTS:
    void init()
    {
        d = std::make_unique<CanvasDriver>();
        c = d->c.get();
        QVERIFY(d->show(QSize(800, 600)));
        c->setImage(solid(QSize(1000, 750), ImageColour));
        c->setLabelColors({{"car", Car}, {"person", Person}, {"dog", Dog}});
    }
    void cleanup() { d.reset(); }

    void kindsInLabelColour_data()
    {
        // outline: image points the outline passes through
        // inside: image point inside the shape ...
        // insideColour: ... and its colour (invalid: not checked)
        // dashed: a dashed or dotted line (null: none) ...
        // dashColour: ... in this colour
        columns<BoxAnnotation, QColor, Points, QPointF, QColor, QLineF, QColor, int>("shape", "colour", "outline", "inside", "insideColour", "dashed", "dashColour", "zoom");
        const QPointF c(500, 375);
        const BoxAnnotation poly = shape("person", ShapeType::Polygon, {{400, 300}, {620, 320}, {600, 460}, {420, 430}});
        const Points k = rotated(c, 240, 120, 30).points;
        const Points rim{onEllipse(c, 150, 80, 30, 0), onEllipse(c, 150, 80, 30, 45), onEllipse(c, 150, 80, 30, 90), onEllipse(c, 150, 80, 30, 180)};
        const QColor fill = blend(Person, 40, ImageColour);
        for (int zoom : {0, 5}) {
            const char* view = zoom ? "zoomed" : "fitted";
            QTest::addRow("box, %s", view) << box("car", 400, 300, 600, 450) << Car << Points{{400, 375}, {601, 375}, {500, 451}, {550, 300}} << c << ImageColour << QLineF() << QColor() << zoom;
            QTest::addRow("box, unlisted label, %s", view) << box("tree", 400, 300, 600, 450) << Unlisted << Points{{400, 375}, {601, 375}, {500, 451}} << c << ImageColour << QLineF() << QColor() << zoom;
            QTest::addRow("polygon, %s", view) << poly << Person << Points{{510, 310}, {610, 390}, {510, 445}, {410, 365}} << QPointF(560, 420) << fill << QLineF() << QColor() << zoom;
            QTest::addRow("line, %s", view) << shape("dog", ShapeType::Line, {{400, 300}, {600, 420}}) << Dog << Points{{450, 330}, {550, 390}} << QPointF() << QColor() << QLineF() << QColor() << zoom;
            QTest::addRow("keypoint, %s", view) << shape("car", ShapeType::Keypoint, {c}) << Car << Points{c} << QPointF() << QColor() << QLineF() << QColor() << zoom;
            QTest::addRow("rotated box, %s", view) << rotated(c, 240, 120, 30, "person") << Person
                << Points{(k[0] + k[1]) / 2, (k[1] + k[2]) / 2, (k[2] + k[3]) / 2, (k[3] + k[0]) / 2} << c << ImageColour << QLineF() << QColor() << zoom;
            QTest::addRow("cuboid, %s", view) << cuboid("dog") << Dog << Points{{480, 460}, {400, 390}, {560, 350}, {480, 320}} << QPointF(480, 440) << ImageColour
                                              << QLineF(610, 280, 610, 420) << Dog.darker(150) << zoom;
            QTest::addRow("cuboid, unlisted label, %s", view) << cuboid("tree") << Unlisted << Points{{480, 460}, {400, 390}} << QPointF() << QColor()
                                                              << QLineF(610, 280, 610, 420) << Unlisted.darker(150) << zoom;
            QTest::addRow("tilted ellipse, %s", view) << ellipse(c, 150, 80, 30, "car") << Car << rim << c + QPointF(30, 30) << ImageColour << QLineF(rim[3], rim[0]) << Car << zoom;
        }
        // Every corner out of sight: only the fill shows.
        QTest::newRow("polygon larger than the view, zoomed") << shape("person", ShapeType::Polygon, {{100, 100}, {900, 120}, {880, 700}, {120, 650}})
            << Person << Points{} << QPointF(450, 300) << fill << QLineF() << QColor() << 5;
    }
    void kindsInLabelColour()
    {
        auto [shape, colour, outline, inside, insideColour, dashed, dashColour, zoom] = row<BoxAnnotation, QColor, Points, QPointF, QColor, QLineF, QColor, int>("shape", "colour", "outline", "inside", "insideColour", "dashed", "dashColour", "zoom");
        c->setBoxes({shape});
        wheelIn(zoom);
        const QImage img = d->shot();
        for (const QPointF& p : outline)
            QVERIFY2(near(img, w(p), colour), qPrintable(QStringLiteral("no outline at (%1, %2)").arg(p.x()).arg(p.y())));
        if (insideColour.isValid())
            QVERIFY2(same(img.pixelColor(w(inside).toPoint()), insideColour, 2), qPrintable(img.pixelColor(w(inside).toPoint()).name()));
        if (!dashed.isNull())
            QVERIFY(broken(coverage(img, QLineF(w(dashed.p1()), w(dashed.p2())), dashColour)));
        if (shape.type != ShapeType::Line)
            return;
        // An arrow head: two 12-pixel strokes at 0.4 radians either side, nothing beyond the tip.
        const QPointF a = w(shape.points[0]), e = w(shape.points[1]);
        const double angle = std::atan2(e.y() - a.y(), e.x() - a.x());
        for (double side : {-0.4, 0.4})
            QVERIFY(near(img, e - 6.0 * QPointF(std::cos(angle + side), std::sin(angle + side)), colour, 1));
        QVERIFY(!near(img, e + 6.0 * QPointF(std::cos(angle), std::sin(angle)), colour, 1));
    }

    void shapesWithTooFewPointsAreNotDrawn_data()
    {
        columns<BoxAnnotation>("shape");
        QTest::newRow("box with one corner") << shape("car", ShapeType::BoundingBox, {{400, 300}});
        QTest::newRow("polygon with one point") << shape("car", ShapeType::Polygon, {{400, 300}});
        QTest::newRow("line with one point") << shape("car", ShapeType::Line, {{400, 300}});
        QTest::newRow("keypoint without a point") << shape("car", ShapeType::Keypoint, {});
        QTest::newRow("rotated box with three corners") << shape("car", ShapeType::RotatedBox, {{400, 300}, {500, 300}, {500, 400}});
        BoxAnnotation seven = cuboid("car");
        seven.points.removeLast();
        QTest::newRow("cuboid with seven points") << seven;
        QTest::newRow("ellipse without radii") << shape("car", ShapeType::Ellipse, {{500, 375}});
    }
    void shapesWithTooFewPointsAreNotDrawn()
    {
        auto [shape] = row<BoxAnnotation>("shape");
        const QImage empty = d->shot();
        c->setBoxes({shape});
        QCOMPARE(d->shot(), empty);
        c->selectAll();
        QCOMPARE(countColour(d->shot(), QRect(0, 0, 800, 600), Car), 0);
    }

    void keypoints_data()
    {
        columns<bool, bool, int>("visible", "selected", "zoom");
        for (int zoom : {0, 5})
            for (bool selected : {false, true})
                for (bool visible : {true, false})
                    QTest::addRow("%s%s, zoom %d", visible ? "visible" : "occluded", selected ? ", selected" : "", zoom) << visible << selected << zoom;
    }
    void keypoints()
    {
        auto [visible, selected, zoom] = row<bool, bool, int>("visible", "selected", "zoom");
        BoxAnnotation kp = shape("dog", ShapeType::Keypoint, {{500.3, 374.6}});
        kp.visible = visible;
        c->setBoxes({kp});
        wheelIn(zoom);
        c->setSelectedIndex(selected ? 0 : -1);
        const QImage img = d->shot();
        const QPoint k = w(kp.points[0]).toPoint();
        const int radius = visible ? 7 : 5;
        const QColor grey(150, 150, 150);
        auto at = [&](int dx, int dy) { return img.pixelColor(k + QPoint(dx, dy)); };
        if (visible) { // a disc of radius 7 in the label colour
            for (const QColor& px : {at(0, 0), at(3, 0), at(6, 0), at(0, -6)})
                QCOMPARE(px, Dog);
            QCOMPARE(countColour(img, QRect(k - QPoint(7, 7), QSize(15, 15)), grey), 0);
        } else { // smaller, grey, with a white cross over the diagonals
            for (const QColor& px : {at(0, 0), at(2, 2), at(-2, 2)})
                QCOMPARE(px, QColor(Qt::white));
            QCOMPARE(at(3, 0), grey);
            QCOMPARE(at(0, -3), grey);
            QCOMPARE(at(6, 0), ImageColour);
            QVERIFY(near(img, k + QPoint(5, 0), Dog, 1)); // the outline
        }
        // The label as plain text in the label colour, above and right of the disc; no badge.
        const QFontMetrics fm = metrics(8);
        const QRect caption(k.x() + radius + 2, k.y() - radius - fm.ascent(), fm.horizontalAdvance("dog"), fm.ascent());
        QVERIFY(countColour(img, caption, Dog, 40) > 5);
        QCOMPARE(countColour(img, caption, Dog.darker(110)), 0);
        // Selected: a dotted white ring 4 pixels outside the disc.
        int ring = 0;
        for (int y = -radius - 6; y <= radius + 6; ++y)
            for (int x = -radius - 6; x <= radius + 6; ++x) {
                const double r = std::hypot(x, y);
                ring += r > radius + 2.5 && r < radius + 5.5 && at(x, y) == Qt::white;
            }
        QVERIFY2(selected ? ring > 8 && ring < 6.28 * (radius + 4) * 0.8 : ring == 0, qPrintable(QString::number(ring)));
    }

    void handlesOfSelectedShape_data()
    {
        // handles: image positions, in handle order
        // pivot: the rotation handle is drawn above this image point ...
        // distance: ... by this many widget pixels (pivot null: none)
        columns<BoxAnnotation, QColor, Points, QPointF, double, int>("shape", "colour", "handles", "pivot", "distance", "zoom");
        const QPointF c(500, 375);
        const BoxAnnotation turned = rotated(c, 240, 120, 30, "car");
        const BoxAnnotation poly = shape("person", ShapeType::Polygon, {{400, 300}, {620, 320}, {600, 460}, {420, 430}});
        const BoxAnnotation line = shape("dog", ShapeType::Line, {{400, 300}, {600, 420}});
        for (int zoom : {0, 5}) {
            const char* view = zoom ? "zoomed" : "fitted";
            // On the box's pixel edges: the right and bottom ones lie past its last pixel.
            QTest::addRow("box, %s", view) << box("car", 400, 300, 599, 449) << Car
                << Points{{400, 300}, {500, 300}, {600, 300}, {400, 375}, {600, 375}, {400, 450}, {500, 450}, {600, 450}} << QPointF() << 0.0 << zoom;
            QTest::addRow("polygon, %s", view) << poly << Person << poly.points << QPointF() << 0.0 << zoom;
            QTest::addRow("line, %s", view) << line << Dog << line.points << QPointF() << 0.0 << zoom;
            QTest::addRow("cuboid, %s", view) << cuboid("tree") << Unlisted << cuboid("tree").points << QPointF() << 0.0 << zoom;
            QTest::addRow("rotated box, %s", view) << turned << Car << turned.points << c << 30.0 << zoom;
            // Right, left, bottom and top of the centre, not turned with the ellipse.
            QTest::addRow("tilted ellipse, %s", view) << ellipse(c, 150, 80, 30, "car") << Car
                << Points{{650, 375}, {350, 375}, {500, 455}, {500, 295}} << QPointF(500, 295) << 24.0 << zoom;
        }
    }
    void handlesOfSelectedShape()
    {
        auto [shape, colour, handles, pivot, distance, zoom] = row<BoxAnnotation, QColor, Points, QPointF, double, int>("shape", "colour", "handles", "pivot", "distance", "zoom");
        c->setBoxes({shape});
        wheelIn(zoom);
        const QImage plain = d->shot();
        c->setSelectedIndex(0);
        const QImage img = d->shot();
        // Each handle: a mark in the label colour with a black outline, where the mouse grabs it.
        for (int k = 0; k < handles.size(); ++k) {
            const QPointF at = w(handles[k]);
            QVERIFY2(near(img, at, Qt::black, 5, 20) && !near(plain, at, Qt::black, 5, 20), qPrintable(QString::number(k)));
            QCOMPARE(img.pixelColor(at.toPoint() + QPoint(2, 1)), colour);
            QCOMPARE(c->hitTestHandle(at, 0), k);
        }
        if (pivot.isNull()) {
            QCOMPARE(countColour(img, QRect(0, 0, 800, 600), Green, 0), 0);
            return;
        }
        // A green knob with a dark outline, joined to the shape by a dotted green line.
        const QPointF knob = w(pivot) - QPointF(0, distance);
        QCOMPARE(img.pixelColor(knob.toPoint()), Green);
        QVERIFY(near(img, knob + QPointF(0, -6), Qt::black, 1, 20));
        QVERIFY(!near(plain, knob, Green, 6, 0));
        QCOMPARE(c->hitTestRotHandle(knob, 0), 0);
        QVERIFY(broken(coverage(img, QLineF(w(pivot), knob + QPointF(0, 7)), Green)));
    }

    void badgesFollowSelection_data()
    {
        // selection: -1 none, 0 or 1 that shape, 2 all
        columns<int>("selection");
        for (int selection : {-1, 0, 1, 2})
            QTest::addRow("selection %d", selection) << selection;
    }
    void badgesFollowSelection()
    {
        auto [selection] = row<int>("selection");
        const bool first = selection == 0 || selection == 2, second = selection >= 1;
        // 100 pixels of background above a 1000 x 500 image: the badge of a box at the top edge goes there.
        c->setImage(solid(QSize(1000, 500), ImageColour));
        const BoxAnnotation poly = shape("person", ShapeType::Polygon, {{500, 100}, {800, 120}, {700, 400}});
        c->setBoxes({box("car", 100, 0, 300, 200), poly});
        const QImage plain = d->shot();
        selection == 2 ? c->selectAll() : c->setSelectedIndex(selection);
        const QImage img = d->shot();
        auto at = [&](const QPointF& p) { return img.pixelColor(p.toPoint()).name(); };

        // The box's badge: 17 high on the box's top-left corner, in the plain label colour
        // only while the box is selected, the label in bold then.
        const QPointF tl = w(QPointF(100, 0));
        const int boxWidth = metrics(9, first).horizontalAdvance("car") + 8;
        const QString boxFill = (first ? Car : Car.darker(110)).name();
        for (const QPointF& p : {QPointF(1, -6), QPointF(1, -16), QPointF(boxWidth - 2, -9)})
            QCOMPARE(at(tl + p), boxFill);
        QCOMPARE(at(tl + QPointF(1, -19)), CanvasBackground.name());
        QCOMPARE(at(tl + QPointF(boxWidth + 2, -9)), CanvasBackground.name());
        // The polygon's badge sits on the mean of its points, always in the darker fill.
        const QPointF mean = (w(poly.points[0]) + w(poly.points[1]) + w(poly.points[2])) / 3;
        const int polyWidth = metrics(9, second).horizontalAdvance("person") + 8;
        QCOMPARE(at(mean + QPointF(1 - polyWidth / 2.0, -7)), Person.darker(110).name());
        QCOMPARE(at(mean + QPointF(polyWidth / 2.0 - 2, 6)), Person.darker(110).name());
        // Bold text covers more white pixels than normal text.
        const QRect boxBadge = QRectF(tl.x(), tl.y() - 17, boxWidth, 17).toRect();
        const QRect polyBadge = QRectF(mean.x() - polyWidth / 2.0, mean.y() - 8, polyWidth, 16).toRect();
        QVERIFY(countColour(img, boxBadge, Qt::white, 60) > 5);
        QCOMPARE(countColour(img, boxBadge, Qt::white, 60) > countColour(plain, boxBadge, Qt::white, 60), first);
        QCOMPARE(countColour(img, polyBadge, Qt::white, 60) > countColour(plain, polyBadge, Qt::white, 60), second);
        // Handles on every selected shape and only there; a selected outline is 2 pixels wide.
        QCOMPARE(near(img, w(QPointF(300, 200)), Qt::black, 5, 20), first);
        QCOMPARE(near(img, w(QPointF(700, 400)), Qt::black, 5, 20), second);
        QCOMPARE(countColour(img, QRect(w(QPointF(100, 50)).toPoint() - QPoint(2, 0), QSize(5, 1)), Car, 0), first ? 2 : 1);
    }

    void pointsInProgress_data()
    {
        // clicks: image positions
        columns<ShapeType, Points, int>("kind", "clicks", "zoom");
        const Points triangle{{350, 250}, {650, 260}, {520, 480}};
        for (int zoom : {0, 5}) {
            QTest::addRow("polygon, two points, zoom %d", zoom) << ShapeType::Polygon << triangle.mid(0, 2) << zoom;
            QTest::addRow("polygon, three points, zoom %d", zoom) << ShapeType::Polygon << triangle << zoom;
            QTest::addRow("cuboid, three points, zoom %d", zoom) << ShapeType::Cuboid << triangle << zoom;
        }
    }
    void pointsInProgress()
    {
        auto [kind, clicks, zoom] = row<ShapeType, Points, int>("kind", "clicks", "zoom");
        wheelIn(zoom);
        c->setCurrentShape(kind);
        c->currentLabel = "dog";
        for (const QPointF& p : clicks)
            d->click(p);
        const QPointF mouse = w(QPointF(380, 450));
        d->moveTo(mouse, Qt::NoButton);
        const QImage img = d->shot();
        // Dashed segments in the new shapes' label colour, on to the mouse; a polygon of
        // three points or more is shown closed.
        Points chain;
        for (const QPointF& p : clicks)
            chain << w(p);
        chain << mouse;
        for (int i = 1; i < chain.size(); ++i)
            QVERIFY(broken(coverage(img, QLineF(chain[i - 1], chain[i]), Dog)));
        const double back = coverage(img, QLineF(chain[clicks.size() - 1], chain[0]), Dog);
        if (clicks.size() > 2)
            QVERIFY(kind == ShapeType::Polygon ? broken(back) : back == 0.0);
        // A ring, not a disc, on every point.
        for (const QPointF& p : clicks) {
            const int n = countColour(img, QRect(w(p).toPoint() - QPoint(5, 5), QSize(11, 11)), Dog);
            QVERIFY2(n > 6 && n < 40, qPrintable(QString::number(n)));
        }
    }

    void hintLine_data()
    {
        columns<QString, ShapeType, QString>("state", "kind", "text");
        const QString drag = "Click & drag to draw %1  |  Right-click drag to pan", click = "Click to draw %1  |  Right-click drag to pan";
        QTest::newRow("box") << "idle" << ShapeType::BoundingBox << drag.arg("Box");
        QTest::newRow("polygon") << "idle" << ShapeType::Polygon << click.arg("Polygon");
        QTest::newRow("line") << "idle" << ShapeType::Line << drag.arg("Line");
        QTest::newRow("keypoint") << "idle" << ShapeType::Keypoint << click.arg("Keypoint");
        QTest::newRow("rotated box") << "idle" << ShapeType::RotatedBox << drag.arg("RotatedBox");
        QTest::newRow("cuboid") << "idle" << ShapeType::Cuboid << click.arg("Cuboid");
        QTest::newRow("ellipse") << "idle" << ShapeType::Ellipse << drag.arg("Ellipse");
        QTest::newRow("polygon, 2 points") << "2 points" << ShapeType::Polygon << "Polygon: 2 pts  |  DblClick or Enter to close  |  Esc cancel";
        QTest::newRow("polygon, 5 points") << "5 points" << ShapeType::Polygon << "Polygon: 5 pts  |  DblClick or Enter to close  |  Esc cancel";
        QTest::newRow("cuboid, 2 points") << "2 points" << ShapeType::Cuboid << "Cuboid: 2/8 pts  |  Click to add  |  Esc cancel";
        QTest::newRow("cuboid, 7 points") << "7 points" << ShapeType::Cuboid << "Cuboid: 7/8 pts  |  Click to add  |  Esc cancel";
        QTest::newRow("shape selected") << "selected" << ShapeType::Ellipse << "Drag to move  |  Handles to resize  |  Click outside to deselect";
        QTest::newRow("all selected") << "all" << ShapeType::BoundingBox << "All selected  |  Ctrl+C copy  |  Del delete";
        QTest::newRow("space held") << "space" << ShapeType::BoundingBox << "Pan mode";
        QTest::newRow("space held while placing points") << "space, 2 points" << ShapeType::Polygon << "Pan mode";
    }
    void hintLine()
    {
        auto [state, kind, text] = row<QString, ShapeType, QString>("state", "kind", "text");
        c->setBoxes({box("car", 100, 100, 200, 200)});
        c->setCurrentShape(kind);
        if (state.endsWith("points"))
            for (int i = 0; i < state.section(' ', -2, -2).toInt(); ++i)
                QTest::mouseClick(c, Qt::LeftButton, {}, QPoint(300 + 40 * i, 250 + (i % 2) * 60));
        if (state == "selected")
            c->setSelectedIndex(0);
        if (state == "all")
            c->selectAll();
        c->setSpaceHeld(state.startsWith("space"));
        QCOMPARE(c->hintText(), text);
        // Black at alpha 140 from (W - a - 18, H - 22) to (W - 7, H - 5), a the text's
        // advance at 8 points; the text in light grey.
        const QImage img = d->shot();
        const int left = 800 - metrics(8).horizontalAdvance(text) - 18, right = 793, top = 578, bottom = 595;
        for (const QPoint& p : {QPoint(left, top), QPoint(right, top), QPoint(left, bottom), QPoint(right, bottom)})
            QVERIFY(same(img.pixelColor(p), blend(Qt::black, 140, ImageColour), 2));
        for (const QPoint& p : {QPoint(left - 1, top + 9), QPoint(right + 1, top + 9), QPoint(left + 5, top - 1), QPoint(left + 5, bottom + 1)})
            QCOMPARE(img.pixelColor(p), ImageColour);
        QVERIFY(countColour(img, QRect(QPoint(left, top), QPoint(right, bottom)), QColor(200, 200, 200), 30) > 20);
    }

    void imageMatchesTransform_data()
    {
        // block: pixels per coloured block
        // zoom: steps, negative: out
        // edge: background visible before the pan ...
        // pannedEdge: ... and after it
        columns<QSize, int, int, QPoint, bool, bool>("size", "block", "zoom", "pan", "edge", "pannedEdge");
        QTest::newRow("enlarged, fitted") << QSize(100, 80) << 1 << 0 << QPoint() << true << true;
        QTest::newRow("enlarged, zoomed in") << QSize(100, 80) << 1 << 6 << QPoint() << false << false;
        QTest::newRow("enlarged, panned partly out of view") << QSize(100, 80) << 1 << 3 << QPoint(-250, 400) << false << true;
        QTest::newRow("enlarged, far in") << QSize(100, 80) << 1 << 20 << QPoint(13, -7) << false << false;
        QTest::newRow("shrunk to half") << QSize(1600, 1200) << 100 << 0 << QPoint() << false << false;
        QTest::newRow("shrunk to a fifth") << QSize(4000, 3000) << 100 << 0 << QPoint() << false << false;
        QTest::newRow("shrunk, one step in") << QSize(1600, 1200) << 100 << 1 << QPoint() << false << false;
        QTest::newRow("shrunk, zoomed out") << QSize(1600, 1200) << 100 << -2 << QPoint() << true << true;
        QTest::newRow("a fifth, zoomed out") << QSize(4000, 3000) << 100 << -2 << QPoint() << true << true;
        // Still covering the whole widget after the pan: the visible area keeps its size.
        QTest::newRow("shrunk, two steps in, panned") << QSize(4000, 3000) << 100 << 2 << QPoint(-130, 57) << false << false;
        QTest::newRow("shrunk, zoomed out, panned") << QSize(4000, 3000) << 100 << -1 << QPoint(211, -33) << true << true;
    }
    void imageMatchesTransform()
    {
        auto [size, block, zoom, pan, edge, pannedEdge] = row<QSize, int, int, QPoint, bool, bool>("size", "block", "zoom", "pan", "edge", "pannedEdge");
        // Compares the painted image with the view transform, away from block borders
        // (filtering blends neighbours there) and from the hint line and the counter.
        auto matches = [&](int seed, bool background) {
            const QImage img = d->shot();
            int inside = 0, outside = 0;
            const double m = 3.0 / c->scale();
            for (int y = 40; y < 570; y += 7)
                for (int x = 3; x < 800; x += 7) {
                    const QPointF p = c->widgetToImage(QPointF(x + 0.5, y + 0.5));
                    const QColor got = img.pixelColor(x, y);
                    const double fx = std::fmod(p.x(), block), fy = std::fmod(p.y(), block);
                    if (p.x() < -m || p.y() < -m || p.x() > size.width() + m || p.y() > size.height() + m) {
                        if (got != CanvasBackground)
                            return false;
                        ++outside;
                    } else if (p.x() >= 0 && p.y() >= 0 && p.x() < size.width() && p.y() < size.height()
                               && std::min({fx, fy, block - fx, block - fy}) > std::max(m, 0.1)) {
                        if (!same(got, blockColour(int(p.x()) / block, int(p.y()) / block, seed), 1))
                            return false;
                        ++inside;
                    }
                }
            return inside > 20 && (outside > 20) == background;
        };
        for (int seed : {1, 2}) {
            // A second image of the same size must not show the first one's pixels.
            c->setImage(blocks(size, block, seed));
            d->zoomSteps(zoom);
            QVERIFY(matches(seed, edge));
            if (pan.isNull())
                continue;
            // The view moved: the image must follow, not stay where it was painted.
            d->drag(QPointF(400, 300), QPointF(400, 300) + pan, Qt::RightButton);
            QVERIFY(matches(seed, pannedEdge));
            c->zoomIn(); // centres the image again and fills the widget
            QVERIFY(matches(seed, false));
        }
    }

    void imageCounter()
    {
        c->setImage(solid(QSize(1000, 500), Qt::white));
        QCOMPARE(d->shot().pixelColor(9, 9), CanvasBackground);
        c->setImageInfo(3, 120);
        QImage img = d->shot();
        // Black at alpha 160 behind "3 / 120" in 13-point bold, text in white.
        const int width = metrics(13, true).horizontalAdvance("3 / 120") + 14;
        const QColor back = img.pixelColor(9, 9);
        QVERIFY(back.red() < 25 && back.green() < 25 && back.blue() < 25);
        QCOMPARE(img.pixelColor(8, 33), back);
        QCOMPARE(img.pixelColor(7 + width, 8), back);
        for (const QPoint& p : {QPoint(7, 20), QPoint(8, 34), QPoint(8 + width, 20)})
            QCOMPARE(img.pixelColor(p), CanvasBackground);
        QVERIFY(countColour(img, QRect(8, 8, width, 26), Qt::white, 100) > 0);
        // Only with both numbers.
        c->setImageInfo(0, 120);
        QCOMPARE(d->shot().pixelColor(9, 9), CanvasBackground);
    }
};

QTEST_MAIN(TestCanvasPaint)
#include "tst_canvaspaint.moc"
