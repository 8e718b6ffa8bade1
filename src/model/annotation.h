#pragma once

#include <QColor>
#include <QList>
#include <QPointF>
#include <QRect>
#include <QString>
#include <QStringView>

enum class ShapeType : int {
    BoundingBox = 0,
    Polygon = 1,
    Line = 2,
    Keypoint = 3,
    RotatedBox = 4,
    Cuboid = 5,
    Ellipse = 6,
};

// One shape with its label. Coordinates are image pixels (origin top-left, y down);
// angles are degrees, positive clockwise on screen.
//  BoundingBox: 2 opposite corners, any order; the larger corner is the last pixel covered.
//  Polygon: vertices in order.       Line: start, end.       Keypoint: 1 point + visible.
//  RotatedBox: 4 corners + angle.    Cuboid: front face 0-3, back face 4-7.
//  Ellipse: points[0] = centre, points[1] = (rx, ry) semi-axes; angle tilts the rx axis.
struct BoxAnnotation {
    QString label;
    ShapeType type = ShapeType::BoundingBox;
    QList<QPointF> points;
    bool visible = true;
    double angle = 0.0;

    // Integer rectangle of a bounding box from its first two points (truncated toward
    // zero, right/bottom inclusive); the null rectangle (0, 0, -1, -1) with fewer points.
    QRect rect() const;
    // Stores the corners (left, top) and (right, bottom) of an integer rectangle.
    void setRect(const QRect& r);
    // Integer bounding rectangle of all points (any kind); null rectangle without points.
    QRect boundingRect() const;
    // Mean of all points: the pivot for rotation.
    QPointF centroid() const;

    bool operator==(const BoxAnnotation& o) const;
    bool operator!=(const BoxAnnotation& o) const { return !(*this == o); }
};

// What this session last knew of an annotation file on disk, so that a file changed by
// another program since is noticed before it is written over.
struct FileStamp {
    enum State : quint8 {
        Unknown, // never looked at
        Missing, // looked at: there was no file
        Known,   // read or written by this session, as described below
    };
    State state = Unknown;
    qint64 size = 0;
    qint64 mtimeNs = 0;
    quint64 inode = 0;

    bool operator==(const FileStamp& o) const
    {
        return state == o.state && size == o.size && mtimeNs == o.mtimeNs && inode == o.inode;
    }
    bool operator!=(const FileStamp& o) const { return !(*this == o); }
};

struct ImageAnnotations {
    QString imagePath;
    QString xmlPath;
    int width = 0;
    int height = 0;
    QList<BoxAnnotation> boxes;
    bool dirty = false;
    // The last read of xmlPath stopped at an XML error: the file holds more than `boxes`,
    // and its bytes are kept beside it before it is first written over.
    bool partial = false;
    // The last write of xmlPath failed: what is on disk is not what the record holds.
    bool writeFailed = false;
    FileStamp stamp;
};

struct LabelDef {
    QString name;
    QColor color;
};

// Integer rectangle spanned by two corners in any order: truncation toward zero,
// the larger corner being the last covered pixel. Coordinates that are not finite count
// as 0 and huge ones are clamped to +/-(2^30 - 1), so the result and its width stay in int.
QRect integerRect(const QPointF& a, const QPointF& b);
// Integer bounding rectangle of a point list (left/top truncated, width/height the
// truncated extents); the null rectangle for an empty list. Non-finite and huge values
// are treated as in integerRect.
QRect pointsBoundingRect(const QList<QPointF>& points);
// The four corners of a w x h rectangle centred at `centre` and turned by angleDegrees
// (clockwise on screen). At angle 0: top-left, top-right, bottom-right, bottom-left.
QList<QPointF> rotatedBoxCorners(const QPointF& centre, double w, double h, double angleDegrees);

// A label name as one line: every control character (line breaks, tabs ...) and the
// Unicode line and paragraph separators become a blank. Applied wherever a name is read
// from a file or typed.
QString cleanLabelName(const QString& name);

// The word naming a kind in annotation files ("bndbox", "polygon", "line", "keypoint",
// "rotatedbox", "cuboid", "ellipse"), and back; an unknown word (compared
// case-sensitively) gives BoundingBox.
const char* shapeTypeWord(ShapeType t);
ShapeType shapeTypeFromWord(QStringView word);
