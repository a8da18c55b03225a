#pragma once

#include "kits/geometry/HBGeometryType.h"
#include "kits/geometry/HBProjection.h"

#include <QByteArray>
#include <QPointF>

// One position in a spatial reference: for srid 4326 x = longitude and
// y = latitude in degrees, for a projected srid its easting and northing.
class HBPointGeometry
{
public:
    HBPointGeometry(double x, double y, qint64 srid = HBProjection::GeographicSRID);
    explicit HBPointGeometry(QPointF point, qint64 srid = HBProjection::GeographicSRID);

    QPointF point() const { return m_point; }
    qint64 srid() const { return m_srid; }
    HBGeometryType geometryType() const { return HBGeometryTypePoint; }

    // ISO well-known binary, little-endian: 21 bytes.
    QByteArray wkbData() const;

private:
    QPointF m_point;
    qint64 m_srid;
};
