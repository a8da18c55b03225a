#pragma once

#include "platform/HBError.h"

#include <QList>
#include <QReadWriteLock>
#include <QRecursiveMutex>
#include <QString>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class HBEntityDescription;
class HBManagedObject;
class HBManagedObjectID;
class HBManagedObjectModel;
class HBPersistentStore;

// Several store files under one data model. Contexts on this coordinator
// see the union of its stores; an inserted record goes to the store it was
// assigned to, or else to the first store that may hold its entity.
class HBPersistentStoreCoordinator
{
public:
    explicit HBPersistentStoreCoordinator(const HBManagedObjectModel *model);
    ~HBPersistentStoreCoordinator();
    HBPersistentStoreCoordinator(const HBPersistentStoreCoordinator &) = delete;
    HBPersistentStoreCoordinator &operator=(const HBPersistentStoreCoordinator &) = delete;

    const HBManagedObjectModel *managedObjectModel() const { return m_model; }

    // Opens (or creates) an SQLite file under a configuration ("" for every
    // entity). Stores run with the write-ahead journal.
    HBPersistentStore *addPersistentStore(const QString &configuration, const QString &path, HBError *error);
    QList<HBPersistentStore *> persistentStores() const;
    // Changes whenever a store is added, so that callers may cache lookups.
    quint64 storesGeneration() const { return m_storesGeneration.load(); }
    HBPersistentStore *persistentStoreForURL(const QUrl &url) const;
    // the same for an absolute file path, as HBPersistentStore::path() gives it
    HBPersistentStore *persistentStoreForPath(const QString &path) const;
    HBPersistentStore *persistentStoreForIdentifier(const QString &identifier) const;
    HBPersistentStore *persistentStoreForIdentifierToken(quint32 token) const;
    HBPersistentStore *defaultStoreForEntity(const HBEntityDescription *entity) const;

    // The ID named by a permanent URI of a store of this coordinator; a null
    // ID for temporary URIs, unknown stores and unknown entities.
    HBManagedObjectID managedObjectIDForURIRepresentation(const QUrl &uri) const;
    HBManagedObjectID managedObjectIDForURIString(const QString &uri) const;
    // Gives for a key the ID "x-hbgps://<host>/<entityName>/p<key>" names,
    // the store and entity found once for all the keys; the text is only
    // written out where host and name are not of the plain form.
    std::function<HBManagedObjectID(qint64)> managedObjectIDMaker(QStringView host, QStringView entityName) const;

    void assignObject(HBManagedObject *object, HBPersistentStore *store);

    void lock() { m_lock.lock(); }
    void unlock() { m_lock.unlock(); }
    bool tryLock() { return m_lock.tryLock(); }

private:
    HBManagedObjectID permanentIDForPlainParts(QStringView host, QStringView entityName, qint64 key) const;
    // What a plain URI's parts name: the entity, when the store holds it
    // (null otherwise), and a record of it for a positive key.
    const HBEntityDescription *entityInStore(QStringView entityName, quint32 storeToken) const;
    static HBManagedObjectID permanentIDOf(const HBEntityDescription *entity, quint32 storeToken, qint64 key);

    const HBManagedObjectModel *m_model;
    mutable QReadWriteLock m_storesLock;
    std::vector<std::unique_ptr<HBPersistentStore>> m_stores;
    std::atomic<quint64> m_storesGeneration{0};
    QRecursiveMutex m_lock;
};
