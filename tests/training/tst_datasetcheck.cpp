#include <QBuffer>

#include "model/datasetfolders.h"
#include "model/vocxml.h"
#include "support/corefiles.h"
#include "support/exifjpeg.h"
#include "training/datasetcheck.h"

// The dataset check on datasets on disk: each defect gives its code, severity and shape
// index; files never opened are read; a clean image gives nothing.

namespace {

// How the one image "a" of a row is on disk.
enum class Image { Png, Garbage, Gone, TurnedJpeg, CutJpeg, CutPng, Text };
// How its annotation file is: as saved, with CRLF line ends (read by the general XML
// reader, not the fast one), or broken.
enum class Xml { Shapes, Crlf, Garbage };

} // namespace

class TestDatasetCheck : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void problems_data()
    {
        // expected: "image shape code severity"
        columns<int, int, QSize, QList<BoxAnnotation>, QStringList>("image", "xml", "recorded", "shapes", "expected");

        const QSize size(100, 60);
        const int png = int(Image::Png), shapesXml = int(Xml::Shapes);
        const BoxAnnotation inside = box("a", 10, 10, 20, 20);
        QTest::newRow("clean") << png << shapesXml << size << QList<BoxAnnotation>{inside} << QStringList{};
        QTest::newRow("partly outside") << png << shapesXml << size
                                        << QList<BoxAnnotation>{inside, box("a", 90, 50, 120, 70)}
                                        << QStringList{"a.png 1 outside warning"};
        QTest::newRow("wholly outside: ellipse, line")
            << png << shapesXml << size
            << QList<BoxAnnotation>{shape("a", ShapeType::Ellipse, {QPointF(130, 30), QPointF(10, 5)}),
                                    shape("a", ShapeType::Line, {QPointF(-10, -5), QPointF(-1, 70)})}
            << QStringList{"a.png 0 outside-all error", "a.png 1 outside-all error"};
        QTest::newRow("degenerate kinds")
            << png << shapesXml << size
            << QList<BoxAnnotation>{shape("a", ShapeType::BoundingBox, {QPointF(5, 5), QPointF(5.5, 30)}),
                                    shape("a", ShapeType::Polygon, {QPointF(1, 1), QPointF(9, 9), QPointF(1, 1)}),
                                    shape("a", ShapeType::Polygon, {QPointF(1, 1), QPointF(2, 1), QPointF(3, 1.1)}),
                                    shape("a", ShapeType::Line, {QPointF(4, 4), QPointF(4, 4)}),
                                    shape("a", ShapeType::Ellipse, {QPointF(50, 30), QPointF(10, 0.4)}), inside}
            << QStringList{"a.png 0 degenerate error", "a.png 1 degenerate error", "a.png 2 degenerate error",
                           "a.png 3 degenerate error", "a.png 4 degenerate error"};
        QTest::newRow("unknown label, duplicate")
            << png << shapesXml << size << QList<BoxAnnotation>{box("zebra", 1, 1, 9, 9), inside, inside}
            << QStringList{"a.png 0 unknown-label warning", "a.png 2 duplicate warning"};
        QTest::newRow("size mismatch") << png << shapesXml << QSize(60, 100) << QList<BoxAnnotation>{inside}
                                       << QStringList{"a.png -1 size-mismatch warning"};
        QTest::newRow("size mismatch, unknown label, CRLF file")
            << png << int(Xml::Crlf) << QSize(60, 100) << QList<BoxAnnotation>{inside, box("zebra", 1, 1, 9, 9)}
            << QStringList{"a.png -1 size-mismatch warning", "a.png 1 unknown-label warning"};
        // Stored 100 x 60 and turned a quarter by EXIF: the image is 60 x 100 as trainers see it.
        QTest::newRow("EXIF orientation applied")
            << int(Image::TurnedJpeg) << shapesXml << QSize(60, 100) << QList<BoxAnnotation>{inside} << QStringList{};
        QTest::newRow("EXIF orientation ignored by the file")
            << int(Image::TurnedJpeg) << shapesXml << size << QList<BoxAnnotation>{inside}
            << QStringList{"a.jpg -1 size-mismatch warning"};
        QTest::newRow("unreadable image") << int(Image::Garbage) << shapesXml << size << QList<BoxAnnotation>{inside}
                                          << QStringList{"a.png -1 unreadable-image error"};
        // Cut off as by an interrupted copy: the header still reads, the end marker is gone.
        QTest::newRow("truncated JPEG") << int(Image::CutJpeg) << shapesXml << size << QList<BoxAnnotation>{inside}
                                        << QStringList{"a.jpg -1 unreadable-image error"};
        QTest::newRow("truncated PNG") << int(Image::CutPng) << shapesXml << size << QList<BoxAnnotation>{inside}
                                       << QStringList{"a.png -1 unreadable-image error"};
        QTest::newRow("not an image") << int(Image::Text) << shapesXml << size << QList<BoxAnnotation>{inside}
                                      << QStringList{"a.png -1 unreadable-image error"};
        QTest::newRow("unreadable xml") << png << int(Xml::Garbage) << size << QList<BoxAnnotation>{}
                                        << QStringList{"a.png -1 unreadable-xml error"};
        QTest::newRow("image gone") << int(Image::Gone) << shapesXml << size << QList<BoxAnnotation>{inside}
                                    << QStringList{"a.xml -1 missing-image error"};
    }

    void problems()
    {
        auto [image, xml, recorded, shapes, expected] = row<int, int, QSize, QList<BoxAnnotation>, QStringList>("image", "xml", "recorded", "shapes", "expected");

        QTemporaryDir dir;
        const QString images = dir.path(), annotations = dir.filePath("annotations");
        QVERIFY(QDir().mkpath(annotations));
        const QString name = image == int(Image::TurnedJpeg) || image == int(Image::CutJpeg) ? "a.jpg" : "a.png";
        QImage picture(100, 60, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        for (int y = 0; y < 60; ++y)
            picture.setPixel(y, y, qRgb(250, y * 4, 0));
        QFile file(dir.filePath(name));
        const auto writeCut = [&](const char* format) {
            QByteArray bytes;
            QBuffer buffer(&bytes);
            return buffer.open(QIODevice::WriteOnly) && picture.save(&buffer, format)
                && file.open(QIODevice::WriteOnly) && file.write(bytes.left(bytes.size() * 9 / 10)) > 0;
        };
        switch (Image(image)) {
        case Image::Png: QVERIFY(picture.save(file.fileName())); break;
        case Image::Garbage: QVERIFY(file.open(QIODevice::WriteOnly) && file.write("\x89PNG not really") > 0); break;
        case Image::Gone: break;
        case Image::TurnedJpeg: QVERIFY(writeTurnedJpeg(file.fileName(), picture)); break;
        case Image::CutJpeg: QVERIFY(writeCut("JPEG")); break;
        case Image::CutPng: QVERIFY(writeCut("PNG")); break;
        case Image::Text: QVERIFY(file.open(QIODevice::WriteOnly) && file.write("name,x,y\ncar,1,2\n") > 0); break;
        }
        file.close();
        // A second image without shapes and without a file.
        QVERIFY(picture.save(dir.filePath("b.png")));

        ImageAnnotations record;
        record.imagePath = dir.filePath(name);
        record.xmlPath = annotations + "/a.xml";
        record.width = recorded.width();
        record.height = recorded.height();
        record.boxes = shapes;
        QVERIFY(Xml(xml) == Xml::Garbage ? writeFile(record.xmlPath, "<annotation><object><name>a") : VocXml::save(record, "images"));
        if (Xml(xml) == Xml::Crlf)
            QVERIFY(writeFile(record.xmlPath, VocXml::toXml(record, "images").replace("\n", "\r\n")));

        // The records as the window makes them on opening: no shape read yet.
        const QList<ImageAnnotations> records =
            DatasetFolders::records(images, annotations, DatasetFolders::listImageFiles(images));
        QList<LabelDef> labels = {{"a", Qt::red}};
        int calls = 0;
        const DatasetCheck::Report report = DatasetCheck::run(records, labels, annotations, {},
                                                              [&](int, int) { return ++calls > 0; });
        QStringList found;
        for (const DatasetCheck::Problem& p : report.problems) {
            found << QStringLiteral("%1 %2 %3 %4").arg(p.image).arg(p.shape).arg(p.code, DatasetCheck::severityName(p.severity));
            QVERIFY(!p.message.isEmpty() && p.message.endsWith('.'));
        }
        QCOMPARE(found, expected);
        QVERIFY(calls > 0);
        QCOMPARE(report.images, int(records.size()));
        QCOMPARE(report.shapes, Image(image) == Image::Gone ? 0 : int(shapes.size()));
        QCOMPARE(report.imagesWithoutShapes, report.images - (report.shapes > 0 ? 1 : 0));
        QCOMPARE(labels.size(), 1); // the check reports unknown labels; it does not add them
        const QString summary = report.summary();
        QVERIFY2(summary.startsWith(QStringLiteral("%1 error").arg(report.errors())), qPrintable(summary));
    }
};

QTEST_GUILESS_MAIN(TestDatasetCheck)
#include "tst_datasetcheck.moc"
