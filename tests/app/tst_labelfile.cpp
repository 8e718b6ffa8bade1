#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "model/vocxml.h"
#include "support/sessionfixture.h"

using namespace sessionfx;

namespace {

QString describe(const QList<LabelDef>& labels)
{
    QStringList out;
    for (const LabelDef& l : labels)
        out << l.name + '=' + l.color.name(QColor::HexArgb);
    return out.join(' ');
}

QString fileLabels(const QString& path)
{
    QList<LabelDef> labels;
    for (const QJsonValue& v : QJsonDocument::fromJson(readBytes(path)).array())
        labels.append({v["name"].toString(), QColor::fromString(v["color"].toString())});
    return describe(labels);
}

} // namespace

class TestLabelFile : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void merge_data();
    void merge();
    void carryOverAndIndentedFile();
};

// The colour file read on opening (no message, whatever it holds), then written back by the
// end of the scan without what was skipped and without alpha.
void TestLabelFile::merge_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("labels"); // after "object=#ff00dcdc"
    QTest::newRow("object keeps its colour") << QByteArray(R"([{"name":"object","color":"#ff0000"},{"name":"car","color":"#102030"}])")
                                             << " car=#ff102030";
    QTest::newRow("duplicate: first wins") << QByteArray(R"([{"name":"cat","color":"#010203"},{"name":"cat","color":"#040506"}])")
                                           << " cat=#ff010203";
    QTest::newRow("colour forms, bad ones skipped")
        << QByteArray(R"([{"name":"a","color":"red"},{"name":"b","color":"#f00"},{"name":"c","color":"#12345"},)"
                      R"({"name":"d","color":"nocolour"},{"name":"e"},{"name":"f","color":"#80ff0000"}])")
        << " a=#ffff0000 b=#ffff0000 f=#80ff0000";
    QTest::newRow("empty names skipped, not trimmed")
        << QByteArray(R"([{"name":"","color":"#111111"},{"name":" car ","color":"#222222","x":1},{"color":"#333333"},5,"t"])")
        << "  car =#ff222222";
    QTest::newRow("case-sensitive") << QByteArray(R"([{"name":"Object","color":"#00ff00"}])") << " Object=#ff00ff00";
    QTest::newRow("top-level object") << QByteArray(R"({"name":"car","color":"#ffffff"})") << "";
    QTest::newRow("malformed") << QByteArray(R"([{"name":"car","color":"#ffffff"},)") << "";
    QTest::newRow("empty file") << QByteArray() << "";
}

void TestLabelFile::merge()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, labels);
    Session s;
    const QString colours = s.path("annotations/label_colors.json");
    QVERIFY(writeImage(s.path("a.png")) && QDir().mkpath(s.path("annotations")) && writeBytes(colours, file));
    QVERIFY(s.w.openDataset(s.dir.path()));
    QCOMPARE(describe(s.w.labels), "object=#ff00dcdc" + labels);
    QCOMPARE(s.w.classCombo->count(), s.w.labels.size());
    QVERIFY(s.prompts.calls.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 5000);
    QCOMPARE(fileLabels(colours), describe(s.w.labels).replace("=#80", "=#ff"));
}

// Labels of one dataset stay when the next opens (its colours do not replace theirs); the
// file is indented JSON; with no folder to write to, saving does nothing and says nothing.
void TestLabelFile::carryOverAndIndentedFile()
{
    QTemporaryDir first, second;
    QVERIFY(writeImage(first.filePath("a.png")) && writeImage(second.filePath("b.png")) && writeImage(second.filePath("c.png")));
    QVERIFY(QDir().mkpath(first.filePath("annotations")) && QDir().mkpath(second.filePath("annotations")));
    QVERIFY(writeBytes(first.filePath("annotations/label_colors.json"), R"([{"name":"dog","color":"#abcdef"}])"));
    QVERIFY(writeBytes(second.filePath("annotations/label_colors.json"), R"([{"name":"dog","color":"#000000"}])"));
    ImageAnnotations c;
    c.xmlPath = second.filePath("annotations/c.xml");
    c.boxes = {box("car", 1, 1, 4, 4)};
    QVERIFY(VocXml::save(c, "x"));
    ScriptedPrompts prompts;
    MainWindow w;
    w.saveLabelConfig(); // no dataset: nowhere to write
    QVERIFY(w.openDataset(first.path()) && w.openDataset(second.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    QCOMPARE(readBytes(second.filePath("annotations/label_colors.json")),
             "[\n    {\n        \"color\": \"#00dcdc\",\n        \"name\": \"object\"\n    },\n    {\n        \"color\": \"#abcdef\",\n"
             "        \"name\": \"dog\"\n    },\n    {\n        \"color\": \"#64dc64\",\n        \"name\": \"car\"\n    }\n]\n");
    QVERIFY(QDir(w.annotationsFolder).removeRecursively());
    w.saveLabelConfig();
    QVERIFY(!QFile::exists(w.annotationsFolder + "/label_colors.json"));
    QVERIFY(prompts.calls.isEmpty());
}

QTEST_MAIN(TestLabelFile)
#include "tst_labelfile.moc"
