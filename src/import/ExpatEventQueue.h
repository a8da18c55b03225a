#pragma once

#include "import/ExpatEventBatch.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

// Hands batches of events from the thread that runs Expat to the thread
// that parses, at most `capacity` waiting at a time so that a reader far
// ahead holds little memory. Delivered batches come back to be filled
// again, which spares allocating their vectors for every batch.
class ExpatEventQueue
{
public:
    explicit ExpatEventQueue(size_t capacity) : m_capacity(capacity) {}

    // The recording side.
    std::unique_ptr<ExpatEventBatch> emptyBatch();
    // Waits while the queue is full; false, dropping the batch, once stopped.
    bool push(std::unique_ptr<ExpatEventBatch> batch);
    bool isStopped() const;

    // The delivering side. Waits for the next batch.
    std::unique_ptr<ExpatEventBatch> pop();
    void recycle(std::unique_ptr<ExpatEventBatch> batch);
    // The parse wants no more events: whatever is waiting or still comes is
    // dropped, and a recorder waiting for room goes on at once.
    void stop();

private:
    const size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<ExpatEventBatch>> m_waiting;
    std::vector<std::unique_ptr<ExpatEventBatch>> m_spare;
    bool m_stopped = false;
};
