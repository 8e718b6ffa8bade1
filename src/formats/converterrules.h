#pragma once

#include <QHash>
#include <QList>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QStringView>

#include "model/annotation.h"

class AtomicBatch;

// Rules shared by every converter.
namespace ConverterRules {

// The record's size when both sides are at least 1; otherwise the size of the image
// file read from its header with the EXIF orientation applied (a 90-degree turn swaps
// width and height); 1 x 1 when the file cannot be read. Nothing is stored back.
QSize imageSize(const ImageAnnotations& image);
// Size of an image file from its header, oriented; the image is decoded only when its
// header gives no size. An invalid size when the file cannot be read.
QSize imageFileSize(const QString& path);

// Integer rectangle of any shape from its first two points (see integerRect); the
// empty rectangle (0, 0, -1, -1) with fewer than two points.
QRect shapeRect(const BoxAnnotation& box);

// Position of the first label with exactly this name, -1 when there is none.
int labelIndex(const QList<LabelDef>& labels, const QString& name);

// Complete base name of each image path -> index in the list; later images win.
QHash<QString, int> buildBaseNameIndex(const QList<ImageAnnotations>& images);

// Appends the label with the palette colour of its position unless it exists.
void ensureLabel(QList<LabelDef>& labels, const QString& name);

// A bounding box with corners (left, top) and (right, bottom).
BoxAnnotation makeImportedBox(const QString& label, const QRect& rect);

// Normalises the rectangle, then limits it to 0 .. W-1, 0 .. H-1.
QRect clampToImage(const QRect& rect, int width, int height);

// Converts a parsed number to int without undefined behaviour: rounded to the nearest
// integer (halves away from zero), non-finite values give 0, values beyond the int
// range saturate.
int toIntSafe(double value);
// Truncation toward zero, saturating; non-finite gives 0.
int truncSafe(double value);

// A text field read as a double: 0 when it is not a number or not finite ("nan",
// "inf", or a literal too large for a double).
double parseNumber(QStringView text);
// A text field read as a base-10 int: 0 when it is not one or does not fit.
int parseInt(QStringView text);

// The bytes of a file to import: a regular file of at most 1 GB; false otherwise.
bool readImportFile(const QString& path, QByteArray* bytes);

// Lines of a text file read as UTF-8 (a leading byte order mark dropped, "\r\n" taken
// as "\n", invalid bytes replaced); false when the file cannot be opened.
bool readTextLines(const QString& path, QStringList* lines);

// Appends imported bounding boxes to image records: clamps each rectangle to its
// image (whose size is looked up at most once per import) and marks the record dirty.
class BoxImporter {
public:
    explicit BoxImporter(QList<ImageAnnotations>& images) : m_images(images) {}
    void add(int imageIndex, const QString& label, const QRect& rect);

private:
    QList<ImageAnnotations>& m_images;
    QHash<int, QSize> m_sizes;
};

// Writes bytes to path atomically (temporary file renamed over the target); on failure
// the old file is left as it was and *error holds the system's reason.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);

// What an export that writes many files adds to its message when some could not be
// written: empty when all were.
QString unwrittenNote(const AtomicBatch& batch, int alsoFailed = 0, const QString& alsoReason = QString());


} // namespace ConverterRules
