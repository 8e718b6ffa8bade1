#include <QtTest>

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QTemporaryDir>

#include <climits>
#include <cmath>
#include <limits>

#include "formats/converterrules.h"
#include "model/labelpalette.h"

using namespace ConverterRules;

namespace {

// A JPEG of w x h pixels whose APP1 segment carries the EXIF orientation tag.
QByteArray jpegWithOrientation(int w, int h, int orientation)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");
    if (orientation == 0)
        return jpeg;

    // Big-endian TIFF header, one IFD with the single entry 0x0112 (SHORT, count 1).
    QByteArray tiff("MM\x00\x2A\x00\x00\x00\x08", 8);
    tiff += QByteArray("\x00\x01", 2);
    tiff += QByteArray("\x01\x12\x00\x03\x00\x00\x00\x01", 8);
    tiff += char(0);
    tiff += char(orientation);
    tiff += QByteArray(2, '\0');
    tiff += QByteArray(4, '\0');
    QByteArray payload("Exif\x00\x00", 6);
    payload += tiff;
    const int length = int(payload.size()) + 2;
    QByteArray app1("\xFF\xE1", 2);
    app1 += char((length >> 8) & 0xFF);
    app1 += char(length & 0xFF);
    app1 += payload;
    jpeg.insert(2, app1); // right after SOI
    return jpeg;
}

// A TIFF of w x h pixels whose orientation tag says `transformation`.
QByteArray tiffWithTransformation(int w, int h, QImageIOHandler::Transformations transformation)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray tiff;
    QBuffer buffer(&tiff);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "tiff");
    writer.setTransformation(transformation);
    return writer.write(image) ? tiff : QByteArray();
}

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QSize decodedSize(const QString& path)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    return reader.read().size();
}

} // namespace

class TestConverterRules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void imageSizeFromFile_data();
    void imageSizeFromFile();
    void imageSizePrefersRecord_data();
    void imageSizePrefersRecord();
    void shapeRect_data();
    void shapeRect();
    void labelIndex_data();
    void labelIndex();
    void baseNameIndex();
    void ensureLabelColours();
    void importedBox();
    void clamp_data();
    void clamp();
    void intConversions_data();
    void intConversions();
    void parsing_data();
    void parsing();
    void readLines();
    void atomicWrite();
};

void TestConverterRules::imageSizeFromFile_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QSize>("expected");

    QByteArray png;
    {
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        QImage(30, 20, QImage::Format_ARGB32).save(&buffer, "PNG");
    }
    QTest::newRow("png") << "a.png" << png << QSize(30, 20);
    QTest::newRow("jpeg without exif") << "a.jpg" << jpegWithOrientation(40, 24, 0) << QSize(40, 24);
    QTest::newRow("orientation 1") << "a.jpg" << jpegWithOrientation(40, 24, 1) << QSize(40, 24);
    QTest::newRow("orientation 2 (mirror)") << "a.jpg" << jpegWithOrientation(40, 24, 2) << QSize(40, 24);
    QTest::newRow("orientation 3 (180)") << "a.jpg" << jpegWithOrientation(40, 24, 3) << QSize(40, 24);
    QTest::newRow("orientation 4 (flip)") << "a.jpg" << jpegWithOrientation(40, 24, 4) << QSize(40, 24);
    QTest::newRow("orientation 5 (transpose)") << "a.jpg" << jpegWithOrientation(40, 24, 5) << QSize(24, 40);
    QTest::newRow("orientation 6 (90)") << "a.jpg" << jpegWithOrientation(40, 24, 6) << QSize(24, 40);
    QTest::newRow("orientation 7 (transverse)") << "a.jpg" << jpegWithOrientation(40, 24, 7) << QSize(24, 40);
    QTest::newRow("orientation 8 (270)") << "a.jpg" << jpegWithOrientation(40, 24, 8) << QSize(24, 40);
    QTest::newRow("orientation out of range") << "a.jpg" << jpegWithOrientation(40, 24, 9) << QSize(40, 24);
    if (QImageWriter::supportedImageFormats().contains("tiff")) {
        const struct {
            const char* name;
            QImageIOHandler::Transformations transformation;
        } tiffRows[] = {
            { "tiff none", QImageIOHandler::TransformationNone },
            { "tiff mirror", QImageIOHandler::TransformationMirror },
            { "tiff 180", QImageIOHandler::TransformationRotate180 },
            { "tiff flip", QImageIOHandler::TransformationFlip },
            { "tiff flip and 90", QImageIOHandler::TransformationFlipAndRotate90 },
            { "tiff 90", QImageIOHandler::TransformationRotate90 },
            { "tiff mirror and 90", QImageIOHandler::TransformationMirrorAndRotate90 },
            { "tiff 270", QImageIOHandler::TransformationRotate270 },
        };
        for (const auto& row : tiffRows) {
            const bool turned = row.transformation & QImageIOHandler::TransformationRotate90;
            QTest::newRow(row.name) << "a.tif" << tiffWithTransformation(40, 24, row.transformation)
                                    << (turned ? QSize(24, 40) : QSize(40, 24));
        }
    }
    QTest::newRow("jpeg bytes behind a png name") << "b.png" << jpegWithOrientation(40, 24, 6) << QSize(24, 40);
    QTest::newRow("garbage") << "a.png" << QByteArray("this is no image\n") << QSize(1, 1);
    QTest::newRow("empty file") << "a.jpg" << QByteArray() << QSize(1, 1);
    QTest::newRow("truncated png header") << "a.png" << png.left(12) << QSize(1, 1);
}

void TestConverterRules::imageSizeFromFile()
{
    QFETCH(QString, fileName);
    QFETCH(QByteArray, bytes);
    QFETCH(QSize, expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(fileName);
    QVERIFY(writeBytes(path, bytes));

    ImageAnnotations record;
    record.imagePath = path;
    QCOMPARE(imageSize(record), expected);
    // Never stored back.
    QCOMPARE(record.width, 0);

    // Whatever the header says must agree with what an orientation-aware decoder sees.
    if (expected != QSize(1, 1))
        QCOMPARE(decodedSize(path), expected);
    else
        QVERIFY(!imageFileSize(path).isValid());
}

void TestConverterRules::imageSizePrefersRecord_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<QSize>("expected");

    QTest::newRow("known") << 640 << 480 << QSize(640, 480);
    QTest::newRow("1 x 1 counts as known") << 1 << 1 << QSize(1, 1);
    QTest::newRow("zero width") << 0 << 480 << QSize(30, 20);
    QTest::newRow("zero height") << 640 << 0 << QSize(30, 20);
    QTest::newRow("negative") << -5 << 480 << QSize(30, 20);
}

void TestConverterRules::imageSizePrefersRecord()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(QSize, expected);

    QTemporaryDir dir;
    const QString path = dir.filePath("img.png");
    QVERIFY(QImage(30, 20, QImage::Format_RGB32).save(path));

    ImageAnnotations record;
    record.imagePath = path;
    record.width = width;
    record.height = height;
    QCOMPARE(imageSize(record), expected);

    record.imagePath = dir.filePath("missing.png");
    if (width < 1 || height < 1)
        QCOMPARE(imageSize(record), QSize(1, 1));
}

void TestConverterRules::shapeRect_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QList<QPointF>>("points");
    QTest::addColumn<QRect>("expected");

    const auto rect = [](int l, int t, int r, int b) { return QRect(QPoint(l, t), QPoint(r, b)); };
    QTest::newRow("box") << int(ShapeType::BoundingBox)
                         << QList<QPointF>{ { 10.7, 20.2 }, { 110.9, 220.0 } } << rect(10, 20, 110, 220);
    QTest::newRow("box reversed") << int(ShapeType::BoundingBox)
                                  << QList<QPointF>{ { 110.9, 220.0 }, { 10.7, 20.2 } } << rect(10, 20, 110, 220);
    QTest::newRow("negative truncates toward zero") << int(ShapeType::BoundingBox)
                                                    << QList<QPointF>{ { -3.7, -0.5 }, { 4.9, 2.2 } }
                                                    << rect(-3, 0, 4, 2);
    QTest::newRow("polygon uses first two vertices")
        << int(ShapeType::Polygon) << QList<QPointF>{ { 5, 5 }, { 15, 25 }, { 500, 500 } } << rect(5, 5, 15, 25);
    QTest::newRow("ellipse centre and radii") << int(ShapeType::Ellipse)
                                              << QList<QPointF>{ { 100, 80 }, { 30, 20 } } << rect(30, 20, 100, 80);
    QTest::newRow("keypoint") << int(ShapeType::Keypoint) << QList<QPointF>{ { 7, 9 } } << rect(0, 0, -1, -1);
    QTest::newRow("no points") << int(ShapeType::BoundingBox) << QList<QPointF>{} << rect(0, 0, -1, -1);
    QTest::newRow("nan") << int(ShapeType::BoundingBox)
                         << QList<QPointF>{ { std::nan(""), 3 }, { 8, std::nan("") } } << rect(0, 0, 8, 3);
}

void TestConverterRules::shapeRect()
{
    QFETCH(int, type);
    QFETCH(QList<QPointF>, points);
    QFETCH(QRect, expected);

    BoxAnnotation box;
    box.type = ShapeType(type);
    box.points = points;
    const QRect r = ConverterRules::shapeRect(box);
    QCOMPARE(r.topLeft(), expected.topLeft());
    QCOMPARE(r.bottomRight(), expected.bottomRight());
}

void TestConverterRules::labelIndex_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("expected");
    QTest::newRow("first") << "object" << 0;
    QTest::newRow("first of duplicates") << "car" << 1;
    QTest::newRow("case-sensitive") << "Car" << 3;
    QTest::newRow("missing") << "truck" << -1;
    QTest::newRow("empty") << "" << -1;
}

void TestConverterRules::labelIndex()
{
    QFETCH(QString, name);
    QFETCH(int, expected);
    const QList<LabelDef> labels{ { "object", Qt::red }, { "car", Qt::red }, { "car", Qt::blue }, { "Car", Qt::red } };
    QCOMPARE(ConverterRules::labelIndex(labels, name), expected);
}

void TestConverterRules::baseNameIndex()
{
    QList<ImageAnnotations> images(5);
    images[0].imagePath = "/data/a/img_01.jpg";
    images[1].imagePath = "/data/b/shot.v2.png";
    images[2].imagePath = "/data/a/dup.jpg";
    images[3].imagePath = "/data/c/dup.png";
    images[4].imagePath = "/data/c/Dup.png";
    const QHash<QString, int> index = buildBaseNameIndex(images);
    QCOMPARE(index.size(), 4);
    QCOMPARE(index.value("img_01", -1), 0);
    QCOMPARE(index.value("shot.v2", -1), 1);
    QCOMPARE(index.value("dup", -1), 3); // the later image wins
    QCOMPARE(index.value("Dup", -1), 4);
    QVERIFY(!index.contains("shot"));
}

void TestConverterRules::ensureLabelColours()
{
    QList<LabelDef> labels;
    for (int i = 0; i < 9; ++i)
        labels.append({ QString("l%1").arg(i), QColor(1, 2, 3) });

    ensureLabel(labels, "l4");
    QCOMPARE(labels.size(), 9);
    QCOMPARE(labels.at(4).color, QColor(1, 2, 3));

    ensureLabel(labels, "L4"); // names are case-sensitive
    QCOMPARE(labels.size(), 10);
    QCOMPARE(labels.last().name, QString("L4"));
    QCOMPARE(labels.last().color, QColor(255, 100, 100)); // 9 before it: entry 1

    ensureLabel(labels, "next");
    QCOMPARE(labels.last().color, QColor(100, 220, 100));

    QList<LabelDef> empty;
    ensureLabel(empty, "first");
    QCOMPARE(empty.size(), 1);
    QCOMPARE(empty.first().color, QColor(0, 220, 220));
}

void TestConverterRules::importedBox()
{
    const BoxAnnotation box = makeImportedBox("car", QRect(QPoint(10, 20), QPoint(110, 220)));
    QCOMPARE(box.label, QString("car"));
    QCOMPARE(box.type, ShapeType::BoundingBox);
    QCOMPARE(box.points, (QList<QPointF>{ { 10, 20 }, { 110, 220 } }));
    QVERIFY(box.visible);
    QCOMPARE(box.angle, 0.0);
}

void TestConverterRules::clamp_data()
{
    QTest::addColumn<QRect>("input");
    QTest::addColumn<QRect>("expected");
    const auto rect = [](int l, int t, int r, int b) { return QRect(QPoint(l, t), QPoint(r, b)); };

    QTest::newRow("inside") << rect(10, 20, 30, 40) << rect(10, 20, 30, 40);
    QTest::newRow("over the edges") << rect(-5, -7, 700, 500) << rect(0, 0, 639, 479);
    QTest::newRow("inverted is normalised") << rect(30, 40, 10, 20) << rect(11, 21, 29, 39);
    QTest::newRow("inverted by one") << rect(5, 5, 4, 4) << rect(5, 5, 4, 4);
    QTest::newRow("outside stays inverted") << rect(700, 10, 800, 20) << rect(700, 10, 639, 20);
    QTest::newRow("empty rectangle") << rect(0, 0, -1, -1) << rect(0, 0, -1, -1);
    QTest::newRow("extremes") << rect(INT_MIN, INT_MIN, INT_MAX, INT_MAX) << rect(0, 0, 639, 479);
    QTest::newRow("inverted extremes") << rect(INT_MAX, INT_MAX, INT_MIN, INT_MIN) << rect(0, 0, 639, 479);
}

void TestConverterRules::clamp()
{
    QFETCH(QRect, input);
    QFETCH(QRect, expected);
    const QRect r = clampToImage(input, 640, 480);
    QCOMPARE(r.topLeft(), expected.topLeft());
    QCOMPARE(r.bottomRight(), expected.bottomRight());
}

void TestConverterRules::intConversions_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("rounded");
    QTest::addColumn<int>("truncated");
    const double inf = std::numeric_limits<double>::infinity();

    QTest::newRow("2.5") << 2.5 << 3 << 2;
    QTest::newRow("-2.5") << -2.5 << -3 << -2;
    QTest::newRow("-0.7") << -0.7 << -1 << 0;
    QTest::newRow("nan") << std::nan("") << 0 << 0;
    QTest::newRow("inf") << inf << 0 << 0;
    QTest::newRow("-inf") << -inf << 0 << 0;
    QTest::newRow("1e308") << 1e308 << INT_MAX << INT_MAX;
    QTest::newRow("-1e308") << -1e308 << INT_MIN << INT_MIN;
    QTest::newRow("just above int") << 2147483647.9 << INT_MAX << INT_MAX;
    QTest::newRow("int min") << -2147483648.0 << INT_MIN << INT_MIN;
    QTest::newRow("below int min") << -2147483649.5 << INT_MIN << INT_MIN;
}

void TestConverterRules::intConversions()
{
    QFETCH(double, value);
    QFETCH(int, rounded);
    QFETCH(int, truncated);
    QCOMPARE(toIntSafe(value), rounded);
    QCOMPARE(truncSafe(value), truncated);
}

void TestConverterRules::parsing_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("number");
    QTest::addColumn<int>("integer");

    QTest::newRow("int") << "42" << 42.0 << 42;
    QTest::newRow("negative") << "-3" << -3.0 << -3;
    QTest::newRow("decimal") << "0.25" << 0.25 << 0;
    QTest::newRow("exponent") << "1e3" << 1000.0 << 0;
    QTest::newRow("1e308") << "1e308" << 1e308 << 0;
    QTest::newRow("too large for double") << "1e400" << 0.0 << 0;
    QTest::newRow("nan") << "nan" << 0.0 << 0;
    QTest::newRow("inf") << "inf" << 0.0 << 0;
    QTest::newRow("-inf") << "-inf" << 0.0 << 0;
    QTest::newRow("word") << "car" << 0.0 << 0;
    QTest::newRow("comma decimal") << "0,5" << 0.0 << 0;
    QTest::newRow("beyond int") << "2147483648" << 2147483648.0 << 0;
    QTest::newRow("int max") << "2147483647" << 2147483647.0 << INT_MAX;
    QTest::newRow("empty") << "" << 0.0 << 0;
}

void TestConverterRules::parsing()
{
    QFETCH(QString, text);
    QFETCH(double, number);
    QFETCH(int, integer);
    QCOMPARE(parseNumber(text), number);
    QCOMPARE(parseInt(text), integer);
}

void TestConverterRules::readLines()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("lines.txt");
    QVERIFY(writeBytes(path, QByteArray("\xEF\xBB\xBF" "first\r\nsecond\n\xFF\xFEthird\nlast")));
    QStringList lines;
    QVERIFY(readTextLines(path, &lines));
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.at(0), QString("first"));
    QCOMPARE(lines.at(1), QString("second"));
    QVERIFY(lines.at(2).endsWith("third"));
    QCOMPARE(lines.at(3), QString("last"));

    QVERIFY(writeBytes(path, QByteArray()));
    QVERIFY(readTextLines(path, &lines));
    QVERIFY(lines.isEmpty());

    QVERIFY(!readTextLines(dir.filePath("missing.txt"), &lines));
}

void TestConverterRules::atomicWrite()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("out.txt");
    QVERIFY(writeFileAtomically(path, "one\n"));
    QVERIFY(writeFileAtomically(path, "two\n"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QByteArray("two\n"));
    f.close();

    QString error;
    QVERIFY(!writeFileAtomically(dir.filePath("no/such/folder/out.txt"), "x", &error));
    QVERIFY(!error.isEmpty());
    // A target that is a folder is left alone.
    QVERIFY(QDir(dir.path()).mkdir("sub"));
    QVERIFY(!writeFileAtomically(dir.filePath("sub"), "x"));
    QVERIFY(QFileInfo(dir.filePath("sub")).isDir());
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{ "out.txt" });
}

QTEST_GUILESS_MAIN(TestConverterRules)
#include "tst_converterrules.moc"
