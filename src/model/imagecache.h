#pragma once

#include <QHash>
#include <QSet>
#include <QObject>
#include <QSize>
#include <QStringList>
#include <QThreadPool>

#include "model/imagedecode.h"

// Decoded images kept for showing, bounded in bytes, and decoded ahead on a worker
// thread. The owner says which images it wants: the image shown, then the next ones in
// the direction the user travels. One worker decodes the next image at the view's size,
// then the full resolution of the image shown, then the others in order. Decodes no longer wanted that have not started are dropped;
// one already running finishes and is kept only while there is room. A kept image is
// handed out only while its file has the size and modification time it had when it
// was decoded.
class ImageCache : public QObject {
    Q_OBJECT
public:
    explicit ImageCache(QObject* parent = nullptr);
    ~ImageCache() override;

    static constexpr qint64 kDefaultBudget = qint64(640) << 20;

    void setBudget(qint64 bytes);
    qint64 budget() const { return m_budget; }
    // The size reduced copies are made for (the view, in device pixels).
    void setViewSize(const QSize& size);
    QSize viewSize() const { return m_viewSize; }

    // The image kept for path if its file is unchanged since the decode; a kept decode of
    // a changed file is dropped and a null image returned.
    DecodedImage find(const QString& path);
    // Keeps an image decoded elsewhere (on the GUI thread, for instance). A reduced-only
    // image does not replace a full one of the same file.
    void insert(const DecodedImage& image);
    // The images to keep: the one shown (kept whatever its size), then the others most
    // wanted first. Starts decoding those not kept.
    void want(const QStringList& paths);
    const QStringList& wanted() const { return m_wanted; }

    bool isDecoding(const QString& path) const { return m_running == path; }
    // Whether the running decode is that of path at the view's size, which ends soon.
    bool isDecodingForView(const QString& path) const { return m_running == path && !m_runningFull; }
    qint64 bytesKept() const { return m_bytes; }
    QStringList keptPaths() const { return m_kept.keys(); }
    // Blocks until the running decode (if any) has finished and been handed over.
    void waitForRunning();

Q_SIGNALS:
    // A full-resolution decode of path was kept.
    void decoded(const QString& path);

private:
    struct Task {
        QString path;
        bool full = false; // else: what the view needs
    };
    QList<Task> tasks() const;
    void startNext();
    void finished(const DecodedImage& image);
    void makeRoom(const QString& keep);
    // What the decode of path will take, from its header: at full resolution, or
    // reduced to fit `view` when that is valid.
    static qint64 expectedBytes(const QString& path, const QSize& view);
    void drop(const QString& path);

    QThreadPool m_pool;
    qint64 m_budget = kDefaultBudget;
    QSize m_viewSize {1920, 1080};
    QHash<QString, DecodedImage> m_kept;
    QStringList m_lastUsed; // least recently used first
    qint64 m_bytes = 0;
    QStringList m_wanted;
    QSet<QString> m_tried; // tasks started since the last want()
    QString m_running;
    bool m_runningFull = false;
};
