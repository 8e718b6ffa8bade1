#pragma once

// Shared pieces of the import fuzzers: a scratch folder, writing the input to a file,
// and records of known size (so no image file is ever read).

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include "model/annotation.h"

inline QTemporaryDir& workDir()
{
    static QTemporaryDir dir;
    return dir;
}

// A fresh file each run: truncating and rewriting makes some file systems flush to
// disk on close.
inline bool writeInput(const QString& path, const char* data, qsizetype size)
{
    QFile::remove(path);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data, size) == size;
}

inline ImageAnnotations record(const QString& path, int w, int h)
{
    ImageAnnotations img;
    img.imagePath = path;
    img.width = w;
    img.height = h;
    return img;
}
