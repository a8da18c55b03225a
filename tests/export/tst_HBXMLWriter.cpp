#include "export/HBXMLWriter.h"

#include <QTest>
#include <QXmlStreamWriter>

// The writer must give the bytes QXmlStreamWriter gives with
// auto-formatting (indent 2) for the same calls: GPX files written before
// and after it was introduced compare equal byte for byte.
class tst_HBXMLWriter : public QObject
{
    Q_OBJECT

    // A call script, one call per entry: "<name" starts an element,
    // "@name=value" writes an attribute, "'text" writes characters, ">"
    // ends an element. The document is started before and ended after.
    static QByteArray byQt(const QStringList &script)
    {
        QByteArray bytes;
        QXmlStreamWriter writer(&bytes);
        writer.setAutoFormatting(true);
        writer.setAutoFormattingIndent(2);
        writer.writeStartDocument(QStringLiteral("1.0"));
        for (const QString &call : script) {
            const QString rest = call.mid(1);
            switch (call.at(0).unicode()) {
            case '<': writer.writeStartElement(rest); break;
            case '@': writer.writeAttribute(rest.section(u'=', 0, 0), rest.section(u'=', 1)); break;
            case '\'': writer.writeCharacters(rest); break;
            case '>': writer.writeEndElement(); break;
            }
        }
        writer.writeEndDocument();
        return bytes;
    }

    // Values go in as UTF-16 or, with latin1, as Latin-1 bytes.
    static QByteArray byHB(const QStringList &script, bool latin1)
    {
        QByteArray bytes;
        HBXMLWriter writer(&bytes);
        // names must outlive the writer
        std::vector<QByteArray> names;
        names.reserve(size_t(script.size()) * 2);
        const auto name = [&names](const QString &text) {
            names.push_back(text.toLatin1());
            return QLatin1StringView(names.back());
        };
        writer.writeStartDocument();
        for (const QString &call : script) {
            const QString rest = call.mid(1);
            const QString value = call.at(0) == u'@' ? rest.section(u'=', 1) : rest;
            const QByteArray latin1Value = value.toLatin1();
            switch (call.at(0).unicode()) {
            case '<':
                writer.writeStartElement(name(rest));
                break;
            case '@':
                if (latin1)
                    writer.writeAttribute(name(rest.section(u'=', 0, 0)), QLatin1StringView(latin1Value));
                else
                    writer.writeAttribute(name(rest.section(u'=', 0, 0)), QStringView(value));
                break;
            case '\'':
                if (latin1)
                    writer.writeCharacters(QLatin1StringView(latin1Value));
                else
                    writer.writeCharacters(QStringView(value));
                break;
            case '>':
                writer.writeEndElement();
                break;
            }
        }
        writer.writeEndDocument();
        return bytes;
    }

private slots:
    void writesWhatQtWrites_data()
    {
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<bool>("latin1Too");
        QTest::newRow("gpx shape") << QStringList{
            "<gpx", "@xmlns:xsi=http://www.w3.org/2001/XMLSchema-instance", "@version=1.1",
            "<metadata", "<time", "'2024-07-01T12:00:00Z", ">", "<bounds", "@minlat=-0.000", "@maxlat=48.25", ">", ">",
            "<wpt", "@lat=47.421100", "@lon=", "<ele", "'2962.00", ">", "<name", "'Zugspitze", ">", ">",
            "<trk", "<name", "'Ride", ">", "<trkseg", ">", "<trkseg", "<trkpt", "@lat=1", "@lon=2", ">",
            "<trkpt", "@lat=3", "@lon=4", "<time", "'2020-02-29T23:59:59Z", ">", ">", ">", ">", ">"} << true;
        QTest::newRow("empty root") << QStringList{"<gpx", ">"} << true;
        QTest::newRow("element without text is empty") << QStringList{"<a", "<name", ">", "<b", "<c", ">", ">", ">"} << true;
        QTest::newRow("open elements closed at the end") << QStringList{"<a", "<b", "'x", ">", "<c", "<d"} << true;
        QTest::newRow("text beside elements") << QStringList{"<a", "'before", "<b", "'in", ">", "'after", ">"} << true;
        QTest::newRow("markup escaped") << QStringList{"<a", "@q=a<b>&\"c\"'d", "'Zugspitze & <summit> \"q\" 'a'", ">"}
                                        << true;
        QTest::newRow("white space in text and attributes")
            << QStringList{"<a", "@v=tab\tline\ncr\rend", "'tab\tline\ncr\rend", ">"} << true;
        QTest::newRow("latin-1 letters") << QStringList{"<a", QStringLiteral("@n=M\u00fcller"), QStringLiteral("'Gr\u00fc\u00dfe"), ">"}
                                         << true;
        QTest::newRow("beyond latin-1")
            << QStringList{"<a", QStringLiteral("@n=\u5317\u4eac"), QStringLiteral("'\u5317\u4eac \U0001F600 \u00e9"), ">"} << false;
        QTest::newRow("control characters")
            << QStringList{"<a", QStringLiteral("@n=x\u0001y"), QStringLiteral("'a\u0001b\u000bc\u000cd\u001fe"), ">"} << true;
        QTest::newRow("non-character") << QStringList{"<a", QStringLiteral("@n=x\uffffy"), QStringLiteral("'a\ufffeb"), ">"} << false;
    }

    void writesWhatQtWrites()
    {
        QFETCH(QStringList, script);
        QFETCH(bool, latin1Too);
        const QByteArray expected = byQt(script);
        QCOMPARE(byHB(script, false), expected);
        if (latin1Too)
            QCOMPARE(byHB(script, true), expected);
    }

    // The later part of a document, written first by a writer that goes on
    // inside the open elements, joins up with the part before it into the
    // bytes one writer would have written.
    void aLaterPartJoinsUpWithWhatComesBefore_data()
    {
        QTest::addColumn<QStringList>("later");
        QTest::newRow("elements with text") << QStringList{"<trk", "<name", "'Ride", ">", "<trkseg", "<trkpt", "@lat=1", ">", ">", ">"};
        QTest::newRow("an empty element") << QStringList{"<trk", ">"};
        QTest::newRow("nothing") << QStringList{};
    }

    void aLaterPartJoinsUpWithWhatComesBefore()
    {
        QFETCH(QStringList, later);
        const QStringList before{"<gpx", "@version=1.1", "<metadata", "<time", "'2024-07-01T12:00:00Z", ">", ">"};
        QByteArray head, body;
        HBXMLWriter first(&head);
        first.writeStartDocument();
        HBXMLWriter second(&body, {QLatin1StringView("gpx")});
        std::vector<QByteArray> names;
        names.reserve(size_t(before.size() + later.size()));
        const auto play = [&names](HBXMLWriter &writer, const QStringList &script) {
            for (const QString &call : script) {
                names.push_back(call.mid(1).section(u'=', 0, 0).toLatin1());
                const QLatin1StringView name(names.back());
                const QString value = call.mid(1).section(u'=', 1);
                switch (call.at(0).unicode()) {
                case '<': writer.writeStartElement(name); break;
                case '@': writer.writeAttribute(name, QStringView(value)); break;
                case '\'': writer.writeCharacters(QStringView(call.mid(1))); break;
                case '>': writer.writeEndElement(); break;
                }
            }
        };
        play(first, before);
        play(second, later);
        second.writeEndDocument();
        QCOMPARE(head + body, byQt(before + later));
    }

    void appendsToWhatTheDocumentHolds()
    {
        QByteArray bytes("kept");
        HBXMLWriter writer(&bytes);
        writer.writeStartElement(QLatin1StringView("a"));
        writer.writeEndElement();
        QCOMPARE(bytes, QByteArray("kept\n<a/>"));
    }
};

QTEST_GUILESS_MAIN(tst_HBXMLWriter)
#include "tst_HBXMLWriter.moc"
