#include "training/imageinput.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageIOHandler>
#include <QImageReader>
#include <QXmlStreamReader>

#include "model/labelscan.h"
#include "model/safefile.h"
#include "model/vocxml.h"
#include "training/imagestructure.h"

namespace ImageInput {

namespace {

// Above this many pixels an image that can be decoded at a reduced size is; every byte
// of it is still read.
constexpr qint64 kFullDecodePixels = 1000000;

void readAnnotations(const ImageAnnotations& record, const Request& request, Input& in)
{
    const QFileInfo info(record.xmlPath());
    const bool inMemory = !record.boxes.isEmpty();
    if (inMemory) {
        in.shapes = record.boxes;
        in.xml = XmlState::Read;
        if (request.scanNames) {
            for (const BoxAnnotation& shape : record.boxes)
                in.scanNames.append(shape.label);
        }
    }
    if (record.xmlPath().isEmpty() || !info.exists() || (inMemory && !request.recordedSize))
        return;
    // Only regular files up to the annotation size limit are read: a FIFO or device would
    // block the reader or fill the memory.
    QByteArray data;
    const bool opened = SafeFile::read(record.xmlPath(), SafeFile::kMaxAnnotationFileBytes, &data)
                        == SafeFile::ReadResult::Ok;
    if (!opened) {
        if (!inMemory)
            in.xml = XmlState::Unreadable;
        return;
    }
    if (request.recordedSize)
        in.recordedSize = recordedSize(data);
    if (inMemory)
        return;
    in.xml = VocXml::loadFromData(data, in.shapes) ? XmlState::Read : XmlState::Partial;
    if (request.scanNames)
        in.scanNames = scanLabelNamesInData(data);
}

void readImage(const ImageAnnotations& record, const Request& request, Input& in)
{
    const QFileInfo info(record.imagePath);
    if (!info.exists()) {
        in.image = ImageState::Missing;
        return;
    }
    if (!info.isFile()) {
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

QSize recordedSize(const QByteArray& xml)
{
    // The size comes before the first object; nothing after it is looked at.
    QXmlStreamReader reader(xml);
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
                const int value = reader.readElementText().trimmed().toInt(&ok);
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

} // namespace ImageInput
