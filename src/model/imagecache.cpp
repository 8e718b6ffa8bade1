#include "model/imagecache.h"

#include <QCoreApplication>
#include <QImageReader>
#include <QMetaObject>

ImageCache::ImageCache(QObject* parent) : QObject(parent)
{
    // One decode at a time: the GUI thread keeps the other core, and the next image in
    // the direction of travel is never slowed down by the ones after it.
    m_pool.setMaxThreadCount(1);
}

ImageCache::~ImageCache()
{
    m_pool.waitForDone();
}

void ImageCache::setBudget(qint64 bytes)
{
    m_budget = bytes;
    makeRoom(m_wanted.value(0));
}

void ImageCache::setViewSize(const QSize& size)
{
    if (size.isValid() && !size.isEmpty())
        m_viewSize = size;
}

DecodedImage ImageCache::find(const QString& path)
{
    const auto it = m_kept.constFind(path);
    if (it == m_kept.constEnd())
        return {};
    if (DecodeStamp::of(path) != it->stamp) {
        drop(path);
        return {};
    }
    m_lastUsed.removeOne(path);
    m_lastUsed.append(path);
    return *it;
}

void ImageCache::insert(const DecodedImage& image)
{
    if (image.isNull())
        return;
    const auto it = m_kept.constFind(image.path);
    if (it != m_kept.constEnd() && it->isFull() && !image.isFull() && it->stamp == image.stamp)
        return;
    drop(image.path);
    m_kept.insert(image.path, image);
    m_lastUsed.append(image.path);
    m_bytes += image.bytes();
    makeRoom(m_wanted.value(0));
}

void ImageCache::want(const QStringList& paths)
{
    m_wanted = paths;
    m_tried.clear();
    // The wanted ones count as used just now, the most wanted last.
    for (auto it = paths.crbegin(); it != paths.crend(); ++it) {
        if (m_lastUsed.removeOne(*it))
            m_lastUsed.append(*it);
    }
    makeRoom(paths.value(0));
    startNext();
}

void ImageCache::waitForRunning()
{
    m_pool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

QList<ImageCache::Task> ImageCache::tasks() const
{
    // The next image at the view's size first (what a key press needs), then the full
    // resolution of the image shown (what zooming in needs), then the others in order.
    QList<Task> tasks;
    if (m_wanted.size() > 1)
        tasks.append({m_wanted.at(1), false});
    for (const QString& path : m_wanted)
        tasks.append({path, true});
    return tasks;
}

void ImageCache::startNext()
{
    if (!m_running.isEmpty())
        return;
    for (const Task& task : tasks()) {
        const QString key = (task.full ? QLatin1String("full:") : QLatin1String("view:")) + task.path;
        if (m_tried.contains(key))
            continue;
        const DecodedImage kept = m_kept.value(task.path);
        if (task.full ? kept.isFull() : !kept.isNull())
            continue;
        // Images other than the one shown are decoded only while there is room for them.
        if (task.path != m_wanted.first()
            && m_bytes + expectedBytes(task.path, task.full ? QSize() : m_viewSize) > m_budget)
            return;
        m_tried.insert(key);
        m_running = task.path;
        m_runningFull = task.full;
        const QString path = task.path;
        const QSize view = m_viewSize;
        const bool full = task.full;
        const bool needReduced = kept.reduced.isNull();
        m_pool.start([this, path, view, full, needReduced] {
            DecodedImage image;
            if (!full || needReduced) {
                // A large JPEG comes at the view's size, decoded while scaling; on the way
                // to the full resolution it is handed over at once, so that a key pressed
                // meanwhile finds it.
                image = ImageDecode::decode(path, view, false);
                if (full && !image.isNull() && !image.isFull())
                    QMetaObject::invokeMethod(this, [this, image] { insert(image); }, Qt::QueuedConnection);
            }
            if (full && !image.isFull() && (!image.isNull() || image.error.isEmpty())) {
                DecodedImage whole = ImageDecode::decode(path, QSize(), true);
                whole.reduced = image.reduced;
                image = whole;
            }
            QMetaObject::invokeMethod(this, [this, image] { finished(image); }, Qt::QueuedConnection);
        });
        return;
    }
}

qint64 ImageCache::expectedBytes(const QString& path, const QSize& view)
{
    QImageReader reader(path);
    QSize size = reader.size();
    if (view.isValid())
        size = ImageDecode::fitted(size, view);
    return size.isValid() ? qint64(size.width()) * size.height() * 4 : 0;
}

void ImageCache::finished(const DecodedImage& image)
{
    m_running.clear();
    if (!image.isNull()) {
        DecodedImage kept = image;
        const auto it = m_kept.constFind(image.path);
        if (kept.reduced.isNull() && it != m_kept.constEnd() && it->stamp == kept.stamp)
            kept.reduced = it->reduced;
        insert(kept);
        if (kept.isFull() && m_kept.contains(kept.path))
            Q_EMIT decoded(kept.path);
    }
    startNext();
}

void ImageCache::makeRoom(const QString& keep)
{
    while (m_bytes > m_budget) {
        // First what nobody wants, least recently used first; then the wanted ones from
        // the least wanted on. The image shown stays.
        QString victim;
        for (const QString& path : std::as_const(m_lastUsed)) {
            if (path != keep && !m_wanted.contains(path)) {
                victim = path;
                break;
            }
        }
        for (auto it = m_wanted.crbegin(); victim.isEmpty() && it != m_wanted.crend(); ++it) {
            if (*it != keep && m_kept.contains(*it))
                victim = *it;
        }
        if (victim.isEmpty())
            return;
        drop(victim);
    }
}

void ImageCache::drop(const QString& path)
{
    const auto it = m_kept.find(path);
    if (it == m_kept.end())
        return;
    m_bytes -= it->bytes();
    m_kept.erase(it);
    m_lastUsed.removeOne(path);
}
