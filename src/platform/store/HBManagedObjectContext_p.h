#pragma once

#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBObjectIndex.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBStoreRow.h"

#include <QHash>
#include <QMutex>
#include <QRecursiveMutex>
#include <QSet>

#include <deque>
#include <future>
#include <optional>
#include <vector>

class HBEntityDescription;

// A related record's ID, whether the value holds the record or its ID.
inline QVariant asID(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<HBManagedObject *>()) {
        const HBManagedObject *o = value.value<HBManagedObject *>();
        return o ? QVariant::fromValue(o->objectID()) : QVariant();
    }
    return value;
}

// A record's values as one context hands them to another: to-one
// relationships as IDs, never as objects of the giving context.
struct HBManagedObjectContext::Snapshot
{
    HBManagedObjectID id;
    HBRowValues values;
};

// What each file gave for one fetch, in the coordinator's order of files.
using HBStoreRowsRead = std::vector<std::pair<HBPersistentStore *, HBPersistentStore::FetchResult>>;

// Rows of a fetch being read on a thread of their own, and what they are
// only good for: the request, read before any later save of this context
// and with the files the coordinator had then.
struct HBReadAhead
{
    HBFetchRequest request;
    quint32 saveSerial = 0;
    quint64 storesGeneration = 0;
    std::future<HBStoreRowsRead> rows;
};

struct HBManagedObjectContext::Private
{
    // The objects by ID. Those still known by a temporary ID are indexed
    // apart, and only from the first time one is asked for by its ID: an
    // import inserts a million points and never asks, and indexing them
    // would cost more than the rest of their insertion.
    HBObjectIndex registered;   // permanent IDs
    std::optional<QHash<HBManagedObjectID, HBManagedObject *>> temporaries;
    HBManagedObject *registeredObject(const HBManagedObjectID &id);   // builds the index if need be
    void enrol(HBManagedObject *object);
    void unenrol(const HBManagedObjectID &id);
    QHash<HBManagedObjectID, HBManagedObject *> &temporaryIndex();
    QHash<HBManagedObjectID, HBManagedObjectID> permanentIDForTemporary;
    std::vector<HBManagedObject *> insertedOrder;     // may hold objects deleted again; checked on use
    QSet<HBManagedObject *> updated;
    std::vector<HBManagedObject *> deletedOrder;
    // inserted and updated objects by root entity, for the in-memory part of
    // fetches; the inserted lists may hold objects saved or deleted since
    QHash<const HBEntityDescription *, std::vector<HBManagedObject *>> insertedByRoot;
    QHash<const HBEntityDescription *, QSet<HBManagedObject *>> updatedByRoot;
    quint32 saveSerial = 0;   // marks the objects whose will-save hook ran in a save
    const HBEntityDescription *lastInsertedEntity = nullptr;   // imports insert one entity many times over
    std::vector<HBManagedObject *> graveyard;         // deleted and saved; freed at reset
    // Lists of to-many members cached on the objects are good while their
    // generation is this one; any change to a relationship forgets them all.
    quint64 membersGeneration = 1;
    std::vector<HBReadAhead> readAheads;
    std::optional<HBStoreRowsRead> takeReadAhead(const HBFetchRequest &request, bool overlay, quint64 storesGeneration);
    void forgetAllMembers() { ++membersGeneration; }

    // Whether what the files hold of the table is changed here unsaved: its
    // inserted or updated objects, or any deletion.
    bool hasUnsavedChanges(const HBEntityDescription *root)
    {
        return !insertedByRoot[root].empty() || !updatedByRoot[root].isEmpty() || !deletedOrder.empty();
    }
};
