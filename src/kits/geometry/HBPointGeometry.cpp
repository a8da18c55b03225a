#include "kits/geometry/HBPointGeometry.h"

#include "kits/geometry/HBWKB.h"
#include "kits/geometry/HBWKBWriter.h"

HBPointGeometry::HBPointGeometry(double x, double y, qint64 srid)
    : HBPointGeometry(QPointF(x, y), srid)
{
}

HBPointGeometry::HBPointGeometry(QPointF point, qint64 srid)
    : m_point(point)
    , m_srid(srid)
{
}

QByteArray HBPointGeometry::wkbData() const
{
    HBWKBWriter writer(HBWKB::pointSize);
    writer.writePoint(m_point);
    return writer.takeData();
}
