#pragma once

// A JPEG whose EXIF orientation says "turn a quarter clockwise" (orientation 6), made by
// putting an Exif block after the start marker of a plain JPEG: Qt's writer would turn
// the pixels instead of tagging them.

#include <QBuffer>
#include <QByteArray>
#include <QFile>
#include <QImage>

inline bool writeTurnedJpeg(const QString& path, const QImage& stored)
{
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    if (!stored.save(&buffer, "JPEG", 95) || !jpeg.startsWith("\xFF\xD8"))
        return false;
    static const char exif[] = "\xFF\xE1\x00\x22"           // APP1, 34 bytes
                               "Exif\x00\x00"                // Exif header
                               "MM\x00\x2A\x00\x00\x00\x08"  // big-endian TIFF, IFD at 8
                               "\x00\x01"                    // one entry:
                               "\x01\x12\x00\x03\x00\x00\x00\x01\x00\x06\x00\x00" // orientation 6
                               "\x00\x00\x00\x00";           // no next IFD
    jpeg.insert(2, QByteArray(exif, sizeof(exif) - 1));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(jpeg) == jpeg.size();
}
