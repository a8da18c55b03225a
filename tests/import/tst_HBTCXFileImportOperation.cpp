#include "ImportTestSupport.h"

#include "import/HBTCXFileImportOperation.h"

#include <QTest>

using namespace importtest;

namespace {

QByteArray tcx(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TrainingCenterDatabase "
           "xmlns=\"http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2\">"
           + body + "</TrainingCenterDatabase>\n";
}

// One trackpoint with a time (seconds past 08:00:00) and a position.
QByteArray trackpoint(int second, const char *latitude = "1", const char *longitude = "2")
{
    return QStringLiteral("<Trackpoint><Time>2011-03-05T08:00:%1Z</Time><Position><LatitudeDegrees>%2</LatitudeDegrees>"
                          "<LongitudeDegrees>%3</LongitudeDegrees></Position></Trackpoint>")
        .arg(second, 2, 10, QLatin1Char('0'))
        .arg(QLatin1String(latitude), QLatin1String(longitude))
        .toUtf8();
}

QString at(int second, const char *position = "1 2")
{
    return QStringLiteral("    %1 time=2011-03-05T08:00:%2.000Z").arg(QLatin1String(position)).arg(second, 2, 10, QLatin1Char('0'));
}

const QString kRepair = QStringLiteral("There was an error parsing the file.");

} // namespace

// TCX files into events, laps (tracks), segments and points: the trackpoint
// fields, lap numbering across activities, the repairs of unbalanced files
// and their log line, events saved apart from the import source, and what
// every corpus file gives.
class tst_HBTCXFileImportOperation : public QObject
{
    Q_OBJECT

    ImportTestHome m_home;

    // Imports the bytes as "<data tag>.tcx" or under the name; the file's path.
    QString import(const QByteArray &bytes, const QString &name = {})
    {
        return m_home.import<HBTCXFileImportOperation>(bytes, name.isEmpty() ? dataTagFileName("tcx") : name);
    }

private slots:
    void initTestCase() { QVERIFY(m_home.setUp()); }

    void trackpointFields_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("time, position and altitude; the rest ignored")
            << QByteArray("<Activities><Activity Sport=\"Biking\"><Id>2011-03-05T08:00:00Z</Id>"
                          "<Lap StartTime=\"2011-03-05T08:00:00Z\"><TotalTimeSeconds>60</TotalTimeSeconds>"
                          "<DistanceMeters>100</DistanceMeters><Calories>5</Calories><Track><Trackpoint>"
                          "<Time>2011-03-05T08:09:10.000Z</Time><Position><LatitudeDegrees>49.264327185</LatitudeDegrees>"
                          "<LongitudeDegrees>-123.109497958</LongitudeDegrees></Position><AltitudeMeters>12.60</AltitudeMeters>"
                          "<DistanceMeters>5.5</DistanceMeters><HeartRateBpm><Value>120</Value></HeartRateBpm>"
                          "<Cadence>80</Cadence><Extensions><TPX><Speed>3.2</Speed></TPX></Extensions></Trackpoint>"
                          "</Track><Notes>n</Notes></Lap><Notes>m</Notes></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0",
                           "    49.264327185 -123.109497958 ele=12.60 time=2011-03-05T08:09:10.000Z"};
        QTest::newRow("times: fractions and offsets dropped, short ones ignored")
            << QByteArray("<Activities><Activity><Lap><Track>"
                          "<Trackpoint><Time>2011-03-05T08:09:10</Time></Trackpoint>"
                          "<Trackpoint><Time>2011-03-05 08:09:10.849800+01:00</Time></Trackpoint>"
                          "<Trackpoint><Time>2011-03-05T08:09:1</Time></Trackpoint>"
                          "<Trackpoint><Time>not a time, though long</Time></Trackpoint>"
                          "<Trackpoint><Time>2011-03-05T08:09:10Z</Time><Time>short</Time></Trackpoint>"
                          "<Trackpoint><Time>2011-03-05T08:09:10Z</Time><Time>Aug  6 2007, 20:16:30</Time></Trackpoint>"
                          "</Track></Lap></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", "    - - time=2011-03-05T08:09:10.000Z",
                           "    - - time=2011-03-05T08:09:10.000Z", "    - -", "    - -",
                           "    - - time=2011-03-05T08:09:10.000Z", "    - -"};
        QTest::newRow("decimals as written, bad ones absent, no position no coordinates")
            << QByteArray("<Activities><Activity><Lap><Track><Trackpoint><Position>"
                          "<LatitudeDegrees> 49.2643271852284700 </LatitudeDegrees><LongitudeDegrees>-0.0</LongitudeDegrees>"
                          "</Position><AltitudeMeters>0012.5</AltitudeMeters></Trackpoint><Trackpoint><Position>"
                          "<LatitudeDegrees>no</LatitudeDegrees><LongitudeDegrees>undefined</LongitudeDegrees></Position>"
                          "</Trackpoint><Trackpoint><AltitudeMeters>7</AltitudeMeters></Trackpoint>"
                          "</Track></Lap></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", "    49.2643271852284700 -0.0 ele=12.5", "    - -",
                           "    - - ele=7"};
        QTest::newRow("a lap of two Track elements: one track, two segments")
            << "<Activities><Activity><Lap><Track>" + trackpoint(1) + "</Track><Track>" + trackpoint(2) + trackpoint(3)
                   + "</Track></Lap></Activity></Activities>"
            << QStringList{"track 1 name=Lap #1", "  segment 0", at(1), "  segment 1", at(2), at(3)};
        QTest::newRow("lap numbers run across activities")
            << "<Activities><Activity><Lap><Track>" + trackpoint(1) + "</Track></Lap><Lap/></Activity>"
                   "<Activity><Lap/><Lap><Track>" + trackpoint(4) + "</Track></Lap></Activity></Activities>"
            << QStringList{"track 1 name=Lap #1", "  segment 0", at(1), "track 2 name=Lap #2", "track 3 name=Lap #3",
                           "track 4 name=Lap #4", "  segment 0", at(4)};
        // a course's Track follows its Lap: the lap closes without segments
        QTest::newRow("a course: the lap is a track, its points and course points are not")
            << "<Courses><Course><Name>C</Name><Lap><TotalTimeSeconds>1</TotalTimeSeconds></Lap><Track>" + trackpoint(1)
                   + "</Track><CoursePoint><Name>cp</Name><Time>2011-03-05T08:00:00Z</Time><Position>"
                     "<LatitudeDegrees>5</LatitudeDegrees><LongitudeDegrees>6</LongitudeDegrees></Position>"
                     "</CoursePoint></Course></Courses>"
            << QStringList{"track 1 name=Lap #1"};
        QTest::newRow("prefixed names are not recognised")
            << QByteArray("<Activities><Activity><Lap><Track><tcx:Trackpoint><Time>2011-03-05T08:00:00Z</Time>"
                          "</tcx:Trackpoint></Track><tcx:Lap/></Lap></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0"};
    }

    void trackpointFields()
    {
        QFETCH(QByteArray, body);
        QFETCH(QStringList, expected);
        const ImportLog log;
        const QString path = import(tcx(body));
        QVERIFY(!path.isEmpty());
        QCOMPARE(describeImport(path), expected);
        QCOMPARE(log.lines(), QStringList());
    }

    void eventsAreSavedApartFromTheSource()
    {
        const QSet<HBManagedObjectID> before = savedIDs(QStringLiteral("HBEvent"));
        const QString path = import(tcx("<Activities><Activity><Lap/><Lap/></Activity><Activity><Lap/></Activity>"
                                        "<Activity/></Activities>"),
                                    QStringLiteral("events.tcx"));
        QVERIFY(!path.isEmpty());
        const QSet<HBManagedObjectID> added = savedIDs(QStringLiteral("HBEvent")) - before;
        std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        context->performBlockAndWait([&] {
            QList<HBManagedObject *> events;
            for (const HBManagedObjectID &id : added)
                events.append(context->objectWithID(id));
            QList<qint64> orders;
            for (const HBEvent *event : byOrder<HBEvent>(events)) {
                orders.append(event->order());
                QVERIFY(!event->importSource());
                QCOMPARE(event->tracks().size(), 0);
            }
            QCOMPARE(orders, (QList<qint64>{1, 2, 3}));
            const HBImportSource *source = importSourceWithPath(context.get(), path);
            QVERIFY(source);
            QCOMPARE(source->events().size(), 0);
            for (const HBTrack *lap : byOrder<HBTrack>(source->tracks())) {
                QCOMPARE(lap->importSource(), static_cast<const HBManagedObject *>(source));
                QVERIFY(!lap->event());
            }
            QCOMPARE(source->tracks().size(), 3);
        });
    }

    // An element of a level whose record is still open closes that level
    // and those below it first; so does the end of a document inside an
    // activity. Each repair logs one line; without an open activity, the end of
    // a cut-off file closes nothing.
    void unbalancedAndCutOffFiles_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<int>("repairs");
        QTest::addColumn<QString>("saved");   // tracks segments points waypoints events

        QTest::newRow("an activity inside a trackpoint closes every level")
            << tcx("<Activities><Activity><Lap><Track><Trackpoint><Time>2011-03-05T08:00:01Z</Time>"
                   "<Activity><Lap/></Activity></Trackpoint></Track></Lap></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", "    - - time=2011-03-05T08:00:01.000Z",
                           "track 2 name=Lap #2"}
            << 1 << "2 1 1 0 2";
        QTest::newRow("a lap inside a lap")
            << tcx("<Activities><Activity><Lap><Track>" + trackpoint(1) + "</Track><Lap><Track>" + trackpoint(2)
                   + "</Track></Lap></Lap></Activity></Activities>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", at(1), "track 2 name=Lap #2", "  segment 0", at(2)}
            << 1 << "2 2 2 0 1";
        QTest::newRow("a track inside a track")
            << tcx("<Lap><Track>" + trackpoint(1) + "<Track>" + trackpoint(2) + "</Track></Track></Lap>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", at(1), "  segment 1", at(2)} << 1 << "1 2 2 0 0";
        QTest::newRow("a trackpoint inside a trackpoint")
            << tcx("<Lap><Track><Trackpoint><Time>2011-03-05T08:00:01Z</Time><Trackpoint>"
                   "<Time>2011-03-05T08:00:02Z</Time></Trackpoint></Trackpoint></Track></Lap>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", "    - - time=2011-03-05T08:00:01.000Z",
                           "    - - time=2011-03-05T08:00:02.000Z"}
            << 1 << "1 1 2 0 0";
        QTest::newRow("two repairs")
            << tcx("<Lap><Track><Trackpoint><Trackpoint/></Trackpoint><Track/></Track></Lap>")
            << QStringList{"track 1 name=Lap #1", "  segment 0", "    - -", "    - -", "  segment 1"} << 2 << "1 2 2 0 0";
        // the open point, segment, lap and event are closed and listed
        QTest::newRow("inside a trackpoint of an activity")
            << "<TrainingCenterDatabase><Activities><Activity><Lap><Track>" + trackpoint(1)
                   + "<Trackpoint><Time>2011-03-05T08:00:02Z</Time><Position><LatitudeDegrees>1</LatitudeDegrees>"
            << QStringList{"track 1 name=Lap #1", "  segment 0", at(1), "    1 - time=2011-03-05T08:00:02.000Z"} << 1
            << "1 1 2 0 1";
        // without an open activity nothing is closed, and what is linked
        // to nothing is not saved
        QTest::newRow("inside a course")
            << "<TrainingCenterDatabase><Courses><Course><Lap><Track>" + trackpoint(1) + "<Trackpoint>"
            << QStringList{} << 0 << "0 0 0 0 0";
    }

    void unbalancedAndCutOffFiles()
    {
        QFETCH(QByteArray, document);
        QFETCH(QStringList, expected);
        QFETCH(int, repairs);
        QFETCH(QString, saved);
        const SavedRecords records;
        const ImportLog log;
        const QString path = import(document);
        QVERIFY(!path.isEmpty());
        QCOMPARE(log.lines(), QStringList(repairs, kRepair));
        QCOMPARE(describeImport(path), expected);
        QCOMPARE(records.added(), saved);
    }

    // Each file in an empty home of its own. In a well-formed activity file
    // every Lap, Track and Trackpoint closes inside its Activity, so what is
    // listed equals what is saved and equals the element counts of the
    // corpus README (a Lap is a track, each Track in it a segment), with one
    // event per Activity; where the rules make a difference, a comment says
    // how.
    void corpusFilesImportWhatTheRulesGive_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        const auto row = addCorpusRow;
        row("tcx/dblock-multiple_running_activities.tcx", "26 26 2717 0", "26 26 2717 0 2");
        row("tcx/dblock-multisport-trainingcenter.tcx", "1 2 494 0", "1 2 494 0 1");
        row("tcx/dblock-pool_swim-vivoactive.tcx", "1 1 32 0", "1 1 32 0 1");
        // README: no Activity, Lap or Track (workouts only): the import source alone
        row("tcx/dblock-simple_workout.tcx", "0 0 0 0", "0 0 0 0 0");
        row("tcx/dblock-treadmill-forerunner945.tcx", "3 3 215 0", "3 3 215 0 1");
        row("tcx/gpsbabel-gtrnctr-lap_s-fit2tcx.tcx", "14 14 943 0", "14 14 943 0 1");
        // README: 1 Course, 1 Lap, 1 Track, 18 Trackpoint; in a course the Track follows the Lap instead of lying in it: the Lap closes as a track without segments, and the segment with its 18 points closes into no track and is dropped; no Activity, no event
        row("tcx/gpsbabel-gtrnctr-readcp-course.tcx", "1 0 0 0", "1 0 0 0 0");
        row("tcx/gpsbabel-history.tcx", "1 2 1205 0", "1 2 1205 0 1");
        row("tcx/gpsbabel-kona2013-edge500.tcx", "1 1 5 0", "1 1 5 0 1");
        row("tcx/gpsbabel-tcxdata-written.tcx", "1 1 4 0", "1 1 4 0 1");
        row("tcx/gpsbabel-tcxdatagns-written.tcx", "1 1 4 0", "1 1 4 0 1");
        row("tcx/sportslib-movescount.tcx", "2 2 903 0", "2 2 903 0 1");
        row("tcx/sportslib-suunto-spartan-32laps.tcx", "32 32 752 0", "32 32 752 0 1");
        row("tcx/tcxparser-forerunner410.tcx", "3 3 384 0", "3 3 384 0 1");
        row("tcx/tcxreader-cross-country-skiing.tcx", "2 2 486 0", "2 2 486 0 1");
        row("tcx/tcxreader-mapmyride.tcx", "1 1 3112 0", "1 1 3112 0 1");
        row("tcx/togeojson-fitbit-tour_hr.tcx", "1 1 465 0", "1 1 465 0 1");
        row("tcx/togeojson-forerunner305-sample.tcx", "1 3 19 0", "1 3 19 0 1");
        row("tcx/togeojson-garmin-connect-edge520.tcx", "1 1 317 0", "1 1 317 0 1");
        // README: 1 Course, 1 Lap, 1 Track, 30 Trackpoint: a course, as above
        row("tcx/togeojson-tcx-courses.tcx", "1 0 0 0", "1 0 0 0 0");
        // README: 1 Activity, 5 Lap, 5 Track, 1545 Trackpoint, but spaces before the XML declaration: Expat rejects the file at its first line, the import source alone
        row("malformed/sportslib-polar-v800-leading-spaces.tcx", "0 0 0 0", "0 0 0 0 0");
        // README: 1 Activity, 2 Lap, 2 Track, 4 Trackpoint; bad latitudes leave values absent, not records
        row("malformed/togeojson-fitbit-bad-values.tcx", "2 2 4 0", "2 2 4 0 1");
        // README: 1 Activity, 1 Lap, 1 Track, 150 Trackpoint; cut inside the 150th Trackpoint: the end of the document closes the open point, segment, lap and event, so all are listed
        row("malformed/togeojson-garmin-connect-edge520.truncated.tcx", "1 1 150 0", "1 1 150 0 1");
    }

    void corpusFilesImportWhatTheRulesGive()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        QCOMPARE(importAndCountInFreshHome(file), expected);
    }
};

QTEST_GUILESS_MAIN(tst_HBTCXFileImportOperation)
#include "tst_HBTCXFileImportOperation.moc"
