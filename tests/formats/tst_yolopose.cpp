#include <QtTest>

#include "formats/exportimport.h"
#include "support/corefiles.h"

using KeypointOrder = QMap<QString, QStringList>;
using Shapes = QList<BoxAnnotation>;

namespace {

BoxAnnotation kp(const QString& label, double x, double y, bool visible = true)
{
    BoxAnnotation b = shape(label, ShapeType::Keypoint, {{x, y}});
    b.visible = visible;
    return b;
}

// Detection fields of a person box from (100, 100) to (200, 300) in a 640 x 480 image.
const QByteArray kPerson("0 0.234375 0.416667 0.15625 0.416667");

} // namespace

class TestYoloPose : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void labelLine_data()
    {
        columns<QSize, Shapes, QStringList, KeypointOrder, QByteArray>("size", "boxes", "classes", "order", "expected");
        const QSize vga(640, 480);
        const BoxAnnotation person = box("person", 100, 100, 200, 300);
        const QStringList people{"person"};
        const KeypointOrder headFoot{{"person", {"head", "foot"}}}, head{{"person", {"head"}}};
        const QByteArray bothFound = kPerson + " 0.234375 0.1875 2 0.234375 0.666667 2\n";
        QTest::newRow("head and foot") << vga << Shapes{person, kp("head", 150, 90), kp("foot", 150, 320)} << people << headFoot << bothFound;
        QTest::newRow("keypoints before the box") << vga << Shapes{kp("foot", 150, 320), kp("head", 150, 90), person} << people << headFoot << bothFound;
        QTest::newRow("order decides the slots") << vga << Shapes{person, kp("head", 150, 90), kp("foot", 150, 320)} << people
                                                 << KeypointOrder{{"person", {"foot", "head"}}} << kPerson + " 0.234375 0.666667 2 0.234375 0.1875 2\n";
        QTest::newRow("31 pixels outside is not matched") << vga << Shapes{person, kp("head", 150, 69), kp("foot", 231, 200)} << people << headFoot
                                                          << kPerson + " 0 0 0 0 0 0\n";
        QTest::newRow("30 pixels outside is matched") << vga << Shapes{person, kp("head", 70, 100), kp("foot", 230, 330)} << people << headFoot
                                                      << kPerson + " 0.109375 0.208333 2 0.359375 0.6875 2\n";
        QTest::newRow("nearer keypoint replaces a farther one") << vga << Shapes{person, kp("head", 150, 120), kp("head", 150, 190)} << people
                                                                << headFoot << kPerson + " 0.234375 0.395833 2 0 0 0\n";
        QTest::newRow("nearer keypoint stays") << vga << Shapes{person, kp("head", 150, 195), kp("head", 150, 120)} << people << headFoot
                                               << kPerson + " 0.234375 0.40625 2 0 0 0\n";
        QTest::newRow("equal distance keeps the earlier") << vga << Shapes{person, kp("head", 140, 200), kp("head", 160, 200)} << people
                                                          << headFoot << kPerson + " 0.21875 0.416667 2 0 0 0\n";
        QTest::newRow("occluded keypoint written as 2") << vga << Shapes{person, kp("head", 150, 90, false)} << people << headFoot
                                                        << kPerson + " 0.234375 0.1875 2 0 0 0\n";
        QTest::newRow("keypoint labels are case-sensitive") << vga << Shapes{person, kp("Head", 150, 150)} << people << headFoot
                                                            << kPerson + " 0 0 0 0 0 0\n";
        QTest::newRow("empty order writes the box only") << vga << Shapes{person, kp("head", 150, 150)} << people
                                                         << KeypointOrder{{"person", {}}} << kPerson + "\n";
        QTest::newRow("class missing from the order") << vga << Shapes{person, kp("head", 150, 150)} << people << KeypointOrder{} << kPerson + "\n";
        QTest::newRow("other shapes are neither boxes nor keypoints")
            << vga << Shapes{person, shape("head", ShapeType::Polygon, {{150, 150}, {151, 151}, {150, 152}}),
                             shape("head", ShapeType::Ellipse, {{150, 150}, {5, 5}}),
                             shape("person", ShapeType::RotatedBox, {{0, 0}, {10, 0}, {10, 10}, {0, 10}}), shape("head", ShapeType::Keypoint, {})}
            << people << headFoot << kPerson + " 0 0 0 0 0 0\n";
        QTest::newRow("class index is the list position") << vga << Shapes{box("car", 0, 0, 640, 480), person, box("dog", 0, 0, 1, 1)}
                                                          << QStringList{"dog", "cat", "car"} << KeypointOrder{}
                                                          << QByteArray("2 0.5 0.5 1 1\n0 0.00078125 0.00104167 0.0015625 0.00208333\n");
        QTest::newRow("boxes of other labels left out") << vga << Shapes{box("car", 0, 0, 10, 10), box("Person", 0, 0, 10, 10)} << people
                                                        << headFoot << QByteArray();
        QTest::newRow("box with one point left out") << vga << Shapes{shape("person", ShapeType::BoundingBox, {{5, 5}}), person} << people
                                                     << KeypointOrder{} << kPerson + "\n";
        QTest::newRow("one keypoint serves two boxes") << vga << Shapes{person, box("person", 120, 80, 180, 120), kp("head", 150, 90)} << people
                                                       << head << kPerson + " 0.234375 0.1875 2\n0 0.234375 0.208333 0.09375 0.0833333 0.234375 0.1875 2\n";
        QTest::newRow("corners stored in reverse") << vga << Shapes{box("person", 200, 300, 100, 100), kp("head", 150, 200)} << people << headFoot
                                                   << kPerson + " 0.234375 0.416667 2 0 0 0\n";
        QTest::newRow("points, not the integer rectangle") << QSize(4, 4) << Shapes{box("person", 0.5, 0.5, 1.7, 3.1), kp("head", 1.5, 2.5)}
                                                           << people << head << QByteArray("0 0.275 0.45 0.3 0.65 0.375 0.625 2\n");
        QTest::newRow("six significant digits") << QSize(3, 7) << Shapes{box("person", 0, 0, 1, 1)} << people << KeypointOrder{}
                                                << QByteArray("0 0.166667 0.0714286 0.333333 0.142857\n");
        QTest::newRow("exponent for tiny values") << QSize(1000000, 1000000) << Shapes{box("person", 0, 0, 0.1, 0.1)} << people << KeypointOrder{}
                                                  << QByteArray("0 5e-08 5e-08 1e-07 1e-07\n");
    }

    void labelLine()
    {
        auto [size, boxes, classes, order, expected] = row<QSize, Shapes, QStringList, KeypointOrder, QByteArray>("size", "boxes", "classes", "order", "expected");
        QTemporaryDir dir;
        const ExportImportResult r =
            ExportImport::exportYoloPose({image("/pics/frame.jpg", size.width(), size.height(), boxes)}, order, classes, dir.path());
        QVERIFY(r.ok);
        QCOMPARE(r.count, 1);
        QCOMPARE(readAll(dir.filePath("labels/frame.txt")), expected);
    }

    void filesAndCounts()
    {
        QTemporaryDir dir;
        const QString out = dir.filePath("nested/pose");
        const BoxAnnotation person = box("person", 10, 10, 20, 20);
        // Only images with a stored size and a box are written; a stale file is replaced,
        // a folder in the way of one is not.
        QVERIFY(QDir().mkpath(out + "/labels/blocked.txt") && writeFile(out + "/labels/other.txt", "old contents\n"));
        const QList<ImageAnnotations> images{
            image("/p/a.b.png", 100, 100, {person}), image("/p/nosize.png", 0, 100, {person}), image("/p/noheight.png", 100, 0, {person}),
            image("/p/onlykeypoints.png", 100, 100, {kp("head", 1, 1)}), image("/p/empty.png", 100, 100, {}),
            image("/p/other.png", 50, 50, {box("car", 1, 1, 2, 2)}), image("/p/blocked.png", 100, 100, {person})};
        const ExportImportResult r = ExportImport::exportYoloPose(images, {}, {"person"}, out);
        QVERIFY(r.ok);
        QCOMPARE(r.count, 2);
        QCOMPARE(r.message, "Exported YOLO Pose for 2 image(s) to:\n" + out
                                + "\n\n1 file(s) could not be written: It is not a regular file.");
        QCOMPARE(filesUnder(out), (QStringList{"data.yaml", "labels/a.b.txt", "labels/other.txt"}));
        QCOMPARE(readAll(out + "/labels/a.b.txt") + readAll(out + "/labels/other.txt"), QByteArray("0 0.15 0.15 0.1 0.1\n"));
        QVERIFY(QFileInfo(out + "/images").isDir() && QFileInfo(out + "/labels/blocked.txt").isDir());
    }

    void dataYaml_data()
    {
        columns<QStringList, KeypointOrder, QString>("classes", "order", "tail");
        QTest::newRow("keypoints of the first class") << QStringList{"person", "car"} << KeypointOrder{{"person", {"head", "foot", "hand"}}, {"car", {"wheel"}}}
                                                      << QStringLiteral("  - person\n  - car\n\nkpt_shape: [3, 3]\n");
        QTest::newRow("first class with an empty order") << QStringList{"person"} << KeypointOrder{{"person", {}}}
                                                         << QStringLiteral("  - person\n\nkpt_shape: [0, 3]\n");
        QTest::newRow("first class without an entry") << QStringList{"person", "car"} << KeypointOrder{{"car", {"wheel"}}}
                                                       << QStringLiteral("  - person\n  - car\n");
        QTest::newRow("no classes") << QStringList{} << KeypointOrder{{"person", {"head"}}} << QString();
    }

    void dataYaml()
    {
        auto [classes, order, tail] = row<QStringList, KeypointOrder, QString>("classes", "order", "tail");
        QTemporaryDir dir;
        const ExportImportResult r = ExportImport::exportYoloPose({}, order, classes, dir.path());
        QVERIFY(r.ok);
        QCOMPARE(r.count, 0);
        QVERIFY(QFileInfo(dir.filePath("images")).isDir() && QFileInfo(dir.filePath("labels")).isDir());
        QCOMPARE(QString::fromUtf8(readAll(dir.filePath("data.yaml"))), "path: " + dir.path() + "\ntrain: images\nval: images\n\nnames:\n" + tail);
    }
};

QTEST_GUILESS_MAIN(TestYoloPose)
#include "tst_yolopose.moc"
