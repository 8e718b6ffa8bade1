#pragma once

// Files and descriptions shared by the tests of the core library (header-only: those
// tests link only brindle_core).

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

#include "model/labelpalette.h"
#include "support/coretable.h"
#include "support/records.h"

#define BYTES(literal) QByteArray(literal, sizeof(literal) - 1)

inline QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// A white w x h image file (black in its first `black` columns).
inline bool saveImage(const QString& path, int w, int h, int black = 0)
{
    QImage img(w, h, QImage::Format_RGB32);
    img.fill(Qt::white);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < qMin(black, w); ++x)
            img.setPixel(x, y, qRgb(0, 0, 0));
    return img.save(path);
}

// Every file under folder, relative to it, sorted.
inline QStringList filesUnder(const QString& folder)
{
    QStringList out;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        out << QDir(folder).relativeFilePath(it.next());
    out.sort();
    return out;
}

inline BoxAnnotation ellipse(const QPointF& c, double rx, double ry, double angle = 0, const QString& label = "a")
{
    BoxAnnotation b = shape(label, ShapeType::Ellipse, {c, QPointF(rx, ry)});
    b.angle = angle;
    return b;
}

inline BoxAnnotation rotated(const QPointF& c, double w, double h, double angle, const QString& label = "a")
{
    BoxAnnotation b = shape(label, ShapeType::RotatedBox, rotatedBoxCorners(c, w, h, angle));
    b.angle = angle;
    return b;
}

// Labels with the palette colours of their positions.
inline QList<LabelDef> labelList(const QStringList& names)
{
    QList<LabelDef> labels;
    for (const QString& n : names)
        LabelPalette::appendIfMissing(labels, n);
    return labels;
}

// "label:(x,y)-(x,y)", with angle and visibility only where they differ from the default.
inline QString describe(const BoxAnnotation& b)
{
    QStringList pts;
    for (const QPointF& p : b.points)
        pts << QStringLiteral("(%1,%2)").arg(p.x(), 0, 'g', 17).arg(p.y(), 0, 'g', 17);
    QString s = b.label + ':' + pts.join('-');
    if (b.type != ShapeType::BoundingBox)
        s += QStringLiteral(" ") + shapeTypeWord(b.type);
    if (b.angle != 0)
        s += QStringLiteral(" angle=%1").arg(b.angle, 0, 'g', 17);
    if (!b.visible)
        s += QStringLiteral(" hidden");
    return s;
}

inline QStringList describe(const QList<BoxAnnotation>& boxes)
{
    QStringList out;
    for (const BoxAnnotation& b : boxes)
        out << describe(b);
    return out;
}

// "image:" + describe(box) for every box, image by image.
inline QStringList describe(const QList<ImageAnnotations>& images)
{
    QStringList out;
    for (int i = 0; i < images.size(); ++i)
        for (const BoxAnnotation& b : images.at(i).boxes)
            out << QString::number(i) + ':' + describe(b);
    return out;
}

// So that QCOMPARE shows the shapes that differ.
inline char* toString(const BoxAnnotation& b)
{
    return QTest::toString(describe(b));
}
