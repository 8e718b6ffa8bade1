#include <QtTest>

#include <QTemporaryDir>

#include "formats/exportimport.h"
#include "support/records.h"

#define BYTES(literal) QByteArray(literal, sizeof(literal) - 1)

namespace {

QByteArray readAll(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return "<missing>";
    return f.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(bytes), bytes.size());
}

QList<LabelDef> labelList(const QStringList& names)
{
    QList<LabelDef> labels;
    for (const QString& n : names)
        labels.append({ n, QColor(7, 7, 7) });
    return labels;
}

} // namespace

class TestObjectNames : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportNames_data();
    void exportNames();
    void exportUnwritable();
    void importNames_data();
    void importNames();
    void importColours();
    void importMissingFile();
    void roundTrip();
};

void TestObjectNames::exportNames_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("empty list") << QStringList{} << QByteArray();
    QTest::newRow("in list order") << QStringList{ "zebra", "car", "big truck" } << QByteArray("zebra\ncar\nbig truck\n");
    QTest::newRow("utf-8") << QStringList{ QString::fromUtf8("Straße") } << QByteArray("Stra\xc3\x9f" "e\n");
}

void TestObjectNames::exportNames()
{
    QFETCH(QStringList, names);
    QFETCH(QByteArray, bytes);

    QTemporaryDir dir;
    const QString path = dir.filePath("classes.txt");
    writeFile(path, "old content that is longer than the new one\n");
    const ExportImportResult r = ExportImport::exportObjectNames(labelList(names), path);
    QVERIFY(r.ok);
    QCOMPARE(r.count, names.size());
    QCOMPARE(r.message, QString("Wrote %1 label(s) to:\n%2").arg(names.size()).arg(path));
    QCOMPARE(readAll(path), bytes);
}

void TestObjectNames::exportUnwritable()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("missing/folder/classes.txt");
    const ExportImportResult r = ExportImport::exportObjectNames(labelList({ "a" }), path);
    QVERIFY(!r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, "Cannot write to " + path + "\nNo such file or directory");
}

void TestObjectNames::importNames_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("skipped");

    QTest::newRow("case-insensitive duplicates") << QStringList{ "car" } << QByteArray("car\nCar\ntruck\n\n")
                                                 << QStringList{ "car", "truck" } << 2;
    QTest::newRow("repeat within the file") << QStringList{} << QByteArray("Bus\nbus\nBUS\n")
                                            << QStringList{ "Bus" } << 2;
    QTest::newRow("trimmed, blank lines ignored") << QStringList{ "object" } << QByteArray("  cat \t\n\n   \n\tdog\r\n")
                                                  << QStringList{ "object", "cat", "dog" } << 0;
    QTest::newRow("blanks inside kept") << QStringList{} << QByteArray("traffic  light\n")
                                        << QStringList{ "traffic  light" } << 0;
    QTest::newRow("empty file") << QStringList{ "object" } << QByteArray() << QStringList{ "object" } << 0;
    QTest::newRow("no final newline") << QStringList{} << QByteArray("a\nb") << QStringList{ "a", "b" } << 0;
    QTest::newRow("non-ascii case") << QStringList{ QString::fromUtf8("Äpfel") } << QByteArray("\xc3\xa4pfel\n")
                                    << QStringList{ QString::fromUtf8("Äpfel") } << 1;
    QTest::newRow("byte order mark") << QStringList{ "car" } << QByteArray("\xef\xbb\xbf" "car\nvan\n")
                                     << QStringList{ "car", "van" } << 1;
    QTest::newRow("invalid utf-8") << QStringList{} << BYTES("\xff\x00\xfe\n\x80\n")
                                   << QStringList{ QString::fromUtf8("\xef\xbf\xbd \xef\xbf\xbd"),
                                                   QString::fromUtf8("\xef\xbf\xbd") }
                                   << 0;
}

void TestObjectNames::importNames()
{
    QFETCH(QStringList, existing);
    QFETCH(QByteArray, content);
    QFETCH(QStringList, expected);
    QFETCH(int, skipped);

    QTemporaryDir dir;
    const QString path = dir.filePath("names.txt");
    writeFile(path, content);
    QList<LabelDef> labels = labelList(existing);
    const ExportImportResult r = ExportImport::importObjectNames(labels, path);
    QVERIFY(r.ok);
    const int added = int(expected.size() - existing.size());
    QCOMPARE(r.count, added);
    QCOMPARE(labelNames(labels), expected);
    QString message = QString("Imported %1 label(s)").arg(added);
    if (skipped)
        message += QString(" (%1 already existed, skipped)").arg(skipped);
    QCOMPARE(r.message, message + ":\n" + path);
    // Existing labels keep their colours.
    for (int i = 0; i < existing.size(); ++i)
        QCOMPARE(labels.at(i).color, QColor(7, 7, 7));
}

void TestObjectNames::importColours()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("names.txt");
    QByteArray content;
    for (int i = 0; i < 14; ++i)
        content += "n" + QByteArray::number(i) + '\n';
    writeFile(path, content);

    // Two labels already there: the first new one takes entry 2 of the twelve colours.
    QList<LabelDef> labels = labelList({ "x", "y" });
    QCOMPARE(ExportImport::importObjectNames(labels, path).count, 14);
    const QList<QColor> twelve{ { 0, 220, 220 },   { 255, 100, 100 }, { 100, 220, 100 }, { 255, 200, 0 },
                                { 180, 100, 255 }, { 255, 160, 40 },  { 80, 200, 255 },  { 255, 80, 200 },
                                { 255, 120, 120 }, { 120, 255, 120 }, { 120, 120, 255 }, { 255, 255, 80 } };
    for (int i = 2; i < labels.size(); ++i)
        QCOMPARE(labels.at(i).color, twelve.at(i % 12));
    // A list of 12 labels gets the first colour again.
    QCOMPARE(labels.at(12).color, QColor(0, 220, 220));
}

void TestObjectNames::importMissingFile()
{
    QTemporaryDir dir;
    QList<LabelDef> labels = labelList({ "object" });
    const QString path = dir.filePath("nope.txt");
    const ExportImportResult r = ExportImport::importObjectNames(labels, path);
    QVERIFY(!r.ok);
    QCOMPARE(r.count, 0);
    QCOMPARE(r.message, "Cannot open " + path);
    QCOMPARE(labelNames(labels), QStringList{ "object" });

    // A folder cannot be read as a file either.
    QVERIFY(!ExportImport::importObjectNames(labels, dir.path()).ok);
    QCOMPARE(labels.size(), 1);
}

void TestObjectNames::roundTrip()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("classes.txt");
    const QList<LabelDef> labels = labelList({ "object", "car", "bus", QString::fromUtf8("Fußgänger") });
    QVERIFY(ExportImport::exportObjectNames(labels, path).ok);
    QList<LabelDef> imported;
    QCOMPARE(ExportImport::importObjectNames(imported, path).count, 4);
    QCOMPARE(labelNames(imported), labelNames(labels));
}

QTEST_GUILESS_MAIN(TestObjectNames)
#include "tst_objectnames.moc"
