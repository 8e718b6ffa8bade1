#include <QtTest>

#include <cmath>
#include <limits>

#include "model/annotation.h"
#include "model/labelpalette.h"

class TestAnnotation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultShape();
    void integerRectangle_data();
    void integerRectangle();
    void rectNeedsTwoPoints_data();
    void rectNeedsTwoPoints();
    void setRectRoundTrip();
    void boundingRectangle_data();
    void boundingRectangle();
    void rotatedCorners_data();
    void rotatedCorners();
    void rotatedCornersKeepShape();
    void centroid();
    void typeWords();
    void equality_data();
    void equality();
    void copiesAreIndependent();
    void palette();
    void paletteAppend();
};

void TestAnnotation::defaultShape()
{
    const BoxAnnotation b;
    QCOMPARE(b.type, ShapeType::BoundingBox);
    QVERIFY(b.points.isEmpty());
    QVERIFY(b.visible);
    QCOMPARE(b.angle, 0.0);
    QVERIFY(b.label.isEmpty());
}

void TestAnnotation::integerRectangle_data()
{
    QTest::addColumn<QPointF>("a");
    QTest::addColumn<QPointF>("b");
    QTest::addColumn<QRect>("expected"); // built from corners: (left, top), (right, bottom)

    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const int limit = 1073741823;

    QTest::newRow("fractional corners")
        << QPointF(10.7, 20.2) << QPointF(110.9, 220.0) << QRect(QPoint(10, 20), QPoint(110, 220));
    QTest::newRow("reversed corners")
        << QPointF(110.9, 220.0) << QPointF(10.7, 20.2) << QRect(QPoint(10, 20), QPoint(110, 220));
    QTest::newRow("crossed corners")
        << QPointF(110.9, 20.2) << QPointF(10.7, 220.0) << QRect(QPoint(10, 20), QPoint(110, 220));
    QTest::newRow("negative truncates toward zero")
        << QPointF(-1.7, -0.5) << QPointF(-10.2, 3.9) << QRect(QPoint(-10, 0), QPoint(-1, 3));
    QTest::newRow("single pixel")
        << QPointF(5.2, 5.9) << QPointF(5.8, 5.1) << QRect(QPoint(5, 5), QPoint(5, 5));
    QTest::newRow("nan counts as zero")
        << QPointF(nan, 4) << QPointF(8, nan) << QRect(QPoint(0, 0), QPoint(8, 4));
    QTest::newRow("infinities clamp")
        << QPointF(-inf, 1) << QPointF(inf, 2) << QRect(QPoint(-limit, 1), QPoint(limit, 2));
    QTest::newRow("huge values clamp")
        << QPointF(1e300, -1e300) << QPointF(3e9, 0) << QRect(QPoint(limit, -limit), QPoint(limit, 0));
}

void TestAnnotation::integerRectangle()
{
    QFETCH(QPointF, a);
    QFETCH(QPointF, b);
    QFETCH(QRect, expected);
    const QRect r = integerRect(a, b);
    QCOMPARE(r.left(), expected.left());
    QCOMPARE(r.top(), expected.top());
    QCOMPARE(r.right(), expected.right());
    QCOMPARE(r.bottom(), expected.bottom());
    // Width and height are computed in int; they must not have overflowed.
    QVERIFY(r.width() >= 1);
    QVERIFY(r.height() >= 1);

    BoxAnnotation box;
    box.points = {a, b};
    QCOMPARE(box.rect(), r);
}

void TestAnnotation::rectNeedsTwoPoints_data()
{
    QTest::addColumn<QList<QPointF>>("points");
    QTest::addColumn<QRect>("expected");
    QTest::newRow("none") << QList<QPointF>{} << QRect(QPoint(0, 0), QPoint(-1, -1));
    QTest::newRow("one") << QList<QPointF>{{5, 6}} << QRect(QPoint(0, 0), QPoint(-1, -1));
    QTest::newRow("three uses the first two")
        << QList<QPointF>{{1, 2}, {3, 4}, {100, 100}} << QRect(QPoint(1, 2), QPoint(3, 4));
}

void TestAnnotation::rectNeedsTwoPoints()
{
    QFETCH(QList<QPointF>, points);
    QFETCH(QRect, expected);
    BoxAnnotation box;
    box.points = points;
    QCOMPARE(box.rect(), expected);
    QCOMPARE(box.rect().isNull(), points.size() < 2);
}

void TestAnnotation::setRectRoundTrip()
{
    BoxAnnotation box;
    box.points = {{110.9, 220.0}, {10.7, 20.2}};
    const QRect r = box.rect();
    QCOMPARE(r.width(), 101);
    QCOMPARE(r.height(), 201);
    box.setRect(r);
    QCOMPARE(box.points, (QList<QPointF>{{10, 20}, {110, 220}}));
    QCOMPARE(box.rect(), r);
}

void TestAnnotation::boundingRectangle_data()
{
    QTest::addColumn<QList<QPointF>>("points");
    QTest::addColumn<QRect>("expected");
    QTest::newRow("empty") << QList<QPointF>{} << QRect();
    QTest::newRow("one point has no extent")
        << QList<QPointF>{{3.7, 4.2}} << QRect(3, 4, 0, 0);
    // The extent is truncated on its own: 12.1 - 0.9 = 11.2 gives width 11, although the
    // truncated corners 0 and 12 are 12 apart.
    QTest::newRow("extent truncated separately")
        << QList<QPointF>{{0.9, 1.9}, {12.1, 2.0}, {6, 11.8}} << QRect(0, 1, 11, 9);
    QTest::newRow("negative")
        << QList<QPointF>{{-5.5, -2.5}, {-1.0, 3.0}} << QRect(-5, -2, 4, 5);
    QTest::newRow("nan point counts as origin")
        << QList<QPointF>{{std::nan(""), 5}, {10, 10}} << QRect(0, 5, 10, 5);
    QTest::newRow("infinite extent is clamped")
        << QList<QPointF>{{-std::numeric_limits<double>::infinity(), 0},
                          {std::numeric_limits<double>::infinity(), 0}}
        << QRect(-1073741823, 0, 2147483646, 0);
}

void TestAnnotation::boundingRectangle()
{
    QFETCH(QList<QPointF>, points);
    QFETCH(QRect, expected);
    QCOMPARE(pointsBoundingRect(points), expected);
    BoxAnnotation shape;
    shape.type = ShapeType::Polygon;
    shape.points = points;
    QCOMPARE(shape.boundingRect(), expected);
}

void TestAnnotation::rotatedCorners_data()
{
    QTest::addColumn<QPointF>("centre");
    QTest::addColumn<double>("w");
    QTest::addColumn<double>("h");
    QTest::addColumn<double>("angle");
    QTest::addColumn<QList<QPointF>>("expected");
    QTest::newRow("angle 0")
        << QPointF(10, 20) << 4.0 << 2.0 << 0.0
        << QList<QPointF>{{8, 19}, {12, 19}, {12, 21}, {8, 21}};
    QTest::newRow("angle 90 turns clockwise")
        << QPointF(0, 0) << 4.0 << 2.0 << 90.0
        << QList<QPointF>{{1, -2}, {1, 2}, {-1, 2}, {-1, -2}};
    QTest::newRow("angle -90")
        << QPointF(0, 0) << 4.0 << 2.0 << -90.0
        << QList<QPointF>{{-1, 2}, {-1, -2}, {1, -2}, {1, 2}};
    QTest::newRow("angle 180")
        << QPointF(5, 5) << 4.0 << 2.0 << 180.0
        << QList<QPointF>{{7, 6}, {3, 6}, {3, 4}, {7, 4}};
    const double r = std::sqrt(2.0);
    QTest::newRow("angle 45 square")
        << QPointF(0, 0) << 2.0 << 2.0 << 45.0
        << QList<QPointF>{{0, -r}, {r, 0}, {0, r}, {-r, 0}};
}

void TestAnnotation::rotatedCorners()
{
    QFETCH(QPointF, centre);
    QFETCH(double, w);
    QFETCH(double, h);
    QFETCH(double, angle);
    QFETCH(QList<QPointF>, expected);
    const QList<QPointF> corners = rotatedBoxCorners(centre, w, h, angle);
    QCOMPARE(corners.size(), 4);
    for (int i = 0; i < 4; ++i) {
        const QPointF d = corners[i] - expected[i];
        QVERIFY2(std::abs(d.x()) < 1e-9 && std::abs(d.y()) < 1e-9,
                 qPrintable(QStringLiteral("corner %1: (%2, %3)")
                                .arg(i).arg(corners[i].x()).arg(corners[i].y())));
    }
}

void TestAnnotation::rotatedCornersKeepShape()
{
    // At any angle: side lengths w and h, and the centre is the mean of the corners.
    const QPointF centre(31.5, -7.25);
    const QList<QPointF> c = rotatedBoxCorners(centre, 12.0, 5.0, 33.0);
    auto dist = [](QPointF a, QPointF b) { return std::hypot(a.x() - b.x(), a.y() - b.y()); };
    QVERIFY(std::abs(dist(c[0], c[1]) - 12.0) < 1e-9);
    QVERIFY(std::abs(dist(c[1], c[2]) - 5.0) < 1e-9);
    QVERIFY(std::abs(dist(c[2], c[3]) - 12.0) < 1e-9);
    BoxAnnotation box;
    box.points = c;
    const QPointF mean = box.centroid();
    QVERIFY(std::abs(mean.x() - centre.x()) < 1e-9 && std::abs(mean.y() - centre.y()) < 1e-9);
    // Clockwise on screen (y down): the top edge of a box turned by +33 degrees slopes down.
    QVERIFY(c[1].y() > c[0].y());
}

void TestAnnotation::centroid()
{
    BoxAnnotation e;
    e.type = ShapeType::Ellipse;
    e.points = {{10, 20}, {4, 2}};
    QCOMPARE(e.centroid(), QPointF(7, 11));
    QCOMPARE(BoxAnnotation().centroid(), QPointF());
}

void TestAnnotation::typeWords()
{
    const QList<QPair<ShapeType, QString>> words = {
        {ShapeType::BoundingBox, "bndbox"}, {ShapeType::Polygon, "polygon"},
        {ShapeType::Line, "line"},          {ShapeType::Keypoint, "keypoint"},
        {ShapeType::RotatedBox, "rotatedbox"}, {ShapeType::Cuboid, "cuboid"},
        {ShapeType::Ellipse, "ellipse"},
    };
    for (const auto& [type, word] : words) {
        QCOMPARE(QString::fromLatin1(shapeTypeWord(type)), word);
        QCOMPARE(shapeTypeFromWord(word), type);
    }
    QCOMPARE(shapeTypeFromWord(u"Polygon"), ShapeType::BoundingBox);
    QCOMPARE(shapeTypeFromWord(u"circle"), ShapeType::BoundingBox);
    QCOMPARE(shapeTypeFromWord(u""), ShapeType::BoundingBox);
}

void TestAnnotation::equality_data()
{
    QTest::addColumn<BoxAnnotation>("other");
    QTest::addColumn<bool>("equal");
    BoxAnnotation base;
    base.label = "cat";
    base.type = ShapeType::RotatedBox;
    base.points = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
    base.angle = 12.5;

    QTest::newRow("same") << base << true;
    BoxAnnotation b = base;
    b.label = "Cat";
    QTest::newRow("label") << b << false;
    b = base;
    b.type = ShapeType::Cuboid;
    QTest::newRow("type") << b << false;
    b = base;
    b.points[2] = {5, 6.5};
    QTest::newRow("point") << b << false;
    b = base;
    b.points.removeLast();
    QTest::newRow("point count") << b << false;
    b = base;
    b.visible = false;
    QTest::newRow("visible") << b << false;
    b = base;
    b.angle = 12.0;
    QTest::newRow("angle") << b << false;
}

void TestAnnotation::equality()
{
    QFETCH(BoxAnnotation, other);
    QFETCH(bool, equal);
    BoxAnnotation base;
    base.label = "cat";
    base.type = ShapeType::RotatedBox;
    base.points = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
    base.angle = 12.5;
    QCOMPARE(base == other, equal);
    QCOMPARE(base != other, !equal);
}

void TestAnnotation::copiesAreIndependent()
{
    ImageAnnotations first;
    first.imagePath = "/data/a.jpg";
    BoxAnnotation box;
    box.label = "dog";
    box.points = {{1, 1}, {5, 5}};
    first.boxes = {box};

    ImageAnnotations copy = first;
    copy.boxes[0].points[0] = {2, 2};
    copy.boxes[0].label = "cat";
    copy.boxes.append(box);
    copy.dirty = true;

    QCOMPARE(first.boxes.size(), 1);
    QCOMPARE(first.boxes[0].label, QStringLiteral("dog"));
    QCOMPARE(first.boxes[0].points[0], QPointF(1, 1));
    QVERIFY(!first.dirty);
}

void TestAnnotation::palette()
{
    const QList<QColor> expected = {
        QColor(0, 220, 220),  QColor(255, 100, 100), QColor(100, 220, 100), QColor(255, 200, 0),
        QColor(180, 100, 255), QColor(255, 160, 40), QColor(80, 200, 255), QColor(255, 80, 200),
    };
    QCOMPARE(LabelPalette::colors(), expected);
    for (int n = 0; n < 20; ++n)
        QCOMPARE(LabelPalette::colorForIndex(n), expected[n % 8]);
    QCOMPARE(LabelPalette::defaultLabelName(), QStringLiteral("object"));
    QCOMPARE(LabelPalette::defaultColor(), QColor(0, 220, 220));
    QCOMPARE(LabelPalette::defaultLabel().name, QStringLiteral("object"));
    QCOMPARE(LabelPalette::defaultLabel().color, QColor(0, 220, 220));
}

void TestAnnotation::paletteAppend()
{
    QList<LabelDef> labels = {LabelPalette::defaultLabel()};
    QVERIFY(LabelPalette::appendIfMissing(labels, "car"));
    QVERIFY(!LabelPalette::appendIfMissing(labels, "car"));
    QVERIFY(!LabelPalette::appendIfMissing(labels, "object"));
    QVERIFY(LabelPalette::appendIfMissing(labels, "Car")); // names are case-sensitive
    QCOMPARE(labels.size(), 3);
    QCOMPARE(labels[1].color, QColor(255, 100, 100));
    QCOMPARE(labels[2].color, QColor(100, 220, 100));

    // The colour follows the list length, so after removals a colour can repeat.
    labels.removeAt(1);
    QVERIFY(LabelPalette::appendIfMissing(labels, "bus"));
    QCOMPARE(labels.last().color, QColor(100, 220, 100));

    for (int i = 0; i < 6; ++i)
        LabelPalette::appendIfMissing(labels, QStringLiteral("l%1").arg(i));
    QCOMPARE(labels.size(), 9);
    QCOMPARE(labels.last().color, QColor(0, 220, 220)); // ninth label wraps around
}

QTEST_APPLESS_MAIN(TestAnnotation)
#include "tst_annotation.moc"
