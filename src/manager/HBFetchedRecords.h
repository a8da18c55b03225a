#pragma once

#include "platform/store/HBManagedObjectContext.h"

#include <QList>

#include <memory>

// Records fetched into a short-lived context of their own, which lives as
// long as this value: use them on the calling thread and let them go.
template<class Record>
struct HBFetchedRecords
{
    std::shared_ptr<HBManagedObjectContext> context;
    QList<Record *> records;
};
