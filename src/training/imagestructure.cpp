#include "training/imagestructure.h"

#include <QFile>

#include <algorithm>

namespace ImageStructure {

namespace {

// Reads the file through a window that moves as the walk goes forward, so a walk over
// many small chunks costs a read per window and not per chunk.
class Bytes {
public:
    explicit Bytes(QFile& file) : m_file(file), m_size(file.size()) {}
    qint64 size() const { return m_size; }

    // The n bytes at offset, or nullptr when the file ends before them or cannot be read.
    const uchar* at(qint64 offset, qint64 n)
    {
        if (offset < 0 || n < 0 || offset + n > m_size)
            return nullptr;
        if (offset < m_start || offset + n > m_start + m_window.size()) {
            if (!m_file.seek(offset))
                return nullptr;
            m_window = m_file.read(std::max<qint64>(n, kWindow));
            m_start = offset;
            if (m_window.size() < n)
                return nullptr;
        }
        return reinterpret_cast<const uchar*>(m_window.constData()) + (offset - m_start);
    }

private:
    static constexpr qint64 kWindow = 64 * 1024;
    QFile& m_file;
    qint64 m_size;
    QByteArray m_window;
    qint64 m_start = 0;
};

quint32 bigEndian32(const uchar* p)
{
    return quint32(p[0]) << 24 | quint32(p[1]) << 16 | quint32(p[2]) << 8 | p[3];
}

Result damaged(const QString& reason)
{
    return {Verdict::Damaged, reason};
}

// Markers without a length: the start, restarts, and TEM.
bool standalone(uchar marker)
{
    return marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7);
}

Result checkJpeg(Bytes& bytes)
{
    const QString cut = QStringLiteral("The JPEG file is cut off: its end-of-image marker (FF D9) is missing.");
    // The segments up to the first scan, each inside the file.
    qint64 pos = 2;
    qint64 scan = -1;
    while (scan < 0) {
        const uchar* p = bytes.at(pos, 2);
        if (!p)
            return damaged(QStringLiteral("The JPEG file is cut off in its header."));
        if (p[0] != 0xFF)
            return damaged(QStringLiteral("The JPEG file's header is damaged."));
        if (p[1] == 0xFF) { // fill byte
            ++pos;
            continue;
        }
        if (p[1] == 0xD9)
            return damaged(QStringLiteral("The JPEG file holds no image data."));
        if (standalone(p[1])) {
            pos += 2;
            continue;
        }
        const uchar* length = bytes.at(pos + 2, 2);
        const qint64 end = length ? pos + 2 + (length[0] << 8 | length[1]) : -1;
        if (!length || end > bytes.size())
            return damaged(QStringLiteral("The JPEG file is cut off in its header."));
        if (p[1] == 0xDA)
            scan = end;
        pos = end;
    }
    // Nearly every file ends with the marker; entropy-coded data never holds FF D9.
    const uchar* tail = bytes.at(bytes.size() - 2, 2);
    if (tail && tail[0] == 0xFF && tail[1] == 0xD9 && bytes.size() - 2 >= scan)
        return {Verdict::Whole, {}};
    // Bytes after the marker (padding, an appended video): find the marker itself,
    // stepping over the tables and scans of a progressive file.
    for (pos = scan; pos + 1 < bytes.size();) {
        const qint64 n = std::min<qint64>(bytes.size() - pos, 64 * 1024);
        const uchar* p = bytes.at(pos, n);
        if (!p)
            return damaged(cut);
        const uchar* ff = static_cast<const uchar*>(memchr(p, 0xFF, size_t(n - 1)));
        if (!ff) {
            pos += n - 1;
            continue;
        }
        pos += ff - p;
        const uchar marker = ff[1];
        if (marker == 0xD9)
            return {Verdict::Whole, {}};
        if (marker == 0x00 || marker == 0xFF || standalone(marker)) {
            pos += marker == 0xFF ? 1 : 2;
            continue;
        }
        const uchar* length = bytes.at(pos + 2, 2);
        if (!length)
            return damaged(cut);
        pos += 2 + (length[0] << 8 | length[1]);
    }
    return damaged(cut);
}

// The fewest bytes of compressed data that can hold the pixels the header announces:
// deflate packs at most 1032 bytes into one.
qint64 leastPngData(const uchar* header)
{
    const qint64 width = bigEndian32(header), height = bigEndian32(header + 4);
    const int depth = header[8];
    static const int channels[] = {1, 0, 3, 1, 2, 0, 4};
    const int colour = header[9] <= 6 ? channels[header[9]] : 0;
    const qint64 rowBytes = 1 + (width * depth * colour + 7) / 8;
    return height * rowBytes / 1032;
}

Result checkPng(Bytes& bytes)
{
    // Chunks from the signature to IEND, each inside the file; bytes after IEND are left.
    qint64 pos = 8;
    qint64 data = 0;
    qint64 least = 0;
    for (;;) {
        const uchar* p = bytes.at(pos, 8);
        const qint64 end = p ? pos + 12 + bigEndian32(p) : -1;
        if (!p || end > bytes.size())
            return damaged(QStringLiteral("The PNG file is cut off: it ends before its IEND chunk."));
        const QByteArray type(reinterpret_cast<const char*>(p) + 4, 4);
        if (type == "IHDR") {
            const uchar* header = bytes.at(pos + 8, 13);
            least = header ? leastPngData(header) : 0;
        } else if (type == "IDAT") {
            data += bigEndian32(p);
        } else if (type == "IEND") {
            break;
        }
        pos = end;
    }
    if (data == 0)
        return damaged(QStringLiteral("The PNG file holds no image data."));
    if (data < least)
        return damaged(QStringLiteral("The PNG file's header gives a size its %1 bytes of image data cannot hold.").arg(data));
    return {Verdict::Whole, {}};
}

} // namespace

Result check(const QString& path, const QByteArray& format, const QSize& size)
{
    if (format != "jpeg" && format != "jpg" && format != "png")
        return {};
    if (!size.isValid() || size.isEmpty())
        return damaged(QStringLiteral("The image header gives no size."));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return damaged(QStringLiteral("The image file cannot be opened."));
    Bytes bytes(file);
    return format == "png" ? checkPng(bytes) : checkJpeg(bytes);
}

} // namespace ImageStructure
