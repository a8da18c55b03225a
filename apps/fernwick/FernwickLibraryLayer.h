#pragma once

#include "manager/HBFetchedRecords.h"

#include <QList>
#include <QObject>

class HBSpatialObject;
class HBTrack;
class HBTrackManager;
class HBWaypoint;

// Every stored track and waypoint as one layer of the map, refetched after
// each import and deletion. It publishes what the track picker controller
// publishes (spatialObjects, spatialObjectSelectionIndexes and their change
// signals, addSelectedSpatialObjects), so that the window wires either one
// to the canvas the same way.
class FernwickLibraryLayer : public QObject
{
    Q_OBJECT

public:
    explicit FernwickLibraryLayer(HBTrackManager *manager, QObject *parent = nullptr);
    ~FernwickLibraryLayer() override;

    QList<HBSpatialObject *> spatialObjects() const { return m_spatialObjects; }
    QList<qsizetype> spatialObjectSelectionIndexes() const { return m_selection; }
    // Exactly the given objects that are listed become the selection; true
    // when at least one is listed.
    bool addSelectedSpatialObjects(const QList<HBSpatialObject *> &objects);
    // The selected tracks and waypoints, for export.
    QList<HBTrack *> selectedTracks() const;
    QList<HBWaypoint *> selectedWaypoints() const;

    void refresh();

signals:
    void spatialObjectsChanged();
    void spatialObjectSelectionIndexesChanged();

private:
    HBTrackManager *m_manager;
    HBFetchedRecords<HBTrack> m_tracks;
    HBFetchedRecords<HBWaypoint> m_waypoints;
    QList<HBSpatialObject *> m_spatialObjects;
    QList<qsizetype> m_selection;
};
