#pragma once

#include <cstddef>
#include <vector>

class HBManagedObject;

// Frees records that a context has let go of, on a worker thread. An
// import leaves a million points behind when its context is reset; freeing
// them takes about a second, which neither the import nor the program that
// ran it needs to wait for.
//
// The records must be unreachable: nothing may use them once handed over.
// At the end of the process, records still waiting are left to the system.
class HBDeferredDeletion
{
public:
    // Below this many records a thread costs more than it spares.
    static constexpr std::size_t worthAThread = 10000;

    static void deleteObjects(std::vector<HBManagedObject *> objects);
    // Returns once every record handed over so far is freed.
    static void waitForAll();
};
