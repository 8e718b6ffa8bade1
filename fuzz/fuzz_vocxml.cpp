#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "model/vocxml.h"

namespace {

QByteArray write(const QList<BoxAnnotation>& boxes)
{
    ImageAnnotations ann;
    ann.imagePath = QStringLiteral("/images/a.jpg");
    ann.width = 640;
    ann.height = 480;
    ann.boxes = boxes;
    return VocXml::toXml(ann, QStringLiteral("images"));
}

[[noreturn]] void fail(const char* what, const QByteArray& xml)
{
    std::fprintf(stderr, "%s\n%.*s\n", what, int(xml.size()), xml.constData());
    std::abort();
}

} // namespace

// Reads arbitrary bytes the same way by both readers; whatever was read (also before an
// error) must write out as a file that reads back, and from then on writing and reading
// must be stable.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    QList<BoxAnnotation> boxes;
    const bool whole = VocXml::loadFromData(input, boxes);
    // The fast path for plain files must read exactly what QXmlStreamReader reads.
    QList<BoxAnnotation> general;
    if (VocXml::loadWithStreamReader(input, general) != whole || general != boxes)
        fail("the fast reader and QXmlStreamReader disagree", input);

    const QByteArray first = write(boxes);
    QList<BoxAnnotation> again;
    if (!VocXml::loadFromData(first, again))
        fail("written file does not read back", first);

    const QByteArray second = write(again);
    QList<BoxAnnotation> third;
    if (!VocXml::loadFromData(second, third) || third.size() != again.size())
        fail("rewritten file does not read back", second);
    if (write(third) != second)
        fail("writing is not stable", second);
    return 0;
}
