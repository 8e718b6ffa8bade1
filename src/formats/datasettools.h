#pragma once

#include <functional>

#include <QList>
#include <QSize>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// The dataset tools behind the Edit menu's split and conversion commands, and the
// pieces of the collage export that its command needs too. Progress callbacks get
// (steps done, steps in all) before each step and return false to stop there; an empty
// callback is not called.
namespace DatasetTools {

using Progress = std::function<bool(int, int)>;

// True when the record holds shapes or its annotation file exists.
bool isAnnotated(const ImageAnnotations& image);
int annotatedCount(const QList<ImageAnnotations>& images);
// Number of records whose annotation file exists on disk.
int annotationFileCount(const QList<ImageAnnotations>& images);

// --- Train/test split ---------------------------------------------------------------

// 0 .. count-1 shuffled by Fisher-Yates with the C generator seeded by `seed`:
// for i from count-1 down to 1, swap i with rand() % (i + 1).
QList<int> shuffledOrder(int count, unsigned seed);
// trunc(count * trainPercent / 100 + 0.5), at least 1.
int trainCount(int count, int trainPercent);
// The current time in milliseconds since the epoch, cut to 32 bits.
unsigned clockSeed();

// One image of the split: its image file and, when the image has one, its annotation
// file, with the targets they are copied to.
struct SplitItem {
    QString imageSource;
    QString imageTarget;
    QString xmlSource; // copied when the file exists
    QString xmlTarget;
};

struct SplitPlan {
    QStringList folders;    // Train/images, Train/annotations, Test/images, Test/annotations
    QList<SplitItem> items; // in shuffled order, the Train images first
    int train = 0;          // images assigned to Train
    int test = 0;           // images assigned to Test
};

SplitPlan planSplit(const QList<ImageAnnotations>& images, int trainPercent,
                    const QString& outputFolder, unsigned seed);

struct CopyOutcome {
    int copied = 0;     // files copied
    int failed = 0;     // files that could not be copied
    int imagesDone = 0; // images whose files were copied (or tried)
    bool cancelled = false;
};

// Creates the plan's folders and copies its files; a file that cannot be copied is
// counted and the run goes on. Progress counts images.
CopyOutcome runSplit(const SplitPlan& plan, const Progress& progress = {});

enum class CopyResult { Copied, NoSource, Failed };

// Copies the bytes of source to target. The target ends up either as a whole copy or as
// it was: an existing target is replaced through a temporary file beside it.
CopyResult copyFileBytes(const QString& source, const QString& target);

// --- Box <-> keypoint conversion ------------------------------------------------------

enum class Conversion { BoxesToKeypoints, KeypointsToBoxes };

// "key_points" or "bounding_boxes" beside the annotations folder.
QString conversionFolder(const QString& annotationsFolder, Conversion conversion);

// The converted shapes of one record, in order: a keypoint at the centre of each
// bounding box, or a box of half-size `radius` around each keypoint, limited to the
// record's width and height when they are known.
QList<BoxAnnotation> convertShapes(const QList<BoxAnnotation>& shapes, Conversion conversion,
                                   int radius, int width, int height);

struct ConversionOutcome {
    int processed = 0; // images whose output file was written (or tried)
    int created = 0;   // shapes in the written files
    int skipped = 0;   // images with an annotation file but nothing to convert
    int failed = 0;    // output files that could not be written
    bool cancelled = false;
};

// Converts every record whose annotation file exists (shapes in memory win over the
// file) and writes one file per converted image into outputFolder, replacing each one
// atomically. `folderName` goes into the files' folder element. Progress counts images.
ConversionOutcome convertDataset(const QList<ImageAnnotations>& images, Conversion conversion,
                                 int radius, const QString& outputFolder,
                                 const QString& folderName, const Progress& progress = {});

// --- Collage geometry -----------------------------------------------------------------

// Grid columns for n images: ceil(sqrt(n)).
int collageColumns(int n);
// Canvas size for n images: columns x 1288 + 8 by rows x 1032 + 8.
QSize collageCanvasSize(int n);
// The largest canvas, in bytes, that the collage export builds: the free memory the
// system reports, less room for reading one image; 2 GiB when it reports none.
qint64 collageCanvasLimit();

} // namespace DatasetTools
