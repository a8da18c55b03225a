#pragma once

#include "platform/HBError.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBStoreWriter.h"

#include <QSet>

#include <vector>

class HBManagedObject;

// One save of a context: (1) new objects get their permanent IDs, (2) the
// will-save hooks run, (3) the changes are gathered, (4) they go into the
// parent context or, for a root context, into the store files
// (HBStoreWriter), (5) what was saved is marked clean in the context and the
// did-save hooks and signal follow. What a store refused stays pending.
// Made for the save, on the context's queue.
class HBContextSave
{
public:
    explicit HBContextSave(HBManagedObjectContext &context);
    bool run(HBError *error);

private:
    using Changes = HBStoreWriter::Changes;
    void runWillSaveHooks();
    void gatherChanges(Changes &pending, std::vector<HBManagedObject *> &dropped) const;
    void pushIntoParent(const Changes &pending);
    void renameTemporaryIDs(const Changes &pending);
    void settleSaved(const Changes &pending, const std::vector<HBManagedObject *> &dropped, bool saved);
    void forgetSettled(const QSet<HBManagedObject *> &gone, bool saved);

    HBManagedObjectContext &m_context;
    HBManagedObjectContext::Private &d;
};
