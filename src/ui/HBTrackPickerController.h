#pragma once

// complete, for the spatialObjects property's type
#include "kits/geometry/HBSpatialObject.h"

#include <QList>
#include <QObject>

#include <memory>

class HBManagedObject;
class HBSmartFile;
class HBSpatialObjectController;
class HBTrackManager;
class HBTrackPickerWindowController;
class HBTrackSourceList;
class HBTreeNode;

// The tags of the two changes a map follows. A map that handles both in one
// place gets them with layerDidChange; the controller itself dispatches the
// source list's changes by them.
inline constexpr quintptr SpatialObjectsDidChangeContext = 0x53704F62;              // "SpOb"
inline constexpr quintptr SpatialObjectSelectionIndexesDidChangeContext = 0x53705365;   // "SpSe"

// What a host holds to offer tracks and waypoints as a layer of its map: the
// source list, the picker window (made when first asked for), and the
// listed records as spatial objects in the table's order, each owned by this
// controller so that the map can find its way back here, with the selected
// positions among them. The map selects through add/removeSelectedSpatialObjects.
//
// Main thread only.
class HBTrackPickerController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QList<HBSpatialObject *> spatialObjects READ spatialObjects NOTIFY spatialObjectsChanged)
    Q_PROPERTY(QList<qsizetype> spatialObjectSelectionIndexes READ spatialObjectSelectionIndexes
                   NOTIFY spatialObjectSelectionIndexesChanged)
    Q_PROPERTY(QString name READ name CONSTANT)
public:
    explicit HBTrackPickerController(QObject *parent = nullptr);
    ~HBTrackPickerController() override;

    // The layer's name as the host shows it.
    QString name() const { return QStringLiteral("Tracks & Waypoints"); }
    HBTrackManager *trackManager() const;
    HBTrackSourceList *trackSourceList() const { return m_trackSourceList.get(); }
    HBTrackPickerWindowController *windowController();

    HBSpatialObjectController *mapController() const { return m_mapController; }
    // The window, if there is one, gets the map first.
    void setMapController(HBSpatialObjectController *mapController);

    void showWindow();
    void importFilesAction();
    void downloadFromGPSAction();

    void addSmartFile(HBSmartFile *smartFile);
    void removeSmartFile(HBSmartFile *smartFile);
    HBTreeNode *selectedSourceList() const;
    void setSelectedSourceList(HBTreeNode *node);

    // The listed records in the table's order, each owned by this controller.
    QList<HBSpatialObject *> spatialObjects() const { return m_spatialObjects; }
    // Positions in spatialObjects, ascending.
    QList<qsizetype> spatialObjectSelectionIndexes() const { return m_spatialObjectSelectionIndexes; }
    // A click on the map: exactly the given objects that are listed become
    // the selection. True when at least one is listed.
    bool addSelectedSpatialObjects(const QList<HBSpatialObject *> &objects);
    // The given objects that are listed leave the selection; the rest of it
    // stays. True when at least one is listed.
    bool removeSelectedSpatialObjects(const QList<HBSpatialObject *> &objects);

signals:
    void mapControllerChanged();
    void spatialObjectsChanged();
    void spatialObjectSelectionIndexesChanged();
    void layerDidChange(quintptr context);

private:
    void sourceListDidChange(quintptr context);
    void republishSpatialObjects();
    QList<qsizetype> positionsOf(const QList<HBSpatialObject *> &objects) const;

    std::unique_ptr<HBTrackSourceList> m_trackSourceList;
    std::unique_ptr<HBTrackPickerWindowController> m_windowController;
    HBSpatialObjectController *m_mapController = nullptr;
    QList<HBSpatialObject *> m_spatialObjects;
    QList<qsizetype> m_spatialObjectSelectionIndexes;
};
