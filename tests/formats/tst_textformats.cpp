#include <QtTest>

#include "formats/exportimport.h"
#include "support/corefiles.h"

// The plain-text interchange formats: YOLO, DOTA, CSV and class name lists.

using Images = QList<ImageAnnotations>;
using namespace ExportImport;

namespace {

const QByteArray kHeader("filename,width,height,class,xmin,ymin,xmax,ymax\n");

// Imports `content` as the file of /s/img.jpg in `format` ("yolo" reads classes car, bus, van).
ExportImportResult importText(const QString& format, const QByteArray& content, Images& images, QList<LabelDef>& labels)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(format == "csv" ? "in.csv" : "img.txt");
    if (!writeFile(file, content) || !writeFile(dir.filePath("classes.txt"), "car\nbus\nvan\n"))
        return {};
    if (format == "yolo")
        return importYolo(images, labels, dir.path());
    return format == "dota" ? importDota(images, labels, dir.path()) : importCsv(images, labels, file);
}

} // namespace

class TestTextFormats : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportLine_data()
    {
        // line: for a 640 x 480 image and the labels a, b, c, b
        columns<QString, QString, BoxAnnotation, QByteArray>("format", "imagePath", "annotation", "line");
        const QString img = "/x/img.jpg";
        const double nan = std::nan("");
        QTest::newRow("yolo box of label 2") << "yolo" << img << box("c", 100, 50, 300, 250) << QByteArray("2 0.313281 0.313542 0.314063 0.418750");
        QTest::newRow("yolo reversed") << "yolo" << img << box("c", 300, 250, 100, 50) << QByteArray("2 0.313281 0.313542 0.314063 0.418750");
        QTest::newRow("yolo fractions truncate") << "yolo" << img << box("a", 10.9, 20.99, 29.5, 39.01) << QByteArray("0 0.031250 0.062500 0.031250 0.041667");
        QTest::newRow("yolo unknown label is class 0") << "yolo" << img << box("nope", 0, 0, 639, 479) << QByteArray("0 0.500000 0.500000 1.000000 1.000000");
        QTest::newRow("yolo first of equal labels") << "yolo" << img << box("b", 0, 0, 63, 47) << QByteArray("1 0.050000 0.050000 0.100000 0.100000");
        QTest::newRow("yolo not clamped") << "yolo" << img << box("a", -21, -30, 8, 9) << QByteArray("0 -0.009375 -0.020833 0.046875 0.083333");
        QTest::newRow("yolo beyond the image") << "yolo" << img << box("a", 600, 400, 1279, 959) << QByteArray("0 1.468750 1.416667 1.062500 1.166667");
        QTest::newRow("yolo keypoint") << "yolo" << img << shape("c", ShapeType::Keypoint, {{50, 60}}) << QByteArray("2 0.000000 0.000000 0.000000 0.000000");
        QTest::newRow("yolo polygon: first two") << "yolo" << img << shape("a", ShapeType::Polygon, {{0, 0}, {63, 47}, {600, 400}})
                                                 << QByteArray("0 0.050000 0.050000 0.100000 0.100000");
        QTest::newRow("yolo ellipse") << "yolo" << img << shape("a", ShapeType::Ellipse, {{100, 80}, {35, 32}}) << QByteArray("0 0.106250 0.117708 0.103125 0.102083");
        QTest::newRow("yolo nan point") << "yolo" << img << box("a", nan, 0, 63, 47) << QByteArray("0 0.050000 0.050000 0.100000 0.100000");
        QTest::newRow("dota box") << "dota" << "/x/y/img.v1.jpg" << box("car", 100, 50, 300, 250) << QByteArray("100 50 300 50 300 250 100 250 car 0");
        QTest::newRow("dota reversed fractions") << "dota" << img << box("car", 300.9, 250.5, 100.2, 50.7) << QByteArray("100 50 300 50 300 250 100 250 car 0");
        QTest::newRow("dota toward zero") << "dota" << img << box("a", -5.5, -3, 4, 2.9) << QByteArray("-5 -3 4 -3 4 2 -5 2 a 0");
        QTest::newRow("dota keypoint") << "dota" << img << shape("kp", ShapeType::Keypoint, {{5, 6}}) << QByteArray("0 0 -1 0 -1 -1 0 -1 kp 0");
        QTest::newRow("dota unturned rotated box") << "dota" << img << shape("ship", ShapeType::RotatedBox, {{10, 10}, {50, 10}, {50, 40}, {10, 40}})
                                                   << QByteArray("10 10 50 10 50 10 10 10 ship 0");
        QTest::newRow("dota polygon") << "dota" << img << shape("p", ShapeType::Polygon, {{20, 30}, {5, 8}, {100, 100}}) << QByteArray("5 8 20 8 20 30 5 30 p 0");
        QTest::newRow("dota label with a blank") << "dota" << img << box("big car", 1, 2, 3, 4) << QByteArray("1 2 3 2 3 4 1 4 big car 0");
        QTest::newRow("dota utf-8") << "dota" << img << box("Fußgänger", 1, 2, 3, 4) << QByteArray("1 2 3 2 3 4 1 4 Fu\xc3\x9fg\xc3\xa4nger 0");
        QTest::newRow("csv box") << "csv" << "/data/images/img.jpg" << box("car", 100, 50, 300, 250) << QByteArray("img.jpg,640,480,car,100,50,300,250");
        QTest::newRow("csv reversed") << "csv" << img << box("car", 300, 250, 100, 50) << QByteArray("img.jpg,640,480,car,100,50,300,250");
        QTest::newRow("csv fractions") << "csv" << img << box("car", 10.7, 20.2, 110.9, 220.99) << QByteArray("img.jpg,640,480,car,10,20,110,220");
        // Rows are not clamped to the image; negatives truncate toward zero.
        QTest::newRow("csv outside") << "csv" << img << box("car", -5.9, -0.5, 900, 700) << QByteArray("img.jpg,640,480,car,-5,0,900,700");
        QTest::newRow("csv keypoint") << "csv" << img << shape("nose", ShapeType::Keypoint, {{3, 4}}) << QByteArray("img.jpg,640,480,nose,0,0,-1,-1");
        QTest::newRow("csv no points") << "csv" << img << shape("car", ShapeType::BoundingBox, {}) << QByteArray("img.jpg,640,480,car,0,0,-1,-1");
        QTest::newRow("csv polygon") << "csv" << img << shape("p", ShapeType::Polygon, {{50, 60}, {10, 20}, {600, 400}}) << QByteArray("img.jpg,640,480,p,10,20,50,60");
        QTest::newRow("csv comma in label as is") << "csv" << img << box("red, car", 1, 2, 3, 4) << QByteArray("img.jpg,640,480,red, car,1,2,3,4");
        QTest::newRow("csv comma in file name") << "csv" << "/d/a,b.png" << box("car", 1, 2, 3, 4) << QByteArray("a,b.png,640,480,car,1,2,3,4");
        QTest::newRow("csv unicode") << "csv" << "/d/bäume.png" << box("Bär", 1, 2, 3, 4) << QByteArray("b\xc3\xa4ume.png,640,480,B\xc3\xa4r,1,2,3,4");
        QTest::newRow("csv two dots") << "csv" << "/d/a.b.png" << box("car", 1, 2, 3, 4) << QByteArray("a.b.png,640,480,car,1,2,3,4");
    }

    void exportLine()
    {
        auto [format, imagePath, annotation, line] = row<QString, QString, BoxAnnotation, QByteArray>("format", "imagePath", "annotation", "line");
        QTemporaryDir dir;
        const Images images{image(imagePath, 640, 480, {annotation})};
        const QList<LabelDef> labels{{"a", Qt::red}, {"b", Qt::red}, {"c", Qt::red}, {"b", Qt::red}};
        const ExportImportResult r = format == "csv"  ? exportCsv(images, dir.filePath("out.csv"))
                                     : format == "dota" ? exportDota(images, dir.path())
                                                        : exportYolo(images, labels, dir.path());
        QVERIFY(r.ok);
        QCOMPARE(r.count, 1);
        if (format == "csv")
            QCOMPARE(readAll(dir.filePath("out.csv")), kHeader + line + '\n');
        else
            QCOMPARE(readAll(dir.filePath(QFileInfo(imagePath).completeBaseName() + ".txt")), line + '\n');
    }

    void exportFiles()
    {
        QTemporaryDir dir;
        const Images images{image("/d/a/b/img_01.jpg", 100, 100, {box("car", 0, 0, 9, 9), box("bus", 10, 10, 19, 29)}),
                            image("/d/empty.jpg", 100, 100), image("/d/two.dots.png", 200, 100, {box("car", 0, 0, 99, 99)})};
        const QList<LabelDef> labels = labelList({"unused", "car", "bus"});
        const QString yolo = dir.filePath("deep/er/yolo"), dota = dir.filePath("new/dota");
        ExportImportResult r = exportYolo(images, labels, yolo);
        QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({true, 2, "Exported 2 YOLO annotation file(s) to:\n" + yolo}));
        QCOMPARE(filesUnder(yolo), (QStringList{"classes.txt", "img_01.txt", "two.dots.txt"}));
        QCOMPARE(readAll(yolo + "/classes.txt"), QByteArray("unused\ncar\nbus\n"));
        QCOMPARE(readAll(yolo + "/img_01.txt"), QByteArray("1 0.050000 0.050000 0.100000 0.100000\n2 0.150000 0.200000 0.100000 0.200000\n"));
        QCOMPARE(readAll(yolo + "/two.dots.txt"), QByteArray("1 0.250000 0.500000 0.500000 1.000000\n"));
        // An empty label list still writes classes.txt; existing files are replaced.
        QCOMPARE(exportYolo(images, {}, yolo).count, 2);
        QCOMPARE(readAll(yolo + "/classes.txt") + readAll(yolo + "/two.dots.txt"), QByteArray("0 0.250000 0.500000 0.500000 1.000000\n"));

        r = exportDota(images, dota);
        QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({true, 2, "Exported 2 DOTA file(s) to:\n" + dota}));
        QCOMPARE(filesUnder(dota), (QStringList{"img_01.txt", "two.dots.txt"}));
        QCOMPARE(readAll(dota + "/img_01.txt"), QByteArray("0 0 9 0 9 9 0 9 car 0\n10 10 19 10 19 29 10 29 bus 0\n"));

        const QString csv = dir.filePath("all.csv");
        r = exportCsv(images, csv);
        QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({true, 3, "Exported 3 CSV row(s) to:\n" + csv}));
        QCOMPARE(readAll(csv), kHeader + "img_01.jpg,100,100,car,0,0,9,9\nimg_01.jpg,100,100,bus,10,10,19,29\ntwo.dots.png,200,100,car,0,0,99,99\n");
        QVERIFY(writeFile(csv, QByteArray(5000, 'z')));
        r = exportCsv({images[1]}, csv);
        QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({true, 0, "Exported 0 CSV row(s) to:\n" + csv}));
        QCOMPARE(readAll(csv), kHeader);

        const QString names = dir.filePath("classes.txt");
        QVERIFY(writeFile(names, "old content that is longer than the new one\n"));
        r = exportObjectNames(labelList({"zebra", "big truck", "Straße"}), names);
        QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({true, 3, "Wrote 3 label(s) to:\n" + names}));
        QCOMPARE(readAll(names), QByteArray("zebra\nbig truck\nStra\xc3\x9f" "e\n"));
        QCOMPARE(exportObjectNames({}, names).count, 0);
        QCOMPARE(readAll(names), QByteArray());
    }

    void failures()
    {
        QTemporaryDir dir;
        const QString blocked = dir.filePath("blocked"), missing = dir.filePath("missing/out"), folder = dir.filePath("folder.csv");
        QVERIFY(writeFile(blocked, "file") && QDir().mkpath(folder));
        Images images{image("img.jpg", 10, 10, {box("a", 0, 0, 1, 1)})};
        QList<LabelDef> labels = labelList({"a"});
        const auto check = [](const ExportImportResult& r, bool ok, const QString& message) {
            return QVariantList({r.ok, r.count, r.message}) == QVariantList({ok, 0, message});
        };
        QVERIFY(check(exportYolo(images, labels, blocked), false, "Cannot write classes.txt to " + blocked + "\nNot a directory"));
        QVERIFY(check(exportDota(images, blocked), true, "Exported 0 DOTA file(s) to:\n" + blocked
                                                            + "\n\n1 file(s) could not be written: Not a directory"));
        for (const QString& path : {missing, folder}) {
            const QString unwritten = "Cannot write to " + path + "\n"
                + (path == folder ? "It is not a regular file." : "No such file or directory");
            QVERIFY(check(exportCsv(images, path), false, unwritten));
            QVERIFY(check(exportObjectNames(labels, path), false, unwritten));
            QVERIFY(check(importCsv(images, labels, path), false, "Cannot open " + path));
            QVERIFY(check(importObjectNames(labels, path), false, "Cannot open " + path));
        }
        QVERIFY(check(importYolo(images, labels, missing), true, "Imported YOLO annotations for 0 image(s)."));
        QVERIFY(check(importDota(images, labels, missing), true, "Imported DOTA annotations for 0 image(s)."));
        QCOMPARE(readAll(blocked), QByteArray("file"));
        QCOMPARE(filesUnder(dir.path()), QStringList{"blocked"});
        QCOMPARE(labelNames(labels), QStringList{"a"});
        QVERIFY(!images[0].dirty);
    }

    void import_data()
    {
        columns<QString, QByteArray, QStringList>("format", "content", "boxes");
        // Session: 0 = /s/img.jpg 640x480, 1 = /a/dup.png 10x10, 2 = /b/dup.png 20x20.
        const QStringList tenth{"0:car:(288,216)-(351,263)"};
        QTest::newRow("yolo centred") << "yolo" << QByteArray("0 0.5 0.5 0.25 0.25\n") << QStringList{"0:car:(240,180)-(399,299)"};
        QTest::newRow("yolo class beyond names") << "yolo" << QByteArray("7 0.5 0.5 0.1 0.1") << QStringList{"0:class_7:(288,216)-(351,263)"};
        QTest::newRow("yolo negative class") << "yolo" << QByteArray("-1 0.5 0.5 0.1 0.1") << QStringList{"0:class_-1:(288,216)-(351,263)"};
        QTest::newRow("yolo class not an integer") << "yolo" << QByteArray("1.5 0.5 0.5 0.1 0.1") << tenth;
        QTest::newRow("yolo class beyond int") << "yolo" << QByteArray("4294967297 0.5 0.5 0.1 0.1") << tenth;
        QTest::newRow("yolo blanks, extra fields") << "yolo" << QByteArray("  2   0.5  0.5 0.1 0.1 0.99 extra  \n")
                                                   << QStringList{"0:van:(288,216)-(351,263)"};
        QTest::newRow("yolo tab is no separator") << "yolo" << QByteArray("1\t0.5 0.5 0.1 0.1\n") << QStringList{};
        QTest::newRow("yolo four fields") << "yolo" << QByteArray("1 0.5 0.5 0.1\n") << QStringList{};
        QTest::newRow("yolo blank lines and CRLF") << "yolo" << QByteArray("\r\n\n1 0.5 0.5 0.1 0.1\r\n   \n") << QStringList{"0:bus:(288,216)-(351,263)"};
        QTest::newRow("yolo clamped") << "yolo" << QByteArray("0 0.9 0.1 0.4 0.4") << QStringList{"0:car:(448,0)-(639,143)"};
        QTest::newRow("yolo outside stays inverted") << "yolo" << QByteArray("0 2 2 0.1 0.1") << QStringList{"0:car:(1248,936)-(639,479)"};
        QTest::newRow("yolo zero size") << "yolo" << QByteArray("0 0.5 0.5 0 0") << QStringList{"0:car:(319,239)-(320,240)"};
        QTest::newRow("yolo nan and inf read as 0") << "yolo" << QByteArray("0 nan 0.5 inf 0.1") << QStringList{"0:car:(0,216)-(0,263)"};
        QTest::newRow("yolo words read as 0") << "yolo" << QByteArray("0 x y 0.1 0.1") << QStringList{"0:car:(0,0)-(31,23)"};
        QTest::newRow("yolo huge") << "yolo" << QByteArray("0 1e308 -1e308 1e308 1e300") << QStringList{"0:car:(0,0)-(0,479)"};
        QTest::newRow("yolo beyond double") << "yolo" << QByteArray("0 0.5 0.5 1e999 0.1") << QStringList{"0:car:(319,216)-(320,263)"};
        QTest::newRow("yolo int extremes")
            << "yolo" << QByteArray("2147483647 1.7976931348623157e308 -1.7976931348623157e308 1.7976931348623157e308 1.7976931348623157e308\n"
                                    "-2147483648 -1e308 1e308 -1e308 -1e308\n0 4.9e-324 -4.9e-324 NaN -Infinity\n")
            << QStringList{"0:class_2147483647:(0,0)-(0,0)", "0:class_-2147483648:(0,0)-(0,0)", "0:car:(0,0)-(0,0)"};
        QTest::newRow("yolo two lines, non-utf8") << "yolo" << BYTES("0 0.5 0.5 0.1 0.1\n\xff\xfe\x00garbage\n\x80 0.5 0.5 0.1 0.1\n3 0.5 0.5 0.1 0.1")
                                                  << tenth + QStringList{"0:car:(288,216)-(351,263)", "0:class_3:(288,216)-(351,263)"};
        QTest::newRow("dota axis-aligned") << "dota" << QByteArray("10 10 50 10 50 40 10 40 plane 0\n") << QStringList{"0:plane:(10,10)-(50,40)"};
        QTest::newRow("dota header") << "dota" << QByteArray("imagesource:GoogleEarth\ngsd:0.146343590398\n10 10 50 10 50 40 10 40 plane 0\n")
                                     << QStringList{"0:plane:(10,10)-(50,40)"};
        QTest::newRow("dota header words with fields") << "dota" << QByteArray("imagesource 1 2 3 4 5 6 7 8 x\ngsd 1 2 3 4 5 6 7 8 x\n") << QStringList{};
        QTest::newRow("dota header is case-sensitive") << "dota" << QByteArray("Imagesource 1 2 3 4 5 6 7 8 x\n") << QStringList{"0:8:(0,1)-(6,7)"};
        QTest::newRow("dota eight fields") << "dota" << QByteArray("1 2 3 4 5 6 7 8\n") << QStringList{};
        QTest::newRow("dota no difficulty, extra fields") << "dota" << QByteArray("1 2 3 2 3 4 1 4 a\n1 2 3 2 3 4 1 4 b 1 extra more\n")
                                                          << QStringList{"0:a:(1,2)-(3,4)", "0:b:(1,2)-(3,4)"};
        QTest::newRow("dota rotated") << "dota" << QByteArray("100 50 150 100 100 150 50 100 diamond 1") << QStringList{"0:diamond:(50,50)-(150,150)"};
        QTest::newRow("dota fractions") << "dota" << QByteArray("10.9 10.2 50.7 10.2 50.7 40.9 10.9 40.9 f 0") << QStringList{"0:f:(10,10)-(50,40)"};
        QTest::newRow("dota clamped") << "dota" << QByteArray("-10 -10 700 -10 700 500 -10 500 big 0") << QStringList{"0:big:(0,0)-(639,479)"};
        QTest::newRow("dota outside") << "dota" << QByteArray("700 10 800 10 800 20 700 20 far 0") << QStringList{"0:far:(700,10)-(639,20)"};
        QTest::newRow("dota blanks, CRLF") << "dota" << QByteArray("\r\n  1   2 3 2 3 4 1 4   a   0  \r\n\n") << QStringList{"0:a:(1,2)-(3,4)"};
        QTest::newRow("dota nan and inf") << "dota" << QByteArray("nan 5 20 5 20 30 inf 30 n 0") << QStringList{"0:n:(0,5)-(20,30)"};
        QTest::newRow("dota words") << "dota" << QByteArray("a b 20 5 20 30 c d w 0") << QStringList{"0:w:(0,0)-(20,30)"};
        QTest::newRow("dota huge") << "dota" << QByteArray("1e308 -1e308 1e300 5 -1e300 6 1e999 7 h") << QStringList{"0:h:(0,0)-(639,7)"};
        QTest::newRow("dota non-utf8") << "dota" << BYTES("\xff\xfe\x00\n1 2 3 2 3 4 1 4 \x80\xff 0\n")
                                       << QStringList{QStringLiteral("0:\uFFFD\uFFFD:(1,2)-(3,4)")};
        const QByteArray h = kHeader;
        QTest::newRow("csv exported row") << "csv" << h + "img.jpg,640,480,car,100,50,300,250\n" << QStringList{"0:car:(100,50)-(300,250)"};
        QTest::newRow("csv header line is never data") << "csv" << QByteArray("img.jpg,640,480,car,1,2,3,4\nimg.jpg,640,480,bus,5,6,7,8\n")
                                                       << QStringList{"0:bus:(5,6)-(7,8)"};
        QTest::newRow("csv no final newline") << "csv" << h + "img.jpg,1,1,car,1,2,3,4" << QStringList{"0:car:(1,2)-(3,4)"};
        QTest::newRow("csv crlf and blank lines")
            << "csv" << QByteArray("filename,width\r\n\r\n   \r\nimg.jpg,640,480,car,1,2,3,4\r\n\t\nimg.jpg,640,480,bus,5,6,7,8\r\n")
            << QStringList{"0:car:(1,2)-(3,4)", "0:bus:(5,6)-(7,8)"};
        QTest::newRow("csv blanks around names") << "csv" << h + "  img.jpg ,640,480,  car  ,1,2,3,4\n" << QStringList{"0:car:(1,2)-(3,4)"};
        QTest::newRow("csv blanks inside numbers") << "csv" << h + "img.jpg,640,480,car, 1 ,2 , 3,4\n" << QStringList{"0:car:(1,2)-(3,4)"};
        QTest::newRow("csv other extension") << "csv" << h + "img.png,640,480,car,1,2,3,4\n" << QStringList{};
        QTest::newRow("csv file name is case-sensitive") << "csv" << h + "IMG.jpg,640,480,car,1,2,3,4\n" << QStringList{};
        QTest::newRow("csv folders do not match") << "csv" << h + "s/img.jpg,640,480,car,1,2,3,4\n" << QStringList{};
        QTest::newRow("csv too few fields") << "csv" << h + "img.jpg,640,480,car,1,2,3\nimg.jpg\n,,,,,,\n" << QStringList{};
        QTest::newRow("csv extra fields") << "csv" << h + "img.jpg,640,480,car,1,2,3,4,99,extra\n" << QStringList{"0:car:(1,2)-(3,4)"};
        QTest::newRow("csv width and height ignored") << "csv" << h + "img.jpg,wide,-7,car,1,2,3,4\n" << QStringList{"0:car:(1,2)-(3,4)"};
        // The quotes are not understood: the label becomes "car and xmin reads as 0.
        QTest::newRow("csv quoted label shifts fields") << "csv" << h + "img.jpg,640,480,\"car,red\",1,2,3,4\n" << QStringList{"0:\"car:(0,1)-(2,3)"};
        QTest::newRow("csv non-integers read as 0") << "csv" << h + "img.jpg,640,480,a,12.5,nan,inf,1e308\nimg.jpg,640,480,b,0x10,,abc,-inf\n"
                                                    << QStringList{"0:a:(0,0)-(0,0)", "0:b:(0,0)-(0,0)"};
        QTest::newRow("csv beyond int reads as 0") << "csv" << h + "img.jpg,640,480,car,99999999999,5,-99999999999,7\n" << QStringList{"0:car:(0,5)-(0,7)"};
        QTest::newRow("csv int limits clamp") << "csv" << h + "img.jpg,640,480,car,-2147483648,-2147483648,2147483647,2147483647\n"
                                              << QStringList{"0:car:(0,0)-(639,479)"};
        QTest::newRow("csv clamped") << "csv" << h + "img.jpg,640,480,car,-20,-5,1000,479\n" << QStringList{"0:car:(0,0)-(639,479)"};
        QTest::newRow("csv reversed corners") << "csv" << h + "img.jpg,640,480,car,300,250,100,50\n" << QStringList{"0:car:(101,51)-(299,249)"};
        QTest::newRow("csv outside stays outside") << "csv" << h + "img.jpg,640,480,car,700,10,800,20\n" << QStringList{"0:car:(700,10)-(639,20)"};
        QTest::newRow("csv shared name: the later image") << "csv" << h + "dup.png,1,1,car,1,1,30,30\n" << QStringList{"2:car:(1,1)-(19,19)"};
        QTest::newRow("csv non-utf8 label") << "csv" << h + "img.jpg,640,480,c\xff\xfe,1,2,3,4\n" << QStringList{QStringLiteral("0:c\uFFFD\uFFFD:(1,2)-(3,4)")};
        QTest::newRow("csv non-utf8 file name") << "csv" << h + "img\xff.jpg,640,480,car,1,2,3,4\n" << QStringList{};
        QTest::newRow("csv nul bytes") << "csv" << h + QByteArray("img.jpg,640,480,car,1,\0,3,4\n", 28) << QStringList{"0:car:(1,0)-(3,4)"};
        QTest::newRow("csv empty file") << "csv" << QByteArray() << QStringList{};
    }

    void import()
    {
        auto [format, content, boxes] = row<QString, QByteArray, QStringList>("format", "content", "boxes");
        Images images{image("/s/img.jpg", 640, 480), image("/a/dup.png", 10, 10), image("/b/dup.png", 20, 20)};
        QList<LabelDef> labels{{"object", Qt::black}, {"car", Qt::black}};
        const ExportImportResult r = importText(format, content, images, labels);
        QVERIFY(r.ok);
        QCOMPARE(describe(images), boxes);
        // Whole files count for YOLO and DOTA; their image is replaced and marked even when empty.
        const int count = format == "csv" ? int(boxes.size()) : 1;
        QCOMPARE(r.count, count);
        QCOMPARE(r.message, format == "csv"    ? QStringLiteral("Imported %1 CSV annotation(s).").arg(count)
                            : format == "dota" ? QStringLiteral("Imported DOTA annotations for 1 image(s).")
                                               : QStringLiteral("Imported YOLO annotations for 1 image(s)."));
        for (const ImageAnnotations& img : images)
            QCOMPARE(img.dirty, format == "csv" ? !img.boxes.isEmpty() : img.imagePath == "/s/img.jpg");
        // New labels are appended as first met, with the palette colour of their position.
        QStringList names{"object", "car"};
        for (const ImageAnnotations& img : images)
            for (const BoxAnnotation& b : img.boxes) {
                if (!names.contains(b.label))
                    names << b.label;
                QVERIFY(b.type == ShapeType::BoundingBox && b.visible && b.angle == 0);
            }
        QCOMPARE(labelNames(labels), names);
        for (int i = 2; i < labels.size(); ++i)
            QCOMPARE(labels[i].color, LabelPalette::colorForIndex(i));
    }

    void yoloLabels()
    {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("classes.txt"), "  zebra \n\n\tyak\nxenops\nwolf\n"));
        QVERIFY(writeFile(dir.filePath("img.txt"), "2 0.5 0.5 0.1 0.1\n9 0.5 0.5 0.1 0.1\n0 0.5 0.5 0.1 0.1\n2 0.5 0.5 0.1 0.1\n"));
        Images images{image("img.jpg", 100, 100)};
        QList<LabelDef> labels;
        for (int i = 0; i < 7; ++i)
            labels.append({QString("l%1").arg(i), QColor(9, 9, 9)});
        labels.append({"zebra", QColor(1, 2, 3)});
        importYolo(images, labels, dir.path());
        // Blank lines of classes.txt do not count, so index 2 is xenops; names no line uses are not added.
        QCOMPARE(labelNames(labels).mid(7), (QStringList{"zebra", "xenops", "class_9"}));
        QCOMPARE(labels[7].color, QColor(1, 2, 3));
        QCOMPARE(labels[8].color, QColor(0, 220, 220)); // 8 labels before it: entry 0 again
        QCOMPARE(images[0].boxes[2].label, QStringLiteral("zebra"));

        // Without classes.txt every class is named by its number.
        QVERIFY(QFile::remove(dir.filePath("classes.txt")));
        labels.clear();
        importYolo(images, labels, dir.path());
        QCOMPARE(labelNames(labels), (QStringList{"class_2", "class_9", "class_0"}));
    }

    // Files are matched to images by base name; a matched file replaces the image's shapes.
    void fileMatching()
    {
        QTemporaryDir yolo, dota;
        for (const char* name : {"classes.txt", "dup.txt", "img_01.txt", "stranger.txt", "img_01.csv", "v.1.txt"}) {
            QVERIFY(writeFile(yolo.filePath(name), "0 0.5 0.5 0.5 0.5\n"));
            QVERIFY(writeFile(dota.filePath(name), "2 2 6 2 6 6 2 6 bus 0\n"));
        }
        QVERIFY(writeFile(yolo.filePath("empty.txt"), "") && writeFile(dota.filePath("empty.txt"), "imagesource:x\ngsd:1\n"));
        QVERIFY(QDir(yolo.path()).mkdir("sub.txt") && QDir(dota.path()).mkdir("sub.txt"));
        const Images session{image("/p/classes.jpg", 10, 10, {box("keep", 1, 1, 2, 2)}), image("/p/dup.jpg", 10, 10),
                             image("/q/dup.png", 10, 10), image("/p/img_01.png", 10, 10, {box("old", 1, 1, 2, 2), box("old", 3, 3, 4, 4)}),
                             image("/p/sub.jpg", 10, 10), image("/p/empty.jpg", 10, 10, {box("old", 1, 1, 2, 2)}),
                             image("/p/v.1.jpg", 10, 10)};
        Images images = session;
        QList<LabelDef> labels;
        QCOMPARE(importYolo(images, labels, yolo.path()).count, 4);
        // classes.txt is never a label file; its first line names class 0.
        QCOMPARE(describe(images), (QStringList{"0:keep:(1,1)-(2,2)", "2:0 0.5 0.5 0.5 0.5:(2,2)-(6,6)", "3:0 0.5 0.5 0.5 0.5:(2,2)-(6,6)",
                                                "6:0 0.5 0.5 0.5 0.5:(2,2)-(6,6)"}));
        QVERIFY(images[5].dirty && !images[0].dirty && !images[1].dirty && !images[4].dirty);
        images = session;
        QCOMPARE(importDota(images, labels, dota.path()).count, 5);
        QCOMPARE(describe(images), (QStringList{"0:bus:(2,2)-(6,6)", "2:bus:(2,2)-(6,6)", "3:bus:(2,2)-(6,6)", "6:bus:(2,2)-(6,6)"}));
        QVERIFY(images[5].dirty && !images[1].dirty && !images[4].dirty);
    }

    void sizeFromImageFile_data()
    {
        // content: for the 200 x 100 image and the unreadable one
        columns<QString, QByteArray, QStringList>("format", "content", "boxes");
        QTest::newRow("yolo") << "yolo" << QByteArray("0 0.5 0.5 0.5 0.5\n") << QStringList{"0:class_0:(50,25)-(149,74)", "1:class_0:(0,0)-(0,0)"};
        QTest::newRow("dota") << "dota" << QByteArray("10 10 300 10 300 300 10 300 a 0\n") << QStringList{"0:a:(10,10)-(199,99)", "1:a:(10,10)-(0,0)"};
        QTest::newRow("csv") << "csv" << QByteArray("pic.png,1,1,a,10,10,300,300\ngone.png,9,9,a,10,10,300,300\n")
                             << QStringList{"0:a:(10,10)-(199,99)", "1:a:(10,10)-(0,0)"};
    }

    // A record without a size takes the size of its image file, 1 x 1 when it cannot be read.
    void sizeFromImageFile()
    {
        auto [format, content, boxes] = row<QString, QByteArray, QStringList>("format", "content", "boxes");
        QTemporaryDir dir;
        QVERIFY(saveImage(dir.filePath("pic.png"), 200, 100) && QDir().mkpath(dir.filePath("in")));
        Images images{image(dir.filePath("pic.png"), 0, 0), image(dir.filePath("gone.png"), 0, 7)};
        QList<LabelDef> labels;
        for (const char* name : {"in/pic.txt", "in/gone.txt"})
            QVERIFY(writeFile(dir.filePath(name), content));
        QVERIFY(writeFile(dir.filePath("in.csv"), kHeader + content));
        if (format == "yolo")
            QCOMPARE(importYolo(images, labels, dir.filePath("in")).count, 2);
        else if (format == "dota")
            QCOMPARE(importDota(images, labels, dir.filePath("in")).count, 2);
        else
            QCOMPARE(importCsv(images, labels, dir.filePath("in.csv")).count, 2);
        QCOMPARE(describe(images), boxes);
        QCOMPARE(images[0].width, 0);

        images[0].boxes = {box("a", 0, 0, 49, 49)};
        images[1].boxes = {box("a", 10, 20, 19, 29)};
        if (format == "yolo") { // the values of an unreadable image are pixels
            QCOMPARE(exportYolo(images, labelList({"a"}), dir.filePath("out")).count, 2);
            QCOMPARE(readAll(dir.filePath("out/pic.txt")) + readAll(dir.filePath("out/gone.txt")),
                     QByteArray("0 0.125000 0.250000 0.250000 0.500000\n0 15.000000 25.000000 10.000000 10.000000\n"));
        } else if (format == "csv") {
            QVERIFY(exportCsv(images, dir.filePath("out.csv")).ok);
            QCOMPARE(readAll(dir.filePath("out.csv")), kHeader + "pic.png,200,100,a,0,0,49,49\ngone.png,1,1,a,10,20,19,29\n");
        }
    }

    void objectNames_data()
    {
        columns<QStringList, QByteArray, QStringList, int>("existing", "content", "expected", "skipped");
        QTest::newRow("case-insensitive duplicates") << QStringList{"car"} << QByteArray("car\nCar\ntruck\n\n") << QStringList{"car", "truck"} << 2;
        QTest::newRow("repeat within the file") << QStringList{} << QByteArray("Bus\nbus\nBUS\n") << QStringList{"Bus"} << 2;
        QTest::newRow("trimmed, blank lines ignored") << QStringList{"object"} << QByteArray("  cat \t\n\n   \n\tdog\r\n")
                                                      << QStringList{"object", "cat", "dog"} << 0;
        QTest::newRow("blanks inside kept") << QStringList{} << QByteArray("traffic  light\n") << QStringList{"traffic  light"} << 0;
        QTest::newRow("empty file") << QStringList{"object"} << QByteArray() << QStringList{"object"} << 0;
        QTest::newRow("no final newline") << QStringList{} << QByteArray("a\nb") << QStringList{"a", "b"} << 0;
        QTest::newRow("non-ascii case") << QStringList{"Äpfel"} << QByteArray("\xc3\xa4pfel\n") << QStringList{"Äpfel"} << 1;
        QTest::newRow("byte order mark") << QStringList{"car"} << QByteArray("\xef\xbb\xbf" "car\nvan\n") << QStringList{"car", "van"} << 1;
        QTest::newRow("invalid utf-8") << QStringList{} << BYTES("\xff\x00\xfe\n\x80\n")
                                       << QStringList{QStringLiteral("\uFFFD \uFFFD"), QStringLiteral("\uFFFD")} << 0;
    }

    void objectNames()
    {
        auto [existing, content, expected, skipped] = row<QStringList, QByteArray, QStringList, int>("existing", "content", "expected", "skipped");
        QTemporaryDir dir;
        const QString path = dir.filePath("names.txt");
        QVERIFY(writeFile(path, content));
        QList<LabelDef> labels;
        for (const QString& name : existing)
            labels.append({name, QColor(7, 7, 7)});
        const ExportImportResult r = importObjectNames(labels, path);
        const int added = int(expected.size() - existing.size());
        QVERIFY(r.ok);
        QCOMPARE(r.count, added);
        QCOMPARE(labelNames(labels), expected);
        const QString skip = skipped ? QStringLiteral(" (%1 already existed, skipped)").arg(skipped) : QString();
        QCOMPARE(r.message, QStringLiteral("Imported %1 label(s)").arg(added) + skip + ":\n" + path);
        for (int i = 0; i < existing.size(); ++i)
            QCOMPARE(labels[i].color, QColor(7, 7, 7));
    }

    // The class names import cycles through twelve colours, by position in the list.
    void objectNameColours()
    {
        QTemporaryDir dir;
        QByteArray content;
        for (int i = 0; i < 14; ++i)
            content += "n" + QByteArray::number(i) + '\n';
        QVERIFY(writeFile(dir.filePath("names.txt"), content));
        QList<LabelDef> labels = labelList({"x", "y"});
        QCOMPARE(importObjectNames(labels, dir.filePath("names.txt")).count, 14);
        const QList<QColor> twelve{{0, 220, 220},   {255, 100, 100}, {100, 220, 100}, {255, 200, 0},   {180, 100, 255}, {255, 160, 40},
                                   {80, 200, 255},  {255, 80, 200},  {255, 120, 120}, {120, 255, 120}, {120, 120, 255}, {255, 255, 80}};
        for (int i = 2; i < labels.size(); ++i)
            QCOMPARE(labels[i].color, twelve[i % 12]);
    }

};

QTEST_GUILESS_MAIN(TestTextFormats)
#include "tst_textformats.moc"
