#pragma once

#include <QList>
#include <QObject>

#include <functional>
#include <memory>

class HBOperation;

// Runs operations on worker threads of its own: in the order they were
// added, at most maxConcurrentOperationCount() at once (1 makes a serial
// queue, as imports use). The queue keeps each operation alive until it has
// finished and emitted finished().
//
// Invariants:
//   1. operations() holds every added operation that has not finished yet,
//      in the order added; an operation leaves it before finished() is
//      emitted, so a slot on finished() sees the queue without it.
//   2. An operation takes a worker slot from its start until its finished()
//      has been emitted; the next one starts only then.
//   3. A cancelled operation that has not started keeps its place in the
//      order and, on its turn, finishes at once without running main().
//   4. operationCountChanged() reports every change of the count once and
//      in order, from the thread that made the change.
//
// Slots connected directly (on the worker thread) to finished() or
// operationCountChanged() may add operations, but must not wait for this
// queue.
class HBOperationQueue : public QObject
{
    Q_OBJECT

public:
    explicit HBOperationQueue(QObject *parent = nullptr);
    // Cancels the operations that have not started and waits for the
    // running ones; work added meanwhile is cancelled as it comes.
    ~HBOperationQueue() override;

    // n <= 0 means one per processor core, the default.
    void setMaxConcurrentOperationCount(int n);
    int maxConcurrentOperationCount() const;

    // An operation can be added once; adding it again, or to another queue,
    // is refused with a warning.
    void addOperation(std::shared_ptr<HBOperation> op);
    void addOperationWithBlock(std::function<void()> block);

    QList<std::shared_ptr<HBOperation>> operations() const;
    int operationCount() const;

    void cancelAllOperations();
    // Blocks until every operation, including the ones added meanwhile, has
    // finished and emitted finished(). It keeps no event loop waiting, so
    // queued connections to the calling thread do not stall it; it must not
    // be called from an operation of this queue.
    void waitUntilAllOperationsAreFinished();

signals:
    void operationCountChanged(int count);

private:
    struct Private;

    void startReadyOperations();
    void runOperation(const std::shared_ptr<HBOperation> &op);
    void changeOperations(const std::function<void()> &change);

    std::unique_ptr<Private> d;
};
