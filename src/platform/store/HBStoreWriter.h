#pragma once

#include "platform/HBError.h"

#include <QHash>
#include <QList>

#include <vector>

class HBManagedObject;
class HBPersistentStore;
class HBPersistentStoreCoordinator;

// Writes the changes of one save of a root context into the store files of
// its coordinator: each object into the file its ID names, one transaction
// per file, files side by side on several threads when there are many rows.
//
// Files commit on their own, except when the save writes the coordinator's
// commit-last store and others: then it is all or nothing (see HBSaveNote),
// the others committing first.
class HBStoreWriter
{
public:
    struct Changes
    {
        std::vector<HBManagedObject *> inserted;
        std::vector<HBManagedObject *> updated;
        std::vector<HBManagedObject *> deleted;
    };

    explicit HBStoreWriter(HBPersistentStoreCoordinator *coordinator);

    // Groups the changes by file; false when an object has no file or
    // relates records of different files, before anything is written.
    bool place(const Changes &changes, HBError *error);
    // False when a file refused its part. `changes` then keeps only what
    // reached a file: nothing, for a save that is all or nothing.
    bool write(Changes &changes, HBError *error);

private:
    bool placeObject(HBManagedObject *object, std::vector<HBManagedObject *> Changes::*list, HBError *error);
    HBPersistentStore *storeOfToken(quint32 token);
    bool writeInOrder(HBError *error);
    bool writePerStore(Changes &changes, HBError *error);

    HBPersistentStoreCoordinator *m_coordinator;
    QHash<HBPersistentStore *, Changes> m_work;
    QList<HBPersistentStore *> m_order;
    // objects come in long runs of one store
    quint32 m_lastToken = 0;
    HBPersistentStore *m_lastStore = nullptr;
    Changes *m_lastWork = nullptr;
    HBPersistentStore *m_lastWorkStore = nullptr;
};
