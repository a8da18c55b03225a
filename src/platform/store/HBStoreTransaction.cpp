#include "platform/store/HBStoreTransaction.h"

#include "platform/store/HBPersistentStore.h"

HBStoreTransaction::HBStoreTransaction(HBPersistentStore &store)
    : m_store(store)
{
}

HBStoreTransaction::~HBStoreTransaction()
{
    rollback();
}

bool HBStoreTransaction::begin(HBError *error)
{
    Q_ASSERT(!m_open);
    m_open = m_store.beginTransaction(error);
    return m_open;
}

bool HBStoreTransaction::commit(HBError *error)
{
    Q_ASSERT(m_open);
    m_open = false;
    return m_store.commit(error);
}

void HBStoreTransaction::rollback()
{
    if (m_open)
        m_store.rollback();
    m_open = false;
}

bool HBStoreTransaction::insertRows(std::span<const NewRow> rows, HBError *error)
{
    Q_ASSERT(m_open);
    return m_store.insertRows(rows, error);
}

bool HBStoreTransaction::updateRow(qint64 primaryKey, const HBEntityDescription *entity, const HBRowValues &values,
                                   HBError *error)
{
    Q_ASSERT(m_open);
    return m_store.updateRow(primaryKey, entity, values, error);
}

bool HBStoreTransaction::deleteRow(qint64 primaryKey, const HBEntityDescription *entity, HBError *error)
{
    Q_ASSERT(m_open);
    return m_store.deleteRow(primaryKey, entity, error);
}

bool HBStoreTransaction::deleteRows(const HBEntityDescription *entity, qint64 firstKey, qint64 lastKey, HBError *error,
                                    qint64 *deleted)
{
    Q_ASSERT(m_open);
    return m_store.deleteRows(entity, firstKey, lastKey, error, deleted);
}

bool HBStoreTransaction::recordSaveToken(const QString &token, const QStringList &forget, HBError *error)
{
    Q_ASSERT(m_open);
    return m_store.recordSaveToken(token, forget, error);
}
