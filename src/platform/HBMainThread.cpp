#include "platform/HBMainThread.h"

#include <QCoreApplication>
#include <QThread>

#include <chrono>
#include <deque>
#include <future>

namespace {

// How long the main thread sleeps between looks at its posted work while it
// waits for something else.
constexpr auto servingSlice = std::chrono::milliseconds(1);

struct PostedWork
{
    QMutex mutex;
    std::deque<std::function<void()>> tasks;
};

PostedWork &posted()
{
    static PostedWork *work = new PostedWork;   // outlives every thread that posts
    return *work;
}

} // namespace

bool HBMainThread::isMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return !app || QThread::currentThread() == app->thread();
}

void HBMainThread::post(std::function<void()> work)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        work();
        return;
    }
    {
        QMutexLocker lock(&posted().mutex);
        posted().tasks.push_back(std::move(work));
    }
    QMetaObject::invokeMethod(app, [] { serve(); }, Qt::QueuedConnection);
}

void HBMainThread::runAndWait(const std::function<void()> &work)
{
    if (isMainThread()) {
        work();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    post([&work, done] {
        work();
        done->set_value();
    });
    finished.wait();
}

void HBMainThread::serve()
{
    for (;;) {
        std::function<void()> task;
        {
            QMutexLocker lock(&posted().mutex);
            if (posted().tasks.empty())
                return;
            task = std::move(posted().tasks.front());
            posted().tasks.pop_front();
        }
        task();
    }
}

void HBMainThread::waitUntil(const std::function<bool(std::chrono::milliseconds)> &waitSlice)
{
    if (!isMainThread() || !QCoreApplication::instance()) {
        while (!waitSlice(std::chrono::hours(1))) {
        }
        return;
    }
    while (!waitSlice(servingSlice))
        serve();
}

void HBMainThread::lock(QMutex &mutex)
{
    if (!isMainThread() || !QCoreApplication::instance()) {
        mutex.lock();
        return;
    }
    while (!mutex.tryLock(int(servingSlice.count()))) {
        serve();
    }
}
