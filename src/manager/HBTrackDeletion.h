#pragma once

#include "platform/store/HBManagedObjectID.h"

#include <QList>
#include <QUrl>

class HBManagedObject;
class HBManagedObjectContext;
class HBTrackManager;

// Deletion of what the user removes and of the points segments let go.
//
// An import source takes its tracks, segments, points and waypoints with
// it, in every store file: points are not related to their segments by a
// relationship a cascade could follow across files, so a deleted segment
// sends its points to be deleted from their files after it (in the
// background), and HBTrackManagerDidDeleteObjects is announced when they
// are gone.
class HBTrackDeletion
{
public:
    explicit HBTrackDeletion(HBTrackManager &manager);

    // Deletes track points and saves, before returning.
    void deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs);
    // Deletes track points straight from the files, in the background, then
    // announces HBTrackManagerDidDeleteObjects on the main thread.
    void deletePointsWithURIs(const QList<QUrl> &pointURIs);
    // Deletes the objects (import sources, tracks, waypoints, anything
    // else) in the background, saves, then announces
    // HBTrackManagerDidDeleteObjects from that background thread.
    void deleteObjects(const QList<HBManagedObject *> &objects);
    // Delete in the given context, without saving; related records are
    // loaded in one go first, so that the cascade finds them in memory.
    static void deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    static void deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    static void deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);

private:
    HBTrackManager &m_manager;
};
