#pragma once

#include "kits/utility/HBRegionCode.h"

#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QTransform>

#include <cmath>
#include <memory>
#include <vector>

// The part of the map a view shows: a rectangle in map coordinates (y
// growing upwards), the transform from map to view coordinates (y growing
// downwards, pixels) and minSpacing, the map distance below which a point
// is not drawn after the one drawn before it, so that a million points
// shown at world scale cost what a few thousand do.
class HBClippingRegion
{
public:
    HBClippingRegion(const QRectF &mapRect, const QTransform &transform, double minSpacing);
    // The region of a view of viewSize pixels showing mapRect whole and
    // centred, at one scale on both axes (the region grows on the other
    // axis to fill the view), thinning points to minSpacingPixels apart on
    // the screen.
    static HBClippingRegion fitting(const QRectF &mapRect, QSizeF viewSize, double minSpacingPixels);

    const QRectF &mapRect() const { return m_mapRect; }
    const QTransform &transform() const { return m_transform; }
    double minSpacing() const { return m_minSpacing; }
    QPointF transformPoint(QPointF mapPoint) const { return m_transform.map(mapPoint); }

    // Calls visit(index, viewPoint) for each point of the run that is drawn
    // and inside the region, in order. Point 0 is always drawn; a later
    // point is drawn when its Manhattan distance from the last point drawn
    // is at least minSpacing, whether or not that one was inside. Drawing
    // and hit testing both walk through here, so that what can be hit is
    // exactly what is seen.
    //
    // The first walk over a run keeps the indices it visited, and later
    // walks over the same run (same first point and count) visit only
    // those: a frame and the mouse moves over it then walk a million-point
    // track once. Runs must not change while a region lives, as the points
    // of a geometry never do. Copies of a region share what it kept; one
    // thread at a time.
    template<typename Visit>
    void forEachDrawnPoint(const QPointF *points, quint32 count, Visit &&visit) const
    {
        if (count == 0)
            return;
        const std::vector<quint32> *kept = keptIndices(points, count);
        if (kept) {
            for (quint32 i : *kept)
                visit(i, transformPoint(points[i]));
            return;
        }
        std::vector<quint32> &indices = keep(points, count);
        QPointF last = points[0];
        if (HBRegionCode(last, m_mapRect) == 0)
            indices.push_back(0);
        for (quint32 i = 1; i < count; ++i) {
            const QPointF p = points[i];
            if (std::abs(p.x() - last.x()) + std::abs(p.y() - last.y()) < m_minSpacing)
                continue;
            last = p;
            if (HBRegionCode(p, m_mapRect) == 0)
                indices.push_back(i);
        }
        for (quint32 i : indices)
            visit(i, transformPoint(points[i]));
    }

private:
    const std::vector<quint32> *keptIndices(const QPointF *points, quint32 count) const;
    std::vector<quint32> &keep(const QPointF *points, quint32 count) const;

    QRectF m_mapRect;
    QTransform m_transform;
    double m_minSpacing;
    struct Kept;
    std::shared_ptr<Kept> m_kept;
};
