#pragma once

#include <functional>
#include <memory>

class HBError;
class HBManagedObjectContext;

// Where an import operation makes its records, handed to it by whoever
// queues it (the track manager, or a test over stores of its own): the
// importers know nothing of how the stores are laid out.
struct HBImportContexts
{
    // A fresh private-queue context straight on the coordinator the
    // imports write to; an XML import owns one for the length of its file.
    std::function<std::unique_ptr<HBManagedObjectContext>()> newContext;
    // The root context on that coordinator, which NMEA imports share and
    // save in batches.
    HBManagedObjectContext *sharedContext = nullptr;
    // Shows a failure the user must hear of (a failed NMEA save).
    std::function<void(const HBError &)> presentError;
};
