#include "model/atomicbatch.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

unsigned s_counter = 0;

QString tempNameFor(const QString& target)
{
    return target + QStringLiteral(".tmp%1-%2").arg(::getpid()).arg(++s_counter);
}

void syncPath(const QString& path, bool wholeFileSystem)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
#if defined(__linux__)
    if (wholeFileSystem)
        ::syncfs(fd);
    else
        ::fsync(fd);
#else
    Q_UNUSED(wholeFileSystem);
    ::fsync(fd);
#endif
    ::close(fd);
}

} // namespace

AtomicBatch::~AtomicBatch()
{
    for (const Entry& e : std::as_const(m_entries))
        QFile::remove(e.temp);
}

bool AtomicBatch::stage(const QString& path, const QByteArray& bytes)
{
    const QFileInfo target(path);
    if (target.exists() && target.isFile() && !target.isWritable())
        return false;
    const QString temp = tempNameFor(path);
    QFile file(temp);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::NewOnly))
        return false;
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    file.close();
    if (!written || file.error() != QFileDevice::NoError) {
        QFile::remove(temp);
        return false;
    }
    m_entries.append({path, temp});
    return true;
}

bool AtomicBatch::commit()
{
    m_failed.clear();
    if (m_entries.isEmpty())
        return true;

    QSet<QString> folders;
    for (const Entry& e : std::as_const(m_entries))
        folders.insert(QFileInfo(e.target).absolutePath());

#if defined(__linux__)
    // A batch normally writes into one or two folders: flush their file systems once
    // each instead of flushing every file.
    if (folders.size() <= 4) {
        for (const QString& folder : std::as_const(folders))
            syncPath(folder, true);
    } else {
        for (const Entry& e : std::as_const(m_entries))
            syncPath(e.temp, false);
    }
#else
    for (const Entry& e : std::as_const(m_entries))
        syncPath(e.temp, false);
#endif

    for (const Entry& e : std::as_const(m_entries)) {
        if (std::rename(QFile::encodeName(e.temp).constData(),
                        QFile::encodeName(e.target).constData()) != 0) {
            QFile::remove(e.temp);
            m_failed.append(e.target);
        }
    }
    m_entries.clear();

    for (const QString& folder : std::as_const(folders))
        syncPath(folder, false);
    return m_failed.isEmpty();
}

bool AtomicBatch::writeFile(const QString& path, const QByteArray& bytes, QString* error)
{
    QSaveFile file(path);
    bool ok = file.open(QIODevice::WriteOnly);
    if (ok && file.write(bytes) != bytes.size()) {
        ok = false;
        file.cancelWriting();
    }
    if (ok)
        ok = file.commit();
    if (!ok && error)
        *error = file.errorString();
    return ok;
}
