#include "training/imageinput.h"

#include <QFile>
#include <QImage>
#include <QImageIOHandler>
#include <QImageReader>
#include <QXmlStreamReader>

#include <sys/stat.h>

#include "model/labelscan.h"
#include "model/plainxml.h"
#include "model/safefile.h"
#include "model/vocxml.h"
#include "training/imagestructure.h"

namespace ImageInput {

namespace {

// Above this many pixels an image that can be decoded at a reduced size is; every byte
// of it is still read.
constexpr qint64 kFullDecodePixels = 1000000;

// The size an annotation file records, read as QXmlStreamReader would give it.
template <typename Xml>
QSize sizeIn(Xml& reader);

void readAnnotations(const ImageAnnotations& record, const Request& request, Input& in)
{
    const bool inMemory = !record.boxes.isEmpty();
    if (inMemory) {
        in.shapes = record.boxes;
        in.xml = XmlState::Read;
        if (request.scanNames) {
            for (const BoxAnnotation& shape : record.boxes)
                in.scanNames.append(shape.label);
        }
    }
    if (record.xmlPath.isEmpty() || (inMemory && !request.recordedSize))
        return;
    // Only regular files up to the annotation size limit are read: a FIFO or device would
    // block the reader or fill the memory.
    QByteArray data;
    const SafeFile::ReadResult read = SafeFile::read(record.xmlPath, SafeFile::kMaxAnnotationFileBytes, &data);
    if (read == SafeFile::ReadResult::Missing)
        return;
    if (read != SafeFile::ReadResult::Ok) {
        if (!inMemory)
            in.xml = XmlState::Unreadable;
        return;
    }
    // A file in the form this program writes is tokenised once and its tokens walked by
    // each reader in turn; any other goes through QXmlStreamReader for each.
    PlainXmlReader plain;
    if (plain.parse(data)) {
        if (request.recordedSize) {
            in.recordedSize = sizeIn(plain);
            plain.rewind();
        }
        if (inMemory)
            return;
        in.xml = VocXml::loadFromTokens(plain, in.shapes) ? XmlState::Read : XmlState::Partial;
        if (request.scanNames) {
            plain.rewind();
            in.scanNames = scanLabelNamesInTokens(plain);
        }
        return;
    }
    if (request.recordedSize)
        in.recordedSize = recordedSize(data);
    if (inMemory)
        return;
    in.xml = VocXml::loadWithStreamReader(data, in.shapes) ? XmlState::Read : XmlState::Partial;
    if (request.scanNames)
        in.scanNames = scanLabelNamesInData(data);
}

void readImage(const ImageAnnotations& record, const Request& request, Input& in)
{
    struct stat st {};
    if (::stat(QFile::encodeName(record.imagePath).constData(), &st) != 0) {
        in.image = ImageState::Missing;
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        in.image = ImageState::Unreadable;
        return;
    }
    QImageReader reader(record.imagePath);
    reader.setAutoTransform(true);
    QSize size = reader.size(); // as stored, before the orientation
    const QImageIOHandler::Transformations turn = reader.transformation();
    in.turned = turn != QImageIOHandler::TransformationNone;
    const bool headerSize = size.isValid() && size.width() > 0 && size.height() > 0;
    if (headerSize && (turn & QImageIOHandler::TransformationRotate90))
        size.transpose();
    // An image larger than the reader will allocate does not open in the window.
    if ((request.structure || request.decode) && headerSize && reader.allocationLimit() > 0
        && qint64(size.width()) * size.height() * 4 > qint64(reader.allocationLimit()) << 20) {
        in.image = ImageState::Unreadable;
        in.damage = QStringLiteral("The image header gives a size of %1 x %2, more than can be opened.")
                        .arg(size.width()).arg(size.height());
        return;
    }
    bool decode = request.decode || !headerSize;
    if (request.structure) {
        const ImageStructure::Result structure = ImageStructure::check(record.imagePath, reader.format(), reader.size());
        if (structure.verdict == ImageStructure::Verdict::Damaged) {
            in.image = ImageState::Unreadable;
            in.damage = structure.reason;
            return;
        }
        decode = decode || structure.verdict == ImageStructure::Verdict::Unchecked;
    }
    if (!decode) {
        in.imageSize = size;
        return;
    }
    // Some formats only know their size after decoding.
    if (headerSize && qint64(size.width()) * size.height() > kFullDecodePixels
        && reader.supportsOption(QImageIOHandler::ScaledSize))
        reader.setScaledSize(QSize(std::max(1, reader.size().width() / 8),
                                   std::max(1, reader.size().height() / 8)));
    const QImage image = reader.read();
    if (image.isNull()) {
        in.image = ImageState::Unreadable;
        return;
    }
    in.imageSize = headerSize ? size : image.size();
}

} // namespace

Input read(const ImageAnnotations& record, const Request& request)
{
    Input in;
    readAnnotations(record, request, in);
    readImage(record, request, in);
    return in;
}

namespace {

// The element text up to its end tag, as QXmlStreamReader::readElementText() gives it.
QString elementText(QXmlStreamReader& xml)
{
    return xml.readElementText();
}

QString elementText(PlainXmlReader& xml)
{
    QString text;
    for (;;) {
        switch (xml.readNext()) {
        case QXmlStreamReader::Characters:
            text.append(xml.text());
            break;
        case QXmlStreamReader::EndElement:
            return text;
        default: // a child element: an error, as for QXmlStreamReader
            xml.raiseError(QString());
            return text;
        }
    }
}

template <typename Xml>
QSize sizeIn(Xml& reader)
{
    // The size comes before the first object; nothing after it is looked at.
    int depth = 0;
    bool inSize = false;
    int width = -1, height = -1;
    while (!reader.atEnd() && !reader.hasError()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            ++depth;
            const QStringView name = reader.name();
            if (name == u"object")
                break;
            if (depth == 2 && name == u"size") {
                inSize = true;
            } else if (inSize && depth == 3 && (name == u"width" || name == u"height")) {
                const bool isWidth = name == u"width";
                bool ok = false;
                const int value = elementText(reader).trimmed().toInt(&ok);
                --depth; // the text was read up to the end tag
                if (ok)
                    (isWidth ? width : height) = value;
            }
        } else if (token == QXmlStreamReader::EndElement) {
            if (depth == 2 && reader.name() == u"size")
                inSize = false;
            --depth;
        }
    }
    if (width < 0 || height < 0)
        return {};
    return QSize(width, height);
}

} // namespace

QSize recordedSize(const QByteArray& xml)
{
    QXmlStreamReader reader(xml);
    return sizeIn(reader);
}

} // namespace ImageInput
