#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "kits/geometry/HBPointGeometry.h"
#include "manager/HBTrackManager.h"
#include "model/HBGeoPointSymbol.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

// The point records over the track manager's real files: absent values
// stay absent, extra attributes keep one row per key, and a track point
// finds its segment again after a reload.
class tst_HBGeoPoint : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;
    std::unique_ptr<HBManagedObjectContext> m_context;

    // Runs the block on the test's context, then saves the manager's root.
    void onContext(const std::function<void(HBManagedObjectContext *)> &block)
    {
        m_context->performBlockAndWait([&] { block(m_context.get()); });
    }

    void saveAll()
    {
        onContext([](HBManagedObjectContext *c) { QVERIFY(c->save()); });
        m_manager->save();
    }

    static QString central() { return HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql"); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
    }

    void init() { m_context = m_manager->newPrivateQueueContext(); }
    void cleanup() { m_context.reset(); }

    void notANumberIsStoredAsAbsent_data()
    {
        QTest::addColumn<QString>("key");
        QTest::newRow("latitude") << QStringLiteral("latitude");
        QTest::newRow("longitude") << QStringLiteral("longitude");
        QTest::newRow("elevation") << QStringLiteral("elevation");
    }

    void notANumberIsStoredAsAbsent()
    {
        QFETCH(QString, key);
        onContext([&](HBManagedObjectContext *c) {
            auto *point = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            const auto set = [&](const std::optional<HBDecimal> &v) {
                key == QLatin1String("latitude")    ? point->setLatitude(v)
                : key == QLatin1String("longitude") ? point->setLongitude(v)
                                                    : point->setElevation(v);
            };
            const auto get = [&] {
                return key == QLatin1String("latitude")    ? point->latitude()
                       : key == QLatin1String("longitude") ? point->longitude()
                                                           : point->elevation();
            };
            set(HBDecimal::fromString(u"12.500"));
            QCOMPARE(get()->toString(), QStringLiteral("12.500"));
            set(HBDecimal::notANumber());
            QVERIFY(!get().has_value());
            QVERIFY(!point->valueForKey(key).isValid());
        });
    }

    void setPointSetsLongitudeFromXAndLatitudeFromY()
    {
        onContext([](HBManagedObjectContext *c) {
            auto *point = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            point->setPoint(QPointF(-122.4194, 37.7749));
            QCOMPARE(point->longitude()->toString(), QStringLiteral("-122.4194"));
            QCOMPARE(point->latitude()->toString(), QStringLiteral("37.7749"));
            QCOMPARE(point->point(), QPointF(-122.4194, 37.7749));
            QCOMPARE(point->valueForKey(QStringLiteral("point")).toPointF(), QPointF(-122.4194, 37.7749));
        });
    }

    void pointsShareASymbolByName()
    {
        onContext([](HBManagedObjectContext *c) {
            auto *a = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            auto *b = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            a->setSymbolName(QStringLiteral("Summit"));
            b->setSymbolName(QStringLiteral("Summit"));
            QVERIFY(a->symbol());
            QCOMPARE(a->symbol(), b->symbol());
            QCOMPARE(b->symbolName(), QStringLiteral("Summit"));
            QCOMPARE(b->valueForKey(QStringLiteral("symbolName")).toString(), QStringLiteral("Summit"));
            QCOMPARE(a->symbol()->points().size(), 2);
        });
        saveAll();
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPointSymbol"), QStringLiteral("name = 'Summit'")), qint64(1));
        // a later context finds the saved symbol instead of making another
        init();
        onContext([](HBManagedObjectContext *c) {
            auto *late = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            late->setSymbolName(QStringLiteral("Summit"));
            QVERIFY(!late->symbol()->isInserted());
        });
        saveAll();
        QCOMPARE(rowsIn(central(), QStringLiteral("HBGeoPointSymbol"), QStringLiteral("name = 'Summit'")), qint64(1));
    }

    void extraAttributesKeepOneRowPerKey()
    {
        const QDateTime date(QDate(2022, 6, 1), QTime(12, 0), Qt::UTC);
        HBManagedObjectID pointID;
        onContext([&](HBManagedObjectContext *c) {
            auto *point = c->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setDate(date);
            // an absent value still makes a row
            point->setGeoidHeight(std::nullopt);
            QVERIFY(!point->geoidHeight().has_value());
            point->setHorizontalDilutionOfPrecision(HBDecimal::fromString(u"2.10"));
            point->setHorizontalDilutionOfPrecision(HBDecimal::fromString(u"0.90"));
            point->setNumberOfSatellites(9);
            point->setFixType(QStringLiteral("3d"));
            QVERIFY(c->obtainPermanentIDsForObjects({point}));
            pointID = point->objectID();
        });
        saveAll();
        const QString file = HBTrackManager::pointFolder() + QStringLiteral("/%1.sql").arg(HBTrackManager::periodNumberForDate(date));
        QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPointAdditions")), qint64(4));
        QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPointAdditions"), QStringLiteral("key = 'com.fernwick.geoidheight'")), qint64(1));
        QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPointAdditions"), QStringLiteral("key = 'com.fernwick.hdop'")), qint64(1));

        init();
        onContext([&](HBManagedObjectContext *c) {
            auto *point = static_cast<HBTrackPoint *>(c->existingObjectWithID(pointID));
            QVERIFY(point);
            QCOMPARE(point->horizontalDilutionOfPrecision()->toString(), QStringLiteral("0.90"));
            QCOMPARE(point->valueForKey(QStringLiteral("horizontalDilutionOfPrecision")).value<HBDecimal>().toString(),
                     QStringLiteral("0.90"));
            QCOMPARE(point->numberOfSatellites(), std::optional<qint64>(9));
            QCOMPARE(point->fixType(), QStringLiteral("3d"));
            QVERIFY(!point->geoidHeight().has_value());
            QVERIFY(!point->magneticVariation().has_value());
        });
    }

    void localDateIsComputedOnceAZoneIsKnownAndThenKept()
    {
        onContext([](HBManagedObjectContext *c) {
            auto *point = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            point->setDate(QDateTime(QDate(2023, 7, 1), QTime(10, 0), Qt::UTC));
            QVERIFY(!point->localDate().isValid());
            HBManagedObject *zone = c->insertNewObjectForEntityForName(QStringLiteral("HBTimeZone"));
            zone->setValueForKey(QStringLiteral("Europe/Berlin"), QStringLiteral("name"));
            point->setTimeZone(zone);
            const QDateTime local = point->localDate();
            QCOMPARE(local.time(), QTime(12, 0));
            QCOMPARE(local.timeZone(), QTimeZone("Europe/Berlin"));
            // the first answer sticks
            point->setDate(QDateTime(QDate(2023, 12, 1), QTime(10, 0), Qt::UTC));
            QCOMPARE(point->localDate().date(), QDate(2023, 7, 1));
        });
    }

    void trackPointNamesItsSegmentAcrossFiles()
    {
        const QDateTime date(QDate(2022, 8, 1), QTime(7, 0), Qt::UTC);
        HBManagedObjectID pointID, segmentID;
        onContext([&](HBManagedObjectContext *c) {
            auto *segment = c->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
            auto *point = c->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setDate(date);
            point->setTrackSegment(segment);
            QVERIFY(point->trackSegmentURI().isNull());
            QVERIFY(c->obtainPermanentIDsForObjects({point}));
            QVERIFY(c->save());
            pointID = point->objectID();
            segmentID = segment->objectID();
            QVERIFY(!segmentID.isTemporaryID());
            QCOMPARE(point->trackSegmentURI(), segmentID.uriString());
        });
        m_manager->save();
        const QString file = HBTrackManager::pointFolder() + QStringLiteral("/%1.sql").arg(HBTrackManager::periodNumberForDate(date));
        QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPoint"), QStringLiteral("trackSegmentURI = '%1'").arg(segmentID.uriString())),
                 qint64(1));

        // a fresh context, on the other manager's coordinator
        std::unique_ptr<HBManagedObjectContext> other = HBTrackManager::sharedBackgroundThreadTrackManager()->newManagedObjectContext();
        other->performBlockAndWait([&] {
            HBPersistentStoreCoordinator *coordinator = other->persistentStoreCoordinator();
            auto *point = static_cast<HBTrackPoint *>(
                other->existingObjectWithID(coordinator->managedObjectIDForURIString(pointID.uriString())));
            QVERIFY(point);
            QVERIFY(point->trackSegment());
            QCOMPARE(point->trackSegment()->objectID().uriString(), segmentID.uriString());
        });
    }

    void trackPointWithAnUnknownSegmentURIHasNoSegment()
    {
        onContext([](HBManagedObjectContext *c) {
            auto *point = c->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setValueForKey(QStringLiteral("x-hbgps://00000000-0000-0000-0000-000000000000/HBTrackSegment/p3"),
                                  QStringLiteral("trackSegmentURI"));
            QVERIFY(!point->trackSegment());
        });
    }

    void waypointOrderAndGeometry()
    {
        onContext([](HBManagedObjectContext *c) {
            auto *waypoint = c->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
            QCOMPARE(waypoint->order(), qint64(0));
            waypoint->setOrder(-5);
            QCOMPARE(waypoint->order(), qint64(-5));
            waypoint->setPoint(QPointF(8.5, 47.25));
            const std::shared_ptr<HBPointGeometry> geometry = waypoint->geometry();
            QCOMPARE(geometry->point(), QPointF(8.5, 47.25));
            // moving the waypoint later leaves the geometry where it was made
            waypoint->setPoint(QPointF(9.0, 48.0));
            QCOMPARE(waypoint->geometry(), geometry);
            QCOMPARE(waypoint->geometry()->point(), QPointF(8.5, 47.25));
        });
    }
};

QTEST_GUILESS_MAIN(tst_HBGeoPoint)
#include "tst_HBGeoPoint.moc"
