#include "platform/store/HBContextQueue.h"

#include "platform/HBBackgroundWork.h"
#include "platform/HBMainThread.h"
#include "platform/store/HBLockOrder.h"

#include <algorithm>
#include <future>
#include <memory>
#include <vector>

namespace {

// The queues the current thread is running, innermost last.
thread_local std::vector<const HBContextQueue *> runningQueues;

bool isRunning(const HBContextQueue *queue)
{
    return std::find(runningQueues.begin(), runningQueues.end(), queue) != runningQueues.end();
}

} // namespace

HBContextQueue::HBContextQueue(Kind kind)
    : m_kind(kind)
{
}

HBContextQueue::~HBContextQueue()
{
    QMutexLocker tasks(&m_tasksMutex);
    while (m_draining)
        m_drained.wait(&m_tasksMutex);
}

void HBContextQueue::run(const std::function<void()> &block)
{
    QMutexLocker lock(&m_lock);
    HB_WILL_LOCK(Context);
    runningQueues.push_back(this);
    block();
    runningQueues.pop_back();
    HB_DID_UNLOCK(Context);
}

void HBContextQueue::perform(std::function<void()> block)
{
    if (m_kind == Kind::Main) {
        HBMainThread::post([this, block = std::move(block)] { run(block); });
        return;
    }
    QMutexLocker tasks(&m_tasksMutex);
    m_tasks.push_back(std::move(block));
    if (m_draining)
        return;
    m_draining = true;
    // A block may wait for the main thread or for another queue: the queue
    // never waits behind other work for a thread.
    HBBackgroundWork::startDedicated([this] { drain(); });
}

void HBContextQueue::drain()
{
    for (;;) {
        QMutexLocker tasks(&m_tasksMutex);
        if (m_tasks.empty()) {
            m_draining = false;
            m_drained.wakeAll();
            return;
        }
        std::function<void()> task = std::move(m_tasks.front());
        m_tasks.pop_front();
        tasks.unlock();
        run(task);
    }
}

void HBContextQueue::performAndWait(const std::function<void()> &block)
{
    if (isRunning(this)) {
        block();
        return;
    }
    if (m_kind == Kind::Main) {
        HBMainThread::runAndWait([this, &block] { run(block); });
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    perform([&block, done] {
        block();
        done->set_value();
    });
    HBMainThread::waitUntil([&finished](std::chrono::milliseconds slice) {
        return finished.wait_for(slice) == std::future_status::ready;
    });
}

void HBContextQueue::lock()
{
    m_lock.lock();
    HB_WILL_LOCK(Context);
}

void HBContextQueue::unlock()
{
    HB_DID_UNLOCK(Context);
    m_lock.unlock();
}
