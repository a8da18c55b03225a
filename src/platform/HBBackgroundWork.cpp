#include "platform/HBBackgroundWork.h"

#include <QThread>
#include <QThreadPool>

#include <algorithm>

namespace {

// Never destroyed: a job may still run while the process exits.
QThreadPool &pool()
{
    static QThreadPool *threads = [] {
        auto *p = new QThreadPool;
        // a job may wait for a context's queue or the main thread: never fewer than two
        p->setMaxThreadCount(std::max(2, QThread::idealThreadCount()));
        return p;
    }();
    return *threads;
}

} // namespace

void HBBackgroundWork::start(std::function<void()> job)
{
    pool().start(std::move(job));
}

bool HBBackgroundWork::waitForDone(std::chrono::milliseconds timeout)
{
    return pool().waitForDone(int(timeout.count()));
}
