#pragma once

#include "platform/HBError.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPredicate.h"

#include <QList>
#include <QSet>

#include <optional>
#include <vector>

class HBEntityDescription;
class HBManagedObject;
class HBPersistentStoreCoordinator;

// One fetch of a context: what the layer below holds (the parent context,
// or the store files, perhaps read ahead), overlaid with the context's own
// unsaved changes, filtered, sorted, cut to the limit, and the
// relationships asked for loaded along. Made for the fetch, on the
// context's queue.
class HBContextFetch
{
public:
    explicit HBContextFetch(HBManagedObjectContext &context);

    QList<HBManagedObject *> execute(const HBFetchRequest &request, HBError *error);
    // Starts reading the rows of a fetch the context is about to make, on
    // a worker thread; a root context with nothing unsaved of the entity only.
    void readAhead(const HBFetchRequest &request);
    // Counting every record of an entity in a context with nothing unsaved is
    // one COUNT per file; anything else counts what a fetch returns.
    qsizetype count(const HBFetchRequest &request, HBError *error);

private:
    // What the layer below holds, as objects of this context.
    bool readCandidates(const HBFetchRequest &below, QList<HBManagedObject *> &candidates, HBError *error);
    bool readCandidatesFromStores(const HBFetchRequest &below, QList<HBManagedObject *> &candidates, HBError *error);
    // Unchanged objects are refreshed from what the layer below says;
    // changed ones keep their values and are judged in memory.
    HBManagedObject *adopt(const HBManagedObjectID &id, HBRowValues &&values);
    QList<HBManagedObject *> filter(const QList<HBManagedObject *> &candidates) const;
    // Changed objects of the entity that match and are not there yet.
    bool addChangedObjects(QList<HBManagedObject *> &results) const;
    void prefetch(const QList<HBManagedObject *> &results, const QStringList &keyPaths);

    HBManagedObjectContext &m_context;
    HBManagedObjectContext::Private &d;
    HBPersistentStoreCoordinator *m_coordinator;
    const HBEntityDescription *m_entity = nullptr;
    HBPredicate m_predicate;
    bool m_overlay = false;      // the context has unsaved changes of the entity's table
    bool m_filterAll = false;    // a file could not filter: every candidate is judged here
    bool m_unsorted = false;     // a file gave its rows in its own order
    int m_sources = 0;           // files (or the parent) that gave rows
};
