#include "model/labelscan.h"

#include <QXmlStreamReader>

#include "model/labelpalette.h"
#include "model/safefile.h"

QStringList scanLabelNames(const QString& xmlPath)
{
    QStringList names;
    QByteArray bytes;
    if (SafeFile::read(xmlPath, SafeFile::kMaxAnnotationFileBytes, &bytes) != SafeFile::ReadResult::Ok)
        return names;

    QXmlStreamReader xml(bytes);
    bool inObject = false;
    bool inBndbox = false;
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (xml.hasError())
            break;
        if (token == QXmlStreamReader::StartElement) {
            const QStringView tag = xml.name();
            if (tag == u"object") {
                inObject = true;
                inBndbox = false;
            } else if (tag == u"bndbox") {
                inBndbox = true;
            } else if ((tag == u"name" || tag == u"n") && inObject && !inBndbox) {
                // readElementText consumes the end element, so no flag needs clearing.
                const QString name = cleanLabelName(xml.readElementText()).trimmed();
                if (xml.hasError())
                    break;
                if (!name.isEmpty())
                    names.append(name);
            }
        } else if (token == QXmlStreamReader::EndElement) {
            const QStringView tag = xml.name();
            if (tag == u"object")
                inObject = false;
            else if (tag == u"bndbox")
                inBndbox = false;
        }
    }
    return names;
}

int appendLabelsFromFile(LabelAppender& labels, const QString& xmlPath)
{
    int added = 0;
    const QStringList names = scanLabelNames(xmlPath);
    for (const QString& name : names)
        if (labels.add(name))
            ++added;
    return added;
}

int appendLabelsFromFile(QList<LabelDef>& labels, const QString& xmlPath)
{
    LabelAppender appender(labels);
    return appendLabelsFromFile(appender, xmlPath);
}
