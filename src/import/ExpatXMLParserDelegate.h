#pragma once

#include <QByteArrayView>
#include <QFlags>
#include <QMap>
#include <QString>

class ExpatXMLParser;
class HBError;

// The receiver of an ExpatXMLParser's events. Every callback is optional:
// a delegate overrides the ones it wants and names them in
// implementedCallbacks(), and the reader installs the matching Expat
// handlers only for those. A callback that is overridden but not named is
// never called, so a delegate that ignores character data costs no UTF-8
// decoding of the document's text.
//
// Absent values are null QStrings: namespaceURI and qualifiedName without
// namespace processing, and always in parserDidEndElement.
class ExpatXMLParserDelegate
{
public:
    enum Callback : unsigned {
        NoCallbacks = 0,
        StartDocument = 1u << 0,
        StartElement = 1u << 1,
        EndElement = 1u << 2,
        FoundCharacters = 1u << 3,
        FoundComment = 1u << 4,
        FoundProcessingInstruction = 1u << 5,
        StartMappingPrefix = 1u << 6,
        EndMappingPrefix = 1u << 7,
        ParseErrorOccurred = 1u << 8,
        EndDocument = 1u << 9,
        FoundUTF8Characters = 1u << 10,
    };
    Q_DECLARE_FLAGS(Callbacks, Callback)

    // Attribute name (as Expat gives it) to value. A map rather than a hash
    // so that whatever walks the attributes (logs, tests, writers) sees them
    // in one reproducible order; an element has a handful of attributes, so
    // the tree's lookup cost does not matter.
    using Attributes = QMap<QString, QString>;

    virtual ~ExpatXMLParserDelegate() = default;

    // Read once at the start of each parse.
    virtual Callbacks implementedCallbacks() const { return NoCallbacks; }

    virtual void parserDidStartDocument(ExpatXMLParser &parser);
    virtual void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                                       const QString &namespaceURI, const QString &qualifiedName,
                                       const Attributes &attributes);
    virtual void parserDidEndElement(ExpatXMLParser &parser, const QString &elementName,
                                     const QString &namespaceURI, const QString &qualifiedName);
    // Text may arrive in several pieces for one element.
    virtual void parserFoundCharacters(ExpatXMLParser &parser, const QString &string);
    // The same pieces undecoded, as UTF-8 (Expat has already converted the
    // document's own encoding, and never splits a character between
    // pieces). The view is valid during the call only. For a delegate that
    // gathers the text of many elements and reads few of them, it saves
    // decoding every piece (the white space between elements included).
    virtual void parserFoundUTF8Characters(ExpatXMLParser &parser, QByteArrayView utf8);
    virtual void parserFoundComment(ExpatXMLParser &parser, const QString &comment);
    virtual void parserFoundProcessingInstruction(ExpatXMLParser &parser, const QString &target,
                                                  const QString &data);
    // prefix is "" for the default namespace; uri is null where a default
    // namespace is undeclared (xmlns="").
    virtual void parserDidStartMappingPrefix(ExpatXMLParser &parser, const QString &prefix,
                                             const QString &uri);
    virtual void parserDidEndMappingPrefix(ExpatXMLParser &parser, const QString &prefix);
    virtual void parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error);
    // Always the last event of a parse, after success, failure or abort.
    virtual void parserDidEndDocument(ExpatXMLParser &parser);
};

Q_DECLARE_OPERATORS_FOR_FLAGS(ExpatXMLParserDelegate::Callbacks)
