#pragma once

#include <QMutex>

#include <vector>

class HBPersistentStore;

// Keeps the number of SQLite connections the process holds open below a
// small bound, whatever the number of store files.
//
// Points are kept in one file per ten-day period, so a library of thirty
// years has over a thousand files, each known to two coordinators; an open
// connection holds three descriptors (the file, its write-ahead log and the
// log's shared memory). A store therefore opens its connection when it is
// used and this class closes the least recently used idle ones once more
// than maximum() are open. A connection in use or inside a transaction is
// never closed: while many are busy at once the bound is exceeded for that
// moment rather than waited on.
class HBStoreConnectionLimit
{
public:
    static constexpr int kDefaultMaximum = 16;

    static HBStoreConnectionLimit &shared();

    int maximum() const;
    void setMaximum(int maximum);
    int openConnections() const;

    // The store has opened its connection or is using it (with its own
    // lock held): it becomes the most recently used, and idle connections
    // beyond the maximum are closed.
    void didUse(HBPersistentStore *store);
    // The store closed its connection or is going away.
    void didClose(HBPersistentStore *store);
    // Closes every idle connection, which checkpoints and removes the
    // write-ahead logs of files no one else has open; done at exit.
    void closeIdleConnections();

private:
    HBStoreConnectionLimit() = default;
    void closeIdleBeyond(qsizetype keep);

    mutable QMutex m_lock;
    struct Open
    {
        HBPersistentStore *store;
        quint64 lastUse;
    };
    std::vector<Open> m_open;
    quint64 m_clock = 0;
    int m_maximum = kDefaultMaximum;
};
