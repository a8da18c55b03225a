#pragma once

#include <QByteArray>
#include <QByteArrayView>

// The line and column of a byte of a document, counted as Expat counts
// them: lines from 1, columns from 0 in characters of the document's
// encoding, and CR, LF and CR LF each ending one line. Asking Expat at every
// event cost the reading thread close to a tenth of its work, and most
// delegates never ask; this counts only when asked, from the place asked
// about before, so a delegate that asks at every event still reads the
// document once.
//
// Only places Expat has read without fault are counted right: there every
// character is whole, which is what lets a lead byte stand for its
// character and a CR LF pair never be split.
class ExpatLineCounter
{
public:
    struct Location
    {
        qint64 line = 1;
        qint64 column = 0;
    };

    // The width and byte order of the characters come from the first bytes,
    // as Expat finds them: a byte order mark, or a zero byte in the first
    // two for UTF-16 without one.
    explicit ExpatLineCounter(const QByteArray &document);

    // The encoding named by the XML declaration, as Expat reported it: of
    // the names Expat knows by itself, ISO-8859-1 and US-ASCII have a
    // character per byte.
    void setDeclaredEncoding(QByteArrayView name);

    // The place of the byte at `offset`, which must start a character.
    Location locate(qint64 offset);

private:
    enum class Encoding { Utf8, SingleByte, Utf16BigEndian, Utf16LittleEndian };

    qsizetype characterLength(qsizetype at) const;
    char16_t unitAt(qsizetype at) const;

    QByteArray m_document;
    Encoding m_encoding = Encoding::Utf8;
    // Where the last count ended, to go on from there.
    qsizetype m_offset = 0;
    Location m_location;
};
