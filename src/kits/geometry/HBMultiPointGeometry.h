#pragma once

#include "kits/geometry/HBGeometryType.h"
#include "kits/geometry/HBProjection.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QPointF>
#include <QRectF>

#include <memory>
#include <vector>

// An ordered set of positions in one spatial reference: the geometry a
// track is drawn from, kept in the geometry cache as ISO well-known binary.
// For srid 4326 x = longitude and y = latitude in degrees.
//
// The points never change after construction. The projections of a
// geometry made so far are kept with it, so that a map redrawn in the same
// projection projects each track once. Held by std::shared_ptr; subclasses
// (the geometry of a track) may override geometryWithProjection.
class HBMultiPointGeometry
{
public:
    HBMultiPointGeometry(const QPointF *points, qsizetype count, qint64 srid = HBProjection::GeographicSRID);
    explicit HBMultiPointGeometry(std::vector<QPointF> points, qint64 srid = HBProjection::GeographicSRID);
    virtual ~HBMultiPointGeometry();

    HBMultiPointGeometry(const HBMultiPointGeometry &) = delete;
    HBMultiPointGeometry &operator=(const HBMultiPointGeometry &) = delete;

    // An ISO well-known binary MultiPoint of two-dimensional points, in
    // either byte order (each point may have its own). Null, with the
    // reason logged under hbGeometry, for damaged or truncated data, another
    // geometry type, trailing bytes or a coordinate that is not a finite
    // number. An empty multipoint is valid.
    static std::shared_ptr<HBMultiPointGeometry> fromWKBData(const QByteArray &wkb,
                                                             qint64 srid = HBProjection::GeographicSRID);

    qsizetype count() const { return qsizetype(m_points.size()); }
    const std::vector<QPointF> &points() const { return m_points; }
    qint64 srid() const { return m_srid; }
    HBGeometryType geometryType() const { return HBGeometryTypeMultiPoint; }
    // The smallest rectangle holding every point; a null rectangle when
    // there are none.
    QRectF boundingRect() const { return m_boundingRect; }

    // ISO well-known binary, little-endian: 9 bytes, then 21 per point.
    QByteArray wkbData() const;

    QHash<HBProjection, std::shared_ptr<HBMultiPointGeometry>> projectedGeometries() const;
    // Keeps geometry (not null) as this geometry in projection, in place of
    // any kept before: a subclass or a cache reader hands in what it made.
    void setProjectedGeometry(const HBProjection &projection, std::shared_ptr<HBMultiPointGeometry> geometry);

    // This geometry in projection: the one kept for it, else a new one
    // projected now and kept. Projection to the geometry's own srid gives
    // an equal copy. Null, with the reason logged, when the projection
    // fails or when this geometry is not geographic (srid 4326) and the
    // projection is to another srid.
    virtual std::shared_ptr<HBMultiPointGeometry> geometryWithProjection(const HBProjection &projection);

protected:
    // Projects without looking at or touching the kept projections, for
    // subclasses that keep their own kind of projected geometry.
    std::shared_ptr<HBMultiPointGeometry> projectedGeometry(const HBProjection &projection) const;

private:
    std::vector<QPointF> m_points;
    qint64 m_srid;
    QRectF m_boundingRect;

    // Tracks are drawn on the main thread while workers may project them
    // for the geometry cache.
    mutable QMutex m_projectedMutex;
    QHash<HBProjection, std::shared_ptr<HBMultiPointGeometry>> m_projectedGeometries;
};
