#include "ImportTestSupport.h"

#include "import/HBGPXFileImportOperation.h"
#include "model/HBGeoPointSymbol.h"

#include <QStringEncoder>
#include <QTest>

using namespace importtest;

namespace {

QByteArray gpx(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<gpx version=\"1.1\" creator=\"test\">" + body + "</gpx>\n";
}

} // namespace

// GPX files into tracks, segments, points and waypoints: where each element
// lands, the shared order counter, what is dropped, what malformed and
// oddly encoded files give, and what every corpus file gives.
class tst_HBGPXFileImportOperation : public QObject
{
    Q_OBJECT

    ImportTestHome m_home;

    // Imports the bytes as "<data tag>.gpx" or under the name; the file's path.
    QString import(const QByteArray &bytes, const QString &name = {})
    {
        return m_home.import<HBGPXFileImportOperation>(bytes, name.isEmpty() ? dataTagFileName("gpx") : name);
    }

private slots:
    void initTestCase() { QVERIFY(m_home.setUp()); }

    void elementsLandInTheirAttributes_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("waypoint texts, other elements ignored")
            << QByteArray("<wpt lat=\"48.117300\" lon=\"-11.5166\"><ele>545.4</ele><time>2012-05-01T10:20:30Z</time>"
                          "<magvar>1.5</magvar><geoidheight>47</geoidheight><name>Summit</name><cmt>steep</cmt>"
                          "<desc>view</desc><src>gps</src><link href=\"http://x\"><text>site</text></link>"
                          "<sym>Flag</sym><type>peak</type><fix>3d</fix><sat>7</sat><hdop>2.1</hdop></wpt>")
            << QStringList{"waypoint 1 48.117300 -11.5166 ele=545.4 time=2012-05-01T10:20:30.000Z name=Summit cmt=steep "
                           "desc=view sym=Flag"};
        QTest::newRow("track point texts, its symbol dropped")
            << QByteArray("<trk><trkseg><trkpt lat=\"1.5\" lon=\"2.25\"><ele>10</ele><time>2012-05-01T10:20:30Z</time>"
                          "<name>P</name><cmt>c</cmt><desc>d</desc><sym>Flag</sym><sat>7</sat></trkpt></trkseg></trk>")
            << QStringList{"track 1", "  segment 0", "    1.5 2.25 ele=10 time=2012-05-01T10:20:30.000Z name=P cmt=c desc=d"};
        QTest::newRow("track texts; the file's metadata dropped")
            << QByteArray("<metadata><name>File</name><desc>about</desc><time>2001-01-01T00:00:00Z</time></metadata>"
                          "<trk><name>Ride</name><cmt>tc</cmt><desc>td</desc><trkseg><trkpt lat=\"1\" lon=\"2\">"
                          "<name>P</name></trkpt></trkseg></trk>")
            << QStringList{"track 1 name=Ride cmt=tc desc=td", "  segment 0", "    1 2 name=P"};
        QTest::newRow("a name outside the points names the track, the last one wins")
            << QByteArray("<trk><name>First</name><trkseg><name>Second</name><trkpt lat=\"1\" lon=\"2\"/></trkseg>"
                          "<name>Third</name></trk>")
            << QStringList{"track 1 name=Third", "  segment 0", "    1 2"};
        QTest::newRow("tracks and waypoints share one order counter")
            << QByteArray("<wpt lat=\"1\" lon=\"1\"><name>A</name></wpt><trk><name>T</name></trk>"
                          "<wpt lat=\"2\" lon=\"2\"><name>B</name></wpt><trk><name>U</name><trkseg/><trkseg/></trk>"
                          "<wpt lat=\"3\" lon=\"3\"/>")
            << QStringList{"track 2 name=T", "track 4 name=U", "  segment 0", "  segment 1", "waypoint 1 1 1 name=A",
                           "waypoint 3 2 2 name=B", "waypoint 5 3 3"};
        QTest::newRow("segments and points in file order")
            << QByteArray("<trk><trkseg><trkpt lat=\"3\" lon=\"0\"/><trkpt lat=\"1\" lon=\"0\"/></trkseg>"
                          "<trkseg><trkpt lat=\"2\" lon=\"0\"/></trkseg></trk>")
            << QStringList{"track 1", "  segment 0", "    3 0", "    1 0", "  segment 1", "    2 0"};
        // a later unreadable time clears the date of the point
        QTest::newRow("times of points and waypoints")
            << QByteArray("<wpt lat=\"1\" lon=\"1\"><time>2012-05-01T10:20:30.250+02:00</time></wpt><trk><trkseg>"
                          "<trkpt lat=\"1\" lon=\"1\"><time>2012-05-01T10:20:30Z</time></trkpt>"
                          "<trkpt lat=\"2\" lon=\"2\"><time>2012-05-01 10:20:30</time></trkpt>"
                          "<trkpt lat=\"3\" lon=\"3\"><time>1234-12-24T23:59:59.5Z</time></trkpt>"
                          "<trkpt lat=\"4\" lon=\"4\"><time>2012-05-01T10:20</time></trkpt>"
                          "<trkpt lat=\"5\" lon=\"5\"><time>2012-05-01T10:20:30Z</time><time>not a time</time></trkpt>"
                          "</trkseg></trk>")
            << QStringList{"track 2", "  segment 0", "    1 1 time=2012-05-01T10:20:30.000Z",
                           "    2 2 time=2012-05-01T10:20:30.000Z", "    3 3 time=1234-12-24T23:59:59.000Z",
                           "    4 4", "    5 5", "waypoint 1 1 1 time=2012-05-01T10:20:30.000Z"};
        QTest::newRow("elements without text set nothing")
            << QByteArray("<wpt lat=\"1\" lon=\"2\"><name></name><ele></ele><desc/><time></time><sym/></wpt>")
            << QStringList{"waypoint 1 1 2"};
        QTest::newRow("decimals keep their digits")
            << QByteArray("<trk><trkseg><trkpt lat=\"48.117300000\" lon=\"-0.000005\"><ele>0012.50</ele></trkpt>"
                          "<trkpt lat=\"1.5e-7\" lon=\"+7\"><ele>-0.0</ele></trkpt>"
                          "<trkpt lat=\"47.644548442959785461425781250000\" lon=\"-122.326897\"/></trkseg></trk>")
            << QStringList{"track 1", "  segment 0", "    48.117300000 -0.000005 ele=12.50", "    0.00000015 7 ele=-0.0",
                           "    47.644548442959785461425781250000 -122.326897"};
        QTest::newRow("bad or missing numbers are absent")
            << QByteArray("<wpt lat=\"undefined\" lon=\"x\"><ele>bad data</ele><name>W</name></wpt>"
                          "<wpt lon=\"5\"><name>V</name></wpt><wpt lat=\"1,5\" lon=\"2\"/>")
            << QStringList{"waypoint 1 - - name=W", "waypoint 2 - 5 name=V", "waypoint 3 - 2"};
        // white space around a number is read past; a time with a line break
        // before it loses its date, since the cut to 19 characters counts it
        QTest::newRow("texts are taken untrimmed")
            << QByteArray("<wpt lat=\" 1.5 \" lon=\"2\"><ele>\n  12.5\n</ele><name>  spaced  </name>"
                          "<time>\n2012-05-01T10:20:30Z\n</time></wpt>")
            << QStringList{"waypoint 1 1.5 2 ele=12.5 name=  spaced  "};
        QTest::newRow("prefixed or differently cased names are not recognised")
            << QByteArray("<gpx:wpt lat=\"1\" lon=\"2\"><gpx:name>N</gpx:name></gpx:wpt><Wpt lat=\"3\" lon=\"4\"/>"
                          "<TRK><trkseg><trkpt lat=\"5\" lon=\"6\"/></trkseg></TRK>")
            << QStringList{};
        QTest::newRow("an unprefixed name in a point's extensions names the point")
            << QByteArray("<trk><trkseg><trkpt lat=\"1\" lon=\"2\"><name>P</name><extensions><name>X</name>"
                          "<ns3:name>Y</ns3:name></extensions></trkpt></trkseg></trk>")
            << QStringList{"track 1", "  segment 0", "    1 2 name=X"};
        // every start tag begins the text afresh
        QTest::newRow("text after a child element")
            << QByteArray("<wpt lat=\"1\" lon=\"2\"><desc>before<b>bold</b>after</desc></wpt>")
            << QStringList{"waypoint 1 1 2 desc=boldafter"};
        QTest::newRow("text in pieces: CDATA, entities, character references")
            << QByteArray("<wpt lat=\"1\" lon=\"2\"><name><![CDATA[A & B]]></name><cmt>x &amp; y &#233;</cmt></wpt>")
            << QStringList{QStringLiteral("waypoint 1 1 2 name=A & B cmt=x & y \u00e9")};
        // U+FEFF inside a document is a character like any other
        QTest::newRow("text that begins with U+FEFF")
            << QByteArray("<wpt lat=\"1\" lon=\"2\"><name>&#xFEFF;N</name><cmt>\xEF\xBB\xBF" "C</cmt></wpt>")
            << QStringList{QStringLiteral("waypoint 1 1 2 name=\uFEFFN cmt=\uFEFFC")};
    }

    void elementsLandInTheirAttributes()
    {
        QFETCH(QByteArray, body);
        QFETCH(QStringList, expected);
        const QString path = import(gpx(body));
        QVERIFY(!path.isEmpty());
        QCOMPARE(describeImport(path), expected);
    }

    void oddStructuresSaveWhatIsLinked_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("saved");   // tracks segments points waypoints events

        // nothing could reach what is linked to nothing, so it is not saved
        QTest::newRow("a point outside any segment is dropped")
            << QByteArray("<trk><trkpt lat=\"1\" lon=\"2\"/><trkseg><trkpt lat=\"3\" lon=\"4\"/></trkseg></trk>")
            << QStringList{"track 1", "  segment 0", "    3 4"} << "1 1 1 0 0";
        QTest::newRow("a segment outside any track is dropped with its points")
            << QByteArray("<trkseg><trkpt lat=\"1\" lon=\"2\"/></trkseg><trk><trkseg/></trk>")
            << QStringList{"track 1", "  segment 0"} << "1 1 0 0 0";
        QTest::newRow("of nested tracks only the inner one is kept")
            << QByteArray("<trk><name>outer</name><trkseg><trkpt lat=\"1\" lon=\"2\"/></trkseg>"
                          "<trk><name>inner</name></trk></trk>")
            << QStringList{"track 2 name=inner"} << "1 0 0 0 0";
        QTest::newRow("an empty track element")
            << QByteArray("<trk/>") << QStringList{"track 1"} << "1 0 0 0 0";
        QTest::newRow("routes make no records")
            << QByteArray("<rte><name>R</name><rtept lat=\"1\" lon=\"2\"/></rte>") << QStringList{} << "0 0 0 0 0";
    }

    void oddStructuresSaveWhatIsLinked()
    {
        QFETCH(QByteArray, body);
        QFETCH(QStringList, expected);
        QFETCH(QString, saved);
        const SavedRecords records;
        const QString path = import(gpx(body));
        QVERIFY(!path.isEmpty());
        QCOMPARE(describeImport(path), expected);
        QCOMPARE(records.added(), saved);
    }

    // Expat reads UTF-8, UTF-16 and ISO-8859-1 by itself; progress counts
    // the file as UTF-8 text, which gives 0 for the others.
    void encodingsAndMalformedFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<quint64>("characters");
        QTest::addColumn<QString>("saved");

        const QString zurich = QStringLiteral("Z\u00fcrich");
        const QString body = QStringLiteral("<gpx><wpt lat=\"1\" lon=\"2\"><name>%1</name></wpt></gpx>").arg(zurich);
        const QStringList one{QStringLiteral("waypoint 1 1 2 name=") + zurich};
        const QByteArray utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + body.toUtf8();
        QTest::newRow("UTF-8 with a byte order mark")
            << "\xEF\xBB\xBF" + utf8 << one << quint64(1 + QString::fromUtf8(utf8).size()) << "0 0 0 1 0";
        QTest::newRow("ISO-8859-1 declared, with a Latin-1 letter")
            << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>") + body.toLatin1() << one << quint64(0)
            << "0 0 0 1 0";
        const QString declared16 = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-16\"?>") + body;
        QTest::newRow("UTF-16 little endian with a byte order mark")
            << QByteArray(QStringEncoder(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom).encode(declared16)) << one
            << quint64(0) << "0 0 0 1 0";
        QTest::newRow("UTF-16 big endian with a byte order mark")
            << QByteArray(QStringEncoder(QStringEncoder::Utf16BE, QStringEncoder::Flag::WriteBom).encode(declared16)) << one
            << quint64(0) << "0 0 0 1 0";
        // Expat knows UTF-16 by its first bytes "<\0?\0"
        QTest::newRow("UTF-16 little endian without a byte order mark")
            << QByteArray(QStringEncoder(QStringEncoder::Utf16LE).encode(declared16)) << one << quint64(0) << "0 0 0 1 0";
        QTest::newRow("spaces before the XML declaration: rejected whole")
            << "   " + utf8 << QStringList{} << quint64(3 + QString::fromUtf8(utf8).size()) << "0 0 0 0 0";
        QTest::newRow("not XML") << QByteArray("Error running filter\n") << QStringList{} << quint64(21) << "0 0 0 0 0";
        QTest::newRow("empty") << QByteArray() << QStringList{} << quint64(0) << "0 0 0 0 0";
        // the open track keeps its complete point; the open point is dropped
        const QByteArray cut("<gpx><wpt lat=\"5\" lon=\"6\"><name>W</name></wpt><trk><trkseg><trkpt lat=\"1\" lon=\"2\">"
                             "</trkpt><trkpt lat=\"3\" lon=\"4\"><ele>1");
        QTest::newRow("cut off inside a point")
            << cut << QStringList{"track 2", "  segment 0", "    1 2", "waypoint 1 5 6 name=W"} << quint64(cut.size())
            << "1 1 1 1 0";
        const QByteArray cutInWaypoint("<gpx><wpt lat=\"9\" lon=\"6\"><name>V</name></wpt><wpt lat=\"7\" lon=\"8\"><na");
        QTest::newRow("cut off inside a waypoint")
            << cutInWaypoint << QStringList{"waypoint 1 9 6 name=V"} << quint64(cutInWaypoint.size()) << "0 0 0 1 0";
    }

    void encodingsAndMalformedFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, expected);
        QFETCH(quint64, characters);
        QFETCH(QString, saved);
        const SavedRecords records;
        const QString path = import(bytes);
        QVERIFY(!path.isEmpty());
        QCOMPARE(HBFileImportOperation::numberOfCharactersInFile(path), characters);
        QCOMPARE(describeImport(path), expected);
        QCOMPARE(records.added(), saved);
    }

    void waypointsShareSymbolsByName()
    {
        const QSet<HBManagedObjectID> before = savedIDs(QStringLiteral("HBGeoPointSymbol"));
        const QString path = import(gpx("<wpt lat=\"1\" lon=\"1\"><sym>Import Flag</sym></wpt>"
                                        "<wpt lat=\"2\" lon=\"2\"><sym>Import Flag</sym></wpt>"
                                        "<trk><trkseg><trkpt lat=\"3\" lon=\"3\"><sym>Import Tent</sym></trkpt>"
                                        "</trkseg></trk>"),
                                    QStringLiteral("symbols.gpx"));
        QVERIFY(!path.isEmpty());
        const QSet<HBManagedObjectID> added = savedIDs(QStringLiteral("HBGeoPointSymbol")) - before;
        QCOMPARE(added.size(), 1);
        std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        context->performBlockAndWait([&] {
            const auto *symbol = static_cast<HBGeoPointSymbol *>(context->objectWithID(*added.cbegin()));
            QCOMPARE(symbol->name(), QStringLiteral("Import Flag"));
            QCOMPARE(symbol->points().size(), 2);
        });
    }

    // Each file goes into an empty home of its own (no waypoint of another
    // file stored there to be dropped as a duplicate). In a well-formed file
    // every trk, trkseg, trkpt and wpt is closed, so what is linked to the
    // import source equals what is saved and equals the element counts of
    // the corpus README, rte and rtept aside: routes are not imported. Where
    // the rules make another difference, a comment says how.
    void corpusFilesImportWhatTheRulesGive_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        // linked and saved: tracks segments points waypoints; no events saved
        const auto row = [](const char *file, const char *counts) {
            addCorpusRow(file, counts, qPrintable(QLatin1String(counts) + QLatin1String(" 0")));
        };
        row("gpx/georust-alltrails-route.gpx", "0 0 0 0");
        row("gpx/georust-buildgpx-accuracy.gpx", "1 1 3 0");
        row("gpx/georust-caltopo-export.gpx", "2 2 6 0");
        row("gpx/georust-garmin-connect-activity.gpx", "1 1 988 0");
        row("gpx/georust-gpsies-alltrails.gpx", "1 1 41 0");
        row("gpx/georust-gpsmap64s-extensions.gpx", "1 2 3540 0");
        row("gpx/georust-mapstogpx-mousehole.gpx", "1 1 111 2");
        row("gpx/georust-oregon400t-empty_name_tag.gpx", "1 1 0 0");
        row("gpx/georust-outdooractive-export.gpx", "1 1 9 0");
        row("gpx/georust-ridewithgps.gpx", "1 1 3 0");
        row("gpx/georust-strava-route.gpx", "1 1 113 0");
        row("gpx/georust-viking-route-extensions.gpx", "1 1 5 1");
        row("gpx/georust-wikipedia-oregon400t.gpx", "1 1 3 0");
        row("gpx/gpsbabel-GC7FA4-geocache.gpx", "0 0 0 1");
        row("gpx/gpsbabel-GCGCA8-geocache.gpx", "0 0 0 1");
        // README: 10 wpt, 1 trk; the trk is the self-closing <trk/>, a track without segments
        row("gpx/gpsbabel-Lctns_Instinct.gpx", "1 0 0 10");
        row("gpx/gpsbabel-basecamp.gpx", "1 1 2 2");
        row("gpx/gpsbabel-bigtime.gpx", "0 0 0 2");
        row("gpx/gpsbabel-empty-mapsource.gpx", "0 0 0 0");
        row("gpx/gpsbabel-expertgps.gpx", "1 1 64 86");
        row("gpx/gpsbabel-fitwrite-mavi.gpx", "1 2 64 12");
        row("gpx/gpsbabel-garmin-edge-800-output.gpx", "1 8 1286 1");
        row("gpx/gpsbabel-garmin-forerunner-10-output.gpx", "1 7 514 11");
        row("gpx/gpsbabel-garminconnect.gpx", "1 1 68 0");
        row("gpx/gpsbabel-gdb-sample.gpx", "9 9 747 9");
        row("gpx/gpsbabel-globalsat_gh625XT.gpx", "2 2 174 0");
        row("gpx/gpsbabel-gpx_subsecond-sample.gpx", "1 1 5 0");
        row("gpx/gpsbabel-gpxpassthrough10.gpx", "1 1 3 3");
        row("gpx/gpsbabel-gpxpassthrough11.gpx", "1 1 3 3");
        row("gpx/gpsbabel-grapheme.gpx", "0 0 0 3");
        row("gpx/gpsbabel-history.oracle.gpx", "1 1 1202 1");
        row("gpx/gpsbabel-igc1.gpx", "4 4 121 3");
        row("gpx/gpsbabel-mtk_logger.gpx", "3 3 817 4");
        row("gpx/gpsbabel-nmea+ms.oracle.gpx", "1 1 26 0");
        row("gpx/gpsbabel-route.gpx", "0 0 0 0");
        row("gpx/gpsbabel-segmented_tracks.gpx", "2 10 46 0");
        row("gpx/gpsbabel-spb_metro_ru.gpx", "0 0 0 83");
        row("gpx/gpsbabel-tcxtest-gpsies.gpx", "1 2 1202 0");
        row("gpx/gpsbabel-track-nmea.oracle.gpx", "1 1 154 0");
        row("gpx/gpsbabel-unknowntag-mapsource.gpx", "0 0 0 0");
        row("gpx/gpxgo-etrex10.gpx", "1 1 4 2");
        row("gpx/gpxgo-gpx-without-root-attributes.gpx", "1 1 1 0");
        row("gpx/gpxgo-gpx-without-xml-declaration.gpx", "1 1 1 0");
        row("gpx/gpxgo-gpx1.1_with_extensions.gpx", "1 1 1 1");
        row("gpx/gpxgo-mytracks-visnjan.gpx", "1 1 413 2");
        row("gpx/gpxgo-oziexplorer-iso8859-1.gpx", "0 0 0 8");
        row("gpx/gpxpy-around-visnjan-etrex20x.gpx", "1 1 104 0");
        row("gpx/gpxpy-cerknicko-jezero-no-creator.gpx", "8 8 296 7");
        row("gpx/gpxpy-cerknicko-jezero.gpx", "8 8 296 7");
        row("gpx/gpxpy-cerknicko-without-times.gpx", "8 8 296 7");
        row("gpx/gpxpy-gpsvisualizer-bom-noencoding.gpx", "0 0 0 1");
        row("gpx/gpxpy-gpx1.0_with_all_fields.gpx", "2 2 1 2");
        row("gpx/gpxpy-gpx1.1_with_all_fields.gpx", "2 2 1 2");
        row("gpx/gpxpy-korita-zbevnica.gpx", "4 4 871 2");
        row("gpx/gpxpy-nikeplus-offset-time.gpx", "1 1 2 0");
        row("gpx/gpxpy-osmtracker-unicode2.gpx", "1 1 0 0");
        row("gpx/gpxpy-runkeeper-garmin-extension.gpx", "0 0 0 1");
        row("gpx/gpxpy-track-with-empty-segment.gpx", "1 2 9 0");
        row("gpx/gpxpy-track-with-small-floats.gpx", "1 1 3 0");
        row("gpx/gpxpy-track_with_speed-noversion.gpx", "1 1 3 0");
        row("gpx/gpxpy-ultra-gps-logger-comments.gpx", "1 1 1 0");
        row("gpx/gpxpy-unicode.gpx", "0 0 0 6");
        row("gpx/gpxpy-unicode_with_bom.gpx", "0 0 0 1");
        row("gpx/sportslib-amazfit.gpx", "1 1 1216 0");
        row("gpx/sportslib-movescount-crlf.gpx", "1 1 1592 0");
        row("gpx/sportslib-strava-bom.gpx", "1 1 4040 0");
        row("gpx/sportslib-strava-swim.gpx", "1 1 88 0");
        row("gpx/togeojson-apple-health-route.gpx", "1 1 44 0");
        row("gpx/togeojson-apple-watch-run.gpx", "1 3 17 0");
        row("gpx/togeojson-blue_hills-expertgps.gpx", "3 14 1243 46");
        row("gpx/togeojson-expertgps-style.gpx", "21 21 362 0");
        row("gpx/togeojson-garmin-connect-run.gpx", "1 1 206 0");
        row("gpx/togeojson-gdal-north_core.gpx", "10 15 34 0");
        row("gpx/togeojson-gdal.gpx", "3 3 4 2");
        row("gpx/togeojson-mapsource-multitrack.gpx", "3 3 117 0");
        row("gpx/togeojson-opencpn-route.gpx", "0 0 0 0");
        row("gpx/togeojson-openstreetmap-trace.gpx", "3 3 420 0");
        row("gpx/togeojson-oregon600-missing_hr.gpx", "1 3 16 0");
        row("gpx/togeojson-osmand-empty_ele.gpx", "1 1 2 0");
        row("gpx/togeojson-osmand-empty_trk.gpx", "1 1 0 0");
        row("gpx/togeojson-osmand-unique_trkpt.gpx", "1 1 1 0");
        row("gpx/togeojson-strava-run_gpxtpx.gpx", "1 1 42 0");
        row("gpx/togeojson-xcode-waypoints.gpx", "0 0 0 40");
        row("gpx/togeojson-zero_elevation.gpx", "1 1 3 0");
        // README: 2 wpt; cut after the last waypoint, before the route: both waypoints are complete and listed
        row("malformed/gpsbabel-basecamp-bom-crlf.truncated.gpx", "0 0 0 2");
        // one line of text, not XML: Expat stops at once, the import source alone
        row("malformed/gpsbabel-not-xml.gpx", "0 0 0 0");
        // README: 40 wpt; cut inside the name of the 40th: the 39 complete waypoints are kept, the open 40th is dropped
        row("malformed/gpsbabel-spb_metro_ru-mid-utf8.truncated.gpx", "0 0 0 39");
        // README: 1 trk, 1 trkseg, 99 trkpt; cut inside the time of the 99th trkpt (the 100th time, after the metadata one): the open track keeps its segment of 98 complete points, the open 99th is dropped
        row("malformed/togeojson-garmin-connect-run.truncated.gpx", "1 1 98 0");
        // README: 2 wpt, 1 rte, 1 rtept, 1 trk, 1 trkseg, 2 trkpt; routes are not imported; the bad numbers leave values absent, not records
        row("malformed/togeojson-osmand-bad-values.gpx", "1 1 2 2");
    }

    void corpusFilesImportWhatTheRulesGive()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        QCOMPARE(importAndCountInFreshHome(file), expected);
    }
};

QTEST_GUILESS_MAIN(tst_HBGPXFileImportOperation)
#include "tst_HBGPXFileImportOperation.moc"
