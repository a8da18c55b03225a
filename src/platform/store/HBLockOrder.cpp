#include "platform/store/HBLockOrder.h"

#include <QtGlobal>

#include <algorithm>
#include <vector>

namespace {

// The levels this thread holds, in the order it took them.
thread_local std::vector<int> held;

} // namespace

bool HBLockOrder::willLock(Level level)
{
    const bool inOrder = held.empty() || int(level) >= held.back();
    held.push_back(int(level));
    return inOrder;
}

void HBLockOrder::didUnlock(Level level)
{
    const auto it = std::find(held.rbegin(), held.rend(), int(level));
    if (it != held.rend())
        held.erase(std::next(it).base());
}

int HBLockOrder::innermost()
{
    return held.empty() ? 0 : held.back();
}

void HBLockOrder::enforce(Level level)
{
    const int before = innermost();
    if (!willLock(level))
        qFatal("Lock order broken: level %d taken while holding level %d", int(level), before);
}
