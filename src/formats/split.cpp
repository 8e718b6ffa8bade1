#include "formats/datasettools.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DatasetTools {

namespace {

unsigned s_tempCounter = 0;

bool writeAll(int fd, const char* data, ssize_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= n;
    }
    return true;
}

// Copies the rest of `in` to `out`; false on a read or write error.
bool copyContent(int in, int out)
{
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(in, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        if (!writeAll(out, buffer, n))
            return false;
    }
}

} // namespace

bool isAnnotated(const ImageAnnotations& image)
{
    return !image.boxes.isEmpty() || (!image.xmlPath.isEmpty() && QFileInfo::exists(image.xmlPath));
}

int annotatedCount(const QList<ImageAnnotations>& images)
{
    int count = 0;
    for (const ImageAnnotations& image : images)
        count += isAnnotated(image) ? 1 : 0;
    return count;
}

int annotationFileCount(const QList<ImageAnnotations>& images)
{
    int count = 0;
    for (const ImageAnnotations& image : images)
        count += !image.xmlPath.isEmpty() && QFileInfo::exists(image.xmlPath) ? 1 : 0;
    return count;
}

QList<int> shuffledOrder(int count, unsigned seed)
{
    QList<int> order(qMax(0, count));
    for (int i = 0; i < order.size(); ++i)
        order[i] = i;
    std::srand(seed);
    for (int i = int(order.size()) - 1; i >= 1; --i) {
        const int j = std::rand() % (i + 1);
        order.swapItemsAt(i, j);
    }
    return order;
}

int trainCount(int count, int trainPercent)
{
    return qMax(1, int(count * trainPercent / 100.0 + 0.5));
}

unsigned clockSeed()
{
    return unsigned(quint64(QDateTime::currentMSecsSinceEpoch()) & 0xFFFFFFFFu);
}

SplitPlan planSplit(const QList<ImageAnnotations>& images, int trainPercent,
                    const QString& outputFolder, unsigned seed)
{
    static const QString subsets[2] = {QStringLiteral("Train"), QStringLiteral("Test")};
    QString imagesDir[2];
    QString annotationsDir[2];
    SplitPlan plan;
    for (int s = 0; s < 2; ++s) {
        imagesDir[s] = outputFolder + QLatin1Char('/') + subsets[s] + QStringLiteral("/images/");
        annotationsDir[s] = outputFolder + QLatin1Char('/') + subsets[s] + QStringLiteral("/annotations/");
        plan.folders << imagesDir[s].chopped(1) << annotationsDir[s].chopped(1);
    }

    const QList<int> order = shuffledOrder(int(images.size()), seed);
    const int train = trainCount(int(order.size()), trainPercent);
    plan.items.reserve(order.size());
    for (int k = 0; k < order.size(); ++k) {
        const ImageAnnotations& image = images.at(order.at(k));
        const int s = k < train ? 0 : 1;
        SplitItem item;
        item.imageSource = image.imagePath;
        item.imageTarget = imagesDir[s] + QFileInfo(image.imagePath).fileName();
        if (!image.xmlPath.isEmpty()) {
            item.xmlSource = image.xmlPath;
            item.xmlTarget = annotationsDir[s] + QFileInfo(image.xmlPath).fileName();
        }
        plan.items.append(item);
        ++(s == 0 ? plan.train : plan.test);
    }
    return plan;
}

CopyResult copyFileBytes(const QString& source, const QString& target)
{
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(target);
    // Non-blocking, and only a regular file is copied: a FIFO would wait for good.
    const int in = ::open(from.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (in < 0)
        return errno == ENOENT ? CopyResult::NoSource : CopyResult::Failed;
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(in);
        return CopyResult::Failed;
    }

    // A new target is written in place (and removed again if the copy fails); an
    // existing one is replaced through a temporary file beside it, so that a failed copy
    // leaves it as it was, and a file copied onto itself keeps its bytes.
    int out = ::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    QByteArray written = to;
    if (out < 0 && errno == EEXIST) {
        written = to + ".tmp" + QByteArray::number(qint64(::getpid())) + '-'
            + QByteArray::number(++s_tempCounter);
        out = ::open(written.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    if (out < 0) {
        ::close(in);
        return CopyResult::Failed;
    }
    bool ok = copyContent(in, out);
    ::close(in);
    ok = ::close(out) == 0 && ok;
    if (ok && written != to)
        ok = std::rename(written.constData(), to.constData()) == 0;
    if (!ok)
        ::unlink(written.constData());
    return ok ? CopyResult::Copied : CopyResult::Failed;
}

CopyOutcome runSplit(const SplitPlan& plan, const Progress& progress)
{
    for (const QString& folder : plan.folders)
        QDir().mkpath(folder);

    CopyOutcome outcome;
    const int total = int(plan.items.size());
    for (const SplitItem& item : plan.items) {
        if (progress && !progress(outcome.imagesDone, total)) {
            outcome.cancelled = true;
            break;
        }
        // An image file that has gone missing counts as a failed copy; a missing
        // annotation file just means the image has none.
        const CopyResult image = copyFileBytes(item.imageSource, item.imageTarget);
        const CopyResult xml = item.xmlSource.isEmpty() ? CopyResult::NoSource
                                                        : copyFileBytes(item.xmlSource, item.xmlTarget);
        outcome.copied += (image == CopyResult::Copied) + (xml == CopyResult::Copied);
        outcome.failed += (image != CopyResult::Copied) + (xml == CopyResult::Failed);
        ++outcome.imagesDone;
    }
    return outcome;
}

} // namespace DatasetTools
