#include "ImportedLibrary.h"
#include "ProbeProcess.h"

#include "kits/atlas/HBClippingRegion.h"
#include "kits/atlas/HBDrawingContext.h"
#include "kits/atlas/HBPointSymbolizer.h"
#include "kits/atlas/HBRule.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBTrackPoint.h"
#include "model/HBWaypoint.h"
#include "ui/HBSimplePointStyle.h"
#include "ui/HBTrackBubbleSymbolizer.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>

using Points = QList<QPointF>;

// The style of real imported tracks and waypoints: its hit test, its file
// in the cache folder across processes and deletions, the deferred save,
// and the bubble over a hovered point.
class tst_HBSimplePointStyle : public QObject
{
    Q_OBJECT

    ImportedLibrary m_library;

private slots:
    void initTestCase()
    {
        m_library.import({QStringLiteral("gpsbabel-segmented_tracks.gpx"), QStringLiteral("gpsbabel-fitwrite-mavi.gpx")});
        QCOMPARE(m_library.tracks.records.size(), 3);
        QCOMPARE(m_library.waypoints.records.size(), 12);
    }

    void hitTest_data()
    {
        // the region shows map (0, 0)-(100, 100) one to one; minSpacing 5
        QTest::addColumn<Points>("points");
        QTest::addColumn<QPointF>("mouse");
        QTest::addColumn<double>("radius");
        QTest::addColumn<quint32>("index");
        const quint32 none = HBSimplePointStyle::NoPoint;
        QTest::newRow("first point") << Points{{10, 10}, {50, 50}} << QPointF(11, 10) << 3.0 << 0u;
        QTest::newRow("thinned point never hit") << Points{{10, 10}, {12, 11}, {40, 40}} << QPointF(12, 11) << 1.5 << none;
        QTest::newRow("last hit wins") << Points{{10, 10}, {16, 10}, {22, 10}} << QPointF(16, 10) << 7.0 << 2u;
        QTest::newRow("outside the region") << Points{{10, 10}, {150, 50}} << QPointF(150, 50) << 3.0 << none;
        QTest::newRow("Manhattan, not Euclidean") << Points{{10, 10}} << QPointF(12, 12) << 3.5 << none;
        QTest::newRow("spacing from the last drawn point") << Points{{0, 0}, {3, 0}, {6, 0}} << QPointF(6, 0) << 1.0
                                                           << 2u;
        QTest::newRow("a point drawn outside is the last drawn")
            << Points{{95, 50}, {101, 56}, {96, 51}} << QPointF(96, 51) << 1.0 << 2u;
    }

    void hitTest()
    {
        QFETCH(Points, points);
        QFETCH(QPointF, mouse);
        QFETCH(double, radius);
        const HBClippingRegion region(QRectF(0, 0, 100, 100), QTransform(), 5);
        QTEST(HBSimplePointStyle::indexOfVisibleMultiPoint(points, mouse, radius, region), "index");
    }

    void freshStyles_data()
    {
        QTest::addColumn<bool>("waypoint");
        QTest::addColumn<int>("type");
        QTest::addColumn<float>("size");
        QTest::addColumn<QColor>("fill");
        QTest::newRow("waypoint") << true << 4 << 15.0f << QColor(255, 0, 255);
        QTest::newRow("track keeps the defaults") << false << 0 << 3.0f << QColor(0x1a, 0x66, 0xff);
    }

    void freshStyles()
    {
        QFETCH(bool, waypoint);
        HBManagedObject *object = waypoint ? static_cast<HBManagedObject *>(m_library.waypoints.records.first())
                                           : static_cast<HBManagedObject *>(m_library.tracks.records.first());
        const HBSimplePointStyle style(object);
        QCOMPARE(style.rules().size(), 1);
        QCOMPARE(style.rules().first()->symbolizers().size(), 1);
        QTEST(style.primaryPointSymbolizer()->symbolType(), "type");
        QTEST(style.primaryPointSymbolizer()->symbolSize(), "size");
        QTEST(style.primaryPointSymbolizer()->fillColor(), "fill");
    }

    void styleSurvivesARestartInItsCacheFile()
    {
        QTemporaryDir home;
        const QProcessEnvironment env = temporaryHomeEnvironment(home.path());
        const ProbeRun written = runProbe(QStringLiteral(HB_STYLE_PROBE_PATH), {QStringLiteral("write")}, env);
        QCOMPARE(written.exitCode, 0);
        QCOMPARE(written.out.size(), 2);
        // x-hbgps://<store identifier>/HBWaypoint/p<n>
        const QString uri = written.out[0];
        const QString expected = home.path() + QStringLiteral("/cache/Fernwick/TrackManagerDatabase/")
                                 + uri.section(u'/', 2, 2) + QStringLiteral("/Styles/Waypoint_") + uri.section(u'/', -1);
        QCOMPARE(written.out[1], expected);
        QVERIFY(QFile::exists(expected));
        const ProbeRun read = runProbe(QStringLiteral(HB_STYLE_PROBE_PATH), {QStringLiteral("read"), written.out[0]}, env);
        QCOMPARE(read.exitCode, 0);
        QCOMPARE(read.out, QStringList{QStringLiteral("4 9.5 #336699")});
    }

    void aBurstOfChangesIsWrittenOnceASecondAfterTheLast()
    {
        HBSimplePointStyle style(m_library.waypoints.records.at(1));
        const QString path = HBSimplePointStyle::styleCachePathForObject(m_library.waypoints.records.at(1));
        QSignalSpy saved(&style, &HBSimplePointStyle::saved);
        for (float size : {4.0f, 5.0f, 6.0f}) {
            style.primaryPointSymbolizer()->setSymbolSize(size);
            QTest::qWait(300);
        }
        QVERIFY(!QFile::exists(path));
        QTRY_COMPARE_WITH_TIMEOUT(saved.count(), 1, 3000);
        QTest::qWait(1200);
        QCOMPARE(saved.count(), 1);
        QCOMPARE(HBSimplePointStyle(m_library.waypoints.records.at(1)).primaryPointSymbolizer()->symbolSize(), 6.0f);
    }

    void deletingAnObjectRemovesItsStyleFile_data()
    {
        QTest::addColumn<bool>("waypoint");
        QTest::newRow("track") << false;
        QTest::newRow("waypoint") << true;
    }

    void deletingAnObjectRemovesItsStyleFile()
    {
        QFETCH(bool, waypoint);
        HBManagedObject *object = waypoint ? static_cast<HBManagedObject *>(m_library.waypoints.records.takeLast())
                                           : static_cast<HBManagedObject *>(m_library.track(QStringLiteral("No Times")));
        QVERIFY(object);
        const QString path = HBSimplePointStyle::styleCachePathForObject(object);
        HBSimplePointStyle(object).save();
        QVERIFY(QFile::exists(path));
        HBTrackManager::sharedTrackManager()->deleteObjects({object});
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(path), 10000);
    }

    void hoverShowsTheBubbleOfAPointInTheThirdSegment()
    {
        // segments of 6, 2, 5, 5 and 5 points: index 8 opens the third
        HBTrack *withTimes = m_library.track(QStringLiteral("With Times"));
        QVERIFY(withTimes);
        HBSimplePointStyle style(withTimes);
        const HBProjection mercator(HBProjection::WebMercatorSRID);
        const std::shared_ptr<HBMultiPointGeometry> projected = withTimes->geometry()->geometryWithProjection(mercator);
        const HBDrawingContext context(mercator,
                                       HBClippingRegion::fitting(projected->boundingRect(), QSizeF(800, 600), 0));
        const QPointF at = context.clippingRegion().transformPoint(projected->points()[8]);

        style.mouseEntered(at + QPointF(1, 1), withTimes, context);
        QCOMPARE(style.mouseOverTrackPointIndex(), 8u);
        const std::shared_ptr<HBTrackBubbleSymbolizer> bubble = style.trackBubbleSymbolizer();
        QVERIFY(bubble);
        QCOMPARE(bubble->pointDescription(), QStringLiteral("Point 9 of 23 in track With Times"));
        QCOMPARE(bubble->dateField()->text(), QStringLiteral("27 Jul 2007"));
        QCOMPARE(bubble->timeField()->text(), QStringLiteral("05:31:00"));
        QCOMPARE(bubble->offset(), at);
        QCOMPARE(style.rules().last()->symbolizers().first(), bubble);
        QCOMPARE(style.mouseOverTrackPoint()->date(), QDateTime(QDate(2007, 7, 27), QTime(5, 31), Qt::UTC));

        // moving within the same point leaves the bubble as it is
        bubble->setPointDescription(QStringLiteral("unchanged"));
        style.mouseMoved(at - QPointF(1, 0), withTimes, context);
        QCOMPARE(bubble->pointDescription(), QStringLiteral("unchanged"));
        style.mouseMoved(context.clippingRegion().transformPoint(projected->points()[10]), withTimes, context);
        QCOMPARE(style.trackBubbleSymbolizer(), bubble);
        QCOMPARE(bubble->pointDescription(), QStringLiteral("Point 11 of 23 in track With Times"));

        // the bubble is no part of what is saved
        style.save();
        QCOMPARE(HBSimplePointStyle(withTimes).rules().last()->symbolizers().size(), 1);
        QCOMPARE(style.rules().last()->symbolizers().first(), bubble);

        style.mouseExited();
        QCOMPARE(style.mouseOverTrackPointIndex(), HBSimplePointStyle::NoPoint);
        QVERIFY(!style.trackBubbleSymbolizer());
        QCOMPARE(style.rules().last()->symbolizers().size(), 1);
    }
};

QTEST_MAIN(tst_HBSimplePointStyle)
#include "tst_HBSimplePointStyle.moc"
