#include <QComboBox>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

using namespace sessiontest;

namespace {

using Labels = QList<QPair<QString, QColor>>;

Labels labelsOf(const MainWindow& w)
{
    Labels out;
    for (const LabelDef& l : w.labels)
        out.append({l.name, l.color});
    return out;
}

Labels fileLabels(const QString& path)
{
    Labels out;
    const QJsonArray array = QJsonDocument::fromJson(readBytes(path)).array();
    for (const QJsonValue& v : array)
        out.append({v.toObject().value("name").toString(),
                    QColor::fromString(v.toObject().value("color").toString())});
    return out;
}

const QColor kObject(0, 220, 220);

} // namespace

class TestLabelFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void merge_data();
    void merge();
    void scanResultWrittenInIndentedJson();
    void labelsCarryOverToNextDataset();
    void saveIsSilentWithoutFolder();
};

void TestLabelFile::merge_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<Labels>("expected");

    QTest::newRow("object keeps its colour")
        << QByteArray(R"([{"name":"object","color":"#ff0000"},{"name":"car","color":"#102030"}])")
        << Labels{{"object", kObject}, {"car", QColor(0x10, 0x20, 0x30)}};
    QTest::newRow("duplicate name: first colour wins")
        << QByteArray(R"([{"name":"cat","color":"#010203"},{"name":"cat","color":"#040506"}])")
        << Labels{{"object", kObject}, {"cat", QColor(1, 2, 3)}};
    QTest::newRow("colour names and short forms; bad ones skipped")
        << QByteArray(R"([{"name":"a","color":"red"},{"name":"b","color":"#f00"},)"
                      R"({"name":"c","color":"#12345"},{"name":"d","color":"nocolour"},)"
                      R"({"name":"e"},{"name":"f","color":"#80ff0000"}])")
        << Labels{{"object", kObject}, {"a", Qt::red}, {"b", Qt::red},
                  {"f", QColor(255, 0, 0, 128)}};
    QTest::newRow("empty names skipped, names not trimmed, other members ignored")
        << QByteArray(R"([{"name":"","color":"#111111"},{"name":" car ","color":"#222222",)"
                      R"("extra":1},{"color":"#333333"},5,"text"])")
        << Labels{{"object", kObject}, {" car ", QColor(0x22, 0x22, 0x22)}};
    QTest::newRow("names are case-sensitive")
        << QByteArray(R"([{"name":"Object","color":"#00ff00"}])")
        << Labels{{"object", kObject}, {"Object", Qt::green}};
    QTest::newRow("top-level object") << QByteArray(R"({"name":"car","color":"#ffffff"})")
                                      << Labels{{"object", kObject}};
    QTest::newRow("malformed") << QByteArray(R"([{"name":"car","color":"#ffffff"},)")
                               << Labels{{"object", kObject}};
    QTest::newRow("empty file") << QByteArray() << Labels{{"object", kObject}};
}

void TestLabelFile::merge()
{
    QFETCH(QByteArray, file);
    QFETCH(Labels, expected);

    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("a.png")));
    const QString ann = dir.filePath("annotations");
    QVERIFY(QDir().mkpath(ann));
    const QString colours = ann + "/label_colors.json";
    QVERIFY(writeBytes(colours, file));

    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QCOMPARE(labelsOf(w), expected);
    QCOMPARE(w.classCombo->count(), expected.size());
    QVERIFY(prompts.calls.isEmpty());

    // The end of the scan writes the list back, leaving out what was skipped; the
    // alpha of an eight-digit colour is not kept.
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    Labels written = expected;
    for (auto& entry : written)
        entry.second.setAlpha(255);
    QCOMPARE(fileLabels(colours), written);
    QVERIFY(QJsonDocument::fromJson(readBytes(colours)).isArray());
}

void TestLabelFile::scanResultWrittenInIndentedJson()
{
    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("a.png")));
    QVERIFY(writeImage(dir.filePath("b.png")));
    const QString ann = dir.filePath("annotations");
    QVERIFY(QDir().mkpath(ann));
    ImageAnnotations b;
    b.xmlPath = ann + "/b.xml";
    b.boxes = {box("car", 1, 1, 4, 4)};
    QVERIFY(VocXml::save(b, "x"));

    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    QCOMPARE(readBytes(ann + "/label_colors.json"),
             QByteArray("[\n"
                        "    {\n"
                        "        \"color\": \"#00dcdc\",\n"
                        "        \"name\": \"object\"\n"
                        "    },\n"
                        "    {\n"
                        "        \"color\": \"#ff6464\",\n"
                        "        \"name\": \"car\"\n"
                        "    }\n"
                        "]\n"));
}

void TestLabelFile::labelsCarryOverToNextDataset()
{
    QTemporaryDir first, second;
    QVERIFY(writeImage(first.filePath("a.png")));
    QVERIFY(writeImage(second.filePath("b.png")));
    QVERIFY(QDir().mkpath(first.filePath("annotations")));
    QVERIFY(writeBytes(first.filePath("annotations/label_colors.json"),
                       R"([{"name":"dog","color":"#abcdef"}])"));
    QVERIFY(QDir().mkpath(second.filePath("annotations")));
    QVERIFY(writeBytes(second.filePath("annotations/label_colors.json"),
                       R"([{"name":"dog","color":"#000000"},{"name":"cat","color":"#ffffff"}])"));

    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(first.path()));
    QVERIFY(w.openDataset(second.path()));
    QCOMPARE(labelsOf(w), (Labels{{"object", kObject}, {"dog", QColor(0xab, 0xcd, 0xef)},
                                  {"cat", Qt::white}}));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    QCOMPARE(fileLabels(second.filePath("annotations/label_colors.json")), labelsOf(w));
}

void TestLabelFile::saveIsSilentWithoutFolder()
{
    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    w.saveLabelConfig(); // no dataset: nowhere to write, nothing happens
    QVERIFY(w.openDataset(dir.path()));
    QVERIFY(QDir(w.annotationsFolder).removeRecursively());
    w.saveLabelConfig();
    QVERIFY(!QFile::exists(w.annotationsFolder + "/label_colors.json"));
    QVERIFY(prompts.calls.isEmpty());
}

QTEST_MAIN(TestLabelFile)
#include "tst_labelfile.moc"
