#include "export/HBXMLWriter.h"

#include <QXmlStreamWriter>

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

void HBXMLWriter::indent(qsizetype level)
{
    m_out += '\n';
    m_out.append(level * 2, ' ');
}

void HBXMLWriter::writeStartElement(QLatin1StringView name)
{
    if (!finishStartElement(false))
        indent(qsizetype(m_open.size()));
    m_out += '<';
    m_out.append(name.data(), name.size());
    m_open.push_back(name);
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
    if (!finishStartElement(false) && !m_lastWasStartElement)
        indent(qsizetype(m_open.size()));
    m_lastWasStartElement = false;
    m_out += "</";
    m_out.append(name.data(), name.size());
    m_out += '>';
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
    m_out += ' ';
    m_out.append(name.data(), name.size());
    m_out += "=\"";
    writeEscaped(value, Context::Attribute);
    m_out += '"';
}

void HBXMLWriter::writeCharacters(QStringView text)
{
    finishStartElement(true);
    writeEscaped(text, Context::Text);
}

void HBXMLWriter::writeCharacters(QLatin1StringView text)
{
    finishStartElement(true);
    writeEscaped(text, Context::Text);
}

// Numbers, times and most names are plain ASCII and are copied as they
// are; anything else goes through Qt's own writer, so that markup,
// white space in attributes, characters XML cannot hold and the UTF-8
// form come out exactly as Qt writes them.
template <typename View>
void HBXMLWriter::writeEscaped(View text, Context context)
{
    for (const auto c : text) {
        if (!isPlain(codeOf(c))) {
            writeEscapedByQt(toQString(text), context);
            return;
        }
    }
    const qsizetype start = m_out.size();
    m_out.resize(start + text.size());
    char *to = m_out.data() + start;
    for (const auto c : text)
        *to++ = char(codeOf(c));
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
