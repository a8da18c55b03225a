#include "kits/geometry/HBProjection.h"

#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <array>

namespace {

struct Expectation {
    const char *name;
    QPointF lonLat;   // degrees
    QPointF expected; // in the target srid
};

// Web Mercator (EPSG:3857), metres. a = 6378137 m; E = a * λ and
// N = a * ln tan(π/4 + φ/2).
const std::array webMercator{
    Expectation{"origin", {0.0, 0.0}, {0.0, 0.0}},
    Expectation{"antimeridian on the equator", {180.0, 0.0}, {20037508.342789244, 0.0}},
    // The corner of the square web map: φ = atan(sinh π), so N = a * π.
    Expectation{"north-west corner of the map", {-180.0, 85.051128779806592}, {-20037508.342789244, 20037508.342789244}},
    // The example of EPSG Guidance Note 7-2 for this method:
    // 24°22'54.433"N 100°20'00.000"W gives E = -11 169 055.58 m,
    // N = 2 800 000.00 m; the millimetres are the formula's.
    Expectation{"EPSG guidance note example", {-100.0 - 20.0 / 60.0, 24.0 + 22.0 / 60.0 + 54.433 / 3600.0}, {-11169055.576, 2800000.003}},
    Expectation{"the example mirrored south-east", {100.0 + 20.0 / 60.0, -(24.0 + 22.0 / 60.0 + 54.433 / 3600.0)}, {11169055.576, -2800000.003}},
};

std::vector<QPointF> webMercatorInputs()
{
    std::vector<QPointF> lonLat;
    for (const Expectation &e : webMercator)
        lonLat.push_back(e.lonLat);
    return lonLat;
}

bool withinMillimetre(QPointF actual, QPointF expected)
{
    return qAbs(actual.x() - expected.x()) <= 0.001 && qAbs(actual.y() - expected.y()) <= 0.001;
}

QByteArray describe(QPointF p)
{
    return QByteArray::number(p.x(), 'f', 6) + ", " + QByteArray::number(p.y(), 'f', 6);
}

} // namespace

class tst_HBProjection : public QObject
{
    Q_OBJECT

private slots:
    void projectsToWebMercator_data()
    {
        QTest::addColumn<QPointF>("lonLat");
        QTest::addColumn<QPointF>("expected");
        for (const Expectation &e : webMercator)
            QTest::newRow(e.name) << e.lonLat << e.expected;
    }

    // Each position is projected second in its array: a wrong stride or a
    // swapped axis shows only past the first point.
    void projectsToWebMercator()
    {
        QFETCH(QPointF, lonLat);
        QFETCH(QPointF, expected);

        const std::vector<QPointF> positions{{0.0, 0.0}, lonLat};
        const std::optional<std::vector<QPointF>> projected = HBProjection(3857).project(positions);
        QVERIFY(projected);
        QCOMPARE(projected->size(), 2u);
        QVERIFY2(withinMillimetre(projected->front(), {0.0, 0.0}), describe(projected->front()));
        QVERIFY2(withinMillimetre(projected->back(), expected), describe(projected->back()));
    }

    void projectsOnWorkerThreads()
    {
        const std::vector<QPointF> lonLat = webMercatorInputs();
        std::array<std::optional<std::vector<QPointF>>, 3> results;
        std::vector<std::unique_ptr<QThread>> threads;
        for (auto &result : results) {
            threads.emplace_back(QThread::create([&result, &lonLat] { result = HBProjection(3857).project(lonLat); }));
            threads.back()->start();
        }
        for (auto &thread : threads)
            QVERIFY(thread->wait(60000));

        for (const auto &result : results) {
            QVERIFY(result);
            for (size_t i = 0; i < webMercator.size(); ++i)
                QVERIFY2(withinMillimetre((*result)[i], webMercator[i].expected), webMercator[i].name);
        }
    }

    void geographicIsTheIdentity()
    {
        const std::vector<QPointF> lonLat{{13.404954, 52.520008}, {-179.9999999, -89.5}};
        const std::optional<std::vector<QPointF>> projected = HBProjection(4326).project(lonLat);
        QVERIFY(projected);
        QCOMPARE(projected->size(), lonLat.size());
        for (size_t i = 0; i < lonLat.size(); ++i) {
            QVERIFY((*projected)[i].x() == lonLat[i].x());
            QVERIFY((*projected)[i].y() == lonLat[i].y());
        }
    }

    void emptyInputGivesEmptyOutput()
    {
        const std::optional<std::vector<QPointF>> projected = HBProjection(3857).project({});
        QVERIFY(projected);
        QVERIFY(projected->empty());
    }

    void rejectsUnknownSrid_data()
    {
        QTest::addColumn<qint64>("srid");
        QTest::newRow("no such code") << qint64(999999);
        QTest::newRow("zero") << qint64(0);
        QTest::newRow("negative") << qint64(-3857);
        // A datum, not a coordinate reference system.
        QTest::newRow("datum code") << qint64(6326);
    }

    void rejectsUnknownSrid()
    {
        QFETCH(qint64, srid);
        const QPointF origin(0.0, 0.0);
        // Twice: the failure is kept per thread and must be reported again.
        for (int attempt = 0; attempt < 2; ++attempt) {
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(QStringLiteral("^cannot project to EPSG:%1: .+").arg(srid)));
            QVERIFY(!HBProjection(srid).project({&origin, 1}));
        }
    }

    void rejectsPositionWithoutImage()
    {
        const std::vector<QPointF> lonLat{{0.0, 0.0}, {10.0, 100.0}, {0.0, 1.0}};
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("^cannot project position 1 \\(10, 100\\) to EPSG:3857")));
        QVERIFY(!HBProjection(3857).project(lonLat));
    }
};

QTEST_GUILESS_MAIN(tst_HBProjection)
#include "tst_HBProjection.moc"
