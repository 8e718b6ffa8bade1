#pragma once

#include <QByteArray>
#include <QSize>
#include <QString>

// Whether an image file is whole, judged from its structure and not by decoding its
// pixels: the damage seen in real datasets is a file cut off in a copy or a download,
// which a JPEG decoder even passes with grey rows. Costs a few reads of the file's head
// and tail; only an unusual file (bytes after its end marker) is read through.
namespace ImageStructure {

enum class Verdict {
    Whole,     // the structure is sound
    Damaged,   // the file cannot decode whole; see the reason
    Unchecked, // no rule for this format: only a decode can tell
};

struct Result {
    Verdict verdict = Verdict::Unchecked;
    QString reason; // for Damaged: a sentence, e.g. "The JPEG file is cut off: ..."
};

// `format` is the one QImageReader detected ("jpeg", "png", ...); `size` the size its
// header gives, as stored.
Result check(const QString& path, const QByteArray& format, const QSize& size);

} // namespace ImageStructure
