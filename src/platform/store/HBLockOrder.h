#pragma once

// Threads and locks of the store layer
// ====================================
//
// Who touches what
// ----------------
// - A context's objects are touched only by the block its queue is running:
//   a private-queue context's blocks run one at a time on a worker thread
//   (HBBackgroundWork's waiting lane), a main-queue context's on the main
//   thread. performBlockAndWait from inside the context's own queue runs
//   the block at once. A context is destroyed from outside its queue; the
//   destructor waits for a running drain.
// - A coordinator's list of stores is read by any thread (a read-write
//   lock) and changed while its own lock is held.
// - A store (one SQLite file, one connection) is used by one thread at a
//   time: every call takes the store's lock, and an HBStoreTransaction keeps
//   it from begin to commit. The connection may be closed between calls by
//   HBStoreConnectionLimit, which only ever tries a store's lock.
// - The main thread runs the user interface and serves HBMainThread's
//   requests whenever it waits (HBMainThread::waitUntil, HBMainThread::lock).
//
// Lock levels, outermost first
// ----------------------------
//   1. Context       the lock a context's block runs under. A block may
//                    wait for its parent's queue, so a child's comes before
//                    its parent's; two unrelated contexts are never nested.
//   2. Opening       the track layout's lock that serialises the opening of
//                    a period file (taken inside a context's block, when a
//                    point is placed).
//   3. Coordinator   a coordinator's own lock, while a store is added.
//   4. Store         a store's lock, for one call or one transaction; one
//                    store at a time.
//   Leaves           the connection limit, the coordinator's list of stores,
//                    its save notes, the layout's registry and identifier
//                    notes, an operation queue's list, HBMainThread's queue:
//                    held only for a few instructions, never while waiting
//                    or taking another lock.
// A thread takes locks in this order only; a lock of the same level again
// only as the rules above allow.
//
// Held across a wait
// ------------------
// - Waiting for a context's queue (performBlockAndWait) holds at most the
//   caller's own context lock, and only to wait for its parent.
// - Waiting for the main thread (HBMainThread::runAndWait) may hold the
//   opening and coordinator locks: a new period file is added to the main
//   thread's coordinator while the opening thread waits. So the main thread
//   takes the opening lock only through HBMainThread::lock, which serves
//   such requests while it waits.
// - Nothing waits while holding a store's lock or a leaf.
//
// HBLockOrder checks the levels: in debug builds every lock of levels 1 to
// 4 is reported to it on the thread that takes it (HB_WILL_LOCK,
// HB_DID_UNLOCK), and a lock taken out of order stops the program with both
// levels named. Release builds spend nothing on it.
class HBLockOrder
{
public:
    enum Level { Context = 1, Opening = 2, Coordinator = 3, Store = 4 };

    // The thread takes a lock of the level; false when that breaks the
    // order (the lock is still counted as taken).
    static bool willLock(Level level);
    static void didUnlock(Level level);
    // The innermost level the thread holds; 0 for none.
    static int innermost();
    // willLock, stopping the program when the order is broken.
    static void enforce(Level level);
};

#ifdef NDEBUG
#define HB_WILL_LOCK(level) static_cast<void>(0)
#define HB_DID_UNLOCK(level) static_cast<void>(0)
#else
#define HB_WILL_LOCK(level) HBLockOrder::enforce(HBLockOrder::level)
#define HB_DID_UNLOCK(level) HBLockOrder::didUnlock(HBLockOrder::level)
#endif
