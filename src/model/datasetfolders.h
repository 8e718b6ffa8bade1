#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// The files a dataset is made of: the images directly in the images folder and one
// annotation file per image in the annotations folder, named after the image without its
// last suffix.
namespace DatasetFolders {

// *.jpg, *.jpeg, *.png, *.bmp, *.gif, *.tiff (letter case ignored).
const QStringList& imageFilePatterns();

// File names of the images directly in `folder`: plain, non-hidden files matching the
// patterns, sorted case-sensitively (upper-case letters first).
QStringList listImageFiles(const QString& folder);

// One record per listed image, in list order: its absolute path and the path of its
// annotation file; no shapes, no size.
QList<ImageAnnotations> records(const QString& imagesFolder, const QString& annotationsFolder,
                                const QStringList& imageFiles);

// File names of the annotation files directly in `folder` (names ending in ".xml"),
// sorted. Sub-folders are never looked into.
QStringList listAnnotationFiles(const QString& folder);

} // namespace DatasetFolders
