#include "platform/store/HBStoreConnectionLimit.h"

#include "platform/store/HBPersistentStore.h"

#include <QCoreApplication>

#include <algorithm>

namespace {

void closeAtExit()
{
    HBStoreConnectionLimit::shared().closeIdleConnections();
}

} // namespace

HBStoreConnectionLimit &HBStoreConnectionLimit::shared()
{
    // Never destroyed: stores of worker threads may use it to the end.
    static HBStoreConnectionLimit *limit = [] {
        if (QCoreApplication::instance())
            qAddPostRoutine(closeAtExit);
        return new HBStoreConnectionLimit;
    }();
    return *limit;
}

int HBStoreConnectionLimit::maximum() const
{
    QMutexLocker lock(&m_lock);
    return m_maximum;
}

void HBStoreConnectionLimit::setMaximum(int maximum)
{
    QMutexLocker lock(&m_lock);
    m_maximum = std::max(1, maximum);
    closeIdleBeyond(m_maximum);
}

int HBStoreConnectionLimit::openConnections() const
{
    QMutexLocker lock(&m_lock);
    return int(m_open.size());
}

void HBStoreConnectionLimit::didUse(HBPersistentStore *store)
{
    QMutexLocker lock(&m_lock);
    const auto it = std::find_if(m_open.begin(), m_open.end(), [store](const Open &o) { return o.store == store; });
    if (it != m_open.end()) {
        it->lastUse = ++m_clock;
        return;
    }
    m_open.push_back({store, ++m_clock});
    closeIdleBeyond(m_maximum);
}

void HBStoreConnectionLimit::didClose(HBPersistentStore *store)
{
    QMutexLocker lock(&m_lock);
    std::erase_if(m_open, [store](const Open &o) { return o.store == store; });
}

void HBStoreConnectionLimit::closeIdleConnections()
{
    QMutexLocker lock(&m_lock);
    closeIdleBeyond(0);
}

// Oldest first; a store that is busy (its lock taken by another thread, or
// by this one in a transaction or a call) is passed over, never waited for.
void HBStoreConnectionLimit::closeIdleBeyond(qsizetype keep)
{
    if (qsizetype(m_open.size()) <= keep)
        return;
    std::sort(m_open.begin(), m_open.end(), [](const Open &a, const Open &b) { return a.lastUse < b.lastUse; });
    qsizetype excess = qsizetype(m_open.size()) - keep;
    for (auto it = m_open.begin(); excess > 0 && it != m_open.end();) {
        if (it->store->closeConnectionIfIdle()) {
            it = m_open.erase(it);
            --excess;
        } else {
            ++it;
        }
    }
}
