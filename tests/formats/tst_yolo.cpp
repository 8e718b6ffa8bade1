#include <QtTest>

#include <QImage>
#include <QLocale>
#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "support/records.h"

#define BYTES(literal) QByteArray(literal, sizeof(literal) - 1)

namespace {

ImageAnnotations makeImage(const QString& path, int w, int h, QList<BoxAnnotation> boxes = {})
{
    ImageAnnotations image;
    image.imagePath = path;
    image.xmlPath = QFileInfo(path).completeBaseName() + ".xml";
    image.width = w;
    image.height = h;
    image.boxes = boxes;
    return image;
}

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

QList<LabelDef> labelList(const QStringList& names)
{
    QList<LabelDef> labels;
    for (const QString& n : names)
        labels.append({ n, QColor(1, 1, 1) });
    return labels;
}

// "label l,t-r,b" per box, for compact comparisons.
QStringList describe(const QList<BoxAnnotation>& boxes)
{
    QStringList out;
    for (const BoxAnnotation& b : boxes) {
        QString s = b.label + QLatin1Char(' ');
        QStringList pts;
        for (const QPointF& p : b.points)
            pts.append(QString("%1,%2").arg(p.x()).arg(p.y()));
        out.append(s + pts.join('-'));
    }
    return out;
}

} // namespace

class TestYolo : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportLines_data();
    void exportLines();
    void exportFilesAndMessage();
    void exportSizeFromImageFile();
    void exportIgnoresLocale();
    void exportUnwritableClasses();
    void importLines_data();
    void importLines();
    void importLabelOrder();
    void importReplacesAndMarksDirty();
    void importFileMatching();
    void importUnknownSizes();
    void importWithoutClassesFile();
    void importGarbageFiles_data();
    void importGarbageFiles();
    void roundTrip_data();
    void roundTrip();
};

void TestYolo::exportLines_data()
{
    QTest::addColumn<BoxAnnotation>("annotation");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("box at label index 2") << box("c", 100, 50, 300, 250) << QByteArray("2 0.313281 0.313542 0.314063 0.418750");
    QTest::newRow("corners reversed") << box("c", 300, 250, 100, 50) << QByteArray("2 0.313281 0.313542 0.314063 0.418750");
    QTest::newRow("fractional corners truncate") << box("a", 10.9, 20.99, 29.5, 39.01)
                                                 << QByteArray("0 0.031250 0.062500 0.031250 0.041667");
    QTest::newRow("unknown label is class 0") << box("nope", 0, 0, 639, 479) << QByteArray("0 0.500000 0.500000 1.000000 1.000000");
    QTest::newRow("duplicate name takes first index") << box("b", 0, 0, 63, 47) << QByteArray("1 0.050000 0.050000 0.100000 0.100000");
    QTest::newRow("not clamped") << box("a", -21, -30, 8, 9) << QByteArray("0 -0.009375 -0.020833 0.046875 0.083333");
    QTest::newRow("beyond the image") << box("a", 600, 400, 1279, 959) << QByteArray("0 1.468750 1.416667 1.062500 1.166667");
    QTest::newRow("keypoint") << shape("c", ShapeType::Keypoint, { { 50, 60 } })
                              << QByteArray("2 0.000000 0.000000 0.000000 0.000000");
    QTest::newRow("polygon first two vertices") << shape("a", ShapeType::Polygon, { { 0, 0 }, { 63, 47 }, { 600, 400 } })
                                                << QByteArray("0 0.050000 0.050000 0.100000 0.100000");
    QTest::newRow("ellipse centre and radii") << shape("a", ShapeType::Ellipse, { { 100, 80 }, { 35, 32 } })
                                              << QByteArray("0 0.106250 0.117708 0.103125 0.102083");
    QTest::newRow("nan point") << box("a", std::nan(""), 0, 63, 47) << QByteArray("0 0.050000 0.050000 0.100000 0.100000");
}

void TestYolo::exportLines()
{
    QFETCH(BoxAnnotation, annotation);
    QFETCH(QByteArray, line);

    QTemporaryDir dir;
    const QList<ImageAnnotations> images{ makeImage("/x/img.jpg", 640, 480, { annotation }) };
    const ExportImportResult r = ExportImport::exportYolo(images, labelList({ "a", "b", "c", "b" }), dir.path());
    QVERIFY(r.ok);
    QCOMPARE(readAll(dir.filePath("img.txt")), line + '\n');
}

void TestYolo::exportFilesAndMessage()
{
    QTemporaryDir dir;
    const QString out = dir.filePath("deep/er/out");
    const QList<ImageAnnotations> images{
        makeImage("/d/a/b/img_01.jpg", 100, 100, { box("car", 0, 0, 9, 9), box("bus", 10, 10, 19, 29) }),
        makeImage("/d/empty.jpg", 100, 100),
        makeImage("/d/two.dots.png", 200, 100, { box("car", 0, 0, 99, 99) }),
    };
    const ExportImportResult r = ExportImport::exportYolo(images, labelList({ "unused", "car", "bus" }), out);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 2);
    QCOMPARE(r.message, "Exported 2 YOLO annotation file(s) to:\n" + out);

    QCOMPARE(readAll(out + "/classes.txt"), QByteArray("unused\ncar\nbus\n"));
    QCOMPARE(readAll(out + "/img_01.txt"),
             QByteArray("1 0.050000 0.050000 0.100000 0.100000\n2 0.150000 0.200000 0.100000 0.200000\n"));
    QCOMPARE(readAll(out + "/two.dots.txt"), QByteArray("1 0.250000 0.500000 0.500000 1.000000\n"));
    QStringList files = QDir(out).entryList(QDir::Files);
    files.sort();
    QCOMPARE(files, (QStringList{ "classes.txt", "img_01.txt", "two.dots.txt" }));

    // An empty label list still writes classes.txt; existing files are replaced.
    const ExportImportResult again = ExportImport::exportYolo(images, {}, out);
    QCOMPARE(again.count, 2);
    QCOMPARE(readAll(out + "/classes.txt"), QByteArray());
    QCOMPARE(readAll(out + "/two.dots.txt"), QByteArray("0 0.250000 0.500000 0.500000 1.000000\n"));
}

void TestYolo::exportSizeFromImageFile()
{
    QTemporaryDir dir;
    const QString imagePath = dir.filePath("pic.png");
    QVERIFY(QImage(200, 100, QImage::Format_RGB32).save(imagePath));
    QList<ImageAnnotations> images{
        makeImage(imagePath, 0, 0, { box("a", 0, 0, 49, 49) }),
        makeImage(dir.filePath("gone.png"), 0, 0, { box("a", 10, 20, 19, 29) }),
    };
    const QString out = dir.filePath("out");
    QCOMPARE(ExportImport::exportYolo(images, labelList({ "a" }), out).count, 2);
    QCOMPARE(readAll(out + "/pic.txt"), QByteArray("0 0.125000 0.250000 0.250000 0.500000\n"));
    // Unreadable image: 1 x 1, so the values are pixels.
    QCOMPARE(readAll(out + "/gone.txt"), QByteArray("0 15.000000 25.000000 10.000000 10.000000\n"));
    QCOMPARE(images.at(0).width, 0);
}

void TestYolo::exportIgnoresLocale()
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QTemporaryDir dir;
    const QList<ImageAnnotations> images{ makeImage("img.jpg", 640, 480, { box("a", 100, 50, 300, 250) }) };
    ExportImport::exportYolo(images, labelList({ "a" }), dir.path());
    QLocale::setDefault(previous);
    QCOMPARE(readAll(dir.filePath("img.txt")), QByteArray("0 0.313281 0.313542 0.314063 0.418750\n"));
}

void TestYolo::exportUnwritableClasses()
{
    QTemporaryDir dir;
    // A regular file where the folder should be: nothing can be created inside it.
    const QString blocked = dir.filePath("blocked");
    writeFile(blocked, "file");
    const QList<ImageAnnotations> images{ makeImage("img.jpg", 10, 10, { box("a", 0, 0, 1, 1) }) };
    const ExportImportResult r = ExportImport::exportYolo(images, labelList({ "a" }), blocked);
    QVERIFY(!r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, "Cannot write classes.txt to " + blocked + "\nNot a directory");
    QCOMPARE(readAll(blocked), QByteArray("file"));
}

void TestYolo::importLines_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<QStringList>("newLabels");

    // Image 640 x 480; classes.txt holds "car", "bus", "van"; the session knows "object".
    QTest::newRow("centred") << QByteArray("0 0.5 0.5 0.25 0.25\n") << QStringList{ "car 240,180-399,299" } << QStringList{ "car" };
    QTest::newRow("class beyond names") << QByteArray("7 0.5 0.5 0.1 0.1") << QStringList{ "class_7 288,216-351,263" }
                                        << QStringList{ "class_7" };
    QTest::newRow("negative class") << QByteArray("-1 0.5 0.5 0.1 0.1") << QStringList{ "class_-1 288,216-351,263" }
                                    << QStringList{ "class_-1" };
    QTest::newRow("class not an integer") << QByteArray("1.5 0.5 0.5 0.1 0.1") << QStringList{ "car 288,216-351,263" }
                                          << QStringList{ "car" };
    QTest::newRow("class beyond int") << QByteArray("4294967297 0.5 0.5 0.1 0.1")
                                      << QStringList{ "car 288,216-351,263" } << QStringList{ "car" };
    QTest::newRow("several blanks, extra fields") << QByteArray("  2   0.5  0.5 0.1 0.1 0.99 extra  \n")
                                                  << QStringList{ "van 288,216-351,263" } << QStringList{ "van" };
    QTest::newRow("tab is not a separator") << QByteArray("1\t0.5 0.5 0.1 0.1\n") << QStringList{} << QStringList{};
    QTest::newRow("four fields") << QByteArray("1 0.5 0.5 0.1\n") << QStringList{} << QStringList{};
    QTest::newRow("blank lines and CRLF") << QByteArray("\r\n\n1 0.5 0.5 0.1 0.1\r\n   \n")
                                          << QStringList{ "bus 288,216-351,263" } << QStringList{ "bus" };
    QTest::newRow("clamped to the image") << QByteArray("0 0.9 0.1 0.4 0.4") << QStringList{ "car 448,0-639,143" }
                                          << QStringList{ "car" };
    QTest::newRow("entirely outside stays inverted")
        << QByteArray("0 2 2 0.1 0.1") << QStringList{ "car 1248,936-639,479" } << QStringList{ "car" };
    QTest::newRow("zero size box") << QByteArray("0 0.5 0.5 0 0") << QStringList{ "car 319,239-320,240" }
                                   << QStringList{ "car" };
    QTest::newRow("nan and inf read as 0") << QByteArray("0 nan 0.5 inf 0.1") << QStringList{ "car 0,216-0,263" }
                                           << QStringList{ "car" };
    QTest::newRow("not numbers read as 0") << QByteArray("0 x y 0.1 0.1") << QStringList{ "car 0,0-31,23" }
                                           << QStringList{ "car" };
    QTest::newRow("huge values") << QByteArray("0 1e308 -1e308 1e308 1e300") << QStringList{ "car 0,0-0,479" }
                                 << QStringList{ "car" };
    QTest::newRow("literal beyond double") << QByteArray("0 0.5 0.5 1e999 0.1") << QStringList{ "car 319,216-320,263" }
                                           << QStringList{ "car" };
    QTest::newRow("existing label keeps its place") << QByteArray("0 0.5 0.5 0.1 0.1\n3 0.5 0.5 0.1 0.1")
                                                    << QStringList{ "car 288,216-351,263", "class_3 288,216-351,263" }
                                                    << QStringList{ "car", "class_3" };
    QTest::newRow("non-utf8 garbage") << BYTES("\xff\xfe\x00garbage\n\x80 0.5 0.5 0.1 0.1\n")
                                      << QStringList{ "car 288,216-351,263" } << QStringList{ "car" };
}

void TestYolo::importLines()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, boxes);
    QFETCH(QStringList, newLabels);

    QTemporaryDir dir;
    writeFile(dir.filePath("classes.txt"), "car\nbus\nvan\n");
    writeFile(dir.filePath("img.txt"), content);
    QList<ImageAnnotations> images{ makeImage("/data/img.jpg", 640, 480) };
    QList<LabelDef> labels{ { "object", QColor(0, 220, 220) } };

    const ExportImportResult r = ExportImport::importYolo(images, labels, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QCOMPARE(describe(images.at(0).boxes), boxes);
    QCOMPARE(labelNames(labels), QStringList{ "object" } + newLabels);
    for (const BoxAnnotation& b : images.at(0).boxes) {
        QCOMPARE(b.type, ShapeType::BoundingBox);
        QCOMPARE(b.points.size(), 2);
    }
    QVERIFY(images.at(0).dirty);
}

void TestYolo::importLabelOrder()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("classes.txt"), "  zebra \n\n\tyak\nxenops\nwolf\n");
    writeFile(dir.filePath("img.txt"), "2 0.5 0.5 0.1 0.1\n9 0.5 0.5 0.1 0.1\n0 0.5 0.5 0.1 0.1\n2 0.5 0.5 0.1 0.1\n");
    QList<ImageAnnotations> images{ makeImage("img.jpg", 100, 100) };
    QList<LabelDef> labels;
    for (int i = 0; i < 7; ++i)
        labels.append({ QString("l%1").arg(i), QColor(9, 9, 9) });
    labels.append({ "zebra", QColor(1, 2, 3) });

    ExportImport::importYolo(images, labels, dir.path());
    // Blank lines of classes.txt do not count, so index 2 is xenops; names no line uses
    // (yak, wolf) are not added; first met, first appended.
    QCOMPARE(labelNames(labels).mid(7), (QStringList{ "zebra", "xenops", "class_9" }));
    QCOMPARE(labels.at(7).color, QColor(1, 2, 3));
    QCOMPARE(labels.at(8).color, QColor(0, 220, 220)); // 8 labels before it: entry 0 again
    QCOMPARE(labels.at(9).color, QColor(255, 100, 100));
    QCOMPARE(images.at(0).boxes.size(), 4);
    QCOMPARE(images.at(0).boxes.at(2).label, QString("zebra"));
}

void TestYolo::importReplacesAndMarksDirty()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("a.txt"), "0 0.5 0.5 0.5 0.5\n");
    writeFile(dir.filePath("b.txt"), ""); // a 0-byte file empties the image
    QList<ImageAnnotations> images{
        makeImage("a.jpg", 10, 10, { box("old", 1, 1, 2, 2), box("old", 3, 3, 4, 4) }),
        makeImage("b.jpg", 10, 10, { box("old", 1, 1, 2, 2) }),
        makeImage("c.jpg", 10, 10, { box("old", 1, 1, 2, 2) }),
    };
    QList<LabelDef> labels;
    const ExportImportResult r = ExportImport::importYolo(images, labels, dir.path());
    QCOMPARE(r.count, 2);
    QCOMPARE(r.message, QString("Imported YOLO annotations for 2 image(s)."));
    QCOMPARE(describe(images.at(0).boxes), QStringList{ "class_0 2,2-6,6" });
    QVERIFY(images.at(0).dirty);
    QVERIFY(images.at(1).boxes.isEmpty());
    QVERIFY(images.at(1).dirty);
    QCOMPARE(images.at(2).boxes.size(), 1);
    QVERIFY(!images.at(2).dirty);
}

void TestYolo::importFileMatching()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("classes.txt"), "0 0.5 0.5 0.5 0.5\n");
    writeFile(dir.filePath("dup.txt"), "0 0.5 0.5 0.5 0.5\n");
    writeFile(dir.filePath("img_01.txt"), "0 0.5 0.5 0.5 0.5\n");
    writeFile(dir.filePath("stranger.txt"), "0 0.5 0.5 0.5 0.5\n");
    writeFile(dir.filePath("img_01.csv"), "0 0.5 0.5 0.5 0.5\n");
    QVERIFY(QDir(dir.path()).mkdir("sub.txt"));

    QList<ImageAnnotations> images{
        makeImage("/p/classes.jpg", 10, 10, { box("keep", 1, 1, 2, 2) }),
        makeImage("/p/dup.jpg", 10, 10),
        makeImage("/q/dup.png", 10, 10),
        makeImage("/p/img_01.png", 10, 10),
        makeImage("/p/sub.jpg", 10, 10),
    };
    QList<LabelDef> labels;
    const ExportImportResult r = ExportImport::importYolo(images, labels, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 2);
    // classes.txt is never a label file, even for an image named classes.
    QCOMPARE(describe(images.at(0).boxes), QStringList{ "keep 1,1-2,2" });
    QVERIFY(!images.at(0).dirty);
    // The later of two images with the same base name gets the file.
    QVERIFY(images.at(1).boxes.isEmpty());
    QVERIFY(!images.at(1).dirty);
    QCOMPARE(images.at(2).boxes.size(), 1);
    QCOMPARE(images.at(3).boxes.size(), 1);
    QVERIFY(!images.at(4).dirty);
    // The first line of classes.txt names class 0.
    QCOMPARE(images.at(3).boxes.first().label, QString("0 0.5 0.5 0.5 0.5"));
}

void TestYolo::importUnknownSizes()
{
    QTemporaryDir dir;
    const QString imagePath = dir.filePath("pic.png");
    QVERIFY(QImage(200, 100, QImage::Format_RGB32).save(imagePath));
    const QString labels = dir.filePath("labels");
    QVERIFY(QDir().mkpath(labels));
    writeFile(labels + "/pic.txt", "0 0.5 0.5 0.5 0.5\n");
    writeFile(labels + "/gone.txt", "0 0.5 0.5 0.5 0.5\n0 0.5 0.5 3 3\n");

    QList<ImageAnnotations> images{ makeImage(imagePath, 0, 0), makeImage(dir.filePath("gone.jpg"), 0, 7) };
    QList<LabelDef> labelList;
    QCOMPARE(ExportImport::importYolo(images, labelList, labels).count, 2);
    QCOMPARE(describe(images.at(0).boxes), QStringList{ "class_0 50,25-149,74" });
    // 1 x 1: every box ends up in the single pixel (0, 0).
    QCOMPARE(describe(images.at(1).boxes), (QStringList{ "class_0 0,0-0,0", "class_0 0,0-0,0" }));
    QCOMPARE(images.at(0).width, 0);
}

void TestYolo::importWithoutClassesFile()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("img.txt"), "0 0.5 0.5 0.5 0.5\n1 0.5 0.5 0.5 0.5\n");
    QList<ImageAnnotations> images{ makeImage("img.jpg", 10, 10) };
    QList<LabelDef> labels;
    QVERIFY(ExportImport::importYolo(images, labels, dir.path()).ok);
    QCOMPARE(labelNames(labels), (QStringList{ "class_0", "class_1" }));

    // Missing folder: nothing to read, still a success.
    const ExportImportResult r = ExportImport::importYolo(images, labels, dir.filePath("nowhere"));
    QVERIFY(r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, QString("Imported YOLO annotations for 0 image(s)."));
}

void TestYolo::importGarbageFiles_data()
{
    QTest::addColumn<QByteArray>("classes");
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("binary") << BYTES("\x00\x01\x02") << BYTES("\x00\xff\xfe 1 2 3 4 5\x00\n\x89PNG\r\n");
    QTest::newRow("only blanks") << QByteArray("   \n\n") << QByteArray("      \n \n");
    QTest::newRow("long line") << QByteArray("a\n") << QByteArray(100000, '9');
    QTest::newRow("minus signs") << QByteArray() << QByteArray("- - - - -\n-- -. .- e5 1e\n");
    QTest::newRow("extreme numbers") << QByteArray("a")
                                     << QByteArray("2147483647 1.7976931348623157e308 -1.7976931348623157e308 "
                                                   "1.7976931348623157e308 1.7976931348623157e308\n"
                                                   "-2147483648 -1e308 1e308 -1e308 -1e308\n"
                                                   "0 4.9e-324 -4.9e-324 NaN -Infinity\n");
}

void TestYolo::importGarbageFiles()
{
    QFETCH(QByteArray, classes);
    QFETCH(QByteArray, content);

    QTemporaryDir dir;
    writeFile(dir.filePath("classes.txt"), classes);
    writeFile(dir.filePath("img.txt"), content);
    QList<ImageAnnotations> images{ makeImage("img.jpg", 64, 48) };
    QList<LabelDef> labels;
    const ExportImportResult r = ExportImport::importYolo(images, labels, dir.path());
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    for (const BoxAnnotation& b : images.at(0).boxes) {
        QCOMPARE(b.points.size(), 2);
        for (const QPointF& p : b.points) {
            QVERIFY(p.x() >= 0 && p.x() <= 64);
            QVERIFY(p.y() >= 0 && p.y() <= 48);
        }
    }
}

void TestYolo::roundTrip_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QList<BoxAnnotation>>("boxes");

    QTest::newRow("centred quarter") << QSize(640, 480) << QList<BoxAnnotation>{ box("car", 240, 180, 399, 299) };
    QTest::newRow("several labels") << QSize(1000, 1000)
                                    << QList<BoxAnnotation>{ box("car", 0, 0, 99, 199), box("bus", 500, 250, 749, 999),
                                                             box("object", 10, 20, 29, 59) };
    QTest::newRow("whole image") << QSize(800, 600) << QList<BoxAnnotation>{ box("bus", 0, 0, 799, 599) };
}

void TestYolo::roundTrip()
{
    QFETCH(QSize, size);
    QFETCH(QList<BoxAnnotation>, boxes);

    QTemporaryDir dir;
    const QList<LabelDef> labels = labelList({ "object", "car", "bus" });
    QList<ImageAnnotations> images{ makeImage("/a/frame.jpg", size.width(), size.height(), boxes) };
    QVERIFY(ExportImport::exportYolo(images, labels, dir.filePath("one")).ok);

    QList<ImageAnnotations> reimported{ makeImage("/b/frame.png", size.width(), size.height()) };
    QList<LabelDef> reLabels = labels;
    QCOMPARE(ExportImport::importYolo(reimported, reLabels, dir.filePath("one")).count, 1);
    QCOMPARE(labelNames(reLabels), labelNames(labels));
    QCOMPARE(reimported.at(0).boxes, boxes);

    QVERIFY(ExportImport::exportYolo(reimported, reLabels, dir.filePath("two")).ok);
    QCOMPARE(readAll(dir.filePath("two/frame.txt")), readAll(dir.filePath("one/frame.txt")));
    QCOMPARE(readAll(dir.filePath("two/classes.txt")), readAll(dir.filePath("one/classes.txt")));
}

QTEST_GUILESS_MAIN(TestYolo)
#include "tst_yolo.moc"
