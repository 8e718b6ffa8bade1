#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

class QIODevice;

// The one writer of the program's files. Every file is written to a temporary file
// beside its target, every write call, flush and close checked, and only then renamed
// over the target: a full disk, a quota or an I/O error leaves the old file byte for
// byte and is reported with the system's reason. A target that is a symbolic link is
// written where the link points (the link stays); with a confining folder, a link that
// points outside it is refused. A target that is not a regular file is refused.
//
// A batch writes many files so that each one is replaced atomically and all of them are
// durable at the end, without paying a disk flush per file: every file is first written
// to its temporary file, then the file systems are flushed once, then each temporary
// file is renamed over its target and the folders are flushed. A crash at any moment
// leaves every target either as it was or completely written. Temporary files of a
// batch that is not committed are removed by the destructor.
class AtomicBatch {
public:
    AtomicBatch() = default;
    AtomicBatch(const AtomicBatch&) = delete;
    AtomicBatch& operator=(const AtomicBatch&) = delete;
    ~AtomicBatch();

    // Writes bytes to a temporary file beside the target of path. Returns false (and
    // stages nothing, *error holding the reason) when the target may not be written: a
    // read-only file (renaming over it would succeed where opening it fails), not a
    // regular file, a link leading outside confineTo, or a failed write.
    bool stage(const QString& path, const QByteArray& bytes, QString* error = nullptr,
               const QString& confineTo = QString());

    // Flushes and renames every staged file over its target. Returns false when any
    // flush or rename failed; failedPaths() then lists those paths as staged (their old
    // content is untouched) and failureReason() tells why. Targets renamed before a
    // failure keep their new content.
    bool commit();

    int stagedCount() const { return m_entries.size(); }
    const QStringList& failedPaths() const { return m_failed; }
    QString failureReason(const QString& path) const { return m_reasons.value(path); }

    // One file, written and flushed beside its target, then renamed over it.
    static bool writeFile(const QString& path, const QByteArray& bytes, QString* error = nullptr,
                          const QString& confineTo = QString());
    // The same, for output made by a writer on a device (an image encoder, say): `fill`
    // writes into the temporary file and returns false when it failed.
    static bool writeFileWith(const QString& path, const std::function<bool(QIODevice*)>& fill,
                              QString* error = nullptr, const QString& confineTo = QString());
    // A copy of the regular file `from` written to `to` the same way, streamed.
    static bool copyFile(const QString& from, const QString& to, QString* error = nullptr,
                         const QString& confineTo = QString());

private:
    struct Entry {
        QString path;   // as staged
        QString target; // where the link, if any, leads
        QString temp;
    };
    void fail(const Entry& entry, const QString& reason);

    QList<Entry> m_entries;
    QStringList m_failed;
    QHash<QString, QString> m_reasons;
};
