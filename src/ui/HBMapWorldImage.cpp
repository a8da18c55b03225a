#include "ui/HBMapWorldImage.h"

#include "ui/HBMapGraticule.h"
#include "ui/HBMapView.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// pixels on a side of the reprojected world: about the source's detail
constexpr int kSide = 1024;

} // namespace

HBMapWorldImage::HBMapWorldImage(const QString &path)
{
    const QImage source(path);
    if (!source.isNull())
        m_mercator = mercatorFromEquirectangular(source, kSide);
}

QImage HBMapWorldImage::mercatorFromEquirectangular(const QImage &image, int side)
{
    const QImage source = image.convertToFormat(QImage::Format_RGB32);
    QImage mercator(side, side, QImage::Format_RGB32);
    const double metresPerPixel = 2 * HBMapView::kWorldHalf / side;
    // columns are longitudes on both sides: one lookup table for every row
    std::vector<int> sourceColumns(side);
    for (int x = 0; x < side; ++x)
        sourceColumns[x] = std::min(source.width() - 1, int((x + 0.5) / side * source.width()));
    for (int y = 0; y < side; ++y) {
        const double northing = HBMapView::kWorldHalf - (y + 0.5) * metresPerPixel;
        const double latitude = HBMapGraticule::lonLatFromMercator(QPointF(0, northing)).y();
        const int sourceRow = std::clamp(int((90 - latitude) / 180 * source.height()), 0, source.height() - 1);
        const auto *in = reinterpret_cast<const QRgb *>(source.constScanLine(sourceRow));
        auto *out = reinterpret_cast<QRgb *>(mercator.scanLine(y));
        for (int x = 0; x < side; ++x)
            out[x] = in[sourceColumns[x]];
    }
    return mercator;
}

void HBMapWorldImage::draw(QPainter &painter, const HBMapView &view, QSize viewSize) const
{
    const double opacity = opacityAt(view.metresPerPixel());
    if (m_mercator.isNull() || opacity <= 0)
        return;
    const double half = HBMapView::kWorldHalf;
    const QRectF world(QPointF(-half, -half), QPointF(half, half));
    const QRectF shown = view.mapRect(viewSize).intersected(world);
    if (shown.isEmpty())
        return;
    // only the part in view, so that a street-scale view scales a few
    // source pixels, not the whole world
    const double pixelsPerMetre = m_mercator.width() / (2 * half);
    const QRectF source((shown.left() + half) * pixelsPerMetre, (half - shown.bottom()) * pixelsPerMetre,
                        shown.width() * pixelsPerMetre, shown.height() * pixelsPerMetre);
    const QRectF target(view.toView(QPointF(shown.left(), shown.bottom()), viewSize),
                        view.toView(QPointF(shown.right(), shown.top()), viewSize));
    painter.save();
    painter.setOpacity(opacity);
    painter.drawImage(target, m_mercator, source);
    painter.restore();
}

double HBMapWorldImage::opacityAt(double metresPerPixel) const
{
    // Whole while a pixel of the picture covers at most 4 of the view; gone
    // at 32, where it would be a blur of one colour: over 3 halvings of scale.
    const double pictureMetresPerPixel = 2 * HBMapView::kWorldHalf / std::max(1, m_mercator.width());
    return std::clamp(std::log2(metresPerPixel * 32 / pictureMetresPerPixel) / 3, 0.0, 1.0);
}
