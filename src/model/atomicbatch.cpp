#include "model/atomicbatch.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/safefile.h"

namespace {

// Temporary names stay unique when files are written from more than one thread.
std::atomic<unsigned> s_counter{0};

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

QString tempNameFor(const QString& target)
{
    return target + QStringLiteral(".tmp%1-%2").arg(::getpid()).arg(++s_counter);
}

// Writes all of `size` bytes, going on after short writes; false with errno set.
bool writeAll(int fd, const char* data, qint64 size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= n;
    }
    return true;
}

// A temporary file beside `target` holding what `fill` writes into it, closed, and
// synced when asked. The permissions of a target that exists carry over. On failure
// nothing is left behind and *error holds the system's reason.
template <typename Fill>
bool writeTemp(const QString& target, bool sync, QString* temp, QString* error, Fill fill)
{
    *temp = tempNameFor(target);
    const QByteArray tempName = native(*temp);
    const int fd = ::open(tempName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
        *error = SafeFile::systemReason(errno);
        return false;
    }
    struct stat st {};
    if (::stat(native(target).constData(), &st) == 0)
        ::fchmod(fd, st.st_mode & 07777);
    bool ok = fill(fd) && (!sync || ::fsync(fd) == 0);
    int e = ok ? 0 : errno;
    // A network file system may report a failed write only here.
    if (::close(fd) != 0 && ok) {
        ok = false;
        e = errno;
    }
    if (!ok) {
        *error = SafeFile::systemReason(e);
        ::unlink(tempName.constData());
    }
    return ok;
}

bool renameOver(const QString& temp, const QString& target, QString* error)
{
    if (std::rename(native(temp).constData(), native(target).constData()) == 0)
        return true;
    *error = SafeFile::systemReason(errno);
    ::unlink(native(temp).constData());
    return false;
}

// Flushes a file or a folder; with wholeFileSystem, everything on its file system.
bool syncPath(const QString& path, bool wholeFileSystem, int* errorNumber = nullptr)
{
    const int fd = ::open(native(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errorNumber)
            *errorNumber = errno;
        return false;
    }
#if defined(__linux__)
    const int result = wholeFileSystem ? ::syncfs(fd) : ::fsync(fd);
#else
    Q_UNUSED(wholeFileSystem);
    const int result = ::fsync(fd);
#endif
    if (result != 0 && errorNumber)
        *errorNumber = errno;
    ::close(fd);
    return result == 0;
}

QString folderOf(const QString& path)
{
    return QFileInfo(path).absolutePath();
}

} // namespace

AtomicBatch::~AtomicBatch()
{
    for (const Entry& e : std::as_const(m_entries))
        QFile::remove(e.temp);
}

bool AtomicBatch::stage(const QString& path, const QByteArray& bytes, QString* error,
                        const QString& confineTo)
{
    QString reason;
    QString target;
    QString temp;
    bool ok = SafeFile::resolveWriteTarget(path, confineTo, &target, &reason);
    if (ok) {
        const QFileInfo info(target);
        if (info.exists() && !info.isWritable()) {
            reason = SafeFile::systemReason(EACCES);
            ok = false;
        }
    }
    ok = ok && writeTemp(target, false, &temp, &reason, [&bytes](int fd) {
        return writeAll(fd, bytes.constData(), bytes.size());
    });
    if (!ok) {
        if (error)
            *error = reason;
        return false;
    }
    m_entries.append({path, target, temp});
    return true;
}

void AtomicBatch::fail(const Entry& entry, const QString& reason)
{
    QFile::remove(entry.temp);
    m_failed.append(entry.path);
    m_reasons.insert(entry.path, reason);
}

bool AtomicBatch::commit()
{
    m_failed.clear();
    m_reasons.clear();
    if (m_entries.isEmpty())
        return true;

    QSet<QString> folders;
    for (const Entry& e : std::as_const(m_entries))
        folders.insert(folderOf(e.target));

    // A batch normally writes into one or two folders: flush their file systems once
    // each instead of flushing every file. Where that fails (or on many folders), every
    // file is flushed on its own and a file whose flush fails is not renamed.
    QSet<QString> flushed;
#if defined(__linux__)
    if (folders.size() <= 4) {
        for (const QString& folder : std::as_const(folders))
            if (syncPath(folder, true))
                flushed.insert(folder);
    }
#endif
    QList<Entry> ready;
    for (const Entry& e : std::as_const(m_entries)) {
        int errorNumber = 0;
        if (flushed.contains(folderOf(e.target)) || syncPath(e.temp, false, &errorNumber))
            ready.append(e);
        else
            fail(e, SafeFile::systemReason(errorNumber));
    }
    for (const Entry& e : std::as_const(ready)) {
        QString reason;
        if (!renameOver(e.temp, e.target, &reason))
            fail(e, reason);
    }
    m_entries.clear();

    for (const QString& folder : std::as_const(folders))
        syncPath(folder, false);
    return m_failed.isEmpty();
}

bool AtomicBatch::writeFile(const QString& path, const QByteArray& bytes, QString* error,
                            const QString& confineTo)
{
    QString reason;
    QString target;
    QString temp;
    const bool ok = SafeFile::resolveWriteTarget(path, confineTo, &target, &reason)
        && writeTemp(target, true, &temp, &reason,
                     [&bytes](int fd) { return writeAll(fd, bytes.constData(), bytes.size()); })
        && renameOver(temp, target, &reason);
    if (!ok) {
        if (error)
            *error = reason;
        return false;
    }
    syncPath(folderOf(target), false);
    return true;
}

bool AtomicBatch::writeFileWith(const QString& path, const std::function<bool(QIODevice*)>& fill,
                                QString* error, const QString& confineTo)
{
    QString reason;
    QString target;
    QString temp;
    const auto write = [&fill](int fd) {
        QFile file;
        if (!file.open(fd, QIODevice::WriteOnly, QFileDevice::DontCloseHandle))
            return false;
        errno = 0;
        const bool ok = fill(&file) && file.flush() && file.error() == QFileDevice::NoError;
        if (!ok && errno == 0)
            errno = EIO;
        return ok;
    };
    const bool ok = SafeFile::resolveWriteTarget(path, confineTo, &target, &reason)
        && writeTemp(target, true, &temp, &reason, write) && renameOver(temp, target, &reason);
    if (!ok) {
        if (error)
            *error = reason;
        return false;
    }
    syncPath(folderOf(target), false);
    return true;
}

bool AtomicBatch::copyFile(const QString& from, const QString& to, QString* error,
                           const QString& confineTo)
{
    QString reason;
    const int in = ::open(native(from).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat st {};
    if (in < 0 || ::fstat(in, &st) != 0) {
        reason = SafeFile::systemReason(errno);
    } else if (!S_ISREG(st.st_mode)) {
        reason = QStringLiteral("It is not a regular file.");
    } else {
        QString target;
        QString temp;
        const auto copy = [in](int out) {
            char buffer[1 << 16];
            for (;;) {
                const ssize_t n = ::read(in, buffer, sizeof buffer);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    return n == 0;
                if (!writeAll(out, buffer, n))
                    return false;
            }
        };
        if (SafeFile::resolveWriteTarget(to, confineTo, &target, &reason)
            && writeTemp(target, true, &temp, &reason, copy) && renameOver(temp, target, &reason)) {
            ::close(in);
            syncPath(folderOf(target), false);
            return true;
        }
    }
    if (in >= 0)
        ::close(in);
    if (error)
        *error = reason;
    return false;
}
