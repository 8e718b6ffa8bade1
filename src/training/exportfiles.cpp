#include "training/exportparts.h"

#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QLocale>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "formats/datasettools.h"

namespace TrainingExport::Parts {

namespace {

std::atomic<unsigned> s_tempCounter{0};

QByteArray tempNameFor(const QByteArray& target)
{
    return target + ".tmp" + QByteArray::number(qint64(::getpid())) + '-'
        + QByteArray::number(++s_tempCounter);
}

bool writeAll(int fd, const QByteArray& bytes)
{
    const char* p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        left -= n;
    }
    return true;
}

QString reason(const QString& path)
{
    return path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
}

bool sameFile(const QByteArray& a, const QByteArray& b)
{
    struct stat sa {}, sb {};
    return ::stat(a.constData(), &sa) == 0 && ::stat(b.constData(), &sb) == 0
        && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Errors after which a copy can do what a hard link could not.
bool linkRefused(int error)
{
    return error == EXDEV || error == EPERM || error == EMLINK || error == EOPNOTSUPP;
}

ImageWrite copyImage(const QString& source, const QString& target, ImageWrite success,
                     QString* error)
{
    if (DatasetTools::copyFileBytes(source, target) == DatasetTools::CopyResult::Copied)
        return success;
    if (error)
        *error = target + QStringLiteral(": cannot copy ") + source;
    return ImageWrite::Failed;
}

} // namespace

bool writeFile(const QString& path, const QByteArray& bytes, QString* error)
{
    const QByteArray target = QFile::encodeName(path);
    QByteArray written = target;
    int fd = ::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno == EEXIST) {
        written = tempNameFor(target);
        fd = ::open(written.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    if (fd < 0) {
        if (error)
            *error = reason(path);
        return false;
    }
    bool ok = writeAll(fd, bytes);
    if (!ok && error)
        *error = reason(path);
    if (::close(fd) != 0 && ok) {
        ok = false;
        if (error)
            *error = reason(path);
    }
    if (ok && written != target && std::rename(written.constData(), target.constData()) != 0) {
        ok = false;
        if (error)
            *error = reason(path);
    }
    if (!ok)
        ::unlink(written.constData());
    return ok;
}

ImageWrite writeImage(const QString& source, const QString& target, bool link, bool turned,
                      QString* error)
{
    if (turned) {
        QImageReader reader(source);
        reader.setAutoTransform(true);
        const QByteArray format = reader.format();
        const QImage image = reader.read();
        if (image.isNull()) {
            if (error)
                *error = source + QStringLiteral(": ") + reader.errorString();
            return ImageWrite::Failed;
        }
        const QByteArray to = QFile::encodeName(target);
        const QByteArray temp = tempNameFor(to);
        QImageWriter writer(QFile::decodeName(temp), format);
        writer.setQuality(95);
        if (writer.write(image) && std::rename(temp.constData(), to.constData()) == 0)
            return ImageWrite::Reoriented;
        ::unlink(temp.constData());
        if (error)
            *error = target + QStringLiteral(": ") + writer.errorString();
        return ImageWrite::Failed;
    }
    if (!link)
        return copyImage(source, target, ImageWrite::Copied, error);

    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(target);
    if (::link(from.constData(), to.constData()) == 0)
        return ImageWrite::Linked;
    if (errno == EEXIST) {
        if (sameFile(from, to))
            return ImageWrite::Linked;
        const QByteArray temp = tempNameFor(to);
        if (::link(from.constData(), temp.constData()) == 0) {
            if (std::rename(temp.constData(), to.constData()) == 0)
                return ImageWrite::Linked;
            ::unlink(temp.constData());
        } else if (linkRefused(errno)) {
            return copyImage(source, target, ImageWrite::CopiedForLink, error);
        }
    } else if (linkRefused(errno)) {
        return copyImage(source, target, ImageWrite::CopiedForLink, error);
    }
    if (error)
        *error = reason(target);
    return ImageWrite::Failed;
}

void syncFolder(const QString& folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
#if defined(__linux__)
    ::syncfs(fd);
#else
    ::fsync(fd);
#endif
    ::close(fd);
}

QString grouped(int n)
{
    return QLocale::c().toString(n).replace(QLatin1Char(' '), QLatin1Char(','));
}

void appendFixed6(QByteArray& out, double value)
{
    // Adding 0 turns -0 into +0; a tiny negative value still prints as "-0.000000".
    if (std::abs(value) < 5e-7)
        value = 0.0;
    out += QByteArray::number(value + 0.0, 'f', 6);
}

void appendNumber(QByteArray& out, double value)
{
    out += QByteArray::number(value + 0.0, 'f', QLocale::FloatingPointShortest);
}

void appendJsonString(QByteArray& out, const QString& text)
{
    static const char hex[] = "0123456789abcdef";
    out += '"';
    const QByteArray utf8 = text.toUtf8();
    for (const char ch : utf8) {
        const unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                out += "\\u00";
                out += hex[c >> 4];
                out += hex[c & 15];
            } else {
                out += ch;
            }
        }
    }
    out += '"';
}

} // namespace TrainingExport::Parts
