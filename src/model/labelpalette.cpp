#include "model/labelpalette.h"

namespace LabelPalette {

const QList<QColor>& colors()
{
    static const QList<QColor> palette = {
        QColor(0, 220, 220),   QColor(255, 100, 100), QColor(100, 220, 100),
        QColor(255, 200, 0),   QColor(180, 100, 255), QColor(255, 160, 40),
        QColor(80, 200, 255),  QColor(255, 80, 200),
    };
    return palette;
}

QColor colorForIndex(int n)
{
    const int size = int(colors().size());
    return colors().at(((n % size) + size) % size);
}

QString defaultLabelName()
{
    return QStringLiteral("object");
}

QColor defaultColor()
{
    return colors().first();
}

LabelDef defaultLabel()
{
    return LabelDef{defaultLabelName(), defaultColor()};
}

bool appendIfMissing(QList<LabelDef>& labels, const QString& name)
{
    for (const LabelDef& l : labels) {
        if (l.name == name)
            return false;
    }
    labels.append(LabelDef{name, colorForIndex(int(labels.size()))});
    return true;
}

} // namespace LabelPalette

LabelAppender::LabelAppender(QList<LabelDef>& labels)
    : m_labels(labels)
{
    m_names.reserve(labels.size());
    for (const LabelDef& label : std::as_const(labels))
        m_names.insert(label.name);
}

bool LabelAppender::add(const QString& name)
{
    if (m_names.contains(name))
        return false;
    m_names.insert(name);
    m_labels.append(LabelDef{name, LabelPalette::colorForIndex(int(m_labels.size()))});
    return true;
}
