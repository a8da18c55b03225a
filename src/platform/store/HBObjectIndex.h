#pragma once

#include "platform/store/HBManagedObjectID.h"

#include <QHash>

#include <vector>

class HBEntityDescription;
class HBManagedObject;

// A context's objects by their permanent IDs. Objects that just received
// their IDs in a batch may be added unhashed, and are hashed, table by
// table, the first time an ID of their table is asked for: an import gives
// a million points their IDs and never looks one up by it, and hashing them
// would cost as much as making them.
class HBObjectIndex
{
public:
    HBManagedObject *value(const HBManagedObjectID &id);
    void insert(const HBManagedObjectID &id, HBManagedObject *object);
    // Indexed later under the ID the object has then.
    void insertLater(HBManagedObject *object);
    void remove(const HBManagedObjectID &id);
    qsizetype size() const;
    // every object, each once
    std::vector<HBManagedObject *> objects() const;
    void clear();

private:
    void indexTable(const HBEntityDescription *root);

    QHash<HBManagedObjectID, HBManagedObject *> m_indexed;
    QHash<const HBEntityDescription *, std::vector<HBManagedObject *>> m_unindexed;   // by root entity
};
