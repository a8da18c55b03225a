#pragma once

#include "platform/HBError.h"
#include "platform/store/HBSortDescriptor.h"
#include "platform/store/HBStoreRow.h"
#include "platform/store/HBStoreTransaction.h"

#include <QList>
#include <QRecursiveMutex>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>
#include <optional>
#include <span>

class HBEntityDescription;
class HBManagedObjectID;
class HBManagedObjectModel;
class HBPredicate;

// One SQLite file of a coordinator, opened under a configuration (the
// entities it may hold). Each root entity of the configuration has one
// table shared by its sub-entities; the file also records its schema
// version, its identifier and the highest primary key handed out per table.
//
// Lifecycle:
//  1. constructed (nothing open)  2. load(): file opened or created, journal
//  in WAL mode, schema brought up to date in one transaction, identifier
//  read or minted; or loadLater(): known by the identifier it was last seen
//  with, opened and checked at its first use  3. rows read, and written
//  only inside an HBStoreTransaction  4. destroyed: file closed.
// The connection is opened when a call needs it and may be closed between
// calls when the process has too many open (see HBStoreConnectionLimit);
// the store stays usable and keeps its identifier throughout.
// Every call takes the store's mutex, so one store may serve several threads.
class HBPersistentStore
{
public:
    HBPersistentStore(const HBManagedObjectModel *model, QString path, QString configurationName);
    ~HBPersistentStore();
    HBPersistentStore(const HBPersistentStore &) = delete;
    HBPersistentStore &operator=(const HBPersistentStore &) = delete;

    bool load(HBError *error);
    void loadLater(const QString &identifier);
    // Closes the connection unless a call or a transaction is using it or
    // another thread holds the store; true when it is closed.
    bool closeConnectionIfIdle();
    bool isConnected() const;

    QString path() const { return m_path; }
    QUrl URL() const { return QUrl::fromLocalFile(m_path); }
    QString configurationName() const { return m_configuration; }
    const HBManagedObjectModel *model() const { return m_model; }
    bool holdsEntity(const HBEntityDescription *entity) const;

    QString identifier() const;
    // The identifier as object IDs carry it (interned, case-insensitive).
    quint32 identifierToken() const;
    // Kept in the file, so that the store keeps its identity across runs.
    bool setIdentifier(const QString &identifier);

    // Hands out `count` new primary keys for the entity's table; returns the first.
    std::optional<qint64> reservePrimaryKeys(const HBEntityDescription *entity, qint64 count, HBError *error);

    struct FetchResult
    {
        bool ok = true;
        // false when the predicate could not be written as SQL: the rows are
        // then every row of the entity and the caller filters them
        bool filtered = true;
        // false when the rows come in the order the file scans them, for
        // the caller to sort stably
        bool sorted = true;
        QList<HBStoreRow> rows;
        HBError error;
    };
    FetchResult fetchRows(const HBEntityDescription *entity, const HBPredicate &predicate,
                          const QList<HBSortDescriptor> &sortDescriptors, int fetchLimit);
    std::optional<HBStoreRow> rowForObjectID(const HBManagedObjectID &objectID, HBError *error = nullptr);
    qint64 countRows(const HBEntityDescription *entity);

    // Writes go through an HBStoreTransaction.

    // Whether the save marked with the token committed here (see
    // HBStoreTransaction::recordSaveToken); nothing when the file could not
    // be read.
    std::optional<bool> holdsSaveToken(const QString &token, HBError *error);

    static QString errorDomain() { return QStringLiteral("HBPersistentStoreErrorDomain"); }

private:
    friend class HBStoreTransaction;
    // Opens the connection when it is closed; with the mutex held.
    bool connect(HBError *error);
    // The transaction's side: begin takes the mutex and, on success, keeps
    // it until commit or rollback; the calls between need it held.
    bool beginTransaction(HBError *error);
    bool commit(HBError *error);
    void rollback();
    bool insertRows(std::span<const HBStoreTransaction::NewRow> rows, HBError *error);
    bool updateRow(qint64 primaryKey, const HBEntityDescription *entity, const HBRowValues &values, HBError *error);
    bool deleteRow(qint64 primaryKey, const HBEntityDescription *entity, HBError *error);
    bool deleteRows(const HBEntityDescription *entity, qint64 firstKey, qint64 lastKey, HBError *error, qint64 *deleted);
    bool recordSaveToken(const QString &token, const QStringList &forget, HBError *error);

    struct Private;
    std::unique_ptr<Private> d;
    const HBManagedObjectModel *m_model;
    QString m_path;
    QString m_configuration;
    mutable QRecursiveMutex m_mutex;
};
