#pragma once

#include <chrono>
#include <functional>

// Work the library runs aside, without waiting for it (deletions, the
// recent-imports refresh, a segment's points sent to deletion): one pool of
// the library's own, sized for the machine, so that such work never queues
// behind a host's use of Qt's global pool.
class HBBackgroundWork
{
public:
    static void start(std::function<void()> job);
    // True when everything started has finished within the time.
    static bool waitForDone(std::chrono::milliseconds timeout = std::chrono::milliseconds(-1));
};
