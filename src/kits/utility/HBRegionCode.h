#pragma once

#include <QPointF>
#include <QRectF>

// Where a point lies against a rectangle, as the outcode of Cohen and
// Sutherland's line clipping: one bit per side the point is beyond, 0 when
// it is inside or on the edge. The rectangle is in map coordinates, y
// growing upwards: Below means y < rect.top(), the smallest y.
enum HBRegionCodeBit : unsigned {
    HBRegionCodeLeft = 0x1,
    HBRegionCodeRight = 0x2,
    HBRegionCodeBelow = 0x4,
    HBRegionCodeAbove = 0x8,
};

// Inline: the map asks it for every point of a million-point track.
// A coordinate that is not a number counts as beyond the low sides.
constexpr unsigned HBRegionCode(QPointF point, const QRectF &rect)
{
    unsigned code = 0;
    if (!(point.x() >= rect.left()))
        code |= HBRegionCodeLeft;
    else if (point.x() > rect.right())
        code |= HBRegionCodeRight;
    if (!(point.y() >= rect.top()))
        code |= HBRegionCodeBelow;
    else if (point.y() > rect.bottom())
        code |= HBRegionCodeAbove;
    return code;
}
