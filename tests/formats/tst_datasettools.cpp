#include <QtTest>

#include "formats/datasettools.h"
#include "formats/exportimport.h"
#include "model/vocxml.h"
#include "support/corefiles.h"

// The split, the box/keypoint conversion and the collage, checked on the files they
// write.

using namespace DatasetTools;
using Shapes = QList<BoxAnnotation>;

namespace {

// A record whose annotation file, when it has shapes, is written beside its image.
ImageAnnotations record(const QTemporaryDir& dir, const QString& name, int w, int h, const Shapes& shapes, bool writeXml = true)
{
    ImageAnnotations img = image(dir.filePath(name), w, h, shapes);
    img.xmlPath = dir.filePath(QFileInfo(name).completeBaseName() + ".xml");
    if (writeXml && !shapes.isEmpty())
        VocXml::save(img, "images");
    return img;
}

} // namespace

class TestDatasetTools : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void splitCopiesByTrainCount_data()
    {
        columns<int, int, int>("images", "percent", "train");
        QTest::newRow("10 at 80") << 10 << 80 << 8;
        QTest::newRow("1 at 10: at least one") << 1 << 10 << 1;
        QTest::newRow("3 at 50: halves round up") << 3 << 50 << 2;
    }

    void splitCopiesByTrainCount()
    {
        auto [images, percent, train] = row<int, int, int>("images", "percent", "train");
        QTemporaryDir src, out;
        QList<ImageAnnotations> records;
        for (int i = 0; i < images; ++i) {
            QVERIFY(writeFile(src.filePath(QStringLiteral("%1.jpg").arg(i)), QByteArray::number(i)));
            // Every other image has an annotation file.
            records << record(src, QStringLiteral("%1.jpg").arg(i), 4, 4, i % 2 ? Shapes{} : Shapes{box("a", 0, 0, 1, 1)});
        }
        const SplitPlan plan = planSplit(records, percent, out.path(), 1234);
        QCOMPARE(QList<int>({plan.train, plan.test}), QList<int>({train, images - train}));
        const CopyOutcome outcome = runSplit(plan);
        QCOMPARE(QList<int>({outcome.copied, outcome.failed}), QList<int>({images + (images + 1) / 2, 0}));
        // Train holds the first images of the seeded order, with their annotation files.
        const QList<int> order = shuffledOrder(images, 1234);
        QStringList expected;
        for (int k = 0; k < images; ++k) {
            const QString subset = k < train ? "Train" : "Test";
            expected << QStringLiteral("%1/images/%2.jpg").arg(subset).arg(order[k]);
            if (order[k] % 2 == 0)
                expected << QStringLiteral("%1/annotations/%2.xml").arg(subset).arg(order[k]);
        }
        expected.sort();
        QCOMPARE(filesUnder(out.path()), expected);
        QCOMPARE(readAll(out.filePath(expected.last())), readAll(src.filePath(QFileInfo(expected.last()).fileName())));
        QVERIFY(QFileInfo(out.filePath("Test/annotations")).isDir()); // even when empty
    }

    // The output folder holds the dataset itself: the Train images are copied onto
    // themselves and keep their bytes. A folder in the way of the Test image fails that copy
    // alone; a file already there stays.
    void splitOntoItselfAndPastFailures()
    {
        QTemporaryDir out;
        QVERIFY(QDir().mkpath(out.filePath("Train/images")) && QDir().mkpath(out.filePath("Test/images/c.png")));
        QList<ImageAnnotations> records;
        for (const char* name : {"a.png", "b.png", "c.png"}) {
            QVERIFY(writeFile(out.filePath(QStringLiteral("Train/images/") + name), name));
            records << image(out.filePath(QStringLiteral("Train/images/") + name), 4, 4);
        }
        QVERIFY(writeFile(out.filePath("Test/images/stray.png"), "stray"));
        // The order of the C generator's Fisher-Yates shuffle, the same in every program that uses it.
        QCOMPARE(shuffledOrder(10, 1234), QList<int>({5, 6, 8, 7, 1, 9, 0, 3, 2, 4}));
        QCOMPARE(shuffledOrder(3, 5), QList<int>({0, 2, 1}));
        records.swapItemsAt(1, 2); // c.png goes to Test
        const CopyOutcome outcome = runSplit(planSplit(records, 50, out.path(), 5));
        QCOMPARE(QList<int>({outcome.copied, outcome.failed}), QList<int>({2, 1}));
        for (const char* name : {"a.png", "b.png", "c.png"})
            QCOMPARE(readAll(out.filePath(QStringLiteral("Train/images/") + name)), QByteArray(name));
        QCOMPARE(filesUnder(out.path()).size(), 4);
    }

    void convertShapes()
    {
        const BoxAnnotation eye = shape("eye", ShapeType::Keypoint, {{5, 470}});
        const BoxAnnotation road = shape("road", ShapeType::Polygon, {{0, 0}, {5, 0}, {5, 5}});
        QCOMPARE(DatasetTools::convertShapes({box("car", 10, 20, 30, 60), road}, Conversion::BoxesToKeypoints, 20, 640, 480),
                 Shapes{shape("car", ShapeType::Keypoint, {{20, 40}})});
        // Limited to the image, unless its size is not known.
        QCOMPARE(DatasetTools::convertShapes({eye, road}, Conversion::KeypointsToBoxes, 20, 640, 480),
                 Shapes{box("eye", 0, 450, 25, 479)});
        QCOMPARE(DatasetTools::convertShapes({eye}, Conversion::KeypointsToBoxes, 20, 0, 0), Shapes{box("eye", -15, 450, 25, 490)});
    }

    void convertDatasetWritesOnlyConvertedImages()
    {
        QTemporaryDir src, out;
        QList<ImageAnnotations> records{
            record(src, "boxes.png", 640, 480, {box("car", 10, 20, 30, 60), box("bus", 0, 0, 9, 9)}),
            record(src, "polygon.png", 640, 480, {shape("road", ShapeType::Polygon, {{0, 0}, {5, 0}, {5, 5}})}),
            record(src, "unsaved.png", 640, 480, {box("car", 0, 0, 4, 4)}, false),
            record(src, "fromfile.png", 640, 480, {box("dog", 2, 2, 4, 8)}),
            record(src, "blocked.png", 640, 480, {box("cat", 2, 2, 4, 4)}),
        };
        records[3].boxes.clear(); // not yet read: the file is loaded
        QVERIFY(QDir().mkpath(out.filePath("blocked.xml")));
        const QStringList sourceFiles = filesUnder(src.path());
        const QByteArray sourceBytes = readAll(records[0].xmlPath);
        QList<int> seen;
        ConversionOutcome outcome = convertDataset(records, Conversion::BoxesToKeypoints, 0, out.path(), "imgs",
                                                   [&](int done, int total) {
                                                       seen << done;
                                                       return total == 5;
                                                   });
        QCOMPARE(seen, QList<int>({0, 1, 2, 3, 4}));
        QCOMPARE(QList<int>({outcome.processed, outcome.created, outcome.skipped, outcome.failed}),
                 QList<int>({3, 4, 1, 1}));
        QCOMPARE(filesUnder(out.path()), QStringList({"boxes.xml", "fromfile.xml"}));
        ImageAnnotations written;
        written.xmlPath = out.filePath("fromfile.xml");
        QVERIFY(VocXml::load(written));
        QCOMPARE(written.boxes, Shapes{shape("dog", ShapeType::Keypoint, {{3, 5}})});
        QVERIFY(readAll(written.xmlPath).contains("<folder>imgs</folder>"));
        QCOMPARE(filesUnder(src.path()), sourceFiles);
        QCOMPARE(readAll(records[0].xmlPath), sourceBytes);
        // Cancelled before the second image: the first one's file is written all the same.
        QTemporaryDir again;
        outcome = convertDataset(records, Conversion::BoxesToKeypoints, 0, again.path(), "imgs",
                                 [](int done, int) { return done < 1; });
        QVERIFY(outcome.cancelled);
        QCOMPARE(outcome.processed, 1);
        QCOMPARE(filesUnder(again.path()), QStringList({"boxes.xml"}));
    }

    void collageCellPlacement_data()
    {
        // edge: where 200 black columns end in the collage; 0: none
        columns<QSize, BoxAnnotation, QRect, double>("imageSize", "annotation", "drawn", "edge");
        // Crops that are the whole image: scaled to fit the cell and centred in it.
        QTest::newRow("640x512 fills the cell") << QSize(640, 512) << box("a", 0, 0, 639, 511) << QRect(8, 8, 1280, 1024) << 0.0;
        QTest::newRow("200x400 centred") << QSize(200, 400) << box("a", 0, 0, 199, 399) << QRect(8 + 384, 8, 512, 1024) << 0.0;
        // Read by the JPEG decoder at half size, the crop (1, 0, 2601, 2080) starting inside a
        // half-size pixel: the picture lies where a full decode puts it.
        QTest::newRow("large JPEG, crop off the half-size grid") << QSize(2602, 2080) << box("a", 340, 10, 2601, 2070) << QRect(8, 8, 1280, 1023)
            << 8 + 199 * 1280 / 2601.0;
        // An area 40 wide gets the minimum padding of 10 (crop 60 x 1040); one 200 wide
        // gets 30 (crop 260 x 1040).
        QTest::newRow("padding 10") << QSize(2000, 2000) << box("a", 500, 500, 540, 1300) << QRect(8 + 610, 8, 59, 1024) << 0.0;
        QTest::newRow("padding 30") << QSize(2000, 2000) << box("a", 500, 500, 700, 1300) << QRect(8 + 512, 8, 256, 1024) << 0.0;
    }

    void collageCellPlacement()
    {
        auto [imageSize, annotation, drawn, edge] = row<QSize, BoxAnnotation, QRect, double>("imageSize", "annotation", "drawn", "edge");
        QTemporaryDir dir;
        const QString name = imageSize.width() > 2000 ? "a.jpg" : "a.png";
        QVERIFY(saveImage(dir.filePath(name), imageSize.width(), imageSize.height(), edge > 0 ? 200 : 0));
        const QString png = dir.filePath("collage.png");
        const ExportImportResult result = ExportImport::exportCollage(
            {record(dir, name, 0, 0, {annotation}, false)}, {}, 9, false, png, {});
        QCOMPARE(result.message, "Collage saved with 1 image(s):\n" + png);
        const QImage canvas(png);
        QCOMPARE(canvas.size(), QSize(1296, 1040));
        const QColor background(30, 30, 30);
        QVERIFY(canvas.pixelColor(drawn.topLeft()) != background && canvas.pixelColor(drawn.bottomRight()) != background);
        QCOMPARE(canvas.pixelColor(drawn.topLeft() - QPoint(1, 1)), background);
        QCOMPARE(canvas.pixelColor(drawn.bottomRight() + QPoint(1, 1)), background);
        // Inside the picture, clear of the box outline.
        QCOMPARE(canvas.pixelColor(drawn.x() + drawn.width() * 3 / 4, drawn.y() + drawn.height() * 3 / 4),
                 QColor(Qt::white));
        double white = 0; // the edge, from the brightness summed across it
        for (int x = 60; x < 150; ++x)
            white += qGray(canvas.pixel(x, 500)) / 255.0;
        QVERIFY2(edge == 0 || qAbs(150 - white - edge) < 0.1, qPrintable(QString::number(150 - white)));
    }

    void collageGridSkipsMissingImage()
    {
        QTemporaryDir dir;
        QList<ImageAnnotations> records;
        for (int i = 0; i < 6; ++i) {
            const QString name = QStringLiteral("%1.png").arg(i);
            if (i != 2)
                QVERIFY(saveImage(dir.filePath(name), 64, 64));
            records << record(dir, name, 0, 0, {box("a", 0, 0, 63, 63)}, false);
        }
        records << record(dir, "none.png", 0, 0, {}); // not annotated: never picked
        std::swap(records[0], records.last());
        const QString png = dir.filePath("collage.png");
        QList<int> calls;
        const ExportImportResult result = ExportImport::exportCollage(
            records, {{"a", Qt::red}}, 5, false, png, [&](int done, int total) {
                calls << done << total;
                return done != -1; // the file is written all the same
            });
        QCOMPARE(result.message, "Collage saved with 4 image(s):\n" + png);
        QCOMPARE(calls, QList<int>({1, 5, 2, 5, 3, 5, 4, 5, -1, 5}));
        // Cells in reading order hold images 1, 2 (missing), 3, 4, 5; the sixth is empty.
        const QImage canvas(png);
        QCOMPARE(canvas.size(), QSize(3872, 2072));
        for (int cell = 0; cell < 6; ++cell) {
            const QPoint centre(cell % 3 * 1288 + 8 + 640, cell / 3 * 1032 + 8 + 512);
            const bool filled = cell != 1 && cell != 5;
            QCOMPARE(canvas.pixelColor(centre), filled ? QColor(Qt::white) : QColor(30, 30, 30));
            // The box outline along the crop's left edge, in the label's colour.
            if (filled)
                QCOMPARE(canvas.pixelColor(centre.x() - 512, centre.y()), QColor(Qt::red));
        }
    }

    void collageCancelOrFailureWritesNothing_data()
    {
        // message: how the message starts
        columns<int, QString, QString, int>("stopAt", "target", "message", "images");
        QTest::newRow("cancel after the first image") << 1 << "out.png" << "Export cancelled by user." << 2;
        QTest::newRow("folder missing") << 0 << "no/such/out.png" << "Could not save collage to:\n%1/no/such/out.png" << 2;
        QTest::newRow("canvas too large") << 0 << "out.png" << "A collage of 40000 images would be 257608 x 206408 pixels "
                                          "(152127 MB), more than can be built in memory.\n\nChoose at most " << 40000;
    }

    void collageCancelOrFailureWritesNothing()
    {
        auto [stopAt, target, message, images] = row<int, QString, QString, int>("stopAt", "target", "message", "images");
        QTemporaryDir dir;
        QVERIFY(saveImage(dir.filePath("a.png"), 32, 32));
        QList<ImageAnnotations> records;
        for (int i = 0; i < images; ++i)
            records << record(dir, "a.png", 0, 0, {box("a", 0, 0, 31, 31)}, false);
        const ExportImportResult result = ExportImport::exportCollage(
            records, {}, images, true, dir.filePath(target), [&](int done, int) { return done != stopAt; });
        QVERIFY(!result.ok);
        QVERIFY2(result.message.startsWith(message.replace("%1", dir.path())), qPrintable(result.message));
        QCOMPARE(filesUnder(dir.path()), QStringList({"a.png"}));
    }
};

QTEST_MAIN(TestDatasetTools)
#include "tst_datasettools.moc"
