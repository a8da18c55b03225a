#include "ExpatTestSupport.h"

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace expattest;

namespace {

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

// Checks each <p> of a numbered document as it ends, and can abort the
// parse in the start of one.
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
        return Callback::StartElement | Callback::EndElement | Callback::FoundCharacters | Callback::ParseErrorOccurred;
    }
    void parserDidStartElement(ExpatXMLParser &parser, const QString &name, const QString &, const QString &,
                               const Attributes &attributes) override
    {
        if (name != u"p")
            return;
        const QString expected = QString::number(starts);
        if (attributes.value(QStringLiteral("n")) != expected || attributes.contains(QStringLiteral("m")) != (starts % 3 == 0))
            faults << QStringLiteral("attributes of %1").arg(expected);
        text.clear();
        if (starts++ == abortAtStart)
            parser.abortParsing();
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

// Whole documents and files through the reader: every event's place as
// Expat gives it, end tags that close what they should, faults where they
// are, and long documents whose events cross from the reading thread in
// batches.
class tst_ExpatXMLParserDocuments : public QObject
{
    Q_OBJECT

    QTemporaryDir m_files;

private slots:
    void readsAsExpatDoes_data()
    {
        QTest::addColumn<QString>("path");           // empty: the document is parsed from memory
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<int>("code");               // of the fault, XML_ERROR_NONE for none
        QTest::addColumn<qint64>("line");            // of the fault

        const auto inMemory = [](const char *name, const QByteArray &document, XML_Error code = XML_ERROR_NONE,
                                 qint64 line = 0) { QTest::newRow(name) << QString() << document << int(code) << line; };
        const QString mixed = u"<?xml version=\"1.0\"?>\r\n<a x=\"\u00e9\">\rb\u20ac\U0001F600<!--c\r\nd-->\n"
                              u"<?pi data?>\r\n<b/>\n\u00e9\u00e9\r\r\n\n<c y=\"\U0001F600\"/></a>"_s;
        inMemory("UTF-8: CR, LF, CR LF, two-, three- and four-byte characters", mixed.toUtf8());
        inMemory("UTF-8 after a byte order mark", "\xEF\xBB\xBF<a>\n<b/>\xc3\xa9<c/></a>");
        inMemory("ISO-8859-1: a character per byte",
                 "<?xml version='1.0' encoding='iso-8859-1'?>\n<a>\xe9\xc3\xa9<b/>\r\n<c/></a>");
        inMemory("ISO-8859-1 after a UTF-8 byte order mark",
                 "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xc3\xa9<b/></a>");
        inMemory("US-ASCII", "<?xml version=\"1.0\" encoding=\"US-ASCII\"?>\n<a>\r\n<b/></a>");
        inMemory("UTF-8 declared", "<?xml version=\"1.0\" encoding=\"utf-8\"?><a>\xc3\xa9<b/></a>");
        const QString wide = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a>\u00e9\U0001F600\r<b/>\r\n\u4e2d<c/></a>"_s;
        inMemory("UTF-16 little-endian after a byte order mark", utf16(wide, QStringConverter::Utf16LE, true));
        inMemory("UTF-16 big-endian after a byte order mark", utf16(wide, QStringConverter::Utf16BE, true));
        const QString undeclared = u"<a>\u00e9\U0001F600\r<b/>\r\n\u4e2d<c/></a>"_s;
        inMemory("UTF-16 little-endian, no mark", utf16(undeclared, QStringConverter::Utf16LE, false));
        inMemory("UTF-16 big-endian, no mark", utf16(undeclared, QStringConverter::Utf16BE, false));
        inMemory("CR LF across a piece", newlineAcrossAPiece("\r\n"));
        inMemory("CR at the end of a piece", newlineAcrossAPiece("\r"));
        inMemory("long document", numberedDocument(5000).replace("<q/>", "\r\n<q>\xc3\xa9</q>\n"));
        // the places of the events stay Expat's up to a fault
        inMemory("junk after the root", "<a>\n  <b c=\"1\"/>\r\n\t<d>\xc3\xa9</d>\n</a>\n<e/>",
                 XML_ERROR_JUNK_AFTER_DOC_ELEMENT, 5);

        // Files are read whole: one in UTF-16, and one that cannot be read,
        // which reads as an empty document.
        const QString utf16Path = m_files.filePath(u"utf16.gpx"_s);
        QFile utf16File(utf16Path);
        QVERIFY(utf16File.open(QIODevice::WriteOnly));
        utf16File.write(utf16(u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<gpx creator=\"Zürich\">\r\n<name>Метро</name></gpx>"_s));
        utf16File.close();
        QTest::newRow("UTF-16 file") << utf16Path << QByteArray() << int(XML_ERROR_NONE) << 0ll;
        QTest::newRow("unreadable file") << QStringLiteral(HB_CORPUS_DIR "/no-such-file.gpx") << QByteArray()
                                         << int(XML_ERROR_NO_ELEMENTS) << 1ll;

        // Every real file, and the failures expected of the broken ones.
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
                    << it.filePath() << QByteArray() << int(fault.code) << fault.line;
                ++rows;
            }
        }
        // The corpus README's counts: a missing or misplaced corpus must not
        // pass as a clean run of no rows.
        QVERIFY(rows >= 84 + 20 + 11);
    }

    // Lines and columns are counted only when a delegate asks; they must
    // come out as Expat's own, in every encoding Expat reads by itself, for
    // every event, across pieces and batches. Without namespaces each end
    // tag closes the innermost open element, and a fault is the one
    // expected, on the line expected.
    void readsAsExpatDoes()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, document);
        QFETCH(int, code);
        QFETCH(qint64, line);

        std::unique_ptr<ExpatXMLParser> parser;
        if (path.isEmpty()) {
            parser = std::make_unique<ExpatXMLParser>(document);
        } else {
            if (!QFile::exists(path))
                QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Cannot read .*no-such-file"));
            parser = ExpatXMLParser::fromContentsOfFile(path);
            QFile file(path);
            if (file.open(QIODevice::ReadOnly))
                document = file.readAll();
        }
        RecordingDelegate delegate;
        delegate.implemented = Callback::StartElement | Callback::EndElement | Callback::FoundUTF8Characters
            | Callback::FoundComment | Callback::FoundProcessingInstruction | Callback::ParseErrorOccurred;
        delegate.notePlaces = true;
        parser->setDelegate(&delegate);
        parser->parse();

        QCOMPARE(delegate.places, expatsOwnPlaces(document));
        QCOMPARE(parser->parserError().code(), code);
        QStringList open;
        for (const QString &event : std::as_const(delegate.log)) {
            const QString name = event.section(u'(', 1).section(u',', 0, 0);
            if (event.startsWith(u"start("))
                open << name;
            else if (event.startsWith(u"end("))
                QVERIFY2(!open.isEmpty() && open.takeLast() == name, qPrintable(event));
        }
        if (code == XML_ERROR_NONE) {
            QVERIFY(!delegate.log.filter(QRegularExpression("^start\\(")).isEmpty());
            QVERIFY(open.isEmpty());
        } else {
            QCOMPARE(parser->lineNumber(), line);
        }
    }

    void longDocumentsArriveWholeOrStopAtOnce_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<bool>("withText");
        QTest::addColumn<int>("abortAt");   // -1: no abort
        QTest::addColumn<int>("starts");
        QTest::addColumn<int>("ends");

        // Every event must arrive once, in order, with its own names,
        // attributes and text, however the batches fall.
        QTest::addRow("whole") << numberedDocument(60000) << true << -1 << 60000 << 60000;
        // Without text, an empty element's start and end are two events:
        // aborting in the start of the 2048th to 2050th falls on either side
        // of where one batch of events ends and the next begins, and Expat
        // still reports the end of the element it was stopped in.
        QByteArray empties = "<r>";
        for (int i = 0; i < 20000; ++i)
            empties += "<p n=\"" + QByteArray::number(i) + "\"" + (i % 3 ? "" : " m=\"x\"") + "/>";
        empties += "</r>";
        for (const int at : {0, 2046, 2047, 2048, 2049, 15000})
            QTest::addRow("empty elements, abort at %d", at) << empties << false << at << at + 1 << at + 1;
        // With the reader far ahead and waiting for room, the abort must still
        // end the parse at once.
        for (const int at : {0, 30000})
            QTest::addRow("elements with text, abort at %d", at) << numberedDocument(200000) << true << at << at + 1 << at;
    }

    // The document is read on one thread and its events handled on another.
    void longDocumentsArriveWholeOrStopAtOnce()
    {
        QFETCH(QByteArray, document);
        QFETCH(bool, withText);
        QFETCH(int, abortAt);
        QFETCH(int, starts);
        QFETCH(int, ends);

        CountingDelegate delegate;
        delegate.abortAtStart = abortAt;
        delegate.withText = withText;
        ExpatXMLParser parser(document);
        parser.setDelegate(&delegate);
        parser.parse();
        QCOMPARE(delegate.faults, QStringList());
        QCOMPARE(delegate.starts, starts);
        QCOMPARE(delegate.ends, ends);
        QCOMPARE(delegate.error.code(), abortAt < 0 ? int(XML_ERROR_NONE) : int(XML_ERROR_ABORTED));
    }
};

QTEST_GUILESS_MAIN(tst_ExpatXMLParserDocuments)
#include "tst_ExpatXMLParserDocuments.moc"
