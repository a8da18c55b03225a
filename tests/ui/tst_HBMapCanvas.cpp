#include "ImportedLibrary.h"

#include "kits/atlas/HBDrawingContext.h"
#include "kits/geometry/HBPointGeometry.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBWaypoint.h"
#include "ui/HBMapCanvas.h"
#include "ui/HBSimplePointStyle.h"
#include "ui/HBTrackBubbleSymbolizer.h"

#include <QSignalSpy>
#include <QTemporaryDir>

using Objects = QList<HBSpatialObject *>;

// The map as a person uses it, offscreen, over imported corpus files:
// fitting, panning and zooming, selecting by click, the highlight of the
// selection and the hover bubble.
class tst_HBMapCanvas : public QObject
{
    Q_OBJECT

    ImportedLibrary m_library;
    std::unique_ptr<HBMapCanvas> m_canvas;
    Objects m_objects;

    static std::vector<QPointF> mercatorPointsOf(HBSpatialObject *object)
    {
        const HBProjection mercator(HBProjection::WebMercatorSRID);
        if (auto *t = dynamic_cast<HBTrack *>(object)) {
            const auto projected = t->geometry() ? t->geometry()->geometryWithProjection(mercator) : nullptr;
            return projected ? projected->points() : std::vector<QPointF>();
        }
        // the file's waypoints at the poles stand on the edge of the square world
        const QPointF lonLat = dynamic_cast<HBWaypoint *>(object)->geometry()->point();
        const QPointF p = mercator.project({&lonLat, 1})->front();
        return {QPointF(p.x(), std::clamp(p.y(), -HBMapView::kWorldHalf, HBMapView::kWorldHalf))};
    }
    QPointF viewPointOf(HBTrack *t, int index) const
    {
        return m_canvas->view().toView(mercatorPointsOf(t)[index], m_canvas->size());
    }

private slots:
    void initTestCase()
    {
        // the last file has waypoints at the poles, and a track without
        // points, which once pulled a fitted view to (0, 0)
        m_library.import({QStringLiteral("gpsbabel-segmented_tracks.gpx"), QStringLiteral("gpsbabel-fitwrite-mavi.gpx"),
                          QStringLiteral("gpsbabel-Lctns_Instinct.gpx")});
        for (HBTrack *t : m_library.tracks.records)
            m_objects.append(t);
        for (HBWaypoint *w : m_library.waypoints.records)
            m_objects.append(w);
        m_canvas = std::make_unique<HBMapCanvas>();
        m_canvas->resize(800, 600);
        m_canvas->setSpatialObjects(m_objects);
        m_canvas->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_canvas.get()));
    }

    void fitShowsTheObjectsWholeWithAMargin_data()
    {
        QTest::addColumn<QString>("which");
        QTest::newRow("one track") << QStringLiteral("With Times");
        QTest::newRow("everything") << QString();
    }

    void fitShowsTheObjectsWholeWithAMargin()
    {
        QFETCH(QString, which);
        const Objects objects = which.isEmpty() ? m_objects : Objects{m_library.track(which)};
        m_canvas->fitSpatialObjects(objects);
        double left = 1e9, right = -1e9, top = 1e9, bottom = -1e9;
        for (HBSpatialObject *object : objects) {
            for (QPointF p : mercatorPointsOf(object)) {
                const QPointF v = m_canvas->view().toView(p, m_canvas->size());
                left = std::min(left, v.x()), right = std::max(right, v.x());
                top = std::min(top, v.y()), bottom = std::max(bottom, v.y());
            }
        }
        const QRectF shown(QPointF(left, top), QPointF(right, bottom));
        const double m = HBMapCanvas::kFitMargin;
        QVERIFY(shown.left() >= m - 0.01 && shown.right() <= 800 - m + 0.01);
        QVERIFY(shown.top() >= m - 0.01 && shown.bottom() <= 600 - m + 0.01);
        // touching the margin on the tighter axis, centred on both
        QVERIFY(qAbs(shown.width() - (800 - 2 * m)) < 0.01 || qAbs(shown.height() - (600 - 2 * m)) < 0.01);
        QVERIFY(qAbs(shown.center().x() - 400) < 0.01 && qAbs(shown.center().y() - 300) < 0.01);
    }

    void fitOfALoneWaypointOrNothing()
    {
        HBWaypoint *waypoint = m_library.waypoints.records.first();
        m_canvas->fitSpatialObjects({waypoint});
        QCOMPARE(m_canvas->view(), HBMapView(mercatorPointsOf(waypoint).front(), 2));
        QSignalSpy changed(m_canvas.get(), &HBMapCanvas::viewChanged);
        m_canvas->fitSpatialObjects({});
        QCOMPARE(changed.count(), 0);
    }

    void keysAndWheelMoveTheView_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QPointF>("centreShiftPixels"); // map east and north, in pixels of the old view
        QTest::addColumn<double>("zoom");
        QTest::newRow("left") << int(Qt::Key_Left) << QPointF(-200, 0) << 1.0;
        QTest::newRow("right") << int(Qt::Key_Right) << QPointF(200, 0) << 1.0;
        QTest::newRow("up") << int(Qt::Key_Up) << QPointF(0, 150) << 1.0;
        QTest::newRow("down") << int(Qt::Key_Down) << QPointF(0, -150) << 1.0;
        QTest::newRow("plus") << int(Qt::Key_Plus) << QPointF() << 2.0;
        QTest::newRow("minus") << int(Qt::Key_Minus) << QPointF() << 0.5;
    }

    void keysAndWheelMoveTheView()
    {
        QFETCH(int, key);
        QFETCH(QPointF, centreShiftPixels);
        QFETCH(double, zoom);
        const HBMapView start(QPointF(1000000, 5000000), 10);
        m_canvas->setView(start);
        QTest::keyClick(m_canvas.get(), Qt::Key(key));
        QCOMPARE(m_canvas->view(), HBMapView(QPointF(1000000, 5000000) + centreShiftPixels * 10, 10 / zoom));
    }

    void wheelZoomKeepsThePointUnderTheMouse()
    {
        m_canvas->setView(HBMapView(QPointF(1000000, 5000000), 10));
        const QPointF mouse(600, 100);
        const QPointF before = m_canvas->view().toMap(mouse, m_canvas->size());
        QWheelEvent wheel(mouse, m_canvas->mapToGlobal(mouse), QPoint(), QPoint(0, 240), Qt::NoButton, Qt::NoModifier,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(m_canvas.get(), &wheel);
        QCOMPARE(m_canvas->view().metresPerPixel(), 5.0);
        const QPointF after = m_canvas->view().toMap(mouse, m_canvas->size());
        QVERIFY(qAbs(after.x() - before.x()) < 1e-6 && qAbs(after.y() - before.y()) < 1e-6);
    }

    void dragPansWithoutSelecting()
    {
        m_canvas->setView(HBMapView(QPointF(1000000, 5000000), 10));
        QSignalSpy clicked(m_canvas.get(), &HBMapCanvas::spatialObjectsClicked);
        QTest::mousePress(m_canvas.get(), Qt::LeftButton, {}, QPoint(300, 300));
        QTest::mouseMove(m_canvas.get(), QPoint(340, 270));
        QTest::mouseRelease(m_canvas.get(), Qt::LeftButton, {}, QPoint(340, 270));
        QCOMPARE(m_canvas->view(), HBMapView(QPointF(1000000 - 400, 5000000 - 300), 10));
        QCOMPARE(clicked.count(), 0);
    }

    void clickSelectsTheObjectUnderTheMouse()
    {
        HBTrack *noTimes = m_library.track(QStringLiteral("No Times"));
        m_canvas->fitSpatialObjects({noTimes});
        QSignalSpy clicked(m_canvas.get(), &HBMapCanvas::spatialObjectsClicked);
        QTest::mouseClick(m_canvas.get(), Qt::LeftButton, {}, viewPointOf(noTimes, 3).toPoint());
        QCOMPARE(clicked.count(), 1);
        QCOMPARE(clicked[0][0].value<Objects>(), Objects{noTimes});
        QTest::mouseClick(m_canvas.get(), Qt::LeftButton, {}, QPoint(2, 2));
        QCOMPARE(clicked.count(), 1);
    }

    void selectedObjectsAreHighlighted()
    {
        HBWaypoint *waypoint = m_library.waypoints.records.first();
        m_canvas->setSpatialObjectSelectionIndexes({});
        m_canvas->fitSpatialObjects({waypoint});
        // the waypoint symbol reaches 15.5 pixels, the halo 3 more
        const QPoint ring = QPoint(400 + 17, 300);
        const QColor plain = m_canvas->grab().toImage().pixelColor(ring);
        m_canvas->setSpatialObjectSelectionIndexes({m_objects.indexOf(waypoint)});
        const QColor highlighted = m_canvas->grab().toImage().pixelColor(ring);
        QCOMPARE(highlighted, QColor(255, 200, 0));
        QVERIFY(plain != highlighted);
        m_canvas->setSpatialObjectSelectionIndexes({});
    }

    void hoverShowsTheBubbleOfThePointUnderTheMouse()
    {
        HBTrack *withTimes = m_library.track(QStringLiteral("With Times"));
        m_canvas->setSpatialObjects({withTimes});
        m_canvas->fitSpatialObjects({withTimes});
        const QPointF at = viewPointOf(withTimes, 8);
        QTest::mouseMove(m_canvas.get(), at.toPoint());
        QVERIFY(m_canvas->hoveredStyle());
        const auto bubble = m_canvas->hoveredStyle()->trackBubbleSymbolizer();
        QVERIFY(bubble);
        QCOMPARE(bubble->pointDescription(), QStringLiteral("Point 9 of 23 in track With Times"));
        // the bubble's dark body is drawn above the point
        const QColor body = m_canvas->grab().toImage().pixelColor(at.toPoint() - QPoint(0, 14));
        QVERIFY2(body.lightness() < 80, qPrintable(body.name()));
        QTest::mouseMove(m_canvas.get(), QPoint(2, 2));
        QVERIFY(!m_canvas->hoveredStyle());
        m_canvas->setSpatialObjects(m_objects);
    }
};

QTEST_MAIN(tst_HBMapCanvas)
#include "tst_HBMapCanvas.moc"
