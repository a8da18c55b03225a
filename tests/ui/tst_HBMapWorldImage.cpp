#include "ui/HBMapGraticule.h"
#include "ui/HBMapView.h"
#include "ui/HBMapWorldImage.h"

#include <QTest>

// The world picture moved from latitude rows into Mercator rows: each place
// of the square world shows the source pixel of its latitude and longitude.
class tst_HBMapWorldImage : public QObject
{
    Q_OBJECT

private slots:
    void placesShowTheirSourcePixels_data()
    {
        QTest::addColumn<QPointF>("lonLat");
        QTest::addColumn<int>("sourceRow"); // row r holds latitudes 90 - r down to 89 - r
        QTest::addColumn<int>("sourceColumn");
        QTest::newRow("near the equator") << QPointF(10.5, 0.5) << 89 << 190;
        QTest::newRow("north, stretched") << QPointF(-179.5, 60.5) << 29 << 0;
        QTest::newRow("south") << QPointF(179.5, -45.5) << 135 << 359;
        QTest::newRow("far north") << QPointF(0.5, 80.5) << 9 << 180;
    }

    void placesShowTheirSourcePixels()
    {
        QFETCH(QPointF, lonLat);
        // one pixel a degree, its row and column in red and green (column mod 256)
        QImage source(360, 180, QImage::Format_RGB32);
        for (int r = 0; r < 180; ++r) {
            for (int c = 0; c < 360; ++c)
                source.setPixel(c, r, qRgb(r, c % 256, c / 256));
        }
        const int side = 512;
        const QImage mercator = HBMapWorldImage::mercatorFromEquirectangular(source, side);
        const QPointF m = HBMapGraticule::mercatorFromLonLat(lonLat);
        const double half = HBMapView::kWorldHalf;
        const QRgb pixel = mercator.pixel(int((m.x() + half) / (2 * half) * side), int((half - m.y()) / (2 * half) * side));
        QTEST(qRed(pixel), "sourceRow");
        QTEST(qGreen(pixel) + 256 * qBlue(pixel), "sourceColumn");
    }
};

QTEST_APPLESS_MAIN(tst_HBMapWorldImage)
#include "tst_HBMapWorldImage.moc"
