#pragma once

#include "platform/store/HBSortDescriptor.h"

#include <QList>

class HBManagedObject;

// Records in the order of sort descriptors, as the stores sort their rows:
// absent values first when ascending, ties kept in the order given.
class HBObjectSort
{
public:
    static void sort(QList<HBManagedObject *> &objects, const QList<HBSortDescriptor> &descriptors);
};
