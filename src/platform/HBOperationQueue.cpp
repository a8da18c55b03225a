#include "platform/HBOperationQueue.h"

#include "platform/HBBackgroundWork.h"
#include "platform/HBLogging.h"
#include "platform/HBMainThread.h"
#include "platform/HBOperation.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QRecursiveMutex>
#include <QThread>
#include <QWaitCondition>

#include <deque>

namespace {

class BlockOperation : public HBOperation
{
public:
    explicit BlockOperation(std::function<void()> block)
        : m_block(std::move(block))
    {
    }
    void main() override { m_block(); }

private:
    std::function<void()> m_block;
};

int oneThreadPerCoreIfUnset(int n)
{
    return n > 0 ? n : QThread::idealThreadCount();
}

} // namespace

struct HBOperationQueue::Private
{
    // Guards everything below it.
    mutable QMutex mutex;
    QWaitCondition allFinished;
    QList<std::shared_ptr<HBOperation>> operations;
    std::deque<std::shared_ptr<HBOperation>> waiting;
    int running = 0;
    int maxConcurrent = oneThreadPerCoreIfUnset(0);
    bool closing = false;

    // Held from a change of the list until its count has been announced, so
    // that announcements from several threads cannot overtake each other.
    // Recursive because a slot connected directly may add an operation.
    QRecursiveMutex announcing;

    // Threads still inside runOperation(), which uses this to its end.
    int workers = 0;
    QWaitCondition workersGone;
};

HBOperationQueue::HBOperationQueue(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
}

HBOperationQueue::~HBOperationQueue()
{
    {
        QMutexLocker lock(&d->mutex);
        d->closing = true;
        for (const auto &op : d->waiting)
            op->cancel();
    }
    waitUntilAllOperationsAreFinished();
    QMutexLocker lock(&d->mutex);
    while (d->workers > 0)
        d->workersGone.wait(&d->mutex);
}

void HBOperationQueue::setMaxConcurrentOperationCount(int n)
{
    QMutexLocker lock(&d->mutex);
    d->maxConcurrent = oneThreadPerCoreIfUnset(n);
    startReadyOperations();
}

int HBOperationQueue::maxConcurrentOperationCount() const
{
    QMutexLocker lock(&d->mutex);
    return d->maxConcurrent;
}

void HBOperationQueue::addOperation(std::shared_ptr<HBOperation> op)
{
    if (!op || !op->claimForQueue()) {
        qCWarning(hbPlatform) << "HBOperationQueue: refused an operation that is null or already queued";
        return;
    }
    changeOperations([&] {
        if (d->closing)
            op->cancel();
        d->operations.append(op);
        d->waiting.push_back(op);
        startReadyOperations();
    });
}

void HBOperationQueue::addOperationWithBlock(std::function<void()> block)
{
    addOperation(std::make_shared<BlockOperation>(std::move(block)));
}

QList<std::shared_ptr<HBOperation>> HBOperationQueue::operations() const
{
    QMutexLocker lock(&d->mutex);
    return d->operations;
}

int HBOperationQueue::operationCount() const
{
    QMutexLocker lock(&d->mutex);
    return int(d->operations.size());
}

void HBOperationQueue::cancelAllOperations()
{
    for (const auto &op : operations())
        op->cancel();
}

void HBOperationQueue::waitUntilAllOperationsAreFinished()
{
    // Operations may need the main thread (to open a store there) while
    // the main thread waits here.
    HBMainThread::waitUntil([this](std::chrono::milliseconds slice) {
        QMutexLocker lock(&d->mutex);
        if (d->running > 0 || !d->waiting.empty())
            d->allFinished.wait(&d->mutex, QDeadlineTimer(slice));
        return d->running == 0 && d->waiting.empty();
    });
}

// Called with d->mutex held.
void HBOperationQueue::startReadyOperations()
{
    while (d->running < d->maxConcurrent && !d->waiting.empty()) {
        std::shared_ptr<HBOperation> op = std::move(d->waiting.front());
        d->waiting.pop_front();
        ++d->running;
        ++d->workers;
        // an operation may wait for anything: it never waits for a thread
        HBBackgroundWork::startDedicated([this, op] { runOperation(op); });
    }
}

// On a worker thread.
void HBOperationQueue::runOperation(const std::shared_ptr<HBOperation> &op)
{
    op->run();
    changeOperations([&] { d->operations.removeOne(op); });
    op->announceFinished();

    QMutexLocker lock(&d->mutex);
    --d->running;
    startReadyOperations();
    if (d->running == 0 && d->waiting.empty())
        d->allFinished.wakeAll();
    --d->workers;
    d->workersGone.wakeAll();
}

void HBOperationQueue::changeOperations(const std::function<void()> &change)
{
    QMutexLocker announcing(&d->announcing);
    int count = 0;
    {
        QMutexLocker lock(&d->mutex);
        change();
        count = int(d->operations.size());
    }
    emit operationCountChanged(count);
}
