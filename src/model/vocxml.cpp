#include "model/vocxml.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "model/atomicbatch.h"
#include "model/plainxml.h"
#include "model/safefile.h"

namespace {

// ---------------------------------------------------------------------------------------
// Writing. The bytes are built directly: the layout is fixed (two-space indentation, one
// element per line) and this is several times faster than QXmlStreamWriter plus
// QString::number, which matters because every edit rewrites the file.

// Output buffer that appends with memcpy into spare capacity; QByteArray::append goes
// through a general out-of-line insert for every piece.
class Bytes
{
public:
    explicit Bytes(qsizetype capacity) : m_data(capacity, Qt::Uninitialized)
    {
        m_ptr = m_data.data();
    }

    Bytes& add(const char* s, qsizetype n)
    {
        reserveMore(n);
        std::memcpy(m_ptr + m_size, s, size_t(n));
        m_size += n;
        return *this;
    }
    Bytes& add(const char* s) { return add(s, qsizetype(std::strlen(s))); }
    Bytes& add(const QByteArray& b) { return add(b.constData(), b.size()); }
    Bytes& add(char c)
    {
        reserveMore(1);
        m_ptr[m_size++] = c;
        return *this;
    }
    Bytes& add(qsizetype count, char c)
    {
        reserveMore(count);
        std::memset(m_ptr + m_size, c, size_t(count));
        m_size += count;
        return *this;
    }

    QByteArray take()
    {
        m_data.resize(m_size);
        return std::move(m_data);
    }

private:
    void reserveMore(qsizetype n)
    {
        if (m_size + n <= m_data.size())
            return;
        m_data.resize(std::max(m_data.size() * 2, m_size + n + 256));
        m_ptr = m_data.data();
    }

    QByteArray m_data;
    char* m_ptr = nullptr;
    qsizetype m_size = 0;
};

void appendIndent(Bytes& out, int level)
{
    out.add(qsizetype(level) * 2, ' ');
}

// Escapes text as XML requires. Characters that XML 1.0 cannot carry at all (control
// characters other than tab and line feed, U+FFFE, U+FFFF) are dropped so the file stays
// readable; a carriage return is written as a reference because a literal one would be
// read back as a line feed.
void appendEscaped(Bytes& out, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    const char* p = utf8.constData();
    const qsizetype n = utf8.size();
    qsizetype start = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const uchar c = uchar(p[i]);
        const char* replacement = nullptr;
        qsizetype length = 1;
        if (c == '<')
            replacement = "&lt;";
        else if (c == '>')
            replacement = "&gt;";
        else if (c == '&')
            replacement = "&amp;";
        else if (c == '"')
            replacement = "&quot;";
        else if (c == '\r')
            replacement = "&#13;";
        else if (c < 0x20 && c != '\t' && c != '\n')
            replacement = "";
        else if (c == 0xEF && i + 2 < n && uchar(p[i + 1]) == 0xBF
                 && (uchar(p[i + 2]) == 0xBE || uchar(p[i + 2]) == 0xBF)) {
            replacement = "";
            length = 3;
        } else {
            continue;
        }
        out.add(p + start, i - start);
        out.add(replacement);
        i += length - 1;
        start = i + 1;
    }
    out.add(p + start, n - start);
}

void appendInt(Bytes& out, long long v)
{
    char buf[24];
    const auto res = std::to_chars(buf, buf + sizeof buf, v);
    out.add(buf, res.ptr - buf);
}

// Fixed-point with `decimals` (2 or 4) digits, the same text as QByteArray::number(v, 'f',
// decimals): rounded from the exact binary value, halves away from zero, "-" kept on
// negative values that round to zero. Huge and non-finite values go through Qt.
void appendFixed(Bytes& out, double v, int decimals)
{
    const double a = std::fabs(v);
    if (!(a < 1e15)) {
        out.add(QByteArray::number(v, 'f', decimals));
        return;
    }
    const std::uint64_t scale = decimals == 2 ? 100 : 10000;
    const double whole = std::floor(a);
    std::uint64_t intPart = std::uint64_t(whole);
    std::uint64_t fraction = 0;
    const double frac = a - whole; // exact
    if (frac > 0) {
        // frac = mant * 2^-shift exactly, mant < 2^53 and shift >= 53. Scaled by `scale`
        // the product needs up to 67 bits, so only its part above bit 32 is kept (the
        // lower 32 bits can affect neither the digits nor the rounding bit).
        int e = 0;
        const double m = std::frexp(frac, &e);
        const std::uint64_t mant = std::uint64_t(std::ldexp(m, 53));
        const int shift = 53 - e;
        const std::uint64_t high =
            (mant >> 32) * scale + (((mant & 0xFFFFFFFFu) * scale) >> 32);
        const int s = shift - 32;
        const std::uint64_t digits = s < 64 ? high >> s : 0;
        const std::uint64_t roundBit = s - 1 < 64 ? (high >> (s - 1)) & 1u : 0;
        fraction = digits + roundBit;
        if (fraction >= scale) {
            fraction -= scale;
            ++intPart;
        }
    }
    char buf[40];
    char* q = buf;
    if (v < 0) // Qt writes -0.0 without a sign but -0.001 as "-0.00"
        *q++ = '-';
    q = std::to_chars(q, buf + sizeof buf, intPart).ptr;
    *q++ = '.';
    for (int i = decimals - 1; i >= 0; --i) {
        q[i] = char('0' + fraction % 10);
        fraction /= 10;
    }
    q += decimals;
    out.add(buf, q - buf);
}

void textElement(Bytes& out, int level, const char* name, const QString& text)
{
    appendIndent(out, level);
    out.add('<').add(name).add('>');
    appendEscaped(out, text);
    out.add("</").add(name).add(">\n");
}

void intElement(Bytes& out, int level, const char* name, long long v)
{
    appendIndent(out, level);
    out.add('<').add(name).add('>');
    appendInt(out, v);
    out.add("</").add(name).add(">\n");
}

void fixedElement(Bytes& out, int level, const char* name, double v, int decimals = 2)
{
    appendIndent(out, level);
    out.add('<').add(name).add('>');
    appendFixed(out, v, decimals);
    out.add("</").add(name).add(">\n");
}

// One "pt" element per point at level 3; an empty element when there are none.
void shapeWithPoints(Bytes& out, const char* name, const QList<QPointF>& points,
                     const double* angle)
{
    if (points.isEmpty() && !angle) {
        out.add("    <").add(name).add("/>\n");
        return;
    }
    out.add("    <").add(name).add(">\n");
    if (angle)
        fixedElement(out, 3, "angle", *angle, 4);
    for (const QPointF& p : points) {
        out.add("      <pt>\n");
        fixedElement(out, 4, "x", p.x());
        fixedElement(out, 4, "y", p.y());
        out.add("      </pt>\n");
    }
    out.add("    </").add(name).add(">\n");
}

void writeObject(Bytes& out, const BoxAnnotation& box)
{
    out.add("  <object>\n");
    textElement(out, 2, "name", box.label);
    out.add("    <type>").add(shapeTypeWord(box.type)).add("</type>\n");
    out.add("    <pose>Unspecified</pose>\n"
            "    <truncated>0</truncated>\n"
            "    <difficult>0</difficult>\n");
    const QList<QPointF>& pts = box.points;
    switch (box.type) {
    case ShapeType::BoundingBox: {
        const QRect r = box.rect();
        out.add("    <bndbox>\n");
        intElement(out, 3, "xmin", r.left());
        intElement(out, 3, "ymin", r.top());
        intElement(out, 3, "xmax", r.right());
        intElement(out, 3, "ymax", r.bottom());
        out.add("    </bndbox>\n");
        break;
    }
    case ShapeType::Polygon:
        shapeWithPoints(out, "polygon", pts, nullptr);
        break;
    case ShapeType::Line:
        if (pts.size() >= 2) {
            out.add("    <line>\n");
            fixedElement(out, 3, "x1", pts[0].x());
            fixedElement(out, 3, "y1", pts[0].y());
            fixedElement(out, 3, "x2", pts[1].x());
            fixedElement(out, 3, "y2", pts[1].y());
            out.add("    </line>\n");
        }
        break;
    case ShapeType::Keypoint:
        if (!pts.isEmpty()) {
            out.add("    <keypoint>\n");
            fixedElement(out, 3, "x", pts[0].x());
            fixedElement(out, 3, "y", pts[0].y());
            out.add(box.visible ? "      <visible>1</visible>\n"
                                : "      <visible>0</visible>\n");
            out.add("    </keypoint>\n");
        }
        break;
    case ShapeType::RotatedBox:
        shapeWithPoints(out, "rotatedbox", pts, &box.angle);
        break;
    case ShapeType::Cuboid:
        shapeWithPoints(out, "cuboid", pts, nullptr);
        break;
    case ShapeType::Ellipse:
        if (pts.size() >= 2) {
            out.add("    <ellipse>\n");
            fixedElement(out, 3, "cx", pts[0].x());
            fixedElement(out, 3, "cy", pts[0].y());
            fixedElement(out, 3, "rx", pts[1].x());
            fixedElement(out, 3, "ry", pts[1].y());
            fixedElement(out, 3, "angle", box.angle, 4);
            out.add("    </ellipse>\n");
        }
        break;
    }
    out.add("  </object>\n");
}

// ---------------------------------------------------------------------------------------
// Reading.

enum class Tag {
    Other, Object, Name, N, Type, Bndbox, Xmin, Ymin, Xmax, Ymax, Polygon, Pt, Line,
    X1, Y1, X2, Y2, Keypoint, X, Y, Visible, RotatedBox, Angle, Cuboid, Ellipse,
    Cx, Cy, Rx, Ry,
};

// Element names are compared character by character: this runs for every tag of every
// file, and QStringView's operator== is an out-of-line call.
template <std::size_t N>
bool is(const char16_t* name, const char (&word)[N])
{
    for (std::size_t i = 0; i + 1 < N; ++i) {
        if (name[i] != char16_t(word[i]))
            return false;
    }
    return true;
}

Tag classify(QStringView name)
{
    const char16_t* n = name.utf16();
    switch (name.size()) {
    case 1:
        if (n[0] == u'n') return Tag::N;
        if (n[0] == u'x') return Tag::X;
        if (n[0] == u'y') return Tag::Y;
        break;
    case 2:
        if (is(n, "pt")) return Tag::Pt;
        if (is(n, "x1")) return Tag::X1;
        if (is(n, "y1")) return Tag::Y1;
        if (is(n, "x2")) return Tag::X2;
        if (is(n, "y2")) return Tag::Y2;
        if (is(n, "cx")) return Tag::Cx;
        if (is(n, "cy")) return Tag::Cy;
        if (is(n, "rx")) return Tag::Rx;
        if (is(n, "ry")) return Tag::Ry;
        break;
    case 4:
        if (is(n, "name")) return Tag::Name;
        if (is(n, "type")) return Tag::Type;
        if (is(n, "xmin")) return Tag::Xmin;
        if (is(n, "ymin")) return Tag::Ymin;
        if (is(n, "xmax")) return Tag::Xmax;
        if (is(n, "ymax")) return Tag::Ymax;
        if (is(n, "line")) return Tag::Line;
        break;
    case 5:
        if (is(n, "angle")) return Tag::Angle;
        break;
    case 6:
        if (is(n, "object")) return Tag::Object;
        if (is(n, "bndbox")) return Tag::Bndbox;
        if (is(n, "cuboid")) return Tag::Cuboid;
        break;
    case 7:
        if (is(n, "polygon")) return Tag::Polygon;
        if (is(n, "visible")) return Tag::Visible;
        if (is(n, "ellipse")) return Tag::Ellipse;
        break;
    case 8:
        if (is(n, "keypoint")) return Tag::Keypoint;
        break;
    case 10:
        if (is(n, "rotatedbox")) return Tag::RotatedBox;
        break;
    default:
        break;
    }
    return Tag::Other;
}

// The text of the element whose start tag was just read, up to and including its end
// tag, with the semantics of QXmlStreamReader::readElementText() (a child element is an
// error), but collected into a buffer that is reused across elements.
template <typename Xml>
QStringView readText(Xml& xml, QString& buf)
{
    buf.resize(0);
    for (;;) {
        switch (xml.readNext()) {
        case QXmlStreamReader::Characters:
        case QXmlStreamReader::EntityReference:
            buf.append(xml.text());
            break;
        case QXmlStreamReader::EndElement:
            return buf;
        case QXmlStreamReader::ProcessingInstruction:
        case QXmlStreamReader::Comment:
            break;
        default:
            if (!xml.hasError())
                xml.raiseError(QStringLiteral("Expected character data."));
            return buf;
        }
    }
}

// The numbers this program writes ("-12.50") without the general parser: up to 15
// digits are exact in a double, and so is 10^k for k <= 22, so one division gives the
// correctly rounded value, the same as QStringView::toDouble(). Anything else (white
// space, exponents, "+", more digits) is left to the general parser.
bool parsePlainDecimal(QStringView text, double& out)
{
    const char16_t* p = text.utf16();
    const qsizetype n = text.size();
    qsizetype i = 0;
    const bool negative = n > 0 && p[0] == u'-';
    if (negative)
        ++i;
    std::uint64_t mantissa = 0;
    int digits = 0;
    int fractionDigits = 0;
    bool inFraction = false;
    bool digitSinceDot = false;
    for (; i < n; ++i) {
        const char16_t c = p[i];
        if (c >= u'0' && c <= u'9') {
            if (++digits > 15)
                return false;
            mantissa = mantissa * 10 + (c - u'0');
            if (inFraction)
                ++fractionDigits;
            digitSinceDot = true;
        } else if (c == u'.' && !inFraction && digits > 0) {
            inFraction = true;
            digitSinceDot = false;
        } else {
            return false;
        }
    }
    if (!digitSinceDot)
        return false;
    static const double powers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                    1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const double v = double(mantissa) / powers[fractionDigits];
    out = negative ? -v : v;
    return true;
}

// Numbers are read in the C locale with surrounding white space ignored; anything that
// is not a finite number (including "nan", "inf" and overflowing values) reads as 0, so
// no NaN or infinity ever enters the shapes from a file.
template <typename Xml>
double readNumber(Xml& xml, QString& buf)
{
    const QStringView text = readText(xml, buf);
    double v = 0;
    if (!parsePlainDecimal(text, v))
        v = text.toDouble();
    return std::isfinite(v) ? v : 0.0;
}

template <typename Xml>
QPointF readPoint(Xml& xml, QString& buf)
{
    double x = 0, y = 0;
    while (!xml.atEnd() && !xml.hasError()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::StartElement) {
            const Tag tag = classify(xml.name());
            if (tag == Tag::X)
                x = readNumber(xml, buf);
            else if (tag == Tag::Y)
                y = readNumber(xml, buf);
        } else if (token == QXmlStreamReader::EndElement && classify(xml.name()) == Tag::Pt) {
            break;
        }
    }
    return QPointF(x, y);
}

void setX(QList<QPointF>& points, qsizetype i, double v)
{
    if (i < points.size())
        points[i].setX(v);
}

void setY(QList<QPointF>& points, qsizetype i, double v)
{
    if (i < points.size())
        points[i].setY(v);
}

// Reads from a QXmlStreamReader, or from a PlainXmlReader, which gives the same tokens.
template <typename Xml>
class Reader
{
public:
    Reader(Xml& xml, QList<BoxAnnotation>& boxes) : m_xml(xml), m_boxes(boxes) {}

    bool run()
    {
        while (!m_xml.atEnd() && !m_xml.hasError()) {
            const QXmlStreamReader::TokenType token = m_xml.readNext();
            if (token == QXmlStreamReader::StartElement)
                startElement(classify(m_xml.name()));
            else if (token == QXmlStreamReader::EndElement)
                endElement(classify(m_xml.name()));
        }
        return !m_xml.hasError();
    }

private:
    double number() { return readNumber(m_xml, m_buf); }

    // The first matching rule wins; the order matters (a "name" inside a shape element
    // is not the label, "xmin" counts only inside bndbox, ...).
    void startElement(Tag tag)
    {
        QList<QPointF>& pts = m_current.points;
        if (tag == Tag::Object) {
            m_current = BoxAnnotation();
            m_open = Tag::Other;
            m_inBndbox = false;
            m_inObject = true;
        } else if (!m_inObject) {
            return;
        } else if ((tag == Tag::Name || tag == Tag::N) && !m_inBndbox && m_open == Tag::Other) {
            m_current.label = cleanLabelName(readText(m_xml, m_buf).toString()).trimmed();
        } else if (tag == Tag::Type) {
            m_current.type = shapeTypeFromWord(readText(m_xml, m_buf).trimmed());
        } else if (tag == Tag::Bndbox) {
            m_current.type = ShapeType::BoundingBox;
            pts.resize(2);
            m_inBndbox = true;
        } else if (m_inBndbox
                   && (tag == Tag::Xmin || tag == Tag::Ymin || tag == Tag::Xmax
                       || tag == Tag::Ymax)) {
            const double v = number();
            if (tag == Tag::Xmin)
                setX(pts, 0, v);
            else if (tag == Tag::Ymin)
                setY(pts, 0, v);
            else if (tag == Tag::Xmax)
                setX(pts, 1, v);
            else
                setY(pts, 1, v);
        } else if (tag == Tag::Polygon) {
            open(tag, ShapeType::Polygon);
        } else if (m_open == Tag::Polygon && tag == Tag::Pt) {
            pts.append(readPoint(m_xml, m_buf));
        } else if (tag == Tag::Line) {
            open(tag, ShapeType::Line);
            pts.resize(2);
        } else if (m_open == Tag::Line
                   && (tag == Tag::X1 || tag == Tag::Y1 || tag == Tag::X2 || tag == Tag::Y2)) {
            const double v = number();
            if (tag == Tag::X1)
                setX(pts, 0, v);
            else if (tag == Tag::Y1)
                setY(pts, 0, v);
            else if (tag == Tag::X2)
                setX(pts, 1, v);
            else
                setY(pts, 1, v);
        } else if (tag == Tag::Keypoint) {
            open(tag, ShapeType::Keypoint);
            pts.resize(1);
        } else if (m_open == Tag::Keypoint
                   && (tag == Tag::X || tag == Tag::Y || tag == Tag::Visible)) {
            if (tag == Tag::Visible) {
                bool ok = false;
                const int v = readText(m_xml, m_buf).toInt(&ok);
                m_current.visible = ok && v != 0;
            } else if (tag == Tag::X) {
                setX(pts, 0, number());
            } else {
                setY(pts, 0, number());
            }
        } else if (tag == Tag::RotatedBox) {
            open(tag, ShapeType::RotatedBox);
        } else if (m_open == Tag::RotatedBox && (tag == Tag::Angle || tag == Tag::Pt)) {
            if (tag == Tag::Angle)
                m_current.angle = number();
            else
                pts.append(readPoint(m_xml, m_buf));
        } else if (tag == Tag::Cuboid) {
            open(tag, ShapeType::Cuboid);
        } else if (m_open == Tag::Cuboid && tag == Tag::Pt) {
            pts.append(readPoint(m_xml, m_buf));
        } else if (tag == Tag::Ellipse) {
            open(tag, ShapeType::Ellipse);
            pts.resize(2);
        } else if (m_open == Tag::Ellipse
                   && (tag == Tag::Cx || tag == Tag::Cy || tag == Tag::Rx || tag == Tag::Ry
                       || tag == Tag::Angle)) {
            const double v = number();
            if (tag == Tag::Cx)
                setX(pts, 0, v);
            else if (tag == Tag::Cy)
                setY(pts, 0, v);
            else if (tag == Tag::Rx)
                setX(pts, 1, v);
            else if (tag == Tag::Ry)
                setY(pts, 1, v);
            else
                m_current.angle = v;
        }
    }

    void endElement(Tag tag)
    {
        switch (tag) {
        case Tag::Bndbox:
            m_inBndbox = false;
            m_open = Tag::Other;
            break;
        case Tag::Polygon:
        case Tag::Line:
        case Tag::Keypoint:
        case Tag::RotatedBox:
        case Tag::Cuboid:
        case Tag::Ellipse:
            m_open = Tag::Other;
            break;
        case Tag::Object:
            m_inObject = false;
            if (!m_current.label.isEmpty() && !m_current.points.isEmpty())
                m_boxes.append(m_current);
            break;
        default:
            break;
        }
    }

    void open(Tag element, ShapeType type)
    {
        m_open = element;
        m_current.type = type;
    }

    Xml& m_xml;
    QList<BoxAnnotation>& m_boxes;
    BoxAnnotation m_current;
    QString m_buf;
    Tag m_open = Tag::Other; // the open shape element; Other when none is open
    bool m_inObject = false;
    bool m_inBndbox = false;
};

} // namespace

namespace VocXml {

QByteArray toXml(const ImageAnnotations& ann, const QString& folder)
{
    const QFileInfo image(ann.imagePath);
    Bytes out(1024 + ann.boxes.size() * 640);
    out.add("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<annotation>\n");
    textElement(out, 1, "folder", folder);
    textElement(out, 1, "filename", image.fileName());
    textElement(out, 1, "path", ann.imagePath.isEmpty() ? QString() : image.absoluteFilePath());
    out.add("  <source>\n"
            "    <database>Unknown</database>\n"
            "  </source>\n"
            "  <size>\n");
    intElement(out, 2, "width", ann.width);
    intElement(out, 2, "height", ann.height);
    out.add("    <depth>3</depth>\n"
            "  </size>\n"
            "  <segmented>0</segmented>\n");
    for (const BoxAnnotation& box : ann.boxes)
        writeObject(out, box);
    out.add("</annotation>\n");
    return out.take();
}

bool save(const ImageAnnotations& ann, const QString& folder, QString* error)
{
    return AtomicBatch::writeFile(ann.xmlPath, toXml(ann, folder), error,
                                  QFileInfo(ann.xmlPath).absolutePath());
}

bool loadFromData(const QByteArray& data, QList<BoxAnnotation>& boxes)
{
    // Files as this program writes them take the fast tokeniser; any other file, and
    // every malformed one, goes through QXmlStreamReader, which also finds its errors.
    PlainXmlReader plain;
    if (plain.parse(data)) {
        boxes.clear();
        return Reader(plain, boxes).run();
    }
    return loadWithStreamReader(data, boxes);
}

bool loadFromTokens(PlainXmlReader& xml, QList<BoxAnnotation>& boxes)
{
    boxes.clear();
    return Reader(xml, boxes).run();
}

bool loadWithStreamReader(const QByteArray& data, QList<BoxAnnotation>& boxes)
{
    boxes.clear();
    QXmlStreamReader xml(data);
    return Reader(xml, boxes).run();
}

bool load(ImageAnnotations& ann, LoadProblem* problem)
{
    if (ann.xmlPath.isEmpty())
        return false;
    QByteArray data;
    QString reason;
    const SafeFile::ReadResult read = SafeFile::read(ann.xmlPath, SafeFile::kMaxAnnotationFileBytes,
                                                     &data, &reason, &ann.stamp);
    if (read != SafeFile::ReadResult::Ok) {
        // A file that is there but was not read must not be written over unseen.
        ann.partial = read != SafeFile::ReadResult::Missing;
        if (problem && ann.partial)
            problem->refusal = reason;
        return false;
    }
    bool whole = false;
    PlainXmlReader plain;
    if (plain.parse(data)) {
        ann.boxes.clear();
        whole = Reader(plain, ann.boxes).run();
    } else {
        ann.boxes.clear();
        QXmlStreamReader xml(data);
        whole = Reader(xml, ann.boxes).run();
        if (!whole && problem)
            problem->errorLine = int(xml.lineNumber());
    }
    ann.partial = !whole;
    return whole;
}

bool keepOriginal(const QString& xmlPath, QString* error, QString* copyPath)
{
    const FileStamp original = SafeFile::stampOf(xmlPath);
    if (original.state != FileStamp::Known)
        return true;
    const QString folder = QFileInfo(xmlPath).absolutePath();
    for (int n = 1;; ++n) {
        const QString copy = xmlPath + QStringLiteral(".orig") + (n > 1 ? QString::number(n) : QString());
        if (copyPath)
            *copyPath = copy;
        const FileStamp existing = SafeFile::stampOf(copy);
        if (existing.state != FileStamp::Known)
            return AtomicBatch::copyFile(xmlPath, copy, error, folder);
        if (existing.size == original.size && SafeFile::sameContent(xmlPath, copy))
            return true;
    }
}

} // namespace VocXml
