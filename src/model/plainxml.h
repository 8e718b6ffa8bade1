#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringView>
#include <QXmlStreamReader>

#include <vector>

#include "model/annotation.h"

// Tokens of an XML document kept to the plain form this program writes: an optional
// declaration as written, elements without attributes, text of printable ASCII with the
// five predefined entities, white space between elements. Such a document is tokenised
// many times faster than by QXmlStreamReader, into the tokens it would give; anything
// else (comments, CDATA, a DOCTYPE, character references, attributes, empty-element
// tags, carriage returns, bytes above 127, or an error) is refused and left to it.
class PlainXmlReader {
public:
    // Tokenises the whole document; false when it is not plain and well-formed.
    bool parse(const QByteArray& data);
    // Back to the first token, so that another reader can walk the same document.
    void rewind();

    // The part of QXmlStreamReader's interface that the annotation reader uses.
    QXmlStreamReader::TokenType readNext();
    QStringView name() const { return current(); }
    QStringView text() const { return current(); }
    bool atEnd() const { return m_atEnd; }
    bool hasError() const { return m_error; }
    void raiseError(const QString&) { m_error = true; }

private:
    struct Token {
        QXmlStreamReader::TokenType type;
        qsizetype begin;  // in m_chars: the element's name, or the decoded text
        qsizetype length;
    };
    QStringView current() const { return QStringView(m_chars).mid(m_current.begin, m_current.length); }
    bool appendText(const char* from, const char* to);

    QString m_chars;     // sized to the document; the first m_used characters hold text
    qsizetype m_used = 0;
    std::vector<Token> m_tokens;
    qsizetype m_next = 0;
    Token m_current{QXmlStreamReader::NoToken, 0, 0};
    bool m_atEnd = false;
    bool m_error = false;
};

namespace VocXml {
// VocXml::loadFromData over a document already tokenised (from its current token on), for
// readers that walk the same tokens more than once.
bool loadFromTokens(PlainXmlReader& xml, QList<BoxAnnotation>& boxes);
} // namespace VocXml
