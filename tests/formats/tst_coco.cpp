#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <limits>

#include "formats/exportimport.h"
#include "support/corefiles.h"

using Images = QList<ImageAnnotations>;

namespace {

// Qt's indented layout of a compact JSON text: what the export must write.
QByteArray indented(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Indented);
}

} // namespace

class TestCoco : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

private Q_SLOTS:
    void exportAnnotation_data()
    {
        // expected: area, bbox and category_id in a 640 x 480 image
        columns<BoxAnnotation, QByteArray>("annotation", "expected");
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("box") << box("car", 100, 50, 300, 250) << QByteArray("40401 [100,50,201,201] 1");
        QTest::newRow("corners reversed") << box("car", 300, 250, 100, 50) << QByteArray("40401 [100,50,201,201] 1");
        QTest::newRow("fractions truncate") << box("person", 10.7, 20.2, 110.9, 220.0) << QByteArray("20301 [10,20,101,201] 2");
        QTest::newRow("third label") << box("tree", 0, 0, 0, 0) << QByteArray("1 [0,0,1,1] 3");
        QTest::newRow("label not in list") << box("truck", 0, 0, 9, 9) << QByteArray("100 [0,0,10,10] 1");
        QTest::newRow("label case differs") << box("Car", 0, 0, 9, 9) << QByteArray("100 [0,0,10,10] 1");
        QTest::newRow("first of two equal labels") << box("dup", 0, 0, 9, 9) << QByteArray("100 [0,0,10,10] 4");
        QTest::newRow("keypoint") << shape("person", ShapeType::Keypoint, {{50, 60}}) << QByteArray("4 [-1,-1,2,2] 2");
        QTest::newRow("no points") << shape("car", ShapeType::BoundingBox, {}) << QByteArray("4 [-1,-1,2,2] 1");
        QTest::newRow("past right edge") << box("car", 600, 10, 700, 20) << QByteArray("440 [600,10,40,11] 1");
        QTest::newRow("past top-left") << box("car", -5.5, -20, 10, 10) << QByteArray("121 [0,0,11,11] 1");
        QTest::newRow("past bottom-right") << box("car", 630, 470, 900, 900) << QByteArray("100 [630,470,10,10] 1");
        // Entirely right of the image: left stays 700, right becomes 639: the corners span 639..700.
        QTest::newRow("outside right") << box("car", 700, 10, 800, 20) << QByteArray("682 [639,10,62,11] 1");
        QTest::newRow("polygon: first two points")
            << shape("car", ShapeType::Polygon, {{10, 10}, {20, 30}, {500, 400}}) << QByteArray("231 [10,10,11,21] 1");
        QTest::newRow("ellipse centre and radii") << shape("car", ShapeType::Ellipse, {{100, 100}, {20, 10}}) << QByteArray("7371 [20,10,81,91] 1");
        QTest::newRow("huge coordinates") << box("car", -1e300, -1e300, 1e300, 1e300) << QByteArray("307200 [0,0,640,480] 1");
        QTest::newRow("infinite coordinates") << box("car", -inf, 5, inf, 7) << QByteArray("1920 [0,5,640,3] 1");
        QTest::newRow("nan coordinate") << box("car", std::nan(""), 5, 10, 7) << QByteArray("33 [0,5,11,3] 1");
    }

    void exportAnnotation()
    {
        auto [annotation, expected] = row<BoxAnnotation, QByteArray>("annotation", "expected");
        const QString path = m_dir.filePath("one.json");
        const ExportImportResult r = ExportImport::exportCoco({image("/data/img.jpg", 640, 480, {annotation})},
                                                              labelList({"car", "person", "tree", "dup", "dup"}), path);
        QVERIFY(r.ok);
        QCOMPARE(r.count, 1);
        const QList<QByteArray> parts = expected.split(' ');
        const QByteArray annotationJson = "{\"area\":" + parts[0] + ",\"bbox\":" + parts[1] + ",\"category_id\":" + parts[2]
            + ",\"id\":1,\"image_id\":1,\"iscrowd\":0}";
        const QJsonArray written = QJsonDocument::fromJson(readAll(path)).object().value("annotations").toArray();
        QCOMPARE(QJsonDocument(written).toJson(QJsonDocument::Compact), "[" + annotationJson + "]");
    }

    void exportDocument_data()
    {
        // expected: compact
        columns<Images, QByteArray>("images", "expected");
        const QByteArray info = R"("info":{"description":"Quillmark","version":"1.0"})";
        const QByteArray categories = R"("categories":[{"id":1,"name":"x","supercategory":"none"},)"
                                      R"({"id":2,"name":"y","supercategory":"none"}])";
        QTest::newRow("ids count across images") << Images{image("/data/images/a_01.jpg", 100, 90, {box("x", 1, 1, 2, 2), box("y", 3, 3, 4, 4)}),
                      image("b.png", 20, 10), image("c.png", 100, 100, {box("y", 5, 5, 6, 6)})}
            << R"({"annotations":[{"area":4,"bbox":[1,1,2,2],"category_id":1,"id":1,"image_id":1,"iscrowd":0},)"
                R"({"area":4,"bbox":[3,3,2,2],"category_id":2,"id":2,"image_id":1,"iscrowd":0},)"
                R"({"area":4,"bbox":[5,5,2,2],"category_id":2,"id":3,"image_id":3,"iscrowd":0}],)" + categories
                + R"(,"images":[{"file_name":"a_01.jpg","height":90,"id":1,"width":100},)"
                  R"({"file_name":"b.png","height":10,"id":2,"width":20},{"file_name":"c.png","height":100,"id":3,"width":100}],)"
                + info + "}";
        QTest::newRow("no images") << Images{} << R"({"annotations":[],)" + categories + R"(,"images":[],)" + info + "}";
    }

    void exportDocument()
    {
        auto [images, expected] = row<Images, QByteArray>("images", "expected");
        const QString path = m_dir.filePath("layout.json");
        QVERIFY(writeFile(path, QByteArray(100000, 'x'))); // replaced whole
        const ExportImportResult r = ExportImport::exportCoco(images, labelList({"x", "y"}), path);
        QVERIFY(r.ok);
        QCOMPARE(r.count, int(expected.count("\"area\"")));
        QCOMPARE(r.message, "Exported COCO JSON to:\n" + path);
        QCOMPARE(readAll(path), indented(expected));
    }

    // The annotations are written as text; the file must still be exactly what Qt's
    // indented writer makes of the same document.
    void exportMatchesQtWriter()
    {
        const QString odd = QStringLiteral("q\"b\\s/t\tn\nc\x01\x1f é ✓ ") + QChar(0xD800) + QStringLiteral("😀");
        const Images images{image("/d/" + odd + ".png", 640, 480, {box(odd, 1, 2, 3, 4), box("car", -10, -10, 1000, 1000),
                                                                   box("", 5, 5, 5, 5)})};
        const QString path = m_dir.filePath("qt.json");
        QVERIFY(ExportImport::exportCoco(images, labelList({"car", odd, ""}), path).ok);
        const QByteArray written = readAll(path);
        const QJsonDocument doc = QJsonDocument::fromJson(written);
        QCOMPARE(written, doc.toJson(QJsonDocument::Indented));
        QCOMPARE(doc["images"][0]["file_name"].toString(), QFileInfo(images[0].imagePath).fileName());

        // Areas beyond 2^53 are not whole numbers for Qt's writer and print as it prints such a double.
        const Images huge{image("/d/huge.png", INT_MAX, INT_MAX, {box("car", 0, 0, 1e9, 1e9), box("car", 0, 0, 94906264, 94906264)})};
        QVERIFY(ExportImport::exportCoco(huge, labelList({"car"}), path).ok);
        const QByteArray big = QJsonDocument(QJsonArray{1000000001.0 * 1000000001.0}).toJson(QJsonDocument::Compact);
        QVERIFY(readAll(path).contains("\"area\": " + big.mid(1, big.size() - 2) + ",\n"));
        QVERIFY(readAll(path).contains("\"area\": 9007199136250225,\n"));
    }

    // A record without a size takes its image file's, 1 x 1 when that cannot be read; nothing is stored back.
    void imageSizeRule()
    {
        const QString png = m_dir.filePath("sized.png"), path = m_dir.filePath("sizes.json");
        QVERIFY(saveImage(png, 33, 17));
        const Images images{image(png, 0, 0, {box("x", 0, 0, 100, 100)}), image(png, 5, 0),
                      image(m_dir.filePath("gone.png"), 0, 0, {box("x", 0, 0, 100, 100)}), image(png, 7, 9)};
        QVERIFY(ExportImport::exportCoco(images, labelList({"x"}), path).ok);
        const QJsonDocument doc = QJsonDocument::fromJson(readAll(path));
        QCOMPARE(QJsonDocument(doc["images"].toArray()).toJson(QJsonDocument::Compact),
                 R"([{"file_name":"sized.png","height":17,"id":1,"width":33},{"file_name":"sized.png","height":17,"id":2,"width":33},)"
                 R"({"file_name":"gone.png","height":1,"id":3,"width":1},{"file_name":"sized.png","height":9,"id":4,"width":7}])");
        QCOMPARE(doc["annotations"][0]["bbox"].toArray(), (QJsonArray{0, 0, 33, 17}));
        QCOMPARE(doc["annotations"][1]["bbox"].toArray(), (QJsonArray{0, 0, 1, 1}));
        Images fresh{image(png, 0, 0), image(m_dir.filePath("gone.png"), 0, 0)};
        QList<LabelDef> labels;
        QVERIFY(writeFile(path, R"({"images":[{"id":1,"file_name":"sized.jpg"},{"id":2,"file_name":"gone.png"}],)"
                                R"("annotations":[{"image_id":1,"bbox":[10,10,100,100]},{"image_id":2,"bbox":[3,3,9,9]}]})"));
        QCOMPARE(ExportImport::importCoco(fresh, labels, path).count, 2);
        QCOMPARE(describe(fresh), (QStringList{"0:object:(10,10)-(32,16)", "1:object:(3,3)-(0,0)"}));
        QCOMPARE(fresh[0].width, 0);
        QVERIFY(labels.isEmpty()); // "object" for want of categories is not added
    }

    void failures()
    {
        const Images images{image("a.png", 10, 10, {box("x", 1, 1, 2, 2)})};
        const QString folder = m_dir.filePath("folder.json");
        QVERIFY(QDir().mkpath(folder));
        for (const QString& path : {m_dir.filePath("no/such/folder/out.json"), folder}) {
            const ExportImportResult r = ExportImport::exportCoco(images, labelList({"x"}), path);
            const QString reason = path == folder ? "It is not a regular file." : "No such file or directory";
            QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({false, 0, "Cannot write to " + path + "\n" + reason}));
        }
        QVERIFY(QFileInfo(folder).isDir());
        QVERIFY(!QFile::exists(m_dir.filePath("no")));
        QList<LabelDef> labels = labelList({"object"});
        Images session = images;
        for (const QString& path : {m_dir.filePath("absent.json"), folder}) {
            const ExportImportResult r = ExportImport::importCoco(session, labels, path);
            QCOMPARE(QVariantList({r.ok, r.count, r.message}), QVariantList({false, 0, "Cannot open " + path}));
        }
        QCOMPARE(labels.size(), 1);
        QCOMPARE(session[0].boxes, images[0].boxes);
    }

    void import_data()
    {
        columns<QByteArray, QStringList, QStringList>("json", "added", "labels");
        // Session: 0 = /s/img.png 640x480, 1 = /s/other.jpg 100x50 (holds box "old"),
        // 2 = /a/dup.png 10x10, 3 = /b/dup.jpg 20x20, 4 = /s/v.1.png 10x10. Labels start as [object, car].
        const QStringList start{"object", "car"};
        const auto one = [](const char* image, const char* bbox) {
            return "{\"images\":[{\"id\":1,\"file_name\":\"" + QByteArray(image) + "\"}],\"annotations\":[" + bbox + "]}";
        };
        QTest::newRow("fractional bbox truncates") << QByteArray(R"({"categories":[{"id":1,"name":"car"}],"images":[{"id":7,"file_name":"img.png"}],
                             "annotations":[{"image_id":7,"category_id":1,"bbox":[10.9,20.9,30.9,40.9]}]})")
            << QStringList{"0:car:(10,20)-(39,59)"} << start;
        QTest::newRow("extension and folders ignored")
            << QByteArray(R"({"categories":[{"id":3,"name":"bus"}],"images":[{"id":1,"file_name":"x/y/img.jpeg"}],
                             "annotations":[{"image_id":1,"category_id":3,"bbox":[0,0,5,5]}]})")
            << QStringList{"0:bus:(0,0)-(4,4)"} << QStringList{"object", "car", "bus"};
        QTest::newRow("only the last extension is dropped") << one("v.1.jpg", R"({"image_id":1,"bbox":[0,0,2,2]})")
                                                            << QStringList{"4:object:(0,0)-(1,1)"} << start;
        QTest::newRow("base name is case-sensitive") << one("IMG.png", R"({"image_id":1,"bbox":[0,0,5,5]})") << QStringList{} << start;
        QTest::newRow("unknown category is object, not added") << QByteArray(R"({"categories":[],"images":[{"id":1,"file_name":"img.png"}],
                             "annotations":[{"image_id":1,"category_id":9,"bbox":[1,2,3,4]}]})") << QStringList{"0:object:(1,2)-(3,5)"} << start;
        QTest::newRow("unknown image id skipped") << one("img.png", R"({"image_id":2,"bbox":[1,2,3,4]})") << QStringList{} << start;
        QTest::newRow("unmatched file skipped") << one("nothere.png", R"({"image_id":1,"bbox":[1,2,3,4]})") << QStringList{} << start;
        QTest::newRow("categories added in file order")
            << QByteArray(R"({"categories":[{"id":2,"name":"zebra"},{"id":1,"name":"car"},{"id":5,"name":"ant"}]})")
            << QStringList{} << QStringList{"object", "car", "zebra", "ant"};
        QTest::newRow("later category with same id wins")
            << QByteArray(R"({"categories":[{"id":1,"name":"first"},{"id":1,"name":"second"}],"images":[{"id":1,"file_name":"img.png"}],
                             "annotations":[{"image_id":1,"category_id":1,"bbox":[1,1,1,1]}]})")
            << QStringList{"0:second:(1,1)-(1,1)"} << QStringList{"object", "car", "first", "second"};
        QTest::newRow("later image with same id wins") << QByteArray(R"({"images":[{"id":1,"file_name":"img.png"},{"id":1,"file_name":"other.png"}],
                             "annotations":[{"image_id":1,"bbox":[1,1,1,1]}]})") << QStringList{"1:object:(1,1)-(1,1)"} << start;
        QTest::newRow("shared base name goes to the later image")
            << QByteArray(R"({"images":[{"id":4,"file_name":"dup.bmp"}],"annotations":[{"image_id":4,"bbox":[0,0,2,2]}]})")
            << QStringList{"3:object:(0,0)-(1,1)"} << start;
        QTest::newRow("appended after existing boxes, in order")
            << one("other.png", R"({"image_id":1,"bbox":[5,5,2,2]},{"image_id":1,"bbox":[7,7,2,2]})")
            << QStringList{"1:object:(5,5)-(6,6)", "1:object:(7,7)-(8,8)"} << start;
        QTest::newRow("clamped to the image") << one("img.png", R"({"image_id":1,"bbox":[-10,-10,50,50]},{"image_id":1,"bbox":[600,400,100,100]})")
            << QStringList{"0:object:(0,0)-(39,39)", "0:object:(600,400)-(639,479)"} << start;
        QTest::newRow("negative size is normalised") << one("img.png", R"({"image_id":1,"bbox":[100,100,-20,-30]})")
                                                     << QStringList{"0:object:(80,70)-(99,99)"} << start;
        QTest::newRow("short and missing bbox skipped")
            << one("img.png", R"({"image_id":1,"bbox":[1,2,3]},{"image_id":1},{"image_id":1,"bbox":"1,2,3,4"})") << QStringList{} << start;
        QTest::newRow("extra bbox entries ignored") << one("img.png", R"({"image_id":1,"bbox":[1,2,3,4,99,"x"]})")
                                                    << QStringList{"0:object:(1,2)-(3,5)"} << start;
        QTest::newRow("non-number bbox entries read as 0") << one("img.png", R"({"image_id":1,"bbox":["5",null,true,4]})")
                                                           << QStringList{"0:object:(0,0)-(-1,3)"} << start;
        // Missing or non-integral ids read as 0, so they meet each other.
        QTest::newRow("missing and fractional ids are 0")
            << QByteArray(R"({"categories":[{"name":"noid"}],"images":[{"id":0.5,"file_name":"img.png"}],
                             "annotations":[{"bbox":[1,1,1,1]},{"image_id":"0","category_id":0,"bbox":[2,2,1,1]}]})")
            << QStringList{"0:noid:(1,1)-(1,1)", "0:noid:(2,2)-(2,2)"} << QStringList{"object", "car", "noid"};
        QTest::newRow("ids beyond int range are 0")
            << QByteArray(R"({"images":[{"id":1e12,"file_name":"img.png"}],"annotations":[{"image_id":0,"bbox":[1,1,1,1]}]})")
            << QStringList{"0:object:(1,1)-(1,1)"} << start;
        QTest::newRow("huge numbers saturate")
            << one("img.png", R"({"image_id":1,"bbox":[1e308,-1e308,1e308,1e308]},{"image_id":1,"bbox":[-1e308,-1e308,1e308,1e308]})")
            << QStringList{"0:object:(2147483647,0)-(639,-2)", "0:object:(0,0)-(-2,-2)"} << start;
        // Anything that is not a COCO object imports nothing, without complaint.
        for (const char* bad : {"", "filename,width\nimg.png,1\n", "{\"images\":[{\"id\":1,\"file_name\":\"img.png\"}],\"annotations\":[{\"ima",
                                R"([{"images":[{"id":1,"file_name":"img.png"}]}])", "42", "\xff\xfe{\x01",
                                R"({"categories":{"id":1,"name":"x"},"images":5,"annotations":"a"})",
                                R"({"images":[1,"img.png",null,[1]],"annotations":[[1,1,1,1],7,null]})",
                                R"({"images":[{"id":1,"file_name":7}],"annotations":[{"image_id":1,"bbox":[1,1,1,1]}]})"})
            QTest::addRow("malformed %s", bad) << QByteArray(bad) << QStringList{} << start;
    }

    void import()
    {
        auto [json, added, labels] = row<QByteArray, QStringList, QStringList>("json", "added", "labels");
        Images images{image("/s/img.png", 640, 480), image("/s/other.jpg", 100, 50, {box("old", 1, 1, 2, 2)}),
                      image("/a/dup.png", 10, 10), image("/b/dup.jpg", 20, 20), image("/s/v.1.png", 10, 10)};
        QList<LabelDef> session = labelList({"object", "car"});
        session[1].color = Qt::black;
        const QString path = m_dir.filePath("in.json");
        QVERIFY(writeFile(path, json));
        const ExportImportResult r = ExportImport::importCoco(images, session, path);
        QVERIFY(r.ok);
        QCOMPARE(r.count, int(added.size()));
        QCOMPARE(r.message, QStringLiteral("Imported %1 COCO annotation(s).").arg(added.size()));
        QStringList all = describe(images);
        QVERIFY(all.removeOne("1:old:(1,1)-(2,2)") && images[1].boxes[0].label == "old");
        QCOMPARE(all, added);
        QCOMPARE(labelNames(session), labels);
        QCOMPARE(session[1].color, QColor(Qt::black));
        for (int i = 2; i < session.size(); ++i)
            QCOMPARE(session[i].color, LabelPalette::colorForIndex(i));
        for (int i = 0; i < images.size(); ++i) // exactly the images that received boxes
            QCOMPARE(images[i].dirty, images[i].boxes.size() > (i == 1 ? 1 : 0));
    }
};

QTEST_GUILESS_MAIN(TestCoco)
#include "tst_coco.moc"
