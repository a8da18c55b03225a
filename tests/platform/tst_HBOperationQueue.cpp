#include "platform/HBOperation.h"
#include "platform/HBOperationQueue.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <atomic>

namespace {

// Turns a hang of a broken queue into a failure; no test measures time.
constexpr int kHangGuardMilliseconds = 60'000;

bool waitUntil(const std::function<bool()> &condition)
{
    QDeadlineTimer deadline(kHangGuardMilliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(1);
    }
    return true;
}

// A thread-safe record of what the operations did, in the order they did it.
class Journal
{
public:
    void append(int entry)
    {
        QMutexLocker lock(&m_mutex);
        m_entries.append(entry);
    }
    QList<int> entries() const
    {
        QMutexLocker lock(&m_mutex);
        return m_entries;
    }

private:
    mutable QMutex m_mutex;
    QList<int> m_entries;
};

// An operation that runs a given body and records what a test needs to see:
// whether main() ran, whether it saw itself executing, and how often
// finished() was emitted (counted on the worker thread).
class TestOperation : public HBOperation
{
public:
    explicit TestOperation(std::function<void(TestOperation &)> body = {})
        : m_body(std::move(body))
    {
        connect(this, &HBOperation::finished, this, [this] { ++finishedCount; },
                Qt::DirectConnection);
    }

    void main() override
    {
        executingInMain = isExecuting();
        mainRan = true;
        if (m_body)
            m_body(*this);
    }

    std::atomic<bool> mainRan = false;
    std::atomic<bool> executingInMain = false;
    std::atomic<int> finishedCount = 0;

private:
    std::function<void(TestOperation &)> m_body;
};

std::shared_ptr<TestOperation> operation(std::function<void(TestOperation &)> body = {})
{
    return std::make_shared<TestOperation>(std::move(body));
}

// Runs until cancelled, after telling the test it has started.
std::shared_ptr<TestOperation> operationRunningUntilCancelled(std::atomic<bool> &started)
{
    return operation([&started](TestOperation &op) {
        started = true;
        waitUntil([&op] { return op.isCancelled(); });
    });
}

// Notes how many operations are inside main() at once, and the most seen.
class Occupancy
{
public:
    void enter()
    {
        const int now = ++m_inside;
        int most = m_most;
        while (now > most && !m_most.compare_exchange_weak(most, now)) {
        }
    }
    void leave() { --m_inside; }
    int inside() const { return m_inside; }
    int most() const { return m_most; }

private:
    std::atomic<int> m_inside = 0;
    std::atomic<int> m_most = 0;
};

QList<int> countsReported(const QSignalSpy &spy)
{
    QList<int> counts;
    for (const QList<QVariant> &arguments : spy)
        counts.append(arguments.at(0).toInt());
    return counts;
}

} // namespace

class tst_HBOperationQueue : public QObject
{
    Q_OBJECT

private slots:
    void serialQueueRunsInOrderAndReportsCounts()
    {
        constexpr int kOperations = 12;
        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        QSignalSpy counts(&queue, &HBOperationQueue::operationCountChanged);
        Journal started;
        Journal countSeenAtFinish;
        Occupancy occupancy;

        // The first one holds the queue until all are added, so the counts are exact.
        std::atomic<bool> allAdded = false;
        QList<std::shared_ptr<TestOperation>> ops;
        for (int i = 0; i < kOperations; ++i) {
            auto op = operation([&, i](TestOperation &) {
                occupancy.enter();
                started.append(i);
                waitUntil([&] { return allAdded.load(); });
                occupancy.leave();
            });
            connect(op.get(), &HBOperation::finished, op.get(),
                    [&] { countSeenAtFinish.append(queue.operationCount()); }, Qt::DirectConnection);
            ops.append(op);
            queue.addOperation(op);
        }
        allAdded = true;
        queue.waitUntilAllOperationsAreFinished();

        QList<int> inOrder;
        QList<int> remaining;
        QList<int> reported;
        for (int i = 0; i < kOperations; ++i) {
            inOrder.append(i);
            remaining.append(kOperations - 1 - i);
            reported.append(i + 1);
        }
        reported += remaining;
        QCOMPARE(started.entries(), inOrder);
        QCOMPARE(occupancy.most(), 1);
        QCOMPARE(countSeenAtFinish.entries(), remaining);
        QCOMPARE(countsReported(counts), reported);
        for (const auto &op : ops) {
            QCOMPARE(op->finishedCount.load(), 1);
            QVERIFY(op->executingInMain);
            QVERIFY(op->isFinished());
            QVERIFY(!op->isExecuting());
        }
    }

    void runsUpToTheLimitAtOnce_data()
    {
        QTest::addColumn<int>("limit");

        QTest::newRow("serial") << 1;
        QTest::newRow("two at once") << 2;
        QTest::newRow("three") << 3;
    }

    void runsUpToTheLimitAtOnce()
    {
        QFETCH(int, limit);

        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(limit);
        Occupancy occupancy;
        std::atomic<bool> gateOpen = false;
        for (int i = 0; i < 3 * limit; ++i) {
            queue.addOperationWithBlock([&] {
                occupancy.enter();
                waitUntil([&] { return gateOpen.load(); });
                occupancy.leave();
            });
        }

        // All of the first `limit` must be inside at once, or this never holds.
        QVERIFY(waitUntil([&] { return occupancy.inside() == limit; }));
        QCOMPARE(queue.operationCount(), 3 * limit);
        gateOpen = true;
        queue.waitUntilAllOperationsAreFinished();
        QCOMPARE(occupancy.most(), limit);
        QCOMPARE(queue.operationCount(), 0);
    }

    void cancelledWaitingOperationsFinishWithoutRunning()
    {
        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        QSignalSpy counts(&queue, &HBOperationQueue::operationCountChanged);
        std::atomic<bool> started = false;
        const auto running = operationRunningUntilCancelled(started);
        QList<std::shared_ptr<TestOperation>> waiting{operation(), operation(), operation()};
        queue.addOperation(running);
        for (const auto &op : waiting)
            queue.addOperation(op);
        QVERIFY(waitUntil([&] { return started.load(); }));

        queue.cancelAllOperations();
        queue.waitUntilAllOperationsAreFinished();

        QVERIFY(running->isCancelled());
        QCOMPARE(running->finishedCount.load(), 1);
        for (const auto &op : waiting) {
            QVERIFY(!op->mainRan);
            QVERIFY(op->isFinished());
            QCOMPARE(op->finishedCount.load(), 1);
        }
        QCOMPARE(queue.operationCount(), 0);
        QVERIFY(queue.operations().isEmpty());
        QCOMPARE(countsReported(counts), QList<int>({1, 2, 3, 4, 3, 2, 1, 0}));
    }

    void cancellingARunningOperationReachesMain()
    {
        HBOperationQueue queue;
        std::atomic<bool> started = false;
        const auto op = operationRunningUntilCancelled(started);
        queue.addOperation(op);
        QVERIFY(waitUntil([&] { return started.load(); }));
        QVERIFY(op->isExecuting());
        QVERIFY(!op->isFinished());
        QVERIFY(queue.operations() == QList<std::shared_ptr<HBOperation>>{op});

        op->cancel();
        queue.waitUntilAllOperationsAreFinished();

        QVERIFY(op->isFinished());
        QVERIFY(!op->isExecuting());
        QCOMPARE(op->finishedCount.load(), 1);
    }

    void waitsForOperationsAddedByRunningOnes_data()
    {
        QTest::addColumn<int>("limit");

        QTest::newRow("serial") << 1;
        QTest::newRow("concurrent") << 4;
    }

    void waitsForOperationsAddedByRunningOnes()
    {
        QFETCH(int, limit);

        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(limit);
        Journal ran;
        // The first adds two more from its main(); its finished() adds a last one.
        const auto first = operation([&](TestOperation &) {
            ran.append(1);
            queue.addOperationWithBlock([&] { ran.append(2); });
            queue.addOperationWithBlock([&] { ran.append(3); });
        });
        connect(first.get(), &HBOperation::finished, first.get(),
                [&] { queue.addOperationWithBlock([&] { ran.append(4); }); }, Qt::DirectConnection);
        queue.addOperation(first);
        queue.waitUntilAllOperationsAreFinished();

        QList<int> entries = ran.entries();
        if (limit > 1)
            std::sort(entries.begin(), entries.end());
        QCOMPARE(entries, QList<int>({1, 2, 3, 4}));
        QCOMPARE(queue.operationCount(), 0);
    }

    void waitingDoesNotStallQueuedConnections()
    {
        constexpr int kOperations = 5;
        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(2);
        QObject receiver; // lives on this (the main) thread
        int finishedReceived = 0;
        QList<int> countsReceived;
        connect(&queue, &HBOperationQueue::operationCountChanged, &receiver,
                [&](int count) { countsReceived.append(count); }, Qt::QueuedConnection);
        for (int i = 0; i < kOperations; ++i) {
            const auto op = operation();
            connect(op.get(), &HBOperation::finished, &receiver, [&] { ++finishedReceived; },
                    Qt::QueuedConnection);
            queue.addOperation(op);
        }

        queue.waitUntilAllOperationsAreFinished();
        QCoreApplication::sendPostedEvents();

        QCOMPARE(finishedReceived, kOperations);
        QCOMPARE(countsReceived.size(), 2 * kOperations);
        QCOMPARE(countsReceived.last(), 0);
    }

    void destructionCancelsWaitingAndFinishesRunning()
    {
        auto queue = std::make_unique<HBOperationQueue>();
        queue->setMaxConcurrentOperationCount(1);
        const QList<std::shared_ptr<TestOperation>> waiting{operation(), operation()};
        std::atomic<bool> started = false;
        std::atomic<bool> completed = false;
        // Runs on until the queue has cancelled the waiting ones, then completes.
        const auto running = operation([&](TestOperation &) {
            started = true;
            waitUntil([&] { return waiting.last()->isCancelled(); });
            completed = true;
        });
        queue->addOperation(running);
        for (const auto &op : waiting)
            queue->addOperation(op);
        QVERIFY(waitUntil([&] { return started.load(); }));

        queue.reset();

        QVERIFY(completed);
        QVERIFY(!running->isCancelled());
        QCOMPARE(running->finishedCount.load(), 1);
        for (const auto &op : waiting) {
            QVERIFY(op->isCancelled());
            QVERIFY(!op->mainRan);
            QCOMPARE(op->finishedCount.load(), 1);
        }
    }

    void refusesAnOperationTwice()
    {
        HBOperationQueue queue;
        HBOperationQueue otherQueue;
        std::atomic<int> runs = 0;
        const auto op = operation([&](TestOperation &) { ++runs; });
        queue.addOperation(op);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("refused an operation"));
        otherQueue.addOperation(op);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("refused an operation"));
        queue.addOperation(nullptr);
        queue.waitUntilAllOperationsAreFinished();
        otherQueue.waitUntilAllOperationsAreFinished();

        QCOMPARE(runs.load(), 1);
        QCOMPARE(op->finishedCount.load(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_HBOperationQueue)
#include "tst_HBOperationQueue.moc"
