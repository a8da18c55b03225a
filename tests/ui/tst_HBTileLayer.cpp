#include "LocalHttpServer.h"

#include "ui/HBMapCanvas.h"
#include "ui/HBMapView.h"
#include "ui/HBTileLayer.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Tiles from a server on this machine: fetched with the program's name,
// drawn where the world is, cached on disk for the next run, and a server
// that fails leaves the map as it was.
class tst_HBTileLayer : public QObject
{
    Q_OBJECT

    QTemporaryDir m_cache;
    // the whole world in one 256-pixel tile of zoom 0, in a 256 x 256 view
    const HBMapView m_world{QPointF(), HBMapView::kMaxMetresPerPixel};

    static QByteArray redPng()
    {
        QImage tile(256, 256, QImage::Format_RGB32);
        tile.fill(Qt::red);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        tile.save(&buffer, "PNG");
        return png;
    }

    // The view drawn by a fresh layer once the tile has had time to come.
    QColor drawnCentre(LocalHttpServer &server, const QString &cacheFolder, bool expectTile)
    {
        HBTileLayer layer(server.baseUrl() + QStringLiteral("/{z}/{x}/{y}.png"), QStringLiteral("Tiles: test"),
                          cacheFolder);
        QSignalSpy arrived(&layer, &HBTileLayer::tileArrived);
        QImage view(256, 256, QImage::Format_RGB32);
        view.fill(Qt::blue);
        QPainter painter(&view);
        layer.draw(painter, m_world, view.size());
        if (expectTile)
            arrived.wait(10000);
        else
            QTest::qWait(500);
        layer.draw(painter, m_world, view.size());
        return view.pixelColor(128, 128);
    }

private slots:
    void zoomAndUrlOfTiles_data()
    {
        QTest::addColumn<double>("metresPerPixel");
        QTest::addColumn<int>("zoom");
        QTest::newRow("world") << HBMapView::kMaxMetresPerPixel << 0;
        QTest::newRow("zoom 12") << 38.2185 << 12;
        QTest::newRow("closer than the last level") << 0.05 << 19;
    }

    void zoomAndUrlOfTiles()
    {
        QFETCH(double, metresPerPixel);
        QTEST(HBTileLayer::zoomForScale(metresPerPixel), "zoom");
        const HBTileLayer layer(QStringLiteral("http://127.0.0.1/{z}/{x}/{y}.png?k={z}"), {}, m_cache.path());
        QCOMPARE(layer.urlForTile(3, 4, 5), QStringLiteral("http://127.0.0.1/3/4/5.png?k=3"));
    }

    void tileIsFetchedDrawnAndCachedForTheNextRun()
    {
        LocalHttpServer server(200, redPng());
        const QString cache = m_cache.filePath(QStringLiteral("Tiles"));
        QCOMPARE(drawnCentre(server, cache, true), QColor(Qt::red));
        QCOMPARE(server.paths, QStringList{QStringLiteral("/0/0/0.png")});
        QVERIFY(server.userAgents.value(0).startsWith("Fernwick/"));
        // a new layer, as after a restart: from the disk cache
        QCOMPARE(drawnCentre(server, cache, true), QColor(Qt::red));
        QCOMPARE(server.paths.size(), 1);
    }

    void theMapShowsTheAttributionLine()
    {
        LocalHttpServer server(500, "down");
        HBTileLayer layer(server.baseUrl() + QStringLiteral("/{z}/{x}/{y}.png"), QStringLiteral("Tiles: test"),
                          m_cache.filePath(QStringLiteral("Attribution")));
        HBMapCanvas canvas;
        canvas.resize(400, 300);
        canvas.setView(HBMapView(QPointF(), 1000));
        const QImage without = canvas.grab().toImage();
        canvas.setTileLayer(&layer);
        const QImage with = canvas.grab().toImage();
        // a white box in the bottom right corner, with dark text in it
        QCOMPARE(without.pixelColor(398, 298), QColor(0xdd, 0xe6, 0xee));
        QCOMPARE(with.pixelColor(398, 298), QColor(Qt::white));
        int dark = 0;
        for (int x = 300; x < 400; ++x) {
            for (int y = 280; y < 300; ++y)
                dark += with.pixelColor(x, y).lightness() < 100;
        }
        QVERIFY(dark > 10);
    }

    void aFailingServerLeavesTheMapAsItWas_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("server error") << 500 << QByteArray("oops");
        QTest::newRow("not an image") << 200 << QByteArray("<html>");
    }

    void aFailingServerLeavesTheMapAsItWas()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QTemporaryDir cache;
        LocalHttpServer server(status, body);
        QCOMPARE(drawnCentre(server, cache.path(), false), QColor(Qt::blue));
        QCOMPARE(server.paths.size(), 1);
    }
};

QTEST_MAIN(tst_HBTileLayer)
#include "tst_HBTileLayer.moc"
