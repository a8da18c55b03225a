#include "model/HBWaypoint.h"

#include "kits/geometry/HBPointGeometry.h"
#include "platform/store/HBPropertyDescription.h"

std::shared_ptr<HBPointGeometry> HBWaypoint::geometry() const
{
    if (!m_geometry)
        m_geometry = std::make_shared<HBPointGeometry>(point());
    return m_geometry;
}

QHash<QString, HBPropertyDescription> HBWaypoint::propertiesByName()
{
    return HBPropertyDescription::attributes(
        {{QStringLiteral("name"), HBAttributeType::String}, {QStringLiteral("kind"), HBAttributeType::String}});
}
