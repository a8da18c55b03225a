#pragma once

#include "browse/HBSmartFile.h"

// "Recent Imports": the tracks and waypoints of the newest import batch.
// It follows the track manager's recentImportsPredicate and, when that
// changes, asks whoever shows it to fetch its list again.
class HBSmartRecentImportsFile : public HBSmartFile
{
    Q_OBJECT
public:
    HBSmartRecentImportsFile();

private:
    void followRecentImportsPredicate();
};
