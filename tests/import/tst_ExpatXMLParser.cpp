#include "import/ExpatXMLParser.h"
#include "import/ExpatXMLParserDelegate.h"

#include "ExpatPlaces.h"

#include <QDirIterator>
#include <QFile>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>

#include <expat.h>

using namespace Qt::StringLiterals;
using Callback = ExpatXMLParserDelegate::Callback;
using Callbacks = ExpatXMLParserDelegate::Callbacks;

namespace {

const Callbacks allCallbacks = Callbacks::fromInt((Callback::EndDocument << 1) - 1);

QString show(const QString &s)
{
    return s.isNull() ? QStringLiteral("nil") : s;
}

// Logs every callback as one line, so that a test compares the whole
// sequence at once. It can abort the parse when it logs a given line.
class RecordingDelegate : public ExpatXMLParserDelegate
{
public:
    Callbacks implemented = allCallbacks;
    QString abortAfter;
    // Appends " @line:column:byte" to start and end tags.
    bool withPositions = false;
    QStringList log;

    Callbacks implementedCallbacks() const override { return implemented; }

    void parserDidStartDocument(ExpatXMLParser &parser) override
    {
        record(parser, QStringLiteral("startDocument"));
    }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                               const QString &namespaceURI, const QString &qualifiedName,
                               const Attributes &attributes) override
    {
        QStringList pairs;
        for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
            pairs << it.key() + u'=' + it.value();
        record(parser, QStringLiteral("start(%1, %2, %3, {%4})")
                           .arg(elementName, show(namespaceURI), show(qualifiedName),
                                pairs.join(u';')),
               true);
    }
    void parserDidEndElement(ExpatXMLParser &parser, const QString &elementName,
                             const QString &namespaceURI, const QString &qualifiedName) override
    {
        record(parser, QStringLiteral("end(%1, %2, %3)")
                           .arg(elementName, show(namespaceURI), show(qualifiedName)),
               true);
    }
    void parserFoundCharacters(ExpatXMLParser &parser, const QString &string) override
    {
        record(parser, QStringLiteral("chars(%1)").arg(string));
    }
    void parserFoundUTF8Characters(ExpatXMLParser &parser, QByteArrayView utf8) override
    {
        record(parser, QStringLiteral("utf8(%1)").arg(QString::fromLatin1(utf8.toByteArray().toHex())));
    }
    void parserFoundComment(ExpatXMLParser &parser, const QString &comment) override
    {
        record(parser, QStringLiteral("comment(%1)").arg(comment));
    }
    void parserFoundProcessingInstruction(ExpatXMLParser &parser, const QString &target,
                                          const QString &data) override
    {
        record(parser, QStringLiteral("pi(%1, %2)").arg(target, data));
    }
    void parserDidStartMappingPrefix(ExpatXMLParser &parser, const QString &prefix,
                                     const QString &uri) override
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
    void parserDidEndDocument(ExpatXMLParser &parser) override
    {
        record(parser, QStringLiteral("endDocument"));
    }

private:
    void record(ExpatXMLParser &parser, const QString &line, bool isTag = false)
    {
        log << (withPositions && isTag ? line + QStringLiteral(" @%1:%2:%3")
                                                    .arg(parser.lineNumber())
                                                    .arg(parser.columnNumber())
                                                    .arg(parser.byteNumber())
                                       : line);
        if (line == abortAfter)
            parser.abortParsing();
    }
};

QString errorLine(XML_Error code)
{
    return QStringLiteral("error(ExpatXMLParserDomain, %1, %2)")
        .arg(int(code))
        .arg(QString::fromUtf8(XML_ErrorString(code)));
}

QStringList parsed(const QByteArray &document, RecordingDelegate &delegate,
                   bool processNamespaces = false, bool reportPrefixes = false)
{
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.setShouldProcessNamespaces(processNamespaces);
    parser.setShouldReportNamespacePrefixes(reportPrefixes);
    // Asking for external entities must not make the reader load any.
    parser.setShouldResolveExternalEntities(true);
    parser.parse();
    return delegate.log;
}

// "<a>" + filler text + "</a>" of exactly `size` bytes.
QByteArray documentOfSize(qsizetype size, const QByteArray &end = "</a>")
{
    return "<a>" + QByteArray(size - 3 - end.size(), 'x') + end;
}

QByteArray utf16WithBom(const QString &text)
{
    QStringEncoder encoder(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom);
    return encoder.encode(text);
}

} // namespace

class tst_ExpatXMLParser : public QObject
{
    Q_OBJECT

private slots:
    void reportsEvents_data();
    void reportsEvents();
    void reportsErrorsWithPlace_data();
    void reportsErrorsWithPlace();
    void feedsPiecesOfBufferSize_data();
    void feedsPiecesOfBufferSize();
    void abortStopsForGood_data();
    void abortStopsForGood();
    void callsOnlyImplementedCallbacks_data();
    void callsOnlyImplementedCallbacks();
    void readsFiles_data();
    void readsFiles();
    void readsCorpus_data();
    void readsCorpus();
    void ignoresParseFromItsOwnCallback();
    void undecodedTextIsUtf8_data();
    void undecodedTextIsUtf8();
    void reportsManyDistinctNames();
    void keptAttributesKeepTheirValues();
    void reportsLinesAndColumns();
    void countsLinesAndColumnsAsExpatDoes_data();
    void countsLinesAndColumnsAsExpatDoes();
    void longDocumentsArriveWholeAndInOrder();
    void abortStopsALongDocument_data();
    void abortStopsALongDocument();

private:
    QTemporaryDir m_files;
};

void tst_ExpatXMLParser::reportsEvents_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<bool>("processNamespaces");
    QTest::addColumn<bool>("reportPrefixes");
    QTest::addColumn<QStringList>("expected");

    QTest::addRow("elements, attributes, text, comment, instruction")
        << QByteArray("<?xml version=\"1.0\"?>\n<?style href=\"a.css\"?>"
                      "<gpx version=\"1.1\" creator=\"me\"><!-- note -->"
                      "<wpt lat=\"48.1\" lon=\"11.5\"><name>A</name></wpt></gpx>")
        << false << false
        << QStringList{"startDocument", "pi(style, href=\"a.css\")",
                       "start(gpx, nil, nil, {creator=me;version=1.1})", "comment( note )",
                       "start(wpt, nil, nil, {lat=48.1;lon=11.5})", "start(name, nil, nil, {})",
                       "chars(A)", "end(name, nil, nil)", "end(wpt, nil, nil)",
                       "end(gpx, nil, nil)", "endDocument"};
    QTest::addRow("text in pieces: entities, CDATA, line ends normalised")
        << QByteArray("<a>x&amp;y<![CDATA[<z>]]>1\r\n2</a>") << false << false
        << QStringList{"startDocument", "start(a, nil, nil, {})", "chars(x)", "chars(&)",
                       "chars(y)", "chars(<z>)", "chars(1)", "chars(\n)", "chars(2)",
                       "end(a, nil, nil)", "endDocument"};
    QTest::addRow("UTF-8 text and attribute values")
        << QByteArray("<a n=\"Z\xc3\xbcrich \xe2\x82\xac\">\xd0\x9c\xd0\xb5\xd1\x82\xd1\x80\xd0\xbe</a>")
        << false << false
        << QStringList{"startDocument", u"start(a, nil, nil, {n=Zürich €})"_s,
                       u"chars(Метро)"_s, "end(a, nil, nil)", "endDocument"};
    QTest::addRow("declared ISO-8859-1 is decoded")
        << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a n=\"\xe9\">Z\xfc"
                      "rich</a>")
        << false << false
        << QStringList{"startDocument", u"start(a, nil, nil, {n=é})"_s, u"chars(Zürich)"_s,
                       "end(a, nil, nil)", "endDocument"};
    QTest::addRow("UTF-16 with byte order mark is decoded")
        << utf16WithBom(u"<a n=\"é\">Zürich</a>"_s) << false << false
        << QStringList{"startDocument", u"start(a, nil, nil, {n=é})"_s, u"chars(Zürich)"_s,
                       "end(a, nil, nil)", "endDocument"};
    QTest::addRow("internal entity expanded")
        << QByteArray("<!DOCTYPE a [<!ENTITY e \"ent\">]><a>&e;</a>") << false << false
        << QStringList{"startDocument", "start(a, nil, nil, {})", "chars(ent)",
                       "end(a, nil, nil)", "endDocument"};
    QTest::addRow("external entity never loaded")
        << QByteArray("<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/hostname\">]><a>&e;</a>")
        << false << false
        << QStringList{"startDocument", "start(a, nil, nil, {})", "end(a, nil, nil)",
                       "endDocument"};
    QTest::addRow("without namespaces, prefixed names stay whole")
        << QByteArray("<g:gpx xmlns:g=\"urn:g\"><g:wpt g:lat=\"1\"/></g:gpx>") << false << true
        << QStringList{"startDocument", "start(g:gpx, nil, nil, {xmlns:g=urn:g})",
                       "start(g:wpt, nil, nil, {g:lat=1})", "end(g:wpt, nil, nil)",
                       "end(g:gpx, nil, nil)", "endDocument"};
    QTest::addRow("namespaces: prefixed element split, end tag joined")
        << QByteArray("<g:gpx xmlns:g=\"urn:g\"><g:wpt/></g:gpx>") << true << false
        << QStringList{"startDocument", "start(gpx, urn:g, g:gpx, {})",
                       "start(wpt, urn:g, g:wpt, {})", "end(urn:g`wpt`g, nil, nil)",
                       "end(urn:g`gpx`g, nil, nil)", "endDocument"};
    QTest::addRow("namespaces: default namespace has no prefix")
        << QByteArray("<gpx xmlns=\"urn:d\"><wpt/></gpx>") << true << false
        << QStringList{"startDocument", "start(gpx, urn:d, gpx, {})",
                       "start(wpt, urn:d, wpt, {})", "end(urn:d`wpt, nil, nil)",
                       "end(urn:d`gpx, nil, nil)", "endDocument"};
    QTest::addRow("namespaces: no namespace at all")
        << QByteArray("<a><b/></a>") << true << false
        << QStringList{"startDocument", "start(a, nil, a, {})", "start(b, nil, b, {})",
                       "end(b, nil, nil)", "end(a, nil, nil)", "endDocument"};
    QTest::addRow("namespaces: attribute names stay joined")
        << QByteArray("<a xmlns:p=\"urn:p\" p:x=\"1\" y=\"2\"/>") << true << false
        << QStringList{"startDocument", "start(a, nil, a, {urn:p`x`p=1;y=2})",
                       "end(a, nil, nil)", "endDocument"};
    QTest::addRow("namespaces: prefix mappings reported around their scope")
        << QByteArray("<gpx xmlns=\"urn:d\" xmlns:p=\"urn:p\"><p:e/><f xmlns=\"\"/></gpx>")
        << true << true
        << QStringList{"startDocument", "startPrefix(, urn:d)", "startPrefix(p, urn:p)",
                       "start(gpx, urn:d, gpx, {})", "start(e, urn:p, p:e, {})",
                       "end(urn:p`e`p, nil, nil)", "startPrefix(, nil)", "start(f, nil, f, {})",
                       "end(f, nil, nil)", "endPrefix()", "end(urn:d`gpx, nil, nil)",
                       "endPrefix(p)", "endPrefix()", "endDocument"};
    QTest::addRow("prefix reporting without namespaces reports none")
        << QByteArray("<gpx xmlns=\"urn:d\"/>") << false << true
        << QStringList{"startDocument", "start(gpx, nil, nil, {xmlns=urn:d})",
                       "end(gpx, nil, nil)", "endDocument"};
}

void tst_ExpatXMLParser::reportsEvents()
{
    QFETCH(QByteArray, document);
    QFETCH(bool, processNamespaces);
    QFETCH(bool, reportPrefixes);
    QFETCH(QStringList, expected);

    RecordingDelegate delegate;
    QCOMPARE(parsed(document, delegate, processNamespaces, reportPrefixes), expected);
}

void tst_ExpatXMLParser::reportsErrorsWithPlace_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<bool>("processNamespaces");
    QTest::addColumn<int>("code");
    QTest::addColumn<qint64>("line");
    QTest::addColumn<qint64>("column");
    QTest::addColumn<qint64>("byte");

    QTest::addRow("empty") << QByteArray() << false << int(XML_ERROR_NO_ELEMENTS) << 1ll << 0ll
                           << 0ll;
    QTest::addRow("not XML") << QByteArray("Error: nothing to write") << false
                             << int(XML_ERROR_SYNTAX) << 1ll << 0ll << 0ll;
    // Expat places a mismatch at the name inside the end tag.
    QTest::addRow("mismatched tag") << QByteArray("<a>\n  <b></a>") << false
                                    << int(XML_ERROR_TAG_MISMATCH) << 2ll << 7ll << 11ll;
    QTest::addRow("truncated") << QByteArray("<a>\n<b>text") << false
                               << int(XML_ERROR_NO_ELEMENTS) << 2ll << 7ll << 11ll;
    QTest::addRow("invalid UTF-8") << QByteArray("<a>\n\xff</a>") << false
                                   << int(XML_ERROR_INVALID_TOKEN) << 2ll << 0ll << 4ll;
    QTest::addRow("cut inside a character") << QByteArray("<a>\xd0") << false
                                            << int(XML_ERROR_PARTIAL_CHAR) << 1ll << 3ll << 3ll;
    QTest::addRow("declaration not at start") << QByteArray("  <?xml version=\"1.0\"?><a/>")
                                              << false << int(XML_ERROR_MISPLACED_XML_PI) << 1ll
                                              << 2ll << 2ll;
    QTest::addRow("undefined entity") << QByteArray("<a>&nbsp;</a>") << false
                                      << int(XML_ERROR_UNDEFINED_ENTITY) << 1ll << 3ll << 3ll;
    QTest::addRow("duplicate attribute") << QByteArray("<a x=\"1\" x=\"2\"/>") << false
                                         << int(XML_ERROR_DUPLICATE_ATTRIBUTE) << 1ll << 9ll
                                         << 9ll;
    QTest::addRow("unbound prefix") << QByteArray("<a><p:b/></a>") << true
                                    << int(XML_ERROR_UNBOUND_PREFIX) << 1ll << 3ll << 3ll;
    QTest::addRow("entity expansion bomb")
        << QByteArray("<!DOCTYPE a [<!ENTITY a \"aaaaaaaaaa\">"
                      "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
                      "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
                      "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">"
                      "<!ENTITY e \"&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;\">"
                      "<!ENTITY f \"&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;\">"
                      "<!ENTITY g \"&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;\">"
                      "<!ENTITY h \"&g;&g;&g;&g;&g;&g;&g;&g;&g;&g;\">]><a>&h;</a>")
        << false << int(XML_ERROR_AMPLIFICATION_LIMIT_BREACH) << 1ll << 350ll << 350ll;
}

void tst_ExpatXMLParser::reportsErrorsWithPlace()
{
    QFETCH(QByteArray, document);
    QFETCH(bool, processNamespaces);
    QFETCH(int, code);
    QFETCH(qint64, line);
    QFETCH(qint64, column);
    QFETCH(qint64, byte);

    RecordingDelegate delegate;
    delegate.implemented = Callback::ParseErrorOccurred | Callback::EndDocument;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.setShouldProcessNamespaces(processNamespaces);
    QVERIFY(parser.parse());

    QCOMPARE(delegate.log, QStringList({errorLine(XML_Error(code)), "endDocument"}));
    const HBError error = parser.parserError();
    QCOMPARE(error.domain(), u"ExpatXMLParserDomain"_s);
    QCOMPARE(error.code(), code);
    QCOMPARE(parser.lineNumber(), line);
    QCOMPARE(parser.columnNumber(), column);
    QCOMPARE(parser.byteNumber(), byte);
}

void tst_ExpatXMLParser::feedsPiecesOfBufferSize_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QStringList>("expected");

    const QString filler(8185, u'x'); // between "<a>" and "</a>" in 8192 bytes
    QTest::addRow("exactly one piece")
        << documentOfSize(ExpatXMLParser::BUFFER_SIZE)
        << QStringList{"start(a, nil, nil, {}) @1:3:0", "chars(" + filler + ")",
                       "end(a, nil, nil) @1:8192:8188", "endDocument"};
    // The text is reported in two pieces, split where the document was.
    QTest::addRow("exactly two pieces")
        << documentOfSize(2 * ExpatXMLParser::BUFFER_SIZE)
        << QStringList{"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8189, u'x') + ")",
                       "chars(" + QString(8188, u'x') + ")", "end(a, nil, nil) @1:16384:16380",
                       "endDocument"};
    // A document that fills its last piece still ends with a final piece:
    // without one Expat never checks that the document is complete, and
    // this truncation would pass unnoticed.
    QTest::addRow("unclosed document of exactly one piece")
        << documentOfSize(ExpatXMLParser::BUFFER_SIZE, "<b/>")
        << QStringList{"start(a, nil, nil, {}) @1:3:0", "chars(" + filler + ")",
                       "start(b, nil, nil, {}) @1:8192:8188", "end(b, nil, nil) @1:8192:8192",
                       errorLine(XML_ERROR_NO_ELEMENTS), "endDocument"};
    // "é" takes bytes 8191 and 8192: its halves arrive in different pieces.
    QTest::addRow("two-byte character on the seam")
        << "<a>" + QByteArray(8188, 'x') + "\xc3\xa9" + "yz</a>"
        << QStringList{"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8188, u'x') + ")",
                       u"chars(\u00e9yz)"_s, "end(a, nil, nil) @1:8198:8195", "endDocument"};
    QTest::addRow("tag across the seam reports its place")
        << "<a>" + QByteArray(8186, 'x') + "<b c=\"1\"/></a>"
        << QStringList{"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8186, u'x') + ")",
                       "start(b, nil, nil, {c=1}) @1:8199:8189",
                       "end(b, nil, nil) @1:8199:8199", "end(a, nil, nil) @1:8203:8199",
                       "endDocument"};
}

void tst_ExpatXMLParser::feedsPiecesOfBufferSize()
{
    QFETCH(QByteArray, document);
    QFETCH(QStringList, expected);

    RecordingDelegate delegate;
    delegate.implemented = allCallbacks & ~Callbacks(Callback::StartDocument);
    delegate.withPositions = true;
    QCOMPARE(parsed(document, delegate), expected);
}

void tst_ExpatXMLParser::abortStopsForGood_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("abortAfter");
    QTest::addColumn<QStringList>("expected");

    const QByteArray doc = "<a><b>t</b><c/></a>";
    const QString aborted = errorLine(XML_ERROR_ABORTED);
    QTest::addRow("before the first piece")
        << doc << "startDocument" << QStringList{"startDocument", aborted, "endDocument"};
    QTest::addRow("in a start tag")
        << doc << "start(b, nil, nil, {})"
        << QStringList{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                       aborted, "endDocument"};
    QTest::addRow("in text") << doc << "chars(t)"
                             << QStringList{"startDocument", "start(a, nil, nil, {})",
                                            "start(b, nil, nil, {})", "chars(t)", aborted,
                                            "endDocument"};
    // Expat still reports the end of an empty element stopped in its start.
    QTest::addRow("in an empty element")
        << doc << "start(c, nil, nil, {})"
        << QStringList{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                       "chars(t)", "end(b, nil, nil)", "start(c, nil, nil, {})",
                       "end(c, nil, nil)", aborted, "endDocument"};
    QTest::addRow("at the last end tag")
        << doc << "end(a, nil, nil)"
        << QStringList{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                       "chars(t)", "end(b, nil, nil)", "start(c, nil, nil, {})",
                       "end(c, nil, nil)", "end(a, nil, nil)", aborted, "endDocument"};
    QTest::addRow("in the first of two pieces")
        << "<a><b/>" + QByteArray(ExpatXMLParser::BUFFER_SIZE, ' ') + "<c/></a>"
        << "start(b, nil, nil, {})"
        << QStringList{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                       "end(b, nil, nil)", aborted, "endDocument"};
    QTest::addRow("after the end: nothing to stop")
        << doc << "endDocument"
        << QStringList{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                       "chars(t)", "end(b, nil, nil)", "start(c, nil, nil, {})",
                       "end(c, nil, nil)", "end(a, nil, nil)", "endDocument"};
}

void tst_ExpatXMLParser::abortStopsForGood()
{
    QFETCH(QByteArray, document);
    QFETCH(QString, abortAfter);
    QFETCH(QStringList, expected);

    RecordingDelegate delegate;
    delegate.abortAfter = abortAfter;
    QCOMPARE(parsed(document, delegate), expected);
}

void tst_ExpatXMLParser::callsOnlyImplementedCallbacks_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<int>("implemented");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<bool>("errorKept");

    const QByteArray doc = "<?pi x?><a><!--c-->t<b/></a>";
    QTest::addRow("none") << doc << int(Callback::NoCallbacks) << QStringList{} << false;
    QTest::addRow("start tags only")
        << doc << int(Callback::StartElement)
        << QStringList{"start(a, nil, nil, {})", "start(b, nil, nil, {})"} << false;
    QTest::addRow("text and comments only")
        << doc << int(Callback::FoundCharacters | Callback::FoundComment)
        << QStringList{"comment(c)", "chars(t)"} << false;
    // undecoded text: the bytes, shown in hex ("t" is 74)
    QTest::addRow("undecoded text only")
        << doc << int(Callback::FoundUTF8Characters) << QStringList{"utf8(74)"} << false;
    QTest::addRow("text both ways")
        << doc << int(Callback::FoundCharacters | Callback::FoundUTF8Characters)
        << QStringList{"utf8(74)", "chars(t)"} << false;
    QTest::addRow("errors not taken: none kept")
        << QByteArray("<a>") << int(Callback::StartElement | Callback::EndDocument)
        << QStringList{"start(a, nil, nil, {})", "endDocument"} << false;
    QTest::addRow("errors taken: kept")
        << QByteArray("<a>") << int(Callback::ParseErrorOccurred)
        << QStringList{errorLine(XML_ERROR_NO_ELEMENTS)} << true;
}

void tst_ExpatXMLParser::callsOnlyImplementedCallbacks()
{
    QFETCH(QByteArray, document);
    QFETCH(int, implemented);
    QFETCH(QStringList, expected);
    QFETCH(bool, errorKept);

    RecordingDelegate delegate;
    delegate.implemented = Callbacks::fromInt(implemented);
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    QVERIFY(parser.parse());
    QCOMPARE(delegate.log, expected);
    QCOMPARE(parser.parserError().isNull(), !errorKept);
}

void tst_ExpatXMLParser::readsFiles_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("expectedStart");
    QTest::addColumn<int>("elements");

    QTest::addRow("declared ISO-8859-1")
        << QStringLiteral(HB_CORPUS_DIR "/gpx/gpxgo-oziexplorer-iso8859-1.gpx")
        << QStringList{"start(gpx, nil, nil, {creator=OziExplorer Version 3954q - "
                       "http://www.oziexplorer.com;version=1.0;"
                       "xmlns=http://www.topografix.com/GPX/1/0;"
                       "xmlns:xsi=http://www.w3.org/2001/XMLSchema-instance;"
                       "xsi:schemaLocation=http://www.topografix.com/GPX/1/0 "
                       "http://www.topografix.com/GPX/1/0/gpx.xsd})",
                       "start(time, nil, nil, {})", "chars(2013-07-29T21:43:01Z)",
                       "end(time, nil, nil)",
                       "start(bounds, nil, nil, {maxlat=44.280432;maxlon=20.682845;"
                       "minlat=44.252050;minlon=20.545637})",
                       "end(bounds, nil, nil)",
                       "start(wpt, nil, nil, {lat=44.2805478;lon=20.5402796})"}
        << 1 + 2 + 8 * 3;
    const QString utf16Path = m_files.filePath(u"utf16.gpx"_s);
    QFile utf16(utf16Path);
    QVERIFY(utf16.open(QIODevice::WriteOnly));
    utf16.write(utf16WithBom(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
                             "<gpx creator=\"Zürich\">\r\n<name>Метро</name></gpx>"_s));
    utf16.close();
    QTest::addRow("UTF-16 with byte order mark")
        << utf16Path
        << QStringList{u"start(gpx, nil, nil, {creator=Zürich})"_s, "start(name, nil, nil, {})",
                       u"chars(Метро)"_s, "end(name, nil, nil)", "end(gpx, nil, nil)"}
        << 2;
    QTest::addRow("unreadable")
        << QStringLiteral(HB_CORPUS_DIR "/no-such-file.gpx")
        << QStringList{errorLine(XML_ERROR_NO_ELEMENTS)} << 0;
}

void tst_ExpatXMLParser::readsFiles()
{
    QFETCH(QString, path);
    QFETCH(QStringList, expectedStart);
    QFETCH(int, elements);

    if (!QFile::exists(path))
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Cannot read .*no-such-file"));
    RecordingDelegate delegate;
    delegate.implemented = Callback::StartElement | Callback::EndElement
        | Callback::FoundCharacters | Callback::ParseErrorOccurred;
    const auto parser = ExpatXMLParser::fromContentsOfFile(path);
    parser->setDelegate(&delegate);
    parser->parse();

    delegate.log.removeAll(u"chars(\n)"_s);
    delegate.log.removeAll(u"chars( )"_s);
    QCOMPARE(delegate.log.mid(0, expectedStart.size()), expectedStart);
    QCOMPARE(delegate.log.filter(QRegularExpression("^start\\(")).size(), elements);
}

// Every real file: no crash, each end tag closes the innermost open
// element, and a failure is the one expected at the place expected.
void tst_ExpatXMLParser::readsCorpus_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("code");
    QTest::addColumn<qint64>("line");

    struct Broken
    {
        XML_Error code;
        qint64 line;
    };
    const QHash<QString, Broken> broken{
        {"sportslib-polar-v800-leading-spaces.tcx", {XML_ERROR_MISPLACED_XML_PI, 1}},
        {"gpsbabel-not-xml.gpx", {XML_ERROR_SYNTAX, 1}},
        {"togeojson-garmin-connect-run.truncated.gpx", {XML_ERROR_NO_ELEMENTS, 900}},
        {"gpsbabel-spb_metro_ru-mid-utf8.truncated.gpx", {XML_ERROR_PARTIAL_CHAR, 240}},
        {"togeojson-garmin-connect-edge520.truncated.tcx", {XML_ERROR_NO_ELEMENTS, 2409}},
        {"gpsbabel-basecamp-bom-crlf.truncated.gpx", {XML_ERROR_NO_ELEMENTS, 40}},
        // NMEA logs that begin with a "#" comment line
        {"gpsd-gp-320fw-coldboot-garbled.log", {XML_ERROR_INVALID_TOKEN, 1}},
        {"gpsd-holux-gm-210.log", {XML_ERROR_INVALID_TOKEN, 1}},
        {"gpsd-telit-he910.truncated.log", {XML_ERROR_INVALID_TOKEN, 1}},
    };
    int rows = 0;
    for (const char *folder : {"gpx", "tcx", "malformed"}) {
        QDirIterator it(QStringLiteral(HB_CORPUS_DIR "/") + folder, QDir::Files);
        while (it.hasNext()) {
            it.next();
            const Broken fault = broken.value(it.fileName(), {XML_ERROR_NONE, 0});
            QTest::addRow("%s/%s", folder, qPrintable(it.fileName()))
                << it.filePath() << int(fault.code) << fault.line;
            ++rows;
        }
    }
    // The corpus README's counts: a missing or misplaced corpus must not
    // pass as a clean run of no rows.
    QVERIFY(rows >= 84 + 20 + 11);
}

namespace {

class NestingDelegate : public ExpatXMLParserDelegate
{
public:
    QStringList open;
    int elements = 0;
    bool misnested = false;
    HBError error;

    Callbacks implementedCallbacks() const override
    {
        return Callback::StartElement | Callback::EndElement | Callback::ParseErrorOccurred;
    }
    void parserDidStartElement(ExpatXMLParser &, const QString &name, const QString &,
                               const QString &, const Attributes &) override
    {
        open << name;
        ++elements;
    }
    void parserDidEndElement(ExpatXMLParser &, const QString &name, const QString &,
                             const QString &) override
    {
        misnested = misnested || open.isEmpty() || open.takeLast() != name;
    }
    void parserParseErrorOccurred(ExpatXMLParser &, const HBError &e) override { error = e; }
};

} // namespace

void tst_ExpatXMLParser::readsCorpus()
{
    QFETCH(QString, path);
    QFETCH(int, code);
    QFETCH(qint64, line);

    NestingDelegate delegate;
    const auto parser = ExpatXMLParser::fromContentsOfFile(path);
    parser->setDelegate(&delegate);
    parser->parse();

    QCOMPARE(delegate.error.code(), code);
    QVERIFY(!delegate.misnested);
    if (code == XML_ERROR_NONE) {
        QVERIFY(delegate.elements > 0);
        QVERIFY(delegate.open.isEmpty());
    } else {
        QCOMPARE(parser->lineNumber(), line);
    }
}

namespace {

class ReparsingDelegate : public RecordingDelegate
{
public:
    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                               const QString &namespaceURI, const QString &qualifiedName,
                               const Attributes &attributes) override
    {
        parser.parse();
        RecordingDelegate::parserDidStartElement(parser, elementName, namespaceURI,
                                                 qualifiedName, attributes);
    }
};

} // namespace

// A parse started from a callback would free the Expat parser under the
// running one.
void tst_ExpatXMLParser::ignoresParseFromItsOwnCallback()
{
    ReparsingDelegate delegate;
    QCOMPARE(parsed("<a><b/></a>", delegate),
             QStringList({"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})",
                          "end(b, nil, nil)", "end(a, nil, nil)", "endDocument"}));
}

namespace {

class TextDelegate : public ExpatXMLParserDelegate
{
public:
    QByteArray text;
    Callbacks implementedCallbacks() const override { return Callback::FoundUTF8Characters; }
    void parserFoundUTF8Characters(ExpatXMLParser &, QByteArrayView utf8) override { text += utf8; }
};

} // namespace

// Whatever the document's encoding, the undecoded text comes as UTF-8.
void tst_ExpatXMLParser::undecodedTextIsUtf8_data()
{
    QTest::addColumn<QByteArray>("document");
    const QString document = u"<a>Z\u00fcrich \u20ac \U0001F600 &amp;</a>"_s;
    QTest::addRow("UTF-8") << document.toUtf8();
    QTest::addRow("ISO-8859-1")
        << "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>Z\xFCrich &#8364; &#128512; &amp;</a>"_ba;
    QTest::addRow("UTF-16") << utf16WithBom(document);
}

void tst_ExpatXMLParser::undecodedTextIsUtf8()
{
    QFETCH(QByteArray, document);
    TextDelegate delegate;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(QString::fromUtf8(delegate.text), u"Z\u00fcrich \u20ac \U0001F600 &"_s);
}

namespace {

class NameDelegate : public ExpatXMLParserDelegate
{
public:
    QStringList starts, ends, attributeNames;
    Callbacks implementedCallbacks() const override { return Callback::StartElement | Callback::EndElement; }
    void parserDidStartElement(ExpatXMLParser &, const QString &name, const QString &, const QString &,
                               const Attributes &attributes) override
    {
        starts << name;
        attributeNames << attributes.keys();
    }
    void parserDidEndElement(ExpatXMLParser &, const QString &name, const QString &, const QString &) override
    {
        ends << name;
    }
};

} // namespace

// Names are decoded once and shared; a document with more distinct names
// than are kept must still get every one right, and names that share a
// beginning must not be taken for each other.
void tst_ExpatXMLParser::reportsManyDistinctNames()
{
    QByteArray document = "<r>";
    QStringList names;
    for (int i = 0; i < 6000; ++i) {
        const QString name = (i % 2 ? u"\u00e9l"_s : u"el"_s) + QString::number(i);
        names << name;
        document += "<" + name.toUtf8() + " " + name.toUtf8() + "a=\"1\"/>";
    }
    document += "<e/><el/><ela/><e/></r>";
    names << "e" << "el" << "ela" << "e";
    NameDelegate delegate;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(delegate.starts, QStringList{"r"} + names);
    QCOMPARE(delegate.ends, names + QStringList{"r"});
    QStringList attributeNames;
    for (int i = 0; i < 6000; ++i)
        attributeNames << names[i] + u'a';
    QCOMPARE(delegate.attributeNames, attributeNames);
}

namespace {

// Keeps every element's attribute map and the value of "a" on its own, or
// only a text written from them, which shares nothing with the reader.
class KeepingDelegate : public ExpatXMLParserDelegate
{
public:
    explicit KeepingDelegate(bool keep) : keep(keep) {}
    const bool keep;
    QList<Attributes> maps;
    QStringList values, texts;
    Callbacks implementedCallbacks() const override { return Callback::StartElement; }
    void parserDidStartElement(ExpatXMLParser &, const QString &, const QString &, const QString &,
                               const Attributes &attributes) override
    {
        QString text;
        for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
            text += it.key() + u'=' + it.value() + u';';
        texts << text;
        if (!keep)
            return;
        maps << attributes;
        values << attributes.value(QStringLiteral("a"));
    }
};

} // namespace

// The reader refills one map from element to element; every element must
// see its own attributes, whether the one before had the same, others,
// more, none, or non-ASCII ones, and what a delegate kept of an earlier
// element must not change under it.
void tst_ExpatXMLParser::keptAttributesKeepTheirValues()
{
    const QByteArray document = "<r><p a=\"1\" b=\"x\"/><p a=\"22\" b=\"y\"/><p a=\"3\" c=\"z\"/>"
                                "<p a=\"\xc3\xa9\" b=\"w\"/><p a=\"4444\" b=\"\"/><p/><p a=\"5\" b=\"v\" c=\"u\"/>"
                                "<p a=\"6\" b=\"t\"/></r>";
    const QStringList texts{"", "a=1;b=x;", "a=22;b=y;", "a=3;c=z;", u"a=\u00e9;b=w;"_s, "a=4444;b=;", "",
                            "a=5;b=v;c=u;", "a=6;b=t;"};
    for (const bool keep : {false, true}) {
        KeepingDelegate delegate(keep);
        ExpatXMLParser parser(document);
        parser.setDelegate(&delegate);
        parser.parse();
        QCOMPARE(delegate.texts, texts);
        if (!keep)
            continue;
        using Map = ExpatXMLParserDelegate::Attributes;
        const QList<Map> expected{Map{},
                                  Map{{"a", "1"}, {"b", "x"}},
                                  Map{{"a", "22"}, {"b", "y"}},
                                  Map{{"a", "3"}, {"c", "z"}},
                                  Map{{"a", u"\u00e9"_s}, {"b", "w"}},
                                  Map{{"a", "4444"}, {"b", ""}},
                                  Map{},
                                  Map{{"a", "5"}, {"b", "v"}, {"c", "u"}},
                                  Map{{"a", "6"}, {"b", "t"}}};
        QCOMPARE(delegate.maps, expected);
        QCOMPARE(delegate.values, (QStringList{"", "1", "22", "3", u"\u00e9"_s, "4444", "", "5", "6"}));
    }
}

// Each event reports the line and column where its markup starts, as
// Expat counts them (characters, not bytes; CR LF ends one line), however
// far ahead of the delegate the reading thread is; the place of a fault
// stays once the parse has ended.
void tst_ExpatXMLParser::reportsLinesAndColumns()
{
    const QByteArray document = "<a>\n  <b c=\"1\"/>\r\n\t<d>\xc3\xa9</d>\n</a>\n<e/>";
    RecordingDelegate delegate;
    delegate.implemented = Callback::StartElement | Callback::EndElement;
    delegate.withPositions = true;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(delegate.log, (QStringList{"start(a, nil, nil, {}) @1:3:0", "start(b, nil, nil, {c=1}) @2:12:6",
                                        "end(b, nil, nil) @2:12:16", "start(d, nil, nil, {}) @3:4:19",
                                        "end(d, nil, nil) @3:9:24", "end(a, nil, nil) @4:4:29"}));
    // "<e/>" after the root is the fault, on line 5
    QCOMPARE(parser.lineNumber(), 5);
    QCOMPARE(parser.columnNumber(), 0);
    QCOMPARE(parser.byteNumber(), 34);
}

namespace {

QByteArray numberedDocument(int count);

class PlaceDelegate : public ExpatXMLParserDelegate
{
public:
    QStringList places;

    Callbacks implementedCallbacks() const override
    {
        return Callback::StartElement | Callback::EndElement | Callback::FoundUTF8Characters
            | Callback::FoundComment | Callback::FoundProcessingInstruction;
    }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &, const QString &, const QString &,
                               const Attributes &) override
    {
        note(parser);
    }
    void parserDidEndElement(ExpatXMLParser &parser, const QString &, const QString &, const QString &) override
    {
        note(parser);
    }
    void parserFoundUTF8Characters(ExpatXMLParser &parser, QByteArrayView) override { note(parser); }
    void parserFoundComment(ExpatXMLParser &parser, const QString &) override { note(parser); }
    void parserFoundProcessingInstruction(ExpatXMLParser &parser, const QString &, const QString &) override
    {
        note(parser);
    }

private:
    void note(ExpatXMLParser &parser)
    {
        places << place(parser.lineNumber(), parser.columnNumber(), parser.byteNumber());
    }
};

QByteArray utf16(const QString &text, QStringConverter::Encoding encoding, bool byteOrderMark)
{
    QStringEncoder encoder(encoding, byteOrderMark ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
    return encoder.encode(text);
}

// Lines of "<p>x</p>" ended by `newline`, the first of them placed so that
// a newline's first byte is the last of the reader's first piece.
QByteArray newlineAcrossAPiece(const QByteArray &newline)
{
    const QByteArray line = "<p>x</p>" + newline;
    QByteArray document = "<a>";
    document += QByteArray(int((ExpatXMLParser::BUFFER_SIZE - 1 - document.size() - 8) % line.size()), ' ');
    while (document.size() < 3 * ExpatXMLParser::BUFFER_SIZE)
        document += line;
    return document + "</a>";
}

} // namespace

void tst_ExpatXMLParser::countsLinesAndColumnsAsExpatDoes_data()
{
    QTest::addColumn<QByteArray>("document");

    const QString mixed = u"<?xml version=\"1.0\"?>\r\n<a x=\"\u00e9\">\rb\u20ac\U0001F600<!--c\r\nd-->\n"
                          u"<?pi data?>\r\n<b/>\n\u00e9\u00e9\r\r\n\n<c y=\"\U0001F600\"/></a>"_s;
    QTest::addRow("UTF-8: CR, LF, CR LF, two-, three- and four-byte characters") << mixed.toUtf8();
    QTest::addRow("UTF-8 after a byte order mark") << QByteArray("\xEF\xBB\xBF<a>\n<b/>\xc3\xa9<c/></a>");
    QTest::addRow("ISO-8859-1: a character per byte")
        << QByteArray("<?xml version='1.0' encoding='iso-8859-1'?>\n<a>\xe9\xc3\xa9<b/>\r\n<c/></a>");
    QTest::addRow("ISO-8859-1 after a UTF-8 byte order mark")
        << QByteArray("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xc3\xa9<b/></a>");
    QTest::addRow("US-ASCII") << QByteArray("<?xml version=\"1.0\" encoding=\"US-ASCII\"?>\n<a>\r\n<b/></a>");
    QTest::addRow("UTF-8 declared") << QByteArray("<?xml version=\"1.0\" encoding=\"utf-8\"?><a>\xc3\xa9<b/></a>");
    const QString wide = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a>\u00e9\U0001F600\r<b/>\r\n\u4e2d<c/></a>"_s;
    QTest::addRow("UTF-16 little-endian after a byte order mark") << utf16(wide, QStringConverter::Utf16LE, true);
    QTest::addRow("UTF-16 big-endian after a byte order mark") << utf16(wide, QStringConverter::Utf16BE, true);
    const QString undeclared = u"<a>\u00e9\U0001F600\r<b/>\r\n\u4e2d<c/></a>"_s;
    QTest::addRow("UTF-16 little-endian, no mark") << utf16(undeclared, QStringConverter::Utf16LE, false);
    QTest::addRow("UTF-16 big-endian, no mark") << utf16(undeclared, QStringConverter::Utf16BE, false);
    QTest::addRow("CR LF across a piece") << newlineAcrossAPiece("\r\n");
    QTest::addRow("CR at the end of a piece") << newlineAcrossAPiece("\r");
    QTest::addRow("long document") << numberedDocument(5000).replace("<q/>", "\r\n<q>\xc3\xa9</q>\n");

    for (const char *folder : {"gpx", "tcx", "malformed"}) {
        QDirIterator it(QStringLiteral(HB_CORPUS_DIR "/") + folder, QDir::Files);
        while (it.hasNext()) {
            QFile file(it.next());
            QVERIFY(file.open(QIODevice::ReadOnly));
            QTest::addRow("%s/%s", folder, qPrintable(it.fileName())) << file.readAll();
        }
    }
}

// Lines and columns are counted only when a delegate asks; they must come
// out as Expat's own, in every encoding Expat reads by itself, for every
// event, the events of the corpus included.
void tst_ExpatXMLParser::countsLinesAndColumnsAsExpatDoes()
{
    QFETCH(QByteArray, document);

    const QStringList expected = expatsOwnPlaces(document);
    PlaceDelegate delegate;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(delegate.places, expected);
}

namespace {

// A long document: tens of thousands of elements, each with its number in
// an attribute and in its text, so that a lost, repeated or misplaced
// event shows.
QByteArray numberedDocument(int count)
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

class CountingDelegate : public ExpatXMLParserDelegate
{
public:
    int abortAtStart = -1;   // number of the <p> whose start aborts
    bool withText = true;    // each <p> holds its number as text
    int starts = 0;
    int ends = 0;
    QStringList faults;
    HBError error;

    Callbacks implementedCallbacks() const override
    {
        return Callback::StartElement | Callback::EndElement | Callback::FoundCharacters
            | Callback::ParseErrorOccurred;
    }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &name, const QString &, const QString &,
                               const Attributes &attributes) override
    {
        if (name == u"p") {
            const QString expected = QString::number(starts);
            if (attributes.value(QStringLiteral("n")) != expected || attributes.contains(QStringLiteral("m")) != (starts % 3 == 0))
                faults << QStringLiteral("attributes of %1").arg(expected);
            text.clear();
            if (starts++ == abortAtStart)
                parser.abortParsing();
        }
    }
    void parserFoundCharacters(ExpatXMLParser &, const QString &string) override { text += string; }
    void parserDidEndElement(ExpatXMLParser &, const QString &name, const QString &, const QString &) override
    {
        if (name != u"p")
            return;
        if (text != (withText ? QString::number(ends) : QString()))
            faults << QStringLiteral("text of %1").arg(ends);
        ++ends;
    }
    void parserParseErrorOccurred(ExpatXMLParser &, const HBError &e) override { error = e; }

private:
    QString text;
};

} // namespace

// The document is read on one thread and its events handled on another,
// in batches; every event must arrive once, in order, with its own names,
// attributes and text, however the batches fall.
void tst_ExpatXMLParser::longDocumentsArriveWholeAndInOrder()
{
    constexpr int count = 60000;
    CountingDelegate delegate;
    ExpatXMLParser parser(numberedDocument(count));
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(delegate.faults, QStringList());
    QCOMPARE(delegate.starts, count);
    QCOMPARE(delegate.ends, count);
    QVERIFY(delegate.error.isNull());
}

void tst_ExpatXMLParser::abortStopsALongDocument_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<bool>("withText");
    QTest::addColumn<int>("abortAt");
    QTest::addColumn<int>("ends");

    // Without text, an empty element's start and end are two events:
    // aborting in the start of the 2048th to 2050th falls on either side
    // of where one batch of events ends and the next begins, and Expat
    // still reports the end of the element it was stopped in.
    QByteArray empties = "<r>";
    for (int i = 0; i < 20000; ++i)
        empties += "<p n=\"" + QByteArray::number(i) + "\"" + (i % 3 ? "" : " m=\"x\"") + "/>";
    empties += "</r>";
    for (const int at : {0, 2046, 2047, 2048, 2049, 15000})
        QTest::addRow("empty elements, at %d", at) << empties << false << at << at + 1;
    // With the reader far ahead and waiting for room, the abort must still
    // end the parse at once.
    for (const int at : {0, 30000})
        QTest::addRow("elements with text, at %d", at) << numberedDocument(200000) << true << at << at;
}

void tst_ExpatXMLParser::abortStopsALongDocument()
{
    QFETCH(QByteArray, document);
    QFETCH(bool, withText);
    QFETCH(int, abortAt);
    QFETCH(int, ends);

    CountingDelegate delegate;
    delegate.abortAtStart = abortAt;
    delegate.withText = withText;
    ExpatXMLParser parser(document);
    parser.setDelegate(&delegate);
    parser.parse();
    QCOMPARE(delegate.faults, QStringList());
    QCOMPARE(delegate.starts, abortAt + 1);
    QCOMPARE(delegate.ends, ends);
    QCOMPARE(delegate.error.code(), int(XML_ERROR_ABORTED));
}

QTEST_GUILESS_MAIN(tst_ExpatXMLParser)
#include "tst_ExpatXMLParser.moc"
