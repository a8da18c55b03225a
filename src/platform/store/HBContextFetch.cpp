#include "platform/store/HBContextFetch.h"

#include "platform/HBBackgroundWork.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext_p.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBObjectSort.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBPropertyDescription.h"

#include <algorithm>

namespace {

// Each file's rows for a fetch, in the coordinator's order of files.
HBStoreRowsRead readRows(const QList<HBPersistentStore *> &stores, const HBEntityDescription *entity,
                         const HBPredicate &predicate, const QList<HBSortDescriptor> &sort, int fetchLimit)
{
    HBStoreRowsRead read;
    for (HBPersistentStore *store : stores) {
        if (store->holdsEntity(entity))
            read.emplace_back(store, store->fetchRows(entity, predicate, sort, fetchLimit));
    }
    return read;
}

const HBEntityDescription *fetchedEntity(const HBPersistentStoreCoordinator *coordinator, const HBFetchRequest &request)
{
    return coordinator ? coordinator->managedObjectModel()->entityNamed(request.entityName()) : nullptr;
}

// A request without a predicate fetches every record.
HBPredicate fetchedPredicate(const HBFetchRequest &request)
{
    return request.predicate().isValid() ? request.predicate() : HBPredicate::truePredicate();
}

bool sameFetch(const HBFetchRequest &a, const HBFetchRequest &b)
{
    const QList<HBSortDescriptor> sortA = a.sortDescriptors(), sortB = b.sortDescriptors();
    return a.entityName() == b.entityName() && a.predicate().sharesTreeWith(b.predicate())
           && a.fetchLimit() == b.fetchLimit()
           && std::equal(sortA.begin(), sortA.end(), sortB.begin(), sortB.end(), [](const auto &x, const auto &y) {
                  return x.key == y.key && x.ascending == y.ascending;
              });
}

// A few segments ahead at most: each holds its rows until they are asked for.
constexpr size_t kMaxReadAheads = 4;

} // namespace

HBContextFetch::HBContextFetch(HBManagedObjectContext &context)
    : m_context(context)
    , d(*context.d)
    , m_coordinator(context.persistentStoreCoordinator())
{
}

void HBContextFetch::readAhead(const HBFetchRequest &request)
{
    HBPersistentStoreCoordinator *coordinator = m_context.m_parent ? nullptr : m_coordinator;
    const HBEntityDescription *entity = fetchedEntity(coordinator, request);
    if (!entity || d.hasUnsavedChanges(entity->rootEntity()) || d.readAheads.size() >= kMaxReadAheads)
        return;
    HBReadAhead ahead{request, d.saveSerial, coordinator->storesGeneration(), {}};
    ahead.rows = HBBackgroundWork::async([stores = coordinator->persistentStores(), entity, predicate = fetchedPredicate(request),
                                          sort = request.sortDescriptors(), limit = request.fetchLimit()] {
        return readRows(stores, entity, predicate, sort, limit);
    });
    d.readAheads.push_back(std::move(ahead));
}

// The rows read ahead for the request, once read; nullopt when there are
// none or they are no longer good. Waiting for them cannot block on a file
// this thread holds: the files are only held while a save writes, and a
// save neither fetches nor takes rows read before it.
std::optional<HBStoreRowsRead> HBManagedObjectContext::Private::takeReadAhead(const HBFetchRequest &request, bool overlay,
                                                                             quint64 storesGeneration)
{
    const auto match = std::find_if(readAheads.begin(), readAheads.end(),
                                    [&request](const HBReadAhead &r) { return sameFetch(r.request, request); });
    if (match == readAheads.end())
        return std::nullopt;
    HBReadAhead taken = std::move(*match);
    readAheads.erase(match);
    HBStoreRowsRead rows = taken.rows.get();
    if (overlay || taken.saveSerial != saveSerial || taken.storesGeneration != storesGeneration)
        return std::nullopt;
    return rows;
}

QList<HBManagedObject *> HBContextFetch::execute(const HBFetchRequest &request, HBError *error)
{
    m_entity = fetchedEntity(m_coordinator, request);
    if (!m_entity) {
        if (error)
            *error = HBManagedObjectContext::error(HBManagedObjectContext::NoEntityError,
                                                   QStringLiteral("No entity named %1").arg(request.entityName()));
        return {};
    }
    m_predicate = fetchedPredicate(request);
    m_overlay = d.hasUnsavedChanges(m_entity->rootEntity());
    HBFetchRequest below = request;
    if (m_overlay)
        below.setFetchLimit(0);
    below.setRelationshipKeyPathsForPrefetching({});
    QList<HBManagedObject *> candidates;
    if (!(m_context.m_parent ? readCandidates(below, candidates, error)
                             : readCandidatesFromStores(request, candidates, error)))
        return {};
    QList<HBManagedObject *> results = filter(candidates);
    const bool addedInMemory = addChangedObjects(results);
    const QList<HBSortDescriptor> sort = request.sortDescriptors();
    if (!sort.isEmpty() && (addedInMemory || m_sources > 1 || m_filterAll || m_overlay || m_unsorted))
        HBObjectSort::sort(results, sort);
    if (request.fetchLimit() > 0 && results.size() > request.fetchLimit())
        results.resize(request.fetchLimit());
    prefetch(results, request.relationshipKeyPathsForPrefetching());
    return results;
}

HBManagedObject *HBContextFetch::adopt(const HBManagedObjectID &id, HBRowValues &&values)
{
    HBManagedObject *object = d.registered.value(id);
    if (!object) {
        object = m_context.makeObject(id.entity(), id);
        object->m_values = std::move(values);
        object->awakeFromFetch();
    } else if (object->m_fault || !object->hasChanges()) {
        const bool wasFault = object->m_fault;
        object->m_values = std::move(values);
        object->m_fault = false;
        if (wasFault)
            object->awakeFromFetch();
    }
    object->checkState();
    return object;
}

bool HBContextFetch::readCandidates(const HBFetchRequest &below, QList<HBManagedObject *> &candidates, HBError *error)
{
    HBError parentError;
    for (HBManagedObjectContext::Snapshot &s : m_context.m_parent->fetchSnapshots(below, &parentError))
        candidates.append(adopt(s.id, std::move(s.values)));
    if (!parentError.isNull()) {
        if (error)
            *error = parentError;
        return false;
    }
    m_sources = 1;
    return true;
}

bool HBContextFetch::readCandidatesFromStores(const HBFetchRequest &request, QList<HBManagedObject *> &candidates,
                                              HBError *error)
{
    std::optional<HBStoreRowsRead> read = d.takeReadAhead(request, m_overlay, m_coordinator->storesGeneration());
    if (!read)
        read = readRows(m_coordinator->persistentStores(), m_entity, m_predicate, request.sortDescriptors(),
                        m_overlay ? 0 : request.fetchLimit());
    for (auto &[store, rows] : *read) {
        if (!rows.ok) {
            if (error)
                *error = rows.error;
            return false;
        }
        m_filterAll = m_filterAll || !rows.filtered;
        m_unsorted = m_unsorted || !rows.sorted;
        // only rows of several files need merging in order
        if (!rows.rows.isEmpty())
            ++m_sources;
        const quint32 identifier = store->identifierToken();
        for (HBStoreRow &row : rows.rows) {
            if (row.entity)
                candidates.append(adopt(HBManagedObjectID::permanentID(row.entity, identifier, row.primaryKey),
                                        std::move(row.values)));
        }
    }
    return true;
}

// Each row is another object (one per store and primary key), so the
// candidates need no check against each other.
QList<HBManagedObject *> HBContextFetch::filter(const QList<HBManagedObject *> &candidates) const
{
    QList<HBManagedObject *> results;
    results.reserve(candidates.size());
    for (HBManagedObject *object : candidates) {
        if (object->m_deleted)
            continue;
        if ((m_filterAll || (m_overlay && object->hasChanges())) && !m_predicate.evaluateWithObject(object))
            continue;
        results.append(object);
    }
    return results;
}

// What is already in the results is only looked up for a changed object: a
// fetch of a segment's hundred thousand points has none. The inserted
// objects may have been saved or deleted since; that is checked here.
bool HBContextFetch::addChangedObjects(QList<HBManagedObject *> &results) const
{
    std::optional<QSet<HBManagedObject *>> seen;
    bool added = false;
    const auto add = [&](HBManagedObject *object) {
        if (object->m_deleted || !object->hasChanges() || !object->m_entity->isKindOfEntity(m_entity))
            return;
        if (!seen)
            seen.emplace(results.cbegin(), results.cend());
        if (!seen->contains(object) && m_predicate.evaluateWithObject(object)) {
            seen->insert(object);
            results.append(object);
            added = true;
        }
    };
    for (HBManagedObject *object : d.insertedByRoot[m_entity->rootEntity()]) {
        if (object->m_inserted)
            add(object);
    }
    for (HBManagedObject *object : d.updatedByRoot[m_entity->rootEntity()])
        add(object);
    return added;
}

void HBContextFetch::prefetch(const QList<HBManagedObject *> &results, const QStringList &keyPaths)
{
    for (const QString &keyPath : keyPaths) {
        const HBPropertyDescription *p = m_entity->propertyNamed(keyPath.section(u'.', 0, 0));
        if (!p || !p->isRelationship || results.isEmpty())
            continue;
        HBFetchRequest prefetch(p->destinationEntity->name());
        if (p->isToMany) {
            QList<HBManagedObject *> owners = results;
            prefetch.setPredicate(HBPredicate::format(p->inverse->name + QStringLiteral(" IN %@"), {QVariant::fromValue(owners)}));
            QHash<const HBManagedObject *, QList<HBManagedObject *>> byOwner;
            for (HBManagedObject *member : m_context.executeFetchRequest(prefetch))
                byOwner[member->objectForKey(p->inverse->name)].append(member);
            for (HBManagedObject *owner : results)
                m_context.cacheMembers(owner, p->index, byOwner.value(owner));
            continue;
        }
        QList<HBManagedObjectID> targets;
        for (HBManagedObject *owner : results) {
            const QVariant v = asID(owner->primitiveValue(p->index));
            if (v.isValid())
                targets.append(v.value<HBManagedObjectID>());
        }
        if (targets.isEmpty())
            continue;
        prefetch.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(targets)}));
        m_context.executeFetchRequest(prefetch);
    }
}

qsizetype HBContextFetch::count(const HBFetchRequest &request, HBError *error)
{
    const HBEntityDescription *entity = fetchedEntity(m_coordinator, request);
    const bool countsStores = entity && !m_context.m_parent && !request.predicate().isValid() && request.fetchLimit() <= 0
                              && !d.hasUnsavedChanges(entity->rootEntity());
    if (!countsStores)
        return execute(request, error).size();
    qsizetype rows = 0;
    for (HBPersistentStore *store : m_coordinator->persistentStores()) {
        if (store->holdsEntity(entity))
            rows += qsizetype(store->countRows(entity));
    }
    return rows;
}
