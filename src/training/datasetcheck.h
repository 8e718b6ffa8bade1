#pragma once

#include <functional>

#include <QJsonObject>
#include <QList>
#include <QString>

#include "model/annotation.h"

// The dataset check: reads every annotation file of a dataset (shapes held in memory win
// over the file) and every image, and reports what would hurt training. Used by the
// window's "Check Dataset..." and by brindle-convert.
namespace DatasetCheck {

enum class Severity { Error, Warning };

struct Problem {
    QString code;     // "outside", "outside-all", "degenerate", "unknown-label", "duplicate",
                      // "missing-image", "unreadable-image", "unreadable-xml", "size-mismatch"
    Severity severity = Severity::Error;
    int record = -1;  // index of the image in the records; -1 for an annotation file alone
    QString image;    // the image's file name, or the annotation file's for missing-image
    int shape = -1;   // the shape's index in its file; -1 when the problem is the file's
    QString message;  // one sentence
};

struct Options {
    // Grow the label list with the names each file holds, in dataset order, as the
    // window's label scan does (brindle-convert, which starts from the label file).
    bool scanLabels = false;
    // Decode every image as well. Without it an image counts as readable when its header
    // reads and its file is whole (not cut off); damage inside the compressed pixels of
    // a whole file is found only by decoding, at ten times the cost.
    bool decodeImages = false;
};

struct Report {
    QList<Problem> problems; // dataset order: the images' problems, then annotation files
                             // without an image
    int images = 0;
    int shapes = 0;
    int imagesWithoutShapes = 0;
    bool cancelled = false;

    int errors() const;
    int warnings() const;
    // "2 errors, 1 warning in 120 images (3 without shapes)."
    QString summary() const;
    QJsonObject toJson() const;
};

using Progress = std::function<bool(int done, int total)>;

// `annotationsFolder` is searched (not its sub-folders) for annotation files whose image
// is gone.
Report run(const QList<ImageAnnotations>& records, QList<LabelDef>& labels,
           const QString& annotationsFolder, const Options& options = {},
           const Progress& progress = {});

QString severityName(Severity severity); // "error", "warning"

} // namespace DatasetCheck
