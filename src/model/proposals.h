#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

#include "model/annotation.h"

class QDirIterator;
class QJsonObject;

// A shape a model proposed for an image, not yet reviewed: it becomes an annotation only
// when the user accepts it, and until then lives beside the annotation files, never in
// them.
struct Proposal {
    BoxAnnotation shape;
    double confidence = 0.0;

    bool operator==(const Proposal& o) const
    {
        return shape == o.shape && confidence == o.confidence;
    }
};

namespace Proposals {

// The folder inside the annotations folder that holds one JSON file per image with open
// proposals. Hidden, and never matched by "*.xml": the scan, the exports, the split, the
// conversions and the label operations do not see it.
inline constexpr char folderName[] = ".proposals";

// The sidecar of the image whose annotation file is xmlPath: <folder>/.proposals/<base>.json.
QString sidecarPath(const QString& xmlPath);

// One shape as the helper and the sidecars write it: {"type": "bndbox", "points":
// [[x, y], ...], "conf": 0.9, "angle": 0, "visible": true}; the label is the caller's
// business. False for an unknown type, too few points or numbers that are not finite.
bool shapeFromJson(const QJsonObject& object, Proposal* proposal);
QJsonObject shapeToJson(const Proposal& proposal);

// Whether `shape` repeats one of `shapes`: the same label and kind, and bounds that overlap
// by 90 % (intersection over union), or for keypoints, lie within 3 pixels.
bool repeatsShape(const BoxAnnotation& shape, const QList<BoxAnnotation>& shapes);

QByteArray toJson(const QString& imageName, const QList<Proposal>& proposals);
// False, with nothing read, when the bytes are not a sidecar; shapes that do not read
// are left out.
bool fromJson(const QByteArray& bytes, QList<Proposal>* proposals);

} // namespace Proposals

// The open proposals of one dataset: read lazily per image, listed in steps for the
// image list's marks, and written by a background thread so that neither a run that
// delivers thousands of results nor the review ever waits for the disk. Every write
// replaces its sidecar atomically; an image whose last proposal goes loses its sidecar.
class ProposalStore {
public:
    ProposalStore();
    ~ProposalStore(); // waits for the writes still queued
    ProposalStore(const ProposalStore&) = delete;
    ProposalStore& operator=(const ProposalStore&) = delete;

    // Switches to another annotations folder after the queued writes are done.
    void open(const QString& annotationsFolder);
    const QString& annotationsFolder() const { return m_annotations; }

    // The listing of the sidecar folder, at most maxEntries directory entries per call;
    // true once it is complete. Until then hasOpen knows only the images set or read.
    void startListing();
    bool listSome(int maxEntries);
    bool listingDone() const { return !m_listing && m_listed; }

    bool hasOpen(const QString& xmlPath) const { return m_open.contains(xmlPath); }
    int openCount() const { return m_open.size(); }

    // The image's open proposals: remembered, or read from its sidecar.
    QList<Proposal> proposalsFor(const QString& xmlPath);
    // Replaces the image's open proposals and queues the write of its sidecar.
    void set(const QString& xmlPath, const QString& imageName, const QList<Proposal>& proposals);

    // Waits until every queued write is on disk.
    void flush();
    // Sidecars that could not be written or removed since the last call, each as its
    // path and the reason on the next line.
    QStringList takeFailures();

private:
    struct Writer;
    std::unique_ptr<Writer> m_writer;
    QString m_annotations;
    QHash<QString, QList<Proposal>> m_known; // by xmlPath
    QSet<QString> m_open;                    // xmlPaths with open proposals
    std::unique_ptr<QDirIterator> m_listing;
    bool m_listed = false;
};
