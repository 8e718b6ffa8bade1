#include "model/imagedecode.h"

#include <QFile>
#include <QImageIOHandler>
#include <QImageReader>

#include <algorithm>

#include <sys/stat.h>

#include "model/imageloading.h"

namespace {

// Room for photos of about 250 megapixels at 4 bytes a pixel; Qt's default stops at
// 128 MB, below a 40-megapixel photo.
constexpr int kAllocationLimitMb = 1024;

// The formats the canvas paints without converting first.
QImage forPainting(QImage image)
{
    const QImage::Format format =
        image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    if (image.format() != format)
        image.convertTo(format);
    return image;
}

bool larger(const QSize& size, const QSize& view)
{
    return size.isValid() && view.isValid()
        && (size.width() > view.width() || size.height() > view.height());
}

} // namespace

DecodeStamp DecodeStamp::of(const QString& path)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    DecodeStamp stamp;
    stamp.size = st.st_size;
#ifdef __APPLE__
    stamp.modifiedNs = qint64(st.st_mtimespec.tv_sec) * 1000000000 + st.st_mtimespec.tv_nsec;
#else
    stamp.modifiedNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
#endif
    return stamp;
}

namespace ImageDecode {

bool prepare(QImageReader& reader, QString* error)
{
    // The common policy (orientation, room for large photos, no decompression bombs),
    // with room for a photo of its largest size at 4 bytes a pixel.
    if (!ImageLoading::prepare(reader, error))
        return false;
    reader.setAllocationLimit(std::max(reader.allocationLimit(), kAllocationLimitMb));
    return true;
}

QSize headerSize(QImageReader& reader)
{
    QSize size = reader.size();
    if (size.isValid() && (reader.transformation() & QImageIOHandler::TransformationRotate90))
        size.transpose();
    return size;
}

QSize fitted(const QSize& size, const QSize& view)
{
    if (!larger(size, view))
        return size;
    return size.scaled(view, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

DecodedImage decode(const QString& path, const QSize& view, bool full)
{
    DecodedImage result;
    result.path = path;
    result.stamp = DecodeStamp::of(path);
    QImageReader reader(path);
    if (!prepare(reader, &result.error))
        return result;
    result.fullSize = headerSize(reader);

    // Only a JPEG decoder scales while decoding (its 1/2, 1/4 or 1/8 come directly);
    // other formats would decode everything and throw most of it away.
    if (!full && larger(result.fullSize, view) && reader.format() == "jpeg") {
        // The scaled size is that of the image before its orientation is applied.
        QSize target = fitted(result.fullSize, view);
        if (reader.transformation() & QImageIOHandler::TransformationRotate90)
            target.transpose();
        reader.setScaledSize(target);
        const QImage image = reader.read();
        if (image.isNull())
            result.error = reader.errorString();
        else
            result.reduced = forPainting(image);
        return result;
    }

    const QImage image = reader.read();
    if (image.isNull()) {
        result.error = reader.errorString();
        return result;
    }
    result.fullSize = image.size();
    result.full = forPainting(image);
    if (larger(result.fullSize, view))
        result.reduced = result.full.scaled(fitted(result.fullSize, view), Qt::IgnoreAspectRatio,
                                            Qt::SmoothTransformation);
    return result;
}

} // namespace ImageDecode
