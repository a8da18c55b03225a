#include "kits/geometry/HBMultiPointGeometry.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

using Points = std::vector<QPointF>;
Q_DECLARE_METATYPE(Points)

namespace {

// Two points, (1, 2) and (-1.5, 10.5), little-endian throughout.
const QByteArray twoPointsLittleEndian = QByteArray::fromHex(
    "01 04000000 02000000"
    " 01 01000000 000000000000f03f 0000000000000040"
    " 01 01000000 000000000000f8bf 0000000000002540");
const QByteArray emptyLittleEndian = QByteArray::fromHex("01 04000000 00000000");
const Points twoPoints{{1.0, 2.0}, {-1.5, 10.5}};

// Exact, where QCOMPARE on QPointF would forgive small differences.
bool samePoints(const Points &actual, const Points &expected)
{
    return std::ranges::equal(actual, expected, [](QPointF a, QPointF b) {
        return a.x() == b.x() && a.y() == b.y();
    });
}

std::shared_ptr<HBMultiPointGeometry> geographic(Points points)
{
    return std::make_shared<HBMultiPointGeometry>(std::move(points));
}

} // namespace

class tst_HBMultiPointGeometry : public QObject
{
    Q_OBJECT

private slots:
    void writesWellKnownBinary()
    {
        const HBMultiPointGeometry fromArray(twoPoints.data(), 2);
        const HBMultiPointGeometry fromVector(twoPoints, 3857);
        QCOMPARE(fromArray.wkbData().toHex(' '), twoPointsLittleEndian.toHex(' '));
        QCOMPARE(fromVector.wkbData().toHex(' '), twoPointsLittleEndian.toHex(' '));
        QCOMPARE(fromArray.srid(), 4326);
        QCOMPARE(fromVector.srid(), 3857);
        QCOMPARE(fromArray.geometryType(), HBGeometryTypeMultiPoint);
        QCOMPARE(HBMultiPointGeometry(Points{}).wkbData().toHex(' '), emptyLittleEndian.toHex(' '));
    }

    void readsWellKnownBinary_data()
    {
        QTest::addColumn<QByteArray>("wkb");
        QTest::addColumn<Points>("points");

        QTest::newRow("little-endian") << twoPointsLittleEndian << twoPoints;
        QTest::newRow("big-endian") << QByteArray::fromHex(
            "00 00000004 00000002"
            " 00 00000001 3ff0000000000000 4000000000000000"
            " 00 00000001 bff8000000000000 4025000000000000") << twoPoints;
        QTest::newRow("big-endian multipoint of little-endian points") << QByteArray::fromHex(
            "00 00000004 00000002"
            " 01 01000000 000000000000f03f 0000000000000040"
            " 01 01000000 000000000000f8bf 0000000000002540") << twoPoints;
        QTest::newRow("points of both byte orders") << QByteArray::fromHex(
            "01 04000000 02000000"
            " 00 00000001 3ff0000000000000 4000000000000000"
            " 01 01000000 000000000000f8bf 0000000000002540") << twoPoints;
        QTest::newRow("empty") << emptyLittleEndian << Points{};
    }

    void readsWellKnownBinary()
    {
        QFETCH(QByteArray, wkb);
        QFETCH(Points, points);

        const auto geometry = HBMultiPointGeometry::fromWKBData(wkb, 3857);
        QVERIFY(geometry);
        QCOMPARE(geometry->count(), qsizetype(points.size()));
        QVERIFY(samePoints(geometry->points(), points));
        QCOMPARE(geometry->srid(), 3857);
        // Written back in the one byte order the kit writes.
        QCOMPARE(geometry->wkbData().toHex(' '), HBMultiPointGeometry(points).wkbData().toHex(' '));
    }

    void roundTripsManyPoints()
    {
        QRandomGenerator random(20240229);
        Points points(5000);
        for (QPointF &p : points)
            p = QPointF(random.bounded(360.0) - 180.0, random.bounded(180.0) - 90.0);
        const QByteArray wkb = HBMultiPointGeometry(points).wkbData();
        QCOMPARE(wkb.size(), 9 + 21 * 5000);

        const auto read = HBMultiPointGeometry::fromWKBData(wkb);
        QVERIFY(read);
        QVERIFY(samePoints(read->points(), points));
        QCOMPARE(read->wkbData(), wkb);
    }

    void rejectsMalformedWellKnownBinary_data()
    {
        QTest::addColumn<QByteArray>("wkb");
        QTest::addColumn<QString>("reason");

        const QByteArray header = QByteArray::fromHex("01 04000000");
        const QByteArray onePoint = QByteArray::fromHex("01 04000000 01000000");
        const QByteArray coordinates = QByteArray::fromHex("000000000000f03f 0000000000000040");

        QTest::newRow("nothing") << QByteArray() << "data truncated at offset 0 (5 bytes wanted, 0 left)";
        QTest::newRow("byte order only") << QByteArray::fromHex("01") << "data truncated at offset 0 (5 bytes wanted, 1 left)";
        QTest::newRow("unknown byte order") << QByteArray::fromHex("02 04000000 00000000")
                                            << "unknown byte order 2 at offset 0";
        QTest::newRow("count cut short") << QByteArray(header + QByteArray::fromHex("0200"))
                                         << "data truncated at offset 5 (4 bytes wanted, 2 left)";
        QTest::newRow("a point, not a multipoint")
            << QByteArray(QByteArray::fromHex("01 01000000") + coordinates)
            << "geometry type 1 at offset 1 where 4 was expected";
        QTest::newRow("multipoint with z") << QByteArray::fromHex("01 ec030000 00000000")
                                           << "geometry type 1004 at offset 1 where 4 was expected";
        QTest::newRow("extended with an srid") << QByteArray::fromHex("01 04000020 e6100000 00000000")
                                               << "geometry type 536870916 at offset 1 where 4 was expected";
        QTest::newRow("huge count") << QByteArray(header + QByteArray::fromHex("ffffffff"))
                                    << "4294967295 points announced, room for 0";
        QTest::newRow("second point missing")
            << QByteArray(header + QByteArray::fromHex("02000000 01 01000000") + coordinates)
            << "2 points announced, room for 1";
        QTest::newRow("point cut short")
            << QByteArray(onePoint + QByteArray::fromHex("01 01000000") + coordinates.left(15))
            << "1 points announced, room for 0";
        QTest::newRow("point of unknown byte order")
            << QByteArray(onePoint + QByteArray::fromHex("07 01000000") + coordinates)
            << "unknown byte order 7 at offset 9";
        QTest::newRow("multipoint inside a multipoint")
            << QByteArray(onePoint + QByteArray::fromHex("01 04000000") + coordinates)
            << "geometry type 4 at offset 10 where 1 was expected";
        QTest::newRow("empty point (NaN)")
            << QByteArray(onePoint + QByteArray::fromHex("01 01000000 000000000000f87f 000000000000f87f"))
            << "coordinate that is not a finite number at offset 14";
        QTest::newRow("infinite latitude")
            << QByteArray(onePoint + QByteArray::fromHex("01 01000000 0000000000000000 000000000000f07f"))
            << "coordinate that is not a finite number at offset 14";
        QTest::newRow("trailing byte") << QByteArray(twoPointsLittleEndian + '\0') << "1 bytes after the last point";
    }

    void rejectsMalformedWellKnownBinary()
    {
        QFETCH(QByteArray, wkb);
        QFETCH(QString, reason);

        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("^ignoring malformed multipoint well-known binary of %1 bytes: %2")
                                                    .arg(wkb.size())
                                                    .arg(QRegularExpression::escape(reason))));
        QVERIFY(!HBMultiPointGeometry::fromWKBData(wkb));
    }

    void boundingRect_data()
    {
        QTest::addColumn<Points>("points");
        QTest::addColumn<QRectF>("rect");

        QTest::newRow("none") << Points{} << QRectF();
        QTest::newRow("one") << Points{{13.5, 52.25}} << QRectF(13.5, 52.25, 0.0, 0.0);
        QTest::newRow("extremes in the middle")
            << Points{{1.0, 1.0}, {-3.5, 7.0}, {4.0, -2.0}, {0.5, 0.5}} << QRectF(-3.5, -2.0, 7.5, 9.0);
    }

    void boundingRect()
    {
        QFETCH(Points, points);
        QFETCH(QRectF, rect);

        const QRectF actual = HBMultiPointGeometry(points).boundingRect();
        QVERIFY(actual.x() == rect.x() && actual.y() == rect.y());
        QVERIFY(actual.width() == rect.width() && actual.height() == rect.height());
    }

    void keepsProjectedGeometry()
    {
        const auto geometry = geographic({{0.0, 0.0}, {180.0, 0.0}});
        const HBProjection webMercator(3857);

        const auto projected = geometry->geometryWithProjection(webMercator);
        QVERIFY(projected);
        QCOMPARE(projected->srid(), 3857);
        QCOMPARE(projected->count(), 2);
        QVERIFY(projected->points()[0].x() == 0.0 && projected->points()[0].y() == 0.0);
        QVERIFY(qAbs(projected->points()[1].x() - 20037508.342789244) <= 0.001);

        QCOMPARE(geometry->geometryWithProjection(webMercator), projected);
        const auto kept = geometry->projectedGeometries();
        QCOMPARE(kept.size(), 1);
        QCOMPARE(kept.value(webMercator), projected);
    }

    void projectionToOwnSridGivesEqualCopy_data()
    {
        QTest::addColumn<qint64>("srid");
        QTest::newRow("geographic") << qint64(4326);
        QTest::newRow("web Mercator") << qint64(3857);
    }

    void projectionToOwnSridGivesEqualCopy()
    {
        QFETCH(qint64, srid);
        const auto geometry = std::make_shared<HBMultiPointGeometry>(twoPoints, srid);
        const auto copy = geometry->geometryWithProjection(HBProjection(srid));
        QVERIFY(copy);
        QVERIFY(copy != geometry);
        QCOMPARE(copy->srid(), srid);
        QCOMPARE(copy->wkbData(), geometry->wkbData());
    }

    // A subclass or the geometry cache reader may hand in a geometry it made;
    // it is returned without projecting again, which here would fail.
    void usesProjectedGeometryHandedIn()
    {
        const auto geometry = geographic(twoPoints);
        const HBProjection unknownToProj(999999);
        const auto handedIn = std::make_shared<HBMultiPointGeometry>(Points{{7.0, 8.0}}, 999999);
        geometry->setProjectedGeometry(unknownToProj, handedIn);
        QCOMPARE(geometry->geometryWithProjection(unknownToProj), handedIn);
    }

    void failedProjectionKeepsNothing_data()
    {
        QTest::addColumn<Points>("points");
        QTest::addColumn<qint64>("srid");
        QTest::addColumn<qint64>("targetSrid");
        QTest::addColumn<QString>("message");

        QTest::newRow("unknown srid") << twoPoints << qint64(4326) << qint64(999999)
                                      << "^cannot project to EPSG:999999: ";
        QTest::newRow("projected geometry") << twoPoints << qint64(3857) << qint64(4326)
                                            << "^cannot project a geometry in EPSG:3857 to EPSG:4326: ";
        QTest::newRow("latitude beyond the pole") << Points{{0.0, 0.0}, {10.0, 100.0}} << qint64(4326) << qint64(3857)
                                                  << "^cannot project position 1 ";
    }

    void failedProjectionKeepsNothing()
    {
        QFETCH(Points, points);
        QFETCH(qint64, srid);
        QFETCH(qint64, targetSrid);
        QFETCH(QString, message);

        HBMultiPointGeometry geometry(points, srid);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(message));
        QVERIFY(!geometry.geometryWithProjection(HBProjection(targetSrid)));
        QVERIFY(geometry.projectedGeometries().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_HBMultiPointGeometry)
#include "tst_HBMultiPointGeometry.moc"
