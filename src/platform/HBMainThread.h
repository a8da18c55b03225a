#pragma once

#include <QMutex>

#include <chrono>
#include <functional>

// Work that must run on the main thread, handed over from other threads.
//
// A worker that needs the main thread (to open a store in the user
// interface's coordinator, say) posts the work and waits. The main thread
// runs posted work from its event loop; when it is itself blocked in one of
// the library's waits (for a context's queue, an operation queue or a lock)
// it serves posted work from inside that wait. So a command-line program
// whose main thread sits in a wait, or a program without a running event
// loop, cannot deadlock against a worker waiting for it.
//
// Without a QCoreApplication there is no main thread to hand work to, and
// work runs at once on the calling thread.
class HBMainThread
{
public:
    static bool isMainThread();
    // Runs the work on the main thread and returns when it has run.
    static void runAndWait(const std::function<void()> &work);
    // Queues the work for the main thread and returns at once.
    static void post(std::function<void()> work);
    // Runs the work posted so far; call only on the main thread.
    static void serve();
    // Blocks until `waitSlice` reports that what the caller waits for has
    // happened. `waitSlice` waits at most the given time and returns whether
    // it is done; on the main thread the slices are short and posted work is
    // served between them.
    static void waitUntil(const std::function<bool(std::chrono::milliseconds)> &waitSlice);
    // Locks the mutex; on the main thread, serves posted work while the
    // mutex is held elsewhere.
    static void lock(QMutex &mutex);
};
