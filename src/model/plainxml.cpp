#include "model/plainxml.h"

#include <cstring>

namespace {

// The declarations taken as they stand; any other is left to QXmlStreamReader.
const char* const kDeclarations[] = {
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>",
    "<?xml version=\"1.0\"?>",
};

bool isNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isNameChar(char c)
{
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

// The character a predefined entity stands for (the text between "&" and ";"), or 0.
char16_t entity(const char* name, qsizetype length)
{
    const auto is = [&](const char* word) {
        return qsizetype(std::strlen(word)) == length && std::memcmp(name, word, length) == 0;
    };
    if (is("amp"))
        return u'&';
    if (is("lt"))
        return u'<';
    if (is("gt"))
        return u'>';
    if (is("quot"))
        return u'"';
    if (is("apos"))
        return u'\'';
    return 0;
}

} // namespace

bool PlainXmlReader::appendText(const char* p, const char* end)
{
    char16_t* out = reinterpret_cast<char16_t*>(m_chars.data());
    qsizetype used = m_used;
    while (p < end) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == '&') {
            const char* semicolon = static_cast<const char*>(std::memchr(p, ';', end - p));
            const char16_t decoded = semicolon ? entity(p + 1, semicolon - p - 1) : 0;
            if (!decoded)
                return false;
            out[used++] = decoded;
            p = semicolon + 1;
            continue;
        }
        // "]]>" may not stand in text; carriage returns would be normalised.
        if (c >= 0x80 || (c < 0x20 && c != '\t' && c != '\n')
            || (c == ']' && end - p >= 3 && p[1] == ']' && p[2] == '>'))
            return false;
        out[used++] = c;
        ++p;
    }
    m_used = used;
    return true;
}

bool PlainXmlReader::parse(const QByteArray& data)
{
    m_tokens.clear();
    m_next = 0;
    m_current = {QXmlStreamReader::NoToken, 0, 0};
    m_atEnd = false;
    m_error = false;
    // Names and decoded text never take more characters than their bytes.
    m_chars.resize(data.size());
    m_used = 0;
    m_tokens.reserve(std::size_t(data.size() / 16)); // a token per 20 to 30 bytes in files as written

    const char* p = data.constData();
    const char* const end = p + data.size();
    for (const char* declaration : kDeclarations) {
        if (data.startsWith(declaration)) {
            p += std::strlen(declaration);
            break;
        }
    }
    std::vector<qsizetype> open; // start tokens of the open elements
    open.reserve(16);
    bool rootClosed = false;
    while (p < end) {
        if (*p != '<') {
            const char* textEnd = static_cast<const char*>(std::memchr(p, '<', end - p));
            if (!textEnd)
                textEnd = end;
            if (open.empty()) {
                for (; p < textEnd; ++p) {
                    if (!isSpace(*p))
                        return false;
                }
                continue;
            }
            const qsizetype begin = m_used;
            if (!appendText(p, textEnd))
                return false;
            m_tokens.push_back({QXmlStreamReader::Characters, begin, m_used - begin});
            p = textEnd;
            continue;
        }
        ++p;
        const bool closing = p < end && *p == '/';
        if (closing)
            ++p;
        const char* name = p;
        if (p == end || !isNameStart(*p))
            return false;
        while (p < end && isNameChar(*p))
            ++p;
        if (p == end || *p != '>')
            return false;
        const qsizetype length = p - name;
        ++p;
        if (closing) {
            if (open.empty())
                return false;
            const Token start = m_tokens[std::size_t(open.back())];
            open.pop_back();
            if (start.length != length)
                return false;
            const QChar* opened = m_chars.constData() + start.begin;
            for (qsizetype i = 0; i < length; ++i) {
                if (opened[i] != QLatin1Char(name[i]))
                    return false;
            }
            m_tokens.push_back({QXmlStreamReader::EndElement, start.begin, length});
            rootClosed = open.empty();
        } else {
            if (rootClosed)
                return false;
            const qsizetype begin = m_used;
            if (!appendText(name, name + length))
                return false;
            open.push_back(qsizetype(m_tokens.size()));
            m_tokens.push_back({QXmlStreamReader::StartElement, begin, length});
        }
    }
    return rootClosed;
}

void PlainXmlReader::rewind()
{
    m_next = 0;
    m_current = {QXmlStreamReader::NoToken, 0, 0};
    m_atEnd = false;
    m_error = false;
}

QXmlStreamReader::TokenType PlainXmlReader::readNext()
{
    if (m_error)
        return QXmlStreamReader::Invalid;
    if (std::size_t(m_next) == m_tokens.size()) {
        m_atEnd = true;
        m_current = {QXmlStreamReader::EndDocument, 0, 0};
    } else {
        m_current = m_tokens[std::size_t(m_next++)];
    }
    return m_current.type;
}
