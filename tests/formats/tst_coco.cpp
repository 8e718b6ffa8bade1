#include <QFile>
#include <QFileInfo>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <limits>

#include "formats/exportimport.h"
#include "model/labelpalette.h"
#include "support/records.h"

namespace {

QList<LabelDef> labelList(const QStringList& names)
{
    QList<LabelDef> labels;
    for (const QString& n : names)
        LabelPalette::appendIfMissing(labels, n);
    return labels;
}

// "image:label:(x0,y0)-(x1,y1)" for every imported box, so a table row can name them.
QStringList describeBoxes(const QList<ImageAnnotations>& images)
{
    QStringList out;
    for (int i = 0; i < images.size(); ++i) {
        for (const BoxAnnotation& b : images.at(i).boxes) {
            QString s = QStringLiteral("%1:%2:").arg(i).arg(b.label);
            QStringList pts;
            for (const QPointF& p : b.points)
                pts << QStringLiteral("(%1,%2)").arg(QString::number(p.x(), 'g', 15), QString::number(p.y(), 'g', 15));
            out << s + pts.join(u'-');
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

QJsonObject exportedRoot(const QString& path)
{
    return QJsonDocument::fromJson(readAll(path)).object();
}

} // namespace

class TestCoco : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportAnnotation_data();
    void exportAnnotation();
    void exportDocumentBytes();
    void exportMatchesQtWriter();
    void exportCountsAndIds();
    void exportEmptyDataset();
    void exportUnwritable();
    void exportImageSizeRule();
    void import_data();
    void import();
    void importMalformed_data();
    void importMalformed();
    void importMissingFile();
    void importImageSizeRule();
    void importTwiceDoublesBoxes();
    void roundTrip_data();
    void roundTrip();

private:
    QTemporaryDir m_dir;
};

void TestCoco::exportAnnotation_data()
{
    QTest::addColumn<BoxAnnotation>("annotation");
    QTest::addColumn<QList<int>>("bbox");
    QTest::addColumn<double>("area");
    QTest::addColumn<int>("categoryId");

    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();

    QTest::newRow("box") << box("car", 100, 50, 300, 250) << QList<int>{100, 50, 201, 201} << 40401.0 << 1;
    QTest::newRow("corners reversed") << box("car", 300, 250, 100, 50) << QList<int>{100, 50, 201, 201}
                                      << 40401.0 << 1;
    QTest::newRow("fractions truncate") << box("person", 10.7, 20.2, 110.9, 220.0)
                                        << QList<int>{10, 20, 101, 201} << 20301.0 << 2;
    QTest::newRow("third label") << box("tree", 0, 0, 0, 0) << QList<int>{0, 0, 1, 1} << 1.0 << 3;
    QTest::newRow("label not in list") << box("truck", 0, 0, 9, 9) << QList<int>{0, 0, 10, 10} << 100.0 << 1;
    QTest::newRow("label case differs") << box("Car", 0, 0, 9, 9) << QList<int>{0, 0, 10, 10} << 100.0 << 1;
    QTest::newRow("keypoint") << shape("person", ShapeType::Keypoint, {QPointF(50, 60)})
                              << QList<int>{-1, -1, 2, 2} << 4.0 << 2;
    QTest::newRow("no points") << shape("car", ShapeType::BoundingBox, {}) << QList<int>{-1, -1, 2, 2} << 4.0 << 1;
    QTest::newRow("past right edge") << box("car", 600, 10, 700, 20) << QList<int>{600, 10, 40, 11} << 440.0 << 1;
    QTest::newRow("past top-left") << box("car", -5.5, -20, 10, 10) << QList<int>{0, 0, 11, 11} << 121.0 << 1;
    QTest::newRow("past bottom-right") << box("car", 630, 470, 900, 900) << QList<int>{630, 470, 10, 10}
                                       << 100.0 << 1;
    // Entirely right of the image: left stays 700, right becomes 639, and the two
    // corners span 639..700.
    QTest::newRow("outside right") << box("car", 700, 10, 800, 20) << QList<int>{639, 10, 62, 11} << 682.0 << 1;
    QTest::newRow("polygon uses first two points")
        << shape("car", ShapeType::Polygon, {QPointF(10, 10), QPointF(20, 30), QPointF(500, 400)})
        << QList<int>{10, 10, 11, 21} << 231.0 << 1;
    QTest::newRow("ellipse centre and radii")
        << shape("car", ShapeType::Ellipse, {QPointF(100, 100), QPointF(20, 10)})
        << QList<int>{20, 10, 81, 91} << 7371.0 << 1;
    QTest::newRow("huge coordinates") << box("car", -1e300, -1e300, 1e300, 1e300)
                                      << QList<int>{0, 0, 640, 480} << 307200.0 << 1;
    QTest::newRow("infinite coordinates") << box("car", -inf, 5, inf, 7) << QList<int>{0, 5, 640, 3} << 1920.0 << 1;
    QTest::newRow("nan coordinate") << box("car", nan, 5, 10, 7) << QList<int>{0, 5, 11, 3} << 33.0 << 1;
}

void TestCoco::exportAnnotation()
{
    QFETCH(BoxAnnotation, annotation);
    QFETCH(QList<int>, bbox);
    QFETCH(double, area);
    QFETCH(int, categoryId);

    const QString path = m_dir.filePath(QStringLiteral("one.json"));
    const QList<ImageAnnotations> images{image(QStringLiteral("/data/img.jpg"), 640, 480, {annotation})};
    const ExportImportResult r =
        ExportImport::exportCoco(images, labelList({"car", "person", "tree"}), path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 1);

    const QJsonArray anns = exportedRoot(path).value(QStringLiteral("annotations")).toArray();
    QCOMPARE(anns.size(), 1);
    const QJsonObject a = anns.at(0).toObject();
    QList<int> got;
    for (const QJsonValue& v : a.value(QStringLiteral("bbox")).toArray()) {
        QVERIFY(v.isDouble());
        got << v.toInt(std::numeric_limits<int>::min());
    }
    QCOMPARE(got, bbox);
    QCOMPARE(a.value(QStringLiteral("area")).toDouble(), area);
    QCOMPARE(a.value(QStringLiteral("category_id")).toInt(), categoryId);
    QCOMPARE(a.value(QStringLiteral("iscrowd")).toInt(-1), 0);
    QCOMPARE(a.value(QStringLiteral("image_id")).toInt(), 1);
    QCOMPARE(a.value(QStringLiteral("id")).toInt(), 1);
    QVERIFY(!a.contains(QStringLiteral("segmentation")));
}

void TestCoco::exportDocumentBytes()
{
    const QString path = m_dir.filePath(QStringLiteral("layout.json"));
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/data/images/street_01.jpg"), 640, 480, {box("car", 100, 50, 300, 250)}),
        image(QStringLiteral("/data/images/empty.png"), 20, 10),
    };
    QVERIFY(ExportImport::exportCoco(images, labelList({"car", "person"}), path).ok);

    const QByteArray expected = R"({
    "annotations": [
        {
            "area": 40401,
            "bbox": [
                100,
                50,
                201,
                201
            ],
            "category_id": 1,
            "id": 1,
            "image_id": 1,
            "iscrowd": 0
        }
    ],
    "categories": [
        {
            "id": 1,
            "name": "car",
            "supercategory": "none"
        },
        {
            "id": 2,
            "name": "person",
            "supercategory": "none"
        }
    ],
    "images": [
        {
            "file_name": "street_01.jpg",
            "height": 480,
            "id": 1,
            "width": 640
        },
        {
            "file_name": "empty.png",
            "height": 10,
            "id": 2,
            "width": 20
        }
    ],
    "info": {
        "description": "Quillmark",
        "version": "1.0"
    }
}
)";
    QCOMPARE(readAll(path), expected);
}

// The annotations are written as text; the file must still be exactly what Qt's
// indented writer makes of the same document.
void TestCoco::exportMatchesQtWriter()
{
    const QString odd = QStringLiteral("q\"b\\s/t\tn\nc\x01\x1f é ✓ ") + QChar(0xD800) + QStringLiteral("😀");
    const QList<ImageAnnotations> images{
        image(QStringLiteral("/d/") + odd + QStringLiteral(".png"), 640, 480,
              {box(odd, 1, 2, 3, 4), box("car", -10, -10, 1000, 1000), box("", 5, 5, 5, 5),
               shape("missing", ShapeType::Keypoint, {QPointF(3, 3)})}),
        image(QStringLiteral("/d/none.png"), 10, 10),
    };
    const QString path = m_dir.filePath(QStringLiteral("qt.json"));
    QVERIFY(ExportImport::exportCoco(images, labelList({"car", odd, ""}), path).ok);

    const QByteArray written = readAll(path);
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(written, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(written, doc.toJson(QJsonDocument::Indented));
    QCOMPARE(doc.object().value(QStringLiteral("images")).toArray().at(0)[QStringLiteral("file_name")].toString(),
             QFileInfo(images.at(0).imagePath).fileName());

    // Areas beyond 2^53 are not whole numbers for Qt's writer and print as it prints
    // such a double (reading the file back would turn them into integers).
    const QList<ImageAnnotations> huge{image(QStringLiteral("/d/huge.png"), 2147483647, 2147483647,
                                             {box("car", 0, 0, 1e9, 1e9), box("car", 0, 0, 94906264, 94906264)})};
    QVERIFY(ExportImport::exportCoco(huge, labelList({"car"}), path).ok);
    const QByteArray big = QJsonDocument(QJsonArray{1000000001.0 * 1000000001.0}).toJson(QJsonDocument::Compact);
    QVERIFY(readAll(path).contains("\"area\": " + big.mid(1, big.size() - 2) + ",\n"));
    QVERIFY(readAll(path).contains("\"area\": 9007199136250225,\n"));
}

void TestCoco::exportCountsAndIds()
{
    const QString path = m_dir.filePath(QStringLiteral("ids.json"));
    const QList<ImageAnnotations> images{
        image(QStringLiteral("a.png"), 100, 100, {box("x", 1, 1, 2, 2), box("y", 3, 3, 4, 4)}),
        image(QStringLiteral("b.png"), 100, 100),
        image(QStringLiteral("c.png"), 100, 100, {box("y", 5, 5, 6, 6)}),
    };
    const ExportImportResult r = ExportImport::exportCoco(images, labelList({"x", "y"}), path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 3);
    QCOMPARE(r.message, QStringLiteral("Exported COCO JSON to:\n") + path);

    const QJsonObject root = exportedRoot(path);
    QCOMPARE(root.value(QStringLiteral("images")).toArray().size(), 3);
    QList<QPair<int, int>> idAndImage;
    QList<int> categories;
    for (const QJsonValue& v : root.value(QStringLiteral("annotations")).toArray()) {
        const QJsonObject a = v.toObject();
        idAndImage << qMakePair(a.value(QStringLiteral("id")).toInt(), a.value(QStringLiteral("image_id")).toInt());
        categories << a.value(QStringLiteral("category_id")).toInt();
    }
    const QList<QPair<int, int>> expectedIds{{1, 1}, {2, 1}, {3, 3}};
    QCOMPARE(idAndImage, expectedIds);
    QCOMPARE(categories, (QList<int>{1, 2, 2}));
}

void TestCoco::exportEmptyDataset()
{
    const QString path = m_dir.filePath(QStringLiteral("empty.json"));
    const ExportImportResult r = ExportImport::exportCoco({}, labelList({"object"}), path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 0);
    const QJsonObject root = exportedRoot(path);
    QVERIFY(root.value(QStringLiteral("images")).isArray());
    QVERIFY(root.value(QStringLiteral("annotations")).isArray());
    QVERIFY(root.value(QStringLiteral("images")).toArray().isEmpty());
    QVERIFY(root.value(QStringLiteral("annotations")).toArray().isEmpty());
    QCOMPARE(root.value(QStringLiteral("categories")).toArray().size(), 1);
}

void TestCoco::exportUnwritable()
{
    const QString path = m_dir.filePath(QStringLiteral("no/such/folder/out.json"));
    const QList<ImageAnnotations> images{image(QStringLiteral("a.png"), 10, 10, {box("x", 1, 1, 2, 2)})};
    const ExportImportResult r = ExportImport::exportCoco(images, labelList({"x"}), path);
    QVERIFY(!r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, QStringLiteral("Cannot write to ") + path + "\nNo such file or directory");
    QVERIFY(!QFile::exists(path));

    // A folder given as the target is not replaced.
    const QString folder = m_dir.filePath(QStringLiteral("folder.json"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(!ExportImport::exportCoco(images, labelList({"x"}), folder).ok);
    QVERIFY(QFileInfo(folder).isDir());

    // A longer existing file is replaced whole, not overwritten in place.
    const QString existing = m_dir.filePath(QStringLiteral("existing.json"));
    writeAll(existing, QByteArray(100000, 'x'));
    QVERIFY(ExportImport::exportCoco(images, labelList({"x"}), existing).ok);
    QVERIFY(QJsonDocument::fromJson(readAll(existing)).isObject());
}

void TestCoco::exportImageSizeRule()
{
    const QString png = m_dir.filePath(QStringLiteral("sized.png"));
    QImage pixels(33, 17, QImage::Format_RGB32);
    pixels.fill(Qt::white);
    QVERIFY(pixels.save(png));

    const QString path = m_dir.filePath(QStringLiteral("sizes.json"));
    const QList<ImageAnnotations> images{
        image(png, 0, 0, {box("x", 0, 0, 100, 100)}),           // read from the file
        image(png, 5, 0),                                        // one side missing: file
        image(m_dir.filePath(QStringLiteral("missing.png")), 0, 0, {box("x", 0, 0, 100, 100)}),
        image(png, 7, 9),                                        // stored size wins
    };
    QVERIFY(ExportImport::exportCoco(images, labelList({"x"}), path).ok);
    const QJsonObject root = exportedRoot(path);
    QList<QSize> sizes;
    for (const QJsonValue& v : root.value(QStringLiteral("images")).toArray())
        sizes << QSize(v[QStringLiteral("width")].toInt(), v[QStringLiteral("height")].toInt());
    QCOMPARE(sizes, (QList<QSize>{QSize(33, 17), QSize(33, 17), QSize(1, 1), QSize(7, 9)}));

    const QJsonArray anns = root.value(QStringLiteral("annotations")).toArray();
    QCOMPARE(anns.at(0)[QStringLiteral("bbox")].toArray(), (QJsonArray{0, 0, 33, 17}));
    QCOMPARE(anns.at(1)[QStringLiteral("bbox")].toArray(), (QJsonArray{0, 0, 1, 1}));
}

void TestCoco::import_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("expectedBoxes");
    QTest::addColumn<QStringList>("expectedLabels");

    // Session: 0 = /s/img.png 640x480, 1 = /s/other.jpg 100x50 (has box "old"),
    // 2 = /a/dup.png 10x10, 3 = /b/dup.jpg 20x20. Labels start as [object, car].
    const QStringList start{"1:old:(1,1)-(2,2)"};
    // Boxes are listed image by image; the old box is the first of image 1.
    auto with = [&](const QStringList& added) {
        QStringList all = start + added;
        std::stable_sort(all.begin(), all.end(), [](const QString& x, const QString& y) {
            return x.section(u':', 0, 0).toInt() < y.section(u':', 0, 0).toInt();
        });
        return all;
    };

    QTest::newRow("fractional bbox truncates")
        << QByteArray(R"({"categories":[{"id":1,"name":"car"}],"images":[{"id":7,"file_name":"img.png"}],
                         "annotations":[{"image_id":7,"category_id":1,"bbox":[10.9,20.9,30.9,40.9]}]})")
        << with({"0:car:(10,20)-(39,59)"}) << QStringList{"object", "car"};
    QTest::newRow("extension and folders ignored")
        << QByteArray(R"({"categories":[{"id":3,"name":"bus"}],"images":[{"id":1,"file_name":"x/y/img.jpeg"}],
                         "annotations":[{"image_id":1,"category_id":3,"bbox":[0,0,5,5]}]})")
        << with({"0:bus:(0,0)-(4,4)"}) << QStringList{"object", "car", "bus"};
    QTest::newRow("base name is case-sensitive")
        << QByteArray(R"({"categories":[{"id":1,"name":"car"}],"images":[{"id":1,"file_name":"IMG.png"}],
                         "annotations":[{"image_id":1,"category_id":1,"bbox":[0,0,5,5]}]})")
        << start << QStringList{"object", "car"};
    QTest::newRow("unknown category is object, not added")
        << QByteArray(R"({"categories":[],"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"category_id":9,"bbox":[1,2,3,4]}]})")
        << with({"0:object:(1,2)-(3,5)"}) << QStringList{"object", "car"};
    QTest::newRow("unknown image id skipped")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":2,"bbox":[1,2,3,4]}]})")
        << start << QStringList{"object", "car"};
    QTest::newRow("unmatched file skipped")
        << QByteArray(R"({"images":[{"id":1,"file_name":"nothere.png"}],
                         "annotations":[{"image_id":1,"bbox":[1,2,3,4]}]})")
        << start << QStringList{"object", "car"};
    QTest::newRow("categories added in file order with palette colours")
        << QByteArray(R"({"categories":[{"id":2,"name":"zebra"},{"id":1,"name":"car"},{"id":5,"name":"ant"}]})")
        << start << QStringList{"object", "car", "zebra", "ant"};
    QTest::newRow("later category with same id wins")
        << QByteArray(R"({"categories":[{"id":1,"name":"first"},{"id":1,"name":"second"}],
                         "images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"category_id":1,"bbox":[1,1,1,1]}]})")
        << with({"0:second:(1,1)-(1,1)"}) << QStringList{"object", "car", "first", "second"};
    QTest::newRow("later image with same id wins")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"},{"id":1,"file_name":"other.png"}],
                         "annotations":[{"image_id":1,"bbox":[1,1,1,1]}]})")
        << with({"1:object:(1,1)-(1,1)"}) << QStringList{"object", "car"};
    QTest::newRow("shared base name goes to the later image")
        << QByteArray(R"({"images":[{"id":4,"file_name":"dup.bmp"}],"annotations":[{"image_id":4,"bbox":[0,0,2,2]}]})")
        << with({"3:object:(0,0)-(1,1)"}) << QStringList{"object", "car"};
    QTest::newRow("existing boxes kept, order preserved")
        << QByteArray(R"({"images":[{"id":1,"file_name":"other.png"}],
                         "annotations":[{"image_id":1,"bbox":[5,5,2,2]},{"image_id":1,"bbox":[7,7,2,2]}]})")
        << QStringList{"1:old:(1,1)-(2,2)", "1:object:(5,5)-(6,6)", "1:object:(7,7)-(8,8)"}
        << QStringList{"object", "car"};
    QTest::newRow("clamped to the image")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":[-10,-10,50,50]},{"image_id":1,"bbox":[600,400,100,100]}]})")
        << with({"0:object:(0,0)-(39,39)", "0:object:(600,400)-(639,479)"}) << QStringList{"object", "car"};
    QTest::newRow("negative size is normalised")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":[100,100,-20,-30]}]})")
        << with({"0:object:(80,70)-(99,99)"}) << QStringList{"object", "car"};
    QTest::newRow("short and missing bbox skipped")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":[1,2,3]},{"image_id":1},{"image_id":1,"bbox":"1,2,3,4"}]})")
        << start << QStringList{"object", "car"};
    QTest::newRow("extra bbox entries ignored")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":[1,2,3,4,99,"x"]}]})")
        << with({"0:object:(1,2)-(3,5)"}) << QStringList{"object", "car"};
    QTest::newRow("non-number bbox entries read as 0")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":["5",null,true,4]}]})")
        << with({"0:object:(0,0)-(-1,3)"}) << QStringList{"object", "car"};
    // Missing or non-integral ids read as 0, so they meet each other.
    QTest::newRow("missing and fractional ids are 0")
        << QByteArray(R"({"categories":[{"name":"noid"}],"images":[{"id":0.5,"file_name":"img.png"}],
                         "annotations":[{"bbox":[1,1,1,1]},{"image_id":"0","category_id":0,"bbox":[2,2,1,1]}]})")
        << with({"0:noid:(1,1)-(1,1)", "0:noid:(2,2)-(2,2)"}) << QStringList{"object", "car", "noid"};
    QTest::newRow("ids beyond int range are 0")
        << QByteArray(R"({"images":[{"id":1e12,"file_name":"img.png"}],
                         "annotations":[{"image_id":0,"bbox":[1,1,1,1]}]})")
        << with({"0:object:(1,1)-(1,1)"}) << QStringList{"object", "car"};
    QTest::newRow("huge numbers saturate")
        << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],
                         "annotations":[{"image_id":1,"bbox":[1e308,-1e308,1e308,1e308]},
                                        {"image_id":1,"bbox":[-1e308,-1e308,1e308,1e308]}]})")
        << with({"0:object:(2147483647,0)-(639,-2)", "0:object:(0,0)-(-2,-2)"})
        << QStringList{"object", "car"};
}

void TestCoco::import()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, expectedBoxes);
    QFETCH(QStringList, expectedLabels);

    QList<ImageAnnotations> images{
        image(QStringLiteral("/s/img.png"), 640, 480),
        image(QStringLiteral("/s/other.jpg"), 100, 50, {box("old", 1, 1, 2, 2)}),
        image(QStringLiteral("/a/dup.png"), 10, 10),
        image(QStringLiteral("/b/dup.jpg"), 20, 20),
    };
    QList<LabelDef> labels = labelList({"object", "car"});
    const QString path = m_dir.filePath(QStringLiteral("in.json"));
    writeAll(path, json);

    const ExportImportResult r = ExportImport::importCoco(images, labels, path);
    QVERIFY(r.ok);
    const QStringList boxes = describeBoxes(images);
    QCOMPARE(boxes, expectedBoxes);
    QCOMPARE(labelNames(labels), expectedLabels);
    const int added = int(expectedBoxes.size()) - 1;
    QCOMPARE(r.count, added);
    QCOMPARE(r.message, QStringLiteral("Imported %1 COCO annotation(s).").arg(added));

    for (int i = 0; i < labels.size(); ++i)
        QCOMPARE(labels.at(i).color, LabelPalette::colorForIndex(i));
    // Exactly the images that received boxes are marked dirty.
    for (int i = 0; i < images.size(); ++i) {
        const bool received = int(images.at(i).boxes.size()) > (i == 1 ? 1 : 0);
        QCOMPARE(images.at(i).dirty, received);
    }
}

void TestCoco::importMalformed_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("not json") << QByteArray("filename,width\nimg.png,1\n");
    QTest::newRow("truncated") << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"}],"annotations":[{"ima)");
    QTest::newRow("array root") << QByteArray(R"([{"images":[{"id":1,"file_name":"img.png"}]}])");
    QTest::newRow("number root") << QByteArray("42");
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe{\x01", 5);
    QTest::newRow("wrong member types")
        << QByteArray(R"({"categories":{"id":1,"name":"x"},"images":5,"annotations":"a"})");
    QTest::newRow("elements of wrong type")
        << QByteArray(R"({"images":[1,"img.png",null,[1]],"annotations":[[1,1,1,1],7,null]})");
    QTest::newRow("names of wrong type")
        << QByteArray(R"({"images":[{"id":1,"file_name":7}],"annotations":[{"image_id":1,"bbox":[1,1,1,1]}]})");
}

void TestCoco::importMalformed()
{
    QFETCH(QByteArray, bytes);
    QList<ImageAnnotations> images{image(QStringLiteral("/s/img.png"), 640, 480)};
    QList<LabelDef> labels = labelList({"object"});
    const QString path = m_dir.filePath(QStringLiteral("bad.json"));
    writeAll(path, bytes);

    const ExportImportResult r = ExportImport::importCoco(images, labels, path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, QStringLiteral("Imported 0 COCO annotation(s)."));
    QVERIFY(images.first().boxes.isEmpty());
    QVERIFY(!images.first().dirty);
    QCOMPARE(labelNames(labels), QStringList{"object"});
}

void TestCoco::importMissingFile()
{
    QList<ImageAnnotations> images{image(QStringLiteral("/s/img.png"), 640, 480)};
    QList<LabelDef> labels = labelList({"object"});
    const QString folder = m_dir.filePath(QStringLiteral("folder.json"));
    QVERIFY(QDir().mkpath(folder));
    for (const QString& path : {m_dir.filePath(QStringLiteral("absent.json")), folder}) {
        const ExportImportResult r = ExportImport::importCoco(images, labels, path);
        QVERIFY(!r.ok);
        QCOMPARE(r.count, 0);
        QCOMPARE(r.message, QStringLiteral("Cannot open ") + path);
    }
    QCOMPARE(labels.size(), 1);
}

void TestCoco::importImageSizeRule()
{
    const QString png = m_dir.filePath(QStringLiteral("fifty.png"));
    QImage pixels(50, 40, QImage::Format_RGB32);
    pixels.fill(Qt::black);
    QVERIFY(pixels.save(png));

    QList<ImageAnnotations> images{image(png, 0, 0), image(m_dir.filePath(QStringLiteral("gone.png")), 0, 0)};
    QList<LabelDef> labels;
    const QString path = m_dir.filePath(QStringLiteral("sizes-in.json"));
    writeAll(path, R"({"images":[{"id":1,"file_name":"fifty.jpg"},{"id":2,"file_name":"gone.png"}],
                      "annotations":[{"image_id":1,"bbox":[10,10,100,100]},{"image_id":2,"bbox":[3,3,9,9]}]})");
    QCOMPARE(ExportImport::importCoco(images, labels, path).count, 2);
    // The unreadable image counts as 1 x 1.
    QCOMPARE(describeBoxes(images), (QStringList{"0:object:(10,10)-(49,39)", "1:object:(3,3)-(0,0)"}));
    QCOMPARE(images.at(0).width, 0);
    QVERIFY(labels.isEmpty());
}

void TestCoco::importTwiceDoublesBoxes()
{
    QList<ImageAnnotations> images{image(QStringLiteral("/s/img.png"), 640, 480)};
    QList<LabelDef> labels;
    const QString path = m_dir.filePath(QStringLiteral("twice.json"));
    writeAll(path, R"({"categories":[{"id":1,"name":"car"}],"images":[{"id":1,"file_name":"img.png"}],
                      "annotations":[{"image_id":1,"category_id":1,"bbox":[1,2,3,4]}]})");
    QCOMPARE(ExportImport::importCoco(images, labels, path).count, 1);
    QCOMPARE(ExportImport::importCoco(images, labels, path).count, 1);
    QCOMPARE(describeBoxes(images), (QStringList{"0:car:(1,2)-(3,5)", "0:car:(1,2)-(3,5)"}));
    QCOMPARE(labelNames(labels), QStringList{"car"});
}

void TestCoco::roundTrip_data()
{
    QTest::addColumn<QList<ImageAnnotations>>("images");
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<bool>("identicalFirstPass");

    QTest::newRow("boxes inside images")
        << QList<ImageAnnotations>{
               image(QStringLiteral("/d/a.jpg"), 640, 480,
                     {box("car", 100, 50, 300, 250), box("person", 0, 0, 639, 479), box("tree", 5, 5, 5, 5)}),
               image(QStringLiteral("/d/b.png"), 320, 200),
               image(QStringLiteral("/d/c.bmp"), 320, 200, {box("tree", 319, 199, 300, 150), box("car", 1, 2, 3, 4)}),
           }
        << QStringList{"tree", "person", "car"} << true;
    QTest::newRow("unicode names")
        << QList<ImageAnnotations>{image(QStringLiteral("/d/bild ä.jpg"), 64, 48, {box("Straße, nass", 1, 1, 10, 10)})}
        << QStringList{"Straße, nass", "\"quoted\""} << true;
    // Shapes that the export clamps or reduces settle after one pass.
    QTest::newRow("mixed shapes settle")
        << QList<ImageAnnotations>{image(
               QStringLiteral("/d/m.jpg"), 100, 80,
               {shape("kp", ShapeType::Keypoint, {QPointF(50, 50)}), box("car", -20, -20, 500, 500),
                box("car", 200, 10, 300, 20),
                shape("poly", ShapeType::Polygon, {QPointF(10.5, 20.5), QPointF(30.9, 5.1), QPointF(90, 90)})})}
        << QStringList{"car", "kp", "poly"} << false;
}

void TestCoco::roundTrip()
{
    QFETCH(QList<ImageAnnotations>, images);
    QFETCH(QStringList, labels);
    QFETCH(bool, identicalFirstPass);

    QList<ImageAnnotations> fresh = images;
    for (ImageAnnotations& img : fresh)
        img.boxes.clear();

    const QString first = m_dir.filePath(QStringLiteral("rt1.json"));
    QVERIFY(ExportImport::exportCoco(images, labelList(labels), first).ok);

    // The label list is rebuilt from the categories alone, in their order.
    QList<ImageAnnotations> second = fresh;
    QList<LabelDef> secondLabels;
    QVERIFY(ExportImport::importCoco(second, secondLabels, first).ok);
    QCOMPARE(labelNames(secondLabels), labels);
    const QString secondPath = m_dir.filePath(QStringLiteral("rt2.json"));
    QVERIFY(ExportImport::exportCoco(second, secondLabels, secondPath).ok);

    QList<ImageAnnotations> third = fresh;
    QList<LabelDef> thirdLabels;
    QVERIFY(ExportImport::importCoco(third, thirdLabels, secondPath).ok);
    const QString thirdPath = m_dir.filePath(QStringLiteral("rt3.json"));
    QVERIFY(ExportImport::exportCoco(third, thirdLabels, thirdPath).ok);

    QCOMPARE(readAll(thirdPath), readAll(secondPath));
    if (identicalFirstPass)
        QCOMPARE(readAll(secondPath), readAll(first));
    else
        QVERIFY(readAll(secondPath) != readAll(first));
}

QTEST_GUILESS_MAIN(TestCoco)
#include "tst_coco.moc"
