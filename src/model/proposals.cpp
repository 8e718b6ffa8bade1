#include "model/proposals.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineF>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <cmath>
#include <cstdio>

#include "model/atomicbatch.h"
#include "model/safefile.h"


namespace Proposals {

namespace {

int minimumPoints(ShapeType type)
{
    switch (type) {
    case ShapeType::Keypoint:
        return 1;
    case ShapeType::Polygon:
        return 3;
    case ShapeType::RotatedBox:
        return 4;
    case ShapeType::Cuboid:
        return 8;
    default:
        return 2;
    }
}

bool finiteNumber(const QJsonValue& v, double* out)
{
    if (!v.isDouble())
        return false;
    *out = v.toDouble();
    return std::isfinite(*out);
}

QString sidecarFolder(const QString& annotationsFolder)
{
    return QDir(annotationsFolder).filePath(QLatin1String(folderName));
}

} // namespace

QString sidecarPath(const QString& xmlPath)
{
    const QFileInfo xml(xmlPath);
    return sidecarFolder(xml.path()) + QLatin1Char('/') + xml.completeBaseName()
           + QStringLiteral(".json");
}

bool shapeFromJson(const QJsonObject& o, Proposal* proposal)
{
    const QString word = o.value(QLatin1String("type")).toString();
    const ShapeType type = shapeTypeFromWord(word);
    if (word != QLatin1String(shapeTypeWord(type)))
        return false;
    BoxAnnotation shape;
    shape.type = type;
    const QJsonArray points = o.value(QLatin1String("points")).toArray();
    for (const QJsonValue& value : points) {
        const QJsonArray xy = value.toArray();
        double x = 0, y = 0;
        if (xy.size() != 2 || !finiteNumber(xy.at(0), &x) || !finiteNumber(xy.at(1), &y))
            return false;
        shape.points.append(QPointF(x, y));
    }
    if (shape.points.size() < minimumPoints(type))
        return false;
    double angle = 0, conf = 0;
    if (o.contains(QLatin1String("angle")) && !finiteNumber(o.value(QLatin1String("angle")), &angle))
        return false;
    if (!finiteNumber(o.value(QLatin1String("conf")), &conf))
        return false;
    shape.angle = angle;
    shape.visible = o.value(QLatin1String("visible")).toBool(true);
    proposal->shape = shape;
    proposal->confidence = conf;
    return true;
}

QJsonObject shapeToJson(const Proposal& p)
{
    QJsonArray points;
    for (const QPointF& pt : p.shape.points)
        points.append(QJsonArray{pt.x(), pt.y()});
    QJsonObject o{{QStringLiteral("label"), p.shape.label},
                  {QStringLiteral("type"), QLatin1String(shapeTypeWord(p.shape.type))},
                  {QStringLiteral("conf"), p.confidence},
                  {QStringLiteral("points"), points}};
    if (p.shape.angle != 0.0)
        o.insert(QStringLiteral("angle"), p.shape.angle);
    if (!p.shape.visible)
        o.insert(QStringLiteral("visible"), false);
    return o;
}

bool repeatsShape(const BoxAnnotation& shape, const QList<BoxAnnotation>& shapes)
{
    const QRectF a = pointsBoundingRect(shape.points);
    for (const BoxAnnotation& other : shapes) {
        if (other.label != shape.label || other.type != shape.type || other.points.isEmpty())
            continue;
        if (shape.type == ShapeType::Keypoint) {
            if (QLineF(shape.points.at(0), other.points.at(0)).length() <= 3.0)
                return true;
            continue;
        }
        const QRectF b = pointsBoundingRect(other.points);
        const QRectF common = a.intersected(b);
        const double overlap = common.width() * common.height();
        const double all = a.width() * a.height() + b.width() * b.height() - overlap;
        if (all > 0 && overlap / all >= 0.9)
            return true;
    }
    return false;
}

QByteArray toJson(const QString& imageName, const QList<Proposal>& proposals)
{
    QJsonArray list;
    for (const Proposal& p : proposals)
        list.append(shapeToJson(p));
    return QJsonDocument(QJsonObject{{QStringLiteral("image"), imageName},
                                     {QStringLiteral("proposals"), list}})
        .toJson(QJsonDocument::Compact);
}

bool fromJson(const QByteArray& bytes, QList<Proposal>* proposals)
{
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    const QJsonValue list = doc.object().value(QLatin1String("proposals"));
    if (!list.isArray())
        return false;
    proposals->clear();
    for (const QJsonValue& value : list.toArray()) {
        const QJsonObject o = value.toObject();
        Proposal p;
        if (!shapeFromJson(o, &p))
            continue;
        p.shape.label = o.value(QLatin1String("label")).toString();
        proposals->append(p);
    }
    return true;
}

} // namespace Proposals

// --- Writing in the background -----------------------------------------------------------

// Takes everything queued at once and writes it. A sidecar queued again before its turn is
// written once, with its newest content; a null content removes it. The writes of one
// turn are one batch: each file replaced in one step, checked like every other write of
// the program (a link leading out of the annotations folder or anything but a regular
// file is refused), and the disk flushed once for all of them.
struct ProposalStore::Writer {
    QMutex mutex;
    QWaitCondition wake;
    QWaitCondition idle;
    QHash<QString, QByteArray> queued;
    QString confineTo;
    bool busy = false;
    bool quit = false;
    QStringList failures;
    std::unique_ptr<QThread> thread;

    Writer()
    {
        thread.reset(QThread::create([this] { run(); }));
        thread->start();
    }
    ~Writer()
    {
        {
            QMutexLocker lock(&mutex);
            quit = true;
            wake.wakeAll();
        }
        thread->wait();
    }

    void put(const QString& path, const QByteArray& bytes)
    {
        QMutexLocker lock(&mutex);
        queued.insert(path, bytes);
        wake.wakeAll();
    }

    void waitIdle()
    {
        QMutexLocker lock(&mutex);
        while (busy || !queued.isEmpty())
            idle.wait(&mutex);
    }

    void run()
    {
        QMutexLocker lock(&mutex);
        for (;;) {
            while (queued.isEmpty() && !quit)
                wake.wait(&mutex);
            if (queued.isEmpty())
                return;
            const QHash<QString, QByteArray> jobs = std::exchange(queued, {});
            const QString folder = confineTo;
            busy = true;
            lock.unlock();
            const QStringList failed = write(jobs, folder);
            lock.relock();
            busy = false;
            failures += failed;
            idle.wakeAll();
        }
    }

    // Each failure as the file and the reason, on two lines.
    static QStringList write(const QHash<QString, QByteArray>& jobs, const QString& confineTo)
    {
        QStringList failed;
        QSet<QString> folders;
        AtomicBatch batch;
        for (auto it = jobs.begin(); it != jobs.end(); ++it) {
            const QString& path = it.key();
            if (it.value().isNull()) {
                if (QFileInfo(path).isSymLink() || QFileInfo::exists(path)) {
                    QFile file(path);
                    if (!file.remove())
                        failed.append(path + QLatin1Char('\n') + file.errorString());
                }
                continue;
            }
            const QString folder = QFileInfo(path).path();
            if (!folders.contains(folder)) {
                QDir().mkpath(folder);
                folders.insert(folder);
            }
            QString reason;
            if (!batch.stage(path, it.value(), &reason, confineTo))
                failed.append(path + QLatin1Char('\n') + reason);
        }
        if (!batch.commit()) {
            for (const QString& path : batch.failedPaths())
                failed.append(path + QLatin1Char('\n') + batch.failureReason(path));
        }
        return failed;
    }
};

ProposalStore::ProposalStore() : m_writer(std::make_unique<Writer>()) {}

ProposalStore::~ProposalStore() = default;

void ProposalStore::open(const QString& annotationsFolder)
{
    m_writer->waitIdle();
    {
        QMutexLocker lock(&m_writer->mutex);
        m_writer->confineTo = annotationsFolder;
    }
    m_annotations = annotationsFolder;
    m_known.clear();
    m_open.clear();
    m_listing.reset();
    m_listed = false;
}

void ProposalStore::startListing()
{
    m_listed = false;
    m_listing = std::make_unique<QDirIterator>(
        QDir(m_annotations).filePath(QLatin1String(Proposals::folderName)),
        QStringList{QStringLiteral("*.json")}, QDir::Files);
}

bool ProposalStore::listSome(int maxEntries)
{
    if (!m_listing)
        return true;
    const QDir annotations(m_annotations);
    for (int i = 0; i < maxEntries && m_listing->hasNext(); ++i) {
        m_listing->next();
        const QString xmlPath = annotations.filePath(m_listing->fileInfo().completeBaseName()
                                                     + QStringLiteral(".xml"));
        // What this session set or read is newer than what the folder says.
        if (!m_known.contains(xmlPath))
            m_open.insert(xmlPath);
    }
    if (m_listing->hasNext())
        return false;
    m_listing.reset();
    m_listed = true;
    return true;
}

QList<Proposal> ProposalStore::proposalsFor(const QString& xmlPath)
{
    const auto known = m_known.constFind(xmlPath);
    if (known != m_known.constEnd())
        return *known;
    QList<Proposal> proposals;
    // Once the listing is complete, an image it did not find has no sidecar to read.
    if (!m_listed || m_open.contains(xmlPath)) {
        // A regular file of sane size only: a FIFO or a link to /dev/zero would hang.
        QByteArray bytes;
        if (SafeFile::read(Proposals::sidecarPath(xmlPath), SafeFile::kMaxAnnotationFileBytes, &bytes)
            == SafeFile::ReadResult::Ok)
            Proposals::fromJson(bytes, &proposals);
    }
    m_known.insert(xmlPath, proposals);
    if (proposals.isEmpty())
        m_open.remove(xmlPath);
    else
        m_open.insert(xmlPath);
    return proposals;
}

void ProposalStore::set(const QString& xmlPath, const QString& imageName,
                        const QList<Proposal>& proposals)
{
    m_known.insert(xmlPath, proposals);
    if (proposals.isEmpty())
        m_open.remove(xmlPath);
    else
        m_open.insert(xmlPath);
    m_writer->put(Proposals::sidecarPath(xmlPath),
                  proposals.isEmpty() ? QByteArray() : Proposals::toJson(imageName, proposals));
}

void ProposalStore::flush()
{
    m_writer->waitIdle();
}

QStringList ProposalStore::takeFailures()
{
    QMutexLocker lock(&m_writer->mutex);
    return std::exchange(m_writer->failures, {});
}
