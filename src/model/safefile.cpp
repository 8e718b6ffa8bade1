#include "model/safefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace SafeFile {

namespace {

FileStamp stampFrom(const struct stat& st)
{
    FileStamp stamp;
    stamp.state = FileStamp::Known;
    stamp.size = st.st_size;
    stamp.mtimeNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    stamp.inode = quint64(st.st_ino);
    return stamp;
}

FileStamp missingStamp()
{
    FileStamp stamp;
    stamp.state = FileStamp::Missing;
    return stamp;
}

QString megabytes(qint64 bytes)
{
    return QStringLiteral("%1 MB").arg(bytes >> 20);
}

// The folder as the file system names it, links resolved; for a folder that does not
// exist yet, its absolute path.
QString canonicalFolder(const QString& folder)
{
    const QString canonical = QFileInfo(folder).canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(QFileInfo(folder).absoluteFilePath()) : canonical;
}

bool isInside(const QString& path, const QString& folder)
{
    const QString prefix = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
    return path == folder || path.startsWith(prefix);
}

} // namespace

QString systemReason(int errorNumber)
{
    return QString::fromLocal8Bit(std::strerror(errorNumber));
}

ReadResult read(const QString& path, qint64 maxBytes, QByteArray* bytes, QString* error,
                FileStamp* stamp)
{
    const auto fail = [error](ReadResult result, const QString& reason) {
        if (error)
            *error = reason;
        return result;
    };
    if (stamp)
        *stamp = FileStamp();
    // Non-blocking: opening a FIFO without a writer would otherwise wait for good.
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        const int e = errno;
        if (e == ENOENT || e == ENOTDIR) {
            if (stamp)
                *stamp = missingStamp();
            return fail(ReadResult::Missing, systemReason(e));
        }
        return fail(ReadResult::Failed, systemReason(e));
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int e = errno;
        ::close(fd);
        return fail(ReadResult::Failed, systemReason(e));
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return fail(ReadResult::Refused, QStringLiteral("it is not a regular file"));
    }
    if (st.st_size > maxBytes) {
        ::close(fd);
        return fail(ReadResult::Refused, QStringLiteral("it is larger than ") + megabytes(maxBytes));
    }
    QByteArray data(qsizetype(st.st_size), Qt::Uninitialized);
    qsizetype done = 0;
    for (;;) {
        if (done == data.size()) {
            // The file may have grown since fstat: read on, within the limit.
            if (data.size() >= maxBytes + 1)
                break;
            data.resize(std::min<qint64>(maxBytes + 1, std::max<qint64>(data.size() * 2, 4096)));
        }
        const ssize_t n = ::read(fd, data.data() + done, size_t(data.size() - done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            const int e = errno;
            ::close(fd);
            return fail(ReadResult::Failed, systemReason(e));
        }
        if (n == 0)
            break;
        done += n;
    }
    ::close(fd);
    if (done > maxBytes)
        return fail(ReadResult::Refused, QStringLiteral("it is larger than ") + megabytes(maxBytes));
    data.resize(done);
    if (bytes)
        *bytes = std::move(data);
    if (stamp)
        *stamp = stampFrom(st);
    return ReadResult::Ok;
}

FileStamp stampOf(const QString& path)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return missingStamp();
    return stampFrom(st);
}

bool sameContent(const QString& a, const QString& b)
{
    const auto openRegular = [](const QString& path) {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        struct stat st {};
        if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
            ::close(fd);
            return -1;
        }
        return fd;
    };
    // Reads up to n bytes, short only at the end of the file; -1 on an error.
    const auto readFull = [](int fd, char* buffer, qsizetype n) -> qsizetype {
        qsizetype done = 0;
        while (done < n) {
            const ssize_t got = ::read(fd, buffer + done, size_t(n - done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0)
                return -1;
            if (got == 0)
                break;
            done += got;
        }
        return done;
    };
    const int fa = openRegular(a);
    const int fb = openRegular(b);
    bool same = fa >= 0 && fb >= 0;
    constexpr qsizetype kPiece = 1 << 16;
    QByteArray pa(kPiece, Qt::Uninitialized), pb(kPiece, Qt::Uninitialized);
    while (same) {
        const qsizetype na = readFull(fa, pa.data(), kPiece);
        const qsizetype nb = readFull(fb, pb.data(), kPiece);
        same = na >= 0 && na == nb && std::memcmp(pa.constData(), pb.constData(), size_t(na)) == 0;
        if (na < kPiece)
            break;
    }
    if (fa >= 0)
        ::close(fa);
    if (fb >= 0)
        ::close(fb);
    return same;
}

bool resolveWriteTarget(const QString& path, const QString& confineTo, QString* target,
                        QString* error)
{
    QString resolved = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    // Follow the chain of links by hand: a dangling link has no canonical path, yet a
    // write through it would create its target.
    for (int hops = 0; QFileInfo(resolved).isSymLink(); ++hops) {
        if (hops >= 40) {
            if (error)
                *error = systemReason(ELOOP);
            return false;
        }
        resolved = QDir::cleanPath(QFileInfo(resolved).symLinkTarget());
    }
    const QFileInfo info(resolved);
    // The folder part through its canonical form, so that a link among the folders
    // counts where it leads.
    const QString folder = canonicalFolder(info.absolutePath());
    resolved = folder + QLatin1Char('/') + info.fileName();
    if (!confineTo.isEmpty() && !isInside(folder, canonicalFolder(confineTo))) {
        if (error)
            *error = QStringLiteral("It is a link to %1, which lies outside %2.")
                         .arg(resolved, QDir::toNativeSeparators(confineTo));
        return false;
    }
    struct stat st {};
    if (::stat(QFile::encodeName(resolved).constData(), &st) == 0 && !S_ISREG(st.st_mode)) {
        if (error)
            *error = QStringLiteral("It is not a regular file.");
        return false;
    }
    if (target)
        *target = resolved;
    return true;
}

} // namespace SafeFile
