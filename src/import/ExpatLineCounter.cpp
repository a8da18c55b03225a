#include "import/ExpatLineCounter.h"

ExpatLineCounter::ExpatLineCounter(const QByteArray &document) : m_document(document)
{
    if (document.size() < 2)
        return;
    const uchar first = uchar(document[0]), second = uchar(document[1]);
    if ((first == 0xFE && second == 0xFF) || first == 0)
        m_encoding = Encoding::Utf16BigEndian;
    else if ((first == 0xFF && second == 0xFE) || second == 0)
        m_encoding = Encoding::Utf16LittleEndian;
}

void ExpatLineCounter::setDeclaredEncoding(QByteArrayView name)
{
    if (m_encoding != Encoding::Utf8 && m_encoding != Encoding::SingleByte)
        return;
    const auto is = [name](QByteArrayView known) {
        return qstrnicmp(name.data(), name.size(), known.data(), known.size()) == 0;
    };
    if (is("ISO-8859-1") || is("US-ASCII"))
        m_encoding = Encoding::SingleByte;
    else if (is("UTF-8"))
        m_encoding = Encoding::Utf8;
}

ExpatLineCounter::Location ExpatLineCounter::locate(qint64 offset)
{
    const qsizetype end = qsizetype(qBound<qint64>(0, offset, m_document.size()));
    if (end < m_offset) {
        m_offset = 0;
        m_location = {};
    }
    const qsizetype unit = m_encoding == Encoding::Utf16BigEndian || m_encoding == Encoding::Utf16LittleEndian ? 2 : 1;
    while (end - m_offset >= unit) {
        const char16_t c = unitAt(m_offset);
        if (c == u'\r' || c == u'\n') {
            ++m_location.line;
            m_location.column = 0;
            m_offset += unit;
            // a CR LF pair ends one line, when the LF lies before the end
            if (c == u'\r' && end - m_offset >= unit && unitAt(m_offset) == u'\n')
                m_offset += unit;
        } else {
            ++m_location.column;
            m_offset += characterLength(m_offset);
        }
    }
    return m_location;
}

// Bytes taken by the character starting at `at`; a UTF-8 lead byte tells
// the length of its sequence, a UTF-16 high surrogate starts a pair.
qsizetype ExpatLineCounter::characterLength(qsizetype at) const
{
    switch (m_encoding) {
    case Encoding::Utf8: {
        const uchar lead = uchar(m_document[at]);
        return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    }
    case Encoding::SingleByte:
        return 1;
    case Encoding::Utf16BigEndian:
    case Encoding::Utf16LittleEndian:
        break;
    }
    const char16_t c = unitAt(at);
    return c >= 0xD800 && c <= 0xDBFF ? 4 : 2;
}

char16_t ExpatLineCounter::unitAt(qsizetype at) const
{
    const uchar first = uchar(m_document[at]);
    switch (m_encoding) {
    case Encoding::Utf16BigEndian:
        return char16_t(first << 8 | uchar(m_document[at + 1]));
    case Encoding::Utf16LittleEndian:
        return char16_t(uchar(m_document[at + 1]) << 8 | first);
    case Encoding::Utf8:
    case Encoding::SingleByte:
        break;
    }
    return first;
}
