#include "platform/store/HBDeferredDeletion.h"

#include "platform/store/HBManagedObject.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace {

// One thread frees the batches in the order they came. Made on first use
// and stopped when the process's statics go, abandoning what still waits:
// the process's memory is about to go back to the system anyway.
class Reaper
{
public:
    Reaper()
        : m_thread([this] { run(); })
    {
    }

    ~Reaper()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_abandon = true;
        m_changed.notify_all();
        m_thread.join();
    }

    void add(std::vector<HBManagedObject *> objects)
    {
        {
            std::lock_guard lock(m_mutex);
            m_waiting.push_back(std::move(objects));
        }
        m_changed.notify_all();
    }

    void waitForAll()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_waiting.empty() && !m_freeing; });
    }

private:
    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [this] { return m_stopping || !m_waiting.empty(); });
            if (m_stopping)
                return;
            std::vector<HBManagedObject *> batch = std::move(m_waiting.front());
            m_waiting.pop_front();
            m_freeing = true;
            lock.unlock();
            for (size_t i = 0; i < batch.size() && !m_abandon.load(std::memory_order_relaxed); ++i)
                delete batch[i];
            lock.lock();
            m_freeing = false;
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::vector<HBManagedObject *>> m_waiting;
    bool m_freeing = false;
    bool m_stopping = false;
    std::atomic<bool> m_abandon{false};   // the process ends: stop in the middle of a batch
    std::thread m_thread;   // last: it starts running at once
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
