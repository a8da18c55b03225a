#pragma once

#include "platform/store/HBEntityDescription.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

// The entities of a data model and its named configurations (the subsets of
// entities a store may be opened with). Built once, then finalised, then
// shared read-only by every coordinator and context.
class HBManagedObjectModel
{
public:
    HBManagedObjectModel() = default;
    HBManagedObjectModel(const HBManagedObjectModel &) = delete;
    HBManagedObjectModel &operator=(const HBManagedObjectModel &) = delete;

    HBEntityDescription &addEntity(const QString &name, const QString &parentName = {}, bool isAbstract = false);
    void addConfiguration(const QString &name, const QStringList &entityNames);

    // Links parents, sub-entities and inverses and numbers the properties.
    // Returns false with a reason when the model is inconsistent.
    bool finalise(QString *errorString = nullptr);

    const HBEntityDescription *entityNamed(const QString &name) const;
    const HBEntityDescription *entityWithID(int entityID) const;
    QList<const HBEntityDescription *> entities() const;
    // root entities whose tables a store of this configuration holds
    // (an empty configuration name means every entity)
    QList<const HBEntityDescription *> rootEntitiesForConfiguration(const QString &configuration) const;
    bool configurationContains(const QString &configuration, const HBEntityDescription *entity) const;
    QStringList configurations() const { return m_configurations.keys(); }

private:
    std::vector<std::unique_ptr<HBEntityDescription>> m_entities;
    std::vector<const HBEntityDescription *> m_byID;
    QHash<QString, HBEntityDescription *> m_byName;
    QHash<QString, QSet<QString>> m_configurations;
};
