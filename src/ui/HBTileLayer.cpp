#include "ui/HBTileLayer.h"

#include "ui/HBMapView.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>

#include <cmath>

namespace {

constexpr int kTileSize = 256;                    // pixels
constexpr int kMaxZoom = 19;
constexpr qint64 kDiskCacheBytes = 256LL << 20;
constexpr int kMemoryTiles = 512;                 // decoded tiles kept, about 128 MB at most
constexpr double kWorldWidth = 2 * HBMapView::kWorldHalf; // metres

QString keyOf(int z, int x, int y)
{
    return QStringLiteral("%1/%2/%3").arg(z).arg(x).arg(y);
}

} // namespace

HBTileLayer::HBTileLayer(const QString &urlTemplate, const QString &attribution, const QString &cacheFolder,
                         QObject *parent)
    : QObject(parent)
    , m_urlTemplate(urlTemplate)
    , m_attribution(attribution)
    , m_network(new QNetworkAccessManager(this))
    , m_tiles(kMemoryTiles)
{
    auto *cache = new QNetworkDiskCache(m_network);
    cache->setCacheDirectory(cacheFolder);
    cache->setMaximumCacheSize(kDiskCacheBytes);
    m_network->setCache(cache);
}

HBTileLayer::~HBTileLayer() = default;

QByteArray HBTileLayer::userAgent()
{
    return QStringLiteral("Fernwick/%1 (HBGPSKit; Qt %2)")
        .arg(QCoreApplication::applicationVersion().isEmpty() ? QStringLiteral("0.1")
                                                              : QCoreApplication::applicationVersion(),
             QString::fromLatin1(qVersion()))
        .toUtf8();
}

int HBTileLayer::zoomForScale(double metresPerPixel)
{
    const double z = std::log2(kWorldWidth / kTileSize / metresPerPixel);
    return std::clamp(int(std::lround(z)), 0, kMaxZoom);
}

QString HBTileLayer::urlForTile(int z, int x, int y) const
{
    QString url = m_urlTemplate;
    return url.replace(QStringLiteral("{z}"), QString::number(z))
        .replace(QStringLiteral("{x}"), QString::number(x))
        .replace(QStringLiteral("{y}"), QString::number(y));
}

void HBTileLayer::draw(QPainter &painter, const HBMapView &view, QSize viewSize)
{
    const int z = zoomForScale(view.metresPerPixel());
    const int count = 1 << z;
    const double tileMetres = kWorldWidth / count;
    const QRectF shown = view.mapRect(viewSize);
    // tile columns from the west, rows from the north
    const int x0 = std::max(0, int(std::floor((shown.left() + HBMapView::kWorldHalf) / tileMetres)));
    const int x1 = std::min(count - 1, int(std::floor((shown.right() + HBMapView::kWorldHalf) / tileMetres)));
    const int y0 = std::max(0, int(std::floor((HBMapView::kWorldHalf - shown.bottom()) / tileMetres)));
    const int y1 = std::min(count - 1, int(std::floor((HBMapView::kWorldHalf - shown.top()) / tileMetres)));
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (int y = y0; y <= y1; ++y) {
        for (int x = x0; x <= x1; ++x) {
            const QImage *tile = m_tiles.object(keyOf(z, x, y));
            if (!tile) {
                request(z, x, y);
                continue;
            }
            const QPointF topLeft(x * tileMetres - HBMapView::kWorldHalf, HBMapView::kWorldHalf - y * tileMetres);
            const QPointF bottomRight = topLeft + QPointF(tileMetres, -tileMetres);
            painter.drawImage(QRectF(view.toView(topLeft, viewSize), view.toView(bottomRight, viewSize)), *tile);
        }
    }
    painter.restore();
}

void HBTileLayer::request(int z, int x, int y)
{
    const QString key = keyOf(z, x, y);
    if (m_pending.contains(key) || m_failed.contains(key))
        return;
    m_pending.insert(key);
    QNetworkRequest request(QUrl(urlForTile(z, x, y)));
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferCache);
    QNetworkReply *reply = m_network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, key] { finished(reply, key); });
}

void HBTileLayer::finished(QNetworkReply *reply, const QString &key)
{
    reply->deleteLater();
    m_pending.remove(key);
    QImage image;
    if (reply->error() != QNetworkReply::NoError || !image.loadFromData(reply->readAll())) {
        m_failed.insert(key);
        return;
    }
    m_tiles.insert(key, new QImage(std::move(image)));
    emit tileArrived();
}
