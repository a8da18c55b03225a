#pragma once

#include "platform/HBError.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QString>
#include <QtGlobal>

#include <memory>

class ExpatXMLParserDelegate;

// An event-driven XML reader over Expat. The whole document is held in
// memory, but Expat sees it in pieces of BUFFER_SIZE bytes; every event
// goes to the delegate, and only the events the delegate implements are
// handled at all. Expat runs on a thread of its own during parse(); the
// delegate is called on the thread that called parse(), in the document's
// order.
//
// Expat decodes the document itself (byte order mark or declared
// encoding: UTF-8, UTF-16, ISO-8859-1, US-ASCII); every text the delegate
// gets is already Unicode. External entities are never loaded.
//
// parse() always runs to the end: success or failure is learnt through
// the delegate's callbacks and parserError(). A failure, including an
// abort, reaches the delegate as parserParseErrorOccurred with domain
// ErrorDomain and Expat's error code (XML_Error), then
// parserDidEndDocument follows as after every parse.
class ExpatXMLParser
{
public:
    // Bytes handed to Expat at a time.
    static constexpr qint32 BUFFER_SIZE = 8192;
    // Joins namespace URI, local name and prefix in the names Expat
    // reports with namespace processing; it cannot occur in an XML name.
    static constexpr QLatin1StringView SEPARATOR{"`"};
    static constexpr QLatin1StringView ErrorDomain{"ExpatXMLParserDomain"};

    // Keeps its own copy of the bytes; namespace processing is off.
    explicit ExpatXMLParser(const QByteArray &data);
    // Reads the whole file; a file that cannot be read gives an empty
    // document, whose parse fails for want of a root element.
    static std::unique_ptr<ExpatXMLParser> fromContentsOfFile(const QString &filePath);
    ~ExpatXMLParser();
    Q_DISABLE_COPY_MOVE(ExpatXMLParser)

    // Not owned: the delegate must outlive every parse() of this reader.
    ExpatXMLParserDelegate *delegate() const;
    void setDelegate(ExpatXMLParserDelegate *delegate);

    // With it, element names are split into namespace URI, local name and
    // prefix (start tags only: end tags report Expat's joined name as is,
    // and attribute names always stay joined).
    bool shouldProcessNamespaces() const;
    void setShouldProcessNamespaces(bool process);
    // With it and namespace processing, namespace declarations and the ends
    // of their scopes are reported.
    bool shouldReportNamespacePrefixes() const;
    void setShouldReportNamespacePrefixes(bool report);
    // Kept for the delegate to read; external entities are never loaded,
    // whatever its value.
    bool shouldResolveExternalEntities() const;
    void setShouldResolveExternalEntities(bool resolve);

    // Runs the whole document through a fresh Expat parser. Always true.
    bool parse();
    // Stops the running parse for good; the stop is reported as a parse
    // error. Does nothing outside parse().
    void abortParsing();

    // The last failure of parse(), null after a success. It is kept only
    // for a delegate that implements parserParseErrorOccurred.
    HBError parserError() const;

    // Where Expat is: during a callback, the event being reported; after a
    // failed parse, the place of the fault. 0 before the first parse.
    qint64 lineNumber() const;   // 1-based
    // Expat's 0-based column of the event's start plus the event's length
    // in bytes, so inside a start-tag callback the column just past the tag.
    qint64 columnNumber() const;
    qint64 byteNumber() const;   // 0-based offset of the event in the document
    // Documents are read from memory: there are no public or system
    // identifiers to report.
    QString publicID() const { return {}; }
    QString systemID() const { return {}; }

private:
    struct Private;
    std::unique_ptr<Private> d;
};
