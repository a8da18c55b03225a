#include "kits/atlas/HBClippingRegion.h"

#include <algorithm>

HBClippingRegion::HBClippingRegion(const QRectF &mapRect, const QTransform &transform, double minSpacing)
    : m_mapRect(mapRect)
    , m_transform(transform)
    , m_minSpacing(minSpacing)
{
}

HBClippingRegion HBClippingRegion::fitting(const QRectF &mapRect, QSizeF viewSize, double minSpacingPixels)
{
    // pixels per map unit; a rectangle without extent shows one unit
    const double scale = std::min(viewSize.width() / std::max(mapRect.width(), 1e-9),
                                  viewSize.height() / std::max(mapRect.height(), 1e-9));
    const QSizeF shown(viewSize.width() / scale, viewSize.height() / scale);
    QRectF region(QPointF(), shown);
    region.moveCenter(mapRect.center());
    // map y grows upwards, view y downwards
    QTransform transform;
    transform.scale(scale, -scale);
    transform.translate(-region.left(), -region.bottom());
    return HBClippingRegion(region, transform, minSpacingPixels / scale);
}
