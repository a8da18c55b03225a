#pragma once

#include <QVariant>

#include <utility>
#include <vector>

class HBEntityDescription;

// The values of one record by property slot; a to-one relationship holds the
// destination's HBManagedObjectID. Only set values are present.
using HBRowValues = std::vector<std::pair<int, QVariant>>;

struct HBStoreRow
{
    qint64 primaryKey = 0;
    const HBEntityDescription *entity = nullptr;
    HBRowValues values;
};
