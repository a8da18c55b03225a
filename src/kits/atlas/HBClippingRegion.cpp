#include "kits/atlas/HBClippingRegion.h"

#include <QHash>

#include <algorithm>

// The indices each walked run visited, by its first point and count.
struct HBClippingRegion::Kept
{
    QHash<QPair<const QPointF *, quint32>, std::vector<quint32>> indices;
};

HBClippingRegion::HBClippingRegion(const QRectF &mapRect, const QTransform &transform, double minSpacing)
    : m_mapRect(mapRect)
    , m_transform(transform)
    , m_minSpacing(minSpacing)
    , m_kept(std::make_shared<Kept>())
{
}

const std::vector<quint32> *HBClippingRegion::keptIndices(const QPointF *points, quint32 count) const
{
    const auto it = m_kept->indices.constFind({points, count});
    return it == m_kept->indices.cend() ? nullptr : &it.value();
}

std::vector<quint32> &HBClippingRegion::keep(const QPointF *points, quint32 count) const
{
    std::vector<quint32> &indices = m_kept->indices[{points, count}];
    indices.clear();
    return indices;
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
