#pragma once

#include <QList>

#include <chrono>

class HBManagedObject;
class HBManagedObjectContext;

// Loads the values of a context's faulted records a chunk at a time, one
// fetch per chunk, where reading each record would fire its fault alone:
// for a child context that is a round trip to the parent's queue per
// record, ten thousand tracks a third of a second against a few dozen
// milliseconds. A caller on the main thread can stop between chunks, so
// that no frame waits long. Use it on the context's queue.
class HBFaultLoader
{
public:
    HBFaultLoader(HBManagedObjectContext *context, QList<HBManagedObject *> objects);

    // Loads chunks until the budget is spent; true once every object is
    // loaded. A record deleted from the store meanwhile stays a fault.
    bool loadFor(std::chrono::milliseconds budget);
    static void load(HBManagedObjectContext *context, const QList<HBManagedObject *> &objects);

private:
    void loadNextChunk();

    HBManagedObjectContext *m_context;
    QList<HBManagedObject *> m_objects;
    qsizetype m_next = 0;
};
