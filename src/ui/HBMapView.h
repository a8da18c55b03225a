#pragma once

#include "kits/atlas/HBClippingRegion.h"

#include <QPointF>
#include <QRectF>
#include <QSize>

// Where a map looks, in Web Mercator (EPSG:3857, metres, y growing north):
// the map point at the centre of the view and the metres one pixel covers.
// A plain value: a canvas keeps one, settings store one.
class HBMapView
{
public:
    // Half the width of the Mercator world, metres: x runs from -kWorldHalf
    // to +kWorldHalf, and so does y between the latitudes 85.05 S and N.
    static constexpr double kWorldHalf = 20037508.342789244;
    // The closest a map zooms in and the farthest it zooms out.
    static constexpr double kMinMetresPerPixel = 0.05;
    static constexpr double kMaxMetresPerPixel = 2 * kWorldHalf / 256;

    HBMapView() = default;
    HBMapView(QPointF centre, double metresPerPixel);

    QPointF centre() const { return m_centre; }
    double metresPerPixel() const { return m_metresPerPixel; }

    // The map rectangle a view of viewSize pixels shows.
    QRectF mapRect(QSize viewSize) const;
    // Map to view for a view of viewSize pixels.
    QPointF toView(QPointF mapPoint, QSize viewSize) const;
    QPointF toMap(QPointF viewPoint, QSize viewSize) const;
    // What a view of viewSize shows and how it thins points: the region
    // reaches margin pixels beyond the view, so that symbols on the edge
    // are drawn whole.
    HBClippingRegion clippingRegion(QSize viewSize, double margin, double minSpacingPixels) const;

    // Moved by a distance in pixels (x right, y down), as a drag moves it.
    HBMapView panned(QPointF pixels) const;
    // Zoomed in by factor (> 1) or out (< 1), the map point under
    // viewPoint staying under it.
    HBMapView zoomed(double factor, QPointF viewPoint, QSize viewSize) const;
    // The view showing mapRect whole and centred, with margin pixels free on
    // each side. A rectangle without extent (one waypoint) is shown at
    // fallbackMetresPerPixel.
    static HBMapView fitting(const QRectF &mapRect, QSize viewSize, double margin, double fallbackMetresPerPixel);

    friend bool operator==(const HBMapView &, const HBMapView &) = default;

private:
    QPointF m_centre;
    double m_metresPerPixel = kMaxMetresPerPixel;
};
