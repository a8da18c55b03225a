#include "platform/store/HBDeferredDeletion.h"

#include "platform/HBBackgroundWork.h"
#include "platform/store/HBManagedObject.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace {

// Frees the batches in the order they came, on one worker thread at a time
// while there are any. Made on first use and stopped when the process's
// statics go, abandoning what still waits: the process's memory is about
// to go back to the system anyway.
class Reaper
{
public:
    ~Reaper()
    {
        std::unique_lock lock(m_mutex);
        m_abandon = true;
        m_changed.wait(lock, [this] { return !m_draining; });
    }

    void add(std::vector<HBManagedObject *> objects)
    {
        std::lock_guard lock(m_mutex);
        m_waiting.push_back(std::move(objects));
        if (m_draining || m_abandon)
            return;
        m_draining = true;
        HBBackgroundWork::startDedicated([this] { drain(); });
    }

    void waitForAll()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_waiting.empty() && !m_draining; });
    }

private:
    void drain()
    {
        std::unique_lock lock(m_mutex);
        while (!m_waiting.empty() && !m_abandon) {
            std::vector<HBManagedObject *> batch = std::move(m_waiting.front());
            m_waiting.pop_front();
            lock.unlock();
            for (size_t i = 0; i < batch.size() && !m_abandon.load(std::memory_order_relaxed); ++i)
                delete batch[i];
            lock.lock();
        }
        m_draining = false;
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::vector<HBManagedObject *>> m_waiting;
    bool m_draining = false;
    std::atomic<bool> m_abandon{false};   // the process ends: stop in the middle of a batch
};

Reaper &reaper()
{
    static Reaper instance;
    return instance;
}

} // namespace

void HBDeferredDeletion::deleteObjects(std::vector<HBManagedObject *> objects)
{
    if (!objects.empty())
        reaper().add(std::move(objects));
}

void HBDeferredDeletion::waitForAll()
{
    reaper().waitForAll();
}
