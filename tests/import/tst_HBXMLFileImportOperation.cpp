#include "ImportTestSupport.h"

#include "import/HBGPXFileImportOperation.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

using namespace importtest;

namespace {

QByteArray gpx(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<gpx version=\"1.1\" creator=\"test\">" + body + "</gpx>\n";
}

QByteArray waypoint(const QByteArray &latitude, const QByteArray &longitude, const QByteArray &name = {})
{
    return "<wpt lat=\"" + latitude + "\" lon=\"" + longitude + "\">"
        + (name.isNull() ? QByteArray() : "<name>" + name + "</name>") + "</wpt>";
}

// A GPX import that records the progress at each start tag, after the
// base's own start-tag work, and can cancel itself at a start tag (before
// that work) or at the end of the document.
class WatchedImport : public HBGPXFileImportOperation
{
public:
    int cancelAtStartTag = -1;
    bool cancelAtEnd = false;
    QList<quint64> progress;
    bool ended = false;

    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName, const QString &namespaceURI,
                               const QString &qualifiedName, const Attributes &attributes) override
    {
        if (progress.size() == cancelAtStartTag)
            cancel();
        HBGPXFileImportOperation::parserDidStartElement(parser, elementName, namespaceURI, qualifiedName, attributes);
        progress.append(currentCharacter());
    }
    void parserDidEndDocument(ExpatXMLParser &parser) override
    {
        if (cancelAtEnd)
            cancel();
        HBGPXFileImportOperation::parserDidEndDocument(parser);
        ended = true;
    }
};

// Applies the older duplicate rule first, then the import's own steps.
class OlderRuleImport : public HBGPXFileImportOperation
{
public:
    qsizetype waypointsBefore = -1;
    qsizetype waypointsAfter = -1;

    void parserDidEndDocument(ExpatXMLParser &parser) override
    {
        waypointsBefore = waypoints().size();
        removeDuplicates();
        waypointsAfter = waypoints().size();
        HBGPXFileImportOperation::parserDidEndDocument(parser);
    }
};

// The byte offset of every start tag of a document without comments,
// processing instructions or CDATA sections.
QList<quint64> startTagOffsets(const QByteArray &document)
{
    QList<quint64> offsets;
    for (qsizetype i = document.indexOf('<'); i >= 0; i = document.indexOf('<', i + 1)) {
        if (i + 1 < document.size() && document[i + 1] != '/' && document[i + 1] != '?' && document[i + 1] != '!')
            offsets.append(quint64(i));
    }
    return offsets;
}

} // namespace

// The body every XML importer shares: progress and cancellation at start
// tags, the time text rule, the duplicate-waypoint rules, linking to the
// import source and what a file that is gone by the time it is read gives.
class tst_HBXMLFileImportOperation : public QObject
{
    Q_OBJECT

    ImportTestHome m_home;

    QString import(const QByteArray &document, const QString &name)
    {
        return m_home.import<HBGPXFileImportOperation>(document, name);
    }

    static QStringList waypointLines(const QString &path)
    {
        QStringList lines;
        for (const QString &line : describeImport(path)) {
            if (!line.startsWith(QLatin1String("track")) && !line.startsWith(u' '))
                lines << line;
        }
        return lines;
    }

private slots:
    void initTestCase() { QVERIFY(m_home.setUp()); }

    void timeText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("expected");   // invalid: no date

        const QDateTime instant(QDate(2012, 5, 1), QTime(10, 20, 30), Qt::UTC);
        QTest::newRow("Z") << "2012-05-01T10:20:30Z" << instant;
        QTest::newRow("no zone, 19 characters kept whole") << "2012-05-01T10:20:30" << instant;
        QTest::newRow("a space for the T") << "2012-05-01 10:20:30" << instant;
        QTest::newRow("GMT written out") << "2012-05-01 10:20:30 GMT" << instant;
        QTest::newRow("fraction dropped") << "2012-05-01T10:20:30.999Z" << instant;
        QTest::newRow("seven-digit fraction") << "2012-05-01T10:20:30.1234567Z" << instant;
        QTest::newRow("positive offset taken as UTC") << "2012-05-01T10:20:30.250+02:00" << instant;
        QTest::newRow("negative offset taken as UTC") << "2012-05-01T10:20:30-07:00" << instant;
        QTest::newRow("microseconds and +00:00") << "2012-05-01T10:20:30.849800+00:00" << instant;
        QTest::newRow("year 1234") << "1234-12-24T23:59:59.5Z" << QDateTime(QDate(1234, 12, 24), QTime(23, 59, 59), Qt::UTC);
        QTest::newRow("year 4096, leap day") << "4096-02-29T01:02:03Z" << QDateTime(QDate(4096, 2, 29), QTime(1, 2, 3), Qt::UTC);
        QTest::newRow("18 characters") << "2012-05-01T10:20:3" << QDateTime();
        QTest::newRow("minutes only") << "2012-05-01T10:20Z" << QDateTime();
        QTest::newRow("date only") << "2012-05-01" << QDateTime();
        QTest::newRow("empty") << "" << QDateTime();
        QTest::newRow("leading white space shifts the cut") << " 2012-05-01T10:20:30Z" << QDateTime();
        QTest::newRow("line break before") << "\n2012-05-01T10:20:30Z\n" << QDateTime();
        QTest::newRow("lower-case t") << "2012-05-01t10:20:30Z" << QDateTime();
        QTest::newRow("slashes") << "2012/05/01T10:20:30Z" << QDateTime();
        QTest::newRow("no such day") << "2013-02-29T00:00:00Z" << QDateTime();
        QTest::newRow("hour 24") << "2012-05-01T24:00:00Z" << QDateTime();
        QTest::newRow("second 60") << "2012-05-01T10:20:60Z" << QDateTime();
        QTest::newRow("year 0") << "0000-01-01T00:00:00Z" << QDateTime();
        QTest::newRow("sign in the year") << "-012-05-01T10:20:30Z" << QDateTime();
        QTest::newRow("not ISO") << "May 20 2008, 16:58:11" << QDateTime();
        QTest::newRow("digits of another script") << QStringLiteral("\u0662012-05-01T10:20:30Z") << QDateTime();
    }

    void timeText()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, expected);
        const QDateTime date = HBXMLFileImportOperation::dateFromTimeText(text);
        QCOMPARE(date, expected);
        QCOMPARE(date.isValid(), expected.isValid());
        if (date.isValid())
            QCOMPARE(date.timeSpec(), Qt::UTC);
    }

    // Each row first saves one file, then imports another and lists the
    // waypoints the second keeps. Every row has coordinates of its own, so
    // that no other row's points take part in its duplicate check.
    void duplicateWaypoints_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("fresh");
        QTest::addColumn<QStringList>("kept");

        QTest::newRow("same position and name: dropped")
            << waypoint("10.5", "20.5", "A") << waypoint("10.5", "20.5", "A") << QStringList{};
        QTest::newRow("same numbers in other digits: dropped")
            << waypoint("11.50", "21.5000", "A") << waypoint("11.5", "21.5", "A") << QStringList{};
        QTest::newRow("another name: kept")
            << waypoint("12.5", "22.5", "A") << waypoint("12.5", "22.5", "B") << QStringList{"waypoint 1 12.5 22.5 name=B"};
        QTest::newRow("no names: kept")
            << waypoint("13.5", "23.5") << waypoint("13.5", "23.5") << QStringList{"waypoint 1 13.5 23.5"};
        QTest::newRow("another latitude: kept")
            << waypoint("14.5", "24.5", "A") << waypoint("14.6", "24.5", "A") << QStringList{"waypoint 1 14.6 24.5 name=A"};
        QTest::newRow("a stored track point counts too")
            << QByteArray("<trk><trkseg><trkpt lat=\"15.5\" lon=\"25.5\"><name>A</name></trkpt></trkseg></trk>")
            << waypoint("15.5", "25.5", "A") << QStringList{};
        QTest::newRow("copies within one file are all kept")
            << waypoint("16.9", "26.9", "Z") << waypoint("16.5", "26.5", "A") + waypoint("16.5", "26.5", "A")
            << QStringList{"waypoint 1 16.5 26.5 name=A", "waypoint 2 16.5 26.5 name=A"};
        QTest::newRow("two new copies of a stored waypoint: both dropped")
            << waypoint("17.5", "27.5", "A") << waypoint("17.5", "27.5", "A") + waypoint("17.5", "27.5", "A")
            << QStringList{};
        QTest::newRow("each waypoint meets its stored copy")
            << waypoint("18.1", "28.1", "A") + waypoint("18.2", "28.2", "B")
            << waypoint("18.2", "28.2", "B") + waypoint("18.1", "28.1", "A") << QStringList{};
        // sorted, (23.15, 33.1, "C") comes between the two copies and moves
        // the cursor past (23.2, 33.2, "B") on its name; the walk then stops
        QTest::newRow("a waypoint between two copies: the later copy is kept")
            << waypoint("23.1", "33.1", "A") + waypoint("23.2", "33.2", "B")
            << waypoint("23.2", "33.2", "B") + waypoint("23.1", "33.1", "A") + waypoint("23.15", "33.1", "C")
            << QStringList{"waypoint 1 23.2 33.2 name=B", "waypoint 3 23.15 33.1 name=C"};
        // the cursor stops at a stored point no key of which is smaller
        QTest::newRow("a stored point waits under the cursor for its copy")
            << waypoint("19.2", "29.1", "A") << waypoint("19.1", "29.1", "A") + waypoint("19.2", "29.1", "A")
            << QStringList{"waypoint 1 19.1 29.1 name=A"};
        // (20.5, 30.5, "A") is passed over on its name by (20.5, 30.3, "X"),
        // which sorts first; the copy that follows finds the list used up
        QTest::newRow("passed over on the name: the copy is kept")
            << waypoint("20.5", "30.5", "A") << waypoint("20.5", "30.3", "X") + waypoint("20.5", "30.5", "A")
            << QStringList{"waypoint 1 20.5 30.3 name=X", "waypoint 2 20.5 30.5 name=A"};
        // stored (21.1, 31.9, "C") is passed on the name by (21.1, 31.9, "D"),
        // then (21.2, 31.5, "A") on its smaller longitude, though its
        // latitude is larger: each key alone moves the cursor
        QTest::newRow("passed over on the longitude: the copy is kept")
            << waypoint("21.1", "31.9", "C") + waypoint("21.2", "31.5", "A")
            << waypoint("21.1", "31.9", "D") + waypoint("21.2", "31.5", "A")
            << QStringList{"waypoint 1 21.1 31.9 name=D", "waypoint 2 21.2 31.5 name=A"};
        QTest::newRow("a waypoint without a position is kept")
            << waypoint("22.5", "32.5", "A") << waypoint("x", "32.5", "A") + waypoint("22.5", "32.5", "A")
            << QStringList{"waypoint 1 - 32.5 name=A"};
    }

    void duplicateWaypoints()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QByteArray, fresh);
        QFETCH(QStringList, kept);
        const QString tag = QString::fromUtf8(QTest::currentDataTag());
        const QString storedPath = import(gpx(stored), tag + QStringLiteral(" stored.gpx"));
        QVERIFY(!storedPath.isEmpty());
        const QStringList storedBefore = describeImport(storedPath);
        const QString freshPath = import(gpx(fresh), tag + QStringLiteral(" fresh.gpx"));
        QVERIFY(!freshPath.isEmpty());
        QCOMPARE(waypointLines(freshPath), kept);
        // the stored copy is never the one dropped
        QCOMPARE(describeImport(storedPath), storedBefore);
    }

    // The older rule fetches in batches of at most 500 waypoints starting
    // 300 apart; a duplicate in any batch is dropped.
    void olderDuplicateRuleFetchesInBatches()
    {
        QByteArray stored, fresh;
        for (int i = 0; i < 650; ++i) {
            const QByteArray latitude = "40." + QByteArray::number(1000 + i);
            // names in the order of the latitudes, so that the walk passes no copy
            const QByteArray point = waypoint(latitude, "50.5", QStringLiteral("W%1").arg(i, 3, 10, QLatin1Char('0')).toUtf8());
            fresh += point;
            if (i == 10 || i == 400 || i == 620)
                stored += point;
        }
        QVERIFY(!import(gpx(stored), QStringLiteral("older rule stored.gpx")).isEmpty());
        auto operation = std::make_shared<OlderRuleImport>();
        const ImportLog log;
        const QString path = m_home.import(gpx(fresh), QStringLiteral("older rule fresh.gpx"), operation);
        QVERIFY(!path.isEmpty());
        QCOMPARE(operation->waypointsBefore, 650);
        QCOMPARE(operation->waypointsAfter, 647);
        QCOMPARE(log.lines(), (QStringList{"Begin dupes", "i=0", "i=300", "i=600", "Fetch completed.", "End dupes:"}));
        const QStringList kept = waypointLines(path);
        QCOMPARE(kept.size(), 647);
        for (const char *dropped : {"name=W010", "name=W400", "name=W620"})
            QVERIFY(!kept.contains(QRegularExpression(QStringLiteral(" %1$").arg(QLatin1String(dropped)))));
    }

    void progressIsTheByteOfEachStartTag_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::newRow("ASCII") << gpx(waypoint("1", "2", "A") + "<trk><trkseg><trkpt lat=\"1\" lon=\"2\"/></trkseg></trk>");
        // bytes, not characters: each of these letters takes two
        QTest::newRow("two-byte letters before the tags")
            << gpx("<wpt lat=\"1\" lon=\"2\"><name>\xC3\xBC\xC3\xBC\xC3\xBC</name><desc>\xC3\xA9</desc></wpt>");
        QByteArray long_;
        for (int i = 0; i < 400; ++i)
            long_ += waypoint("3." + QByteArray::number(i), "4", "Point " + QByteArray::number(i));
        QTest::newRow("across many pieces of the reader") << gpx(long_);
    }

    void progressIsTheByteOfEachStartTag()
    {
        QFETCH(QByteArray, document);
        auto operation = std::make_shared<WatchedImport>();
        QVERIFY(!m_home.import(document, QStringLiteral("progress %1.gpx").arg(QTest::currentDataTag()), operation).isEmpty());
        QCOMPARE(operation->progress, startTagOffsets(document));
        QCOMPARE(operation->currentCharacter(), startTagOffsets(document).last());
    }

    void cancellingSavesNothing_data()
    {
        QTest::addColumn<int>("cancelAtStartTag");   // -1: at the end of the document
        QTest::addColumn<int>("startTagsSeen");
        // start tags: gpx 0, wpt 1, name 2, trk 3, trkseg 4, trkpt 5, ele 6, trkpt 7
        QTest::newRow("at the root") << 0 << 1;
        QTest::newRow("at a waypoint's name") << 2 << 3;
        QTest::newRow("at a point's elevation") << 6 << 7;
        QTest::newRow("at the last start tag") << 7 << 8;
        QTest::newRow("at the end of the document") << -1 << 8;
    }

    void cancellingSavesNothing()
    {
        QFETCH(int, cancelAtStartTag);
        QFETCH(int, startTagsSeen);
        const QByteArray document = gpx(waypoint("60.5", "70.5", "A") + "<trk><trkseg><trkpt lat=\"1\" lon=\"2\"><ele>3</ele>"
                                                                     "</trkpt><trkpt lat=\"4\" lon=\"5\"/></trkseg></trk>");
        auto operation = std::make_shared<WatchedImport>();
        operation->cancelAtStartTag = cancelAtStartTag;
        operation->cancelAtEnd = cancelAtStartTag < 0;
        const SavedRecords records;
        const QString path = m_home.import(document, QStringLiteral("cancel %1.gpx").arg(QTest::currentDataTag()), operation);
        QVERIFY(!path.isEmpty());
        QVERIFY(operation->ended);
        // no start tag after the cancelling one reaches the importer
        QCOMPARE(operation->progress.size(), startTagsSeen);
        QVERIFY(operation->tracks().isEmpty());
        QVERIFY(operation->waypoints().isEmpty());
        QCOMPARE(describeImport(path), kNoImportSource);
        QCOMPARE(records.added(), QStringLiteral("0 0 0 0 0"));
    }

    void aFileGoneBeforeItIsReadGivesAnEmptySource()
    {
        const QString path = m_home.filePath(QStringLiteral("gone.gpx"));
        const QByteArray document = gpx(waypoint("61.5", "71.5", "A"));
        QVERIFY(writeFile(path, document));
        auto operation = std::make_shared<HBGPXFileImportOperation>();
        operation->setFilePath(path);
        const QDateTime importDate(QDate(2024, 1, 2), QTime(3, 4, 5), Qt::UTC);
        operation->setImportDate(importDate);
        QVERIFY(QFile::remove(path));
        const SavedRecords records;
        const ImportLog log;
        runToEnd(operation);
        QCOMPARE(operation->numberOfCharacters(), quint64(document.size()));
        QCOMPARE(describeImport(path), QStringList());
        QCOMPARE(records.added(), QStringLiteral("0 0 0 0 0"));
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.lines().first().startsWith(QStringLiteral("Cannot read")));
        std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        context->performBlockAndWait([&] {
            const HBImportSource *source = importSourceWithPath(context.get(), path);
            QVERIFY(source);
            QCOMPARE(source->sourceType(), 1);
            QCOMPARE(source->name(), QStringLiteral("gone.gpx"));
            QCOMPARE(source->importDate(), importDate);
            QCOMPARE(source->fileSize(), std::nullopt);
            QVERIFY(!source->fileModificationDate().isValid());
        });
    }

    void tracksAndWaypointsAreLinkedToTheSource()
    {
        const QByteArray document = gpx(waypoint("62.5", "72.5", "A") + "<trk><name>T</name><trkseg><trkpt lat=\"1\" "
                                                                        "lon=\"2\"/></trkseg></trk><trk/>"
                                        + waypoint("62.6", "72.6", "B"));
        auto operation = std::make_shared<HBGPXFileImportOperation>();
        const QString path = m_home.import(document, QStringLiteral("linked.gpx"), operation);
        QVERIFY(!path.isEmpty());
        // handed over to the import source, and no longer the operation's
        QVERIFY(operation->tracks().isEmpty());
        QVERIFY(operation->waypoints().isEmpty());
        QVERIFY(operation->routes().isEmpty());
        QCOMPARE(operation->objectImportOrder(), 5);
        QCOMPARE(operation->eventImportOrder(), 1);
        std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
        context->performBlockAndWait([&] {
            const HBImportSource *source = importSourceWithPath(context.get(), path);
            QVERIFY(source);
            QCOMPARE(source->fileSize(), std::optional<quint64>(document.size()));
            QCOMPARE(source->fileModificationDate(), QFileInfo(path).lastModified());
            const QList<HBTrack *> tracks = byOrder<HBTrack>(source->tracks());
            QCOMPARE(tracks.size(), 2);
            for (const HBTrack *track : tracks)
                QCOMPARE(track->importSource(), static_cast<const HBManagedObject *>(source));
            QCOMPARE(tracks[0]->numberOfTrackPoints(), 1);
            const QList<HBWaypoint *> waypoints = byOrder<HBWaypoint>(source->waypoints());
            QCOMPARE(waypoints.size(), 2);
            for (const HBWaypoint *waypoint : waypoints)
                QCOMPARE(waypoint->objectForKey(QStringLiteral("importSource")), static_cast<const HBManagedObject *>(source));
        });
    }
};

QTEST_GUILESS_MAIN(tst_HBXMLFileImportOperation)
#include "tst_HBXMLFileImportOperation.moc"
