// Showing images without waiting: the image to show comes from the decodes kept by the
// image cache or is decoded at once at the view's size; a photo larger than the view
// gets its full resolution when the worker has it; the neighbours in the direction of
// travel are decoded ahead.

#include "app/mainwindow.h"

#include <QPixmap>

#include "canvas/imagecanvas.h"
#include "model/imagecache.h"

DecodedImage MainWindow::decodeForShowing(const QString& path)
{
    // A canvas not on screen has no size worth reducing to; the cache keeps its own.
    if (canvas->isVisible())
        imageCache->setViewSize(canvas->size() * canvas->devicePixelRatioF());
    // The worker may be at this very decode already: waiting for it beats doing it twice.
    if (imageCache->isDecodingForView(path))
        imageCache->waitForRunning();
    DecodedImage image = imageCache->find(path);
    if (image.isNull()) {
        // Not decoded ahead (a jump, or keys faster than the worker): what the view
        // needs now, and the full resolution from the worker later.
        image = ImageDecode::decode(path, imageCache->viewSize(), false);
        imageCache->insert(image);
    }
    return image;
}

void MainWindow::showDecoded(const DecodedImage& image)
{
    const QImage& first = image.reduced.isNull() ? image.full : image.reduced;
    canvas->setImage(QPixmap::fromImage(first), image.fullSize);
    if (image.isFull() && !image.reduced.isNull()) {
        // Painted first from the reduced copy; the full resolution follows once the
        // window has shown it.
        const QString path = image.path;
        QMetaObject::invokeMethod(this, [this, path] { onImageDecoded(path); }, Qt::QueuedConnection);
    }
}

void MainWindow::onImageDecoded(const QString& path)
{
    if (!hasCurrentImage() || images[currentIndex].imagePath != path || canvas->hasFullResolution())
        return;
    const DecodedImage image = imageCache->find(path);
    // A decode of another version of the file (changed since it was shown) does not
    // slip in under the shapes.
    if (!image.isFull() || image.fullSize != canvas->imageSize())
        return;
    canvas->setFullResolution(QPixmap::fromImage(image.full));
}

void MainWindow::prefetchAround(int row)
{
    const int step = row < lastShownRow ? -1 : 1;
    lastShownRow = row;
    QStringList wanted;
    for (int next : {row, row + step, row + 2 * step, row - step}) {
        if (next >= 0 && next < images.size())
            wanted.append(images.at(next).imagePath);
    }
    imageCache->want(wanted);
}
