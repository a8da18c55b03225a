#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "kits/geometry/HBEarthDistance.h"
#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "platform/HBBackgroundWork.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Tracks and segments over the manager's real files: the order rules of
// editing, the statistics against a hand computation, the point list that
// survives a fresh context, and the geometry cache on disk.
class tst_HBTrack : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;
    HBManagedObjectContext *m_context = nullptr;

    static QDateTime at(int minute) { return QDateTime(QDate(2022, 9, 3), QTime(10, 0).addSecs(minute * 60), Qt::UTC); }

    // Points along a line north-east of Munich, one a minute; `located`
    // false leaves them without a position.
    QList<HBTrackPoint *> makePoints(int count, int firstMinute = 0, bool located = true)
    {
        QList<HBTrackPoint *> points;
        for (int i = 0; i < count; ++i) {
            auto *p = m_context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            if (located) {
                p->setLatitude(HBDecimal::fromString(QStringLiteral("48.1%1").arg(i, 3, 10, QLatin1Char('0'))));
                p->setLongitude(HBDecimal::fromString(QStringLiteral("11.5%1").arg(i * 2, 3, 10, QLatin1Char('0'))));
            }
            p->setDate(at(firstMinute + i));
            points.append(p);
        }
        return points;
    }

    static QList<qint64> ordersOf(const QList<HBTrackPoint *> &points)
    {
        QList<qint64> orders;
        for (const HBTrackPoint *p : points)
            orders.append(p->order().value_or(-1));
        return orders;
    }

    static double handDistance(const QList<HBTrackPoint *> &points)
    {
        double sum = 0;
        const HBTrackPoint *previous = nullptr;
        for (const HBTrackPoint *p : points) {
            if (!p->latitude() || !p->longitude())
                continue;
            if (previous)
                sum += HBEarthDistance(previous->longitude()->toDouble(), previous->latitude()->toDouble(),
                                       p->longitude()->toDouble(), p->latitude()->toDouble());
            previous = p;
        }
        return sum;
    }

    HBTrackSegment *segmentOf(const QList<HBTrackPoint *> &points)
    {
        auto *segment = m_context->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
        segment->setPoints(points);
        return segment;
    }

    void onContext(const std::function<void()> &block) { m_context->performBlockAndWait(block); }

    // The segment of the points, with the ID it will be saved under.
    HBManagedObjectID permanentSegmentOf(const QList<HBTrackPoint *> &points)
    {
        HBTrackSegment *segment = segmentOf(points);
        return m_context->obtainPermanentIDsForObjects({segment}) ? segment->objectID() : HBManagedObjectID();
    }

    // Saves, then hands the segment as a fresh context reads it back.
    void afterSaving(const HBManagedObjectID &segmentID, const std::function<void(HBTrackSegment *)> &check)
    {
        QVERIFY(!segmentID.isNull());
        m_manager->save();
        std::unique_ptr<HBManagedObjectContext> fresh = m_manager->newManagedObjectContext();
        fresh->performBlockAndWait([&] {
            auto *segment = static_cast<HBTrackSegment *>(fresh->existingObjectWithID(segmentID));
            QVERIFY(segment);
            check(segment);
        });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
        m_context = m_manager->managedObjectContext();
    }

    void insertingAPointGivesEveryLaterPointTheSameOrder()
    {
        onContext([&] {
            const QList<HBTrackPoint *> points = makePoints(5);
            HBTrackSegment *segment = segmentOf(points);
            QCOMPARE(ordersOf(segment->points()), (QList<qint64>{0, 1, 2, 3, 4}));
            HBTrackPoint *extra = makePoints(1, 30).first();
            segment->insertObject(extra, 2);
            QCOMPARE(segment->points().at(2), extra);
            QCOMPARE(ordersOf(segment->points()), (QList<qint64>{0, 1, 2, 3, 3, 3}));
            QCOMPARE(segment->numberOfTrackPoints(), qint64(6));
            segment->removeObjectFromPointsAtIndex(0);
            QCOMPARE(ordersOf(segment->points()), (QList<qint64>{0, 1, 2, 2, 2}));
        });
    }

    void segmentStatisticsMatchAHandComputation()
    {
        onContext([&] {
            QList<HBTrackPoint *> points = makePoints(6);
            // one point without a position and one without a date in between
            points.insert(3, makePoints(1, 100, false).first());
            points[5]->setDate(QDateTime());
            HBTrackSegment *segment = segmentOf(points);
            QCOMPARE(segment->numberOfTrackPoints(), qint64(7));
            QCOMPARE(segment->distance(), handDistance(points));
            QVERIFY(segment->distance() > 50.0);
            QCOMPARE(segment->startDate(), at(0));
            QCOMPARE(segment->endDate(), at(5));
            QCOMPARE(segment->minLatitude(), std::optional<double>(48.1));
            QCOMPARE(segment->maxLatitude(), std::optional<double>(48.1005));
            QCOMPARE(segment->minLongitude(), std::optional<double>(11.5));
            QCOMPARE(segment->maxLongitude(), std::optional<double>(11.501));
        });
    }

    // Long segments measure their legs on several threads; the sum must
    // still be the one of adding every leg in order, to the last bit.
    void longSegmentDistanceIsTheInOrderSum()
    {
        onContext([&] {
            QList<HBTrackPoint *> points = makePoints(20000);
            for (int i = 8190; i < 20000; i += 4099)
                points.insert(i, makePoints(1, i, false).first());
            HBTrackSegment *segment = segmentOf(points);
            const double expected = handDistance(points);
            QVERIFY2(segment->distance() == expected,
                     qPrintable(QStringLiteral("%1 != %2").arg(segment->distance(), 0, 'g', 17).arg(expected, 0, 'g', 17)));
            QCOMPARE(segment->numberOfTrackPoints(), qint64(20003));
        });
    }

    // A long segment's distance is measured aside, and nothing asks for it
    // before the save: the saved value must still be the full one, as a
    // fresh context reads it.
    void longSegmentSavedAtOnceKeepsItsDistance()
    {
        HBManagedObjectID segmentID;
        double expected = 0;
        onContext([&] {
            const QList<HBTrackPoint *> points = makePoints(30000, 1000);
            expected = handDistance(points);
            segmentID = permanentSegmentOf(points);
        });
        afterSaving(segmentID, [&](const HBTrackSegment *segment) {
            QVERIFY(expected > 0);
            QVERIFY(segment->distance() == expected);
        });
    }

    void segmentWithoutPositionsHasNoDistanceNorDates()
    {
        onContext([&] {
            HBTrackSegment *segment = segmentOf(makePoints(4, 0, false));
            QCOMPARE(segment->numberOfTrackPoints(), qint64(4));
            QCOMPARE(segment->distance(), 0.0);
            QVERIFY(!segment->startDate().isValid());
            QVERIFY(!segment->endDate().isValid());
            QVERIFY(!segment->minLatitude());
        });
    }

    void trackSumsItsSegmentsAndKeepsThemInOrder()
    {
        onContext([&] {
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            const QList<HBTrackPoint *> a = makePoints(3, 10), b = makePoints(4, 0);
            HBTrackSegment *first = segmentOf(a), *second = segmentOf(b);
            track->setSegments({first, second});
            QCOMPARE(track->numberOfTrackPoints(), qint64(7));
            QCOMPARE(*track->distance(), first->distance() + second->distance());
            QCOMPARE(track->startDate(), at(0));
            QCOMPARE(track->endDate(), at(12));
            QCOMPARE(*track->duration(), 720.0);
            const QRectF bounds = track->bounds();
            QCOMPARE(bounds.topLeft(), QPointF(11.5, 48.1));
            QCOMPARE(bounds.bottomRight(), QPointF(11.5006, 48.1003));

            HBTrackSegment *front = segmentOf(makePoints(2, 50));
            track->insertObject(front, 0);
            QCOMPARE(track->segments(), (QList<HBTrackSegment *>{front, first, second}));
            QCOMPARE(front->order(), std::optional<qint64>(0));
            QCOMPARE(first->order(), std::optional<qint64>(1));
            QCOMPARE(second->order(), std::optional<qint64>(2));
            QCOMPARE(track->numberOfTrackPoints(), qint64(9));

            // a segment without dates clears the duration
            HBTrackSegment *dateless = segmentOf(makePoints(2, 0, false));
            for (HBTrackPoint *p : dateless->points())
                p->setDate(QDateTime());
            dateless->recalculateAttributes();
            auto *other = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            other->setSegments({dateless});
            QVERIFY(!other->duration());
            QVERIFY(!other->startDate().isValid());

            track->removeObjectFromSegmentsAtIndex(0);
            QCOMPARE(track->segments(), (QList<HBTrackSegment *>{first, second}));
            QCOMPARE(second->order(), std::optional<qint64>(1));
        });
    }

    void trackWithoutSegmentsKeepsItsStatistics()
    {
        onContext([&] {
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            track->setValueForKey(QVariant::fromValue(qint64(42)), QStringLiteral("numberOfTrackPoints"));
            track->setValueForKey(1234.5, QStringLiteral("distance"));
            track->recalculateAttributes();
            QCOMPARE(track->numberOfTrackPoints(), qint64(42));
            QCOMPARE(*track->distance(), 1234.5);
        });
    }

    void settingATypeAddsAnUnlinkedRowThatReadsNothing()
    {
        onContext([&] {
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            track->setName(QStringLiteral("typed"));
            track->setType(QStringLiteral("Hiking"));
            QVERIFY(track->type().isNull());
            track->setType(QStringLiteral("Cycling"));
            QVERIFY(track->type().isNull());
        });
        m_manager->save();
        const QString central = HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql");
        QCOMPARE(rowsIn(central, QStringLiteral("HBTrackAdditions"), QStringLiteral("track IS NULL")), qint64(2));
    }

    // A segment's points come with their extra attributes loaded: the values
    // read afterwards must be each point's own, absent ones stay absent,
    // and a value written later is the one read back.
    void pointsLoadedWithTheirExtras()
    {
        HBManagedObjectID segmentID;
        onContext([&] {
            const QList<HBTrackPoint *> points = makePoints(4, 400);
            points[1]->setGeoidHeight(HBDecimal::fromString(QStringLiteral("47.25")));
            points[1]->setLink(QStringLiteral("https://example.org/one"));
            points[3]->setMagneticVariation(HBDecimal::fromString(QStringLiteral("-2.50")));
            // before any loading, each key is asked on its own
            const QVariantList unsaved = points[1]->fetchAdditionsTableValuesForKeys(
                {kHBGeoPointMagneticVariationProperty, kHBGeoPointLinkProperty});
            QCOMPARE(unsaved.size(), 2);
            QVERIFY(!unsaved[0].isValid());
            QCOMPARE(unsaved[1].toString(), QStringLiteral("https://example.org/one"));
            segmentID = permanentSegmentOf(points);
        });
        afterSaving(segmentID, [&](HBTrackSegment *segment) {
            const QList<HBTrackPoint *> points = segment->points();
            QCOMPARE(points.size(), 4);
            QCOMPARE(points[1]->geoidHeight()->toString(), QStringLiteral("47.25"));
            QCOMPARE(points[1]->link(), QStringLiteral("https://example.org/one"));
            QVERIFY(!points[1]->magneticVariation());
            QCOMPARE(points[3]->magneticVariation()->toString(), QStringLiteral("-2.50"));
            QVERIFY(!points[0]->geoidHeight());
            QVERIFY(points[2]->link().isNull());
            const QStringList keys{kHBGeoPointLinkProperty, kHBGeoPointMagneticVariationProperty, kHBGeoPointGeoidHeightProperty};
            const QVariantList extraOf1 = points[1]->fetchAdditionsTableValuesForKeys(keys);
            QCOMPARE(extraOf1.size(), 3);
            QCOMPARE(extraOf1[0].toString(), QStringLiteral("https://example.org/one"));
            QVERIFY(!extraOf1[1].isValid());
            QCOMPARE(HBGeoPoint::decimalFromAdditionsValue(extraOf1[2])->toString(), QStringLiteral("47.25"));
            points[0]->setGeoidHeight(HBDecimal::fromString(QStringLiteral("12.0")));
            points[1]->setGeoidHeight(HBDecimal::fromString(QStringLiteral("48")));
            QCOMPARE(points[0]->geoidHeight()->toString(), QStringLiteral("12.0"));
            QCOMPARE(points[1]->geoidHeight()->toString(), QStringLiteral("48"));
            // several keys at once see the values written since loading, too
            QCOMPARE(HBGeoPoint::decimalFromAdditionsValue(points[0]->fetchAdditionsTableValuesForKeys(keys)[2])->toString(),
                     QStringLiteral("12.0"));
            QCOMPARE(HBGeoPoint::decimalFromAdditionsValue(points[1]->fetchAdditionsTableValuesForKeys(keys)[2])->toString(),
                     QStringLiteral("48"));
        });
    }

    void pointListSurvivesAFreshContext()
    {
        HBManagedObjectID segmentID;
        QList<HBManagedObjectID> pointIDs;
        onContext([&] {
            const QList<HBTrackPoint *> points = makePoints(5, 200);
            segmentID = permanentSegmentOf(points);
            for (const HBTrackPoint *p : points)
                pointIDs.append(p->objectID());
        });
        afterSaving(segmentID, [&](HBTrackSegment *segment) {
            QCOMPARE(segment->countOfPoints(), 5);
            QVERIFY(!segment->pointsAreLoaded());
            QTest::ignoreMessage(QtWarningMsg, "Invalid index for fetchPointAtIndex. Requested index: 5 of total: 5");
            QVERIFY(!segment->fetchPointAtIndex(5));
            QCOMPARE(segment->fetchPointAtIndex(3)->objectID(), pointIDs[3]);
            QVERIFY(!segment->pointsAreLoaded());
            QList<HBManagedObjectID> loaded;
            for (const HBTrackPoint *p : segment->points())
                loaded.append(p->objectID());
            QCOMPARE(loaded, pointIDs);
            QCOMPARE(segment->points().at(4)->trackSegment(), segment);
        });
    }

    void geometryIsCachedPerSridOnlyForSavedTracks()
    {
        HBManagedObjectID trackID;
        onContext([&] {
            auto *track = m_context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
            track->setName(QStringLiteral("cached"));
            QList<HBTrackPoint *> points = makePoints(4, 300);
            points.insert(1, makePoints(1, 310, false).first());
            track->setSegments({segmentOf(points), segmentOf(makePoints(2, 320))});
            // temporary: nothing cached, nothing written
            QVERIFY(track->cachedWKBData().isEmpty());
            QCOMPARE(track->geometry()->count(), 6);
            QVERIFY(track->geometry()->hasUnsavedChanges());
            QVERIFY(track->existingGeometryCachePaths().isEmpty());
        });
        m_manager->save();
        QString cachePath;
        QByteArray wkb;
        onContext([&] {
            HBFetchRequest request(QStringLiteral("HBTrack"));
            request.setPredicate(HBPredicate::format(QStringLiteral("name == %@"), {QStringLiteral("cached")}));
            const QList<HBManagedObject *> found = m_context->executeFetchRequest(request);
            QCOMPARE(found.size(), 1);
            auto *track = static_cast<HBTrack *>(found.first());
            trackID = track->objectID();
            cachePath = track->unprojectedGeometryCachePath();
            QCOMPARE(cachePath, HBTrackManager::cacheFolder() + u'/' + trackID.storeIdentifier()
                                    + QStringLiteral("/GeometryProjections/4326/p") + QString::number(trackID.primaryKey()));
            QVERIFY(!track->geometry()->hasUnsavedChanges());
            wkb = track->geometry()->wkbData();
            track->geometry()->geometryWithProjection(HBProjection(HBProjection::WebMercatorSRID));
            QCOMPARE(track->existingProjectedGeometryCachePaths().size(), 1);
        });
        QFile file(cachePath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), wkb);
        QCOMPARE(wkb.size(), 9 + 6 * 21);

        // a fresh context reads the geometry from the file, loading no point
        std::unique_ptr<HBManagedObjectContext> fresh = m_manager->newManagedObjectContext();
        fresh->performBlockAndWait([&] {
            auto *track = static_cast<HBTrack *>(fresh->existingObjectWithID(trackID));
            QVERIFY(track);
            QCOMPARE(track->geometry()->wkbData(), wkb);
            QVERIFY(!track->geometry()->hasUnsavedChanges());
            for (const HBTrackSegment *s : track->segments())
                QVERIFY(!s->pointsAreLoaded());
            // an edit rebuilds it and drops every cache file
            track->removeObjectFromSegmentsAtIndex(1);
            QVERIFY(track->existingGeometryCachePaths().isEmpty());
            QCOMPARE(track->geometry()->count(), 4);
        });
    }

    void deletingASavedSegmentDeletesItsPoints()
    {
        const QDateTime day(QDate(2022, 11, 11), QTime(8, 0), Qt::UTC);
        HBManagedObjectID segmentID;
        onContext([&] {
            QList<HBTrackPoint *> points = makePoints(3);
            for (int i = 0; i < 3; ++i)
                points[i]->setDate(day.addSecs(i));
            HBTrackSegment *segment = segmentOf(points);
            QVERIFY(m_context->obtainPermanentIDsForObjects({segment}));
            segmentID = segment->objectID();
        });
        m_manager->save();
        const QString file = HBTrackManager::pointFolder() + QStringLiteral("/%1.sql").arg(HBTrackManager::periodNumberForDate(day));
        QCOMPARE(rowsIn(file, QStringLiteral("HBGeoPoint")), qint64(3));
        QSignalSpy deleted(m_manager, &HBTrackManager::didDeleteObjects);
        onContext([&] { m_context->deleteObject(m_context->objectWithID(segmentID)); });
        m_manager->save();
        // the points go in the background, then the deletion is announced
        QTRY_COMPARE_WITH_TIMEOUT(rowsIn(file, QStringLiteral("HBGeoPoint")), qint64(0), 60000);
        QTRY_VERIFY_WITH_TIMEOUT(deleted.count() >= 1, 60000);
        const QString central = HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql");
        QCOMPARE(rowsIn(central, QStringLiteral("HBTrackSegment"), QStringLiteral("Z_PK = %1").arg(segmentID.primaryKey())),
                 qint64(0));
    }

    void cleanupTestCase() { HBBackgroundWork::waitForDone(); }
};

QTEST_GUILESS_MAIN(tst_HBTrack)
#include "tst_HBTrack.moc"
