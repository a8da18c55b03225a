#include "model/HBTrackGeometry.h"

#include "model/HBTrack.h"

#include <QFile>

HBTrackGeometry::HBTrackGeometry(std::vector<QPointF> points)
    : HBMultiPointGeometry(std::move(points))
{
}

std::shared_ptr<HBTrackGeometry> HBTrackGeometry::fromWKBData(const QByteArray &wkb)
{
    const std::shared_ptr<HBMultiPointGeometry> read = HBMultiPointGeometry::fromWKBData(wkb);
    return read ? std::make_shared<HBTrackGeometry>(read->points()) : nullptr;
}

std::shared_ptr<HBMultiPointGeometry> HBTrackGeometry::geometryWithProjection(const HBProjection &projection)
{
    if (auto kept = projectedGeometries().value(projection))
        return kept;
    std::shared_ptr<HBMultiPointGeometry> made;
    const QByteArray cached = m_track ? m_track->cachedWKBDataForSRID(projection.srid()) : QByteArray();
    if (!cached.isEmpty())
        made = HBMultiPointGeometry::fromWKBData(cached, projection.srid());
    if (!made) {
        made = projectedGeometry(projection);
        if (made && m_track && !m_track->objectID().isTemporaryID()) {
            QFile file(m_track->geometryCachePathForSRID(projection.srid()));
            if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
                file.write(made->wkbData());
        }
    }
    if (made)
        setProjectedGeometry(projection, made);
    return made;
}
