#include "FernwickLibraryLayer.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBWaypoint.h"

namespace {

template<class Record>
QList<Record *> selectedOf(const QList<HBSpatialObject *> &objects, const QList<qsizetype> &selection)
{
    QList<Record *> records;
    for (qsizetype i : selection) {
        if (auto *record = dynamic_cast<Record *>(objects.value(i)))
            records.append(record);
    }
    return records;
}

} // namespace

FernwickLibraryLayer::FernwickLibraryLayer(HBTrackManager *manager, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
{
    connect(manager, &HBTrackManager::didFinishBatchImport, this, &FernwickLibraryLayer::refresh);
    connect(manager, &HBTrackManager::didDeleteObjects, this, &FernwickLibraryLayer::refresh);
}

FernwickLibraryLayer::~FernwickLibraryLayer() = default;

void FernwickLibraryLayer::refresh()
{
    // the new records are listed before the old ones, which the canvas
    // still holds, go with their contexts
    HBFetchedRecords<HBTrack> tracks = m_manager->tracksForPredicate(HBPredicate::truePredicate());
    HBFetchedRecords<HBWaypoint> waypoints = m_manager->waypointsForPredicate(HBPredicate::truePredicate());
    QList<HBSpatialObject *> objects;
    for (HBTrack *track : tracks.records)
        objects.append(track);
    for (HBWaypoint *waypoint : waypoints.records)
        objects.append(waypoint);
    m_selection.clear();
    emit spatialObjectSelectionIndexesChanged();
    m_spatialObjects = objects;
    emit spatialObjectsChanged();
    m_tracks = std::move(tracks);
    m_waypoints = std::move(waypoints);
}

bool FernwickLibraryLayer::addSelectedSpatialObjects(const QList<HBSpatialObject *> &objects)
{
    QList<qsizetype> positions;
    for (HBSpatialObject *object : objects) {
        const qsizetype i = m_spatialObjects.indexOf(object);
        if (i >= 0)
            positions.append(i);
    }
    std::sort(positions.begin(), positions.end());
    m_selection = positions;
    emit spatialObjectSelectionIndexesChanged();
    return !positions.isEmpty();
}

QList<HBTrack *> FernwickLibraryLayer::selectedTracks() const
{
    return selectedOf<HBTrack>(m_spatialObjects, m_selection);
}

QList<HBWaypoint *> FernwickLibraryLayer::selectedWaypoints() const
{
    return selectedOf<HBWaypoint>(m_spatialObjects, m_selection);
}
