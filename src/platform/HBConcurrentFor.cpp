#include "platform/HBConcurrentFor.h"

#include "platform/HBBackgroundWork.h"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>

void HBConcurrentFor(qsizetype count, const std::function<void(qsizetype)> &job)
{
    std::atomic<qsizetype> next{0};
    const auto work = [&] {
        for (qsizetype i = next++; i < count; i = next++)
            job(i);
    };
    // Helpers only where a thread is free: the caller does whatever is left
    // itself, so that it never waits for a helper queued behind other work.
    std::mutex mutex;
    std::condition_variable helperDone;
    qsizetype helpersRunning = 0;
    const qsizetype helpers = std::min<qsizetype>(count, QThread::idealThreadCount()) - 1;
    for (qsizetype i = 0; i < helpers; ++i) {
        {
            std::lock_guard lock(mutex);
            ++helpersRunning;
        }
        const bool started = HBBackgroundWork::tryStart([&] {
            work();
            std::lock_guard lock(mutex);
            --helpersRunning;
            helperDone.notify_all();
        });
        if (!started) {
            std::lock_guard lock(mutex);
            --helpersRunning;
            break;
        }
    }
    work();
    std::unique_lock lock(mutex);
    helperDone.wait(lock, [&] { return helpersRunning == 0; });
}
