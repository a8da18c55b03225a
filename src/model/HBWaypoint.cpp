#include "model/HBWaypoint.h"

#include "kits/geometry/HBPointGeometry.h"
#include "model/HBFeatureStyles.h"
#include "platform/store/HBPropertyDescription.h"

std::shared_ptr<HBPointGeometry> HBWaypoint::geometry() const
{
    if (!m_geometry)
        m_geometry = std::make_shared<HBPointGeometry>(point());
    return m_geometry;
}

std::shared_ptr<HBSimplePointStyle> HBWaypoint::style()
{
    return HBFeatureStyles::styleOf(this, m_style);
}

void HBWaypoint::didSave()
{
    if (isDeleted())
        HBFeatureStyles::saveStyle(style());
}

QHash<QString, HBPropertyDescription> HBWaypoint::propertiesByName()
{
    return HBPropertyDescription::attributes(
        {{QStringLiteral("name"), HBAttributeType::String}, {QStringLiteral("kind"), HBAttributeType::String}});
}
