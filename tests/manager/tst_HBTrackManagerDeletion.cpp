#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

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
        QThreadPool::globalInstance()->waitForDone();

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
        QThreadPool::globalInstance()->waitForDone();
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
