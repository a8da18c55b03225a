#include "platform/store/HBStoreWriter.h"

#include "platform/HBConcurrentFor.h"
#include "platform/HBLogging.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectContext_p.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBSaveNote.h"
#include "platform/store/HBStoreTransaction.h"

#include <QUuid>

#include <algorithm>

namespace {

using Changes = HBStoreWriter::Changes;

// Which of a store's changes one transaction writes.
enum WritePart : unsigned { Inserts = 1, Updates = 2, Deletes = 4, AllParts = 7 };

// One transaction: the store holds all of these rows or none of them.
// `beforeCommit` adds what else the transaction must carry.
bool writeToStore(HBPersistentStore *store, const Changes &c, unsigned parts, HBError *failure,
                  const std::function<bool(HBStoreTransaction &, HBError *)> &beforeCommit = {})
{
    HBStoreTransaction transaction(*store);
    if (!transaction.begin(failure))
        return false;
    bool ok = true;
    // handed over a slice at a time, so that a million rows need no second list
    constexpr size_t rowsPerSlice = 4096;
    std::vector<HBStoreTransaction::NewRow> slice;
    const size_t inserted = (parts & Inserts) ? c.inserted.size() : 0;
    for (size_t first = 0; ok && first < inserted; first += rowsPerSlice) {
        slice.clear();
        for (size_t i = first; i < std::min(inserted, first + rowsPerSlice); ++i) {
            const HBManagedObject *object = c.inserted[i];
            slice.push_back({object->objectID().primaryKey(), object->entity(), &HBManagedObjectContext::valuesOf(object)});
        }
        ok = transaction.insertRows(slice, failure);
    }
    for (auto it = c.updated.begin(); ok && (parts & Updates) && it != c.updated.end(); ++it)
        ok = transaction.updateRow((*it)->objectID().primaryKey(), (*it)->entity(), HBManagedObjectContext::valuesOf(*it), failure);
    for (auto it = c.deleted.begin(); ok && (parts & Deletes) && it != c.deleted.end(); ++it)
        ok = transaction.deleteRow((*it)->objectID().primaryKey(), (*it)->entity(), failure);
    if (ok && beforeCommit)
        ok = beforeCommit(transaction, failure);
    return ok && transaction.commit(failure);
}

// Each store file has a connection and a lock of its own, so the stores
// of a large save are written side by side: an import's points fill
// several ten-day files at once. Small saves stay on the calling thread.
// One failure per store, null where the store took its rows.
std::vector<HBError> writeToStores(const QList<HBPersistentStore *> &order, const QHash<HBPersistentStore *, Changes> &work,
                                   unsigned parts = AllParts)
{
    constexpr size_t rowsWorthThreads = 10000;
    size_t rows = 0;
    for (const Changes &c : work)
        rows += c.inserted.size() + c.updated.size() + c.deleted.size();
    std::vector<HBError> failures(size_t(order.size()));
    const auto write = [&](qsizetype i) {
        HBPersistentStore *store = order.at(i);
        HBError failure;
        if (!writeToStore(store, *work.constFind(store), parts, &failure))
            failures[size_t(i)] = failure.isNull() ? HBError(QStringLiteral("HBPersistentStore"), 0, store->path()) : failure;
    };
    if (order.size() > 1 && rows >= rowsWorthThreads) {
        HBConcurrentFor(order.size(), write);
    } else {
        for (qsizetype i = 0; i < order.size(); ++i)
            write(i);
    }
    return failures;
}

HBError storeFailure(const HBPersistentStore *store, const HBError &cause)
{
    HBError error = HBManagedObjectContext::error(HBManagedObjectContext::StoreRefusedSaveError,
                                                  QStringLiteral("The changes could not be saved to %1.").arg(store->path()));
    error.setDetailedErrors({cause});
    return error;
}

// What a save noted of one store: the keys of the rows it writes there.
HBSaveNote::StoreRows notedRows(const HBPersistentStore *store, const std::vector<HBManagedObject *> &objects)
{
    QHash<const HBEntityDescription *, std::vector<qint64>> keysByTable;
    for (const HBManagedObject *o : objects)
        keysByTable[o->entity()->rootEntity()].push_back(o->objectID().primaryKey());
    HBSaveNote::StoreRows noted{store->path(), store->configurationName(), {}};
    for (auto it = keysByTable.begin(); it != keysByTable.end(); ++it)
        noted.rows += HBSaveNote::runsOfKeys(it.key()->name(), std::move(it.value()));
    return noted;
}

} // namespace

HBStoreWriter::HBStoreWriter(HBPersistentStoreCoordinator *coordinator)
    : m_coordinator(coordinator)
{
}

HBPersistentStore *HBStoreWriter::storeOfToken(quint32 token)
{
    if (token != m_lastToken || !m_lastStore) {
        m_lastToken = token;
        m_lastStore = m_coordinator->persistentStoreForIdentifierToken(token);
    }
    return m_lastStore;
}

// A relationship must stay inside one file.
bool HBStoreWriter::placeObject(HBManagedObject *object, std::vector<HBManagedObject *> Changes::*list, HBError *error)
{
    HBPersistentStore *store = storeOfToken(object->objectID().storeToken());
    if (!store) {
        if (error)
            *error = HBManagedObjectContext::error(HBManagedObjectContext::NoStoreForRecordError,
                                                   QStringLiteral("No store for %1").arg(object->objectID().uriString()));
        return false;
    }
    // a deleted row relates nothing any more, and may not even be loaded
    static const HBRowValues nothing;
    const HBRowValues &values = list == &Changes::deleted ? nothing : HBManagedObjectContext::valuesOf(object);
    for (const auto &[slot, value] : values) {
        const HBPropertyDescription *p = object->entity()->properties().at(slot);
        if (!p->isToOne() || !value.isValid())
            continue;
        const HBManagedObjectID target = asID(value).value<HBManagedObjectID>();
        if (!target.isNull() && (target.isTemporaryID() || storeOfToken(target.storeToken()) != store)) {
            if (error)
                *error = HBManagedObjectContext::error(HBManagedObjectContext::CrossStoreRelationshipError,
                                                       QStringLiteral("%1.%2 relates records of different stores")
                                                           .arg(object->entity()->name(), p->name));
            return false;
        }
    }
    if (store != m_lastWorkStore || !m_lastWork) {
        if (!m_work.contains(store))
            m_order.append(store);
        m_lastWork = &m_work[store];
        m_lastWorkStore = store;
    }
    (m_lastWork->*list).push_back(object);
    return true;
}

bool HBStoreWriter::place(const Changes &changes, HBError *error)
{
    for (HBManagedObject *o : changes.inserted) {
        if (!placeObject(o, &Changes::inserted, error))
            return false;
    }
    for (HBManagedObject *o : changes.updated) {
        if (!placeObject(o, &Changes::updated, error))
            return false;
    }
    for (HBManagedObject *o : changes.deleted) {
        if (!o->objectID().isTemporaryID() && !placeObject(o, &Changes::deleted, error))
            return false;
    }
    return true;
}

bool HBStoreWriter::write(Changes &changes, HBError *error)
{
    if (m_order.size() > 1 && m_work.contains(m_coordinator->commitLastStore())) {
        if (writeInOrder(error))
            return true;
        changes = {};
        return false;
    }
    return writePerStore(changes, error);
}

// Stores that commit each on their own: a store that refuses its rows
// leaves them pending, and `changes` keeps only what reached a file.
bool HBStoreWriter::writePerStore(Changes &changes, HBError *error)
{
    const std::vector<HBError> failures = writeToStores(m_order, m_work);
    Changes written;
    bool failed = false;
    for (qsizetype i = 0; i < m_order.size(); ++i) {
        HBPersistentStore *store = m_order.at(i);
        if (!failures[size_t(i)].isNull()) {
            if (error && !failed)
                *error = storeFailure(store, failures[size_t(i)]);
            failed = true;
            continue;
        }
        const Changes &c = *m_work.constFind(store);
        written.inserted.insert(written.inserted.end(), c.inserted.begin(), c.inserted.end());
        written.updated.insert(written.updated.end(), c.updated.begin(), c.updated.end());
        written.deleted.insert(written.deleted.end(), c.deleted.begin(), c.deleted.end());
    }
    if (failed)
        changes = std::move(written);
    return !failed;
}

// A save that writes the coordinator's commit-last store and others,
// all or nothing: the others' new and changed rows first, then the last
// store (with the save's token), then the others' deletions, which only
// remove rows that the last store no longer refers to. Until the last
// store has committed, a failure takes out again the rows the others added
// (a changed row keeps its change); a failure after it leaves the
// deletions to the note, for the next open.
bool HBStoreWriter::writeInOrder(HBError *error)
{
    HBPersistentStore *last = m_coordinator->commitLastStore();
    HBSaveNote note;
    note.token = QUuid::createUuid().toString(QUuid::WithoutBraces);
    note.lastStorePath = last->path();
    QList<HBPersistentStore *> early, late;
    for (HBPersistentStore *store : std::as_const(m_order)) {
        const Changes &c = *m_work.constFind(store);
        if (store == last)
            continue;
        if (!c.inserted.empty() || !c.updated.empty())
            early.append(store);
        if (!c.inserted.empty())
            note.undo.append(notedRows(store, c.inserted));
        if (!c.deleted.empty()) {
            late.append(store);
            note.redo.append(notedRows(store, c.deleted));
        }
    }
    const QString folder = m_coordinator->saveNoteFolder();
    if (!folder.isEmpty() && !note.write(folder, error))
        return false;
    const auto undo = [&](const HBPersistentStore *store, const HBError &cause) {
        if (error)
            *error = storeFailure(store, cause);
        if (m_coordinator->undoSave(note))
            note.remove();
        return false;
    };
    const std::vector<HBError> failures = writeToStores(early, m_work, Inserts | Updates);
    for (qsizetype i = 0; i < early.size(); ++i) {
        if (!failures[size_t(i)].isNull())
            return undo(early.at(i), failures[size_t(i)]);
    }
    const QStringList finished = m_coordinator->takeFinishedSaves();
    HBError lastFailure;
    const auto recordToken = [&](HBStoreTransaction &transaction, HBError *failure) {
        return transaction.recordSaveToken(note.token, finished, failure);
    };
    if (!writeToStore(last, *m_work.constFind(last), AllParts, &lastFailure, recordToken)) {
        for (const QString &token : finished)
            m_coordinator->noteFinishedSave(token);
        return undo(last, lastFailure);
    }
    const std::vector<HBError> lateFailures = writeToStores(late, m_work, Deletes);
    for (qsizetype i = 0; i < late.size(); ++i) {
        if (!lateFailures[size_t(i)].isNull()) {
            qCWarning(hbStore).noquote() << "Rows that were deleted could not yet be removed from" << late.at(i)->path()
                                         << "and will be when the stores are next opened:"
                                         << lateFailures[size_t(i)].localizedDescription();
            return true;
        }
    }
    note.remove();
    m_coordinator->noteFinishedSave(note.token);
    return true;
}
