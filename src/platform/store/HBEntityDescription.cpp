#include "platform/store/HBEntityDescription.h"

#include "platform/store/HBManagedObject.h"

HBEntityDescription::HBEntityDescription(QString name, QString parentName, bool isAbstract)
    : m_name(std::move(name))
    , m_parentName(std::move(parentName))
    , m_isAbstract(isAbstract)
{
}

const HBEntityDescription *HBEntityDescription::rootEntity() const
{
    const HBEntityDescription *e = this;
    while (e->m_superentity)
        e = e->m_superentity;
    return e;
}

QList<const HBEntityDescription *> HBEntityDescription::selfAndDescendants() const
{
    QList<const HBEntityDescription *> all{this};
    for (const HBEntityDescription *sub : m_subentities)
        all += sub->selfAndDescendants();
    return all;
}

bool HBEntityDescription::isKindOfEntity(const HBEntityDescription *other) const
{
    for (const HBEntityDescription *e = this; e; e = e->m_superentity) {
        if (e == other)
            return true;
    }
    return false;
}

HBPropertyDescription &HBEntityDescription::addAttribute(const QString &name, HBAttributeType type)
{
    HBPropertyDescription &p = m_ownProperties.emplace_back();
    p.name = name;
    p.attributeType = type;
    return p;
}

HBPropertyDescription &HBEntityDescription::addToOne(const QString &name, const QString &destination,
                                                     const QString &inverse, HBDeleteRule rule)
{
    HBPropertyDescription &p = m_ownProperties.emplace_back();
    p.name = name;
    p.isRelationship = true;
    p.destinationEntityName = destination;
    p.inverseName = inverse;
    p.deleteRule = rule;
    return p;
}

HBPropertyDescription &HBEntityDescription::addToMany(const QString &name, const QString &destination,
                                                      const QString &inverse, HBDeleteRule rule)
{
    HBPropertyDescription &p = addToOne(name, destination, inverse, rule);
    p.isToMany = true;
    return p;
}

HBPropertyDescription &HBEntityDescription::addTransient(const QString &name)
{
    HBPropertyDescription &p = addAttribute(name, HBAttributeType::Variant);
    p.isTransient = true;
    return p;
}

HBManagedObject *HBEntityDescription::newObject() const
{
    return m_factory ? m_factory() : new HBManagedObject;
}

void HBEntityDescription::finalise(int entityID, const HBEntityDescription *superentity)
{
    m_entityID = entityID;
    m_superentity = superentity;
    if (superentity) {
        m_allProperties = superentity->m_allProperties;
        m_byName = superentity->m_byName;
        if (!m_factory)
            m_factory = superentity->m_factory;
    }
    for (HBPropertyDescription &p : m_ownProperties) {
        p.index = int(m_allProperties.size());
        m_allProperties.append(&p);
        m_byName.insert(p.name, &p);
    }
}

void HBEntityDescription::resolveRelationships(
    const std::function<const HBEntityDescription *(const QString &)> &lookup)
{
    for (HBPropertyDescription &p : m_ownProperties) {
        if (!p.isRelationship)
            continue;
        p.destinationEntity = lookup(p.destinationEntityName);
        if (p.destinationEntity && !p.inverseName.isEmpty())
            p.inverse = p.destinationEntity->propertyNamed(p.inverseName);
    }
}
