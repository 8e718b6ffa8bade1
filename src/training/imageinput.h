#pragma once

#include <QList>
#include <QSize>
#include <QString>
#include <QStringList>

#include "model/annotation.h"

// What the dataset check and the training exports need to know of one image: its shapes
// (those held in memory, else those of its annotation file), the state of that file, and
// the image's size as trainers see it (EXIF orientation applied).
namespace ImageInput {

struct Request {
    bool scanNames = false;    // the label names the window's label scan finds in the file
    bool recordedSize = false; // the size written into the annotation file
    bool structure = false;    // judge from the file's structure whether it decodes whole
                               // (decoding the formats without such a rule)
    bool decode = false;       // decode the image too (slow on big images)
};

enum class XmlState {
    None,       // no annotation file and no shapes in memory
    Read,       // read whole, or shapes held in memory
    Partial,    // stopped at an XML error; the shapes before it are kept
    Unreadable, // exists but cannot be opened or is not a regular file
};

enum class ImageState { Readable, Missing, Unreadable };

struct Input {
    QList<BoxAnnotation> shapes;
    XmlState xml = XmlState::None;
    QStringList scanNames;
    QSize recordedSize; // invalid when not asked for or not in the file

    ImageState image = ImageState::Readable;
    QSize imageSize;          // oriented; invalid when the image cannot be read
    bool turned = false;      // the EXIF orientation is other than 1
    QString damage;           // why an Unreadable image is, when known
};

Input read(const ImageAnnotations& record, const Request& request);

// The size an annotation file records in <size><width>/<height>, invalid when absent.
QSize recordedSize(const QByteArray& xml);

} // namespace ImageInput
