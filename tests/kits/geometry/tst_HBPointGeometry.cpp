#include "kits/geometry/HBPointGeometry.h"

#include <QTest>

class tst_HBPointGeometry : public QObject
{
    Q_OBJECT

private slots:
    void wkbData_data()
    {
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<QByteArray>("wkb");

        // byte order 1, type 1, x, y: little-endian doubles
        QTest::newRow("(1, 2)") << 1.0 << 2.0
                                << QByteArray::fromHex("01 01000000 000000000000f03f 0000000000000040");
        QTest::newRow("(-1.5, 10.5)") << -1.5 << 10.5
                                      << QByteArray::fromHex("01 01000000 000000000000f8bf 0000000000002540");
    }

    void wkbData()
    {
        QFETCH(double, x);
        QFETCH(double, y);
        QFETCH(QByteArray, wkb);

        const HBPointGeometry fromDoubles(x, y);
        const HBPointGeometry fromPoint(QPointF(x, y));
        QCOMPARE(fromDoubles.geometryType(), HBGeometryTypePoint);
        QCOMPARE(fromDoubles.wkbData().toHex(' '), wkb.toHex(' '));
        QCOMPARE(fromPoint.wkbData().toHex(' '), wkb.toHex(' '));
    }

    void keepsSrid()
    {
        QCOMPARE(HBPointGeometry(1.0, 2.0).srid(), 4326);
        QCOMPARE(HBPointGeometry(QPointF(1.0, 2.0), 3857).srid(), 3857);
    }
};

QTEST_GUILESS_MAIN(tst_HBPointGeometry)
#include "tst_HBPointGeometry.moc"
