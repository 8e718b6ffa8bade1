#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Writes many files so that each one is replaced atomically and all of them are durable
// at the end, without paying a disk flush per file: every file is first written to a
// temporary file beside its target, then the file systems are flushed once, then each
// temporary file is renamed over its target and the folders are flushed.
//
// A crash at any moment leaves every target either as it was or completely written.
// Temporary files of a batch that is not committed are removed by the destructor.
class AtomicBatch {
public:
    AtomicBatch() = default;
    AtomicBatch(const AtomicBatch&) = delete;
    AtomicBatch& operator=(const AtomicBatch&) = delete;
    ~AtomicBatch();

    // Writes bytes to a temporary file beside path. Returns false (and stages nothing)
    // when the target exists but may not be written (renaming over a read-only file
    // would succeed where opening it fails), or when the temporary file cannot be
    // created or written.
    bool stage(const QString& path, const QByteArray& bytes);

    // Flushes and renames every staged file over its target. Returns false when any
    // rename failed; failedPaths() then lists those targets (their old content is
    // untouched). Targets renamed before a failure keep their new content.
    bool commit();

    int stagedCount() const { return m_entries.size(); }
    const QStringList& failedPaths() const { return m_failed; }

    // One file, written and flushed beside its target, then renamed over it. On failure
    // *error (when given) holds the reason.
    static bool writeFile(const QString& path, const QByteArray& bytes, QString* error = nullptr);

private:
    struct Entry {
        QString target;
        QString temp;
    };
    QList<Entry> m_entries;
    QStringList m_failed;
};
