#include "kits/geometry/HBProjection.h"
#include "ui/HBMapGraticule.h"

#include <QTest>

// The graticule's own Mercator against PROJ's EPSG:3857, its round steps
// and its labels.
class tst_HBMapGraticule : public QObject
{
    Q_OBJECT

private slots:
    void mercatorAgreesWithProj_data()
    {
        QTest::addColumn<QPointF>("lonLat");
        QTest::newRow("origin") << QPointF(0, 0);
        QTest::newRow("Munich") << QPointF(11.575, 48.137);
        QTest::newRow("south-west") << QPointF(-70.65, -33.45);
        QTest::newRow("edge of the square world") << QPointF(180, 85.0511287798);
    }

    void mercatorAgreesWithProj()
    {
        QFETCH(QPointF, lonLat);
        const QPointF proj = HBProjection(HBProjection::WebMercatorSRID).project({&lonLat, 1})->front();
        const QPointF ours = HBMapGraticule::mercatorFromLonLat(lonLat);
        QVERIFY2(qAbs(ours.x() - proj.x()) < 1e-6 && qAbs(ours.y() - proj.y()) < 1e-6,
                 qPrintable(QStringLiteral("%1 %2").arg(ours.y(), 0, 'f', 9).arg(proj.y(), 0, 'f', 9)));
        const QPointF back = HBMapGraticule::lonLatFromMercator(ours);
        QVERIFY(qAbs(back.x() - lonLat.x()) < 1e-9 && qAbs(back.y() - lonLat.y()) < 1e-9);
    }

    void stepsAndLabels_data()
    {
        QTest::addColumn<double>("metresPerPixel");
        QTest::addColumn<double>("step");
        QTest::addColumn<double>("degrees");
        QTest::addColumn<bool>("isLatitude");
        QTest::addColumn<QString>("label");
        // 100 pixels at 10 m per pixel are 0.009 degrees of longitude
        QTest::newRow("city") << 10.0 << 0.01 << 11.57 << false << QStringLiteral("11.57°E");
        QTest::newRow("street") << 1.0 << 0.001 << -33.451 << true << QStringLiteral("33.451°S");
        QTest::newRow("country") << 1000.0 << 1.0 << 48.0 << true << QStringLiteral("48°N");
        QTest::newRow("world") << 100000.0 << 90.0 << -90.0 << false << QStringLiteral("90°W");
        QTest::newRow("half the world") << 40000.0 << 45.0 << 135.0 << false << QStringLiteral("135°E");
        QTest::newRow("zero has no side") << 5000.0 << 5.0 << 0.0 << true << QStringLiteral("0°");
        QTest::newRow("rounding noise") << 3000.0 << 5.0 << 44.99999999 << false << QStringLiteral("45°E");
    }

    void stepsAndLabels()
    {
        QFETCH(double, metresPerPixel);
        QFETCH(double, step);
        QFETCH(double, degrees);
        QFETCH(bool, isLatitude);
        QCOMPARE(HBMapGraticule::stepForScale(metresPerPixel, 100), step);
        QTEST(HBMapGraticule::label(degrees, isLatitude, step), "label");
    }
};

QTEST_APPLESS_MAIN(tst_HBMapGraticule)
#include "tst_HBMapGraticule.moc"
