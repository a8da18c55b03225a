#include "browse/HBTrackSourceList.h"

#include "browse/HBDateTree.h"
#include "browse/HBFaultLoader.h"
#include "browse/HBFileTree.h"
#include "browse/HBSmartFileTree.h"
#include "browse/HBSmartRecentImportsFile.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "platform/HBLogging.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QPointer>
#include <QSet>

#include <algorithm>
#include <numeric>

namespace {

// The most the main thread spends loading records before it lets the event
// loop run: well inside a frame of 16 ms.
constexpr std::chrono::milliseconds kMainThreadSlice(5);

QList<HBManagedObjectID> fetchIdentifiers(HBManagedObjectContext *context, const QString &entity, const HBPredicate &predicate)
{
    HBFetchRequest request(entity);
    request.setPredicate(predicate);
    HBError error;
    const QList<HBManagedObjectID> ids = context->executeFetchRequestForObjectIDs(request, &error);
    if (error.isNull())
        return ids;
    qCWarning(hbBrowse).noquote() << "FetchRequest error occurred in reloadTracksAndWaypoints:" << error.localizedDescription();
    return {};
}

QList<HBManagedObject *> objectsWithIDs(HBManagedObjectContext *context, const QList<HBManagedObjectID> &ids)
{
    QList<HBManagedObject *> objects;
    objects.reserve(ids.size());
    for (const HBManagedObjectID &id : ids)
        objects.append(context->objectWithID(id));
    return objects;
}

// Nil before every value, as the store sorts.
int compareForSort(const QVariant &a, const QVariant &b)
{
    if (!a.isValid() || !b.isValid())
        return int(a.isValid()) - int(b.isValid());
    return HBPredicate::compareValues(a, b);
}

QList<HBManagedObject *> sortedByDescriptors(const QList<HBManagedObject *> &objects, const QList<HBSortDescriptor> &descriptors)
{
    if (objects.isEmpty())
        return objects;
    // every key of every record is read below: one fetch per chunk rather
    // than one per record
    HBFaultLoader::load(objects.constFirst()->managedObjectContext(), objects);
    QList<QVariantList> keys;
    keys.reserve(objects.size());
    for (const HBManagedObject *object : objects) {
        QVariantList values;
        for (const HBSortDescriptor &descriptor : descriptors)
            values.append(HBTrackSourceList::valueForSortKey(object, descriptor.key));
        keys.append(values);
    }
    QList<qsizetype> order(objects.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        for (qsizetype k = 0; k < descriptors.size(); ++k) {
            const int c = compareForSort(keys.at(a).at(k), keys.at(b).at(k));
            if (c != 0)
                return descriptors.at(k).ascending ? c < 0 : c > 0;
        }
        return false;
    });
    QList<HBManagedObject *> sorted;
    sorted.reserve(objects.size());
    for (qsizetype i : std::as_const(order))
        sorted.append(objects.at(i));
    return sorted;
}

QList<qsizetype> normalizedIndexes(QList<qsizetype> indexes)
{
    std::sort(indexes.begin(), indexes.end());
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    return indexes;
}

// The positions of the given records in the list, those that are there.
QList<qsizetype> positionsIn(const QList<HBManagedObject *> &list, const QList<HBManagedObject *> &objects)
{
    QList<qsizetype> positions;
    for (HBManagedObject *object : objects) {
        if (const qsizetype i = list.indexOf(object); i >= 0)
            positions.append(i);
    }
    return positions;
}

} // namespace

struct HBTrackSourceList::FetchedIdentifiers
{
    quint64 refresh;
    QList<HBManagedObjectID> tracks;
    QList<HBManagedObjectID> waypoints;
};

// Step 3 of a refresh while the records' values come in.
struct HBTrackSourceList::Loading
{
    quint64 refresh;
    QList<HBManagedObject *> tracks;
    QList<HBManagedObject *> waypoints;
    HBFaultLoader loader;
};

HBTrackSourceList::HBTrackSourceList(QObject *parent)
    : QObject(parent)
    , m_smartTree(std::make_unique<HBSmartFileTree>())
    , m_dateTree(std::make_unique<HBDateTree>())
    , m_fileTree(std::make_unique<HBFileTree>())
    , m_recentImports(std::make_unique<HBSmartRecentImportsFile>())
    , m_refreshQueue(std::make_unique<HBOperationQueue>())
{
    m_dateTree->reloadForImportSource(nullptr);
    m_fileTree->reloadForDatePredicate({});
    addSmartFile(m_recentImports.get());
    m_refreshQueue->setMaxConcurrentOperationCount(1);
    refreshTracksAndWaypoints();
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    connect(manager, &HBTrackManager::didAddNewImportSource, this, &HBTrackSourceList::handleDidAddNewImportSource);
    // Deletions end in the background, after the reload that deleting from
    // here starts at once: they are shown when they are done.
    connect(manager, &HBTrackManager::didDeleteObjects, this, &HBTrackSourceList::handleDidAddNewImportSource);
}

// The smart file it made goes with it: not as a selected node that went.
HBTrackSourceList::~HBTrackSourceList()
{
    stopObservingSelectedSourceList();
}

QList<HBTreeNode *> HBTrackSourceList::sources() const
{
    return {m_smartTree.get(), m_dateTree.get(), m_fileTree.get()};
}

void HBTrackSourceList::handleDidAddNewImportSource()
{
    m_dateTree->reloadForImportSource(nullptr);
    m_fileTree->reloadForDatePredicate({});
    refreshTracksAndWaypoints();
}

void HBTrackSourceList::addSmartFile(HBSmartFile *smartFile)
{
    m_smartTree->insertObjectInChildrenAtIndex(smartFile, 0);
}

void HBTrackSourceList::removeSmartFile(HBSmartFile *smartFile)
{
    if (const qsizetype index = m_smartTree->smartFiles().indexOf(smartFile); index >= 0)
        m_smartTree->removeObjectFromChildrenAtIndex(index);
}

void HBTrackSourceList::deleteObjectsFromSourceList(HBTreeNode *node)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    if (auto *source = dynamic_cast<HBImportSource *>(node))
        manager->deleteObjects({source});
    else
        manager->deleteObjects(m_tracksAndWaypoints);
    handleDidAddNewImportSource();
}

// --- selection in the trees ---------------------------------------------------------------

void HBTrackSourceList::setSourceListSelectionIndexPaths(const QList<HBIndexPath> &paths)
{
    if (paths == m_sourceListSelectionIndexPaths)
        return;
    select(paths.isEmpty() ? nullptr : sourceListInChildrenArray(sources(), paths.constLast()), paths);
}

void HBTrackSourceList::setSelectedSourceList(HBTreeNode *node)
{
    QList<HBIndexPath> paths;
    if (node) {
        const std::optional<HBIndexPath> deepestFirst = indexPathOfSourceList(node, sources());
        if (deepestFirst && deepestFirst->size() >= 2)
            paths.append(HBIndexPath(deepestFirst->crbegin(), deepestFirst->crend()));
    }
    select(node, paths);
}

void HBTrackSourceList::select(HBTreeNode *node, const QList<HBIndexPath> &paths)
{
    stopObservingSelectedSourceList();
    m_sourceListSelectionIndexPaths = paths;
    m_selectedSourceList = node;
    emit selectedSourceListChanged();
    emit sourceListSelectionIndexPathsChanged();
    observeSelectedSourceList();
    setTracksAndWaypointsSelectionIndexes({});
    refreshTracksAndWaypoints();
}

void HBTrackSourceList::stopObservingSelectedSourceList()
{
    for (const QMetaObject::Connection &c : std::as_const(m_selectedSourceListObservation))
        disconnect(c);
    m_selectedSourceListObservation.clear();
}

void HBTrackSourceList::observeSelectedSourceList()
{
    HBObservableTreeNode *node = m_selectedSourceList ? m_selectedSourceList->observable() : nullptr;
    if (!node)
        return;
    m_selectedSourceListObservation = {
        connect(node, &HBObservableTreeNode::shouldRefreshTracksAndWaypointsChanged, this,
                &HBTrackSourceList::refreshTracksAndWaypoints),
        // a smart file deleted by its owner while selected
        connect(node, &QObject::destroyed, this, [this] { select(nullptr, {}); }),
    };
}

HBTreeNode *HBTrackSourceList::sourceListInChildrenArray(const QList<HBTreeNode *> &array, const HBIndexPath &path)
{
    QList<HBTreeNode *> nodes = array;
    for (qsizetype position = 0; position < path.size(); ++position) {
        const qsizetype index = path.at(position);
        HBTreeNode *node = index >= 0 && index < nodes.size() ? nodes.at(index) : nullptr;
        if (position == path.size() - 1)
            return node;
        if (!node || node->isLeaf())
            return nullptr;
        nodes = node->children();
    }
    return nullptr;
}

std::optional<HBIndexPath> HBTrackSourceList::indexPathOfSourceList(const HBTreeNode *node, const QList<HBTreeNode *> &array)
{
    for (qsizetype i = 0; i < array.size(); ++i) {
        const HBTreeNode *element = array.at(i);
        if (element == node)
            return HBIndexPath{i};
        if (element->isLeaf())
            continue;
        if (std::optional<HBIndexPath> hit = indexPathOfSourceList(node, element->children())) {
            hit->append(i);
            return hit;
        }
    }
    return std::nullopt;
}

// --- refresh --------------------------------------------------------------------------------

void HBTrackSourceList::refreshTracksAndWaypoints()
{
    // Read here, where the nodes live; a later selection schedules a
    // refresh of its own.
    const HBPredicate tracks = m_selectedSourceList ? m_selectedSourceList->trackPredicate() : HBPredicate();
    const HBPredicate waypoints = m_selectedSourceList ? m_selectedSourceList->waypointPredicate() : HBPredicate();
    m_refreshQueue->cancelAllOperations();
    m_refreshQueue->addOperationWithBlock([tracks, waypoints, refresh = ++m_refreshRequested, list = QPointer<HBTrackSourceList>(this)] {
        HBTrackManager *manager = HBTrackManager::sharedTrackManager();
        FetchedIdentifiers ids{refresh, {}, {}};
        if (tracks.isValid()) {
            std::unique_ptr<HBManagedObjectContext> context = manager->newPrivateQueueContext();
            context->performBlockAndWait([&] {
                ids.tracks = fetchIdentifiers(context.get(), QStringLiteral("HBTrack"), tracks);
                ids.waypoints = fetchIdentifiers(context.get(), QStringLiteral("HBWaypoint"), waypoints);
            });
        }
        manager->mainQueueContext()->performBlock([list, ids] {
            if (list)
                list->showFetchedIdentifiers(ids);
        });
    });
}

void HBTrackSourceList::showFetchedIdentifiers(const FetchedIdentifiers &ids)
{
    HBManagedObjectContext *ui = HBTrackManager::sharedTrackManager()->mainQueueContext();
    QList<HBManagedObject *> tracks = objectsWithIDs(ui, ids.tracks);
    QList<HBManagedObject *> waypoints = objectsWithIDs(ui, ids.waypoints);
    // The point counts read every track, and a table reads its rows and
    // sorts by their values: all are loaded here, a slice at a time,
    // rather than one by one when first read.
    HBFaultLoader loader(ui, tracks + waypoints);
    m_loading.reset(new Loading{ids.refresh, std::move(tracks), std::move(waypoints), std::move(loader)});
    // the records were made in this turn; they load in the next ones
    continueLoadingLater();
}

void HBTrackSourceList::continueLoadingLater()
{
    if (m_continuationQueued)
        return;
    m_continuationQueued = true;
    QMetaObject::invokeMethod(this, [this] {
        m_continuationQueued = false;
        continueLoading();
    }, Qt::QueuedConnection);
}

void HBTrackSourceList::continueLoading()
{
    if (!m_loading)
        return;
    if (!m_loading->loader.loadFor(kMainThreadSlice)) {
        continueLoadingLater();
        return;
    }
    const std::unique_ptr<Loading> loaded = std::move(m_loading);
    showRefreshed(*loaded);
}

void HBTrackSourceList::showRefreshed(const Loading &loaded)
{
    quint64 points = 0;
    for (const HBManagedObject *track : loaded.tracks)
        points += quint64(static_cast<const HBTrack *>(track)->numberOfTrackPoints());
    setCountOfTracks(quint64(loaded.tracks.size()));
    setCountOfTrackPoints(points);
    setCountOfWaypoints(quint64(loaded.waypoints.size()));
    const QList<HBManagedObject *> listed = loaded.tracks + loaded.waypoints;
    if (listed != m_tracksAndWaypoints)
        setTracksAndWaypoints(listed);
    m_refreshShown = loaded.refresh;
    emit didRefreshTracksAndWaypoints();
}

// --- the list ----------------------------------------------------------------------------------

void HBTrackSourceList::setTracksAndWaypoints(const QList<HBManagedObject *> &objects)
{
    HBManagedObjectContext *ui = HBTrackManager::sharedTrackManager()->mainQueueContext();
    QSet<HBManagedObjectID> listed, given;
    for (const HBManagedObject *object : std::as_const(m_tracksAndWaypoints))
        listed.insert(object->objectID());
    QList<HBManagedObject *> added;
    for (const HBManagedObject *object : objects) {
        given.insert(object->objectID());
        if (!listed.contains(object->objectID()))
            added.append(ui->objectWithID(object->objectID()));
    }
    m_tracksAndWaypoints.removeIf([&given](const HBManagedObject *object) { return !given.contains(object->objectID()); });
    m_tracksAndWaypoints += added;
    forgetSortedList();
    emit tracksAndWaypointsChanged();
    emit selectedTracksAndWaypointsChanged();
}

void HBTrackSourceList::setTracksAndWaypointsSortDescriptors(const QList<HBSortDescriptor> &descriptors)
{
    m_tracksAndWaypointsSortDescriptors = descriptors;
    forgetSortedList();
    emit tracksAndWaypointsSortDescriptorsChanged();
    emit selectedTracksAndWaypointsChanged();
}

void HBTrackSourceList::setTracksAndWaypointsSelectionIndexes(const QList<qsizetype> &indexes)
{
    m_tracksAndWaypointsSelectionIndexes = normalizedIndexes(indexes);
    emit tracksAndWaypointsSelectionIndexesChanged();
    emit selectedTracksAndWaypointsChanged();
}

void HBTrackSourceList::forgetSortedList()
{
    m_sortedTracksAndWaypoints.reset();
}

QList<HBManagedObject *> HBTrackSourceList::sortedTracksAndWaypoints() const
{
    if (m_tracksAndWaypointsSortDescriptors.isEmpty())
        return m_tracksAndWaypoints;
    if (!m_sortedTracksAndWaypoints)
        m_sortedTracksAndWaypoints = sortedByDescriptors(m_tracksAndWaypoints, m_tracksAndWaypointsSortDescriptors);
    return *m_sortedTracksAndWaypoints;
}

QList<HBManagedObject *> HBTrackSourceList::selectedTracksAndWaypoints() const
{
    const QList<HBManagedObject *> sorted = sortedTracksAndWaypoints();
    QList<HBManagedObject *> selected;
    for (qsizetype i : m_tracksAndWaypointsSelectionIndexes) {
        if (i < sorted.size())
            selected.append(sorted.at(i));
    }
    return selected;
}

bool HBTrackSourceList::removeSelectedTracksAndWaypoints(const QList<HBManagedObject *> &objects)
{
    const QList<qsizetype> positions = positionsIn(sortedTracksAndWaypoints(), objects);
    QList<qsizetype> indexes = m_tracksAndWaypointsSelectionIndexes;
    indexes.removeIf([&positions](qsizetype i) { return positions.contains(i); });
    setTracksAndWaypointsSelectionIndexes(indexes);
    return !positions.isEmpty();
}

bool HBTrackSourceList::addSelectedTracksAndWaypoints(const QList<HBManagedObject *> &objects)
{
    const QList<qsizetype> positions = positionsIn(sortedTracksAndWaypoints(), objects);
    setTracksAndWaypointsSelectionIndexes(m_tracksAndWaypointsSelectionIndexes + positions);
    return !positions.isEmpty();
}

bool HBTrackSourceList::addSelectedSpatialObjects(const QList<HBManagedObject *> &)
{
    return false;
}

void HBTrackSourceList::deleteTrackOrWaypoint(HBManagedObject *object)
{
    HBTrackManager::sharedTrackManager()->deleteObjects({object});
    removeSelectedTracksAndWaypoints({object});
    handleDidAddNewImportSource();
}

QVariant HBTrackSourceList::valueForSortKey(const HBManagedObject *object, const QString &key)
{
    const HBEntityDescription *entity = object->entity();
    if (entity->name() == QLatin1String("HBWaypoint") && key == QLatin1String("startDate"))
        return object->valueForKey(QStringLiteral("date"));
    if (!entity->propertyNamed(key.section(u'.', 0, 0)))
        return {};
    return object->valueForKeyPath(key);
}

// --- counts -----------------------------------------------------------------------------------

void HBTrackSourceList::changeCount(quint64 &field, quint64 count, void (HBTrackSourceList::*changed)())
{
    if (field == count)
        return;
    field = count;
    emit (this->*changed)();
}

void HBTrackSourceList::setCountOfTracks(quint64 count)
{
    changeCount(m_countOfTracks, count, &HBTrackSourceList::countOfTracksChanged);
}

void HBTrackSourceList::setCountOfTrackPoints(quint64 count)
{
    changeCount(m_countOfTrackPoints, count, &HBTrackSourceList::countOfTrackPointsChanged);
}

void HBTrackSourceList::setCountOfWaypoints(quint64 count)
{
    changeCount(m_countOfWaypoints, count, &HBTrackSourceList::countOfWaypointsChanged);
}
