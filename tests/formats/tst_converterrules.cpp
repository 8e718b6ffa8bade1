#include <QtTest>

#include <QBuffer>

#include <climits>
#include <cmath>

#include "formats/converterrules.h"
#include "support/corefiles.h"

using namespace ConverterRules;

namespace {

QByteArray encoded(int w, int h, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImage(w, h, QImage::Format_RGB32).save(&buffer, format);
    return bytes;
}

// A JPEG of 40 x 24 pixels whose APP1 segment carries the EXIF orientation tag: a
// big-endian TIFF header and one IFD with the single entry 0x0112 (SHORT, count 1).
QByteArray jpegWithOrientation(int orientation)
{
    QByteArray jpeg = encoded(40, 24, "JPG");
    const QByteArray payload = BYTES("Exif\0\0MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0") + char(orientation) + QByteArray(6, '\0');
    jpeg.insert(2, BYTES("\xFF\xE1\0") + char(payload.size() + 2) + payload); // right after SOI
    return jpeg;
}

} // namespace

class TestConverterRules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void imageSize_data()
    {
        columns<QString, QByteArray, QSize, QSize>("fileName", "bytes", "stored", "expected");
        const QByteArray png = encoded(30, 20, "PNG");
        const QSize none(0, 0);
        QTest::newRow("png") << "a.png" << png << none << QSize(30, 20);
        QTest::newRow("stored size wins") << "a.png" << png << QSize(640, 480) << QSize(640, 480);
        QTest::newRow("1 x 1 counts as known") << "a.png" << png << QSize(1, 1) << QSize(1, 1);
        QTest::newRow("zero width") << "a.png" << png << QSize(0, 480) << QSize(30, 20);
        QTest::newRow("zero height") << "a.png" << png << QSize(640, 0) << QSize(30, 20);
        QTest::newRow("negative") << "a.png" << png << QSize(-5, 480) << QSize(30, 20);
        QTest::newRow("jpeg without exif") << "a.jpg" << encoded(40, 24, "JPG") << none << QSize(40, 24);
        for (int orientation = 1; orientation <= 9; ++orientation) {
            const bool quarter = orientation >= 5 && orientation <= 8; // 9 is out of range
            QTest::addRow("orientation %d", orientation)
                << "a.jpg" << jpegWithOrientation(orientation) << none << (quarter ? QSize(24, 40) : QSize(40, 24));
        }
        QTest::newRow("jpeg bytes behind a png name") << "b.png" << jpegWithOrientation(6) << none << QSize(24, 40);
        QTest::newRow("garbage") << "a.png" << QByteArray("this is no image\n") << none << QSize(1, 1);
        QTest::newRow("empty file") << "a.jpg" << QByteArray() << none << QSize(1, 1);
        QTest::newRow("truncated png header") << "a.png" << png.left(12) << QSize(3, 0) << QSize(1, 1);
    }

    void imageSize()
    {
        auto [fileName, bytes, stored, expected] = row<QString, QByteArray, QSize, QSize>("fileName", "bytes", "stored", "expected");
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath(fileName), bytes));
        const ImageAnnotations record = image(dir.filePath(fileName), stored.width(), stored.height());
        QCOMPARE(ConverterRules::imageSize(record), expected);
        QCOMPARE(imageFileSize(record.imagePath).isValid(), expected != QSize(1, 1) || stored == QSize(1, 1));
        QCOMPARE(ConverterRules::imageSize(image(dir.filePath("missing.png"), stored.width(), stored.height())),
                 stored.width() >= 1 && stored.height() >= 1 ? stored : QSize(1, 1));
    }

    void clamp_data()
    {
        // expected: in a 640 x 480 image
        columns<QRect, QRect>("input", "expected");
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

    void clamp()
    {
        auto [input, expected] = row<QRect, QRect>("input", "expected");
        const QRect r = clampToImage(input, 640, 480);
        QCOMPARE(QList<QPoint>({r.topLeft(), r.bottomRight()}), QList<QPoint>({expected.topLeft(), expected.bottomRight()}));
    }

    void numbers_data()
    {
        // number: parseNumber
        // integer: parseInt
        // rounded: toIntSafe(number)
        // truncated: truncSafe(number)
        columns<QString, double, int, int, int>("text", "number", "integer", "rounded", "truncated");
        QTest::newRow("int") << "42" << 42.0 << 42 << 42 << 42;
        QTest::newRow("negative") << "-3" << -3.0 << -3 << -3 << -3;
        QTest::newRow("2.5") << "2.5" << 2.5 << 0 << 3 << 2;
        QTest::newRow("-2.5") << "-2.5" << -2.5 << 0 << -3 << -2;
        QTest::newRow("-0.7") << "-0.7" << -0.7 << 0 << -1 << 0;
        QTest::newRow("exponent") << "1e3" << 1000.0 << 0 << 1000 << 1000;
        QTest::newRow("1e308") << "1e308" << 1e308 << 0 << INT_MAX << INT_MAX;
        QTest::newRow("-1e308") << "-1e308" << -1e308 << 0 << INT_MIN << INT_MIN;
        QTest::newRow("just above int") << "2147483647.9" << 2147483647.9 << 0 << INT_MAX << INT_MAX;
        QTest::newRow("int max") << "2147483647" << 2147483647.0 << INT_MAX << INT_MAX << INT_MAX;
        QTest::newRow("beyond int") << "2147483648" << 2147483648.0 << 0 << INT_MAX << INT_MAX;
        QTest::newRow("int min") << "-2147483648" << -2147483648.0 << INT_MIN << INT_MIN << INT_MIN;
        QTest::newRow("below int min") << "-2147483649.5" << -2147483649.5 << 0 << INT_MIN << INT_MIN;
        QTest::newRow("too large for double") << "1e400" << 0.0 << 0 << 0 << 0;
        QTest::newRow("nan") << "nan" << 0.0 << 0 << 0 << 0;
        QTest::newRow("inf") << "inf" << 0.0 << 0 << 0 << 0;
        QTest::newRow("-inf") << "-inf" << 0.0 << 0 << 0 << 0;
        QTest::newRow("word") << "car" << 0.0 << 0 << 0 << 0;
        QTest::newRow("comma decimal") << "0,5" << 0.0 << 0 << 0 << 0;
        QTest::newRow("empty") << "" << 0.0 << 0 << 0 << 0;
    }

    void numbers()
    {
        auto [text, number, integer, rounded, truncated] = row<QString, double, int, int, int>("text", "number", "integer", "rounded", "truncated");
        QCOMPARE(parseNumber(text), number);
        QCOMPARE(parseInt(text), integer);
        QCOMPARE(toIntSafe(number), rounded);
        QCOMPARE(truncSafe(number), truncated);
        for (double notFinite : {std::nan(""), HUGE_VAL, -HUGE_VAL})
            QVERIFY(toIntSafe(notFinite) == 0 && truncSafe(notFinite) == 0);
    }

    void readLines()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("lines.txt");
        QVERIFY(writeFile(path, "\xEF\xBB\xBF" "first\r\nsecond\n\xFF\xFEthird\nlast"));
        QStringList lines;
        QVERIFY(readTextLines(path, &lines));
        QCOMPARE(lines, (QStringList{"first", "second", QStringLiteral("\uFFFD\uFFFDthird"), "last"}));
        QVERIFY(writeFile(path, ""));
        QVERIFY(readTextLines(path, &lines));
        QVERIFY(lines.isEmpty());
        QVERIFY(!readTextLines(dir.filePath("missing.txt"), &lines));
    }
};

QTEST_GUILESS_MAIN(TestConverterRules)
#include "tst_converterrules.moc"
