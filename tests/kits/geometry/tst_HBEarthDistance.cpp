#include "kits/geometry/HBEarthDistance.h"

#include <QTest>

class tst_HBEarthDistance : public QObject
{
    Q_OBJECT

private slots:
    void distance_data()
    {
        // Positions as x = longitude, y = latitude (degrees); the published
        // examples list latitude first. Every expected distance is in metres.
        QTest::addColumn<double>("x1");
        QTest::addColumn<double>("y1");
        QTest::addColumn<double>("x2");
        QTest::addColumn<double>("y2");
        QTest::addColumn<double>("metres");

        // GeographicLib's documented inverse example, JFK to LHR
        // (examples/example-Geodesic.cpp, printed there as 5551.76 km); the
        // millimetres are GeodSolve's for the same points.
        QTest::newRow("JFK to LHR") << -73.8 << 40.6 << -0.5 << 51.6 << 5551759.400319;
        // GeographicLib's documented example of a nearly antipodal pair,
        // Wellington to Salamanca ("The distance is 19959679.267 m.").
        QTest::newRow("Wellington to Salamanca") << 174.81 << -41.32 << -5.50 << 40.96 << 19959679.267;

        // Rows of GeographicLib's geodesic test set (tests/geodtest.cpp, drawn
        // from GeodTest.dat); the second longitude of the rows across the
        // antimeridian is given in [-180, 180], as receivers report it.
        QTest::newRow("GeodTest row 1") << -139.44815 << 35.60777 << -69.95921 << -11.17491 << 8935244.5604818305;
        QTest::newRow("GeodTest row 2, across the antimeridian")
            << 106.05087 << 55.52454 << 197.18234 - 360.0 << 77.03196 << 4105086.1713924406;
        QTest::newRow("GeodTest row 2, longitude beyond 180")
            << 106.05087 << 55.52454 << 197.18234 << 77.03196 << 4105086.1713924406;
        QTest::newRow("GeodTest row 7, across the antimeridian, nearly half the globe")
            << 52.74123 << 6.96833 << 206.17291 - 360.0 << -7.39675 << 17102477.2496958388;
        QTest::newRow("GeodTest row 12, across the antimeridian")
            << 166.90563 << -21.76221 << 213.97627 - 360.0 << 48.72884 << 9098627.3986554915;
        QTest::newRow("GeodTest row 15, from near the south pole")
            << 85.66836 << -87.85331 << 16.09921 << 66.48646 << 17286615.3147144645;

        // Along the equator the geodesic is the equator itself: a * dλ with
        // a = 6378137 m. With x and y taken the wrong way round the first row
        // would measure a degree of meridian (110574 m).
        QTest::newRow("one degree of equator, x is longitude") << 0.0 << 0.0 << 1.0 << 0.0 << 111319.49079327357;
        QTest::newRow("0.001 degree of equator across the antimeridian")
            << 179.9995 << 0.0 << -179.9995 << 0.0 << 111.31949079327357;

        // The WGS84 quarter meridian, as GeographicLib's
        // Ellipsoid::QuarterMeridian() documents it: 10 001 965.7293 m.
        QTest::newRow("equator to the north pole, one longitude") << 0.0 << 0.0 << 0.0 << 90.0 << 10001965.7293;

        QTest::newRow("identical points") << 13.4 << 52.5 << 13.4 << 52.5 << 0.0;
    }

    void distance()
    {
        QFETCH(double, x1);
        QFETCH(double, y1);
        QFETCH(double, x2);
        QFETCH(double, y2);
        QFETCH(double, metres);

        const double forth = HBEarthDistance(x1, y1, x2, y2);
        const double back = HBEarthDistance(x2, y2, x1, y1);
        QVERIFY2(qAbs(forth - metres) <= 0.001, qPrintable(QString::number(forth, 'f', 6)));
        QVERIFY2(qAbs(back - metres) <= 0.001, qPrintable(QString::number(back, 'f', 6)));
    }
};

QTEST_GUILESS_MAIN(tst_HBEarthDistance)
#include "tst_HBEarthDistance.moc"
