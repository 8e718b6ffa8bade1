#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

#include "formats/exportimport.h"
#include "model/labelpalette.h"
#include "support/records.h"

namespace {

const QByteArray kHeader("filename,width,height,class,xmin,ymin,xmax,ymax\n");

QList<LabelDef> labelList(const QStringList& names)
{
    QList<LabelDef> labels;
    for (const QString& n : names)
        LabelPalette::appendIfMissing(labels, n);
    return labels;
}

// "image:label:(x0,y0)-(x1,y1)" for every box, image by image.
QStringList describeBoxes(const QList<ImageAnnotations>& images)
{
    QStringList out;
    for (int i = 0; i < images.size(); ++i) {
        for (const BoxAnnotation& b : images.at(i).boxes) {
            QStringList pts;
            for (const QPointF& p : b.points)
                pts << QStringLiteral("(%1,%2)").arg(QString::number(p.x(), 'g', 15),
                                                     QString::number(p.y(), 'g', 15));
            out << QStringLiteral("%1:%2:").arg(i).arg(b.label) + pts.join(u'-');
        }
    }
    return out;
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

} // namespace

class TestCsv : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportRow_data();
    void exportRow();
    void exportFile();
    void exportEmptyDataset();
    void exportUnwritable();
    void exportImageSizeRule();
    void import_data();
    void import();
    void importLabelsAndDirty();
    void importMissingFile();
    void importImageSizeRule();
    void roundTrip();

private:
    QTemporaryDir m_dir;
};

void TestCsv::exportRow_data()
{
    QTest::addColumn<QString>("imagePath");
    QTest::addColumn<BoxAnnotation>("annotation");
    QTest::addColumn<QByteArray>("row");

    const QString jpg = QStringLiteral("/data/images/img.jpg");

    QTest::newRow("box") << jpg << box("car", 100, 50, 300, 250) << QByteArray("img.jpg,640,480,car,100,50,300,250\n");
    QTest::newRow("corners reversed") << jpg << box("car", 300, 250, 100, 50)
                                      << QByteArray("img.jpg,640,480,car,100,50,300,250\n");
    QTest::newRow("fractions truncate") << jpg << box("car", 10.7, 20.2, 110.9, 220.99)
                                        << QByteArray("img.jpg,640,480,car,10,20,110,220\n");
    // Rows are not clamped to the image; negatives truncate toward zero.
    QTest::newRow("outside the image") << jpg << box("car", -5.9, -0.5, 900, 700)
                                       << QByteArray("img.jpg,640,480,car,-5,0,900,700\n");
    QTest::newRow("keypoint") << jpg << shape("nose", ShapeType::Keypoint, {QPointF(3, 4)})
                              << QByteArray("img.jpg,640,480,nose,0,0,-1,-1\n");
    QTest::newRow("no points") << jpg << shape("car", ShapeType::BoundingBox, {})
                               << QByteArray("img.jpg,640,480,car,0,0,-1,-1\n");
    QTest::newRow("polygon first two points")
        << jpg << shape("p", ShapeType::Polygon, {QPointF(50, 60), QPointF(10, 20), QPointF(600, 400)})
        << QByteArray("img.jpg,640,480,p,10,20,50,60\n");
    QTest::newRow("comma in label written as is") << jpg << box("red, car", 1, 2, 3, 4)
                                                   << QByteArray("img.jpg,640,480,red, car,1,2,3,4\n");
    QTest::newRow("comma in file name") << QStringLiteral("/d/a,b.png") << box("car", 1, 2, 3, 4)
                                        << QByteArray("a,b.png,640,480,car,1,2,3,4\n");
    QTest::newRow("unicode") << QStringLiteral("/d/bäume.png") << box("Bär", 1, 2, 3, 4)
                             << QByteArray("b\xc3\xa4ume.png,640,480,B\xc3\xa4r,1,2,3,4\n");
    QTest::newRow("two dots keeps whole name") << QStringLiteral("/d/a.b.png") << box("car", 1, 2, 3, 4)
                                               << QByteArray("a.b.png,640,480,car,1,2,3,4\n");
}

void TestCsv::exportRow()
{
    QFETCH(QString, imagePath);
    QFETCH(BoxAnnotation, annotation);
    QFETCH(QByteArray, row);

    const QString path = m_dir.filePath(QStringLiteral("row.csv"));
    const ExportImportResult r = ExportImport::exportCsv({image(imagePath, 640, 480, {annotation})}, path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);
    QCOMPARE(readAll(path), kHeader + row);
}

void TestCsv::exportFile()
{
    const QString path = m_dir.filePath(QStringLiteral("all.csv"));
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/d/a.png"), 100, 80, {box("x", 1, 2, 3, 4), box("y", 5, 6, 7, 8)}),
        image(QStringLiteral("/d/b.png"), 100, 80),
        image(QStringLiteral("/d/c.jpg"), 30, 20, {box("x", 9, 9, 10, 10)}),
    };
    const ExportImportResult r = ExportImport::exportCsv(images, path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 3);
    QCOMPARE(r.message, QStringLiteral("Exported 3 CSV row(s) to:\n") + path);
    QCOMPARE(readAll(path), kHeader
                 + "a.png,100,80,x,1,2,3,4\n"
                   "a.png,100,80,y,5,6,7,8\n"
                   "c.jpg,30,20,x,9,9,10,10\n");
}

void TestCsv::exportEmptyDataset()
{
    const QString path = m_dir.filePath(QStringLiteral("empty.csv"));
    writeAll(path, QByteArray(5000, 'z'));
    const ExportImportResult r =
        ExportImport::exportCsv({image(QStringLiteral("/d/a.png"), 10, 10)}, path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, QStringLiteral("Exported 0 CSV row(s) to:\n") + path);
    QCOMPARE(readAll(path), kHeader);
}

void TestCsv::exportUnwritable()
{
    const QList<ImageAnnotations> images{image(QStringLiteral("a.png"), 10, 10, {box("x", 1, 1, 2, 2)})};
    const QString path = m_dir.filePath(QStringLiteral("missing/dir/out.csv"));
    const ExportImportResult r = ExportImport::exportCsv(images, path);
    QVERIFY(!r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, QStringLiteral("Cannot write to ") + path + "\nNo such file or directory");
    QVERIFY(!QFile::exists(path));

    const QString folder = m_dir.filePath(QStringLiteral("folder.csv"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(!ExportImport::exportCsv(images, folder).ok);
    QVERIFY(QFileInfo(folder).isDir());
}

void TestCsv::exportImageSizeRule()
{
    const QString png = m_dir.filePath(QStringLiteral("sized.png"));
    QImage pixels(21, 13, QImage::Format_RGB32);
    pixels.fill(Qt::white);
    QVERIFY(pixels.save(png));

    const QString path = m_dir.filePath(QStringLiteral("sizes.csv"));
    const QList<ImageAnnotations> images{
        image(png, 0, 5, {box("x", 0, 0, 1, 1)}),
        image(m_dir.filePath(QStringLiteral("gone.png")), 0, 0, {box("x", 0, 0, 1, 1)}),
    };
    QVERIFY(ExportImport::exportCsv(images, path).ok);
    QCOMPARE(readAll(path), kHeader + "sized.png,21,13,x,0,0,1,1\ngone.png,1,1,x,0,0,1,1\n");
}

void TestCsv::import_data()
{
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<QStringList>("expectedBoxes");

    // Session: 0 = /s/img.jpg 640x480, 1 = /a/dup.png 10x10, 2 = /b/dup.png 20x20.
    const QByteArray h = kHeader;

    QTest::newRow("exported row")
        << h + "img.jpg,640,480,car,100,50,300,250\n" << QStringList{"0:car:(100,50)-(300,250)"};
    QTest::newRow("header line is never data")
        << QByteArray("img.jpg,640,480,car,1,2,3,4\nimg.jpg,640,480,bus,5,6,7,8\n")
        << QStringList{"0:bus:(5,6)-(7,8)"};
    QTest::newRow("no final newline") << h + "img.jpg,1,1,car,1,2,3,4" << QStringList{"0:car:(1,2)-(3,4)"};
    QTest::newRow("crlf and blank lines")
        << QByteArray("filename,width\r\n\r\n   \r\nimg.jpg,640,480,car,1,2,3,4\r\n\t\nimg.jpg,640,480,bus,5,6,7,8\r\n")
        << QStringList{"0:car:(1,2)-(3,4)", "0:bus:(5,6)-(7,8)"};
    QTest::newRow("blanks around file name and label")
        << h + "  img.jpg ,640,480,  car  ,1,2,3,4\n" << QStringList{"0:car:(1,2)-(3,4)"};
    QTest::newRow("blanks inside numbers") << h + "img.jpg,640,480,car, 1 ,2 , 3,4\n"
                                           << QStringList{"0:car:(1,2)-(3,4)"};
    QTest::newRow("other extension does not match") << h + "img.png,640,480,car,1,2,3,4\n" << QStringList{};
    QTest::newRow("file name is case-sensitive") << h + "IMG.jpg,640,480,car,1,2,3,4\n" << QStringList{};
    QTest::newRow("folders in file name do not match") << h + "s/img.jpg,640,480,car,1,2,3,4\n" << QStringList{};
    QTest::newRow("too few fields") << h + "img.jpg,640,480,car,1,2,3\nimg.jpg\n,,,,,,\n" << QStringList{};
    QTest::newRow("extra fields ignored") << h + "img.jpg,640,480,car,1,2,3,4,99,extra\n"
                                          << QStringList{"0:car:(1,2)-(3,4)"};
    QTest::newRow("width and height ignored") << h + "img.jpg,wide,-7,car,1,2,3,4\n"
                                              << QStringList{"0:car:(1,2)-(3,4)"};
    // The quotes are not understood: the label becomes "car and xmin reads as 0.
    QTest::newRow("quoted label with comma shifts fields")
        << h + "img.jpg,640,480,\"car,red\",1,2,3,4\n" << QStringList{"0:\"car:(0,1)-(2,3)"};
    QTest::newRow("non-integer numbers read as 0")
        << h + "img.jpg,640,480,a,12.5,nan,inf,1e308\nimg.jpg,640,480,b,0x10,,abc,-inf\n"
        << QStringList{"0:a:(0,0)-(0,0)", "0:b:(0,0)-(0,0)"};
    QTest::newRow("beyond int range reads as 0")
        << h + "img.jpg,640,480,car,99999999999,5,-99999999999,7\n" << QStringList{"0:car:(0,5)-(0,7)"};
    QTest::newRow("int limits clamp")
        << h + "img.jpg,640,480,car,-2147483648,-2147483648,2147483647,2147483647\n"
        << QStringList{"0:car:(0,0)-(639,479)"};
    QTest::newRow("clamped to the image") << h + "img.jpg,640,480,car,-20,-5,1000,479\n"
                                          << QStringList{"0:car:(0,0)-(639,479)"};
    QTest::newRow("reversed corners normalised") << h + "img.jpg,640,480,car,300,250,100,50\n"
                                                 << QStringList{"0:car:(101,51)-(299,249)"};
    QTest::newRow("entirely outside stays outside") << h + "img.jpg,640,480,car,700,10,800,20\n"
                                                    << QStringList{"0:car:(700,10)-(639,20)"};
    QTest::newRow("shared file name goes to the later image")
        << h + "dup.png,1,1,car,1,1,30,30\n" << QStringList{"2:car:(1,1)-(19,19)"};
    QTest::newRow("non-utf8 label") << h + "img.jpg,640,480,c\xff\xfe,1,2,3,4\n"
                                    << QStringList{QStringLiteral("0:c\uFFFD\uFFFD:(1,2)-(3,4)")};
    QTest::newRow("non-utf8 file name") << h + "img\xff.jpg,640,480,car,1,2,3,4\n" << QStringList{};
    QTest::newRow("nul bytes") << h + QByteArray("img.jpg,640,480,car,1,\0,3,4\n", 28) << QStringList{"0:car:(1,0)-(3,4)"};
    QTest::newRow("empty file") << QByteArray() << QStringList{};
    QTest::newRow("header only") << h << QStringList{};
}

void TestCsv::import()
{
    QFETCH(QByteArray, csv);
    QFETCH(QStringList, expectedBoxes);

    QList<ImageAnnotations> images{
        image(QStringLiteral("/s/img.jpg"), 640, 480),
        image(QStringLiteral("/a/dup.png"), 10, 10),
        image(QStringLiteral("/b/dup.png"), 20, 20),
    };
    QList<LabelDef> labels = labelList({"object"});
    const QString path = m_dir.filePath(QStringLiteral("in.csv"));
    writeAll(path, csv);

    const ExportImportResult r = ExportImport::importCsv(images, labels, path);
    QVERIFY(r.ok);
    QCOMPARE(describeBoxes(images), expectedBoxes);
    QCOMPARE(r.count, int(expectedBoxes.size()));
    QCOMPARE(r.message, QStringLiteral("Imported %1 CSV annotation(s).").arg(expectedBoxes.size()));
    for (const ImageAnnotations& img : images)
        QCOMPARE(img.dirty, !img.boxes.isEmpty());
}

void TestCsv::importLabelsAndDirty()
{
    QList<ImageAnnotations> images{
        image(QStringLiteral("/s/a.png"), 100, 100, {box("old", 1, 1, 2, 2)}),
        image(QStringLiteral("/s/b.png"), 100, 100),
        image(QStringLiteral("/s/c.png"), 100, 100),
    };
    QList<LabelDef> labels = labelList({"object", "car"});
    labels[1].color = QColor(1, 2, 3);
    const QString path = m_dir.filePath(QStringLiteral("labels.csv"));
    writeAll(path, kHeader
                 + "a.png,0,0,zebra,1,1,2,2\n"
                   "unknown.png,0,0,never,1,1,2,2\n"
                   "b.png,0,0,car,1,1,2,2\n"
                   "a.png,0,0,ant,3,3,4,4\n"
                   "a.png,0,0,zebra,5,5,6,6\n");

    const ExportImportResult r = ExportImport::importCsv(images, labels, path);
    QCOMPARE(r.count, 4);
    // New labels in row order with the palette colour of their position; existing ones untouched.
    QCOMPARE(labelNames(labels), (QStringList{"object", "car", "zebra", "ant"}));
    QCOMPARE(labels.at(1).color, QColor(1, 2, 3));
    QCOMPARE(labels.at(2).color, LabelPalette::colorForIndex(2));
    QCOMPARE(labels.at(3).color, LabelPalette::colorForIndex(3));
    QCOMPARE(describeBoxes(images), (QStringList{"0:old:(1,1)-(2,2)", "0:zebra:(1,1)-(2,2)", "0:ant:(3,3)-(4,4)",
                                                 "0:zebra:(5,5)-(6,6)", "1:car:(1,1)-(2,2)"}));
    QVERIFY(images.at(0).dirty);
    QVERIFY(images.at(1).dirty);
    QVERIFY(!images.at(2).dirty);
    for (const BoxAnnotation& b : images.at(0).boxes) {
        QCOMPARE(b.type, ShapeType::BoundingBox);
        QVERIFY(b.visible);
        QCOMPARE(b.angle, 0.0);
    }
}

void TestCsv::importMissingFile()
{
    QList<ImageAnnotations> images{image(QStringLiteral("/s/img.jpg"), 640, 480)};
    QList<LabelDef> labels;
    const QString folder = m_dir.filePath(QStringLiteral("folder.csv"));
    QVERIFY(QDir().mkpath(folder));
    for (const QString& path : {m_dir.filePath(QStringLiteral("absent.csv")), folder}) {
        const ExportImportResult r = ExportImport::importCsv(images, labels, path);
        QVERIFY(!r.ok);
        QCOMPARE(r.count, 0);
        QCOMPARE(r.message, QStringLiteral("Cannot open ") + path);
    }
    QVERIFY(labels.isEmpty());
}

void TestCsv::importImageSizeRule()
{
    const QString png = m_dir.filePath(QStringLiteral("fifty.png"));
    QImage pixels(50, 40, QImage::Format_RGB32);
    pixels.fill(Qt::black);
    QVERIFY(pixels.save(png));

    QList<ImageAnnotations> images{image(png, 0, 0), image(m_dir.filePath(QStringLiteral("gone.png")), 0, 0)};
    QList<LabelDef> labels;
    const QString path = m_dir.filePath(QStringLiteral("sizes-in.csv"));
    writeAll(path, kHeader + "fifty.png,1,1,x,10,10,100,100\nfifty.png,1,1,x,0,0,5,5\ngone.png,9,9,x,3,3,9,9\n");
    QCOMPARE(ExportImport::importCsv(images, labels, path).count, 3);
    QCOMPARE(describeBoxes(images),
             (QStringList{"0:x:(10,10)-(49,39)", "0:x:(0,0)-(5,5)", "1:x:(3,3)-(0,0)"}));
    QCOMPARE(images.at(0).width, 0);
}

void TestCsv::roundTrip()
{
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/d/a.jpg"), 640, 480,
              {box("car", 100, 50, 300, 250), box("person", 0, 0, 639, 479), box("tree", 7, 7, 7, 7)}),
        image(QStringLiteral("/d/b.png"), 320, 200),
        image(QStringLiteral("/d/c.bmp"), 320, 200, {box("tree", 319, 199, 300, 150), box("Bär", 1, 2, 3, 4)}),
    };
    QList<ImageAnnotations> fresh = images;
    for (ImageAnnotations& img : fresh)
        img.boxes.clear();

    const QString first = m_dir.filePath(QStringLiteral("rt1.csv"));
    QVERIFY(ExportImport::exportCsv(images, first).ok);
    QList<LabelDef> labels;
    QCOMPARE(ExportImport::importCsv(fresh, labels, first).count, 5);
    QCOMPARE(labelNames(labels), (QStringList{"car", "person", "tree", "Bär"}));
    const QString second = m_dir.filePath(QStringLiteral("rt2.csv"));
    QVERIFY(ExportImport::exportCsv(fresh, second).ok);
    QCOMPARE(readAll(second), readAll(first));
}

QTEST_GUILESS_MAIN(TestCsv)
#include "tst_csv.moc"
