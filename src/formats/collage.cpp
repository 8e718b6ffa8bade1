#include "formats/exportimport.h"

#include <algorithm>
#include <cstdlib>

#include <QFile>
#include <QFileInfo>
#include <QFont>
#include <QFontMetrics>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>

#include "formats/converterrules.h"
#include "formats/datasetreading.h"
#include "formats/datasettools.h"
#include "model/atomicbatch.h"
#include "model/imageloading.h"
#include "model/vocxml.h"

namespace {

constexpr int kCellWidth = 1280;
constexpr int kCellHeight = 1024;
constexpr int kGap = 8;

} // namespace

namespace DatasetTools {

namespace {

// Where the system does not say how much memory is free.
constexpr qint64 kUnknownMemoryLimit = qint64(2) << 30;
// Left free beside the canvas for the source image being read and scaled.
constexpr qint64 kWorkingMemory = qint64(256) << 20;

// MemAvailable of /proc/meminfo in bytes; -1 where the system does not report it.
qint64 availableMemory()
{
    QFile file(QStringLiteral("/proc/meminfo"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (!line.startsWith("MemAvailable:"))
            continue;
        bool ok = false;
        const qint64 kb = line.mid(13).trimmed().split(' ').value(0).toLongLong(&ok);
        return ok ? kb * 1024 : -1;
    }
    return -1;
}

} // namespace

int collageColumns(int n)
{
    int columns = 0;
    while (qint64(columns) * columns < n)
        ++columns;
    return columns;
}

QSize collageCanvasSize(int n)
{
    const int columns = qMax(1, collageColumns(n));
    const int rows = qMax(1, (n + columns - 1) / columns);
    return QSize(columns * (kCellWidth + kGap) + kGap, rows * (kCellHeight + kGap) + kGap);
}

qint64 collageCanvasLimit()
{
    const qint64 available = availableMemory();
    if (available < 0)
        return kUnknownMemoryLimit;
    return qMax(qint64(0), available - kWorkingMemory);
}

} // namespace DatasetTools

namespace ExportImport {

namespace {

using DatasetTools::collageCanvasSize;

qint64 canvasBytes(int n)
{
    const QSize size = collageCanvasSize(n);
    return qint64(size.width()) * size.height() * 3;
}

ExportImportResult canvasTooLarge(int n)
{
    const qint64 limit = DatasetTools::collageCanvasLimit();
    int fits = n - 1;
    while (fits > 0 && canvasBytes(fits) > limit)
        --fits;
    const QSize size = collageCanvasSize(n);
    QString message = QStringLiteral(
                          "A collage of %1 images would be %2 x %3 pixels (%4 MB), more than "
                          "can be built in memory.")
                          .arg(n)
                          .arg(size.width())
                          .arg(size.height())
                          .arg(canvasBytes(n) >> 20);
    if (fits > 0)
        message += QStringLiteral("\n\nChoose at most %1 images.").arg(fits);
    return {false, message, 0};
}

// Union of the point bounds of every shape (left, top, width, height as in
// pointsBoundingRect); false when no shape has points. A lone keypoint gives an area of
// width and height 0.
bool annotationArea(const QList<BoxAnnotation>& shapes, QRect* area)
{
    qint64 left = 0, top = 0, right = 0, bottom = 0;
    bool any = false;
    for (const BoxAnnotation& shape : shapes) {
        if (shape.points.isEmpty())
            continue;
        const QRect r = pointsBoundingRect(shape.points);
        const qint64 l = r.left(), t = r.top();
        const qint64 rr = l + r.width(), b = t + r.height();
        left = any ? std::min(left, l) : l;
        top = any ? std::min(top, t) : t;
        right = any ? std::max(right, rr) : rr;
        bottom = any ? std::max(bottom, b) : b;
        any = true;
    }
    *area = QRect(int(left), int(top), int(right - left), int(bottom - top));
    return any;
}

// The area grown by 15 % of its extent on each side (at least 10 pixels), limited to
// the image.
QRect cropRect(const QRect& area, const QSize& imageSize)
{
    const qint64 px = std::max<qint64>(10, qint64(0.15 * area.width()));
    const qint64 py = std::max<qint64>(10, qint64(0.15 * area.height()));
    const qint64 left = std::max<qint64>(0, area.left() - px);
    const qint64 top = std::max<qint64>(0, area.top() - py);
    const qint64 right = std::min<qint64>(imageSize.width(), qint64(area.left()) + area.width() + px);
    const qint64 bottom = std::min<qint64>(imageSize.height(), qint64(area.top()) + area.height() + py);
    if (right <= left || bottom <= top)
        return QRect();
    return QRect(int(left), int(top), int(right - left), int(bottom - top));
}

// Each shape's integer rectangle mapped onto the scaled crop, with its label badge.
void drawAnnotations(QImage& scaled, const QRect& crop, const QList<BoxAnnotation>& shapes,
                     const QMap<QString, QColor>& colours)
{
    QPainter painter(&scaled);
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font = painter.font();
    font.setPointSize(8);
    font.setBold(true);
    painter.setFont(font);
    const QFontMetrics metrics(font, &scaled);
    const double sx = double(scaled.width()) / crop.width();
    const double sy = double(scaled.height()) / crop.height();
    for (const BoxAnnotation& shape : shapes) {
        const QRect r = ConverterRules::shapeRect(shape);
        const QRectF box(sx * (double(r.left()) - crop.left()), sy * (double(r.top()) - crop.top()),
                         sx * (double(r.right()) - r.left() + 1.0),
                         sy * (double(r.bottom()) - r.top() + 1.0));
        const QColor colour = colours.value(shape.label, QColor(220, 220, 220));
        painter.setPen(QPen(colour, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(box);

        const QRectF badge(box.x(), box.y() - 16, metrics.horizontalAdvance(shape.label) + 6, 16);
        painter.fillRect(badge, colour.darker(110));
        painter.setPen(Qt::white);
        painter.drawText(badge, Qt::AlignCenter, shape.label);
    }
}

// The crop of the image file, scaled to fit a cell. A JPEG whose crop shrinks to half or
// less is decoded at 1/2, 1/4 or 1/8 of its size (the decoder's own scaling, far cheaper
// than decoding every pixel), then scaled to the same size as from a full decode.
QImage readScaledCrop(const QString& path, const QRect& area, QRect* crop)
{
    QImageReader reader(path);
    if (!ImageLoading::prepare(reader))
        return QImage();
    const QSize stored = reader.size();
    // Scaling by a whole factor commutes with the EXIF turn, so only the crop needs the
    // turned size.
    QSize full = stored;
    if (reader.transformation() & QImageIOHandler::TransformationRotate90)
        full.transpose();
    int reduce = 1;
    if (full.isValid() && reader.format() == "jpeg") {
        const QRect planned = cropRect(area, full);
        const QSize target = planned.size().scaled(kCellWidth, kCellHeight, Qt::KeepAspectRatio);
        while (reduce < 8 && planned.width() >= target.width() * reduce * 2
               && planned.height() >= target.height() * reduce * 2)
            reduce *= 2;
        if (reduce > 1)
            reader.setScaledSize(stored / reduce);
    }
    const QImage source = reader.read();
    if (source.isNull())
        return QImage();
    if (reduce == 1)
        full = source.size();
    *crop = cropRect(area, full);
    if (crop->isEmpty())
        return QImage();
    const QSize target = crop->size().scaled(kCellWidth, kCellHeight, Qt::KeepAspectRatio);
    // In a reduced image the crop's edges rarely fall on whole pixels: such a crop is
    // drawn from its exact place, so that the picture stays under the boxes drawn from
    // the full-size coordinates.
    const double fx = double(source.width()) / full.width();
    const double fy = double(source.height()) / full.height();
    const QRectF exact(crop->x() * fx, crop->y() * fy, crop->width() * fx, crop->height() * fy);
    if (QRectF(exact.toRect()) == exact)
        return source.copy(exact.toRect()).scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    QImage scaled(target, source.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    QPainter painter(&scaled);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(QRectF(QPointF(0, 0), QSizeF(target)), source, exact);
    return scaled;
}

// The shapes of a record: those it holds, else those of its annotation file.
QList<BoxAnnotation> shapesOf(const ImageAnnotations& record)
{
    ImageAnnotations image = record;
    if (image.boxes.isEmpty() && QFileInfo::exists(image.xmlPath))
        VocXml::load(image);
    return image.boxes;
}

// The scaled, annotated crop of one image; a null image without shapes, when the image
// cannot be read or the shapes lie outside the image.
QImage renderCell(const QString& imagePath, const QList<BoxAnnotation>& shapes,
                  const QMap<QString, QColor>& colours)
{
    QRect area;
    if (shapes.isEmpty() || !annotationArea(shapes, &area))
        return QImage();
    QRect crop;
    QImage scaled = readScaledCrop(imagePath, area, &crop);
    if (scaled.isNull())
        return QImage();
    // Indexed and grey images cannot be painted on.
    scaled = scaled.convertToFormat(scaled.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                             : QImage::Format_RGB32);
    drawAnnotations(scaled, crop, shapes, colours);
    return scaled;
}

} // namespace

ExportImportResult exportCollage(const QList<ImageAnnotations>& images,
                                 const QMap<QString, QColor>& colours, int count, bool randomize,
                                 const QString& path, std::function<bool(int, int)> progress)
{
    const ExportImportResult noImages{false, QStringLiteral("No annotated images found in the dataset."), 0};
    if (images.isEmpty())
        return noImages;
    QList<int> annotated;
    for (int i = 0; i < images.size(); ++i) {
        if (DatasetTools::isAnnotated(images.at(i)))
            annotated.append(i);
    }
    if (annotated.isEmpty())
        return noImages;

    const int n = qBound(1, count, int(annotated.size()));
    if (randomize) {
        // Deliberately not seeded here: the split seeds the generator from the clock.
        for (int i = int(annotated.size()) - 1; i >= 1; --i)
            annotated.swapItemsAt(i, std::rand() % (i + 1));
    }

    if (canvasBytes(n) > DatasetTools::collageCanvasLimit())
        return canvasTooLarge(n);
    const QSize size = collageCanvasSize(n);
    QImage canvas(size, QImage::Format_RGB888);
    if (canvas.isNull())
        return canvasTooLarge(n);
    canvas.fill(QColor(30, 30, 30));

    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const int columns = DatasetTools::collageColumns(n);
    int placed = 0;
    bool stopped = false;
    // The annotation files are read on every core; the cells are drawn here in order.
    DatasetReading::forEachOrdered<QList<BoxAnnotation>>(
        n, [&](int k) { return shapesOf(images.at(annotated.at(k))); },
        [&](int k, QList<BoxAnnotation>& shapes) {
            if (stopped)
                return;
            const QImage cell = renderCell(images.at(annotated.at(k)).imagePath, shapes, colours);
            if (cell.isNull())
                return;
            const int column = k % columns;
            const int row = k / columns;
            painter.drawImage(QPoint(column * (kCellWidth + kGap) + (kCellWidth - cell.width()) / 2 + kGap,
                                     row * (kCellHeight + kGap) + (kCellHeight - cell.height()) / 2 + kGap),
                              cell);
            ++placed;
            stopped = progress && !progress(placed, n);
        },
        [&stopped](int, int) { return !stopped; });
    if (stopped)
        return {false, QStringLiteral("Export cancelled by user."), placed};
    painter.end();
    // Past the last image there is nothing left to cancel: the answer is not looked at.
    if (progress)
        progress(-1, n);

    // Written beside the target and renamed over it, so that a failed write leaves no
    // partial PNG and an existing file stays as it was.
    QString error;
    const bool saved = AtomicBatch::writeFileWith(
        path,
        [&canvas](QIODevice* device) {
            QImageWriter writer(device, "png");
            // zlib level 2: the default level takes about five times as long on a large
            // collage of photos, for a file only some 15 % smaller.
            writer.setQuality(70);
            return writer.write(canvas);
        },
        &error);
    if (!saved)
        return {false, QStringLiteral("Could not save collage to:\n") + path + u'\n' + error, 0};
    return {true, QStringLiteral("Collage saved with %1 image(s):\n%2").arg(placed).arg(path), placed};
}

} // namespace ExportImport
