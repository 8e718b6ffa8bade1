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
        imagesDir[s] = outputFolder + QLatin1Char('/') + subsets[s] + QStringLiteral("/images");
        annotationsDir[s] = outputFolder + QLatin1Char('/') + subsets[s] + QStringLiteral("/annotations");
        plan.folders << imagesDir[s] << annotationsDir[s];
    }

    const QList<int> order = shuffledOrder(int(images.size()), seed);
    const int train = trainCount(int(order.size()), trainPercent);
    plan.items.reserve(order.size());
    for (int k = 0; k < order.size(); ++k) {
        const ImageAnnotations& image = images.at(order.at(k));
        const int s = k < train ? 0 : 1;
        SplitItem item;
        item.imageSource = image.imagePath;
        item.imageTarget = imagesDir[s] + QLatin1Char('/') + QFileInfo(image.imagePath).fileName();
        if (!image.xmlPath.isEmpty() && QFileInfo::exists(image.xmlPath)) {
            item.xmlSource = image.xmlPath;
            item.xmlTarget = annotationsDir[s] + QLatin1Char('/') + QFileInfo(image.xmlPath).fileName();
        }
        plan.items.append(item);
        ++(s == 0 ? plan.train : plan.test);
    }
    return plan;
}

bool copyFileBytes(const QString& source, const QString& target)
{
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(target);
    const int in = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    struct stat info {};
    if (::fstat(in, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(in);
        return false;
    }
    // The temporary file lies beside the target, so that the rename stays on one file
    // system; a copy that fails half-way never takes the target's name.
    const QByteArray temp = to + ".tmp" + QByteArray::number(qint64(::getpid())) + '-'
        + QByteArray::number(++s_tempCounter);
    const int out = ::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (out < 0) {
        ::close(in);
        return false;
    }
    bool ok = copyContent(in, out);
    ::close(in);
    ok = ::close(out) == 0 && ok;
    if (ok)
        ok = std::rename(temp.constData(), to.constData()) == 0;
    if (!ok)
        ::unlink(temp.constData());
    return ok;
}

CopyOutcome runSplit(const SplitPlan& plan, const Progress& progress)
{
    for (const QString& folder : plan.folders)
        QDir().mkpath(folder);

    CopyOutcome outcome;
    const int total = int(plan.items.size());
    const auto copy = [&outcome](const QString& source, const QString& target) {
        ++(copyFileBytes(source, target) ? outcome.copied : outcome.failed);
    };
    for (const SplitItem& item : plan.items) {
        if (progress && !progress(outcome.imagesDone, total)) {
            outcome.cancelled = true;
            break;
        }
        copy(item.imageSource, item.imageTarget);
        if (!item.xmlSource.isEmpty())
            copy(item.xmlSource, item.xmlTarget);
        ++outcome.imagesDone;
    }
    return outcome;
}

} // namespace DatasetTools
