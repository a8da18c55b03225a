#pragma once

#include <QObject>

#include <atomic>

class HBOperationQueue;

// One unit of background work, run by an HBOperationQueue on one of its
// worker threads. Subclasses put the work in main(); a long main() polls
// isCancelled() and returns early once it is set.
//
// Life cycle:
//   1. ready: created, possibly handed to a queue, not started;
//   2. executing: main() runs on a worker thread;
//   3. finished: main() has returned, or the operation was cancelled before
//      it started and main() never ran.
// finished() is emitted exactly once, on the worker thread, after the queue
// has dropped the operation from its list. An operation runs at most once
// and belongs to at most one queue.
class HBOperation : public QObject
{
    Q_OBJECT

public:
    HBOperation();
    ~HBOperation() override;

    virtual void main() = 0;

    // Safe from any thread. An operation not yet started will not start;
    // a running one learns of it through isCancelled().
    void cancel();
    bool isCancelled() const;
    bool isExecuting() const;
    bool isFinished() const;

signals:
    void finished();

private:
    friend class HBOperationQueue;
    enum class State { Ready, Executing, Finished };

    // Claims the operation for a queue; false when a queue already has it.
    bool claimForQueue();
    // Runs main() unless cancelled, and leaves the operation finished.
    void run();
    void announceFinished();

    std::atomic<bool> m_cancelled = false;
    std::atomic<bool> m_claimed = false;
    std::atomic<State> m_state = State::Ready;
};
