#pragma once

#include <QImage>
#include <QSize>
#include <QString>

class QImageReader;

// What a decode knew of its file: a later look at the file that finds another size or
// modification time means the file was replaced and the decode is out of date.
struct DecodeStamp {
    qint64 size = -1;
    qint64 modifiedNs = 0;
    bool operator==(const DecodeStamp& o) const { return size == o.size && modifiedNs == o.modifiedNs; }
    bool operator!=(const DecodeStamp& o) const { return !(*this == o); }
    bool isValid() const { return size >= 0; }
    static DecodeStamp of(const QString& path);
};

// An image as the canvas shows it: oriented, with the size of the full-resolution image,
// and either that image or a copy reduced to about the view's size (or both).
struct DecodedImage {
    QString path;
    DecodeStamp stamp;
    QSize fullSize;          // oriented, in image pixels: the coordinates of the shapes
    QImage full;             // null until the full resolution has been decoded
    QImage reduced;          // at most the size asked for, or null when full is small enough
    QString error;

    bool isNull() const { return full.isNull() && reduced.isNull(); }
    bool isFull() const { return !full.isNull(); }
    qint64 bytes() const { return full.sizeInBytes() + reduced.sizeInBytes(); }
};

namespace ImageDecode {

// Sets a reader up the way every image of the dataset is opened (the common image
// policy: EXIF orientation, room for large photos); false, with the reason, for a file
// that must not be decoded.
bool prepare(QImageReader& reader, QString* error = nullptr);

// The oriented size declared by the file's header, without decoding; invalid when the
// header does not tell.
QSize headerSize(QImageReader& reader);

// Decodes path. With `full`, the full-resolution image plus, when it is larger than
// `view`, a reduced copy that fits `view`; without, only what the view needs: a photo
// larger than `view` comes reduced when its decoder scales while decoding (JPEG);
// anything else comes at full resolution.
DecodedImage decode(const QString& path, const QSize& view, bool full);

// The size an image of `size` is shown at to fit `view` (never larger than `size`).
QSize fitted(const QSize& size, const QSize& view);

} // namespace ImageDecode
