#include "import/ExpatEventQueue.h"

std::unique_ptr<ExpatEventBatch> ExpatEventQueue::emptyBatch()
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_spare.empty()) {
            std::unique_ptr<ExpatEventBatch> batch = std::move(m_spare.back());
            m_spare.pop_back();
            batch->clear();
            return batch;
        }
    }
    return std::make_unique<ExpatEventBatch>();
}

bool ExpatEventQueue::push(std::unique_ptr<ExpatEventBatch> batch)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_stopped || m_waiting.size() < m_capacity; });
    if (m_stopped)
        return false;
    m_waiting.push_back(std::move(batch));
    m_changed.notify_all();
    return true;
}

bool ExpatEventQueue::isStopped() const
{
    std::lock_guard lock(m_mutex);
    return m_stopped;
}

std::unique_ptr<ExpatEventBatch> ExpatEventQueue::pop()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_waiting.empty(); });
    std::unique_ptr<ExpatEventBatch> batch = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_changed.notify_all();
    return batch;
}

void ExpatEventQueue::recycle(std::unique_ptr<ExpatEventBatch> batch)
{
    std::lock_guard lock(m_mutex);
    m_spare.push_back(std::move(batch));
}

void ExpatEventQueue::stop()
{
    std::lock_guard lock(m_mutex);
    m_stopped = true;
    m_waiting.clear();
    m_changed.notify_all();
}
