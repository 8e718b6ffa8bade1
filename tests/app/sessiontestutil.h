#pragma once

// Small helpers shared by the session tests: images and annotation files made on the
// spot, and a way to make a shape change look like one the canvas made itself.

#include <QBuffer>
#include <QByteArray>
#include <QColor>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QString>
#include <QStringList>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "canvas/imagecanvas.h"
#include "model/annotation.h"

namespace sessiontest {

inline bool writeImage(const QString& path, int w = 8, int h = 6, QColor color = Qt::darkCyan,
                       const char* format = nullptr)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(color);
    return image.save(path, format);
}

// The bytes of a 1x1 PNG, for datasets with many images.
inline QByteArray tinyPng()
{
    QImage image(1, 1, QImage::Format_RGB32);
    image.fill(Qt::gray);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

inline bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

inline QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// An image file the session can list and show: in the format its suffix names when Qt
// writes that format, else PNG bytes (the reader recognises them by content).
inline bool makeImageFile(const QString& path)
{
    return writeImage(path) || writeBytes(path, tinyPng());
}

inline QString imageStatus(int number, int count, const QString& name, int w, int h, int shapes)
{
    const QString tail = shapes > 0 ? QStringLiteral("%1 annotation(s) - saved").arg(shapes)
                                    : QStringLiteral("No annotations");
    return QStringLiteral("Image %1 / %2   |   %3   |   %4 x %5 px   |   %6")
        .arg(number)
        .arg(count)
        .arg(name)
        .arg(w)
        .arg(h)
        .arg(tail);
}

inline BoxAnnotation box(const QString& label, double x1, double y1, double x2, double y2)
{
    BoxAnnotation b;
    b.label = label;
    b.type = ShapeType::BoundingBox;
    b.points = {QPointF(x1, y1), QPointF(x2, y2)};
    return b;
}

// What the canvas does around an edit: aboutToChange before, boxesChanged after.
inline void editShapes(MainWindow& w, const QList<BoxAnnotation>& shapes)
{
    Q_EMIT w.canvas->aboutToChange();
    w.canvas->setBoxes(shapes);
    Q_EMIT w.canvas->boxesChanged();
}

inline QStringList rowTexts(const MainWindow& w)
{
    QStringList texts;
    for (int i = 0; i < w.imageList->count(); ++i)
        texts << w.imageList->item(i)->text();
    return texts;
}

inline QString status(const MainWindow& w) { return w.statusLabel->text(); }

// True once the background scan has gone past the last image.
inline bool scanDone(const MainWindow& w) { return w.scanIndex >= w.images.size(); }

} // namespace sessiontest
