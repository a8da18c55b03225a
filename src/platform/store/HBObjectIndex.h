#pragma once

#include "platform/store/HBManagedObjectID.h"

#include <QHash>

#include <vector>

class HBEntityDescription;
class HBManagedObject;

// A context's objects by their permanent IDs. Objects are added unhashed,
// and hashed, table by table, only when an ID is asked for that one of them
// might have: the smallest and largest key of the waiting objects of each
// file tell. An import gives a million points their IDs and an export
// fetches a million, segment after segment, each with keys of its own;
// neither asks for one by ID, and hashing them would cost as much as
// making them.
class HBObjectIndex
{
public:
    HBManagedObject *value(const HBManagedObjectID &id);
    // under the object's ID, which must be permanent
    void insert(HBManagedObject *object);
    void remove(const HBManagedObjectID &id);
    qsizetype size() const;
    // every object, each once
    std::vector<HBManagedObject *> objects() const;
    void clear();

private:
    struct KeyRange
    {
        quint32 storeToken;
        qint64 lowest;
        qint64 highest;
    };
    // the objects of one table not hashed yet
    struct Waiting
    {
        std::vector<HBManagedObject *> objects;
        std::vector<KeyRange> keys;   // by file; a few files at most

        bool mayHold(const HBManagedObjectID &id) const;
        void add(const HBManagedObjectID &id);
    };

    void indexWaitingFor(const HBManagedObjectID &id);

    QHash<HBManagedObjectID, HBManagedObject *> m_indexed;
    QHash<const HBEntityDescription *, Waiting> m_waiting;   // by root entity
};
