#include "platform/store/HBManagedObjectModel.h"

HBEntityDescription &HBManagedObjectModel::addEntity(const QString &name, const QString &parentName,
                                                     bool isAbstract)
{
    auto &entity = m_entities.emplace_back(std::make_unique<HBEntityDescription>(name, parentName, isAbstract));
    m_byName.insert(name, entity.get());
    return *entity;
}

void HBManagedObjectModel::addConfiguration(const QString &name, const QStringList &entityNames)
{
    m_configurations[name] = QSet<QString>(entityNames.begin(), entityNames.end());
}

bool HBManagedObjectModel::finalise(QString *errorString)
{
    auto fail = [errorString](const QString &why) {
        if (errorString)
            *errorString = why;
        return false;
    };
    // Parents are finalised before their children so that property slots
    // of a sub-entity continue those of its parent.
    QSet<const HBEntityDescription *> done;
    int nextID = 0;
    std::function<bool(HBEntityDescription *)> finaliseEntity = [&](HBEntityDescription *e) {
        if (done.contains(e))
            return true;
        HBEntityDescription *parent = nullptr;
        if (!e->parentName().isEmpty()) {
            parent = m_byName.value(e->parentName());
            if (!parent || parent == e || !finaliseEntity(parent))
                return false;
            parent->m_subentities.append(e);
        }
        e->finalise(nextID++, parent);
        m_byID.push_back(e);
        done.insert(e);
        return true;
    };
    for (auto &e : m_entities) {
        if (!finaliseEntity(e.get()))
            return fail(QStringLiteral("entity %1 has an unknown parent %2").arg(e->name(), e->parentName()));
    }
    for (auto &e : m_entities) {
        e->resolveRelationships([this](const QString &n) { return entityNamed(n); });
        for (const HBPropertyDescription *p : e->properties()) {
            if (p->isRelationship && !p->destinationEntity)
                return fail(QStringLiteral("%1.%2 names an unknown entity %3")
                                .arg(e->name(), p->name, p->destinationEntityName));
            if (p->isRelationship && !p->inverseName.isEmpty() && !p->inverse)
                return fail(QStringLiteral("%1.%2 names an unknown inverse %3")
                                .arg(e->name(), p->name, p->inverseName));
            if (p->isToMany && (!p->inverse || !p->inverse->isToOne()))
                return fail(QStringLiteral("%1.%2 must have a to-one inverse").arg(e->name(), p->name));
        }
    }
    return true;
}

const HBEntityDescription *HBManagedObjectModel::entityNamed(const QString &name) const
{
    return m_byName.value(name);
}

const HBEntityDescription *HBManagedObjectModel::entityWithID(int entityID) const
{
    return entityID >= 0 && size_t(entityID) < m_byID.size() ? m_byID[size_t(entityID)] : nullptr;
}

QList<const HBEntityDescription *> HBManagedObjectModel::entities() const
{
    QList<const HBEntityDescription *> list;
    for (const auto &e : m_entities)
        list.append(e.get());
    return list;
}

bool HBManagedObjectModel::configurationContains(const QString &configuration,
                                                 const HBEntityDescription *entity) const
{
    if (configuration.isEmpty())
        return true;
    return m_configurations.value(configuration).contains(entity->name());
}

QList<const HBEntityDescription *> HBManagedObjectModel::rootEntitiesForConfiguration(
    const QString &configuration) const
{
    QList<const HBEntityDescription *> roots;
    for (const auto &e : m_entities) {
        if (!e->superentity() && configurationContains(configuration, e.get()))
            roots.append(e.get());
    }
    return roots;
}
