#include "kits/geometry/HBProjection.h"

#include "kits/geometry/HBProjectionContext_p.h"

#include <QHashFunctions>

std::optional<std::vector<QPointF>> HBProjection::project(std::span<const QPointF> lonLat) const
{
    if (m_srid == GeographicSRID)
        return std::vector<QPointF>(lonLat.begin(), lonLat.end());
    return HBProjectionContext::forCurrentThread().project(m_srid, lonLat);
}

size_t qHash(HBProjection projection, size_t seed) noexcept
{
    return qHash(projection.srid(), seed);
}
