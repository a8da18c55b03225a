#pragma once

// What the reader's tests share: a delegate that logs every callback as
// one line, so that a test compares the whole sequence at once, and the
// documents they feed it.

#include "import/ExpatXMLParser.h"
#include "import/ExpatXMLParserDelegate.h"

#include "ExpatPlaces.h"

#include <QStringEncoder>
#include <QStringList>

#include <expat.h>

namespace expattest {

using Callback = ExpatXMLParserDelegate::Callback;
using Callbacks = ExpatXMLParserDelegate::Callbacks;

inline const Callbacks allCallbacks = Callbacks::fromInt((Callback::EndDocument << 1) - 1);

inline QString show(const QString &s)
{
    return s.isNull() ? QStringLiteral("nil") : s;
}

class RecordingDelegate : public ExpatXMLParserDelegate
{
public:
    Callbacks implemented = allCallbacks;
    QString abortAfter;           // aborts the parse when it logs this line
    bool reparse = false;         // starts a parse from every start tag
    bool withPositions = false;   // " @line:column:byte" after tags
    bool notePlaces = false;      // the place of every tag and text event, in places
    bool keepAttributes = false;  // every element's map in kept, its "a" in keptValues
    QStringList log, places, keptValues;
    QList<Attributes> kept;

    Callbacks implementedCallbacks() const override { return implemented; }

    void parserDidStartDocument(ExpatXMLParser &parser) override { record(parser, QStringLiteral("startDocument")); }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName, const QString &namespaceURI,
                               const QString &qualifiedName, const Attributes &attributes) override
    {
        if (reparse)
            parser.parse();
        if (keepAttributes) {
            kept << attributes;
            keptValues << attributes.value(QStringLiteral("a"));
        }
        QStringList pairs;
        for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
            pairs << it.key() + u'=' + it.value();
        record(parser, QStringLiteral("start(%1, %2, %3, {%4})")
                           .arg(elementName, show(namespaceURI), show(qualifiedName), pairs.join(u';')), Tag);
    }
    void parserDidEndElement(ExpatXMLParser &parser, const QString &elementName, const QString &namespaceURI,
                             const QString &qualifiedName) override
    {
        record(parser, QStringLiteral("end(%1, %2, %3)").arg(elementName, show(namespaceURI), show(qualifiedName)), Tag);
    }
    void parserFoundCharacters(ExpatXMLParser &parser, const QString &string) override
    {
        record(parser, QStringLiteral("chars(%1)").arg(string), Text);
    }
    void parserFoundUTF8Characters(ExpatXMLParser &parser, QByteArrayView utf8) override
    {
        record(parser, QStringLiteral("utf8(%1)").arg(QString::fromLatin1(utf8.toByteArray().toHex())), Text);
    }
    void parserFoundComment(ExpatXMLParser &parser, const QString &comment) override
    {
        record(parser, QStringLiteral("comment(%1)").arg(comment), Text);
    }
    void parserFoundProcessingInstruction(ExpatXMLParser &parser, const QString &target, const QString &data) override
    {
        record(parser, QStringLiteral("pi(%1, %2)").arg(target, data), Text);
    }
    void parserDidStartMappingPrefix(ExpatXMLParser &parser, const QString &prefix, const QString &uri) override
    {
        record(parser, QStringLiteral("startPrefix(%1, %2)").arg(show(prefix), show(uri)));
    }
    void parserDidEndMappingPrefix(ExpatXMLParser &parser, const QString &prefix) override
    {
        record(parser, QStringLiteral("endPrefix(%1)").arg(show(prefix)));
    }
    void parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error) override
    {
        record(parser, QStringLiteral("error(%1, %2, %3)")
                           .arg(error.domain())
                           .arg(error.code())
                           .arg(error.localizedDescription()));
    }
    void parserDidEndDocument(ExpatXMLParser &parser) override { record(parser, QStringLiteral("endDocument")); }

private:
    enum Kind { Other, Tag, Text };
    void record(ExpatXMLParser &parser, const QString &line, Kind kind = Other)
    {
        const bool positioned = withPositions && kind == Tag;
        const QString at = positioned || (notePlaces && kind != Other)
                               ? place(parser.lineNumber(), parser.columnNumber(), parser.byteNumber())
                               : QString();
        log << (positioned ? line + QStringLiteral(" @") + at : line);
        if (notePlaces && kind != Other)
            places << at;
        if (line == abortAfter)
            parser.abortParsing();
    }
};

inline QString errorLine(XML_Error code)
{
    return QStringLiteral("error(ExpatXMLParserDomain, %1, %2)").arg(int(code)).arg(QString::fromUtf8(XML_ErrorString(code)));
}

inline QByteArray utf16(const QString &text, QStringConverter::Encoding encoding = QStringConverter::Utf16LE,
                        bool byteOrderMark = true)
{
    QStringEncoder encoder(encoding, byteOrderMark ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
    return encoder.encode(text);
}

// A long document: thousands of elements, each with its number in an
// attribute (and every third with a second one) and in its text, so that
// a lost, repeated or misplaced event shows.
inline QByteArray numberedDocument(int count)
{
    QByteArray document = "<r>";
    for (int i = 0; i < count; ++i) {
        const QByteArray n = QByteArray::number(i);
        document += "<p n=\"" + n + "\"" + (i % 3 ? "" : " m=\"x\"") + ">" + n + "</p>";
        if (i % 1000 == 0)
            document += "<q/>";
    }
    return document + "</r>";
}

} // namespace expattest
