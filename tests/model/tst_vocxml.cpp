#include <QtTest>

#include <QRandomGenerator>

#include <clocale>
#include <unistd.h>

#include "model/plainxml.h"
#include "model/vocxml.h"
#include "support/corefiles.h"

using L = QList<BoxAnnotation>;

namespace {

BoxAnnotation shapeOf(const QString& label, ShapeType type, const QList<QPointF>& points, double angle = 0,
                      bool visible = true)
{
    BoxAnnotation b = shape(label, type, points);
    b.angle = angle;
    b.visible = visible;
    return b;
}

ImageAnnotations record(const QList<BoxAnnotation>& boxes)
{
    return image(QStringLiteral("/data/images/street.01.jpg"), 640, 480, boxes);
}

// The writer's layout of compact XML: one element per line, two blanks per level.
QByteArray laidOut(const QByteArray& compact)
{
    QByteArray out;
    int depth = 0;
    for (qsizetype i = 0; i < compact.size();) {
        qsizetype end = compact.indexOf('>', i) + 1;
        const bool closing = compact.at(i + 1) == '/';
        const bool single = compact.at(end - 2) == '/' || compact.at(end - 2) == '?';
        const bool leaf = !closing && !single && (compact.at(end) != '<' || compact.at(end + 1) == '/');
        if (leaf)
            end = compact.indexOf('>', end) + 1;
        depth -= closing;
        out += QByteArray(2 * depth, ' ') + compact.mid(i, end - i) + '\n';
        depth += !closing && !single && !leaf;
        i = end;
    }
    return out;
}

QByteArray document(const QByteArray& objects)
{
    return laidOut("<?xml version=\"1.0\" encoding=\"UTF-8\"?><annotation><folder>images</folder>"
                   "<filename>street.01.jpg</filename><path>/data/images/street.01.jpg</path>"
                   "<source><database>Unknown</database></source>"
                   "<size><width>640</width><height>480</height><depth>3</depth></size>"
                   "<segmented>0</segmented>" + objects + "</annotation>");
}

QByteArray object(const QByteArray& name, const char* type, const QByteArray& element)
{
    return "<object><name>" + name + "</name><type>" + type + "</type><pose>Unspecified</pose>"
           "<truncated>0</truncated><difficult>0</difficult>" + element + "</object>";
}

QByteArray inDocument(const QByteArray& objects)
{
    return "<?xml version=\"1.0\"?>\n<annotation>\n<folder>f</folder>\n" + objects + "\n</annotation>\n";
}

QByteArray pt(const char* x, const char* y)
{
    return QByteArray("<pt><x>") + x + "</x><y>" + y + "</y></pt>";
}

} // namespace

class TestVocXml : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Numbers are written and read the same whatever the user's locale.
    void initTestCase()
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        std::setlocale(LC_NUMERIC, "de_DE.UTF-8"); // when installed
    }

    void writer_data()
    {
        // element: compact; empty: no shape element
        columns<BoxAnnotation, QByteArray>("box", "element");
        const QByteArray p1 = pt("1.00", "2.00");
        QTest::newRow("bndbox truncated, corners ordered") << box("a", 110.9, 220.0, 10.7, 20.2)
            << QByteArray("<bndbox><xmin>10</xmin><ymin>20</ymin><xmax>110</xmax><ymax>220</ymax></bndbox>");
        QTest::newRow("bndbox with one point") << shape("a", ShapeType::BoundingBox, {{5, 6}})
            << QByteArray("<bndbox><xmin>0</xmin><ymin>0</ymin><xmax>-1</xmax><ymax>-1</ymax></bndbox>");
        QTest::newRow("bndbox: first two points, toward zero") << shape("a", ShapeType::BoundingBox, {{-3.9, 7.9}, {-0.5, 2.1}, {500, 500}})
            << QByteArray("<bndbox><xmin>-3</xmin><ymin>2</ymin><xmax>0</xmax><ymax>7</ymax></bndbox>");
        QTest::newRow("polygon") << shape("a", ShapeType::Polygon, {{0, 0}, {12.5, -0.5}, {3.333, 4.006}})
            << "<polygon>" + pt("0.00", "0.00") + pt("12.50", "-0.50") + pt("3.33", "4.01") + "</polygon>";
        QTest::newRow("empty polygon") << shape("a", ShapeType::Polygon, {}) << QByteArray("<polygon/>");
        QTest::newRow("line: first two points") << shape("a", ShapeType::Line, {{1, 2}, {3.25, 4.75}, {5, 6}})
            << QByteArray("<line><x1>1.00</x1><y1>2.00</y1><x2>3.25</x2><y2>4.75</y2></line>");
        QTest::newRow("line with one point") << shape("a", ShapeType::Line, {{1, 1}}) << QByteArray();
        QTest::newRow("occluded keypoint") << shapeOf("a", ShapeType::Keypoint, {{5.5, 6.5}}, 0, false)
            << QByteArray("<keypoint><x>5.50</x><y>6.50</y><visible>0</visible></keypoint>");
        QTest::newRow("visible keypoint, first point") << shape("a", ShapeType::Keypoint, {{1, 2}, {9, 9}})
            << QByteArray("<keypoint><x>1.00</x><y>2.00</y><visible>1</visible></keypoint>");
        QTest::newRow("keypoint without point") << shape("a", ShapeType::Keypoint, {}) << QByteArray();
        QTest::newRow("rotated box") << shapeOf("a", ShapeType::RotatedBox, {{1, 2}, {3, 4}}, -17.25)
            << "<rotatedbox><angle>-17.2500</angle>" + p1 + pt("3.00", "4.00") + "</rotatedbox>";
        QTest::newRow("rotated box without corners keeps its angle") << shapeOf("a", ShapeType::RotatedBox, {}, 1.5)
            << QByteArray("<rotatedbox><angle>1.5000</angle></rotatedbox>");
        QTest::newRow("cuboid") << shape("a", ShapeType::Cuboid, {{1, 2}, {1, 2}}) << "<cuboid>" + p1 + p1 + "</cuboid>";
        QTest::newRow("empty cuboid") << shape("a", ShapeType::Cuboid, {}) << QByteArray("<cuboid/>");
        QTest::newRow("ellipse") << shapeOf("a", ShapeType::Ellipse, {{50, 60}, {10, 5}}, 30)
            << QByteArray("<ellipse><cx>50.00</cx><cy>60.00</cy><rx>10.00</rx><ry>5.00</ry><angle>30.0000</angle></ellipse>");
        QTest::newRow("ellipse with one point") << shape("a", ShapeType::Ellipse, {{1, 1}}) << QByteArray();
    }

    void writer()
    {
        auto [box, element] = row<BoxAnnotation, QByteArray>("box", "element");
        const QByteArray expected = document(object("a", shapeTypeWord(box.type), element));
        QCOMPARE(VocXml::toXml(record({box}), "images"), expected);

        QTemporaryDir dir;
        ImageAnnotations ann = record({box});
        ann.xmlPath = dir.filePath("street.01.xml");
        QVERIFY(writeFile(ann.xmlPath, QByteArray(5000, 'x')));
        QVERIFY(VocXml::save(ann, "images"));
        QCOMPARE(readAll(ann.xmlPath), expected);
        QCOMPARE(filesUnder(dir.path()), QStringList{"street.01.xml"}); // no temporary file left
    }

    void escaping()
    {
        // Characters XML cannot hold are left out; a carriage return is kept as a reference.
        ImageAnnotations ann = record({box(QStringLiteral("R&D <\"x\"> a\x01" "b") + QChar(0xFFFE) + "c\td\re", 1, 2, 3, 4)});
        ann.imagePath = "/data/a&b<c/street.01.jpg";
        const QByteArray xml = VocXml::toXml(ann, "a&b<c");
        QVERIFY(xml.contains("  <folder>a&amp;b&lt;c</folder>\n  <filename>street.01.jpg</filename>\n"
                             "  <path>/data/a&amp;b&lt;c/street.01.jpg</path>\n"));
        QVERIFY(xml.contains("    <name>R&amp;D &lt;&quot;x&quot;&gt; abc\td&#13;e</name>\n"));
        L back;
        QVERIFY(VocXml::loadFromData(xml, back));
        QCOMPARE(back.value(0).label, QStringLiteral("R&D <\"x\"> abc d e"));

        const QByteArray empty = VocXml::toXml(record({}), "images");
        QCOMPARE(empty, document(""));
        back = {box("old", 1, 1, 2, 2)};
        QVERIFY(VocXml::loadFromData(empty, back));
        QVERIFY(back.isEmpty());
    }

    void numberFormats_data()
    {
        columns<double, QByteArray, QByteArray>("value", "coordinate", "angle");
        QTest::newRow("negative zero") << -0.0 << QByteArray("0.00") << QByteArray("0.0000");
        QTest::newRow("tiny negative keeps sign") << -0.001 << QByteArray("-0.00") << QByteArray("-0.0010");
        // 0.00015 is stored as 0.000149999...; numbersMatchQt covers halves and ties.
        QTest::newRow("angle below half") << 0.00015 << QByteArray("0.00") << QByteArray("0.0001");
        QTest::newRow("very large") << 1e20 << QByteArray("100000000000000000000.00") << QByteArray("100000000000000000000.0000");
        QTest::newRow("subnormal") << 4.9e-324 << QByteArray("0.00") << QByteArray("0.0000");
    }

    void numberFormats()
    {
        auto [value, coordinate, angle] = row<double, QByteArray, QByteArray>("value", "coordinate", "angle");
        const QByteArray xml = VocXml::toXml(record({shapeOf("a", ShapeType::Ellipse, {{value, 1}, {2, 3}}, value)}), "f");
        QVERIFY2(xml.contains("<cx>" + coordinate + "</cx>") && xml.contains("<angle>" + angle + "</angle>"), xml.constData());
    }

    // The writer and the reader handle numbers themselves; both must agree with Qt for any value.
    void numbersMatchQt()
    {
        QRandomGenerator rng(20240611);
        for (int i = 0; i < 20000; ++i) {
            double v;
            switch (i % 4) {
            case 0: v = rng.bounded(100000) / 8.0 - 5000; break; // many exact halves
            case 1: v = (rng.generateDouble() - 0.5) * 20000; break;
            case 2: v = (rng.generateDouble() - 0.5) * std::pow(10.0, rng.bounded(30) - 12); break;
            default: v = rng.bounded(200000) / 10000.0 - 10; break; // near ties in decimal
            }
            const QByteArray xml = VocXml::toXml(record({shapeOf("a", ShapeType::Ellipse, {{v, 0}, {0, 0}}, v)}), "f");
            const QByteArray cx = QByteArray::number(v, 'f', 2), angle = QByteArray::number(v, 'f', 4);
            L back;
            QVERIFY(VocXml::loadFromData(xml, back));
            if (!xml.contains("<cx>" + cx + "</cx>") || !xml.contains("<angle>" + angle + "</angle>")
                || back.value(0).points.value(0).x() != cx.toDouble() || back.value(0).angle != angle.toDouble())
                QFAIL(qPrintable(QString::number(v, 'g', 17) + " written as\n" + xml));
        }
        // Decimal texts of every length, with and without sign and point.
        for (int i = 0; i < 20000; ++i) {
            QByteArray text = rng.bounded(3) == 0 ? "-" : "";
            const int digits = 1 + int(rng.bounded(22));
            const int point = int(rng.bounded(digits + 2)); // past the end: no point
            for (int d = 0; d < digits; ++d)
                text += QByteArray(d == point && d > 0 ? "." : "") + char('0' + rng.bounded(10));
            L back;
            QVERIFY(VocXml::loadFromData(inDocument("<object><name>a</name><keypoint><x>" + text + "</x></keypoint></object>"), back));
            QVERIFY2(back.value(0).points.value(0).x() == text.toDouble(), text.constData());
        }
    }

    void reader_data()
    {
        columns<QByteArray, bool, QStringList>("xml", "ok", "expected");

        QTest::newRow("classic VOC file") << QByteArray(R"(<annotation>
	<folder>VOC2007</folder><filename>000005.jpg</filename>
	<size><width>500</width><height>375</height><depth>3</depth></size>
	<object>
		<name>chair</name><pose>Rear</pose><truncated>0</truncated><difficult>0</difficult>
		<bndbox><xmin>263</xmin><ymin>211</ymin><xmax>324</xmax><ymax>339</ymax></bndbox>
	</object>
	<object><name>person</name><bndbox><xmin>165.5</xmin><ymin>264</ymin><xmax>253</xmax><ymax>372</ymax></bndbox></object>
</annotation>)") << true << QStringList{"chair:(263,211)-(324,339)", "person:(165.5,264)-(253,372)"};
        QTest::newRow("n instead of name") << inDocument("<object><n>dog</n><bndbox><xmin>1</xmin><ymin>2</ymin>"
                                                         "<xmax>3</xmax><ymax>4</ymax></bndbox></object>") << true << QStringList{"dog:(1,2)-(3,4)"};
        QTest::newRow("label trimmed, entities and CDATA")
            << inDocument("<object><name>\n  R&amp;D <![CDATA[<x>]]>  </name><keypoint><x>1</x><y>2</y></keypoint></object>")
            << true << QStringList{"R&D <x>:(1,2) keypoint"};
        QTest::newRow("name inside shape elements is not the label") << inDocument("<object><name>a</name><polygon><name>b</name>" + pt("1", "2")
                          + "</polygon><bndbox><n>c</n><xmin>1</xmin></bndbox></object>") << true << QStringList{"a:(1,2)-(0,0)"};
        QTest::newRow("second top-level name replaces the first")
            << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox><name>b</name></object>") << true << QStringList{"b:(1,0)-(0,0)"};
        QTest::newRow("elements outside an object are skipped")
            << inDocument("<name>top</name><bndbox><xmin>5</xmin></bndbox><polygon>" + pt("1", "1")
                          + "</polygon><object><name>a</name><cuboid>" + pt("1", "2") + "</cuboid></object>")
            << true << QStringList{"a:(1,2) cuboid"};
        QTest::newRow("object without label or points is dropped")
            << inDocument("<object><bndbox><xmin>1</xmin></bndbox></object><object><name>  </name><bndbox/></object>"
                          "<object><name>a</name><type>polygon</type></object><object><name>b</name><polygon></polygon>"
                          "</object><object><name>c</name><line/></object>") << true << QStringList{"c:(0,0)-(0,0) line"};
        QTest::newRow("type word is case-sensitive and the shape element decides")
            << inDocument("<object><name>a</name><type>Polygon</type><cuboid>" + pt("1", "1") + "</cuboid></object>"
                          "<object><name>b</name><type>ellipse</type><bndbox><xmin>1</xmin></bndbox></object>"
                          "<object><name>c</name><polygon>" + pt("3", "4") + "</polygon><type> line </type></object>")
            << true << QStringList{"a:(1,1) cuboid", "b:(1,0)-(0,0)", "c:(3,4) line"};
        QTest::newRow("unknown elements ignored")
            << inDocument("<object><name>a</name><colour>red</colour><bndbox><xmin>1</xmin><zmin>9</zmin><ymin>2</ymin>"
                          "<xmax>3</xmax><ymax>4</ymax></bndbox><extra><xmin>7</xmin></extra></object>") << true << QStringList{"a:(1,2)-(3,4)"};
        QTest::newRow("bndbox keeps exactly two points") << inDocument("<object><name>a</name><polygon>" + pt("1", "1") + pt("2", "2") + pt("3", "3")
                          + "</polygon><bndbox><ymax>8</ymax></bndbox></object>") << true << QStringList{"a:(1,1)-(2,8)"};
        const QByteArray kp = "</name><keypoint><x>1</x><y>1</y><visible>";
        QTest::newRow("visible values") << inDocument("<object><name>v2" + kp + "2</visible></keypoint></object><object><name>vm1" + kp
                          + "-1</visible></keypoint></object><object><name>yes" + kp + "yes</visible></keypoint></object>"
                          "<object><name>zero" + kp + " 0 </visible></keypoint></object><object><name>big" + kp
                          + "4294967296</visible></keypoint></object><object><name>frac" + kp
                          + "1.5</visible></keypoint></object><object><name>none</name><keypoint><y>3</y></keypoint></object>") << true
            << QStringList{"v2:(1,1) keypoint", "vm1:(1,1) keypoint", "yes:(1,1) keypoint hidden", "zero:(1,1) keypoint hidden",
                           "big:(1,1) keypoint hidden", "frac:(1,1) keypoint hidden", "none:(0,3) keypoint"};
        QTest::newRow("points before angle") << inDocument("<object><name>r</name><rotatedbox>" + pt("1", "2") + pt("3", "2")
                          + "<angle>-17.25</angle></rotatedbox></object>") << true << QStringList{"r:(1,2)-(3,2) rotatedbox angle=-17.25"};
        QTest::newRow("line and ellipse") << inDocument("<object><name>l</name><line><y2>4</y2><x1>1</x1><y1>2</y1><x2>3</x2></line></object><object>"
                          "<name>e</name><ellipse><cx>5</cx><cy>6</cy><rx>7</rx><ry>8</ry><angle>9.5</angle></ellipse></object>")
            << true << QStringList{"l:(1,2)-(3,4) line", "e:(5,6)-(7,8) ellipse angle=9.5"};
        QTest::newRow("coordinates belong to their open element")
            << inDocument("<object><name>a</name><line><cx>5</cx><x>6</x><x1>1</x1></line><x2>9</x2>"
                          "<ellipse><x1>3</x1><angle>2</angle></ellipse><pt><x>1</x></pt></object>")
            << true << QStringList{"a:(1,0)-(0,0) ellipse angle=2"};
        QTest::newRow("point children") << inDocument("<object><name>p</name><polygon><pt><z>5</z><x> 1.5 </x></pt><pt><y>2</y><x>3</x><x>4</x></pt>"
                          "<pt/></polygon></object>") << true << QStringList{"p:(1.5,0)-(4,2)-(0,0) polygon"};
        QTest::newRow("numbers that are not numbers read as 0")
            << inDocument("<object><name>n</name><cuboid>" + pt("abc", "1,5") + pt("nan", "inf") + pt("1e400", "-inf")
                          + pt("", " 1e2 ") + pt("0x10", "+7") + "</cuboid></object>")
            << true << QStringList{"n:(0,0)-(0,0)-(0,0)-(0,100)-(0,7) cuboid"};
        QTest::newRow("comments inside text") << inDocument("<object><name>a<!-- x -->b</name><bndbox><xmin>1<!-- y -->2</xmin></bndbox></object>")
            << true << QStringList{"ab:(12,0)-(0,0)"};
        QTest::newRow("element inside a text element is an error") << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox></object>"
                          "<object><name>b<i>x</i></name><bndbox/></object>") << false << QStringList{"a:(1,0)-(0,0)"};
        QTest::newRow("mismatched tag keeps earlier shapes") << inDocument("<object><name>a</name><bndbox><xmin>1</xmin></bndbox></object>"
                          "<object><name>b</name><bndbox><xmin>1</xmin></bndbox></objetc>") << false << QStringList{"a:(1,0)-(0,0)"};
        QTest::newRow("empty data") << QByteArray() << false << QStringList{};
        QTest::newRow("not XML") << QByteArray("xmin=1") << false << QStringList{};
    }

    void reader()
    {
        auto [xml, ok, expected] = row<QByteArray, bool, QStringList>("xml", "ok", "expected");
        L boxes = {box("stale", 1, 1, 5, 5)};
        QCOMPARE(VocXml::loadFromData(xml, boxes), ok);
        QCOMPARE(describe(boxes), expected);
        // The fast path for plain files reads what QXmlStreamReader reads.
        QCOMPARE(VocXml::loadWithStreamReader(xml, boxes), ok);
        QCOMPARE(describe(boxes), expected);
    }

    void plainFilesTakeTheFastPath()
    {
        PlainXmlReader plain;
        QVERIFY(plain.parse(VocXml::toXml(record({box("R&D <\"x'>", 1, 2, 3, 4)}), "f")));
        for (const char* other : {"<a><!-- c --></a>", "<a b=\"1\"></a>", "<a/>", "<a>&#65;</a>", "<a>\r\n</a>",
                                  "<a>\xc3\xa9</a>", "<a></b>", "<a></a><a></a>", "<a>]]></a>", "<?xml version=\"1.1\"?><a></a>"})
            QVERIFY2(!plain.parse(other), other);
    }

    void truncatedFile_data()
    {
        // cutBefore: the file ends before the n-th of these
        columns<QByteArray, int, int>("cutBefore", "occurrence", "kept");
        QTest::newRow("inside the first pt") << QByteArray("<y>") << 2 << 1;
        QTest::newRow("inside the last pt") << QByteArray("<y>") << 4 << 1;
        QTest::newRow("inside the first shape") << QByteArray("<y>") << 1 << 0;
        QTest::newRow("inside a name") << QByteArray("</name>") << 2 << 1;
        QTest::newRow("before the closing annotation") << QByteArray("</annotation>") << 1 << 2;
    }

    void truncatedFile()
    {
        auto [cutBefore, occurrence, kept] = row<QByteArray, int, int>("cutBefore", "occurrence", "kept");
        const L boxes = {shape("first", ShapeType::Keypoint, {{1, 2}}), shape("second", ShapeType::Polygon, {{1, 2}, {3, 4}, {5, 6}})};
        const QByteArray full = VocXml::toXml(record(boxes), "f");
        qsizetype at = -1;
        for (int i = 0; i < occurrence; ++i)
            at = full.indexOf(cutBefore, at + 1);
        QTemporaryDir dir;
        ImageAnnotations ann;
        ann.xmlPath = dir.filePath("t.xml");
        QVERIFY(at > 0 && writeFile(ann.xmlPath, full.left(at)));
        QVERIFY(!VocXml::load(ann));
        QVERIFY(ann.partial);
        QCOMPARE(describe(ann.boxes), describe(boxes.mid(0, kept)));
        QVERIFY(writeFile(ann.xmlPath, full));
        QVERIFY(VocXml::load(ann));
        QVERIFY(!ann.partial);
    }

    // Only the shapes are read; a file that cannot be read leaves them as they were.
    void loadFromFile()
    {
        QTemporaryDir dir;
        ImageAnnotations written = record({box("a", 1, 2, 3, 4)});
        written.xmlPath = dir.filePath("a.xml");
        written.width = 9999;
        QVERIFY(VocXml::save(written, "images"));
        ImageAnnotations ann = image("/elsewhere/other.png", 12, 34, {box("x", 0, 0, 1, 1), box("y", 0, 0, 1, 1)});
        ann.xmlPath = written.xmlPath;
        ann.dirty = true;
        QVERIFY(VocXml::load(ann));
        QCOMPARE(ann.boxes, written.boxes);
        QCOMPARE(QList<QVariant>({ann.imagePath, ann.width, ann.height, ann.dirty}),
                 QList<QVariant>({"/elsewhere/other.png", 12, 34, true}));

        QVERIFY(QDir(dir.path()).mkdir("folder.xml"));
        QVERIFY(writeFile(dir.filePath("locked.xml"), VocXml::toXml(record({box("other", 0, 0, 1, 1)}), "f")));
        QFile::setPermissions(dir.filePath("locked.xml"), QFileDevice::Permissions());
        for (const QString& path : {dir.filePath("missing.xml"), QString(), dir.filePath("folder.xml"), dir.filePath("locked.xml")}) {
            if (path.endsWith("locked.xml") && ::geteuid() == 0)
                continue; // root reads any file
            ann.xmlPath = path;
            QVERIFY2(!VocXml::load(ann), qPrintable(path));
            QCOMPARE(ann.boxes, written.boxes);
        }
    }

    void roundTrip()
    {
        const L boxes = {
            box(QStringLiteral("Straßenschild 標識 🚗 & <x>"), 10, 20, 110, 220),
            shape("poly", ShapeType::Polygon, {{0.25, 1.5}, {-3.75, 8}, {1e6, 2.01}}),
            shape("line", ShapeType::Line, {{1.11, 2.22}, {-3.33, 4.44}}),
            shapeOf("kp", ShapeType::Keypoint, {{5.5, 6.5}}, 0, false),
            shapeOf("rot", ShapeType::RotatedBox, {{1, 2}, {3, 2}, {3, 4}, {1, 4}}, -17.2525),
            shape("cube", ShapeType::Cuboid, {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {2, 2}, {12, 2}, {12, 12}, {2, 12}}),
            shapeOf("ell", ShapeType::Ellipse, {{50.5, 60.25}, {10, 5}}, 359.9999),
        };
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("Ännotations ü")));
        ImageAnnotations ann = record(boxes);
        ann.imagePath = dir.filePath(QStringLiteral("Bilder & <ß>/straße 1.jpg"));
        ann.xmlPath = dir.filePath(QStringLiteral("Ännotations ü/straße 1.xml"));
        QVERIFY(VocXml::save(ann, QStringLiteral("Bilder & <ß>")));
        const QString bytes = QString::fromUtf8(readAll(ann.xmlPath));
        QVERIFY(bytes.contains("  <folder>Bilder &amp; &lt;ß&gt;</folder>\n  <filename>straße 1.jpg</filename>\n  <path>"
                               + dir.filePath(QStringLiteral("Bilder &amp; &lt;ß&gt;/straße 1.jpg")) + "</path>\n"));
        ImageAnnotations back;
        back.xmlPath = ann.xmlPath;
        QVERIFY(VocXml::load(back));
        QCOMPARE(back.boxes, boxes);
    }

    // A save that fails leaves the target and its folder as they were.
    void saveFailures()
    {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("plainfile"), "x") && QDir(dir.path()).mkdir("taken.xml"));
        ImageAnnotations ann = record({box("a", 1, 2, 3, 4)});
        for (const QString& target : {dir.filePath("no/such/folder/a.xml"), dir.filePath("plainfile/a.xml"), QString(),
                                      dir.filePath("taken.xml")}) {
            ann.xmlPath = target;
            QVERIFY2(!VocXml::save(ann, "images"), qPrintable(target));
        }
        QVERIFY(QFileInfo(dir.filePath("taken.xml")).isDir());
        QCOMPARE(filesUnder(dir.path()), QStringList{"plainfile"});

        const QString folder = dir.filePath("ro");
        QVERIFY(QDir().mkpath(folder) && writeFile(folder + "/existing.xml", "old contents"));
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        const auto restore = qScopeGuard([&] { QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner); });
        if (::access(QFile::encodeName(folder).constData(), W_OK) == 0)
            QSKIP("running with rights that ignore folder permissions");
        for (const char* name : {"/existing.xml", "/fresh.xml"}) {
            ann.xmlPath = folder + name;
            QVERIFY(!VocXml::save(ann, "images"));
        }
        QCOMPARE(filesUnder(folder), QStringList{"existing.xml"});
        QCOMPARE(readAll(folder + "/existing.xml"), QByteArray("old contents"));
    }
};

QTEST_APPLESS_MAIN(TestVocXml)
#include "tst_vocxml.moc"
