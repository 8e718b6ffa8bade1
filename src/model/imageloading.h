#pragma once

#include <QImage>
#include <QSize>
#include <QString>

class QImageReader;

// How every part of the program opens image files: the canvas, the image sizes the
// converters need, the collage. Images are read as training code reads them, with their
// EXIF orientation applied; photos up to kMaxPixels open (drone and aerial cameras make
// them), while a small file that declares a giant image (a decompression bomb) is
// refused before anything is decoded.
namespace ImageLoading {

constexpr qint64 kMaxPixels = 250'000'000;

// Sets the reader up by the policy (orientation, memory allowed for decoding) and checks
// the size its header declares. False, with the reason in *error, when the image must
// not be decoded.
bool prepare(QImageReader& reader, QString* error = nullptr);

// The image at path, oriented; a null image when it cannot be read, with *error (when
// given) telling why: "60000 × 60000 pixels is larger than the 250 megapixels an image
// may have", "It is not a regular file.", or the decoder's reason.
QImage read(const QString& path, QString* error = nullptr);

// The size read() would give, from the file header whenever it holds one (the image is
// decoded only when it does not); an invalid size when the file cannot be read.
QSize size(const QString& path);

} // namespace ImageLoading
