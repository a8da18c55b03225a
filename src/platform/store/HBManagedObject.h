#pragma once

#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBStoreRow.h"

#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariant>

#include <memory>

class HBEntityDescription;
class HBManagedObjectContext;
class HBPersistentStore;
struct HBPropertyDescription;

// A record in a context. Not a QObject: there are millions of track points.
// Only the values that are set are kept; a fault knows its ID and loads its
// values from the layer below on first access.
//
// To-one relationships hold the destination object (or its ID until first
// read); to-many relationships are the inverse view of the destination's
// to-one and are answered by the context.
class HBManagedObject
{
public:
    HBManagedObject() = default;
    virtual ~HBManagedObject();
    HBManagedObject(const HBManagedObject &) = delete;
    HBManagedObject &operator=(const HBManagedObject &) = delete;

    HBManagedObjectContext *managedObjectContext() const { return m_context; }
    const HBEntityDescription *entity() const { return m_entity; }
    HBManagedObjectID objectID() const { return m_objectID; }

    // The states of a record in its context, by its flags:
    //
    //   state               inserted deleted fault changed  its context lists it in
    //   new                 yes      no      no    any      insertedOrder
    //   new, deleted again  yes      yes     no    any      insertedOrder (dropped at the save)
    //   fault               no       no      yes   none     -
    //   loaded              no       no      no    none     -
    //   updated             no       no      no    some     updated
    //   deleted             no       yes     any   any      deletedOrder (gone after the save)
    //
    // A save turns new and updated records into loaded ones and takes
    // deleted ones out of the context; a reset forgets them all.
    bool isInserted() const { return m_inserted; }
    bool isDeleted() const { return m_deleted; }
    bool isUpdated() const { return !m_inserted && !m_deleted && m_changed != 0; }
    bool isFault() const { return m_fault; }
    // Debug builds stop on a combination of flags the table does not have.
    void checkState() const
    {
        Q_ASSERT_X(!m_fault || (!m_inserted && m_changed == 0), "HBManagedObject", "a fault is neither new nor changed");
    }
    bool hasChanges() const { return m_inserted || m_deleted || m_changed != 0; }

    // Attribute values; a to-one relationship reads as HBManagedObject*,
    // a to-many one as QList<HBManagedObject *>.
    QVariant valueForKey(const QString &key) const;
    void setValueForKey(const QVariant &value, const QString &key);
    // Follows to-one relationships; subclasses answer their derived keys in
    // valueForUndefinedKey.
    QVariant valueForKeyPath(const QString &keyPath) const;

    // Typed shortcuts for the model classes.
    HBManagedObject *objectForKey(const QString &key) const;
    QList<HBManagedObject *> objectsForKey(const QString &key) const;
    void setObjectForKey(HBManagedObject *object, const QString &key);
    // Replaces the members of a to-many relationship by setting (or clearing)
    // the inverse to-one of each object concerned.
    void setObjectsForKey(const QList<HBManagedObject *> &objects, const QString &key);

    // The value slot without relationship resolution (IDs stay IDs).
    QVariant primitiveValue(int slot) const;
    void setPrimitiveValue(int slot, const QVariant &value, bool markChanged = true);

    // Store hooks, called by the context.
    virtual void awakeFromInsert() {}
    virtual void awakeFromFetch() {}
    virtual void willSave() {}
    virtual void didSave() {}

protected:
    // An unsaved object whose store depends on one of its values says so
    // when that value changes; see HBStorePlacement.
    void routingKeyDidChange(const QVariant &key);
    virtual QVariant valueForUndefinedKey(const QString &key) const;
    const HBPropertyDescription *property(const QString &key) const;
    // objectForKey for a property looked up once by the caller
    HBManagedObject *objectForProperty(const HBPropertyDescription *property) const;

private:
    friend class HBManagedObjectContext;
    friend class HBContextFetch;
    friend class HBContextSave;
    // Inline: every read and write of a value asks first.
    void fireFault() const
    {
        if (m_fault)
            fulfillFault();
    }
    void fulfillFault() const;
    QVariant *findSlot(int slot) const;

    // The members of one of its to-many relationships as its context last
    // found them, good while the context's membership generation is the
    // one noted. Kept on the object rather than in a table of the context:
    // an export asks a million points for their extras.
    struct CachedMembers
    {
        quint64 generation = 0;
        int index = -1;
        QList<HBManagedObject *> members;
        std::unique_ptr<CachedMembers> next;

        // The entry for the relationship in the list from first, good or not.
        static CachedMembers *find(const std::unique_ptr<CachedMembers> &first, int index)
        {
            CachedMembers *c = first.get();
            while (c && c->index != index)
                c = c->next.get();
            return c;
        }
    };

    HBRowValues m_values;
    mutable std::unique_ptr<CachedMembers> m_cachedMembers;
    HBManagedObjectContext *m_context = nullptr;
    const HBEntityDescription *m_entity = nullptr;
    HBManagedObjectID m_objectID;
    HBPersistentStore *m_assignedStore = nullptr;
    quint64 m_changed = 0;     // one bit per property slot
    bool m_inserted = false;
    bool m_deleted = false;
    mutable bool m_fault = false;
    // another context knows it by its temporary ID: the owner keeps the
    // temporary -> permanent mapping for it after the save
    mutable bool m_idHandedOut = false;
    quint32 m_hookedInSave = 0;   // the context's save serial when willSave last ran
};

Q_DECLARE_METATYPE(HBManagedObject *)
Q_DECLARE_METATYPE(QList<HBManagedObject *>)
Q_DECLARE_METATYPE(QList<HBManagedObjectID>)
