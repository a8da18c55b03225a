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
    QHash<QString, HBPropertyDescription> properties;
    for (const QString &name : {QStringLiteral("name"), QStringLiteral("kind")}) {
        HBPropertyDescription p;
        p.name = name;
        p.attributeType = HBAttributeType::String;
        properties.insert(name, p);
    }
    return properties;
}
