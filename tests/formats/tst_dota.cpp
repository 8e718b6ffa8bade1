#include <QtTest>

#include <QImage>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "support/records.h"

#define BYTES(literal) QByteArray(literal, sizeof(literal) - 1)

namespace {

QByteArray readAll(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return "<missing>";
    return f.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(bytes), bytes.size());
}

QStringList describe(const QList<BoxAnnotation>& boxes)
{
    QStringList out;
    for (const BoxAnnotation& b : boxes) {
        QStringList pts;
        for (const QPointF& p : b.points)
            pts.append(QString("%1,%2").arg(p.x()).arg(p.y()));
        out.append(b.label + QLatin1Char(' ') + pts.join('-'));
    }
    return out;
}

} // namespace

class TestDota : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportLines_data();
    void exportLines();
    void exportFilesAndMessage();
    void importLines_data();
    void importLines();
    void importMatchingAndReplacing();
    void importUnknownSize();
    void importLabelOrder();
    void roundTrip();
};

void TestDota::exportLines_data()
{
    QTest::addColumn<BoxAnnotation>("annotation");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("box") << box("car", 100, 50, 300, 250) << QByteArray("100 50 300 50 300 250 100 250 car 0");
    QTest::newRow("reversed fractional corners") << box("car", 300.9, 250.5, 100.2, 50.7)
                                                 << QByteArray("100 50 300 50 300 250 100 250 car 0");
    QTest::newRow("negative truncates toward zero") << box("a", -5.5, -3, 4, 2.9) << QByteArray("-5 -3 4 -3 4 2 -5 2 a 0");
    QTest::newRow("keypoint") << shape("kp", ShapeType::Keypoint, { { 5, 6 } }) << QByteArray("0 0 -1 0 -1 -1 0 -1 kp 0");
    QTest::newRow("unturned rotated box") << shape("ship", ShapeType::RotatedBox, { { 10, 10 }, { 50, 10 }, { 50, 40 }, { 10, 40 } })
                                          << QByteArray("10 10 50 10 50 10 10 10 ship 0");
    QTest::newRow("polygon") << shape("p", ShapeType::Polygon, { { 20, 30 }, { 5, 8 }, { 100, 100 } })
                             << QByteArray("5 8 20 8 20 30 5 30 p 0");
    QTest::newRow("label with a blank") << box("big car", 1, 2, 3, 4) << QByteArray("1 2 3 2 3 4 1 4 big car 0");
    QTest::newRow("utf-8 label") << box(QString::fromUtf8("Fußgänger"), 1, 2, 3, 4)
                                 << QByteArray("1 2 3 2 3 4 1 4 Fu\xc3\x9fg\xc3\xa4nger 0");
}

void TestDota::exportLines()
{
    QFETCH(BoxAnnotation, annotation);
    QFETCH(QByteArray, line);

    QTemporaryDir dir;
    const ExportImportResult r =
        ExportImport::exportDota({ image("/x/y/img.v1.jpg", 640, 480, { annotation }) }, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QCOMPARE(readAll(dir.filePath("img.v1.txt")), line + '\n');
}

void TestDota::exportFilesAndMessage()
{
    QTemporaryDir dir;
    const QString out = dir.filePath("new/sub");
    const QList<ImageAnnotations> images{
        image("a.jpg", 0, 0, { box("car", 1, 2, 3, 4), box("bus", 5, 6, 7, 8) }),
        image("empty.jpg", 10, 10),
        image("c.png", 10, 10, { box("car", 0, 0, 9, 9) }),
    };
    const ExportImportResult r = ExportImport::exportDota(images, out);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 2);
    QCOMPARE(r.message, "Exported 2 DOTA file(s) to:\n" + out);
    QCOMPARE(readAll(out + "/a.txt"), QByteArray("1 2 3 2 3 4 1 4 car 0\n5 6 7 6 7 8 5 8 bus 0\n"));
    QStringList files = QDir(out).entryList(QDir::Files);
    files.sort();
    QCOMPARE(files, (QStringList{ "a.txt", "c.txt" }));

    // A folder that cannot be made: files are skipped, and that is not a failure.
    const QString blocked = dir.filePath("blocked");
    writeFile(blocked, "file");
    const ExportImportResult none = ExportImport::exportDota(images, blocked);
    QVERIFY(none.ok);
    QCOMPARE(none.count, 0);
    QCOMPARE(readAll(blocked), QByteArray("file"));
}

void TestDota::importLines_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("boxes");

    // Image 640 x 480.
    QTest::newRow("axis-aligned") << QByteArray("10 10 50 10 50 40 10 40 plane 0\n") << QStringList{ "plane 10,10-50,40" };
    QTest::newRow("dota header") << QByteArray("imagesource:GoogleEarth\ngsd:0.146343590398\n10 10 50 10 50 40 10 40 plane 0\n")
                                 << QStringList{ "plane 10,10-50,40" };
    QTest::newRow("header words with fields") << QByteArray("imagesource 1 2 3 4 5 6 7 8 x\ngsd 1 2 3 4 5 6 7 8 x\n")
                                              << QStringList{};
    QTest::newRow("header check is case-sensitive") << QByteArray("Imagesource 1 2 3 4 5 6 7 8 x\n")
                                                    << QStringList{ "8 0,1-6,7" };
    QTest::newRow("eight fields") << QByteArray("1 2 3 4 5 6 7 8\n") << QStringList{};
    QTest::newRow("no difficulty, extra fields") << QByteArray("1 2 3 2 3 4 1 4 a\n1 2 3 2 3 4 1 4 b 1 extra more\n")
                                                 << QStringList{ "a 1,2-3,4", "b 1,2-3,4" };
    QTest::newRow("rotated quadrilateral") << QByteArray("100 50 150 100 100 150 50 100 diamond 1")
                                           << QStringList{ "diamond 50,50-150,150" };
    QTest::newRow("fractions truncate") << QByteArray("10.9 10.2 50.7 10.2 50.7 40.9 10.9 40.9 f 0")
                                        << QStringList{ "f 10,10-50,40" };
    QTest::newRow("clamped") << QByteArray("-10 -10 700 -10 700 500 -10 500 big 0") << QStringList{ "big 0,0-639,479" };
    QTest::newRow("outside") << QByteArray("700 10 800 10 800 20 700 20 far 0") << QStringList{ "far 700,10-639,20" };
    QTest::newRow("blanks, CRLF, blank lines") << QByteArray("\r\n  1   2 3 2 3 4 1 4   a   0  \r\n\n")
                                               << QStringList{ "a 1,2-3,4" };
    QTest::newRow("nan and inf read as 0") << QByteArray("nan 5 20 5 20 30 inf 30 n 0") << QStringList{ "n 0,5-20,30" };
    QTest::newRow("words read as 0") << QByteArray("a b 20 5 20 30 c d w 0") << QStringList{ "w 0,0-20,30" };
    QTest::newRow("huge") << QByteArray("1e308 -1e308 1e300 5 -1e300 6 1e999 7 h") << QStringList{ "h 0,0-639,7" };
    QTest::newRow("non-utf8") << BYTES("\xff\xfe\x00\n1 2 3 2 3 4 1 4 \x80\xff 0\n")
                              << QStringList{ QString::fromUtf8("\xef\xbf\xbd\xef\xbf\xbd") + " 1,2-3,4" };
}

void TestDota::importLines()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, boxes);

    QTemporaryDir dir;
    writeFile(dir.filePath("img.txt"), content);
    QList<ImageAnnotations> images{ image("/data/img.png", 640, 480, { box("old", 1, 1, 2, 2) }) };
    QList<LabelDef> labels;
    const ExportImportResult r = ExportImport::importDota(images, labels, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QCOMPARE(r.message, QString("Imported DOTA annotations for 1 image(s)."));
    QCOMPARE(describe(images.at(0).boxes), boxes);
    QVERIFY(images.at(0).dirty);
    for (const BoxAnnotation& b : images.at(0).boxes) {
        QCOMPARE(b.type, ShapeType::BoundingBox);
        QVERIFY(b.visible);
        QCOMPARE(b.angle, 0.0);
    }
}

void TestDota::importMatchingAndReplacing()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("a.txt"), "1 1 5 1 5 5 1 5 car 0\n");
    writeFile(dir.filePath("classes.txt"), "2 2 6 2 6 6 2 6 bus 0\n");
    writeFile(dir.filePath("headeronly.txt"), "imagesource:x\ngsd:1\n");
    writeFile(dir.filePath("stranger.txt"), "1 1 5 1 5 5 1 5 ghost 0\n");
    writeFile(dir.filePath("a.csv"), "1 1 5 1 5 5 1 5 csv 0\n");
    QList<ImageAnnotations> images{
        image("/p/a.jpg", 10, 10, { box("old", 0, 0, 1, 1) }),
        image("/p/classes.jpg", 10, 10),
        image("/p/headeronly.jpg", 10, 10, { box("old", 0, 0, 1, 1) }),
        image("/p/untouched.jpg", 10, 10, { box("old", 0, 0, 1, 1) }),
    };
    QList<LabelDef> labels;
    const ExportImportResult r = ExportImport::importDota(images, labels, dir.path());
    QCOMPARE(r.count, 3);
    QCOMPARE(describe(images.at(0).boxes), QStringList{ "car 1,1-5,5" });
    QCOMPARE(describe(images.at(1).boxes), QStringList{ "bus 2,2-6,6" });
    QVERIFY(images.at(2).boxes.isEmpty());
    QVERIFY(images.at(2).dirty);
    QCOMPARE(describe(images.at(3).boxes), QStringList{ "old 0,0-1,1" });
    QVERIFY(!images.at(3).dirty);
    QVERIFY(!labelNames(labels).contains("ghost"));

    const ExportImportResult missing = ExportImport::importDota(images, labels, dir.filePath("nowhere"));
    QVERIFY(missing.ok);
    QCOMPARE(missing.count, 0);
}

void TestDota::importUnknownSize()
{
    QTemporaryDir dir;
    const QString imagePath = dir.filePath("pic.png");
    QVERIFY(QImage(200, 100, QImage::Format_RGB32).save(imagePath));
    const QString folder = dir.filePath("dota");
    QVERIFY(QDir().mkpath(folder));
    writeFile(folder + "/pic.txt", "10 10 300 10 300 300 10 300 a 0\n");
    writeFile(folder + "/gone.txt", "10 10 300 10 300 300 10 300 a 0\n");
    QList<ImageAnnotations> images{ image(imagePath, 0, 0), image(dir.filePath("gone.png"), -1, -1) };
    QList<LabelDef> labels;
    QCOMPARE(ExportImport::importDota(images, labels, folder).count, 2);
    QCOMPARE(describe(images.at(0).boxes), QStringList{ "a 10,10-199,99" });
    QCOMPARE(describe(images.at(1).boxes), QStringList{ "a 10,10-0,0" });
    QCOMPARE(images.at(0).width, 0);
}

void TestDota::importLabelOrder()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("img.txt"),
              "1 1 2 1 2 2 1 2 zebra 0\n1 1 2 1 2 2 1 2 car 0\n1 1 2 1 2 2 1 2 Car 0\n1 1 2 1 2 2 1 2 yak 0\n"
              "1 1 2 1 2 2 1 2 zebra 0\n");
    QList<ImageAnnotations> images{ image("img.jpg", 10, 10) };
    QList<LabelDef> labels{ { "object", QColor(0, 220, 220) }, { "car", QColor(1, 2, 3) } };
    ExportImport::importDota(images, labels, dir.path());
    QCOMPARE(labelNames(labels), (QStringList{ "object", "car", "zebra", "Car", "yak" }));
    QCOMPARE(labels.at(1).color, QColor(1, 2, 3));
    QCOMPARE(labels.at(2).color, QColor(100, 220, 100));
    QCOMPARE(labels.at(3).color, QColor(255, 200, 0));
    QCOMPARE(labels.at(4).color, QColor(180, 100, 255));
    QCOMPARE(images.at(0).boxes.size(), 5);
}

void TestDota::roundTrip()
{
    QTemporaryDir dir;
    const QList<ImageAnnotations> images{
        image("/a/one.jpg", 640, 480,
                  { box("plane", 10, 10, 50, 40), box("car", 0, 0, 639, 479), box("ship", 300, 200, 301, 201) }),
        image("/a/two.png", 100, 50, { box(QString::fromUtf8("véhicule"), 5, 5, 5, 5) }),
    };
    QCOMPARE(ExportImport::exportDota(images, dir.filePath("one")).count, 2);

    QList<ImageAnnotations> reimported{ image("/b/one.png", 640, 480), image("/b/two.jpg", 100, 50) };
    QList<LabelDef> labels;
    QCOMPARE(ExportImport::importDota(reimported, labels, dir.filePath("one")).count, 2);
    QCOMPARE(reimported.at(0).boxes, images.at(0).boxes);
    QCOMPARE(reimported.at(1).boxes, images.at(1).boxes);

    QCOMPARE(ExportImport::exportDota(reimported, dir.filePath("two")).count, 2);
    for (const QString& name : { QString("one.txt"), QString("two.txt") })
        QCOMPARE(readAll(dir.filePath("two/" + name)), readAll(dir.filePath("one/" + name)));
}

QTEST_GUILESS_MAIN(TestDota)
#include "tst_dota.moc"
