#include "platform/store/HBContextSave.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext_p.h"

HBContextSave::HBContextSave(HBManagedObjectContext &context)
    : m_context(context)
    , d(*context.d)
{
}

bool HBContextSave::run(HBError *error)
{
    if (!m_context.hasChanges())
        return true;
    // New objects get their permanent IDs before the hooks, which write the
    // IDs of related objects (a point its segment's): a store that cannot
    // hand out keys, on a full disk, then fails the save once rather than
    // every hook of a million points.
    if (!m_context.m_parent && !m_context.obtainPermanentIDsForInsertedObjects(error))
        return false;
    runWillSaveHooks();
    Changes pending;
    std::vector<HBManagedObject *> dropped;
    gatherChanges(pending, dropped);
    bool saved = true;
    if (m_context.m_parent) {
        pushIntoParent(pending);
    } else {
        // those the hooks inserted
        if (!m_context.obtainPermanentIDsForInsertedObjects(error))
            return false;
        renameTemporaryIDs(pending);
        HBStoreWriter writer(m_context.m_coordinator);
        if (!writer.place(pending, error))
            return false;
        saved = writer.write(pending, error);
    }
    settleSaved(pending, dropped, saved);
    return saved;
}

// Hooks may change or insert further objects; those get their hook in the
// next round.
void HBContextSave::runWillSaveHooks()
{
    const quint32 saveSerial = ++d.saveSerial;
    for (int round = 0; round < 16; ++round) {
        std::vector<HBManagedObject *> due;
        auto collect = [&](HBManagedObject *o) {
            if (o->m_hookedInSave != saveSerial) {
                o->m_hookedInSave = saveSerial;
                due.push_back(o);
            }
        };
        for (HBManagedObject *o : d.insertedOrder) {
            if (o->m_inserted && !o->m_deleted)
                collect(o);
        }
        for (HBManagedObject *o : std::as_const(d.updated))
            collect(o);
        for (HBManagedObject *o : d.deletedOrder)
            collect(o);
        if (due.empty())
            break;
        for (HBManagedObject *o : due)
            o->willSave();
    }
}

// Objects inserted and deleted again before the save are dropped without
// a trace.
void HBContextSave::gatherChanges(Changes &pending, std::vector<HBManagedObject *> &dropped) const
{
    for (HBManagedObject *o : d.insertedOrder) {
        if (o->m_inserted)
            (o->m_deleted ? dropped : pending.inserted).push_back(o);
    }
    pending.updated.assign(d.updated.begin(), d.updated.end());
    pending.deleted = d.deletedOrder;
}

void HBContextSave::pushIntoParent(const Changes &pending)
{
    m_context.m_parent->performBlockAndWait([&] {
        HBManagedObjectContext::Private *p = m_context.m_parent->d.get();
        for (HBManagedObject *o : pending.inserted) {
            HBManagedObject *copy = m_context.m_parent->makeObject(o->m_entity, o->m_objectID);
            copy->m_values = HBManagedObjectContext::valuesForAnotherContext(o);
            copy->m_idHandedOut = true;
            copy->m_assignedStore = o->m_assignedStore;
            copy->m_inserted = true;
            p->insertedOrder.push_back(copy);
            p->insertedByRoot[copy->m_entity->rootEntity()].push_back(copy);
        }
        for (HBManagedObject *o : pending.updated) {
            HBManagedObject *target = m_context.m_parent->objectWithID(o->m_objectID);
            for (const auto &[slot, value] : o->m_values) {
                if (slot < 64 && (o->m_changed & (quint64(1) << slot)))
                    target->setPrimitiveValue(slot, asID(value));
            }
            // cleared values are absent from m_values but still changed
            for (int slot = 0; slot < 64; ++slot) {
                if ((o->m_changed & (quint64(1) << slot)) && !o->findSlot(slot))
                    target->setPrimitiveValue(slot, QVariant());
            }
        }
        for (HBManagedObject *o : pending.deleted) {
            HBManagedObject *target = m_context.m_parent->objectWithID(o->m_objectID);
            if (target->m_deleted)
                continue;
            target->m_deleted = true;
            p->updated.remove(target);
            p->updatedByRoot[target->m_entity->rootEntity()].remove(target);
            if (!target->m_inserted)
                p->deletedOrder.push_back(target);
        }
        p->forgetAllMembers();
    });
}

// Values copied in from a child name related records by the IDs they had
// then; those that became permanent are named anew.
void HBContextSave::renameTemporaryIDs(const Changes &pending)
{
    if (d.permanentIDForTemporary.isEmpty())
        return;
    const auto rename = [this](HBManagedObject *o) {
        for (auto &[slot, value] : o->m_values) {
            if (value.metaType() != QMetaType::fromType<HBManagedObjectID>())
                continue;
            const HBManagedObjectID id = value.value<HBManagedObjectID>();
            if (id.isTemporaryID() && d.permanentIDForTemporary.contains(id))
                value = QVariant::fromValue(d.permanentIDForTemporary.value(id));
        }
    };
    for (HBManagedObject *o : pending.inserted)
        rename(o);
    for (HBManagedObject *o : pending.updated)
        rename(o);
}

// What was saved is now clean here; what a store refused stays pending.
void HBContextSave::settleSaved(const Changes &pending, const std::vector<HBManagedObject *> &dropped, bool saved)
{
    HBSaveChanges changes;
    changes.inserted.reserve(qsizetype(pending.inserted.size()));
    for (HBManagedObject *o : pending.inserted) {
        o->m_inserted = false;
        o->m_changed = 0;
        changes.inserted.append(o->m_objectID);
    }
    for (HBManagedObject *o : pending.updated) {
        o->m_changed = 0;
        d.updated.remove(o);
        changes.updated.append(o->m_objectID);
    }
    QSet<HBManagedObject *> gone;
    for (HBManagedObject *o : pending.deleted) {
        gone.insert(o);
        changes.deleted.append(o->m_objectID);
    }
    for (HBManagedObject *o : dropped) {
        o->m_inserted = false;
        gone.insert(o);
    }
    forgetSettled(gone, saved);
    for (HBManagedObject *o : pending.inserted) {
        o->checkState();
        o->didSave();
    }
    for (HBManagedObject *o : pending.updated)
        o->didSave();
    for (HBManagedObject *o : pending.deleted)
        o->didSave();
    if (!changes.inserted.isEmpty() || !changes.updated.isEmpty() || !changes.deleted.isEmpty())
        emit m_context.didSave(changes);
}

// Every object in the insertion lists was saved or dropped, unless a store
// refused its part; walking a million objects again to find that out
// would cost more than the save's own bookkeeping.
void HBContextSave::forgetSettled(const QSet<HBManagedObject *> &gone, bool saved)
{
    const auto notInserted = [](const HBManagedObject *o) { return !o->m_inserted; };
    for (auto it = d.insertedByRoot.begin(); it != d.insertedByRoot.end(); ++it) {
        if (saved)
            it->clear();
        else
            std::erase_if(*it, notInserted);
    }
    if (saved)
        d.insertedOrder.clear();
    else
        std::erase_if(d.insertedOrder, notInserted);
    std::erase_if(d.deletedOrder, [&gone](HBManagedObject *o) { return gone.contains(o); });
    for (auto it = d.updatedByRoot.begin(); it != d.updatedByRoot.end(); ++it)
        it->removeIf([](HBManagedObject *o) { return !o->hasChanges(); });
    for (HBManagedObject *o : gone) {
        d.unenrol(o->m_objectID);
        d.graveyard.push_back(o);
    }
}
