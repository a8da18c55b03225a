#pragma once

#include "platform/store/HBEntityDescription.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <atomic>
#include <memory>
#include <vector>

class HBStorePlacement;

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

    // Where its inserted objects go (see HBStorePlacement); none by default.
    // A model is shared read-only, but the layout that places its records
    // may be made after it.
    void setStorePlacement(HBStorePlacement *placement) const { m_placement.store(placement); }
    HBStorePlacement *storePlacement() const { return m_placement.load(); }

private:
    mutable std::atomic<HBStorePlacement *> m_placement{nullptr};
    std::vector<std::unique_ptr<HBEntityDescription>> m_entities;
    std::vector<const HBEntityDescription *> m_byID;
    QHash<QString, HBEntityDescription *> m_byName;
    QHash<QString, QSet<QString>> m_configurations;
};
