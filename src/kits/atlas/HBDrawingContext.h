#pragma once

#include "kits/atlas/HBClippingRegion.h"
#include "kits/geometry/HBProjection.h"

// What a style needs to draw or hit-test one frame of a map: the
// projection the map is drawn in and the region of it the view shows.
class HBDrawingContext
{
public:
    HBDrawingContext(HBProjection mapProjection, const HBClippingRegion &clippingRegion)
        : m_mapProjection(mapProjection)
        , m_clippingRegion(clippingRegion)
    {
    }

    HBProjection mapProjection() const { return m_mapProjection; }
    const HBClippingRegion &clippingRegion() const { return m_clippingRegion; }

private:
    HBProjection m_mapProjection;
    HBClippingRegion m_clippingRegion;
};
