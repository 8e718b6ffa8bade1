// The four Ultralytics YOLO layouts: label lines and data.yaml.

#include "training/exportparts.h"

#include <algorithm>

namespace TrainingExport {

namespace {

void appendPoint(QByteArray& out, const QPointF& p, const QSize& size)
{
    out += ' ';
    Parts::appendFixed6(out, std::clamp(p.x() / size.width(), 0.0, 1.0));
    out += ' ';
    Parts::appendFixed6(out, std::clamp(p.y() / size.height(), 0.0, 1.0));
}

QString hexEscape(char kind, uint code, int digits)
{
    return QString(QLatin1Char('\\')) + QLatin1Char(kind)
        + QStringLiteral("%1").arg(code, digits, 16, QLatin1Char('0')).toUpper();
}

} // namespace

QString yamlQuoted(const QString& text)
{
    QString out = QStringLiteral("\"");
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar ch = text.at(i);
        const char16_t c = ch.unicode();
        if (ch.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            out += ch;
            out += text.at(++i);
            continue;
        }
        switch (c) {
        case u'"': out += QLatin1String("\\\""); continue;
        case u'\\': out += QLatin1String("\\\\"); continue;
        case u'\t': out += QLatin1String("\\t"); continue;
        case u'\n': out += QLatin1String("\\n"); continue;
        case u'\r': out += QLatin1String("\\r"); continue;
        case 0x85: out += QLatin1String("\\N"); continue;
        case 0x2028: out += QLatin1String("\\L"); continue;
        case 0x2029: out += QLatin1String("\\P"); continue;
        default: break;
        }
        // Everything a YAML reader may refuse or fold: control characters, the C1 range,
        // lone surrogates, the byte order mark and the two non-characters.
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F))
            out += hexEscape('x', c, 2);
        else if (ch.isSurrogate() || c == 0xFEFF || c == 0xFFFE || c == 0xFFFF)
            out += hexEscape('u', c, 4);
        else
            out += ch;
    }
    out += QLatin1Char('"');
    return out;
}

namespace Parts {

QByteArray ultralyticsLine(Layout layout, const Converted& shape, const QSize& size,
                           const QList<Slot>& keypoints, int keypointCount)
{
    QByteArray out;
    if (!shape.leftOut.isEmpty())
        return out;
    switch (layout) {
    case Layout::UltralyticsSegment:
    case Layout::UltralyticsObb:
        for (const QPointF& p : shape.polygon)
            appendPoint(out, p, size);
        break;
    case Layout::UltralyticsDetect:
    case Layout::UltralyticsPose:
        appendPoint(out, shape.box.center(), size);
        out += ' ';
        appendFixed6(out, std::clamp(shape.box.width() / size.width(), 0.0, 1.0));
        out += ' ';
        appendFixed6(out, std::clamp(shape.box.height() / size.height(), 0.0, 1.0));
        if (layout == Layout::UltralyticsPose) {
            for (int k = 0; k < keypointCount; ++k) {
                if (k < keypoints.size() && keypoints.at(k).placed) {
                    appendPoint(out, keypoints.at(k).point, size);
                    out += " 2";
                } else {
                    out += " 0 0 0";
                }
            }
        }
        break;
    case Layout::CocoInstances:
        break;
    }
    return out;
}

QByteArray dataYaml(const QString& outputFolder, const QStringList& names, bool testUsed,
                    int keypointCount)
{
    QString yaml = QStringLiteral("path: ") + yamlQuoted(outputFolder)
        + QStringLiteral("\ntrain: images/train\nval: images/val\n");
    if (testUsed)
        yaml += QStringLiteral("test: images/test\n");
    yaml += QStringLiteral("names:\n");
    for (int i = 0; i < names.size(); ++i)
        yaml += QStringLiteral("  %1: ").arg(i) + yamlQuoted(names.at(i)) + u'\n';
    if (keypointCount >= 0)
        yaml += QStringLiteral("kpt_shape: [%1, 3]\n").arg(keypointCount);
    return yaml.toUtf8();
}

} // namespace Parts

} // namespace TrainingExport
