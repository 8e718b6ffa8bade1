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
    if (FileStamp::of(path) != it->stamp) {
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

void ImageCache::startNext()
{
    if (!m_running.isEmpty())
        return;
    for (const QString& path : std::as_const(m_wanted)) {
        if (m_tried.contains(path) || m_kept.value(path).isFull())
            continue;
        // Images after the first are decoded only while there is room for them.
        if (path != m_wanted.first() && m_bytes + expectedBytes(path) > m_budget)
            return;
        m_tried.append(path);
        m_running = path;
        const QSize view = m_viewSize;
        m_pool.start([this, path, view] {
            const DecodedImage image = ImageDecode::decode(path, view, true);
            QMetaObject::invokeMethod(this, [this, image] { finished(image); }, Qt::QueuedConnection);
        });
        return;
    }
}

qint64 ImageCache::expectedBytes(const QString& path)
{
    QImageReader reader(path);
    const QSize size = reader.size();
    return size.isValid() ? qint64(size.width()) * size.height() * 4 : 0;
}

void ImageCache::finished(const DecodedImage& image)
{
    m_running.clear();
    if (image.isFull()) {
        insert(image);
        if (m_kept.contains(image.path))
            Q_EMIT decoded(image.path);
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
