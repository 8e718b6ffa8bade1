#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "model/shapegeometry.h"
#include "support/corefiles.h"
#include "support/exifjpeg.h"
#include "training/trainingexport.h"

// The training exports as a trainer reads them: the label lines and COCO entries of each
// shape kind (bounds of the whole outline, clipping to the image), the value ranges and
// field counts of every layout, and data.yaml read back by a real YAML parser.

using TrainingExport::Layout;

namespace {

// One 100 x 100 image "a.png" holding `shapes`, exported in `layout` with every image in
// train. Returns the summary; the files are under dir/out.
TrainingExport::Summary exportOne(const QTemporaryDir& dir, Layout layout,
                                  const QList<BoxAnnotation>& shapes, QStringList classes = {"a"},
                                  const QMap<QString, QStringList>& keypoints = {})
{
    QImage(100, 100, QImage::Format_RGB32).save(dir.filePath("a.png"));
    ImageAnnotations record;
    record.imagePath = dir.filePath("a.png");
    record.xmlPath = dir.filePath("a.xml");
    record.boxes = shapes;
    QList<LabelDef> labels = labelList(classes);
    TrainingExport::Options options;
    options.layout = layout;
    options.outputFolder = dir.filePath("out");
    options.valPercent = 0;
    options.keypointOrder = keypoints;
    return TrainingExport::run({record}, labels, options);
}

// The numbers of a label line after the class index, rounded to 4 decimals; with
// `asSet` the (x, y) pairs sorted, for outlines whose first vertex is not the point.
QString normalised(const QByteArray& line, bool asSet)
{
    const QList<QByteArray> fields = line.trimmed().split(' ');
    QStringList values;
    for (int i = 1; i < fields.size(); ++i)
        values << QString::number(fields.at(i).toDouble(), 'f', 4);
    if (asSet) {
        QStringList pairs;
        for (int i = 0; i + 1 < values.size(); i += 2)
            pairs << values.at(i) + ' ' + values.at(i + 1);
        pairs.sort();
        pairs.removeDuplicates();
        return pairs.join(" | ");
    }
    return values.join(' ');
}

} // namespace

class TestTrainingExport : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void shapeLine_data()
    {
        columns<int, BoxAnnotation, bool, QString, bool>("layout", "shape", "asSet", "expected", "clipped");

        const int detect = int(Layout::UltralyticsDetect), segment = int(Layout::UltralyticsSegment),
                  obb = int(Layout::UltralyticsObb);
        // A box covers its right and bottom pixels: 10..29 is 20 px.
        QTest::newRow("box") << detect << box("a", 10, 20, 29, 39) << false
                             << "0.2000 0.3000 0.2000 0.2000" << false;
        // Five vertices reaching down to y = 92: the box is the bounds of all of them.
        QTest::newRow("polygon bounds")
            << detect << shape("a", ShapeType::Polygon, {{10, 10}, {30, 10}, {40, 50}, {20, 92}, {5, 50}})
            << false << "0.2250 0.5100 0.3500 0.8200" << false;
        // Tilted by 90 degrees the 20 x 10 semi-axes swap.
        QTest::newRow("rotated ellipse bounds") << detect << ellipse({50, 50}, 20, 10, 90) << false
                                                << "0.5000 0.5000 0.2000 0.4000" << false;
        // At 45 degrees the half-extent is sqrt((20² + 10²) / 2) = 15.81 on both axes.
        QTest::newRow("ellipse at 45 degrees") << detect << ellipse({50, 50}, 20, 10, 45) << false
                                               << "0.5000 0.5000 0.3162 0.3162" << false;
        QTest::newRow("ellipse over the right edge") << detect << ellipse({95, 50}, 10, 5, 0) << false
                                                     << "0.9250 0.5000 0.1500 0.1000" << true;
        // A 20 x 20 box turned 45 degrees around (0, 50): corners 14.14 px from the centre.
        QTest::newRow("rotated box over the left edge") << detect << rotated({0, 50}, 20, 20, 45) << false
                                                        << "0.0707 0.5000 0.1414 0.2828" << true;
        QTest::newRow("line") << detect << shape("a", ShapeType::Line, {{10, 10}, {50, 30}}) << false
                              << "0.3000 0.2000 0.4000 0.2000" << false;
        QTest::newRow("cuboid, every point")
            << detect
            << shape("a", ShapeType::Cuboid,
                     {{10, 10}, {30, 10}, {30, 30}, {10, 30}, {20, 5}, {40, 5}, {40, 25}, {20, 25}})
            << false << "0.2500 0.1750 0.3000 0.2500" << false;
        QTest::newRow("box below and right of the image") << detect << box("a", 80, 90, 119, 129) << false
                                                          << "0.9000 0.9500 0.2000 0.1000" << true;
        // A diamond centred on the top-left corner keeps the quarter inside: a triangle.
        QTest::newRow("polygon crossing a corner")
            << segment << shape("a", ShapeType::Polygon, {{-10, 0}, {0, -10}, {10, 0}, {0, 10}})
            << true << "0.0000 0.0000 | 0.0000 0.1000 | 0.1000 0.0000" << true;
        QTest::newRow("box outline") << segment << box("a", 10, 20, 29, 39) << true
                                     << "0.1000 0.2000 | 0.1000 0.4000 | 0.3000 0.2000 | 0.3000 0.4000" << false;
        QTest::newRow("rotated box cut by the top edge")
            << segment << rotated({50, 0}, 20, 20, 45) << true
            << "0.3586 0.0000 | 0.5000 0.1414 | 0.6414 0.0000" << true;
        QTest::newRow("obb of a box") << obb << box("a", 10, 20, 29, 39) << true
                                      << "0.1000 0.2000 | 0.1000 0.4000 | 0.3000 0.2000 | 0.3000 0.4000" << false;
        QTest::newRow("obb of a rotated box") << obb << rotated({50, 50}, 20, 20, 45) << true
                                              << "0.3586 0.5000 | 0.5000 0.3586 | 0.5000 0.6414 | 0.6414 0.5000"
                                              << false;
    }

    void shapeLine()
    {
        auto [layout, shape, asSet, expected, clipped] = row<int, BoxAnnotation, bool, QString, bool>("layout", "shape", "asSet", "expected", "clipped");

        QTemporaryDir dir;
        const TrainingExport::Summary summary = exportOne(dir, Layout(layout), {shape});
        QVERIFY2(summary.ok, qPrintable(summary.error));
        QCOMPARE(summary.shapesWritten, 1);
        QCOMPARE(summary.shapesClipped, clipped ? 1 : 0);
        const QByteArray text = readAll(dir.filePath("out/labels/train/a.txt"));
        QCOMPARE(text.count('\n'), 1);
        QVERIFY(text.startsWith("0 "));
        QCOMPARE(normalised(text, asSet), expected);
    }

    void leftOut_data()
    {
        columns<int, BoxAnnotation, QString>("layout", "shape", "reason");

        const int detect = int(Layout::UltralyticsDetect), segment = int(Layout::UltralyticsSegment);
        QTest::newRow("wholly outside") << detect << box("a", 120, 10, 140, 30) << "empty-after-clipping";
        QTest::newRow("thin box") << detect << shape("a", ShapeType::BoundingBox, {{10, 10}, {10.5, 40}})
                                  << "degenerate";
        QTest::newRow("two distinct polygon vertices")
            << detect << shape("a", ShapeType::Polygon, {{10, 10}, {40, 40}, {10, 10}}) << "degenerate";
        QTest::newRow("line on one point") << detect << shape("a", ShapeType::Line, {{5, 5}, {5, 5}})
                                           << "degenerate";
        QTest::newRow("line in segment") << segment << shape("a", ShapeType::Line, {{10, 10}, {50, 30}})
                                         << "not-an-outline";
        QTest::newRow("unknown label") << detect << box("b", 10, 10, 20, 20) << "label-not-in-class-list";
    }

    void leftOut()
    {
        auto [layout, shape, reason] = row<int, BoxAnnotation, QString>("layout", "shape", "reason");

        QTemporaryDir dir;
        const TrainingExport::Summary summary = exportOne(dir, Layout(layout), {shape, box("a", 1, 1, 9, 9)});
        QCOMPARE(summary.shapesWritten, 1);
        QCOMPARE(summary.shapesLeftOut, (QMap<QString, int>{{reason, 1}}));
        QCOMPARE(readAll(dir.filePath("out/labels/train/a.txt")).count('\n'), 1);
        QVERIFY(summary.text().contains("1 shape left out: 1 "));
    }

    // COCO: ids, float boxes of the whole shape, polygon segmentation clipped to the image,
    // the polygon's area (w x h for a box), keypoints of pose classes.
    void cocoEntries()
    {
        QTemporaryDir dir;
        BoxAnnotation nose = shape("nose", ShapeType::Keypoint, {{20, 20}});
        BoxAnnotation offImage = shape("eye", ShapeType::Keypoint, {{105, 20}});
        const TrainingExport::Summary summary = exportOne(
            dir, Layout::CocoInstances,
            {box("a", 10, 10, 29, 29), ellipse({95, 50}, 10, 5, 0),
             shape("b", ShapeType::Polygon, {{-10, 0}, {0, -10}, {10, 0}, {0, 10}}), nose, offImage},
            {"a", "b"}, {{"a", {"nose", "eye"}}});
        QVERIFY2(summary.ok, qPrintable(summary.error));
        const QJsonObject json = QJsonDocument::fromJson(readAll(dir.filePath("out/annotations/instances_train.json"))).object();
        const QJsonArray images = json.value("images").toArray();
        QCOMPARE(images.size(), 1);
        QCOMPARE(images.at(0).toObject().value("file_name").toString(), "a.png");
        QCOMPARE(images.at(0).toObject().value("width").toInt(), 100);
        const int imageId = images.at(0).toObject().value("id").toInt();

        const QJsonArray categories = json.value("categories").toArray();
        QCOMPARE(categories.size(), 2);
        QCOMPARE(categories.at(0).toObject().value("keypoints").toArray(), QJsonArray({"nose", "eye"}));
        QVERIFY(!categories.at(1).toObject().contains("keypoints"));

        const QJsonArray annotations = json.value("annotations").toArray();
        QCOMPARE(annotations.size(), 3);
        struct Expected {
            int category;
            QList<double> bbox;
            double area;
        };
        // The ellipse is cut by the right edge; the diamond keeps its quarter in the corner.
        const Expected expected[] = {{1, {10, 10, 20, 20}, 400}, {1, {85, 45, 15, 10}, -1}, {2, {0, 0, 10, 10}, 50}};
        for (int i = 0; i < 3; ++i) {
            const QJsonObject a = annotations.at(i).toObject();
            QCOMPARE(a.value("id").toInt(), i + 1);
            QCOMPARE(a.value("image_id").toInt(), imageId);
            QCOMPARE(a.value("category_id").toInt(), expected[i].category);
            QCOMPARE(a.value("iscrowd").toInt(-1), 0);
            const QJsonArray bbox = a.value("bbox").toArray();
            for (int k = 0; k < 4; ++k)
                QVERIFY2(qAbs(bbox.at(k).toDouble() - expected[i].bbox.at(k)) < 1e-3, qPrintable(QString::number(i)));
            const QJsonArray outline = a.value("segmentation").toArray().at(0).toArray();
            QPolygonF polygon;
            for (int k = 0; k + 1 < outline.size(); k += 2) {
                const QPointF p(outline.at(k).toDouble(), outline.at(k + 1).toDouble());
                QVERIFY(p.x() >= 0 && p.x() <= 100 && p.y() >= 0 && p.y() <= 100);
                polygon << p;
            }
            QVERIFY(polygon.size() >= 3);
            QVERIFY(qAbs(a.value("area").toDouble() - ShapeGeometry::area(polygon)) < 1e-3);
            if (expected[i].area >= 0)
                QCOMPARE(a.value("area").toDouble(), expected[i].area);
        }
        // The pose class carries its keypoints: the nose placed, the eye off the image.
        const QJsonObject first = annotations.at(0).toObject();
        QCOMPARE(first.value("num_keypoints").toInt(), 1);
        QCOMPARE(first.value("keypoints").toArray(), QJsonArray({20, 20, 2, 0, 0, 0}));
        QVERIFY(!annotations.at(2).toObject().contains("keypoints"));
    }

    void everyLayoutIsWellFormed_data()
    {
        // fixedFields: -1: an even count of 6 or more after the class
        columns<int, int>("layout", "fixedFields");
        QTest::newRow("detect") << int(Layout::UltralyticsDetect) << 4;
        QTest::newRow("segment") << int(Layout::UltralyticsSegment) << -1;
        QTest::newRow("obb") << int(Layout::UltralyticsObb) << 8;
        QTest::newRow("pose, 2 keypoints") << int(Layout::UltralyticsPose) << 4 + 2 * 3;
    }

    // Every shape kind, partly off the image: every line has the layout's field count and
    // every coordinate lies in [0, 1]; pose visibility flags are 0 or 2.
    void everyLayoutIsWellFormed()
    {
        auto [layout, fixedFields] = row<int, int>("layout", "fixedFields");

        QTemporaryDir dir;
        const QList<BoxAnnotation> shapes = {
            box("a", -20, -20, 30, 30), ellipse({90, 90}, 30, 10, 30), rotated({100, 0}, 30, 10, 20),
            shape("a", ShapeType::Polygon, {{50, 50}, {130, 60}, {60, 140}}),
            shape("a", ShapeType::Line, {{-5, 50}, {50, 105}}),
            shape("a", ShapeType::Cuboid, {{10, 60}, {30, 60}, {30, 80}, {10, 80}, {20, 90}, {40, 90}, {40, 110}, {20, 110}}),
            shape("nose", ShapeType::Keypoint, {{0, 0}}), shape("tail", ShapeType::Keypoint, {{-3, 5}})};
        const TrainingExport::Summary summary =
            exportOne(dir, Layout(layout), shapes, {"a"}, {{"a", {"nose", "tail"}}});
        QVERIFY2(summary.ok, qPrintable(summary.error));
        const QList<QByteArray> lines = readAll(dir.filePath("out/labels/train/a.txt")).split('\n');
        QCOMPARE(lines.last(), QByteArray());
        QVERIFY(lines.size() > 1);
        for (int l = 0; l + 1 < lines.size(); ++l) {
            const QList<QByteArray> fields = lines.at(l).split(' ');
            QCOMPARE(fields.first(), QByteArray("0"));
            const int n = int(fields.size()) - 1;
            if (fixedFields < 0)
                QVERIFY2(n >= 6 && n % 2 == 0, lines.at(l).constData());
            else
                QCOMPARE(n, fixedFields);
            for (int i = 1; i < fields.size(); ++i) {
                bool ok = false;
                const double v = fields.at(i).toDouble(&ok);
                const bool flag = Layout(layout) == Layout::UltralyticsPose && i > 4 && (i - 4) % 3 == 0;
                QVERIFY2(ok && (flag ? v == 0 || v == 2 : v >= 0 && v <= 1), lines.at(l).constData());
            }
        }
        const QByteArray yaml = readAll(dir.filePath("out/data.yaml"));
        QCOMPARE(yaml.contains("kpt_shape: [2, 3]"), Layout(layout) == Layout::UltralyticsPose);
    }

    // Names YAML would read as booleans, null, a comment, a mapping or an escape come back
    // exactly through Debian's python3-yaml.
    void yamlNamesReadBack()
    {
        if (!QFile::exists("/usr/bin/python3"))
            QSKIP("no /usr/bin/python3");
        const QStringList names = {"no", "on", "null", "#1", "sign: stop", "- dash", "quote \" and \\ back",
                                   "tab\there", "  spaced  ", "ünïcödé ✓", "1e3", "[list]", "{map}", "~", "'single'"};
        QTemporaryDir dir;
        QVERIFY(exportOne(dir, Layout::UltralyticsDetect, {box("no", 1, 1, 9, 9)}, names).ok);
        QProcess python;
        python.start("/usr/bin/python3",
                     {"-c", "import sys, json, yaml\n"
                            "d = yaml.safe_load(open(sys.argv[1], encoding='utf-8'))\n"
                            "assert list(d['names']) == list(range(len(d['names'])))\n"
                            "sys.stdout.write(json.dumps({'names': list(d['names'].values()),"
                            " 'train': d['train'], 'val': d['val'], 'path': d['path']}))",
                      dir.filePath("out/data.yaml")});
        QVERIFY(python.waitForFinished(30000));
        if (python.exitCode() != 0 && python.readAllStandardError().contains("No module named 'yaml'"))
            QSKIP("python3-yaml is not installed (scripts/install-deps.sh installs it)");
        QCOMPARE(python.exitCode(), 0);
        const QJsonObject read = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
        QCOMPARE(read.value("names").toVariant().toStringList(), names);
    QCOMPARE(read.value("train").toString(), "images/train");
        QCOMPARE(read.value("val").toString(), "images/val");
        QCOMPARE(read.value("path").toString(), QDir(dir.filePath("out")).absolutePath());
    }

    void imagesKeepBytesOrTurnUpright_data()
    {
        columns<bool, bool>("turned", "link");
        QTest::newRow("copy") << false << false;
        QTest::newRow("hard link") << false << true;
        QTest::newRow("EXIF quarter turn, copy") << true << false;
        QTest::newRow("EXIF quarter turn, link") << true << true;
    }

    // Images keep their names and bytes (a link shares the file); one with an EXIF
    // orientation is written turned as it is shown, so the shapes fit its pixels.
    void imagesKeepBytesOrTurnUpright()
    {
        auto [turned, link] = row<bool, bool>("turned", "link");

        QTemporaryDir dir;
        const QString source = dir.filePath("p.jpg");
        QImage picture(100, 60, QImage::Format_RGB32);
        picture.fill(Qt::white);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                picture.setPixel(x, y, qRgb(0, 0, 0));
        QVERIFY(turned ? writeTurnedJpeg(source, picture) : picture.save(source, "JPEG"));
        QCOMPARE(QImageReader(source).transformation() != QImageIOHandler::TransformationNone, turned);
        ImageAnnotations record;
        record.imagePath = source;
        record.boxes = {box("a", 1, 1, 9, 9)};
        QList<LabelDef> labels = {{"a", Qt::red}};
        TrainingExport::Options options;
        options.outputFolder = dir.filePath("out");
        options.valPercent = 0;
        options.images = link ? TrainingExport::ImageMode::Link : TrainingExport::ImageMode::Copy;
        const TrainingExport::Summary summary = TrainingExport::run({record}, labels, options);
        QVERIFY2(summary.ok, qPrintable(summary.error));
        QCOMPARE(summary.reoriented, turned ? 1 : 0);

        const QString written = dir.filePath("out/images/train/p.jpg");
        QCOMPARE(readAll(written) == readAll(source), !turned);
        QImageReader reader(written);
        QCOMPARE(reader.transformation(), QImageIOHandler::TransformationNone);
        QCOMPARE(reader.size(), turned ? QSize(60, 100) : QSize(100, 60));
        if (turned) // the black top-left corner went to the top right
            QVERIFY(qGray(reader.read().pixel(55, 4)) < 64);
    }
};

QTEST_GUILESS_MAIN(TestTrainingExport)
#include "tst_trainingexport.moc"
