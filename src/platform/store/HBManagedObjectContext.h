#pragma once

#include "platform/HBError.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBStoreRow.h"

#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

class HBEntityDescription;
class HBContextQueue;
class HBManagedObject;
class HBPersistentStore;
class HBPersistentStoreCoordinator;
struct HBPropertyDescription;

// What a save changed, by object ID, as the did-save signal reports it.
struct HBSaveChanges
{
    QList<HBManagedObjectID> inserted;
    QList<HBManagedObjectID> updated;
    QList<HBManagedObjectID> deleted;
};
Q_DECLARE_METATYPE(HBSaveChanges)

// A scratch pad of records over a coordinator (a root context) or over
// another context (a child). Work on a context runs on its queue: its own
// serial queue for a private-queue context, the Qt main thread for a
// main-queue context. Each context keeps one object per ID.
//
// Invariants:
//  1. Objects of a context are touched only on its queue (or under lock()).
//  2. A fetch sees the stores overlaid with the unsaved changes of the
//     context and of every ancestor.
//  3. save() of a child moves its changes into the parent; save() of a root
//     writes them to the files, one transaction per store: a store holds
//     all of a save's rows for it or none.
//  4. An object keeps a temporary ID until it is saved to a file or is
//     given a permanent ID, which then never changes.
class HBManagedObjectContext : public QObject
{
    Q_OBJECT
public:
    enum ConcurrencyType { PrivateQueueConcurrencyType, MainQueueConcurrencyType };

    explicit HBManagedObjectContext(ConcurrencyType type, QObject *parent = nullptr);
    ~HBManagedObjectContext() override;

    ConcurrencyType concurrencyType() const { return m_type; }
    void setPersistentStoreCoordinator(HBPersistentStoreCoordinator *coordinator);
    // The coordinator of the root of this context's chain.
    HBPersistentStoreCoordinator *persistentStoreCoordinator() const;
    void setParentContext(HBManagedObjectContext *parent);
    HBManagedObjectContext *parentContext() const { return m_parent; }

    // Runs the block on the context's queue, later / now. Waiting from the
    // queue itself runs the block at once.
    void performBlock(std::function<void()> block);
    void performBlockAndWait(const std::function<void()> &block);
    void lock();
    void unlock();

    HBManagedObject *insertNewObjectForEntityForName(const QString &entityName);
    template<class T> T *insertNewObject(const QString &entityName)
    {
        return static_cast<T *>(insertNewObjectForEntityForName(entityName));
    }
    // Marks the object deleted and applies the model's delete rules.
    void deleteObject(HBManagedObject *object);
    HBManagedObject *objectWithID(const HBManagedObjectID &objectID);
    HBManagedObject *existingObjectWithID(const HBManagedObjectID &objectID, HBError *error = nullptr);
    // The members of a to-many relationship when a prefetch or an earlier
    // read has loaded them and nothing changed since, without a fetch.
    std::optional<QList<HBManagedObject *>> loadedRelatedObjects(const HBManagedObject *object,
                                                                 const HBPropertyDescription *property) const;
    QList<HBManagedObject *> executeFetchRequest(const HBFetchRequest &request, HBError *error = nullptr);
    // Starts reading the rows the files hold for the request on a thread
    // of its own, so that the work done meanwhile overlaps the reading; the
    // next executeFetchRequest of a copy of this request takes them. They
    // are read again instead if this context saves, or has unsaved changes
    // to the entity, or the coordinator gains a file in between. Only a
    // context over a coordinator reads ahead.
    void readAhead(const HBFetchRequest &request);
    QList<HBManagedObjectID> executeFetchRequestForObjectIDs(const HBFetchRequest &request, HBError *error = nullptr);
    qsizetype countForFetchRequest(const HBFetchRequest &request, HBError *error = nullptr);

    bool obtainPermanentIDsForObjects(const QList<HBManagedObject *> &objects, HBError *error = nullptr);
    void assignObject(HBManagedObject *object, HBPersistentStore *store);

    bool hasChanges() const;
    bool save(HBError *error = nullptr);
    // Forgets every object; pointers handed out before become invalid.
    void reset();

    QList<HBManagedObject *> insertedObjects() const;
    QList<HBManagedObject *> updatedObjects() const;
    QList<HBManagedObject *> deletedObjects() const;
    qsizetype registeredObjectCount() const;

    static QString errorDomain() { return QStringLiteral("HBManagedObjectContextErrorDomain"); }
    // The codes of this domain's errors.
    enum ErrorCode {
        NoRecordError = 133000,                 // an ID whose record no store holds
        NoStoreForEntityError = 134020,         // no store may hold a new record's entity
        CrossStoreRelationshipError = 134021,   // a relationship between records of different files
        StoreRefusedSaveError = 134030,         // a store file refused a save's rows
        NoStoreForRecordError = 134031,         // a record's ID names no store of the coordinator
        NoEntityError = 134810,                 // a fetch of an entity the model does not have
    };
    static HBError error(ErrorCode code, const QString &description)
    {
        return HBError(errorDomain(), code, description);
    }
    // The values an object would write (loaded first if it is a fault).
    static const HBRowValues &valuesOf(const HBManagedObject *object);

signals:
    // Emitted on the context's queue after a successful save.
    void didSave(const HBSaveChanges &changes);

private:
    friend class HBManagedObject;
    friend class HBContextFetch;
    friend class HBContextSave;
    struct Private;
    struct Snapshot;
    // A new object of this context, registered under the ID.
    HBManagedObject *makeObject(const HBEntityDescription *entity, const HBManagedObjectID &objectID);
    void objectDidChange(HBManagedObject *object, const HBPropertyDescription *property);
    QList<HBManagedObject *> relatedObjects(const HBManagedObject *object, const HBPropertyDescription *property);
    bool fulfillFault(HBManagedObject *object);
    HBPersistentStore *storeOfRelatedRecord(const HBManagedObject *object) const;
    bool obtainPermanentIDsForInsertedObjects(HBError *error);
    void forgetCachedMembership(const HBManagedObject *object);
    // nullptr where the members are not cached, or no longer good
    QList<HBManagedObject *> *cachedMembers(const HBManagedObject *owner, int index) const;
    void cacheMembers(const HBManagedObject *owner, int index, const QList<HBManagedObject *> &members) const;
    // The object's values with relationships as IDs, for a child or parent.
    static HBRowValues valuesForAnotherContext(const HBManagedObject *object);
    QList<Snapshot> fetchSnapshots(const HBFetchRequest &request, HBError *error);

    ConcurrencyType m_type;
    std::unique_ptr<HBContextQueue> m_queue;
    HBManagedObjectContext *m_parent = nullptr;
    HBPersistentStoreCoordinator *m_coordinator = nullptr;
    std::unique_ptr<Private> d;
};
