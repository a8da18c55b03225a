#include "manager/HBTrackDeletion.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBMainThread.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

namespace {

// The loaded relationships of track points that are about to be deleted.
const QStringList kTrackPointPrefetchKeyPaths{
    QStringLiteral("additionalAttributes"), QStringLiteral("children"), QStringLiteral("cities"),
    QStringLiteral("continents"), QStringLiteral("countries"), QStringLiteral("keywords"),
    QStringLiteral("states"),
};

const QStringList kImportSourcePrefetchKeyPaths{
    QStringLiteral("events"), QStringLiteral("routes"), QStringLiteral("tracks"), QStringLiteral("waypoints"),
};

const QStringList kWaypointPrefetchKeyPaths{
    QStringLiteral("additionalAttributes"), QStringLiteral("children"), QStringLiteral("cities"),
    QStringLiteral("continents"), QStringLiteral("counties"), QStringLiteral("countries"),
    QStringLiteral("event"), QStringLiteral("importSource"), QStringLiteral("keywords"),
    QStringLiteral("manualGroups"), QStringLiteral("people"), QStringLiteral("states"),
};

HBPredicate idsIn(const QString &keyPath, const QList<HBManagedObjectID> &ids)
{
    return HBPredicate::format(keyPath + QStringLiteral(" IN %@"), {QVariant::fromValue(ids)});
}

QList<HBManagedObject *> fetchLoaded(HBManagedObjectContext *context, const QString &entity, const HBPredicate &predicate,
                                     const QStringList &prefetch)
{
    return context->executeFetchRequest(HBFetchRequest::loaded(entity, predicate, prefetch));
}

QList<HBManagedObject *> fetchTrackPoints(HBManagedObjectContext *context, const QList<HBManagedObjectID> &ids)
{
    return fetchLoaded(context, QStringLiteral("HBTrackPoint"), idsIn(QStringLiteral("self"), ids), kTrackPointPrefetchKeyPaths);
}

} // namespace

HBTrackDeletion::HBTrackDeletion(HBTrackManager &manager)
    : m_manager(manager)
{
}

void HBTrackDeletion::deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs)
{
    if (pointIDs.isEmpty())
        return;
    std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
    context->performBlockAndWait([&] {
        for (HBManagedObject *point : fetchTrackPoints(context.get(), pointIDs))
            context->deleteObject(point);
        m_manager.saveWithChildContext(context.get());
    });
}

void HBTrackDeletion::deletePointsWithURIs(const QList<QUrl> &pointURIs)
{
    if (pointURIs.isEmpty())
        return;
    HBBackgroundWork::start([this, pointURIs] {
        std::unique_ptr<HBManagedObjectContext> context = m_manager.newManagedObjectContext();
        context->performBlockAndWait([&] {
            HBPersistentStoreCoordinator *coordinator = context->persistentStoreCoordinator();
            QList<HBManagedObjectID> ids;
            ids.reserve(pointURIs.size());
            for (const QUrl &uri : pointURIs) {
                const HBManagedObjectID id = coordinator->managedObjectIDForURIRepresentation(uri);
                if (!id.isNull())
                    ids.append(id);
            }
            for (HBManagedObject *point : fetchTrackPoints(context.get(), ids))
                context->deleteObject(point);
            context->save();
        });
        HBMainThread::post([] { HBTrackManager::sharedTrackManager()->postDidDeleteObjects(); });
    });
}

void HBTrackDeletion::deleteObjects(const QList<HBManagedObject *> &objects)
{
    QList<HBManagedObjectID> waypoints, tracks, sources, others;
    for (const HBManagedObject *o : objects) {
        const QString entity = o->entity()->name();
        QList<HBManagedObjectID> &list = entity == QLatin1String("HBWaypoint")       ? waypoints
                                         : entity == QLatin1String("HBTrack")        ? tracks
                                         : entity == QLatin1String("HBImportSource") ? sources
                                                                                      : others;
        list.append(o->objectID());
    }
    // The context is made and dropped on a worker thread: a context cannot
    // be destroyed from inside its own queue.
    HBBackgroundWork::start([this, waypoints, tracks, sources, others] {
        std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
        HBManagedObjectContext *k = context.get();
        k->performBlockAndWait([&] {
            if (!waypoints.isEmpty())
                deleteWaypointsWithIDs(waypoints, k);
            if (!tracks.isEmpty())
                deleteTracksWithIDs(tracks, k);
            if (!sources.isEmpty())
                deleteImportSourcesWithIDs(sources, k);
            for (const HBManagedObjectID &id : others) {
                if (HBManagedObject *object = k->existingObjectWithID(id))
                    k->deleteObject(object);
            }
            m_manager.saveWithChildContext(k);
            m_manager.postDidDeleteObjects();
        });
    });
}

void HBTrackDeletion::deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    const QList<HBManagedObject *> sources =
        fetchLoaded(context, QStringLiteral("HBImportSource"), idsIn(QStringLiteral("self"), ids), kImportSourcePrefetchKeyPaths);
    // loaded only so that the cascade below finds them in memory
    fetchLoaded(context, QStringLiteral("HBTrack"), idsIn(QStringLiteral("self.importSource"), ids), HBTrack::prefetchKeyPaths());
    fetchLoaded(context, QStringLiteral("HBWaypoint"), idsIn(QStringLiteral("self.importSource"), ids), kWaypointPrefetchKeyPaths);
    for (HBManagedObject *source : sources)
        context->deleteObject(source);
}

void HBTrackDeletion::deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    for (HBManagedObject *track : fetchLoaded(context, QStringLiteral("HBTrack"), idsIn(QStringLiteral("self"), ids),
                                              HBTrack::prefetchKeyPaths()))
        context->deleteObject(track);
}

void HBTrackDeletion::deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    for (HBManagedObject *waypoint : fetchLoaded(context, QStringLiteral("HBWaypoint"), idsIn(QStringLiteral("self"), ids),
                                                 kWaypointPrefetchKeyPaths))
        context->deleteObject(waypoint);
}
