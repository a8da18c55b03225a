#pragma once

#include <QMutex>
#include <QRecursiveMutex>
#include <QWaitCondition>

#include <deque>
#include <functional>

// The serial queue a context's blocks run on, one block at a time, each
// under the context's lock: a private queue drains on a worker thread that
// starts at once (HBBackgroundWork's waiting lane), a main queue runs on
// the main thread. Waiting for a block from inside the same queue runs it
// at once; waiting on the main thread serves the main thread's requests
// meanwhile, so that a block may itself wait for the main thread.
class HBContextQueue
{
public:
    enum class Kind { Private, Main };

    explicit HBContextQueue(Kind kind);
    // Waits for a running drain: the queue's owner goes with it.
    ~HBContextQueue();
    HBContextQueue(const HBContextQueue &) = delete;
    HBContextQueue &operator=(const HBContextQueue &) = delete;

    void perform(std::function<void()> block);
    void performAndWait(const std::function<void()> &block);
    // The lock the blocks run under, for code that works on the context
    // from outside its queue.
    void lock();
    void unlock();

private:
    void run(const std::function<void()> &block);
    void drain();

    const Kind m_kind;
    QRecursiveMutex m_lock;
    QMutex m_tasksMutex;   // the three below
    std::deque<std::function<void()>> m_tasks;
    bool m_draining = false;
    QWaitCondition m_drained;   // m_draining has become false
};
