#include "ExpatTestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace expattest;

namespace {

enum Option { Namespaces = 1, Prefixes = 2, Positions = 4, Reparse = 8 };

void addEvents(const char *name, const QByteArray &document, const QStringList &expected, int options = 0,
               Callbacks implemented = allCallbacks, const QString &abortAfter = {})
{
    QTest::newRow(name) << document << options << int(implemented.toInt()) << abortAfter << expected;
}

// "<a>" + filler text + end, `size` bytes in all.
QByteArray documentOfSize(qsizetype size, const QByteArray &end = "</a>")
{
    return "<a>" + QByteArray(size - 3 - end.size(), 'x') + end;
}

} // namespace

// The reader's events, in order and with their values: decoding, names and
// namespaces, pieces of the document, aborting, the callbacks a delegate
// takes, and the place of a fault.
class tst_ExpatXMLParser : public QObject
{
    Q_OBJECT

private slots:
    void reportsEvents_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<int>("options");
        QTest::addColumn<int>("implemented");
        QTest::addColumn<QString>("abortAfter");
        QTest::addColumn<QStringList>("expected");

        addEvents("elements, attributes, text, comment, instruction",
                  "<?xml version=\"1.0\"?>\n<?style href=\"a.css\"?><gpx version=\"1.1\" creator=\"me\"><!-- note -->"
                  "<wpt lat=\"48.1\" lon=\"11.5\"><name>A</name></wpt></gpx>",
                  {"startDocument", "pi(style, href=\"a.css\")", "start(gpx, nil, nil, {creator=me;version=1.1})",
                   "comment( note )", "start(wpt, nil, nil, {lat=48.1;lon=11.5})", "start(name, nil, nil, {})",
                   "chars(A)", "end(name, nil, nil)", "end(wpt, nil, nil)", "end(gpx, nil, nil)", "endDocument"});
        addEvents("text in pieces: entities, CDATA, line ends normalised", "<a>x&amp;y<![CDATA[<z>]]>1\r\n2</a>",
                  {"startDocument", "start(a, nil, nil, {})", "chars(x)", "chars(&)", "chars(y)", "chars(<z>)",
                   "chars(1)", "chars(\n)", "chars(2)", "end(a, nil, nil)", "endDocument"});
        addEvents("UTF-8 text and attribute values",
                  "<a n=\"Z\xc3\xbcrich \xe2\x82\xac\">\xd0\x9c\xd0\xb5\xd1\x82\xd1\x80\xd0\xbe</a>",
                  {"startDocument", u"start(a, nil, nil, {n=Zürich €})"_s, u"chars(Метро)"_s, "end(a, nil, nil)",
                   "endDocument"});
        addEvents("declared ISO-8859-1 is decoded",
                  "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a n=\"\xe9\">Z\xfc" "rich</a>",
                  {"startDocument", u"start(a, nil, nil, {n=é})"_s, u"chars(Zürich)"_s, "end(a, nil, nil)",
                   "endDocument"});
        addEvents("UTF-16 with byte order mark is decoded", utf16(u"<a n=\"é\">Zürich</a>"_s),
                  {"startDocument", u"start(a, nil, nil, {n=é})"_s, u"chars(Zürich)"_s, "end(a, nil, nil)",
                   "endDocument"});
        addEvents("internal entity expanded", "<!DOCTYPE a [<!ENTITY e \"ent\">]><a>&e;</a>",
                  {"startDocument", "start(a, nil, nil, {})", "chars(ent)", "end(a, nil, nil)", "endDocument"});
        // the parse asks for external entities to be resolved, and still none is read
        addEvents("external entity never loaded", "<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/hostname\">]><a>&e;</a>",
                  {"startDocument", "start(a, nil, nil, {})", "end(a, nil, nil)", "endDocument"});
        addEvents("without namespaces, prefixed names stay whole", "<g:gpx xmlns:g=\"urn:g\"><g:wpt g:lat=\"1\"/></g:gpx>",
                  {"startDocument", "start(g:gpx, nil, nil, {xmlns:g=urn:g})", "start(g:wpt, nil, nil, {g:lat=1})",
                   "end(g:wpt, nil, nil)", "end(g:gpx, nil, nil)", "endDocument"},
                  Prefixes);
        addEvents("namespaces: prefixed element split, end tag joined", "<g:gpx xmlns:g=\"urn:g\"><g:wpt/></g:gpx>",
                  {"startDocument", "start(gpx, urn:g, g:gpx, {})", "start(wpt, urn:g, g:wpt, {})",
                   "end(urn:g`wpt`g, nil, nil)", "end(urn:g`gpx`g, nil, nil)", "endDocument"},
                  Namespaces);
        addEvents("namespaces: default namespace has no prefix", "<gpx xmlns=\"urn:d\"><wpt/></gpx>",
                  {"startDocument", "start(gpx, urn:d, gpx, {})", "start(wpt, urn:d, wpt, {})",
                   "end(urn:d`wpt, nil, nil)", "end(urn:d`gpx, nil, nil)", "endDocument"},
                  Namespaces);
        addEvents("namespaces: no namespace at all", "<a><b/></a>",
                  {"startDocument", "start(a, nil, a, {})", "start(b, nil, b, {})", "end(b, nil, nil)",
                   "end(a, nil, nil)", "endDocument"},
                  Namespaces);
        addEvents("namespaces: attribute names stay joined", "<a xmlns:p=\"urn:p\" p:x=\"1\" y=\"2\"/>",
                  {"startDocument", "start(a, nil, a, {urn:p`x`p=1;y=2})", "end(a, nil, nil)", "endDocument"},
                  Namespaces);
        addEvents("namespaces: prefix mappings reported around their scope",
                  "<gpx xmlns=\"urn:d\" xmlns:p=\"urn:p\"><p:e/><f xmlns=\"\"/></gpx>",
                  {"startDocument", "startPrefix(, urn:d)", "startPrefix(p, urn:p)", "start(gpx, urn:d, gpx, {})",
                   "start(e, urn:p, p:e, {})", "end(urn:p`e`p, nil, nil)", "startPrefix(, nil)", "start(f, nil, f, {})",
                   "end(f, nil, nil)", "endPrefix()", "end(urn:d`gpx, nil, nil)", "endPrefix(p)", "endPrefix()",
                   "endDocument"},
                  Namespaces | Prefixes);
        addEvents("prefix reporting without namespaces reports none", "<gpx xmlns=\"urn:d\"/>",
                  {"startDocument", "start(gpx, nil, nil, {xmlns=urn:d})", "end(gpx, nil, nil)", "endDocument"},
                  Prefixes);
        // A parse started from a callback would free the Expat parser under the running one.
        addEvents("a parse started from a callback is ignored", "<a><b/></a>",
                  {"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})", "end(b, nil, nil)",
                   "end(a, nil, nil)", "endDocument"},
                  Reparse);

        // Expat sees the document in pieces of BUFFER_SIZE bytes.
        const Callbacks noStart = allCallbacks & ~Callbacks(Callback::StartDocument);
        const QString filler(8185, u'x');   // between "<a>" and "</a>" in 8192 bytes
        addEvents("exactly one piece", documentOfSize(ExpatXMLParser::BUFFER_SIZE),
                  {"start(a, nil, nil, {}) @1:3:0", "chars(" + filler + ")", "end(a, nil, nil) @1:8192:8188",
                   "endDocument"},
                  Positions, noStart);
        // The text is reported in two pieces, split where the document was.
        addEvents("exactly two pieces", documentOfSize(2 * ExpatXMLParser::BUFFER_SIZE),
                  {"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8189, u'x') + ")",
                   "chars(" + QString(8188, u'x') + ")", "end(a, nil, nil) @1:16384:16380", "endDocument"},
                  Positions, noStart);
        // A document that fills its last piece still ends with a final piece:
        // without one Expat never checks that the document is complete, and
        // this truncation would pass unnoticed.
        addEvents("unclosed document of exactly one piece", documentOfSize(ExpatXMLParser::BUFFER_SIZE, "<b/>"),
                  {"start(a, nil, nil, {}) @1:3:0", "chars(" + filler + ")", "start(b, nil, nil, {}) @1:8192:8188",
                   "end(b, nil, nil) @1:8192:8192", errorLine(XML_ERROR_NO_ELEMENTS), "endDocument"},
                  Positions, noStart);
        // "é" takes bytes 8191 and 8192: its halves arrive in different pieces.
        addEvents("two-byte character on the seam", "<a>" + QByteArray(8188, 'x') + "\xc3\xa9" + "yz</a>",
                  {"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8188, u'x') + ")", u"chars(\u00e9yz)"_s,
                   "end(a, nil, nil) @1:8198:8195", "endDocument"},
                  Positions, noStart);
        addEvents("tag across the seam reports its place", "<a>" + QByteArray(8186, 'x') + "<b c=\"1\"/></a>",
                  {"start(a, nil, nil, {}) @1:3:0", "chars(" + QString(8186, u'x') + ")",
                   "start(b, nil, nil, {c=1}) @1:8199:8189", "end(b, nil, nil) @1:8199:8199",
                   "end(a, nil, nil) @1:8203:8199", "endDocument"},
                  Positions, noStart);

        // An abort stops the parse for good, reported as a parse error.
        const QByteArray doc = "<a><b>t</b><c/></a>";
        const QString aborted = errorLine(XML_ERROR_ABORTED);
        const QStringList whole{"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})", "chars(t)",
                                "end(b, nil, nil)", "start(c, nil, nil, {})", "end(c, nil, nil)", "end(a, nil, nil)"};
        const auto abortedAfter = [&](qsizetype events) { return whole.mid(0, events) + QStringList{aborted, "endDocument"}; };
        addEvents("abort before the first piece", doc, abortedAfter(1), 0, allCallbacks, "startDocument");
        addEvents("abort in a start tag", doc, abortedAfter(3), 0, allCallbacks, "start(b, nil, nil, {})");
        addEvents("abort in text", doc, abortedAfter(4), 0, allCallbacks, "chars(t)");
        // Expat still reports the end of an empty element stopped in its start.
        addEvents("abort in an empty element", doc, abortedAfter(7), 0, allCallbacks, "start(c, nil, nil, {})");
        addEvents("abort at the last end tag", doc, abortedAfter(8), 0, allCallbacks, "end(a, nil, nil)");
        addEvents("abort in the first of two pieces", "<a><b/>" + QByteArray(ExpatXMLParser::BUFFER_SIZE, ' ') + "<c/></a>",
                  {"startDocument", "start(a, nil, nil, {})", "start(b, nil, nil, {})", "end(b, nil, nil)", aborted,
                   "endDocument"},
                  0, allCallbacks, "start(b, nil, nil, {})");
        addEvents("abort after the end: nothing to stop", doc, whole + QStringList{"endDocument"}, 0, allCallbacks,
                  "endDocument");

        // Only the callbacks a delegate implements are called.
        const QByteArray small = "<?pi x?><a><!--c-->t<b/></a>";
        addEvents("no callbacks", small, {}, 0, Callback::NoCallbacks);
        addEvents("start tags only", small, {"start(a, nil, nil, {})", "start(b, nil, nil, {})"}, 0,
                  Callback::StartElement);
        addEvents("text and comments only", small, {"comment(c)", "chars(t)"}, 0,
                  Callback::FoundCharacters | Callback::FoundComment);
        // undecoded text: the bytes, shown in hex ("t" is 74)
        addEvents("undecoded text only", small, {"utf8(74)"}, 0, Callback::FoundUTF8Characters);
        addEvents("text both ways", small, {"utf8(74)", "chars(t)"}, 0,
                  Callback::FoundCharacters | Callback::FoundUTF8Characters);
        // the error is kept only for a delegate that takes it
        addEvents("errors not taken", "<a>", {"start(a, nil, nil, {})", "endDocument"}, 0,
                  Callback::StartElement | Callback::EndDocument);
        addEvents("errors taken", "<a>", {errorLine(XML_ERROR_NO_ELEMENTS)}, 0, Callback::ParseErrorOccurred);
    }

    void reportsEvents()
    {
        QFETCH(QByteArray, document);
        QFETCH(int, options);
        QFETCH(int, implemented);
        QFETCH(QString, abortAfter);
        QFETCH(QStringList, expected);

        RecordingDelegate delegate;
        delegate.implemented = Callbacks::fromInt(implemented);
        delegate.abortAfter = abortAfter;
        delegate.withPositions = options & Positions;
        delegate.reparse = options & Reparse;
        ExpatXMLParser parser(document);
        parser.setDelegate(&delegate);
        parser.setShouldProcessNamespaces(options & Namespaces);
        parser.setShouldReportNamespacePrefixes(options & Prefixes);
        parser.setShouldResolveExternalEntities(true);
        parser.parse();
        QCOMPARE(delegate.log, expected);
        QCOMPARE(parser.parserError().isNull(), !expected.join(u'\n').contains(u"error("));
    }

    void reportsErrorsWithPlace_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<bool>("processNamespaces");
        QTest::addColumn<int>("code");
        QTest::addColumn<qint64>("line");
        QTest::addColumn<qint64>("column");
        QTest::addColumn<qint64>("byte");

        const auto row = [](const char *name, const QByteArray &document, XML_Error code, qint64 line, qint64 column,
                            qint64 byte, bool processNamespaces = false) {
            QTest::newRow(name) << document << processNamespaces << int(code) << line << column << byte;
        };
        row("empty", QByteArray(), XML_ERROR_NO_ELEMENTS, 1, 0, 0);
        row("not XML", "Error: nothing to write", XML_ERROR_SYNTAX, 1, 0, 0);
        // Expat places a mismatch at the name inside the end tag.
        row("mismatched tag", "<a>\n  <b></a>", XML_ERROR_TAG_MISMATCH, 2, 7, 11);
        row("truncated", "<a>\n<b>text", XML_ERROR_NO_ELEMENTS, 2, 7, 11);
        row("invalid UTF-8", "<a>\n\xff</a>", XML_ERROR_INVALID_TOKEN, 2, 0, 4);
        row("cut inside a character", "<a>\xd0", XML_ERROR_PARTIAL_CHAR, 1, 3, 3);
        row("declaration not at start", "  <?xml version=\"1.0\"?><a/>", XML_ERROR_MISPLACED_XML_PI, 1, 2, 2);
        row("undefined entity", "<a>&nbsp;</a>", XML_ERROR_UNDEFINED_ENTITY, 1, 3, 3);
        row("duplicate attribute", "<a x=\"1\" x=\"2\"/>", XML_ERROR_DUPLICATE_ATTRIBUTE, 1, 9, 9);
        row("unbound prefix", "<a><p:b/></a>", XML_ERROR_UNBOUND_PREFIX, 1, 3, 3, true);
        // columns count characters, not bytes; CR LF ends one line
        row("junk after the root, after CR LF, a tab and a two-byte letter",
            "<a>\n  <b c=\"1\"/>\r\n\t<d>\xc3\xa9</d>\n</a>\n<e/>", XML_ERROR_JUNK_AFTER_DOC_ELEMENT, 5, 0, 34);
        row("entity expansion bomb",
            "<!DOCTYPE a [<!ENTITY a \"aaaaaaaaaa\">"
            "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
            "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
            "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">"
            "<!ENTITY e \"&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;\">"
            "<!ENTITY f \"&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;\">"
            "<!ENTITY g \"&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;\">"
            "<!ENTITY h \"&g;&g;&g;&g;&g;&g;&g;&g;&g;&g;\">]><a>&h;</a>",
            XML_ERROR_AMPLIFICATION_LIMIT_BREACH, 1, 350, 350);
    }

    // The place of the fault stays once the parse has ended.
    void reportsErrorsWithPlace()
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
        parser.parse();
        QCOMPARE(delegate.log, QStringList({errorLine(XML_Error(code)), "endDocument"}));
        QCOMPARE(parser.parserError().domain(), u"ExpatXMLParserDomain"_s);
        QCOMPARE(parser.parserError().code(), code);
        QCOMPARE(parser.lineNumber(), line);
        QCOMPARE(parser.columnNumber(), column);
        QCOMPARE(parser.byteNumber(), byte);
    }

    // Whatever the document's encoding, the undecoded text comes as UTF-8.
    void undecodedTextIsUtf8_data()
    {
        QTest::addColumn<QByteArray>("document");
        const QString document = u"<a>Z\u00fcrich \u20ac \U0001F600 &amp;</a>"_s;
        QTest::addRow("UTF-8") << document.toUtf8();
        QTest::addRow("ISO-8859-1")
            << "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>Z\xFCrich &#8364; &#128512; &amp;</a>"_ba;
        QTest::addRow("UTF-16") << utf16(document);
    }

    void undecodedTextIsUtf8()
    {
        QFETCH(QByteArray, document);
        RecordingDelegate delegate;
        delegate.implemented = Callback::FoundUTF8Characters;
        ExpatXMLParser parser(document);
        parser.setDelegate(&delegate);
        parser.parse();
        QByteArray text;
        for (const QString &line : std::as_const(delegate.log))
            text += QByteArray::fromHex(line.sliced(5).chopped(1).toLatin1());   // "utf8(" hex ")"
        QCOMPARE(QString::fromUtf8(text), u"Z\u00fcrich \u20ac \U0001F600 &"_s);
    }

    // Names are decoded once and shared; a document with more distinct
    // names than are kept must still get every one right, and names that
    // share a beginning must not be taken for each other.
    void reportsManyDistinctNames()
    {
        QByteArray document = "<r>";
        QStringList expected{"start(r, nil, nil, {})"};
        for (int i = 0; i < 6000; ++i) {
            const QString name = (i % 2 ? u"\u00e9l"_s : u"el"_s) + QString::number(i);
            document += "<" + name.toUtf8() + " " + name.toUtf8() + "a=\"1\"/>";
            expected << "start(" + name + ", nil, nil, {" + name + "a=1})" << "end(" + name + ", nil, nil)";
        }
        document += "<e/><el/><ela/><e/></r>";
        for (const char *name : {"e", "el", "ela", "e"})
            expected << u"start(%1, nil, nil, {})"_s.arg(QLatin1String(name)) << u"end(%1, nil, nil)"_s.arg(QLatin1String(name));
        expected << "end(r, nil, nil)";
        RecordingDelegate delegate;
        delegate.implemented = Callback::StartElement | Callback::EndElement;
        ExpatXMLParser parser(document);
        parser.setDelegate(&delegate);
        parser.parse();
        QCOMPARE(delegate.log, expected);
    }

    // The reader refills one map from element to element; every element
    // must see its own attributes, whether the one before had the same,
    // others, more, none, or non-ASCII ones, and what a delegate kept of an
    // earlier element (the map, or a value alone) must not change under it.
    // Without keeping, only a text written from them leaves the callback.
    void keptAttributesKeepTheirValues()
    {
        const QByteArray document = "<r><p a=\"1\" b=\"x\"/><p a=\"22\" b=\"y\"/><p a=\"3\" c=\"z\"/>"
                                    "<p a=\"\xc3\xa9\" b=\"w\"/><p a=\"4444\" b=\"\"/><p/><p a=\"5\" b=\"v\" c=\"u\"/>"
                                    "<p a=\"6\" b=\"t\"/></r>";
        QStringList log{"start(r, nil, nil, {})"};
        for (const QString &pairs : {u"a=1;b=x"_s, u"a=22;b=y"_s, u"a=3;c=z"_s, u"a=\u00e9;b=w"_s, u"a=4444;b="_s, QString(),
                                     u"a=5;b=v;c=u"_s, u"a=6;b=t"_s})
            log << "start(p, nil, nil, {" + pairs + "})";
        using Map = ExpatXMLParserDelegate::Attributes;
        const QList<Map> maps{Map{},
                              Map{{"a", "1"}, {"b", "x"}},
                              Map{{"a", "22"}, {"b", "y"}},
                              Map{{"a", "3"}, {"c", "z"}},
                              Map{{"a", u"\u00e9"_s}, {"b", "w"}},
                              Map{{"a", "4444"}, {"b", ""}},
                              Map{},
                              Map{{"a", "5"}, {"b", "v"}, {"c", "u"}},
                              Map{{"a", "6"}, {"b", "t"}}};
        const QStringList values{"", "1", "22", "3", u"\u00e9"_s, "4444", "", "5", "6"};
        for (const bool keep : {false, true}) {
            RecordingDelegate delegate;
            delegate.implemented = Callback::StartElement;
            delegate.keepAttributes = keep;
            ExpatXMLParser parser(document);
            parser.setDelegate(&delegate);
            parser.parse();
            QCOMPARE(delegate.log, log);
            QCOMPARE(delegate.kept, keep ? maps : QList<Map>());
            QCOMPARE(delegate.keptValues, keep ? values : QStringList());
        }
    }
};

QTEST_GUILESS_MAIN(tst_ExpatXMLParser)
#include "tst_ExpatXMLParser.moc"
