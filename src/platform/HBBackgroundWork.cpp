#include "platform/HBBackgroundWork.h"

#include <QDeadlineTimer>
#include <QThread>
#include <QThreadPool>

#include <algorithm>

namespace {

QThreadPool *makePool(int maxThreads)
{
    auto *p = new QThreadPool;
    p->setMaxThreadCount(maxThreads);
    p->setExpiryTimeout(10000);
    return p;
}

// Never destroyed: a job may still run while the process exits.
QThreadPool &pool()
{
    static QThreadPool *threads = makePool(std::max(2, QThread::idealThreadCount()));
    return *threads;
}

// Its other lane: room for every job that waits for others, so that none
// of them ever waits for a thread.
QThreadPool &dedicated()
{
    static QThreadPool *threads = makePool(1024);
    return *threads;
}

} // namespace

void HBBackgroundWork::start(std::function<void()> job)
{
    pool().start(std::move(job));
}

bool HBBackgroundWork::tryStart(std::function<void()> job)
{
    return pool().tryStart(std::move(job));
}

void HBBackgroundWork::startDedicated(std::function<void()> job)
{
    dedicated().start(std::move(job));
}

bool HBBackgroundWork::waitForDone(std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline = timeout.count() < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(timeout);
    const auto left = [&deadline] { return deadline.isForever() ? -1 : int(deadline.remainingTime()); };
    return pool().waitForDone(left()) && dedicated().waitForDone(left());
}
