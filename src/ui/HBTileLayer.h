#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QString>

class HBMapView;
class QNetworkAccessManager;
class QNetworkReply;
class QPainter;
class QSize;

// Raster tiles of the usual XYZ scheme (256-pixel Web Mercator tiles, zoom
// 0 = the world in one tile, y growing south) fetched from a URL template
// such as "https://tiles.example/{z}/{x}/{y}.png". Replies are kept in a
// disk cache, which later runs read first; decoded tiles of the moment in
// memory. A tile that fails is left out and asked for again only after the
// layer is made anew: the graticule below stays visible.
class HBTileLayer : public QObject
{
    Q_OBJECT

public:
    // cacheFolder: where the disk cache lives; attribution: the line shown
    // at the bottom of the map, as the tiles' terms require.
    HBTileLayer(const QString &urlTemplate, const QString &attribution, const QString &cacheFolder,
                QObject *parent = nullptr);
    ~HBTileLayer() override;

    QString attribution() const { return m_attribution; }
    // The zoom level whose tiles are closest to metresPerPixel, 0 to 19.
    static int zoomForScale(double metresPerPixel);
    // The template with the tile's numbers in place.
    QString urlForTile(int z, int x, int y) const;

    // Draws the tiles at hand for the view and asks for the missing ones;
    // tileArrived says when one came.
    void draw(QPainter &painter, const HBMapView &view, QSize viewSize);

    static QByteArray userAgent();

signals:
    void tileArrived();

private:
    void request(int z, int x, int y);
    void finished(QNetworkReply *reply, const QString &key);

    QString m_urlTemplate;
    QString m_attribution;
    QNetworkAccessManager *m_network;
    QCache<QString, QImage> m_tiles;
    QSet<QString> m_pending;
    QSet<QString> m_failed;
};
