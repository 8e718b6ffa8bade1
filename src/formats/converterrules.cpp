#include "formats/converterrules.h"

#include <climits>
#include <cmath>

#include <QFile>
#include <QFileInfo>

#include "model/atomicbatch.h"
#include "model/imageloading.h"
#include "model/labelpalette.h"
#include "model/safefile.h"

namespace ConverterRules {

namespace {

// Saturates an already integral double into the int range; NaN gives 0.
int saturate(double integral)
{
    if (!(integral == integral))
        return 0;
    if (integral >= double(INT_MAX))
        return INT_MAX;
    if (integral <= double(INT_MIN))
        return INT_MIN;
    return int(integral);
}

} // namespace

QSize imageFileSize(const QString& path)
{
    return ImageLoading::size(path);
}

QSize imageSize(const ImageAnnotations& image)
{
    if (image.width >= 1 && image.height >= 1)
        return QSize(image.width, image.height);
    const QSize fromFile = imageFileSize(image.imagePath);
    if (fromFile.width() >= 1 && fromFile.height() >= 1)
        return fromFile;
    return QSize(1, 1);
}

QRect shapeRect(const BoxAnnotation& box)
{
    if (box.points.size() < 2)
        return QRect(QPoint(0, 0), QPoint(-1, -1));
    return integerRect(box.points.at(0), box.points.at(1));
}

int labelIndex(const QList<LabelDef>& labels, const QString& name)
{
    for (int i = 0; i < labels.size(); ++i) {
        if (labels.at(i).name == name)
            return i;
    }
    return -1;
}

QHash<QString, int> buildBaseNameIndex(const QList<ImageAnnotations>& images)
{
    QHash<QString, int> index;
    index.reserve(images.size());
    for (int i = 0; i < images.size(); ++i)
        index.insert(QFileInfo(images.at(i).imagePath).completeBaseName(), i);
    return index;
}

void ensureLabel(QList<LabelDef>& labels, const QString& name)
{
    LabelPalette::appendIfMissing(labels, name);
}

BoxAnnotation makeImportedBox(const QString& label, const QRect& rect)
{
    BoxAnnotation box;
    box.label = label;
    box.type = ShapeType::BoundingBox;
    box.points = { QPointF(rect.left(), rect.top()), QPointF(rect.right(), rect.bottom()) };
    box.visible = true;
    box.angle = 0.0;
    return box;
}

QRect clampToImage(const QRect& rect, int width, int height)
{
    // Only the stored corners are used: QRect::width() can overflow on extreme corners.
    int left = rect.left();
    int right = rect.right();
    int top = rect.top();
    int bottom = rect.bottom();
    if (right < left) {
        const int oldLeft = left;
        left = right + 1;
        right = oldLeft - 1;
    }
    if (bottom < top) {
        const int oldTop = top;
        top = bottom + 1;
        bottom = oldTop - 1;
    }
    left = qMax(0, left);
    top = qMax(0, top);
    right = qMin(width - 1, right);
    bottom = qMin(height - 1, bottom);
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

int toIntSafe(double value)
{
    if (!std::isfinite(value))
        return 0;
    return saturate(std::round(value));
}

int truncSafe(double value)
{
    if (!std::isfinite(value))
        return 0;
    return saturate(std::trunc(value));
}

double parseNumber(QStringView text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return 0.0;
    return value;
}

int parseInt(QStringView text)
{
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    return ok ? value : 0;
}

bool readImportFile(const QString& path, QByteArray* bytes)
{
    // Regular files only: a FIFO would block, /dev/zero would never end.
    constexpr qint64 kMaxImportFileBytes = qint64(1) << 30;
    return SafeFile::read(path, kMaxImportFileBytes, bytes) == SafeFile::ReadResult::Ok;
}

bool readTextLines(const QString& path, QStringList* lines)
{
    QByteArray bytes;
    if (!readImportFile(path, &bytes))
        return false;
    bytes.removeIf([](char c) { return c == '\r'; }); // as reading in text mode did
    if (bytes.startsWith("\xEF\xBB\xBF"))
        bytes.remove(0, 3);
    lines->clear();
    qsizetype start = 0;
    while (start < bytes.size()) {
        qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            end = bytes.size();
        lines->append(QString::fromUtf8(bytes.constData() + start, end - start));
        start = end + 1;
    }
    return true;
}

bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error)
{
    return AtomicBatch::writeFile(path, bytes, error);
}

QString unwrittenNote(const AtomicBatch& batch, int alsoFailed, const QString& alsoReason)
{
    const int failed = int(batch.failedPaths().size()) + alsoFailed;
    if (failed == 0)
        return {};
    const QString reason = batch.failedPaths().isEmpty()
        ? alsoReason
        : batch.failureReason(batch.failedPaths().first());
    return QStringLiteral("\n\n%1 file(s) could not be written: %2").arg(failed).arg(reason);
}

void BoxImporter::add(int imageIndex, const QString& label, const QRect& rect)
{
    auto size = m_sizes.find(imageIndex);
    if (size == m_sizes.end())
        size = m_sizes.insert(imageIndex, imageSize(m_images.at(imageIndex)));
    ImageAnnotations& image = m_images[imageIndex];
    image.boxes.append(makeImportedBox(label, clampToImage(rect, size->width(), size->height())));
    image.dirty = true;
}

} // namespace ConverterRules
