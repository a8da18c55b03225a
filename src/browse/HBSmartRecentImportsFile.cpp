#include "browse/HBSmartRecentImportsFile.h"

#include "manager/HBTrackManager.h"

HBSmartRecentImportsFile::HBSmartRecentImportsFile()
{
    setName(tr("Recent Imports"));
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    setTrackPredicate(manager->recentImportsPredicate());
    setWaypointPredicate(manager->recentImportsPredicate());
    connect(manager, &HBTrackManager::recentImportsPredicateChanged, this,
            &HBSmartRecentImportsFile::followRecentImportsPredicate);
}

void HBSmartRecentImportsFile::followRecentImportsPredicate()
{
    const HBPredicate predicate = HBTrackManager::sharedTrackManager()->recentImportsPredicate();
    setTrackPredicate(predicate);
    setWaypointPredicate(predicate);
    emit shouldRefreshTracksAndWaypointsChanged();
}
