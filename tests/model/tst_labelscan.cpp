#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "model/labelpalette.h"
#include "model/labelscan.h"

class TestLabelScan : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void names_data();
    void names();
    void missingFileGivesNothing();
    void appendUsesPaletteByPosition();
};

void TestLabelScan::names_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("trimmed name inside object")
        << QByteArray("<annotation><object><name>  car \n</name></object></annotation>")
        << QStringList{"car"};
    QTest::newRow("short n element")
        << QByteArray("<annotation><object><n>bike</n></object></annotation>")
        << QStringList{"bike"};
    QTest::newRow("name inside bndbox ignored")
        << QByteArray("<annotation><object><bndbox><name>wheel</name></bndbox>"
                      "<name>truck</name></object></annotation>")
        << QStringList{"truck"};
    QTest::newRow("bndbox flag cleared at its end")
        << QByteArray("<annotation><object><bndbox><xmin>1</xmin></bndbox><name>a</name>"
                      "</object></annotation>")
        << QStringList{"a"};
    QTest::newRow("object start clears the bndbox flag")
        << QByteArray("<annotation><bndbox><object><name>b</name></object></bndbox></annotation>")
        << QStringList{"b"};
    QTest::newRow("name outside any object ignored")
        << QByteArray("<annotation><name>scene</name><object><name>x</name></object>"
                      "<name>after</name></annotation>")
        << QStringList{"x"};
    QTest::newRow("empty and blank names ignored")
        << QByteArray("<annotation><object><name></name></object><object><name>  </name>"
                      "</object></annotation>")
        << QStringList{};
    QTest::newRow("repeats kept in order")
        << QByteArray("<annotation><object><name>b</name></object><object><name>a</name></object>"
                      "<object><name>b</name></object></annotation>")
        << QStringList{"b", "a", "b"};
    QTest::newRow("parts of an object count too")
        << QByteArray("<annotation><object><name>person</name><part><name>hand</name></part>"
                      "</object></annotation>")
        << QStringList{"person", "hand"};
    QTest::newRow("malformed: names before the error")
        << QByteArray("<annotation><object><name>bus</name></object><object><name>van</nam>"
                      "</object><object><name>late</name></object></annotation>")
        << QStringList{"bus"};
    QTest::newRow("not XML") << QByteArray("\x00\x01garbage", 9) << QStringList{};
    QTest::newRow("non-ASCII name")
        << QByteArray("<annotation><object><name>voiture \xc3\xa9lectrique</name></object></annotation>")
        << QStringList{QString::fromUtf8("voiture électrique")};
}

void TestLabelScan::names()
{
    QFETCH(QByteArray, xml);
    QFETCH(QStringList, expected);
    QTemporaryDir dir;
    const QString path = dir.filePath("a.xml");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(xml);
    file.close();
    QCOMPARE(scanLabelNames(path), expected);
}

void TestLabelScan::missingFileGivesNothing()
{
    QTemporaryDir dir;
    QVERIFY(scanLabelNames(dir.filePath("none.xml")).isEmpty());
    QVERIFY(scanLabelNames(dir.path()).isEmpty()); // a folder does not open as a file
}

void TestLabelScan::appendUsesPaletteByPosition()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.xml");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<annotation><object><name>car</name></object><object><name>object</name>"
               "</object><object><name>dog</name></object><object><name>car</name></object>"
               "</annotation>");
    file.close();

    QList<LabelDef> labels = {LabelPalette::defaultLabel()};
    QCOMPARE(appendLabelsFromFile(labels, path), 2);
    QCOMPARE(labels.size(), 3);
    QCOMPARE(labels[1].name, QStringLiteral("car"));
    QCOMPARE(labels[1].color, QColor(255, 100, 100));
    QCOMPARE(labels[2].name, QStringLiteral("dog"));
    QCOMPARE(labels[2].color, QColor(100, 220, 100));
    QCOMPARE(appendLabelsFromFile(labels, path), 0);

    // Positions wrap around the eight colours.
    QList<LabelDef> many;
    for (int i = 0; i < 8; ++i)
        many.append({QStringLiteral("l%1").arg(i), Qt::black});
    QCOMPARE(appendLabelsFromFile(many, path), 3);
    QCOMPARE(many[8].color, QColor(0, 220, 220));
    QCOMPARE(many[9].color, QColor(255, 100, 100));
}

QTEST_MAIN(TestLabelScan)
#include "tst_labelscan.moc"
