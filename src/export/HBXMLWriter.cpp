#include "export/HBXMLWriter.h"

#include <QXmlStreamWriter>

#include <algorithm>

namespace {

char16_t codeOf(QChar c)
{
    return c.unicode();
}

char16_t codeOf(char c)
{
    return char16_t(uchar(c));
}

// A character written as it is, in text and in attribute values alike.
bool isPlain(char16_t c)
{
    return c >= 0x20 && c < 0x7f && c != '<' && c != '>' && c != '&' && c != '"';
}

QString toQString(QStringView text)
{
    return text.toString();
}

QString toQString(QLatin1StringView text)
{
    return QString(text);
}

} // namespace

HBXMLWriter::HBXMLWriter(QByteArray *document)
    : m_out(*document)
{
}

HBXMLWriter::HBXMLWriter(QByteArray *document, std::vector<QLatin1StringView> openElements)
    : m_out(*document)
    , m_open(std::move(openElements))
{
}

void HBXMLWriter::writeStartDocument()
{
    finishStartElement(false);
    m_out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
}

void HBXMLWriter::writeEndDocument()
{
    while (!m_open.empty())
        writeEndElement();
    m_out += '\n';
}

bool HBXMLWriter::finishStartElement(bool contents)
{
    const bool hadSomethingWritten = m_wroteSomething;
    m_wroteSomething = contents;
    if (m_inStartElement) {
        m_out += '>';
        m_inStartElement = false;
    }
    return hadSomethingWritten;
}

// Every piece of markup is sized first and written in place: a million
// points make a dozen pieces each, and growing the document once per
// piece rather than once per character or string halves the writing.
char *HBXMLWriter::extend(qsizetype bytes)
{
    const qsizetype size = m_out.size();
    m_out.resize(size + bytes);
    return m_out.data() + size;
}

char *HBXMLWriter::writeIndent(char *to, qsizetype level)
{
    *to++ = '\n';
    return std::fill_n(to, level * 2, ' ');
}

char *HBXMLWriter::writeName(char *to, QLatin1StringView name)
{
    return std::copy_n(name.data(), name.size(), to);
}

void HBXMLWriter::writeStartElement(QLatin1StringView name)
{
    const bool closesStartTag = m_inStartElement;
    const bool onNewLine = !m_wroteSomething;
    const qsizetype level = qsizetype(m_open.size());
    char *to = extend((closesStartTag ? 1 : 0) + (onNewLine ? 1 + level * 2 : 0) + 1 + name.size());
    if (closesStartTag)
        *to++ = '>';
    if (onNewLine)
        to = writeIndent(to, level);
    *to++ = '<';
    writeName(to, name);
    m_open.push_back(name);
    m_wroteSomething = false;
    m_inStartElement = m_lastWasStartElement = true;
}

void HBXMLWriter::writeEndElement()
{
    if (m_open.empty())
        return;
    const QLatin1StringView name = m_open.back();
    m_open.pop_back();
    if (m_inStartElement) {
        m_out += "/>";
        m_inStartElement = m_lastWasStartElement = false;
        return;
    }
    // an element holding text ends on its line, as does an empty one
    const bool onNewLine = !m_wroteSomething && !m_lastWasStartElement;
    const qsizetype level = qsizetype(m_open.size());
    char *to = extend((onNewLine ? 1 + level * 2 : 0) + 3 + name.size());
    if (onNewLine)
        to = writeIndent(to, level);
    *to++ = '<';
    *to++ = '/';
    to = writeName(to, name);
    *to = '>';
    m_wroteSomething = m_lastWasStartElement = false;
}

void HBXMLWriter::writeAttribute(QLatin1StringView name, QStringView value)
{
    writeAttributeOf(name, value);
}

void HBXMLWriter::writeAttribute(QLatin1StringView name, QLatin1StringView value)
{
    writeAttributeOf(name, value);
}

template <typename View>
void HBXMLWriter::writeAttributeOf(QLatin1StringView name, View value)
{
    if (!isAllPlain(value)) {
        m_out += ' ';
        m_out.append(name.data(), name.size());
        m_out += "=\"";
        writeEscapedByQt(toQString(value), Context::Attribute);
        m_out += '"';
        return;
    }
    char *to = extend(1 + name.size() + 2 + value.size() + 1);
    *to++ = ' ';
    to = writeName(to, name);
    *to++ = '=';
    *to++ = '"';
    to = copyPlain(to, value);
    *to = '"';
}

void HBXMLWriter::writeCharacters(QStringView text)
{
    writeCharactersOf(text);
}

void HBXMLWriter::writeCharacters(QLatin1StringView text)
{
    writeCharactersOf(text);
}

// Numbers, times and most names are plain ASCII and are copied as they
// are; anything else goes through Qt's own writer, so that markup,
// white space in attributes, characters XML cannot hold and the UTF-8
// form come out exactly as Qt writes them.
template <typename View>
void HBXMLWriter::writeCharactersOf(View text)
{
    if (!isAllPlain(text)) {
        finishStartElement(true);
        writeEscapedByQt(toQString(text), Context::Text);
        return;
    }
    const bool closesStartTag = m_inStartElement;
    char *to = extend((closesStartTag ? 1 : 0) + text.size());
    if (closesStartTag)
        *to++ = '>';
    copyPlain(to, text);
    m_inStartElement = false;
    m_wroteSomething = true;
}

template <typename View>
bool HBXMLWriter::isAllPlain(View text)
{
    return std::all_of(text.begin(), text.end(), [](auto c) { return isPlain(codeOf(c)); });
}

template <typename View>
char *HBXMLWriter::copyPlain(char *to, View text)
{
    for (const auto c : text)
        *to++ = char(codeOf(c));
    return to;
}

void HBXMLWriter::writeEscapedByQt(const QString &text, Context context)
{
    // one element around the text, cut off again: "<a>TEXT</a>" or "<a v="TEXT"/>"
    QByteArray fragment;
    QXmlStreamWriter qt(&fragment);
    qt.writeStartElement(QStringLiteral("a"));
    if (context == Context::Attribute)
        qt.writeAttribute(QStringLiteral("v"), text);
    else
        qt.writeCharacters(text);
    qt.writeEndElement();
    const qsizetype head = context == Context::Attribute ? 6 : 3;   // <a v=" or <a>
    const qsizetype tail = context == Context::Attribute ? 3 : 4;   // "/> or </a>
    m_out.append(fragment.constData() + head, fragment.size() - head - tail);
}
