#include "platform/store/HBManagedObjectContext.h"

#include "platform/HBLogging.h"
#include "platform/store/HBContextFetch.h"
#include "platform/store/HBContextQueue.h"
#include "platform/store/HBContextSave.h"
#include "platform/store/HBDeferredDeletion.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext_p.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBStorePlacement.h"
#include "platform/store/HBStoreWriter.h"


#include <algorithm>

namespace {

} // namespace

HBManagedObjectContext::HBManagedObjectContext(ConcurrencyType type, QObject *parent)
    : QObject(parent)
    , m_type(type)
    , m_queue(std::make_unique<HBContextQueue>(type == MainQueueConcurrencyType ? HBContextQueue::Kind::Main
                                                                                : HBContextQueue::Kind::Private))
    , d(std::make_unique<Private>())
{
    qRegisterMetaType<HBSaveChanges>();
}

HBManagedObjectContext::~HBManagedObjectContext()
{
    // a running drain finishes before the objects go
    m_queue.reset();
    reset();
}

void HBManagedObjectContext::setPersistentStoreCoordinator(HBPersistentStoreCoordinator *coordinator)
{
    m_coordinator = coordinator;
}

HBPersistentStoreCoordinator *HBManagedObjectContext::persistentStoreCoordinator() const
{
    return m_parent ? m_parent->persistentStoreCoordinator() : m_coordinator;
}

void HBManagedObjectContext::setParentContext(HBManagedObjectContext *parent)
{
    m_parent = parent;
}

// --- the queue --------------------------------------------------------------

void HBManagedObjectContext::performBlock(std::function<void()> block)
{
    m_queue->perform(std::move(block));
}

void HBManagedObjectContext::performBlockAndWait(const std::function<void()> &block)
{
    m_queue->performAndWait(block);
}

void HBManagedObjectContext::lock()
{
    m_queue->lock();
}

void HBManagedObjectContext::unlock()
{
    m_queue->unlock();
}

// --- objects ----------------------------------------------------------------

HBRowValues HBManagedObjectContext::valuesForAnotherContext(const HBManagedObject *object)
{
    // Another context now knows these records by their IDs; a temporary one
    // must still find its record after the record is saved.
    object->m_idHandedOut = true;
    HBRowValues copy;
    copy.reserve(object->m_values.size());
    for (const auto &[slot, value] : object->m_values) {
        if (value.metaType() == QMetaType::fromType<HBManagedObject *>()) {
            if (const HBManagedObject *related = value.value<HBManagedObject *>())
                related->m_idHandedOut = true;
        }
        copy.emplace_back(slot, asID(value));
    }
    return copy;
}

HBManagedObject *HBManagedObjectContext::Private::registeredObject(const HBManagedObjectID &id)
{
    return id.isTemporaryID() ? temporaryIndex().value(id) : registered.value(id);
}

void HBManagedObjectContext::Private::enrol(HBManagedObject *object)
{
    const HBManagedObjectID id = object->objectID();
    if (!id.isTemporaryID())
        registered.insert(object);
    else if (temporaries)
        temporaries->insert(id, object);
}

void HBManagedObjectContext::Private::unenrol(const HBManagedObjectID &id)
{
    if (!id.isTemporaryID())
        registered.remove(id);
    else if (temporaries)
        temporaries->remove(id);
}

// Until it is built, the inserted objects are the ones known by temporary
// IDs: faults are only made for a temporary ID once the index exists.
QHash<HBManagedObjectID, HBManagedObject *> &HBManagedObjectContext::Private::temporaryIndex()
{
    if (!temporaries) {
        temporaries.emplace();
        for (HBManagedObject *o : insertedOrder) {
            if (o->objectID().isTemporaryID())
                temporaries->insert(o->objectID(), o);
        }
    }
    return *temporaries;
}

HBManagedObject *HBManagedObjectContext::makeObject(const HBEntityDescription *entity, const HBManagedObjectID &objectID)
{
    HBManagedObject *object = entity->newObject();
    object->m_context = this;
    object->m_entity = entity;
    object->m_objectID = objectID;
    d->enrol(object);
    return object;
}

HBManagedObject *HBManagedObjectContext::insertNewObjectForEntityForName(const QString &entityName)
{
    HBPersistentStoreCoordinator *coordinator = persistentStoreCoordinator();
    // imports insert one entity many times over
    const HBEntityDescription *entity = d->lastInsertedEntity;
    if (!entity || entity->name() != entityName)
        entity = coordinator ? coordinator->managedObjectModel()->entityNamed(entityName) : nullptr;
    if (!entity || entity->isAbstract()) {
        qCWarning(hbStore) << "Cannot insert an object of entity" << entityName;
        return nullptr;
    }
    d->lastInsertedEntity = entity;
    HBManagedObject *object = makeObject(entity, HBManagedObjectID::temporaryID(entity));
    object->m_values.reserve(size_t(entity->typicalValueCount()));
    object->m_inserted = true;
    d->insertedOrder.push_back(object);
    d->insertedByRoot[entity->rootEntity()].push_back(object);
    d->forgetAllMembers();
    if (HBStorePlacement *placement = coordinator->managedObjectModel()->storePlacement())
        placement->placeObject(object, QVariant());
    object->awakeFromInsert();
    return object;
}

HBManagedObject *HBManagedObjectContext::objectWithID(const HBManagedObjectID &requested)
{
    if (requested.isNull())
        return nullptr;
    HBManagedObjectID objectID = requested;
    if (objectID.isTemporaryID())
        objectID = d->permanentIDForTemporary.value(objectID, objectID);
    if (HBManagedObject *object = d->registeredObject(objectID))
        return object;
    HBManagedObject *object = makeObject(objectID.entity(), objectID);
    object->m_fault = true;
    return object;
}

HBManagedObject *HBManagedObjectContext::existingObjectWithID(const HBManagedObjectID &objectID, HBError *error)
{
    HBManagedObject *object = objectWithID(objectID);
    if (!object)
        return nullptr;
    if (!object->m_fault || fulfillFault(object))
        return object;
    d->unenrol(object->m_objectID);
    delete object;
    if (error)
        *error = HBManagedObjectContext::error(NoRecordError, QStringLiteral("No record for %1").arg(objectID.uriString()));
    return nullptr;
}

bool HBManagedObjectContext::fulfillFault(HBManagedObject *object)
{
    object->m_fault = false;
    const HBManagedObjectID id = object->m_objectID;
    std::optional<HBRowValues> values;
    if (m_parent) {
        m_parent->performBlockAndWait([&] {
            HBManagedObject *p = m_parent->existingObjectWithID(id);
            if (p && !p->m_deleted)
                values = valuesForAnotherContext(p);
        });
    } else if (!id.isTemporaryID()) {
        HBPersistentStore *store = m_coordinator ? m_coordinator->persistentStoreForIdentifierToken(id.storeToken()) : nullptr;
        std::optional<HBStoreRow> row = store ? store->rowForObjectID(id) : std::nullopt;
        if (row && row->entity)
            values = std::move(row->values);
    }
    if (!values) {
        object->m_fault = true;
        return false;
    }
    object->m_values = std::move(*values);
    object->awakeFromFetch();
    return true;
}

void HBManagedObjectContext::objectDidChange(HBManagedObject *object, const HBPropertyDescription *property)
{
    if (property->isRelationship)
        d->forgetAllMembers();
    if (object->m_inserted || object->m_deleted)
        return;
    d->updated.insert(object);
    d->updatedByRoot[object->m_entity->rootEntity()].insert(object);
}

// The object leaves the cached member lists it is in, and its own lists
// go; other cached lists stay good. Deleting thousands of points whose
// extras were loaded ahead must not fetch their extras again one by one.
void HBManagedObjectContext::forgetCachedMembership(const HBManagedObject *object)
{
    for (const HBPropertyDescription *p : object->m_entity->properties()) {
        if (p->isToMany)
            continue;
        if (!p->isToOne() || !p->inverse || !p->inverse->isToMany)
            continue;
        const QVariant *value = object->findSlot(p->index);
        if (!value || !value->isValid())
            continue;
        const HBManagedObject *owner = value->metaType() == QMetaType::fromType<HBManagedObject *>()
                                           ? value->value<HBManagedObject *>()
                                           : d->registeredObject(value->value<HBManagedObjectID>());
        if (QList<HBManagedObject *> *members = owner ? cachedMembers(owner, p->inverse->index) : nullptr)
            members->removeAll(const_cast<HBManagedObject *>(object));
    }
    object->m_cachedMembers.reset();
}

QList<HBManagedObject *> *HBManagedObjectContext::cachedMembers(const HBManagedObject *owner, int index) const
{
    HBManagedObject::CachedMembers *c = HBManagedObject::CachedMembers::find(owner->m_cachedMembers, index);
    return c && c->generation == d->membersGeneration ? &c->members : nullptr;
}

void HBManagedObjectContext::cacheMembers(const HBManagedObject *owner, int index,
                                          const QList<HBManagedObject *> &members) const
{
    HBManagedObject::CachedMembers *c = HBManagedObject::CachedMembers::find(owner->m_cachedMembers, index);
    if (!c) {
        auto added = std::make_unique<HBManagedObject::CachedMembers>();
        added->index = index;
        added->next = std::move(owner->m_cachedMembers);
        owner->m_cachedMembers = std::move(added);
        c = owner->m_cachedMembers.get();
    }
    c->generation = d->membersGeneration;
    c->members = members;
}

void HBManagedObjectContext::deleteObject(HBManagedObject *object)
{
    if (!object || object->m_deleted || object->m_context != this)
        return;
    // Related objects are found before the object is marked, so that the
    // rules see the graph as it was.
    QList<std::pair<const HBPropertyDescription *, QList<HBManagedObject *>>> related;
    for (const HBPropertyDescription *p : object->m_entity->properties()) {
        if (!p->isRelationship || p->deleteRule == HBDeleteRule::NoAction)
            continue;
        if (p->isToMany)
            related.append({p, relatedObjects(object, p)});
        else if (p->deleteRule == HBDeleteRule::Cascade)
            related.append({p, {object->objectForKey(p->name)}});
    }
    object->m_deleted = true;
    d->updated.remove(object);
    d->updatedByRoot[object->m_entity->rootEntity()].remove(object);
    forgetCachedMembership(object);
    // An object inserted here and deleted again never leaves this context;
    // the next save only drops it.
    if (!object->m_inserted)
        d->deletedOrder.push_back(object);

    for (const auto &[p, members] : related) {
        for (HBManagedObject *member : members) {
            if (!member || member->m_deleted)
                continue;
            if (p->deleteRule == HBDeleteRule::Cascade)
                deleteObject(member);
            else if (p->isToMany && p->inverse)
                member->setPrimitiveValue(p->inverse->index, QVariant());
        }
    }
}

std::optional<QList<HBManagedObject *>> HBManagedObjectContext::loadedRelatedObjects(const HBManagedObject *object,
                                                                                    const HBPropertyDescription *property) const
{
    const QList<HBManagedObject *> *members = cachedMembers(object, property->index);
    if (!members)
        return std::nullopt;
    return *members;
}

QList<HBManagedObject *> HBManagedObjectContext::relatedObjects(const HBManagedObject *object,
                                                                const HBPropertyDescription *property)
{
    if (const QList<HBManagedObject *> *members = cachedMembers(object, property->index))
        return *members;
    HBFetchRequest request(property->destinationEntity->name());
    HBPredicate::Expression left{true, property->inverse->name, {}};
    HBPredicate::Expression right{false, {}, QVariant::fromValue(const_cast<HBManagedObject *>(object))};
    request.setPredicate(HBPredicate::comparison(left, HBPredicate::Operator::Equal, right));
    const QList<HBManagedObject *> members = executeFetchRequest(request);
    cacheMembers(object, property->index, members);
    return members;
}

void HBManagedObjectContext::assignObject(HBManagedObject *object, HBPersistentStore *store)
{
    if (object && object->m_context == this && object->m_objectID.isTemporaryID())
        object->m_assignedStore = store;
}

// --- fetching ---------------------------------------------------------------

QList<HBManagedObjectContext::Snapshot> HBManagedObjectContext::fetchSnapshots(const HBFetchRequest &request, HBError *error)
{
    QList<Snapshot> snapshots;
    performBlockAndWait([&] {
        for (HBManagedObject *object : executeFetchRequest(request, error))
            snapshots.append({object->m_objectID, valuesForAnotherContext(object)});
    });
    return snapshots;
}

void HBManagedObjectContext::readAhead(const HBFetchRequest &request)
{
    HBContextFetch(*this).readAhead(request);
}

QList<HBManagedObject *> HBManagedObjectContext::executeFetchRequest(const HBFetchRequest &request, HBError *error)
{
    return HBContextFetch(*this).execute(request, error);
}

qsizetype HBManagedObjectContext::countForFetchRequest(const HBFetchRequest &request, HBError *error)
{
    return HBContextFetch(*this).count(request, error);
}

QList<HBManagedObjectID> HBManagedObjectContext::executeFetchRequestForObjectIDs(const HBFetchRequest &request, HBError *error)
{
    QList<HBManagedObjectID> ids;
    for (const HBManagedObject *object : executeFetchRequest(request, error))
        ids.append(object->m_objectID);
    return ids;
}

// --- identifiers --------------------------------------------------------------

// A record nobody placed goes with a record it refers to, when that store
// may hold it: the extra attributes of a point belong in the point's file,
// since a relationship cannot cross files.
HBPersistentStore *HBManagedObjectContext::storeOfRelatedRecord(const HBManagedObject *object) const
{
    HBPersistentStoreCoordinator *coordinator = persistentStoreCoordinator();
    for (const auto &[slot, value] : object->m_values) {
        if (!object->m_entity->properties().at(slot)->isToOne() || !value.isValid())
            continue;
        HBPersistentStore *store = nullptr;
        const HBManagedObject *target = value.metaType() == QMetaType::fromType<HBManagedObject *>()
                                            ? value.value<HBManagedObject *>()
                                            : nullptr;
        HBManagedObjectID id = target ? target->m_objectID : value.value<HBManagedObjectID>();
        id = d->permanentIDForTemporary.value(id, id);
        if (id.isNull())
            continue;
        if (!id.isTemporaryID())
            store = coordinator->persistentStoreForIdentifierToken(id.storeToken());
        else if (const HBManagedObject *registered = target ? target : d->registeredObject(id))
            store = registered->m_assignedStore;
        if (store && store->holdsEntity(object->m_entity))
            return store;
    }
    return nullptr;
}

bool HBManagedObjectContext::obtainPermanentIDsForInsertedObjects(HBError *error)
{
    QList<HBManagedObject *> needIDs;
    for (HBManagedObject *o : d->insertedOrder) {
        if (o->m_inserted && !o->m_deleted && o->m_objectID.isTemporaryID())
            needIDs.append(o);
    }
    return needIDs.isEmpty() || obtainPermanentIDsForObjects(needIDs, error);
}

bool HBManagedObjectContext::obtainPermanentIDsForObjects(const QList<HBManagedObject *> &objects, HBError *error)
{
    HBPersistentStoreCoordinator *coordinator = persistentStoreCoordinator();
    if (!coordinator)
        return false;
    // one reservation per store and table
    using Group = QPair<HBPersistentStore *, const HBEntityDescription *>;
    QHash<Group, QList<HBManagedObject *>> groups;
    // a segment's points come in long runs of one store
    Group lastGroup;
    QList<HBManagedObject *> *lastMembers = nullptr;
    for (HBManagedObject *object : objects) {
        if (!object || !object->m_objectID.isTemporaryID())
            continue;
        HBPersistentStore *store = object->m_assignedStore;
        if (!store || !store->holdsEntity(object->m_entity))
            store = storeOfRelatedRecord(object);
        if (!store)
            store = coordinator->defaultStoreForEntity(object->m_entity);
        if (!store) {
            if (error)
                *error = HBManagedObjectContext::error(NoStoreForEntityError, QStringLiteral("No store holds %1").arg(object->m_entity->name()));
            return false;
        }
        const Group group(store, object->m_entity->rootEntity());
        if (!lastMembers || group != lastGroup) {
            lastGroup = group;
            lastMembers = &groups[group];
        }
        lastMembers->append(object);
    }
    QList<QPair<HBManagedObjectID, HBManagedObjectID>> changes;
    for (auto it = groups.cbegin(); it != groups.cend(); ++it) {
        const std::optional<qint64> first = it.key().first->reservePrimaryKeys(it.key().second, it.value().size(), error);
        if (!first)
            return false;
        const quint32 identifier = it.key().first->identifierToken();
        qint64 key = *first;
        for (HBManagedObject *object : it.value()) {
            const HBManagedObjectID permanent = HBManagedObjectID::permanentID(object->m_entity, identifier, key++);
            if (m_parent)
                changes.append({object->m_objectID, permanent});
            d->unenrol(object->m_objectID);
            if (object->m_idHandedOut)
                d->permanentIDForTemporary.insert(object->m_objectID, permanent);
            object->m_objectID = permanent;
            d->registered.insert(object);
        }
    }
    // ancestors that know these objects by their temporary IDs follow
    for (HBManagedObjectContext *ancestor = m_parent; ancestor && !changes.isEmpty(); ancestor = ancestor->m_parent) {
        ancestor->performBlockAndWait([&] {
            for (const auto &[temporary, permanent] : changes) {
                ancestor->d->permanentIDForTemporary.insert(temporary, permanent);
                if (HBManagedObject *object = ancestor->d->temporaryIndex().take(temporary)) {
                    object->m_objectID = permanent;
                    ancestor->d->registered.insert(object);
                }
            }
        });
    }
    return true;
}

// --- saving -------------------------------------------------------------------

bool HBManagedObjectContext::hasChanges() const
{
    for (const HBManagedObject *o : d->insertedOrder) {
        if (o->m_inserted && !o->m_deleted)
            return true;
    }
    return !d->updated.isEmpty() || !d->deletedOrder.empty();
}

QList<HBManagedObject *> HBManagedObjectContext::insertedObjects() const
{
    QList<HBManagedObject *> list;
    for (HBManagedObject *o : d->insertedOrder) {
        if (o->m_inserted && !o->m_deleted)
            list.append(o);
    }
    return list;
}

QList<HBManagedObject *> HBManagedObjectContext::updatedObjects() const
{
    return QList<HBManagedObject *>(d->updated.begin(), d->updated.end());
}

QList<HBManagedObject *> HBManagedObjectContext::deletedObjects() const
{
    return QList<HBManagedObject *>(d->deletedOrder.begin(), d->deletedOrder.end());
}

qsizetype HBManagedObjectContext::registeredObjectCount() const
{
    return d->registered.size() + d->temporaryIndex().size();
}

bool HBManagedObjectContext::save(HBError *error)
{
    return HBContextSave(*this).run(error);
}

const HBRowValues &HBManagedObjectContext::valuesOf(const HBManagedObject *object)
{
    object->fireFault();
    return object->m_values;
}

void HBManagedObjectContext::reset()
{
    // Every object is in the index of permanent IDs, or lies in the
    // graveyard once its deletion was saved, or is an inserted one known by
    // a temporary ID, which is in the temporary index only if that was
    // built; such an object is checked for being there rather than every
    // object gathered into a set, which for an import's million points
    // costs more than deleting them.
    std::vector<HBManagedObject *> all = d->registered.objects();
    if (d->temporaries)
        all.insert(all.end(), d->temporaries->begin(), d->temporaries->end());
    all.insert(all.end(), d->graveyard.begin(), d->graveyard.end());
    for (HBManagedObject *o : d->insertedOrder) {
        if (o->m_objectID.isTemporaryID() && !(d->temporaries && d->temporaries->value(o->m_objectID) == o))
            all.push_back(o);
    }
    d->registered.clear();
    d->temporaries.reset();
    d->permanentIDForTemporary.clear();
    d->insertedOrder.clear();
    d->updated.clear();
    d->deletedOrder.clear();
    d->insertedByRoot.clear();
    d->updatedByRoot.clear();
    d->graveyard.clear();
    d->forgetAllMembers();
    d->readAheads.clear();   // waits for any still being read
    if (all.size() >= HBDeferredDeletion::worthAThread)
        HBDeferredDeletion::deleteObjects(std::move(all));
    else
        qDeleteAll(all);
}
