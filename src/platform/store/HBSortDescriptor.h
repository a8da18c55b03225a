#pragma once

#include <QString>

// Orders fetch results by one key; nil sorts before every value.
struct HBSortDescriptor
{
    QString key;
    bool ascending = true;
};
