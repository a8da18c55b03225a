#include "TemporaryHome.h"

#include "export/HBGPXExporter.h"
#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <QXmlStreamReader>

// GPX files as the exporter writes them, read back element by element.
class tst_HBGPXExporter : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    std::unique_ptr<HBManagedObjectContext> m_context;

    // The written document as a tree of elements (names without prefix).
    static HBXMLElement parse(const QByteArray &xml)
    {
        QXmlStreamReader reader(xml);
        QList<HBXMLElement> open;
        HBXMLElement root;
        while (!reader.atEnd()) {
            reader.readNext();
            if (reader.isStartElement()) {
                HBXMLElement e(reader.name().toString());
                for (const QXmlStreamAttribute &a : reader.attributes())
                    e.addAttribute(a.qualifiedName().toString(), a.value().toString());
                open.append(e);
            } else if (reader.isCharacters() && !reader.isWhitespace() && !open.isEmpty()) {
                open.last().setText(open.last().text() + reader.text().toString());
            } else if (reader.isEndElement()) {
                HBXMLElement done = open.takeLast();
                if (open.isEmpty())
                    root = done;
                else
                    open.last().addChild(done);
            }
        }
        return reader.hasError() ? HBXMLElement() : root;
    }

    // An element with everything in it as one line of text, for comparing
    // whole elements.
    static QString flat(const HBXMLElement &e)
    {
        QStringList parts;
        for (const auto &[name, value] : e.attributes())
            parts << name + u'=' + value;
        for (const HBXMLElement &c : e.children())
            parts << flat(c);
        return e.name() + u'[' + e.text() + u']' + u'(' + parts.join(u',') + u')';
    }

    static QStringList childNames(const HBXMLElement &e)
    {
        QStringList names;
        for (const HBXMLElement &c : e.children())
            names.append(c.name());
        return names;
    }

    QByteArray exportWith(const std::function<void(HBGPXExporter &)> &fill)
    {
        HBGPXExporter exporter;
        QByteArray written;
        m_context->performBlockAndWait([&] {
            fill(exporter);
            QVERIFY(exporter.exportToPath(m_home.filePath(QStringLiteral("out.gpx"))));
            QFile file(m_home.filePath(QStringLiteral("out.gpx")));
            QVERIFY(file.open(QIODevice::ReadOnly));
            written = file.readAll();
            QCOMPARE(written, exporter.xmlDocument());
        });
        return written;
    }

    HBWaypoint *waypoint(const char *lat, const char *lon, const QString &name = {})
    {
        auto *w = m_context->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
        w->setLatitude(HBDecimal::fromString(QString::fromLatin1(lat)));
        w->setLongitude(HBDecimal::fromString(QString::fromLatin1(lon)));
        w->setName(name);
        return w;
    }

    HBTrackPoint *trackPoint(const char *lat, const char *lon)
    {
        auto *p = m_context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
        p->setLatitude(HBDecimal::fromString(QString::fromLatin1(lat)));
        p->setLongitude(HBDecimal::fromString(QString::fromLatin1(lon)));
        return p;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    }

    void emptyExportHoldsOnlyTheTime()
    {
        const QByteArray written = exportWith([](HBGPXExporter &) {});
        const QList<QByteArray> lines = written.split('\n');
        QCOMPARE(lines.value(0), QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
        QCOMPARE(lines.value(1), QByteArray("<gpx xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                                            "xmlns=\"http://www.topografix.com/GPX/1/1\" "
                                            "xsi:schemaLocation=\"http://www.topografix.com/GPX/1/1 "
                                            "http://www.topografix.com/GPX/1/1/gpx.xsd\" version=\"1.1\" creator=\"Fernwick\">"));
        const HBXMLElement gpx = parse(written);
        QCOMPARE(gpx.name(), QStringLiteral("gpx"));
        QCOMPARE(childNames(gpx), QStringList{QStringLiteral("metadata")});
        const HBXMLElement metadata = gpx.children().first();
        QCOMPARE(childNames(metadata), QStringList{QStringLiteral("time")});
        static const QRegularExpression time(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"));
        QVERIFY2(time.match(metadata.children().first().text()).hasMatch(), qPrintable(metadata.children().first().text()));
    }

    void pointChildrenComeInTheirOrder_data()
    {
        QTest::addColumn<QString>("fields");
        QTest::addColumn<QStringList>("children");
        QTest::newRow("position and name") << QStringLiteral("name") << QStringList{QStringLiteral("name")};
        QTest::newRow("ele, time, magvar") << QStringLiteral("ele time magvar")
                                           << QStringList{QStringLiteral("ele"), QStringLiteral("time"), QStringLiteral("magvar")};
        QTest::newRow("everything written")
            << QStringLiteral("sym link src desc cmt name geoidheight magvar time ele hdop sat cadence")
            << QStringList{QStringLiteral("ele"),  QStringLiteral("time"), QStringLiteral("magvar"), QStringLiteral("geoidheight"),
                           QStringLiteral("name"), QStringLiteral("cmt"),  QStringLiteral("desc"),   QStringLiteral("src"),
                           QStringLiteral("link"), QStringLiteral("sym")};
    }

    void pointChildrenComeInTheirOrder()
    {
        QFETCH(QString, fields);
        QFETCH(QStringList, children);
        const QStringList set = fields.split(u' ');
        const HBXMLElement gpx = parse(exportWith([&](HBGPXExporter &exporter) {
            HBWaypoint *w = waypoint("47.421100", "10.985300");
            for (const QString &f : set) {
                if (f == QLatin1String("name")) w->setName(QStringLiteral("Zugspitze & <summit>"));
                if (f == QLatin1String("ele")) w->setElevation(HBDecimal::fromString(u"2962.00"));
                if (f == QLatin1String("time")) w->setDate(QDateTime(QDate(2024, 7, 1), QTime(14, 0), QTimeZone(7200)));
                if (f == QLatin1String("magvar")) w->setMagneticVariation(HBDecimal::fromString(u"3.1"));
                if (f == QLatin1String("geoidheight")) w->setGeoidHeight(HBDecimal::fromString(u"47.0"));
                if (f == QLatin1String("cmt")) w->setGpsComment(QStringLiteral("comment"));
                if (f == QLatin1String("desc")) w->setNotes(QStringLiteral("notes"));
                if (f == QLatin1String("src")) w->setSourceOfData(QStringLiteral("receiver"));
                if (f == QLatin1String("link")) w->setLink(QStringLiteral("https://example.org/a?b=1&c=2"));
                if (f == QLatin1String("sym")) w->setSymbolName(QStringLiteral("Summit"));
                if (f == QLatin1String("hdop")) w->setHorizontalDilutionOfPrecision(HBDecimal::fromString(u"1.2"));
                if (f == QLatin1String("sat")) w->setNumberOfSatellites(8);
                if (f == QLatin1String("cadence")) w->setCadence(80);
            }
            exporter.waypoints().append(w);
        }));
        QCOMPARE(childNames(gpx), (QStringList{QStringLiteral("metadata"), QStringLiteral("wpt")}));
        const HBXMLElement wpt = gpx.children().at(1);
        QCOMPARE(wpt.attributes(), (QList<std::pair<QString, QString>>{{QStringLiteral("lat"), QStringLiteral("47.421100")},
                                                                         {QStringLiteral("lon"), QStringLiteral("10.985300")}}));
        QCOMPARE(childNames(wpt), children);
        for (const HBXMLElement &c : wpt.children()) {
            if (c.name() == QLatin1String("time"))
                QCOMPARE(c.text(), QStringLiteral("2024-07-01T12:00:00Z"));
            if (c.name() == QLatin1String("ele"))
                QCOMPARE(c.text(), QStringLiteral("2962.00"));
            if (c.name() == QLatin1String("name"))
                QCOMPARE(c.text(), QStringLiteral("Zugspitze & <summit>"));
            if (c.name() == QLatin1String("link"))
                QCOMPARE(c.text(), QStringLiteral("https://example.org/a?b=1&c=2"));
        }
    }

    // Times are formatted by hand; each row is a place where the digits or
    // the day could come out wrong.
    void timesAreWrittenInUTC_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<QString>("text");
        QTest::newRow("east of UTC") << QDateTime(QDate(2024, 7, 1), QTime(14, 0), QTimeZone(7200))
                                     << QStringLiteral("2024-07-01T12:00:00Z");
        QTest::newRow("west of UTC, next day") << QDateTime(QDate(2023, 12, 31), QTime(22, 30, 5), QTimeZone(-5 * 3600))
                                               << QStringLiteral("2024-01-01T03:30:05Z");
        QTest::newRow("leap day, last second") << QDateTime(QDate(2020, 2, 29), QTime(23, 59, 59, 999), QTimeZone::utc())
                                               << QStringLiteral("2020-02-29T23:59:59Z");
        QTest::newRow("before 1970") << QDateTime(QDate(1969, 12, 31), QTime(23, 59, 59, 500), QTimeZone::utc())
                                     << QStringLiteral("1969-12-31T23:59:59Z");
        QTest::newRow("three-digit year") << QDateTime(QDate(999, 1, 5), QTime(7, 8, 9), QTimeZone::utc())
                                          << QStringLiteral("0999-01-05T07:08:09Z");
        QTest::newRow("the epoch") << QDateTime(QDate(1970, 1, 1), QTime(0, 0), QTimeZone::utc())
                                   << QStringLiteral("1970-01-01T00:00:00Z");
    }

    void timesAreWrittenInUTC()
    {
        QFETCH(QDateTime, date);
        QFETCH(QString, text);
        const HBXMLElement gpx = parse(exportWith([&](HBGPXExporter &exporter) {
            HBWaypoint *w = waypoint("1", "2");
            w->setDate(date);
            exporter.waypoints().append(w);
        }));
        const HBXMLElement wpt = gpx.children().at(1);
        QCOMPARE(childNames(wpt), QStringList{QStringLiteral("time")});
        QCOMPARE(wpt.children().first().text(), text);
    }

    void tracksSegmentsBoundsAndNoRoutes()
    {
        const QByteArray written = exportWith([&](HBGPXExporter &exporter) {
            auto *bare = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            auto *segment = m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            HBTrackPoint *unplaced = m_context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            segment->setPoints({trackPoint("46.000001", "7.5"), trackPoint("48.25", "-0.000"), unplaced});
            auto *empty = m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            bare->setSegments({segment, empty});
            auto *named = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            named->setName(QStringLiteral("Ride"));
            named->setNotes(QStringLiteral("Evening"));
            exporter.tracks() << bare << named;
            exporter.waypoints() << waypoint("45.5", "8.000", QStringLiteral("low"));
            exporter.routes() << waypoint("1", "1", QStringLiteral("a route"));
        });
        QVERIFY(!written.contains("rte"));
        QVERIFY(!written.contains("a route"));
        const HBXMLElement gpx = parse(written);
        QCOMPARE(childNames(gpx), (QStringList{QStringLiteral("metadata"), QStringLiteral("wpt"), QStringLiteral("trk"),
                                               QStringLiteral("trk")}));
        const HBXMLElement bounds = gpx.children().first().children().at(1);
        QCOMPARE(bounds.name(), QStringLiteral("bounds"));
        QCOMPARE(bounds.attributes(), (QList<std::pair<QString, QString>>{{QStringLiteral("minlat"), QStringLiteral("45.5")},
                                                                           {QStringLiteral("minlon"), QStringLiteral("-0.000")},
                                                                           {QStringLiteral("maxlat"), QStringLiteral("48.25")},
                                                                           {QStringLiteral("maxlon"), QStringLiteral("8.000")}}));
        const HBXMLElement bare = gpx.children().at(2);
        QCOMPARE(childNames(bare), (QStringList{QStringLiteral("trkseg"), QStringLiteral("trkseg")}));
        QCOMPARE(childNames(bare.children().first()),
                 (QStringList{QStringLiteral("trkpt"), QStringLiteral("trkpt"), QStringLiteral("trkpt")}));
        QCOMPARE(bare.children().first().children().at(1).attributes().first().second, QStringLiteral("48.25"));
        // a point without a position keeps empty attributes
        QCOMPARE(bare.children().first().children().at(2).attributes(),
                 (QList<std::pair<QString, QString>>{{QStringLiteral("lat"), QString()}, {QStringLiteral("lon"), QString()}}));
        QVERIFY(bare.children().at(1).children().isEmpty());
        QCOMPARE(childNames(gpx.children().at(3)), (QStringList{QStringLiteral("name"), QStringLiteral("desc")}));
    }

    // The building blocks and the written file are made from one
    // description; they must not drift apart.
    void buildingBlocksMatchTheFile()
    {
        HBXMLElement pointBlock, trackBlock, boundsBlock;
        const HBXMLElement gpx = parse(exportWith([&](HBGPXExporter &exporter) {
            HBWaypoint *w = waypoint("47.421100", "-10.5", QStringLiteral(""));   // an empty name stays an element
            w->setElevation(HBDecimal::fromString(u"-0.50"));
            w->setDate(QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7), QTimeZone::utc()));
            w->setMagneticVariation(HBDecimal::fromString(u"3.1"));
            w->setGeoidHeight(HBDecimal::fromString(u"47.0"));
            w->setGpsComment(QStringLiteral("a < b & \"c\""));
            w->setNotes(QStringLiteral("M\u00fcller \u5317\u4eac"));
            w->setSourceOfData(QStringLiteral("receiver"));
            w->setLink(QStringLiteral("https://example.org/?a=1&b=2"));
            w->setSymbolName(QStringLiteral("Summit"));
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            auto *segment = m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            HBTrackPoint *p = trackPoint("46.000001", "7.5");
            p->setElevation(HBDecimal::fromString(u"1000"));
            segment->setPoints({p, m_context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"))});
            track->setName(QStringLiteral("Ride"));
            track->setSegments({segment, m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"))});
            exporter.waypoints() << w;
            exporter.tracks() << track;
            pointBlock = HBGPXExporter::xmlNodeFromGeoPoint(w);
            trackBlock = HBGPXExporter::xmlNodeFromTrack(track);
            boundsBlock = exporter.xmlNodeForBounds();
        }));
        QCOMPARE(flat(pointBlock), flat(gpx.children().at(1)));
        QCOMPARE(flat(trackBlock), flat(gpx.children().at(2)));
        QCOMPARE(flat(boundsBlock), flat(gpx.children().first().children().at(1)));
        QCOMPARE(flat(boundsBlock), QStringLiteral("bounds[](minlat=46.000001,minlon=-10.5,maxlat=47.421100,maxlon=7.5)"));
        QCOMPARE(childNames(pointBlock), (QStringList{QStringLiteral("ele"), QStringLiteral("time"), QStringLiteral("magvar"),
                                                      QStringLiteral("geoidheight"), QStringLiteral("name"), QStringLiteral("cmt"),
                                                      QStringLiteral("desc"), QStringLiteral("src"), QStringLiteral("link"),
                                                      QStringLiteral("sym")}));
    }

    void writtenFilesValidateAgainstTheSchema()
    {
        exportWith([&](HBGPXExporter &exporter) {
            HBWaypoint *w = waypoint("47.1", "8.2", QStringLiteral("w"));
            w->setElevation(HBDecimal::fromString(u"500.5"));
            w->setDate(QDateTime(QDate(2020, 2, 29), QTime(23, 59, 59), Qt::UTC));
            w->setSymbolName(QStringLiteral("Flag"));
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            auto *segment = m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            segment->setPoints({trackPoint("47.2", "8.3"), trackPoint("47.3", "8.4")});
            track->setName(QStringLiteral("t"));
            track->setSegments({segment});
            exporter.waypoints() << w;
            exporter.tracks() << track;
        });
        QProcess xmllint;
        xmllint.start(QStringLiteral("xmllint"), {QStringLiteral("--noout"), QStringLiteral("--schema"),
                                                  QStringLiteral(HB_GPX_SCHEMA), m_home.filePath(QStringLiteral("out.gpx"))});
        QVERIFY(xmllint.waitForFinished(60000));
        QVERIFY2(xmllint.exitCode() == 0, xmllint.readAllStandardError().constData());
    }

    void failedWriteReturnsFalseAndLeavesTheTarget()
    {
        HBGPXExporter exporter;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^The GPX file .* could not be written: ")));
        QVERIFY(!exporter.exportToPath(m_home.path()));   // a folder
        QVERIFY(!exporter.errorString().isEmpty());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^The GPX file .* could not be written: ")));
        QVERIFY(!exporter.exportToPath(m_home.filePath(QStringLiteral("missing/folder/out.gpx"))));
        QVERIFY(!QFile::exists(m_home.filePath(QStringLiteral("missing"))));
    }
};

QTEST_GUILESS_MAIN(tst_HBGPXExporter)
#include "tst_HBGPXExporter.moc"
