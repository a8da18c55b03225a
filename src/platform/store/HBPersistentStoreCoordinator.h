#pragma once

#include "platform/HBError.h"
#include "platform/store/HBLockOrder.h"
#include "platform/store/HBSaveNote.h"

#include <QList>
#include <QMutex>
#include <QStringList>
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
    // entity). Stores run with the write-ahead journal. With the identifier
    // the file is known by, it is added without being opened, and opened at
    // its first use.
    HBPersistentStore *addPersistentStore(const QString &configuration, const QString &path, HBError *error,
                                          const QString &knownIdentifier = {});
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

    // The store whose records the others refer to. A save that writes it
    // and others commits the others first and this one last, and undoes
    // what it wrote when it cannot commit this one; unset, every store
    // commits on its own.
    void setCommitLastStore(HBPersistentStore *store) { m_commitLast.store(store); }
    HBPersistentStore *commitLastStore() const { return m_commitLast.load(); }
    // Where such saves leave their notes (see HBSaveNote); unset, a save
    // still undoes its own failures but leaves nothing for a later run.
    void setSaveNoteFolder(const QString &folder);
    QString saveNoteFolder() const;
    // Repairs what saves cut off between their commits left behind, by
    // this process or another that is gone, logging what was removed.
    // Returns the number of saves repaired.
    int finishUnfinishedSaves();
    // Takes out the rows a save added before its last commit (after that
    // commit failed); true when they are all gone.
    bool undoSave(const HBSaveNote &note);
    // Tokens of finished saves, dropped by the next save's last commit.
    void noteFinishedSave(const QString &token);
    QStringList takeFinishedSaves();

    void lock()
    {
        m_lock.lock();
        HB_WILL_LOCK(Coordinator);
    }
    void unlock()
    {
        HB_DID_UNLOCK(Coordinator);
        m_lock.unlock();
    }
    bool tryLock()
    {
        if (!m_lock.tryLock())
            return false;
        HB_WILL_LOCK(Coordinator);
        return true;
    }

private:
    // Deletes the noted rows from their files, opening a file not open here
    // for the purpose; `done` says in the log what the rows were.
    bool removeNotedRows(const QList<HBSaveNote::StoreRows> &stores, const QString &done);
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
    std::atomic<HBPersistentStore *> m_commitLast{nullptr};
    mutable QMutex m_savesLock;   // the two below
    QString m_saveNoteFolder;
    QStringList m_finishedSaves;
};
