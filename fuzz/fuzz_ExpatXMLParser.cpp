// Feeds arbitrary bytes to ExpatXMLParser with every callback implemented.
// The first byte chooses the options and when to abort; the rest is the
// document. Besides memory faults, the delegate traps on broken promises:
// the end of the document comes last and once, at most one error comes
// before it, and without namespace processing every end tag closes the
// innermost open element, and every event's line and column are Expat's own.

#include "import/ExpatXMLParser.h"
#include "import/ExpatXMLParserDelegate.h"

#include "ExpatPlaces.h"

#include <QStringList>

#include <cstddef>
#include <cstdint>

namespace {

using Callback = ExpatXMLParserDelegate::Callback;

class CheckingDelegate : public ExpatXMLParserDelegate
{
public:
    bool checkNesting = false;
    int abortAtEvent = -1; // count of events before the abort; -1: never
    bool ended = false;
    QStringList places;     // of the events Expat's own places are known for

    Callbacks implementedCallbacks() const override
    {
        return Callbacks::fromInt((Callback::EndDocument << 1) - 1);
    }
    void parserDidStartDocument(ExpatXMLParser &parser) override { event(parser); }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &name, const QString &,
                               const QString &, const Attributes &) override
    {
        event(parser);
        note(parser);
        open << name;
    }
    void parserDidEndElement(ExpatXMLParser &parser, const QString &name, const QString &,
                             const QString &) override
    {
        event(parser);
        note(parser);
        check(!open.isEmpty());
        const QString innermost = open.takeLast();
        check(!checkNesting || innermost == name);
    }
    void parserFoundCharacters(ExpatXMLParser &parser, const QString &) override
    {
        event(parser);
        note(parser);
    }
    void parserFoundComment(ExpatXMLParser &parser, const QString &) override
    {
        event(parser);
        note(parser);
    }
    void parserFoundProcessingInstruction(ExpatXMLParser &parser, const QString &,
                                          const QString &) override
    {
        event(parser);
        note(parser);
    }
    void parserDidStartMappingPrefix(ExpatXMLParser &parser, const QString &,
                                     const QString &) override
    {
        event(parser);
    }
    void parserDidEndMappingPrefix(ExpatXMLParser &parser, const QString &) override
    {
        event(parser);
    }
    void parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error) override
    {
        event(parser);
        check(!failed && error.code() != 0);
        failed = true;
    }
    void parserDidEndDocument(ExpatXMLParser &) override
    {
        check(!ended);
        ended = true;
    }

private:
    QStringList open;
    bool failed = false;
    int events = 0;

    static void check(bool condition)
    {
        if (!condition)
            __builtin_trap();
    }
    void note(ExpatXMLParser &parser)
    {
        places << place(parser.lineNumber(), parser.columnNumber(), parser.byteNumber());
    }
    void event(ExpatXMLParser &parser)
    {
        check(!ended && !failed);
        if (events++ == abortAtEvent)
            parser.abortParsing();
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (size == 0)
        return 0;
    const uint8_t options = bytes[0];
    const QByteArray document(reinterpret_cast<const char *>(bytes + 1), qsizetype(size - 1));
    ExpatXMLParser parser(document);
    CheckingDelegate delegate;
    delegate.checkNesting = !(options & 1);
    delegate.abortAtEvent = (options & 4) ? options >> 3 : -1;
    parser.setDelegate(&delegate);
    parser.setShouldProcessNamespaces(options & 1);
    parser.setShouldReportNamespacePrefixes(options & 2);
    parser.parse();
    if (!delegate.ended)
        __builtin_trap();
    // Expat's own run sees the same events when nothing stops it early
    if (!(options & 1) && delegate.abortAtEvent < 0 && delegate.places != expatsOwnPlaces(document))
        __builtin_trap();
    return 0;
}
