#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "formats/exportimport.h"
#include "support/records.h"

namespace {

using KeypointOrder = QMap<QString, QStringList>;

BoxAnnotation keypoint(const QString& label, double x, double y, bool visible = true)
{
    BoxAnnotation b;
    b.label = label;
    b.type = ShapeType::Keypoint;
    b.points = {QPointF(x, y)};
    b.visible = visible;
    return b;
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

// Detection fields of a person box from (100, 100) to (200, 300) in a 640 x 480 image.
const QByteArray kPerson("0 0.234375 0.416667 0.15625 0.416667");

} // namespace

class TestYoloPose : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void labelLine_data();
    void labelLine();
    void filesAndCounts();
    void unwritableLabelFileIsSkipped();
    void dataYaml_data();
    void dataYaml();
};

void TestYoloPose::labelLine_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QList<BoxAnnotation>>("boxes");
    QTest::addColumn<QStringList>("classes");
    QTest::addColumn<KeypointOrder>("order");
    QTest::addColumn<QByteArray>("expected");

    const QSize vga(640, 480);
    const BoxAnnotation person = box("person", 100, 100, 200, 300);
    const QStringList people{"person"};
    const KeypointOrder headFoot{{"person", {"head", "foot"}}};

    QTest::newRow("head and foot")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 90), keypoint("foot", 150, 320)} << people
        << headFoot << kPerson + " 0.234375 0.1875 2 0.234375 0.666667 2\n";
    QTest::newRow("keypoints before the box")
        << vga << QList<BoxAnnotation>{keypoint("foot", 150, 320), keypoint("head", 150, 90), person} << people
        << headFoot << kPerson + " 0.234375 0.1875 2 0.234375 0.666667 2\n";
    QTest::newRow("order decides the slots")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 90), keypoint("foot", 150, 320)} << people
        << KeypointOrder{{"person", {"foot", "head"}}} << kPerson + " 0.234375 0.666667 2 0.234375 0.1875 2\n";
    QTest::newRow("31 pixels outside is not matched")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 69), keypoint("foot", 231, 200)} << people
        << headFoot << kPerson + " 0 0 0 0 0 0\n";
    QTest::newRow("30 pixels outside is matched")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 70, 100), keypoint("foot", 230, 330)} << people
        << headFoot << kPerson + " 0.109375 0.208333 2 0.359375 0.6875 2\n";
    QTest::newRow("nearer keypoint replaces a farther one")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 120), keypoint("head", 150, 190)} << people
        << headFoot << kPerson + " 0.234375 0.395833 2 0 0 0\n";
    QTest::newRow("nearer keypoint stays")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 195), keypoint("head", 150, 120)} << people
        << headFoot << kPerson + " 0.234375 0.40625 2 0 0 0\n";
    QTest::newRow("equal distance keeps the earlier")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 140, 200), keypoint("head", 160, 200)} << people
        << headFoot << kPerson + " 0.21875 0.416667 2 0 0 0\n";
    QTest::newRow("occluded keypoint written as 2")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 90, false)} << people << headFoot
        << kPerson + " 0.234375 0.1875 2 0 0 0\n";
    QTest::newRow("keypoint labels are case-sensitive")
        << vga << QList<BoxAnnotation>{person, keypoint("Head", 150, 150)} << people << headFoot
        << kPerson + " 0 0 0 0 0 0\n";
    QTest::newRow("empty order writes the box only")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 150)} << people
        << KeypointOrder{{"person", {}}} << kPerson + "\n";
    QTest::newRow("class missing from the order map")
        << vga << QList<BoxAnnotation>{person, keypoint("head", 150, 150)} << people << KeypointOrder{}
        << kPerson + "\n";
    QTest::newRow("other shapes are neither boxes nor keypoints")
        << vga
        << QList<BoxAnnotation>{person,
                                shape("head", ShapeType::Polygon, {QPointF(150, 150), QPointF(151, 151), QPointF(150, 152)}),
                                shape("head", ShapeType::Ellipse, {QPointF(150, 150), QPointF(5, 5)}),
                                shape("person", ShapeType::RotatedBox,
                                      {QPointF(0, 0), QPointF(10, 0), QPointF(10, 10), QPointF(0, 10)}),
                                shape("head", ShapeType::Keypoint, {})}
        << people << headFoot << kPerson + " 0 0 0 0 0 0\n";
    QTest::newRow("class index is the list position")
        << vga << QList<BoxAnnotation>{box("car", 0, 0, 640, 480), person, box("dog", 0, 0, 1, 1)}
        << QStringList{"dog", "cat", "car"} << KeypointOrder{}
        << QByteArray("2 0.5 0.5 1 1\n0 0.00078125 0.00104167 0.0015625 0.00208333\n");
    QTest::newRow("boxes of other labels left out")
        << vga << QList<BoxAnnotation>{box("car", 0, 0, 10, 10), box("Person", 0, 0, 10, 10)} << people << headFoot
        << QByteArray();
    QTest::newRow("box with one point left out")
        << vga << QList<BoxAnnotation>{shape("person", ShapeType::BoundingBox, {QPointF(5, 5)}), person}
        << people << KeypointOrder{} << kPerson + "\n";
    QTest::newRow("one keypoint serves two boxes")
        << vga << QList<BoxAnnotation>{person, box("person", 120, 80, 180, 120), keypoint("head", 150, 90)}
        << people << KeypointOrder{{"person", {"head"}}}
        << kPerson + " 0.234375 0.1875 2\n0 0.234375 0.208333 0.09375 0.0833333 0.234375 0.1875 2\n";
    QTest::newRow("corners stored in reverse")
        << vga << QList<BoxAnnotation>{box("person", 200, 300, 100, 100), keypoint("head", 150, 200)} << people
        << headFoot << kPerson + " 0.234375 0.416667 2 0 0 0\n";
    QTest::newRow("points, not the integer rectangle")
        << QSize(4, 4) << QList<BoxAnnotation>{box("person", 0.5, 0.5, 1.7, 3.1), keypoint("head", 1.5, 2.5)}
        << people << KeypointOrder{{"person", {"head"}}} << QByteArray("0 0.275 0.45 0.3 0.65 0.375 0.625 2\n");
    QTest::newRow("six significant digits")
        << QSize(3, 7) << QList<BoxAnnotation>{box("person", 0, 0, 1, 1)} << people << KeypointOrder{}
        << QByteArray("0 0.166667 0.0714286 0.333333 0.142857\n");
    QTest::newRow("exponent for tiny values")
        << QSize(1000000, 1000000) << QList<BoxAnnotation>{box("person", 0, 0, 0.1, 0.1)} << people
        << KeypointOrder{} << QByteArray("0 5e-08 5e-08 1e-07 1e-07\n");
}

void TestYoloPose::labelLine()
{
    QFETCH(QSize, size);
    QFETCH(QList<BoxAnnotation>, boxes);
    QFETCH(QStringList, classes);
    QFETCH(KeypointOrder, order);
    QFETCH(QByteArray, expected);

    QTemporaryDir dir;
    const QList<ImageAnnotations> images{image(QStringLiteral("/pics/frame.jpg"), size.width(), size.height(), boxes)};
    const ExportImportResult r = ExportImport::exportYoloPose(images, order, classes, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QCOMPARE(readAll(dir.filePath(QStringLiteral("labels/frame.txt"))), expected);
}

void TestYoloPose::filesAndCounts()
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("nested/pose"));
    const BoxAnnotation person = box("person", 10, 10, 20, 20);
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/p/a.b.png"), 100, 100, {person}),
        image(QStringLiteral("/p/nosize.png"), 0, 100, {person}),
        image(QStringLiteral("/p/noheight.png"), 100, 0, {person}),
        image(QStringLiteral("/p/onlykeypoints.png"), 100, 100, {keypoint("head", 1, 1)}),
        image(QStringLiteral("/p/empty.png"), 100, 100, {}),
        image(QStringLiteral("/p/other.png"), 50, 50, {box("car", 1, 1, 2, 2)}),
    };
    // A stale file from an earlier export is replaced.
    QVERIFY(QDir().mkpath(out + QStringLiteral("/labels")));
    QFile stale(out + QStringLiteral("/labels/other.txt"));
    QVERIFY(stale.open(QIODevice::WriteOnly));
    stale.write("old contents\n");
    stale.close();

    const ExportImportResult r = ExportImport::exportYoloPose(images, {}, {"person"}, out);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 2);
    QCOMPARE(r.message, QStringLiteral("Exported YOLO Pose for 2 image(s) to:\n") + out);
    QCOMPARE(filesIn(out), (QStringList{"data.yaml", "images", "labels"}));
    QVERIFY(filesIn(out + QStringLiteral("/images")).isEmpty());
    QCOMPARE(filesIn(out + QStringLiteral("/labels")), (QStringList{"a.b.txt", "other.txt"}));
    QCOMPARE(readAll(out + QStringLiteral("/labels/a.b.txt")), QByteArray("0 0.15 0.15 0.1 0.1\n"));
    QCOMPARE(readAll(out + QStringLiteral("/labels/other.txt")), QByteArray());

    // Nothing to write still makes the folders and data.yaml.
    const QString none = dir.filePath(QStringLiteral("none"));
    const ExportImportResult empty = ExportImport::exportYoloPose({}, {}, {}, none);
    QVERIFY(empty.ok);
    QCOMPARE(empty.count, 0);
    QCOMPARE(filesIn(none), (QStringList{"data.yaml", "images", "labels"}));
}

void TestYoloPose::unwritableLabelFileIsSkipped()
{
    QTemporaryDir dir;
    // A folder where the label file should go cannot be replaced by it.
    QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("labels/blocked.txt"))));
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/p/blocked.png"), 100, 100, {box("person", 1, 1, 2, 2)}),
        image(QStringLiteral("/p/fine.png"), 100, 100, {box("person", 1, 1, 2, 2)}),
    };
    const ExportImportResult r = ExportImport::exportYoloPose(images, {}, {"person"}, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QVERIFY(QFileInfo(dir.filePath(QStringLiteral("labels/blocked.txt"))).isDir());
    QVERIFY(QFileInfo::exists(dir.filePath(QStringLiteral("labels/fine.txt"))));
}

void TestYoloPose::dataYaml_data()
{
    QTest::addColumn<QStringList>("classes");
    QTest::addColumn<KeypointOrder>("order");
    QTest::addColumn<QString>("tail");

    QTest::newRow("keypoints of the first class")
        << QStringList{"person", "car"} << KeypointOrder{{"person", {"head", "foot", "hand"}}, {"car", {"wheel"}}}
        << QStringLiteral("  - person\n  - car\n\nkpt_shape: [3, 3]\n");
    QTest::newRow("first class with an empty order")
        << QStringList{"person"} << KeypointOrder{{"person", {}}} << QStringLiteral("  - person\n\nkpt_shape: [0, 3]\n");
    QTest::newRow("first class without an entry")
        << QStringList{"person", "car"} << KeypointOrder{{"car", {"wheel"}}} << QStringLiteral("  - person\n  - car\n");
    QTest::newRow("no classes") << QStringList{} << KeypointOrder{{"person", {"head"}}} << QString();
    // Names YAML would read as something else are quoted; plain ones stay as they are.
    QTest::newRow("names YAML would misread")
        << QStringList{"no", "On", "null", "#1", "sign: stop", " lead", "trail ", "3d", "say \"hi\\"}
        << KeypointOrder{}
        << QStringLiteral("  - \"no\"\n  - \"On\"\n  - \"null\"\n  - \"#1\"\n  - \"sign: stop\"\n"
                          "  - \" lead\"\n  - \"trail \"\n  - \"3d\"\n  - \"say \\\"hi\\\\\"\n");
    QTest::newRow("plain names") << QStringList{"traffic light", "car_2", "Straße", "x-ray (old)"}
                                 << KeypointOrder{}
                                 << QStringLiteral("  - traffic light\n  - car_2\n  - Straße\n  - x-ray (old)\n");
}

void TestYoloPose::dataYaml()
{
    QFETCH(QStringList, classes);
    QFETCH(KeypointOrder, order);
    QFETCH(QString, tail);

    QTemporaryDir dir;
    QVERIFY(ExportImport::exportYoloPose({}, order, classes, dir.path()).ok);
    const QString expected = QStringLiteral("path: ") + dir.path()
        + QStringLiteral("\ntrain: images\nval: images\n\nnames:\n") + tail;
    QCOMPARE(QString::fromUtf8(readAll(dir.filePath(QStringLiteral("data.yaml")))), expected);

    // The trainer's YAML reader gets the names back as written.
    if (classes.isEmpty())
        return;
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import json, sys, yaml; print(json.dumps(yaml.safe_load(open(sys.argv[1], "
                                 "encoding='utf-8'))['names']))"),
                  dir.filePath(QStringLiteral("data.yaml"))});
    QVERIFY(python.waitForFinished(20000));
    if (python.exitCode() != 0)
        QSKIP("no Python with the yaml module");
    QStringList read;
    for (const QJsonValue& v : QJsonDocument::fromJson(python.readAllStandardOutput()).array())
        read << v.toString();
    QCOMPARE(read, classes);
}

QTEST_GUILESS_MAIN(TestYoloPose)
#include "tst_yolopose.moc"
