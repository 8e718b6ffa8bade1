#pragma once

#include <functional>

#include <QList>

#include "model/annotation.h"

// Brings records that were never shown up to date with their files, so that a command
// working on the whole dataset (an export, a rename) sees every shape on disk and not
// only those of the images opened so far.
namespace DatasetReading {

// Told the number of records done and the total after each one; returning false stops
// the reading (the records done so far keep what was read).
using Progress = std::function<bool(int done, int total)>;

struct Options {
    // Also give every record that holds shapes but no size the size of its image, read
    // from the file header (oriented), as the canvas would store it.
    bool imageSizes = false;
};

struct Outcome {
    int done = 0;
    bool cancelled = false;
    // Records whose file stopped at an XML error; they keep the shapes read before it.
    QList<int> incomplete;
};

// Indices of the records the reading would touch: those holding no shapes whose
// annotation file exists and, with imageSizes, those holding shapes without a size.
QList<int> recordsToRead(const QList<ImageAnnotations>& images, const Options& options);

// Reads the given records: the annotation file of a record holding no shapes (as showing
// the image would), then its image size when asked for.
Outcome readRecords(QList<ImageAnnotations>& images, const QList<int>& indices,
                    const Options& options, const Progress& progress = {});

} // namespace DatasetReading
