#include "model/labelscan.h"

#include <QXmlStreamReader>

#include "model/labelpalette.h"
#include "model/plainxml.h"
#include "model/safefile.h"

namespace {

// The element text up to its end tag, as QXmlStreamReader::readElementText() gives it
// (a child element is an error).
QString elementText(QXmlStreamReader& xml)
{
    return xml.readElementText();
}

QString elementText(PlainXmlReader& xml)
{
    QString text;
    for (;;) {
        switch (xml.readNext()) {
        case QXmlStreamReader::Characters:
            text.append(xml.text());
            break;
        case QXmlStreamReader::EndElement:
            return text;
        default:
            xml.raiseError(QString());
            return text;
        }
    }
}

template <typename Xml>
QStringList scan(Xml& xml)
{
    QStringList names;
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
                // Reading the text consumes the end element, so no flag needs clearing.
                const QString name = cleanLabelName(elementText(xml)).trimmed();
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

} // namespace

QStringList scanLabelNamesInData(const QByteArray& data)
{
    // Files in the form this program writes take the fast tokeniser, which gives the same
    // tokens; every other file goes through QXmlStreamReader.
    PlainXmlReader plain;
    if (plain.parse(data))
        return scan(plain);
    QXmlStreamReader xml(data);
    return scan(xml);
}

QStringList scanLabelNamesInTokens(PlainXmlReader& xml)
{
    return scan(xml);
}

QStringList scanLabelNames(const QString& xmlPath)
{
    QByteArray bytes;
    if (SafeFile::read(xmlPath, SafeFile::kMaxAnnotationFileBytes, &bytes) != SafeFile::ReadResult::Ok)
        return {};
    return scanLabelNamesInData(bytes);
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
