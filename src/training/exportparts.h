#pragma once

// Pieces shared by the training export's engine and its layouts (not for other users).

#include <QByteArray>
#include <QPolygonF>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QStringList>

#include "model/annotation.h"
#include "training/trainingexport.h"

namespace TrainingExport::Parts {

// One shape reduced to what a layout carries, in pixels, clipped to the image.
struct Converted {
    QString leftOut;  // the reason, empty when the shape is written
    bool clipped = false;
    QRectF box;        // the clipped bounds of the whole shape
    QPolygonF polygon; // segment and COCO: the clipped outline; OBB: four corners
    bool boxOnly = false; // COCO: the outline is the box (boxes, lines, cuboids)
};

Converted convert(const BoxAnnotation& shape, Layout layout, const QRectF& image);

// A keypoint slot as written: placed inside the image, or absent.
struct Slot {
    bool placed = false;
    bool visible = true;
    QPointF point;
};

// The keypoints of an image for one shape: for each name of `order` the keypoint of that
// label nearest to the centre of the shape's bounds, within 30 px around them (on equal
// distance the earlier one). `used` flags the keypoints placed.
QList<Slot> placeKeypoints(const QRectF& bounds, const QStringList& order,
                           const QList<BoxAnnotation>& shapes, const QRectF& image,
                           QList<bool>& used);

// --- Ultralytics (ultralytics.cpp) ----------------------------------------------------

// The text of a label line after its class index ("" for a shape left out).
QByteArray ultralyticsLine(Layout layout, const Converted& shape, const QSize& size,
                           const QList<Slot>& keypoints, int keypointCount);
// data.yaml: path, train, val, test when used, names, kpt_shape for pose (K >= 0).
QByteArray dataYaml(const QString& outputFolder, const QStringList& names, bool testUsed,
                    int keypointCount);

// --- COCO instances (cocoinstances.cpp) -----------------------------------------------

// The fields of an annotation after its id, image id and category id.
QByteArray cocoAnnotationFields(const Converted& shape, const QList<Slot>* keypoints);
// The entry of an annotation after its id.
QByteArray cocoAnnotationRest(int imageId, int categoryId, const QByteArray& fields);
QByteArray cocoImageEntry(int imageId, const QString& fileName, const QSize& size);
QByteArray cocoCategories(const QStringList& names, const QMap<QString, QStringList>& keypointOrder);

// Writes one COCO file as entries arrive: annotations go straight into a temporary file
// beside the target, images are kept (they are small) and written after them.
class CocoFile {
public:
    explicit CocoFile(const QString& path);
    ~CocoFile();
    bool open(QString* error);
    void addImage(const QByteArray& entry);
    // Gives the annotation its running id; `rest` is the entry after its id:
    // "\"image_id\": 1, ... }".
    void addAnnotation(const QByteArray& rest);
    bool finish(const QByteArray& categories, QString* error);

private:
    struct Private;
    Private* d;
};

// Joins shard files of one subset into `target`; false with *error when they disagree.
bool mergeCocoFiles(const QStringList& shardFiles, const QString& target, QString* error);

// --- Files (exportfiles.cpp) ----------------------------------------------------------

// Writes bytes to path: in place when there was no file, else through a temporary file
// renamed over it, so an earlier export is never left half-replaced.
bool writeFile(const QString& path, const QByteArray& bytes, QString* error);
enum class ImageWrite { Copied, Linked, CopiedForLink, Reoriented, Failed };
// Puts an image at target: its bytes (copied or hard-linked), or, when `turned`, the
// picture with its orientation applied, in the same format.
ImageWrite writeImage(const QString& source, const QString& target, bool link, bool turned,
                      QString* error);
// Flushes the file system holding `folder` once.
void syncFolder(const QString& folder);

// "1,234"
QString grouped(int n);
// Fixed-point with 6 decimals, never "-0.000000".
void appendFixed6(QByteArray& out, double value);
// Shortest text that reads back as the same double, without an exponent.
void appendNumber(QByteArray& out, double value);
// A JSON string literal.
void appendJsonString(QByteArray& out, const QString& text);

} // namespace TrainingExport::Parts
