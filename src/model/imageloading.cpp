#include "model/imageloading.h"

#include <QFile>
#include <QImageIOHandler>
#include <QImageReader>

#include <sys/stat.h>

namespace ImageLoading {

namespace {

// Decoders may use up to 8 bytes a pixel (16 bits per channel with alpha).
constexpr int kAllocationLimitMb = int(kMaxPixels * 8 / (1024 * 1024)) + 1;

QString tooLarge(const QSize& size)
{
    return QStringLiteral("%1 \u00D7 %2 pixels is larger than the %3 megapixels an image may have.")
        .arg(size.width())
        .arg(size.height())
        .arg(kMaxPixels / 1000000);
}

bool fits(const QSize& size)
{
    return qint64(size.width()) * qint64(size.height()) <= kMaxPixels;
}

// A FIFO or a device under an image's name would block the reader or never end.
bool isRegularOrMissing(const QString& path)
{
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) != 0 || S_ISREG(st.st_mode);
}

// The header size as the oriented image has it.
QSize orientedHeaderSize(QImageReader& reader)
{
    QSize size = reader.size();
    if (size.isValid() && (reader.transformation() & QImageIOHandler::TransformationRotate90))
        size.transpose();
    return size;
}

} // namespace

bool prepare(QImageReader& reader, QString* error)
{
    if (!reader.fileName().isEmpty() && !isRegularOrMissing(reader.fileName())) {
        if (error)
            *error = QStringLiteral("It is not a regular file.");
        return false;
    }
    reader.setAutoTransform(true);
    reader.setAllocationLimit(kAllocationLimitMb);
    const QSize declared = reader.size();
    if (declared.isValid() && !fits(declared)) {
        if (error)
            *error = tooLarge(orientedHeaderSize(reader));
        return false;
    }
    return true;
}

QImage read(const QString& path, QString* error)
{
    QImageReader reader(path);
    if (!prepare(reader, error))
        return {};
    QImage image = reader.read();
    if (image.isNull()) {
        if (error)
            *error = reader.errorString();
        return {};
    }
    // Formats whose header gives no size are checked once decoded.
    if (!fits(image.size())) {
        if (error)
            *error = tooLarge(image.size());
        return {};
    }
    return image;
}

QSize size(const QString& path)
{
    if (path.isEmpty() || !isRegularOrMissing(path))
        return {};
    {
        QImageReader reader(path);
        const QSize size = orientedHeaderSize(reader);
        if (size.width() > 0 && size.height() > 0)
            return size;
    }
    // Some formats only know their size after decoding.
    const QImage image = read(path);
    return image.isNull() ? QSize() : image.size();
}

} // namespace ImageLoading
