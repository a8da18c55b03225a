#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>

// The one way the library runs work off the calling thread: one pool of
// threads of its own, sized for the machine, beside the main-thread helper
// (HBMainThread).
//
// Two kinds of work share it, in two lanes. Work that only computes or
// writes (a deletion, a refresh, a helper of a parallel loop) runs on at
// most one thread per core, queued behind its kind. Work that waits for
// other work or runs as long as something else does (a context's queue, an
// operation queue's operation, the XML reader feeding its importer) gets a
// thread at once, beyond that bound: it must never sit in a queue behind
// the work it waits for.
class HBBackgroundWork
{
public:
    // Bounded work, queued while every core's thread is busy.
    static void start(std::function<void()> job);
    // Bounded work, only if a thread is free now; false leaves it to the caller.
    static bool tryStart(std::function<void()> job);
    // At once, on a thread beyond the bound.
    static void startDedicated(std::function<void()> job);
    // The result of `job`, computed on a free thread if there is one, and
    // otherwise when the result is first asked for, on the asking thread.
    template<class F> static auto async(F job) -> std::future<decltype(job())>
    {
        auto task = std::make_shared<std::packaged_task<decltype(job())()>>(std::move(job));
        std::future<decltype(job())> result = task->get_future();
        if (tryStart([task] { (*task)(); }))
            return result;
        return std::async(std::launch::deferred, [task, result = std::move(result)]() mutable {
            (*task)();
            return result.get();
        });
    }
    // True when every job started so far has finished within the time
    // (-1: no limit).
    static bool waitForDone(std::chrono::milliseconds timeout = std::chrono::milliseconds(-1));
};
