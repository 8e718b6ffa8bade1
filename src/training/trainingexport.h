#pragma once

#include <functional>

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// Exports that a trainer reads as they are: the four Ultralytics YOLO layouts and COCO
// instances, each with its images split into train / val / test. Shapes are reduced to
// what the layout can carry, clipped to their image; what is clipped or left out is
// counted and reported. Nothing of the dataset is changed.
namespace TrainingExport {

enum class Layout {
    UltralyticsDetect,
    UltralyticsSegment,
    UltralyticsObb,
    UltralyticsPose,
    CocoInstances,
};

QString layoutName(Layout layout); // "ultralytics-detect" ... "coco-instances"
bool layoutFromName(const QString& name, Layout* layout);
QStringList layoutNames();

enum class ImageMode { Copy, Link };

struct Options {
    Layout layout = Layout::UltralyticsDetect;
    QString outputFolder;
    double valPercent = 20;
    double testPercent = 0;
    quint64 seed = 0;
    ImageMode images = ImageMode::Copy;
    // The pose classes: per class name, its keypoint labels in slot order.
    QMap<QString, QStringList> keypointOrder;
    // Grow the label list with the names each file holds, in dataset order, as the
    // window's label scan does (brindle-convert without a class file).
    bool scanLabels = false;
    // When not empty, one flag per record: only flagged records are exported; the others
    // are only scanned for label names.
    QList<bool> selected;
    // A shard of a larger export: COCO files get the shard's name, data.yaml is left to
    // merge, and a note of the shard is left for it.
    QString shard;
    // Count everything, write nothing.
    bool dryRun = false;
};

// Why shapes or images are left out, as keys of Summary's maps.
namespace Reason {
inline const QString Degenerate = QStringLiteral("degenerate");
inline const QString Empty = QStringLiteral("empty-after-clipping");
inline const QString NotOutline = QStringLiteral("not-an-outline");
inline const QString Keypoint = QStringLiteral("keypoint-without-box");
inline const QString UnplacedKeypoint = QStringLiteral("keypoint-not-placed");
inline const QString UnknownLabel = QStringLiteral("label-not-in-class-list");
inline const QString UnreadableImage = QStringLiteral("unreadable-image");
inline const QString WriteFailed = QStringLiteral("write-failed");
} // namespace Reason

struct Summary {
    Layout layout = Layout::UltralyticsDetect;
    QString outputFolder;
    bool ok = true;        // false when files could not be written
    bool cancelled = false;
    QString error;         // the first write failure
    int images[3] = {0, 0, 0}; // written per subset: train, val, test
    bool testUsed = false;
    QMap<QString, int> imagesLeftOut;
    int shapesWritten = 0;
    int shapesClipped = 0; // written, cut to their image
    QMap<QString, int> shapesLeftOut;
    int keypointsPlaced = 0;
    int linkedAsCopies = 0; // images copied because the file system refused a link
    int reoriented = 0;     // images written with their EXIF orientation applied

    int imagesWritten() const { return images[0] + images[1] + images[2]; }
    int shapesLeftOutTotal() const;
    // Several lines: what was written, clipped and left out, and why.
    QString text() const;
    QJsonObject toJson() const;
    static Summary fromJson(const QJsonObject& json);
    void add(const Summary& other);
};

using Progress = std::function<bool(int done, int total)>;

// Exports `records` (shapes held in memory win over their files). `labels` gives the
// class indices: a label's index is its first position in the list; shapes whose label
// is not in it are left out. With options.scanLabels the list grows as files are read.
Summary run(const QList<ImageAnnotations>& records, QList<LabelDef>& labels,
            const Options& options, const Progress& progress = {});

// Joins the shards exported into `outputFolder` into the files one run over the whole
// dataset writes (byte for byte): data.yaml for the Ultralytics layouts, the COCO files
// without their shard names. Returns false with *error when there is nothing to merge or
// the shards do not fit together.
bool merge(const QString& outputFolder, Summary* summary, QString* error);

// The keypoint order the pose export proposes when none is given: every class of
// bounding boxes gets every keypoint label, both sorted. Reads the records' files.
QMap<QString, QStringList> defaultKeypointOrder(const QList<ImageAnnotations>& records,
                                                const Progress& progress = {});

// The text of a YAML double-quoted scalar that reads back as exactly `text`.
QString yamlQuoted(const QString& text);

} // namespace TrainingExport
