#include <QtTest>

#include <cmath>
#include <limits>
#include <unistd.h>

#include "model/atomicbatch.h"
#include "model/labelscan.h"
#include "support/corefiles.h"

// Shape geometry, the label palette, the label scan of annotation files and the atomic
// writing of many files.

namespace {
const double kNan = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const int limit = 1073741823;
QRect corners(int l, int t, int r, int b) { return QRect(QPoint(l, t), QPoint(r, b)); }
} // namespace

class TestModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void integerRectangle_data()
    {
        columns<QList<QPointF>, QRect>("points", "expected");
        QTest::newRow("fractional") << QList<QPointF>{{10.7, 20.2}, {110.9, 220.0}} << corners(10, 20, 110, 220);
        QTest::newRow("reversed") << QList<QPointF>{{110.9, 220.0}, {10.7, 20.2}} << corners(10, 20, 110, 220);
        QTest::newRow("crossed") << QList<QPointF>{{110.9, 20.2}, {10.7, 220.0}} << corners(10, 20, 110, 220);
        QTest::newRow("negative truncates toward zero") << QList<QPointF>{{-1.7, -0.5}, {-10.2, 3.9}} << corners(-10, 0, -1, 3);
        QTest::newRow("single pixel") << QList<QPointF>{{5.2, 5.9}, {5.8, 5.1}} << corners(5, 5, 5, 5);
        QTest::newRow("nan counts as zero") << QList<QPointF>{{kNan, 4}, {8, kNan}} << corners(0, 0, 8, 4);
        QTest::newRow("infinities clamp") << QList<QPointF>{{-kInf, 1}, {kInf, 2}} << corners(-limit, 1, limit, 2);
        QTest::newRow("huge values clamp") << QList<QPointF>{{1e300, -1e300}, {3e9, 0}} << corners(limit, -limit, limit, 0);
        QTest::newRow("three points: the first two") << QList<QPointF>{{1, 2}, {3, 4}, {100, 100}} << corners(1, 2, 3, 4);
        QTest::newRow("one point") << QList<QPointF>{{5, 6}} << QRect();
        QTest::newRow("none") << QList<QPointF>{} << QRect();
    }

    void integerRectangle()
    {
        auto [points, expected] = row<QList<QPointF>, QRect>("points", "expected");
        BoxAnnotation box = shape("a", ShapeType::BoundingBox, points);
        const QRect r = box.rect();
        QCOMPARE(QList<int>({r.left(), r.top(), r.right(), r.bottom()}),
                 QList<int>({expected.left(), expected.top(), expected.right(), expected.bottom()}));
        if (points.size() < 2)
            return;
        QCOMPARE(integerRect(points[0], points[1]), r);
        QVERIFY(r.width() >= 1 && r.height() >= 1); // no overflow in int
        box.setRect(r);
        QCOMPARE(box.points, (QList<QPointF>{r.topLeft(), r.bottomRight()}));
    }

    void boundingRectangle_data()
    {
        columns<QList<QPointF>, QRect>("points", "expected");
        QTest::newRow("empty") << QList<QPointF>{} << QRect();
        QTest::newRow("one point has no extent") << QList<QPointF>{{3.7, 4.2}} << QRect(3, 4, 0, 0);
        // 12.1 - 0.9 = 11.2 gives width 11, although the truncated corners 0 and 12 are 12 apart.
        QTest::newRow("extent truncated separately") << QList<QPointF>{{0.9, 1.9}, {12.1, 2.0}, {6, 11.8}} << QRect(0, 1, 11, 9);
        QTest::newRow("negative") << QList<QPointF>{{-5.5, -2.5}, {-1.0, 3.0}} << QRect(-5, -2, 4, 5);
        QTest::newRow("nan point counts as origin") << QList<QPointF>{{kNan, 5}, {10, 10}} << QRect(0, 5, 10, 5);
        QTest::newRow("infinite extent is clamped") << QList<QPointF>{{-kInf, 0}, {kInf, 0}} << QRect(-limit, 0, 2 * limit, 0);
    }

    void boundingRectangle()
    {
        auto [points, expected] = row<QList<QPointF>, QRect>("points", "expected");
        QCOMPARE(pointsBoundingRect(points), expected);
        QCOMPARE(shape("a", ShapeType::Polygon, points).boundingRect(), expected);
    }

    void rotatedCorners_data()
    {
        columns<QPointF, QSizeF, double, QList<QPointF>>("centre", "size", "angle", "expected");
        const double r = std::sqrt(2.0);
        QTest::newRow("0") << QPointF(10, 20) << QSizeF(4, 2) << 0.0 << QList<QPointF>{{8, 19}, {12, 19}, {12, 21}, {8, 21}};
        QTest::newRow("90 turns clockwise") << QPointF(0, 0) << QSizeF(4, 2) << 90.0 << QList<QPointF>{{1, -2}, {1, 2}, {-1, 2}, {-1, -2}};
        QTest::newRow("-90") << QPointF(0, 0) << QSizeF(4, 2) << -90.0 << QList<QPointF>{{-1, 2}, {-1, -2}, {1, -2}, {1, 2}};
        QTest::newRow("180") << QPointF(5, 5) << QSizeF(4, 2) << 180.0 << QList<QPointF>{{7, 6}, {3, 6}, {3, 4}, {7, 4}};
        QTest::newRow("45 square") << QPointF(0, 0) << QSizeF(2, 2) << 45.0 << QList<QPointF>{{0, -r}, {r, 0}, {0, r}, {-r, 0}};
    }

    void rotatedCorners()
    {
        auto [centre, size, angle, expected] = row<QPointF, QSizeF, double, QList<QPointF>>("centre", "size", "angle", "expected");
        const QList<QPointF> corners = rotatedBoxCorners(centre, size.width(), size.height(), angle);
        QCOMPARE(corners.size(), 4);
        for (int i = 0; i < 4; ++i)
            QVERIFY2(QLineF(corners[i], expected[i]).length() < 1e-9, qPrintable(QString::number(i)));
        // The centre is the mean of the corners.
        QVERIFY(QLineF(shape("a", ShapeType::RotatedBox, corners).centroid(), centre).length() < 1e-9);
    }

    void equality()
    {
        const BoxAnnotation base = shape("cat", ShapeType::RotatedBox, {{1, 2}, {3, 4}, {5, 6}, {7, 8}});
        QList<BoxAnnotation> others(6, base);
        others[0].label = "Cat";
        others[1].type = ShapeType::Cuboid;
        others[2].points[2] = {5, 6.5};
        others[3].points.removeLast();
        others[4].visible = false;
        others[5].angle = 0.5;
        QVERIFY(base == BoxAnnotation(base) && !(base != BoxAnnotation(base)));
        for (const BoxAnnotation& other : others)
            QVERIFY2(!(base == other) && base != other, qPrintable(describe(other)));
        QCOMPARE(BoxAnnotation().centroid(), QPointF());
    }

    void palette()
    {
        const QList<QColor> expected = {{0, 220, 220},  {255, 100, 100}, {100, 220, 100}, {255, 200, 0},
                                        {180, 100, 255}, {255, 160, 40}, {80, 200, 255},  {255, 80, 200}};
        QCOMPARE(LabelPalette::colors(), expected);
        for (int n = 0; n < 20; ++n)
            QCOMPARE(LabelPalette::colorForIndex(n), expected[n % 8]);
        QCOMPARE(LabelPalette::defaultLabel().name, QStringLiteral("object"));
        QCOMPARE(LabelPalette::defaultLabel().color, QColor(0, 220, 220));

        QList<LabelDef> labels = {LabelPalette::defaultLabel()};
        QVERIFY(LabelPalette::appendIfMissing(labels, "car"));
        QVERIFY(!LabelPalette::appendIfMissing(labels, "car"));
        QVERIFY(!LabelPalette::appendIfMissing(labels, "object"));
        QVERIFY(LabelPalette::appendIfMissing(labels, "Car")); // names are case-sensitive
        labels.removeAt(1); // the colour follows the list length, so it can repeat
        QVERIFY(LabelPalette::appendIfMissing(labels, "bus"));
        QCOMPARE(labelNames(labels), (QStringList{"object", "Car", "bus"}));
        QCOMPARE(labels[1].color, QColor(100, 220, 100));
        QCOMPARE(labels[2].color, QColor(100, 220, 100));
    }

    void labelScan_data()
    {
        columns<QByteArray, QStringList>("xml", "expected");
        QTest::newRow("trimmed name inside object") << QByteArray("<a><object><name>  car \n</name></object></a>") << QStringList{"car"};
        QTest::newRow("short n element") << QByteArray("<a><object><n>bike</n></object></a>") << QStringList{"bike"};
        QTest::newRow("name inside bndbox ignored")
            << QByteArray("<a><object><bndbox><name>wheel</name></bndbox><name>truck</name></object></a>") << QStringList{"truck"};
        QTest::newRow("object start clears the bndbox flag")
            << QByteArray("<a><bndbox><object><name>b</name></object></bndbox></a>") << QStringList{"b"};
        QTest::newRow("name outside any object ignored")
            << QByteArray("<a><name>scene</name><object><name>x</name></object><name>after</name></a>") << QStringList{"x"};
        QTest::newRow("empty and blank names ignored")
            << QByteArray("<a><object><name></name></object><object><name>  </name></object></a>") << QStringList{};
        QTest::newRow("repeats kept in order, parts count")
            << QByteArray("<a><object><name>b</name></object><object><name>a</name><part><name>hand</name></part></object>"
                          "<object><name>b</name></object></a>") << QStringList{"b", "a", "hand", "b"};
        QTest::newRow("malformed: names before the error")
            << QByteArray("<a><object><name>bus</name></object><object><name>van</nam></object><object><name>late</name></object></a>")
            << QStringList{"bus"};
        QTest::newRow("not XML") << QByteArray("\x00\x01garbage", 9) << QStringList{};
        QTest::newRow("non-ASCII name") << QByteArray("<a><object><name>voiture \xc3\xa9lectrique</name></object></a>")
                                        << QStringList{QStringLiteral("voiture électrique")};
    }

    void labelScan()
    {
        auto [xml, expected] = row<QByteArray, QStringList>("xml", "expected");
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("a.xml"), xml));
        QCOMPARE(scanLabelNames(dir.filePath("a.xml")), expected);
        QVERIFY(scanLabelNames(dir.filePath("none.xml")).isEmpty());
        QVERIFY(scanLabelNames(dir.path()).isEmpty());
    }

    void labelsFromFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("a.xml");
        QVERIFY(writeFile(path, "<a><object><name>car</name></object><object><name>object</name></object>"
                                "<object><name>dog</name></object><object><name>car</name></object></a>"));
        QList<LabelDef> labels = {LabelPalette::defaultLabel()};
        QCOMPARE(appendLabelsFromFile(labels, path), 2);
        QCOMPARE(appendLabelsFromFile(labels, path), 0);
        QCOMPARE(labelNames(labels), (QStringList{"object", "car", "dog"}));
        QCOMPARE(labels[1].color, QColor(255, 100, 100));
        QCOMPARE(labels[2].color, QColor(100, 220, 100));
    }

    void atomicBatch()
    {
        QTemporaryDir dir;
        const QString a = dir.filePath("a.txt"), b = dir.filePath("b.txt"), blocked = dir.filePath("blocked.txt");
        QVERIFY(writeFile(a, "old content that is longer than the new one"));
        {
            AtomicBatch abandoned;
            QVERIFY(abandoned.stage(b, "never committed"));
        }
        AtomicBatch batch;
        QVERIFY(!batch.stage(dir.filePath("no/such/folder/a.txt"), "x"));
        QVERIFY(batch.stage(a, "new a") && batch.stage(blocked, "x") && batch.stage(b, "new b"));
        QCOMPARE(batch.stagedCount(), 3);
        // Nothing reaches the targets before the commit.
        QCOMPARE(filesUnder(dir.path()).size(), 4);
        QCOMPARE(readAll(a), QByteArray("old content that is longer than the new one"));
        QVERIFY(QDir().mkpath(blocked + "/inner")); // a folder that is not empty cannot be replaced
        QVERIFY(!batch.commit());
        QCOMPARE(batch.failedPaths(), QStringList{blocked});
        QCOMPARE(readAll(a) + readAll(b), QByteArray("new anew b"));
        QCOMPARE(filesUnder(dir.path()), (QStringList{"a.txt", "b.txt"}));
        QVERIFY(batch.commit()); // nothing staged

        QVERIFY(AtomicBatch::writeFile(a, "two"));
        QCOMPARE(readAll(a), QByteArray("two"));
        QString error;
        QVERIFY(!AtomicBatch::writeFile(dir.filePath("missing/a.txt"), "x", &error) && !error.isEmpty());
        // A file the user made read-only is not replaced behind their back.
        QVERIFY(QFile::setPermissions(a, QFileDevice::ReadOwner));
        if (::geteuid() != 0)
            QVERIFY(!batch.stage(a, "new\n"));
        QCOMPARE(readAll(a), QByteArray("two"));
    }
};

QTEST_GUILESS_MAIN(TestModel)
#include "tst_model.moc"
