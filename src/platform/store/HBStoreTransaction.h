#pragma once

#include "platform/HBError.h"
#include "platform/store/HBStoreRow.h"

#include <QStringList>

#include <span>

class HBEntityDescription;
class HBPersistentStore;

// A write transaction on one store file, and the only way to write one.
//
// From begin() to commit() or its destruction it holds the store's lock,
// so that no other thread reads or writes the store in between and the
// connection is not closed under it; it rolls back in its destructor unless
// committed, so that every way out of a failed write leaves the file as it
// was. Not copyable or movable: it belongs to the thread and scope that
// began it.
class HBStoreTransaction
{
public:
    explicit HBStoreTransaction(HBPersistentStore &store);
    ~HBStoreTransaction();
    HBStoreTransaction(const HBStoreTransaction &) = delete;
    HBStoreTransaction &operator=(const HBStoreTransaction &) = delete;

    // Takes the lock and begins (waiting for another process's write);
    // false, without the lock, when the file cannot be opened or written.
    bool begin(HBError *error);
    // True when the rows reached the file; false (and rolled back) otherwise.
    bool commit(HBError *error);
    void rollback();

    // A row to insert; the values stay the caller's.
    struct NewRow
    {
        qint64 primaryKey = 0;
        const HBEntityDescription *entity = nullptr;
        const HBRowValues *values = nullptr;
    };
    // In the order given. Stops at the first row the file refuses; the
    // transaction can then only be rolled back.
    bool insertRows(std::span<const NewRow> rows, HBError *error);
    bool updateRow(qint64 primaryKey, const HBEntityDescription *entity, const HBRowValues &values, HBError *error);
    bool deleteRow(qint64 primaryKey, const HBEntityDescription *entity, HBError *error);
    // Every row of the entity's table with a key from first to last.
    bool deleteRows(const HBEntityDescription *entity, qint64 firstKey, qint64 lastKey, HBError *error,
                    qint64 *deleted = nullptr);
    // A save across several files marks, inside its transaction on the file
    // it commits last, that it reached that file, so that a save cut off
    // between its commits can later tell whether it was decided; marks of
    // saves known to be finished are dropped in the same transaction.
    bool recordSaveToken(const QString &token, const QStringList &forget, HBError *error);

private:
    HBPersistentStore &m_store;
    bool m_open = false;
};
