#include "model/annotationstore.h"

#include <QFile>
#include <QFileInfo>

#include "model/atomicbatch.h"
#include "model/safefile.h"
#include "model/vocxml.h"

namespace AnnotationStore {

namespace {

// Writes stay inside the folder of the annotation file, links or not.
QString folderOf(const ImageAnnotations& record)
{
    return QFileInfo(record.xmlPath).absolutePath();
}

bool changedSince(const FileStamp& known, const FileStamp& now)
{
    switch (known.state) {
    case FileStamp::Unknown:
        return false;
    case FileStamp::Missing:
        return now.state == FileStamp::Known;
    case FileStamp::Known:
        return now.state == FileStamp::Known && now != known;
    }
    return false;
}

void fail(Outcome& out, const QString& reason)
{
    out.ok = false;
    out.error = reason;
}

// Keeps what is on disk before the record's file is replaced by `newBytes` or removed
// (newBytes null). False, with the reason in `out`, when the file must stay as it is.
bool keepWhatIsOnDisk(ImageAnnotations& record, const QByteArray* newBytes, Outcome& out)
{
    QString error;
    // A write that would be refused anyway (a link leading elsewhere, a FIFO) copies nothing.
    if (newBytes && !SafeFile::resolveWriteTarget(record.xmlPath, folderOf(record), nullptr, &error)) {
        fail(out, error);
        return false;
    }
    if (record.partial) {
        if (!VocXml::keepOriginal(record.xmlPath, &error)) {
            fail(out, QStringLiteral("The file was read only in part, and a copy of it could not be "
                                     "kept (%1). It was left unchanged.")
                          .arg(error));
            return false;
        }
        // The copy holds the file as it is now, whoever wrote it last.
        record.partial = false;
        return true;
    }
    const FileStamp now = SafeFile::stampOf(record.xmlPath);
    if (!changedSince(record.stamp, now))
        return true;
    if (newBytes && now.size == newBytes->size()) {
        QByteArray theirs;
        if (SafeFile::read(record.xmlPath, SafeFile::kMaxAnnotationFileBytes, &theirs)
                == SafeFile::ReadResult::Ok
            && theirs == *newBytes)
            return true;
    }
    const QString theirs = theirsPathFor(record.xmlPath);
    if (!AtomicBatch::copyFile(record.xmlPath, theirs, &error, folderOf(record))) {
        fail(out, QStringLiteral("Another program changed the file, and its version could not be "
                                 "kept as %1 (%2). It was left unchanged.")
                      .arg(QFileInfo(theirs).fileName(), error));
        return false;
    }
    out.theirsPath = theirs;
    return true;
}

void settle(ImageAnnotations& record, const Outcome& out)
{
    record.writeFailed = !out.ok;
    if (out.ok) {
        record.dirty = false;
        record.partial = false;
        record.stamp = SafeFile::stampOf(record.xmlPath);
    } else {
        record.dirty = true;
    }
}

} // namespace

QString theirsPathFor(const QString& xmlPath)
{
    return xmlPath + QStringLiteral(".theirs");
}

Outcome save(ImageAnnotations& record, const QString& folder)
{
    Outcome out;
    const QByteArray bytes = VocXml::toXml(record, folder);
    QString error;
    if (keepWhatIsOnDisk(record, &bytes, out)
        && !AtomicBatch::writeFile(record.xmlPath, bytes, &error, folderOf(record)))
        fail(out, error);
    settle(record, out);
    return out;
}

QList<Outcome> saveAll(QList<ImageAnnotations>& records, const QList<int>& indices,
                       const QString& folder)
{
    QList<Outcome> outcomes(indices.size());
    AtomicBatch batch;
    QList<int> staged;
    for (int k = 0; k < indices.size(); ++k) {
        const int index = indices.at(k);
        if (index < 0 || index >= records.size())
            continue;
        ImageAnnotations& record = records[index];
        const QByteArray bytes = VocXml::toXml(record, folder);
        QString error;
        if (!keepWhatIsOnDisk(record, &bytes, outcomes[k])) {
            settle(record, outcomes[k]);
        } else if (!batch.stage(record.xmlPath, bytes, &error, folderOf(record))) {
            fail(outcomes[k], error);
            settle(record, outcomes[k]);
        } else {
            staged.append(k);
        }
    }
    batch.commit();
    for (int k : std::as_const(staged)) {
        ImageAnnotations& record = records[indices.at(k)];
        const QString reason = batch.failureReason(record.xmlPath);
        if (!reason.isEmpty())
            fail(outcomes[k], reason);
        settle(record, outcomes[k]);
    }
    return outcomes;
}

Outcome remove(ImageAnnotations& record)
{
    Outcome out;
    const bool there = QFileInfo(record.xmlPath).isSymLink() || QFileInfo::exists(record.xmlPath);
    if (there && keepWhatIsOnDisk(record, nullptr, out))
        QFile::remove(record.xmlPath);
    record.dirty = false;
    record.writeFailed = false;
    if (out.ok)
        record.stamp = SafeFile::stampOf(record.xmlPath);
    return out;
}

} // namespace AnnotationStore
