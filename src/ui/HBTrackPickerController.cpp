#include "ui/HBTrackPickerController.h"

#include "browse/HBTrackSourceList.h"
#include "kits/geometry/HBSpatialObject.h"
#include "manager/HBTrackManager.h"
#include "ui/HBTrackPickerWindowController.h"

HBTrackPickerController::HBTrackPickerController(QObject *parent)
    : QObject(parent)
    , m_trackSourceList(std::make_unique<HBTrackSourceList>())
{
    HBTrackSourceList *model = m_trackSourceList.get();
    const auto objectsChanged = [this] { sourceListDidChange(SpatialObjectsDidChangeContext); };
    connect(model, &HBTrackSourceList::tracksAndWaypointsChanged, this, objectsChanged);
    connect(model, &HBTrackSourceList::tracksAndWaypointsSortDescriptorsChanged, this, objectsChanged);
    connect(model, &HBTrackSourceList::tracksAndWaypointsSelectionIndexesChanged, this,
            [this] { sourceListDidChange(SpatialObjectSelectionIndexesDidChangeContext); });
}

// Members go in reverse order: the window before the source list it shows.
HBTrackPickerController::~HBTrackPickerController() = default;

HBTrackManager *HBTrackPickerController::trackManager() const
{
    return HBTrackManager::sharedTrackManager();
}

HBTrackPickerWindowController *HBTrackPickerController::windowController()
{
    if (!m_windowController) {
        m_windowController = std::make_unique<HBTrackPickerWindowController>(m_trackSourceList.get());
        m_windowController->setMapController(m_mapController);
    }
    return m_windowController.get();
}

void HBTrackPickerController::setMapController(HBSpatialObjectController *mapController)
{
    if (m_windowController)
        m_windowController->setMapController(mapController);
    m_mapController = mapController;
    emit mapControllerChanged();
}

void HBTrackPickerController::showWindow()
{
    windowController()->showWindow();
}

void HBTrackPickerController::importFilesAction()
{
    windowController()->importFilesAction();
}

void HBTrackPickerController::downloadFromGPSAction()
{
    windowController()->downloadFromGPSAction();
}

void HBTrackPickerController::addSmartFile(HBSmartFile *smartFile)
{
    m_trackSourceList->addSmartFile(smartFile);
}

void HBTrackPickerController::removeSmartFile(HBSmartFile *smartFile)
{
    m_trackSourceList->removeSmartFile(smartFile);
}

HBTreeNode *HBTrackPickerController::selectedSourceList() const
{
    return m_trackSourceList->selectedSourceList();
}

void HBTrackPickerController::setSelectedSourceList(HBTreeNode *node)
{
    m_trackSourceList->setSelectedSourceList(node);
}

void HBTrackPickerController::sourceListDidChange(quintptr context)
{
    if (context == SpatialObjectsDidChangeContext) {
        republishSpatialObjects();
    } else if (context == SpatialObjectSelectionIndexesDidChangeContext) {
        // both are positions in the sorted list, so they carry over as they are
        m_spatialObjectSelectionIndexes = m_trackSourceList->tracksAndWaypointsSelectionIndexes();
        emit spatialObjectSelectionIndexesChanged();
    }
    emit layerDidChange(context);
}

// Every record is told its owner again, even when only the order changed:
// a record the list shows may be one the map has not seen yet.
void HBTrackPickerController::republishSpatialObjects()
{
    QList<HBSpatialObject *> objects;
    const QVariant owner = QVariant::fromValue<QObject *>(this);
    for (HBManagedObject *record : m_trackSourceList->sortedTracksAndWaypoints()) {
        if (auto *object = dynamic_cast<HBSpatialObject *>(record)) {
            object->setObjectOwner(owner);
            objects.append(object);
        }
    }
    m_spatialObjects = objects;
    emit spatialObjectsChanged();
}

QList<qsizetype> HBTrackPickerController::positionsOf(const QList<HBSpatialObject *> &objects) const
{
    QList<qsizetype> positions;
    for (HBSpatialObject *object : objects) {
        if (const qsizetype i = m_spatialObjects.indexOf(object); i >= 0)
            positions.append(i);
    }
    return positions;
}

bool HBTrackPickerController::addSelectedSpatialObjects(const QList<HBSpatialObject *> &objects)
{
    const QList<qsizetype> positions = positionsOf(objects);
    m_trackSourceList->setTracksAndWaypointsSelectionIndexes(positions);
    return !positions.isEmpty();
}

bool HBTrackPickerController::removeSelectedSpatialObjects(const QList<HBSpatialObject *> &objects)
{
    const QList<qsizetype> positions = positionsOf(objects);
    QList<qsizetype> selection = m_trackSourceList->tracksAndWaypointsSelectionIndexes();
    selection.removeIf([&](qsizetype i) { return positions.contains(i); });
    m_trackSourceList->setTracksAndWaypointsSelectionIndexes(selection);
    return !positions.isEmpty();
}
