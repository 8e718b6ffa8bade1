#pragma once

// Small builders for annotation records, shared by the tests of the core library
// (header-only, so tests that link only brindle_core can use it).

#include <QList>
#include <QPointF>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

inline BoxAnnotation shape(const QString& label, ShapeType type, const QList<QPointF>& points)
{
    BoxAnnotation b;
    b.label = label;
    b.type = type;
    b.points = points;
    return b;
}

inline BoxAnnotation box(const QString& label, double x0, double y0, double x1, double y1)
{
    return shape(label, ShapeType::BoundingBox, {QPointF(x0, y0), QPointF(x1, y1)});
}

// A record with a known image size (so converters read no image file).
inline ImageAnnotations image(const QString& path, int w, int h,
                              const QList<BoxAnnotation>& boxes = {})
{
    ImageAnnotations img;
    img.imagePath = path;
    img.width = w;
    img.height = h;
    img.boxes = boxes;
    return img;
}

inline QStringList labelNames(const QList<LabelDef>& labels)
{
    QStringList names;
    for (const LabelDef& l : labels)
        names << l.name;
    return names;
}
