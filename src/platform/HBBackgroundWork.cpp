#include "platform/HBBackgroundWork.h"

#include "platform/HBMainThread.h"

#include <QCoreApplication>
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

// The longest a program's end waits for bounded work still running.
constexpr int kExitPatienceMs = 10000;

void finishBoundedWorkAtExit();

// Never destroyed: a job may still run while the process exits.
QThreadPool &pool()
{
    static QThreadPool *threads = [] {
        if (QCoreApplication::instance())
            qAddPostRoutine(finishBoundedWorkAtExit);
        return makePool(std::max(2, QThread::idealThreadCount()));
    }();
    return *threads;
}

// Bounded work that outlived the program's last wait (a refresh started by
// the end of an import, say) would otherwise run on while the process's
// statics are freed under it. It finishes while the application object
// still stands, the main thread serving whatever it asks of it meanwhile.
// Dedicated work waits for other work or lasts as long as it does, so it
// is not waited for.
void finishBoundedWorkAtExit()
{
    const QDeadlineTimer patience(kExitPatienceMs);
    HBMainThread::waitUntil([&patience](std::chrono::milliseconds slice) {
        return pool().waitForDone(int(slice.count())) || patience.hasExpired();
    });
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
