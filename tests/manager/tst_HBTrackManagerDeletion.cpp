#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBMainThread.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Deleting what the user removes, checked in the files with SQLite itself,
// and the queries the manager offers its host.
class tst_HBTrackManagerDeletion : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;
    HBManagedObjectContext *m_root = nullptr;

    static QDateTime utc(int month, int day, int hour = 0, int minute = 0, int second = 0, int ms = 0)
    {
        return QDateTime(QDate(2024, month, day), QTime(hour, minute, second, ms), Qt::UTC);
    }

    static QString central() { return HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql"); }

    static QString pointFile(const QDateTime &date)
    {
        return HBTrackManager::pointFolder() + QStringLiteral("/%1.sql").arg(HBTrackManager::periodNumberForDate(date));
    }

    // A source with one track of `segments` segments of `perSegment`
    // points, each segment in its own ten-day period, and two waypoints.
    HBManagedObject *importedSource(const QString &name, int segments, int perSegment, const QDateTime &first)
    {
        HBManagedObject *source = nullptr;
        m_root->performBlockAndWait([&] {
            source = m_root->insertNewObjectForEntityForName(QStringLiteral("HBImportSource"));
            source->setValueForKey(name, QStringLiteral("name"));
            QList<HBTrackSegment *> list;
            for (int s = 0; s < segments; ++s) {
                QList<HBTrackPoint *> points;
                for (int i = 0; i < perSegment; ++i) {
                    auto *p = m_root->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
                    p->setLatitude(HBDecimal::fromString(u"46.5"));
                    p->setLongitude(HBDecimal::fromString(u"7.25"));
                    p->setDate(first.addDays(10 * s).addSecs(i));
                    points.append(p);
                }
                auto *segment = m_root->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
                segment->setPoints(points);
                list.append(segment);
            }
            auto *track = m_root->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            track->setName(name);
            track->setImportSource(source);
            track->setSegments(list);
            for (int w = 0; w < 2; ++w) {
                auto *waypoint = m_root->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
                waypoint->setName(name);
                waypoint->setObjectForKey(source, QStringLiteral("importSource"));
            }
        });
        m_manager->save();
        return source;
    }

    // The rows of what an import stores, over every store file, read with
    // SQLite itself: sources, tracks, segments, point lists, points, their
    // extras, waypoints. Events and shared symbols are not counted.
    static QList<qint64> importRows()
    {
        const QString file = central();
        QList<qint64> rows{rowsIn(file, QStringLiteral("HBImportSource")),   rowsIn(file, QStringLiteral("HBTrack")),
                           rowsIn(file, QStringLiteral("HBTrackSegment")),   rowsIn(file, QStringLiteral("HBTrackSegmentPointURIs")),
                           0, rowsIn(file, QStringLiteral("HBGeoPointAdditions")),
                           rowsIn(file, QStringLiteral("HBGeoPoint"))};   // waypoints stay in the central file
        for (const QFileInfo &points : QDir(HBTrackManager::pointFolder()).entryInfoList({QStringLiteral("*.sql")})) {
            rows[4] += rowsIn(points.filePath(), QStringLiteral("HBGeoPoint"));
            rows[5] += rowsIn(points.filePath(), QStringLiteral("HBGeoPointAdditions"));
        }
        return rows;
    }

    static QString describeRows(const QList<qint64> &rows)
    {
        return QStringLiteral("sources %1 tracks %2 segments %3 point lists %4 points %5 extras %6 waypoints %7")
            .arg(rows[0]).arg(rows[1]).arg(rows[2]).arg(rows[3]).arg(rows[4]).arg(rows[5]).arg(rows[6]);
    }

    // Imports the file as a batch of its own, to the end of its save.
    void importAndWait(const QString &path)
    {
        m_manager->importFilesAtPaths({path});
        QTRY_VERIFY_WITH_TIMEOUT(!m_manager->trackImportIsInProgress() && m_manager->trackImportQueue()->operationCount() == 0,
                                 60000);
    }

    // Deletes the file's import source and waits until the deletion, the
    // points of its segments included, is in the files.
    void deleteSourceAndWait(const QString &path)
    {
        std::unique_ptr<HBManagedObjectContext> context = m_manager->newPrivateQueueContext();
        QList<HBManagedObject *> sources;
        context->performBlockAndWait([&] {
            HBFetchRequest request(QStringLiteral("HBImportSource"));
            request.setPredicate(HBPredicate::format(QStringLiteral("filePath == %@"), {path}));
            sources = context->executeFetchRequest(request);
        });
        QCOMPARE(sources.size(), 1);
        QSignalSpy announced(m_manager, &HBTrackManager::didDeleteObjects);
        m_manager->deleteObjects(sources);
        QTRY_VERIFY_WITH_TIMEOUT(announced.count() > 0, 60000);
        m_manager->save();
        HBMainThread::waitUntil(
            [](std::chrono::milliseconds slice) { return HBBackgroundWork::waitForDone(slice); });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
        m_root = m_manager->managedObjectContext();
    }

    void deletingASourceLeavesNothingOfItInAnyFile()
    {
        const QDateTime first = utc(1, 2, 8);
        HBManagedObject *kept = importedSource(QStringLiteral("kept"), 1, 10, first);
        HBManagedObject *source = importedSource(QStringLiteral("doomed"), 5, 20000, first);
        QList<QString> files;
        for (int s = 0; s < 5; ++s)
            files.append(pointFile(first.addDays(10 * s)));
        QCOMPARE(QSet<QString>(files.begin(), files.end()).size(), 5);
        QCOMPARE(rowsIn(files[0], QStringLiteral("HBGeoPoint")), qint64(20010));
        QCOMPARE(rowsIn(files[4], QStringLiteral("HBGeoPoint")), qint64(20000));

        QList<HBTrackPoint *> graph = m_manager->batchFaultGraphFromImportSource(source);
        QCOMPARE(graph.size(), 100000);

        // one announcement for the deletion, one for each segment's points
        QSignalSpy announced(m_manager, &HBTrackManager::didDeleteObjects);
        m_manager->deleteObjects({source});
        QTRY_COMPARE_WITH_TIMEOUT(announced.count(), 6, 60000);
        HBBackgroundWork::waitForDone();

        QCOMPARE(rowsIn(files[0], QStringLiteral("HBGeoPoint")), qint64(10));
        for (int s = 1; s < 5; ++s)
            QCOMPARE(rowsIn(files[s], QStringLiteral("HBGeoPoint")), qint64(0));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBImportSource")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrack")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrackSegment")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrackSegmentPointURIs")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), QStringLiteral("name = 'doomed'")), qint64(0));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), QStringLiteral("name = 'kept'")), qint64(2));
        QCOMPARE(m_manager->batchFaultGraphFromImportSource(kept).size(), 10);
    }

    // Every corpus file, malformed and cut-off ones included: deleting its
    // import source leaves nothing of it in any file, so nothing the import
    // stored was out of reach. A GPX file cut off mid-track or mid-waypoint
    // keeps exactly its complete elements.
    void deletingAnImportedFileLeavesNothingOfIt_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("added");   // by the import; empty where the importer tests count
        const QHash<QString, QString> cutOff{
            {QStringLiteral("malformed/togeojson-garmin-connect-run.truncated.gpx"),
             QStringLiteral("sources 1 tracks 1 segments 1 point lists 1 points 98 extras 0 waypoints 0")},
            {QStringLiteral("malformed/gpsbabel-spb_metro_ru-mid-utf8.truncated.gpx"),
             QStringLiteral("sources 1 tracks 0 segments 0 point lists 0 points 0 extras 0 waypoints 39")},
            {QStringLiteral("malformed/gpsbabel-basecamp-bom-crlf.truncated.gpx"),
             QStringLiteral("sources 1 tracks 0 segments 0 point lists 0 points 0 extras 0 waypoints 2")},
        };
        const QDir corpus(QStringLiteral(HB_CORPUS_DIR));
        int files = 0;
        for (const QString &folder : {QStringLiteral("gpx"), QStringLiteral("tcx"), QStringLiteral("nmea"), QStringLiteral("malformed")}) {
            for (const QString &name : QDir(corpus.filePath(folder)).entryList(QDir::Files, QDir::Name)) {
                const QString file = folder + u'/' + name;
                QTest::newRow(qPrintable(file)) << corpus.filePath(file) << cutOff.value(file);
                ++files;
            }
        }
        QCOMPARE(files, 152);   // the corpus README's count
    }

    void deletingAnImportedFileLeavesNothingOfIt()
    {
        QFETCH(QString, path);
        QFETCH(QString, added);
        const QList<qint64> before = importRows();
        importAndWait(path);
        if (!added.isEmpty()) {
            QList<qint64> difference = importRows();
            for (qsizetype i = 0; i < difference.size(); ++i)
                difference[i] -= before[i];
            QCOMPARE(describeRows(difference), added);
        }
        deleteSourceAndWait(path);
        QCOMPARE(describeRows(importRows()), describeRows(before));
    }

    void deletingTracksAndWaypointsDirectly()
    {
        const QDateTime first = utc(3, 3, 8);
        importedSource(QStringLiteral("loose"), 2, 50, first);
        HBFetchedRecords<HBTrack> tracks = m_manager->tracksForPredicate(
            HBPredicate::format(QStringLiteral("name == %@"), {QStringLiteral("loose")}));
        HBFetchedRecords<HBWaypoint> waypoints = m_manager->waypointsForPredicate(
            HBPredicate::format(QStringLiteral("name == %@"), {QStringLiteral("loose")}));
        QCOMPARE(tracks.records.size(), 1);
        QCOMPARE(waypoints.records.size(), 2);
        QCOMPARE(tracks.records.first()->numberOfTrackPoints(), qint64(100));

        QSignalSpy announced(m_manager, &HBTrackManager::didDeleteObjects);
        m_manager->deleteObjects({tracks.records.first(), waypoints.records.first()});
        QTRY_COMPARE_WITH_TIMEOUT(announced.count(), 3, 60000);
        HBBackgroundWork::waitForDone();
        QCOMPARE(rowsIn(pointFile(first), QStringLiteral("HBGeoPoint")), qint64(0));
        QCOMPARE(rowsIn(pointFile(first.addDays(10)), QStringLiteral("HBGeoPoint")), qint64(0));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPoint"), QStringLiteral("name = 'loose'")), qint64(1));
        QCOMPARE(rowsIn(central(), QStringLiteral("HBTrack"), QStringLiteral("name = 'loose'")), qint64(0));
    }

    void nearbyPredicates_data()
    {
        QTest::addColumn<QList<QDateTime>>("dates");
        QTest::addColumn<QList<QDateTime>>("inside");
        QTest::addColumn<QList<QDateTime>>("outside");
        QTest::newRow("two days apart merge") << QList<QDateTime>{utc(6, 3, 12), utc(6, 1, 12)}
                                              << QList<QDateTime>{utc(5, 31, 12), utc(6, 2, 12), utc(6, 4, 12)}
                                              << QList<QDateTime>{utc(5, 31, 11, 59, 59), utc(6, 4, 12, 0, 1)};
        QTest::newRow("a second more stays apart")
            << QList<QDateTime>{utc(6, 1, 12), utc(6, 3, 12, 0, 1)}
            << QList<QDateTime>{utc(6, 2, 12), utc(6, 2, 12, 0, 1), utc(6, 4, 12, 0, 1)}
            << QList<QDateTime>{utc(6, 2, 12, 0, 0, 500), utc(6, 4, 12, 0, 2)};
        QTest::newRow("no dates") << QList<QDateTime>{} << QList<QDateTime>{} << QList<QDateTime>{utc(6, 1)};
    }

    void nearbyPredicates()
    {
        QFETCH(QList<QDateTime>, dates);
        QFETCH(QList<QDateTime>, inside);
        QFETCH(QList<QDateTime>, outside);
        const QHash<QString, HBPredicate> predicates = HBTrackManager::nearbyPredicatesForDates(dates);
        QCOMPARE(predicates.keys().size(), 2);
        const HBPredicate waypoints = predicates.value(QStringLiteral("waypointPredicate"));
        m_root->performBlockAndWait([&] {
            auto *probe = m_root->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            for (const QDateTime &d : inside) {
                probe->setDate(d);
                QVERIFY2(waypoints.evaluateWithObject(probe), qPrintable(d.toString(Qt::ISODateWithMs)));
            }
            for (const QDateTime &d : outside) {
                probe->setDate(d);
                QVERIFY2(!waypoints.evaluateWithObject(probe), qPrintable(d.toString(Qt::ISODateWithMs)));
            }
            m_root->deleteObject(probe);
        });
        if (dates.isEmpty())
            QCOMPARE(predicates.value(QStringLiteral("trackPredicate")).predicateFormat(), QStringLiteral("FALSEPREDICATE"));
    }

    // Tracks over, inside and across the interval 31 May 12:00 to 4 June 12:00.
    void nearbyTracksAreFoundInTheStore()
    {
        struct Span { const char *name; QDateTime start, end; };
        const Span spans[] = {
            {"over the start", utc(5, 30), utc(6, 10)},   {"inside", utc(6, 2), utc(6, 2, 6)},
            {"over the end", utc(6, 4), utc(6, 9)},       {"before", utc(5, 20), utc(5, 31, 11)},
            {"after", utc(6, 4, 12, 0, 1), utc(6, 5)},
        };
        m_root->performBlockAndWait([&] {
            for (const Span &s : spans) {
                auto *track = m_root->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
                track->setName(QLatin1String(s.name));
                track->setValueForKey(s.start, QStringLiteral("startDate"));
                track->setValueForKey(s.end, QStringLiteral("endDate"));
            }
        });
        m_manager->save();
        const HBPredicate nearby = HBTrackManager::nearbyPredicatesForDates({utc(6, 1, 12), utc(6, 3, 12)})
                                       .value(QStringLiteral("trackPredicate"));
        QStringList names;
        for (const HBTrack *t : m_manager->tracksForPredicate(nearby).records)
            names.append(t->name());
        names.sort();
        QCOMPARE(names, (QStringList{QStringLiteral("inside"), QStringLiteral("over the end"), QStringLiteral("over the start")}));
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManagerDeletion)
#include "tst_HBTrackManagerDeletion.moc"
