#pragma once

// Colours compared with room for smoothing and compression.

#include <QColor>
#include <QtGlobal>

inline bool near(const QColor& a, const QColor& b, int tolerance)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance
           && qAbs(a.blue() - b.blue()) <= tolerance;
}
