#include <QtTest>

#include <QRandomGenerator>

#include <clocale>
#include <unistd.h>

#include "model/plainxml.h"
#include "model/vocxml.h"

namespace {

BoxAnnotation shape(const QString& label, ShapeType type, const QList<QPointF>& points,
                    double angle = 0.0, bool visible = true)
{
    BoxAnnotation b;
    b.label = label;
    b.type = type;
    b.points = points;
    b.angle = angle;
    b.visible = visible;
    return b;
}

BoxAnnotation bbox(const QString& label, double x1, double y1, double x2, double y2)
{
    return shape(label, ShapeType::BoundingBox, {{x1, y1}, {x2, y2}});
}

// Exact text of the shapes, so that a failed comparison shows what differs.
QString describe(const QList<BoxAnnotation>& boxes)
{
    QStringList out;
    for (const BoxAnnotation& b : boxes) {
        QStringList pts;
        for (const QPointF& p : b.points)
            pts << QStringLiteral("(%1,%2)").arg(p.x(), 0, 'g', 17).arg(p.y(), 0, 'g', 17);
        out << QStringLiteral("[%1] %2 %3 vis=%4 angle=%5")
                   .arg(b.label, QString::fromLatin1(shapeTypeWord(b.type)), pts.join(' '))
                   .arg(b.visible)
                   .arg(b.angle, 0, 'g', 17);
    }
    return out.join('\n');
}

ImageAnnotations record(const QList<BoxAnnotation>& boxes)
{
    ImageAnnotations ann;
    ann.imagePath = QStringLiteral("/data/images/street.01.jpg");
    ann.width = 640;
    ann.height = 480;
    ann.boxes = boxes;
    return ann;
}

// The "object" elements of the file written for `boxes`.
QByteArray objectsXml(const QList<BoxAnnotation>& boxes)
{
    const QByteArray all = VocXml::toXml(record(boxes), QStringLiteral("images"));
    const QByteArray head = "  <segmented>0</segmented>\n";
    const QByteArray tail = "</annotation>\n";
    const qsizetype start = all.indexOf(head);
    if (start < 0 || !all.endsWith(tail))
        return "<malformed>";
    return all.mid(start + head.size(), all.size() - start - head.size() - tail.size());
}

QByteArray inDocument(const QByteArray& objects)
{
    return "<?xml version=\"1.0\"?>\n<annotation>\n<folder>f</folder>\n" + objects
        + "\n</annotation>\n";
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

const char* const kCommon = "    <pose>Unspecified</pose>\n"
                            "    <truncated>0</truncated>\n"
                            "    <difficult>0</difficult>\n";

} // namespace

class TestVocXml : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesExactFile();
    void writerRules_data();
    void writerRules();
    void numberFormats_data();
    void numberFormats();
    void numberFormatsMatchQt();
    void numberParsingMatchesQt();
    void emptyShapeList();
    void escaping();
    void reader_data();
    void reader();
    void plainFilesTakeTheFastPath();
    void truncatedFile_data();
    void truncatedFile();
    void loadTouchesOnlyBoxes();
    void loadFailures();
    void roundTrip();
    void boundingBoxIsStable();
    void localeIndependent();
    void saveWritesAtomically();
    void saveFailsWithoutTouchingTarget();
    void saveIntoReadOnlyFolder();
};

void TestVocXml::writesExactFile()
{
    const QList<BoxAnnotation> boxes = {
        bbox("car", 110.9, 220.0, 10.7, 20.2),
        shape("road", ShapeType::Polygon, {{0, 0}, {12.5, -0.5}, {3.333, 4.006}}),
        shape("lane", ShapeType::Line, {{1, 2}, {3.25, 4.75}}),
        shape("nose", ShapeType::Keypoint, {{5.5, 6.5}}, 0.0, false),
        shape("sign", ShapeType::RotatedBox, {{1, 2}, {3, 2}, {3, 4}, {1, 4}}, -17.25),
        shape("truck", ShapeType::Cuboid,
              {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {2, 2}, {12, 2}, {12, 12}, {2, 12}}),
        shape("wheel", ShapeType::Ellipse, {{50, 60}, {10, 5}}, 30),
    };
    const QByteArray expected = R"(<?xml version="1.0" encoding="UTF-8"?>
<annotation>
  <folder>images</folder>
  <filename>street.01.jpg</filename>
  <path>/data/images/street.01.jpg</path>
  <source>
    <database>Unknown</database>
  </source>
  <size>
    <width>640</width>
    <height>480</height>
    <depth>3</depth>
  </size>
  <segmented>0</segmented>
  <object>
    <name>car</name>
    <type>bndbox</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <bndbox>
      <xmin>10</xmin>
      <ymin>20</ymin>
      <xmax>110</xmax>
      <ymax>220</ymax>
    </bndbox>
  </object>
  <object>
    <name>road</name>
    <type>polygon</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <polygon>
      <pt>
        <x>0.00</x>
        <y>0.00</y>
      </pt>
      <pt>
        <x>12.50</x>
        <y>-0.50</y>
      </pt>
      <pt>
        <x>3.33</x>
        <y>4.01</y>
      </pt>
    </polygon>
  </object>
  <object>
    <name>lane</name>
    <type>line</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <line>
      <x1>1.00</x1>
      <y1>2.00</y1>
      <x2>3.25</x2>
      <y2>4.75</y2>
    </line>
  </object>
  <object>
    <name>nose</name>
    <type>keypoint</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <keypoint>
      <x>5.50</x>
      <y>6.50</y>
      <visible>0</visible>
    </keypoint>
  </object>
  <object>
    <name>sign</name>
    <type>rotatedbox</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <rotatedbox>
      <angle>-17.2500</angle>
      <pt>
        <x>1.00</x>
        <y>2.00</y>
      </pt>
      <pt>
        <x>3.00</x>
        <y>2.00</y>
      </pt>
      <pt>
        <x>3.00</x>
        <y>4.00</y>
      </pt>
      <pt>
        <x>1.00</x>
        <y>4.00</y>
      </pt>
    </rotatedbox>
  </object>
  <object>
    <name>truck</name>
    <type>cuboid</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <cuboid>
      <pt>
        <x>0.00</x>
        <y>0.00</y>
      </pt>
      <pt>
        <x>10.00</x>
        <y>0.00</y>
      </pt>
      <pt>
        <x>10.00</x>
        <y>10.00</y>
      </pt>
      <pt>
        <x>0.00</x>
        <y>10.00</y>
      </pt>
      <pt>
        <x>2.00</x>
        <y>2.00</y>
      </pt>
      <pt>
        <x>12.00</x>
        <y>2.00</y>
      </pt>
      <pt>
        <x>12.00</x>
        <y>12.00</y>
      </pt>
      <pt>
        <x>2.00</x>
        <y>12.00</y>
      </pt>
    </cuboid>
  </object>
  <object>
    <name>wheel</name>
    <type>ellipse</type>
    <pose>Unspecified</pose>
    <truncated>0</truncated>
    <difficult>0</difficult>
    <ellipse>
      <cx>50.00</cx>
      <cy>60.00</cy>
      <rx>10.00</rx>
      <ry>5.00</ry>
      <angle>30.0000</angle>
    </ellipse>
  </object>
</annotation>
)";
    QCOMPARE(VocXml::toXml(record(boxes), "images"), expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    ImageAnnotations ann = record(boxes);
    ann.xmlPath = dir.filePath("street.01.xml");
    QVERIFY(VocXml::save(ann, "images"));
    QCOMPARE(readFile(ann.xmlPath), expected);
}

void TestVocXml::writerRules_data()
{
    QTest::addColumn<BoxAnnotation>("box");
    QTest::addColumn<QByteArray>("shapeElement"); // what follows the five common children

    const QByteArray none;
    QTest::newRow("bndbox with one point")
        << shape("a", ShapeType::BoundingBox, {{5, 6}})
        << QByteArray("    <bndbox>\n      <xmin>0</xmin>\n      <ymin>0</ymin>\n"
                      "      <xmax>-1</xmax>\n      <ymax>-1</ymax>\n    </bndbox>\n");
    QTest::newRow("bndbox uses only the first two points")
        << shape("a", ShapeType::BoundingBox, {{-3.9, 7.9}, {-0.5, 2.1}, {500, 500}})
        << QByteArray("    <bndbox>\n      <xmin>-3</xmin>\n      <ymin>2</ymin>\n"
                      "      <xmax>0</xmax>\n      <ymax>7</ymax>\n    </bndbox>\n");
    QTest::newRow("line with one point") << shape("a", ShapeType::Line, {{1, 1}}) << none;
    QTest::newRow("ellipse with one point") << shape("a", ShapeType::Ellipse, {{1, 1}}) << none;
    QTest::newRow("keypoint without point") << shape("a", ShapeType::Keypoint, {}) << none;
    QTest::newRow("empty polygon")
        << shape("a", ShapeType::Polygon, {}) << QByteArray("    <polygon/>\n");
    QTest::newRow("empty cuboid") << shape("a", ShapeType::Cuboid, {}) << QByteArray("    <cuboid/>\n");
    QTest::newRow("rotated box without corners keeps its angle")
        << shape("a", ShapeType::RotatedBox, {}, 1.5)
        << QByteArray("    <rotatedbox>\n      <angle>1.5000</angle>\n    </rotatedbox>\n");
    QTest::newRow("visible keypoint")
        << shape("a", ShapeType::Keypoint, {{1, 2}, {9, 9}}, 0, true)
        << QByteArray("    <keypoint>\n      <x>1.00</x>\n      <y>2.00</y>\n"
                      "      <visible>1</visible>\n    </keypoint>\n");
    QTest::newRow("occluded keypoint")
        << shape("a", ShapeType::Keypoint, {{1, 2}}, 0, false)
        << QByteArray("    <keypoint>\n      <x>1.00</x>\n      <y>2.00</y>\n"
                      "      <visible>0</visible>\n    </keypoint>\n");
    QTest::newRow("line uses the first two points")
        << shape("a", ShapeType::Line, {{1, 2}, {3, 4}, {5, 6}})
        << QByteArray("    <line>\n      <x1>1.00</x1>\n      <y1>2.00</y1>\n"
                      "      <x2>3.00</x2>\n      <y2>4.00</y2>\n    </line>\n");
}

void TestVocXml::writerRules()
{
    QFETCH(BoxAnnotation, box);
    QFETCH(QByteArray, shapeElement);
    const QByteArray expected = "  <object>\n    <name>a</name>\n    <type>"
        + QByteArray(shapeTypeWord(box.type)) + "</type>\n" + kCommon + shapeElement
        + "  </object>\n";
    QCOMPARE(objectsXml({box}), expected);

    // Objects the writer leaves without geometry do not come back.
    QList<BoxAnnotation> loaded;
    QVERIFY(VocXml::loadFromData(VocXml::toXml(record({box}), "f"), loaded));
    QCOMPARE(loaded.isEmpty(), shapeElement.isEmpty() || shapeElement.endsWith("/>\n")
                                   || box.type == ShapeType::RotatedBox);
}

void TestVocXml::numberFormats_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QByteArray>("coordinate");
    QTest::addColumn<QByteArray>("angle");
    QTest::newRow("zero") << 0.0 << QByteArray("0.00") << QByteArray("0.0000");
    QTest::newRow("negative half") << -0.5 << QByteArray("-0.50") << QByteArray("-0.5000");
    QTest::newRow("negative zero") << -0.0 << QByteArray("0.00") << QByteArray("0.0000");
    QTest::newRow("tiny negative keeps sign") << -0.001 << QByteArray("-0.00") << QByteArray("-0.0010");
    QTest::newRow("exact half rounds away from zero") << 0.125 << QByteArray("0.13") << QByteArray("0.1250");
    QTest::newRow("negative exact half") << -2.375 << QByteArray("-2.38") << QByteArray("-2.3750");
    // 2.675 is stored as 2.67499999..., 0.00015 as 0.000149999...
    QTest::newRow("binary value below half") << 2.675 << QByteArray("2.67") << QByteArray("2.6750");
    QTest::newRow("angle below half") << 0.00015 << QByteArray("0.00") << QByteArray("0.0001");
    QTest::newRow("carry into integer part") << 9.999 << QByteArray("10.00") << QByteArray("9.9990");
    QTest::newRow("large") << 123456789.125 << QByteArray("123456789.13") << QByteArray("123456789.1250");
    QTest::newRow("very large") << 1e20 << QByteArray("100000000000000000000.00")
                                << QByteArray("100000000000000000000.0000");
    QTest::newRow("subnormal") << 4.9e-324 << QByteArray("0.00") << QByteArray("0.0000");
}

void TestVocXml::numberFormats()
{
    QFETCH(double, value);
    QFETCH(QByteArray, coordinate);
    QFETCH(QByteArray, angle);
    const QByteArray xml = objectsXml({shape("a", ShapeType::Ellipse, {{value, 1}, {2, 3}}, value)});
    QVERIFY2(xml.contains("<cx>" + coordinate + "</cx>"), xml.constData());
    QVERIFY2(xml.contains("<angle>" + angle + "</angle>"), xml.constData());
}

void TestVocXml::numberFormatsMatchQt()
{
    // The writer formats numbers itself; it must give Qt's own text for any value.
    QRandomGenerator rng(20240611);
    for (int i = 0; i < 20000; ++i) {
        double v;
        switch (i % 4) {
        case 0: v = rng.bounded(100000) / 8.0 - 5000; break;          // many exact halves
        case 1: v = (rng.generateDouble() - 0.5) * 20000; break;
        case 2: v = (rng.generateDouble() - 0.5) * std::pow(10.0, rng.bounded(30) - 12); break;
        default: v = rng.bounded(200000) / 10000.0 - 10; break;       // near ties in decimal
        }
        const QByteArray xml = VocXml::toXml(
            record({shape("a", ShapeType::Ellipse, {{v, 0}, {0, 0}}, v)}), "f");
        const QByteArray cx = QByteArray::number(v, 'f', 2);
        const QByteArray angle = QByteArray::number(v, 'f', 4);
        if (!xml.contains("<cx>" + cx + "</cx>") || !xml.contains("<angle>" + angle + "</angle>"))
            QFAIL(qPrintable(QStringLiteral("%1 written as:\n%2")
                                 .arg(v, 0, 'g', 17).arg(QString::fromUtf8(xml))));
        QList<BoxAnnotation> back;
        QVERIFY(VocXml::loadFromData(xml, back));
        QCOMPARE(back.size(), 1);
        if (back[0].points[0].x() != cx.toDouble() || back[0].angle != angle.toDouble())
            QFAIL(qPrintable(QStringLiteral("%1 read back as %2 and %3")
                                 .arg(v, 0, 'g', 17)
                                 .arg(back[0].points[0].x(), 0, 'g', 17)
                                 .arg(back[0].angle, 0, 'g', 17)));
    }
}

void TestVocXml::numberParsingMatchesQt()
{
    // Decimal texts of every length, with and without sign and point, read exactly as
    // Qt's C-locale parser reads them.
    QRandomGenerator rng(99);
    for (int i = 0; i < 20000; ++i) {
        QByteArray text;
        if (rng.bounded(3) == 0)
            text += '-';
        const int digits = 1 + int(rng.bounded(22));
        const int point = int(rng.bounded(digits + 2)); // past the end: no point
        for (int d = 0; d < digits; ++d) {
            if (d == point && d > 0)
                text += '.';
            text += char('0' + rng.bounded(10));
        }
        QList<BoxAnnotation> back;
        QVERIFY(VocXml::loadFromData(
            inDocument("<object><name>a</name><keypoint><x>" + text + "</x></keypoint></object>"),
            back));
        QCOMPARE(back.size(), 1);
        const double expected = text.toDouble();
        if (back[0].points[0].x() != expected)
            QFAIL(qPrintable(QStringLiteral("%1 read as %2, Qt reads %3")
                                 .arg(QString::fromLatin1(text))
                                 .arg(back[0].points[0].x(), 0, 'g', 17)
                                 .arg(expected, 0, 'g', 17)));
    }
}

void TestVocXml::emptyShapeList()
{
    const QByteArray xml = VocXml::toXml(record({}), "images");
    QVERIFY(xml.endsWith("  <segmented>0</segmented>\n</annotation>\n"));
    QVERIFY(!xml.contains("<object>"));
    QList<BoxAnnotation> boxes = {bbox("old", 1, 1, 2, 2)};
    QVERIFY(VocXml::loadFromData(xml, boxes));
    QVERIFY(boxes.isEmpty());
}

void TestVocXml::escaping()
{
    ImageAnnotations ann = record({bbox("R&D <\"x\">", 1, 2, 3, 4)});
    ann.imagePath = "/data/a&b<c/img.png";
    const QByteArray xml = VocXml::toXml(ann, "a&b<c");
    QVERIFY(xml.contains("  <folder>a&amp;b&lt;c</folder>\n"));
    QVERIFY(xml.contains("  <path>/data/a&amp;b&lt;c/img.png</path>\n"));
    QVERIFY(xml.contains("    <name>R&amp;D &lt;&quot;x&quot;&gt;</name>\n"));

    // Characters XML cannot hold are left out rather than making the file unreadable; the
    // tab it can hold reads back as a blank, as every control character in a name does.
    ann.boxes[0].label = QStringLiteral("a\x01" "b") + QChar(0xFFFE) + QStringLiteral("c\td");
    QList<BoxAnnotation> loaded;
    QVERIFY(VocXml::loadFromData(VocXml::toXml(ann, "f"), loaded));
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded[0].label, QStringLiteral("abc d"));
}

void TestVocXml::reader_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QList<BoxAnnotation>>("expected");

    using L = QList<BoxAnnotation>;
    const auto pt = [](const char* x, const char* y) {
        return QByteArray("<pt><x>") + x + "</x><y>" + y + "</y></pt>";
    };

    QTest::newRow("classic VOC file") << QByteArray(R"(<annotation>
	<folder>VOC2007</folder>
	<filename>000005.jpg</filename>
	<source><database>The VOC2007 Database</database></source>
	<size><width>500</width><height>375</height><depth>3</depth></size>
	<segmented>0</segmented>
	<object>
		<name>chair</name>
		<pose>Rear</pose>
		<truncated>0</truncated>
		<difficult>0</difficult>
		<bndbox><xmin>263</xmin><ymin>211</ymin><xmax>324</xmax><ymax>339</ymax></bndbox>
	</object>
	<object>
		<name>person</name>
		<bndbox><xmin>165.5</xmin><ymin>264</ymin><xmax>253</xmax><ymax>372</ymax></bndbox>
	</object>
</annotation>)") << true << L{bbox("chair", 263, 211, 324, 339), bbox("person", 165.5, 264, 253, 372)};

    QTest::newRow("n instead of name")
        << inDocument("<object><n>dog</n><bndbox><xmin>1</xmin><ymin>2</ymin><xmax>3</xmax>"
                      "<ymax>4</ymax></bndbox></object>")
        << true << L{bbox("dog", 1, 2, 3, 4)};
    QTest::newRow("label trimmed, entities and CDATA")
        << inDocument("<object><name>\n  R&amp;D <![CDATA[<x>]]>  </name><keypoint><x>1</x><y>2</y>"
                      "</keypoint></object>")
        << true << L{shape("R&D <x>", ShapeType::Keypoint, {{1, 2}})};
    QTest::newRow("name inside shape elements is not the label")
        << inDocument("<object><name>a</name><polygon><name>b</name>" + pt("1", "2")
                      + "</polygon><bndbox><n>c</n><xmin>1</xmin></bndbox></object>")
        << true << L{bbox("a", 1, 2, 0, 0)};
    QTest::newRow("second top-level name replaces the first")
        << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox><name>b</name></object>")
        << true << L{bbox("b", 1, 0, 0, 0)};
    QTest::newRow("elements outside an object are skipped")
        << inDocument("<name>top</name><bndbox><xmin>5</xmin></bndbox><polygon>" + pt("1", "1")
                      + "</polygon><object><name>a</name><cuboid>" + pt("1", "2")
                      + "</cuboid></object>")
        << true << L{shape("a", ShapeType::Cuboid, {{1, 2}})};
    QTest::newRow("object without label or points is dropped")
        << inDocument("<object><bndbox><xmin>1</xmin></bndbox></object>"
                      "<object><name>  </name><bndbox><xmin>1</xmin></bndbox></object>"
                      "<object><name>a</name><type>polygon</type></object>"
                      "<object><name>b</name><polygon></polygon></object>"
                      "<object><name>c</name><line/></object>")
        << true << L{shape("c", ShapeType::Line, {{0, 0}, {0, 0}})};
    QTest::newRow("type word is case-sensitive and the shape element decides")
        << inDocument("<object><name>a</name><type>Polygon</type><cuboid>" + pt("1", "1")
                      + "</cuboid></object><object><name>b</name><type>ellipse</type><bndbox>"
                        "<xmin>1</xmin></bndbox></object>"
                        "<object><name>c</name><polygon>" + pt("3", "4")
                      + "</polygon><type> line </type></object>")
        << true
        << L{shape("a", ShapeType::Cuboid, {{1, 1}}), bbox("b", 1, 0, 0, 0),
             shape("c", ShapeType::Line, {{3, 4}})};
    QTest::newRow("unknown elements ignored")
        << inDocument("<object><name>a</name><colour>red</colour><bndbox><xmin>1</xmin>"
                      "<zmin>9</zmin><ymin>2</ymin><xmax>3</xmax><ymax>4</ymax></bndbox>"
                      "<extra><xmin>7</xmin></extra></object>")
        << true << L{bbox("a", 1, 2, 3, 4)};
    QTest::newRow("bndbox keeps exactly two points")
        << inDocument("<object><name>a</name><polygon>" + pt("1", "1") + pt("2", "2") + pt("3", "3")
                      + "</polygon><bndbox><ymax>8</ymax></bndbox></object>")
        << true << L{bbox("a", 1, 1, 2, 8)};
    QTest::newRow("visible values")
        << inDocument("<object><name>v2</name><keypoint><x>1</x><y>1</y><visible>2</visible></keypoint></object>"
                      "<object><name>vm1</name><keypoint><x>1</x><y>1</y><visible>-1</visible></keypoint></object>"
                      "<object><name>yes</name><keypoint><x>1</x><y>1</y><visible>yes</visible></keypoint></object>"
                      "<object><name>zero</name><keypoint><x>1</x><y>1</y><visible> 0 </visible></keypoint></object>"
                      "<object><name>big</name><keypoint><x>1</x><y>1</y><visible>4294967296</visible></keypoint></object>"
                      "<object><name>frac</name><keypoint><x>1</x><y>1</y><visible>1.5</visible></keypoint></object>"
                      "<object><name>none</name><keypoint><y>3</y></keypoint></object>")
        << true
        << L{shape("v2", ShapeType::Keypoint, {{1, 1}}, 0, true),
             shape("vm1", ShapeType::Keypoint, {{1, 1}}, 0, true),
             shape("yes", ShapeType::Keypoint, {{1, 1}}, 0, false),
             shape("zero", ShapeType::Keypoint, {{1, 1}}, 0, false),
             shape("big", ShapeType::Keypoint, {{1, 1}}, 0, false),
             shape("frac", ShapeType::Keypoint, {{1, 1}}, 0, false),
             shape("none", ShapeType::Keypoint, {{0, 3}}, 0, true)};
    QTest::newRow("points before angle")
        << inDocument("<object><name>r</name><rotatedbox>" + pt("1", "2") + pt("3", "2")
                      + "<angle>-17.25</angle></rotatedbox></object>")
        << true << L{shape("r", ShapeType::RotatedBox, {{1, 2}, {3, 2}}, -17.25)};
    QTest::newRow("line and ellipse")
        << inDocument("<object><name>l</name><line><y2>4</y2><x1>1</x1><y1>2</y1><x2>3</x2>"
                      "</line></object><object><name>e</name><ellipse><cx>5</cx><cy>6</cy>"
                      "<rx>7</rx><ry>8</ry><angle>9.5</angle></ellipse></object>")
        << true
        << L{shape("l", ShapeType::Line, {{1, 2}, {3, 4}}),
             shape("e", ShapeType::Ellipse, {{5, 6}, {7, 8}}, 9.5)};
    QTest::newRow("coordinates belong to their open element")
        << inDocument("<object><name>a</name><line><cx>5</cx><x>6</x><x1>1</x1></line>"
                      "<x2>9</x2><ellipse><x1>3</x1><angle>2</angle></ellipse><pt><x>1</x></pt>"
                      "</object>")
        << true << L{shape("a", ShapeType::Ellipse, {{1, 0}, {0, 0}}, 2)};
    QTest::newRow("point children")
        << inDocument("<object><name>p</name><polygon><pt><z>5</z><x> 1.5 </x></pt>"
                      "<pt><y>2</y><x>3</x><x>4</x></pt><pt/></polygon></object>")
        << true << L{shape("p", ShapeType::Polygon, {{1.5, 0}, {4, 2}, {0, 0}})};
    QTest::newRow("numbers that are not numbers read as 0")
        << inDocument("<object><name>n</name><cuboid>" + pt("abc", "1,5") + pt("nan", "inf")
                      + pt("1e400", "-inf") + pt("", " 1e2 ") + pt("0x10", "+7")
                      + "</cuboid></object>")
        << true
        << L{shape("n", ShapeType::Cuboid, {{0, 0}, {0, 0}, {0, 0}, {0, 100}, {0, 7}})};
    QTest::newRow("comments inside text")
        << inDocument("<object><name>a<!-- x -->b</name><bndbox><xmin>1<!-- y -->2</xmin>"
                      "</bndbox></object>")
        << true << L{bbox("ab", 12, 0, 0, 0)};
    QTest::newRow("element inside a text element is an error")
        << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox></object>"
                      "<object><name>b<i>x</i></name><bndbox/></object>")
        << false << L{bbox("a", 1, 0, 0, 0)};
    QTest::newRow("mismatched tag keeps earlier shapes")
        << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox></object>"
                      "<object><name>b</name><bndbox><xmin>1</xmin></bndbox></objetc>")
        << false << L{bbox("a", 1, 0, 0, 0)};
    QTest::newRow("empty data") << QByteArray() << false << L{};
    QTest::newRow("not XML") << QByteArray("xmin=1") << false << L{};
}

void TestVocXml::reader()
{
    QFETCH(QByteArray, xml);
    QFETCH(bool, ok);
    QFETCH(QList<BoxAnnotation>, expected);
    QList<BoxAnnotation> boxes = {bbox("stale", 1, 1, 5, 5)};
    QCOMPARE(VocXml::loadFromData(xml, boxes), ok);
    QCOMPARE(describe(boxes), describe(expected));
    // The fast path for plain files reads what QXmlStreamReader reads.
    QCOMPARE(VocXml::loadWithStreamReader(xml, boxes), ok);
    QCOMPARE(describe(boxes), describe(expected));
}

void TestVocXml::plainFilesTakeTheFastPath()
{
    PlainXmlReader plain;
    QVERIFY(plain.parse(VocXml::toXml(record({bbox("R&D <\"x'>", 1, 2, 3, 4)}), "f")));
    for (const char* other : {"<a><!-- c --></a>", "<a b=\"1\"></a>", "<a/>", "<a>&#65;</a>",
                              "<a>\r\n</a>", "<a>\xc3\xa9</a>", "<a></b>", "<a></a><a></a>",
                              "<a>]]></a>", "<?xml version=\"1.1\"?><a></a>"})
        QVERIFY2(!plain.parse(other), other);
}

void TestVocXml::truncatedFile_data()
{
    QTest::addColumn<QByteArray>("cutBefore"); // the file ends before the n-th of these
    QTest::addColumn<int>("occurrence");
    QTest::addColumn<int>("kept");
    QTest::newRow("inside the first pt") << QByteArray("<y>") << 2 << 1;
    QTest::newRow("inside the last pt") << QByteArray("<y>") << 4 << 1;
    QTest::newRow("inside the first shape") << QByteArray("<y>") << 1 << 0;
    QTest::newRow("inside a name") << QByteArray("</name>") << 2 << 1;
    QTest::newRow("before the closing annotation") << QByteArray("</annotation>") << 1 << 2;
}

void TestVocXml::truncatedFile()
{
    QFETCH(QByteArray, cutBefore);
    QFETCH(int, occurrence);
    QFETCH(int, kept);
    const QList<BoxAnnotation> boxes = {
        shape("first", ShapeType::Keypoint, {{1, 2}}),
        shape("second", ShapeType::Polygon, {{1, 2}, {3, 4}, {5, 6}}),
    };
    const QByteArray full = VocXml::toXml(record(boxes), "f");
    qsizetype at = -1;
    for (int i = 0; i < occurrence; ++i)
        at = full.indexOf(cutBefore, at + 1);
    QVERIFY(at > 0);

    QTemporaryDir dir;
    ImageAnnotations ann;
    ann.xmlPath = dir.filePath("t.xml");
    QVERIFY(writeFile(ann.xmlPath, full.left(at)));
    QVERIFY(!VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(boxes.mid(0, kept)));
}

void TestVocXml::loadTouchesOnlyBoxes()
{
    QTemporaryDir dir;
    ImageAnnotations written = record({bbox("a", 1, 2, 3, 4)});
    written.xmlPath = dir.filePath("a.xml");
    written.width = 9999;
    QVERIFY(VocXml::save(written, "images"));

    ImageAnnotations ann;
    ann.imagePath = "/elsewhere/other.png";
    ann.xmlPath = written.xmlPath;
    ann.width = 12;
    ann.height = 34;
    ann.dirty = true;
    ann.boxes = {bbox("x", 0, 0, 1, 1), bbox("y", 0, 0, 1, 1)};
    QVERIFY(VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(written.boxes));
    QCOMPARE(ann.imagePath, QStringLiteral("/elsewhere/other.png"));
    QCOMPARE(ann.width, 12);
    QCOMPARE(ann.height, 34);
    QVERIFY(ann.dirty);
}

void TestVocXml::loadFailures()
{
    QTemporaryDir dir;
    const QList<BoxAnnotation> before = {bbox("keep", 1, 2, 3, 4)};
    ImageAnnotations ann;
    ann.boxes = before;

    ann.xmlPath = dir.filePath("missing.xml");
    QVERIFY(!VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(before));

    ann.xmlPath = QString();
    QVERIFY(!VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(before));

    QVERIFY(QDir(dir.path()).mkdir("folder.xml"));
    ann.xmlPath = dir.filePath("folder.xml");
    QVERIFY(!VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(before));

    ann.xmlPath = dir.filePath("locked.xml");
    QVERIFY(writeFile(ann.xmlPath, VocXml::toXml(record({bbox("other", 0, 0, 1, 1)}), "f")));
    QFile::setPermissions(ann.xmlPath, QFileDevice::Permissions());
    QFile probe(ann.xmlPath);
    if (probe.open(QIODevice::ReadOnly))
        QSKIP("running with rights that ignore file permissions");
    QVERIFY(!VocXml::load(ann));
    QCOMPARE(describe(ann.boxes), describe(before));
}

void TestVocXml::roundTrip()
{
    const QString label = QStringLiteral("Straßenschild 標識 🚗 & <x>");
    const QList<BoxAnnotation> boxes = {
        bbox(label, 10, 20, 110, 220),
        shape("poly", ShapeType::Polygon, {{0.25, 1.5}, {-3.75, 8}, {1e6, 2.01}}),
        shape("line", ShapeType::Line, {{1.11, 2.22}, {-3.33, 4.44}}),
        shape("kp", ShapeType::Keypoint, {{5.5, 6.5}}, 0, false),
        shape("rot", ShapeType::RotatedBox, {{1, 2}, {3, 2}, {3, 4}, {1, 4}}, -17.2525),
        shape("cube", ShapeType::Cuboid,
              {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {2, 2}, {12, 2}, {12, 12}, {2, 12}}),
        shape("ell", ShapeType::Ellipse, {{50.5, 60.25}, {10, 5}}, 359.9999),
    };
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("Ännotations ü")));
    ImageAnnotations ann = record(boxes);
    ann.imagePath = dir.filePath(QStringLiteral("Bilder & <ß>/straße 1.jpg"));
    ann.xmlPath = dir.filePath(QStringLiteral("Ännotations ü/straße 1.xml"));
    QVERIFY(VocXml::save(ann, QStringLiteral("Bilder & <ß>")));

    const QByteArray bytes = readFile(ann.xmlPath);
    QVERIFY(bytes.contains(QStringLiteral("<filename>straße 1.jpg</filename>").toUtf8()));
    QVERIFY(bytes.contains(
        ("<path>" + dir.filePath(QStringLiteral("Bilder &amp; &lt;ß&gt;/straße 1.jpg")) + "</path>")
            .toUtf8()));
    QVERIFY(bytes.contains(QStringLiteral("<folder>Bilder &amp; &lt;ß&gt;</folder>").toUtf8()));

    ImageAnnotations back;
    back.xmlPath = ann.xmlPath;
    QVERIFY(VocXml::load(back));
    QCOMPARE(describe(back.boxes), describe(boxes));
    QVERIFY(back.boxes == boxes);
}

void TestVocXml::boundingBoxIsStable()
{
    ImageAnnotations ann = record({bbox("car", 10.7, 20.2, 110.9, 220.0)});
    const QByteArray first = VocXml::toXml(ann, "f");
    QVERIFY(first.contains("<xmin>10</xmin>\n      <ymin>20</ymin>\n      <xmax>110</xmax>\n"
                           "      <ymax>220</ymax>"));
    QVERIFY(VocXml::loadFromData(first, ann.boxes));
    QCOMPARE(describe(ann.boxes), describe({bbox("car", 10, 20, 110, 220)}));
    QCOMPARE(VocXml::toXml(ann, "f"), first);
}

void TestVocXml::localeIndependent()
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const QByteArray previousC = std::setlocale(LC_NUMERIC, nullptr);
    const bool cLocaleChanged = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
    if (!cLocaleChanged)
        qInfo("de_DE.UTF-8 not installed; only the Qt default locale is German");

    const QList<BoxAnnotation> boxes = {
        shape("a", ShapeType::Ellipse, {{1234.5, -0.25}, {1e7, 2}}, 12.5),
        shape("b", ShapeType::Polygon, {{1e16, 3.75}}),
    };
    const QByteArray xml = VocXml::toXml(record(boxes), "f");
    QList<BoxAnnotation> back;
    const bool loaded = VocXml::loadFromData(xml, back);

    std::setlocale(LC_NUMERIC, previousC.constData());
    QLocale::setDefault(previous);

    QVERIFY2(xml.contains("<cx>1234.50</cx>") && xml.contains("<cy>-0.25</cy>")
                 && xml.contains("<rx>10000000.00</rx>") && xml.contains("<angle>12.5000</angle>")
                 && xml.contains("<x>10000000000000000.00</x>"),
             xml.constData());
    QVERIFY(loaded);
    QCOMPARE(describe(back), describe(boxes));
}

void TestVocXml::saveWritesAtomically()
{
    QTemporaryDir dir;
    ImageAnnotations ann = record({bbox("a", 1, 2, 3, 4)});
    ann.xmlPath = dir.filePath("img.xml");
    QVERIFY(writeFile(ann.xmlPath, "old contents"));
    QVERIFY(VocXml::save(ann, "images"));
    QCOMPARE(readFile(ann.xmlPath), VocXml::toXml(ann, "images"));

    ann.boxes.clear();
    QVERIFY(VocXml::save(ann, "images"));
    QCOMPARE(readFile(ann.xmlPath), VocXml::toXml(ann, "images"));
    // No temporary file is left beside the target.
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"img.xml"});
}

void TestVocXml::saveFailsWithoutTouchingTarget()
{
    QTemporaryDir dir;
    QVERIFY(writeFile(dir.filePath("plainfile"), "x"));
    const QStringList targets = {
        dir.filePath("no/such/folder/a.xml"),
        dir.filePath("plainfile/a.xml"), // a parent that is a file
        QString(),
    };
    for (const QString& target : targets) {
        ImageAnnotations ann = record({bbox("a", 1, 2, 3, 4)});
        ann.xmlPath = target;
        QVERIFY2(!VocXml::save(ann, "images"), qPrintable(target));
    }
    QVERIFY(QDir(dir.path()).mkdir("taken.xml")); // the target is a folder
    ImageAnnotations ann = record({});
    ann.xmlPath = dir.filePath("taken.xml");
    QVERIFY(!VocXml::save(ann, "images"));
    QVERIFY(QFileInfo(ann.xmlPath).isDir());
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             (QStringList{"plainfile", "taken.xml"}));
}

void TestVocXml::saveIntoReadOnlyFolder()
{
    QTemporaryDir dir;
    const QString folder = dir.filePath("ro");
    QVERIFY(QDir().mkpath(folder));
    ImageAnnotations ann = record({bbox("new", 1, 2, 3, 4)});
    ann.xmlPath = folder + "/existing.xml";
    QVERIFY(writeFile(ann.xmlPath, "old contents"));
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const auto restore = qScopeGuard([&] {
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner
                                          | QFileDevice::ExeOwner);
    });
    if (::access(QFile::encodeName(folder).constData(), W_OK) == 0)
        QSKIP("running with rights that ignore folder permissions");

    QVERIFY(!VocXml::save(ann, "images"));
    QCOMPARE(readFile(ann.xmlPath), QByteArray("old contents"));
    ImageAnnotations other = ann;
    other.xmlPath = folder + "/fresh.xml";
    QVERIFY(!VocXml::save(other, "images"));
    QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"existing.xml"});
}

QTEST_APPLESS_MAIN(TestVocXml)
#include "tst_vocxml.moc"
