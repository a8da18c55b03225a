#pragma once

#include "browse/HBTreeNode.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBSortDescriptor.h"

#include <QList>
#include <QObject>

#include <memory>
#include <optional>

class HBDateTree;
class HBFaultLoader;
class HBFileTree;
class HBOperationQueue;
class HBSmartFile;
class HBSmartFileTree;
class HBSmartRecentImportsFile;

// A place in the source list: the row among the three roots, then the row
// among that node's children, and so on down.
using HBIndexPath = QList<qsizetype>;

// The model behind the track picker's source list and the list beside it:
// the smart lists, the date tree and the file tree, the node a person
// selected in them, and what that node lists, with its counts, sort order
// and selected rows. It draws nothing; the models of the views read it.
//
// A refresh, from request to list:
//   1. main thread (refreshTracksAndWaypoints): the selected node's
//      predicates are read; refreshes queued and not started are dropped;
//   2. refresh queue, one at a time: a private-queue context fetches the
//      identifiers of the matching tracks, then waypoints, unless the node
//      has no track predicate (then nothing is listed, waypoints neither);
//   3. main thread: the identifiers become records of the main-queue
//      context, whose values are loaded a chunk per turn of the event loop;
//      then the counts are set, and the list is merged if it differs;
//      didRefreshTracksAndWaypoints.
// A refresh that reaches step 3 abandons the step 3 of an older one.
//
// Invariants, on the main thread between events:
//   1. sources() is smartTree, dateTree, fileTree, in that order;
//   2. only the selected node is observed;
//   3. the counts are those of the last refresh that reached its end;
//   4. the selection indexes are positions in the sorted list, ascending,
//      each once; a merge does not move them.
class HBTrackSourceList : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QList<HBIndexPath> sourceListSelectionIndexPaths READ sourceListSelectionIndexPaths
                   WRITE setSourceListSelectionIndexPaths NOTIFY sourceListSelectionIndexPathsChanged)
    Q_PROPERTY(HBTreeNode *selectedSourceList READ selectedSourceList WRITE setSelectedSourceList NOTIFY selectedSourceListChanged)
    Q_PROPERTY(QList<HBManagedObject *> tracksAndWaypoints READ tracksAndWaypoints NOTIFY tracksAndWaypointsChanged)
    Q_PROPERTY(QList<HBManagedObject *> selectedTracksAndWaypoints READ selectedTracksAndWaypoints
                   NOTIFY selectedTracksAndWaypointsChanged)
    Q_PROPERTY(QList<qsizetype> tracksAndWaypointsSelectionIndexes READ tracksAndWaypointsSelectionIndexes
                   WRITE setTracksAndWaypointsSelectionIndexes NOTIFY tracksAndWaypointsSelectionIndexesChanged)
    Q_PROPERTY(quint64 countOfTracks READ countOfTracks WRITE setCountOfTracks NOTIFY countOfTracksChanged)
    Q_PROPERTY(quint64 countOfTrackPoints READ countOfTrackPoints WRITE setCountOfTrackPoints NOTIFY countOfTrackPointsChanged)
    Q_PROPERTY(quint64 countOfWaypoints READ countOfWaypoints WRITE setCountOfWaypoints NOTIFY countOfWaypointsChanged)
public:
    // Loads the trees, puts "Recent Imports" among the smart lists and
    // starts the first refresh, which lists nothing as nothing is selected.
    explicit HBTrackSourceList(QObject *parent = nullptr);
    ~HBTrackSourceList() override;

    QList<HBTreeNode *> sources() const;
    HBSmartFileTree *smartTree() const { return m_smartTree.get(); }
    HBDateTree *dateTree() const { return m_dateTree.get(); }
    HBFileTree *fileTree() const { return m_fileTree.get(); }
    HBOperationQueue *refreshQueue() const { return m_refreshQueue.get(); }

    // Reloads the date and file trees and refreshes the list: after
    // imports and deletions.
    void handleDidAddNewImportSource();
    // The new smart file goes above all others; the caller keeps it alive
    // while it is in the tree. Removing one that is not there does nothing.
    void addSmartFile(HBSmartFile *smartFile);
    void removeSmartFile(HBSmartFile *smartFile);
    // A file's leaf deletes its import source with everything from it; any
    // other node deletes what it lists now, and stays.
    void deleteObjectsFromSourceList(HBTreeNode *node);

    QList<HBIndexPath> sourceListSelectionIndexPaths() const { return m_sourceListSelectionIndexPaths; }
    // The view's way to select: the last path names the node. The same
    // paths again change nothing.
    void setSourceListSelectionIndexPaths(const QList<HBIndexPath> &paths);
    HBTreeNode *selectedSourceList() const { return m_selectedSourceList; }
    // The program's way to select. A root, or a node not in the trees, is
    // selected with no index path at all.
    void setSelectedSourceList(HBTreeNode *node);
    // The node at the path, or null when the path runs past the end of a
    // children list or through a leaf.
    static HBTreeNode *sourceListInChildrenArray(const QList<HBTreeNode *> &array, const HBIndexPath &path);
    // The path of the node, deepest index first; nullopt when it is not there.
    static std::optional<HBIndexPath> indexPathOfSourceList(const HBTreeNode *node, const QList<HBTreeNode *> &array);

    // Tracks, then waypoints, as fetched; after a merge the survivors keep
    // their places and new records come last.
    QList<HBManagedObject *> tracksAndWaypoints() const { return m_tracksAndWaypoints; }
    // Merges: records whose identifiers are in both lists stay where they
    // are, the others leave, the new ones are appended in the given order.
    void setTracksAndWaypoints(const QList<HBManagedObject *> &objects);
    QList<HBSortDescriptor> tracksAndWaypointsSortDescriptors() const { return m_tracksAndWaypointsSortDescriptors; }
    void setTracksAndWaypointsSortDescriptors(const QList<HBSortDescriptor> &descriptors);
    QList<qsizetype> tracksAndWaypointsSelectionIndexes() const { return m_tracksAndWaypointsSelectionIndexes; }
    void setTracksAndWaypointsSelectionIndexes(const QList<qsizetype> &indexes);
    // tracksAndWaypoints in the order of the sort descriptors (a stable
    // sort: equal rows keep the list's order).
    QList<HBManagedObject *> sortedTracksAndWaypoints() const;
    // The sorted list's rows at the selection indexes.
    QList<HBManagedObject *> selectedTracksAndWaypoints() const;
    // Take the given records out of, or into, the row selection; true when
    // at least one of them is listed.
    bool removeSelectedTracksAndWaypoints(const QList<HBManagedObject *> &objects);
    bool addSelectedTracksAndWaypoints(const QList<HBManagedObject *> &objects);
    // Answers as the picker controller does; the source list takes no
    // spatial objects, so it is always false.
    bool addSelectedSpatialObjects(const QList<HBManagedObject *> &objects);
    void deleteTrackOrWaypoint(HBManagedObject *object);
    void refreshTracksAndWaypoints();
    // From a request for a refresh until the newest one requested has
    // reached its end.
    bool isRefreshing() const { return m_refreshShown != m_refreshRequested; }

    quint64 countOfTracks() const { return m_countOfTracks; }
    void setCountOfTracks(quint64 count);
    quint64 countOfTrackPoints() const { return m_countOfTrackPoints; }
    void setCountOfTrackPoints(quint64 count);
    quint64 countOfWaypoints() const { return m_countOfWaypoints; }
    void setCountOfWaypoints(quint64 count);

    // What a sort descriptor's key reads on a listed record. A waypoint's
    // date stands in for a start date, so that sorting by start interleaves
    // both; keys a waypoint does not have read as nil.
    static QVariant valueForSortKey(const HBManagedObject *object, const QString &key);

signals:
    void sourceListSelectionIndexPathsChanged();
    void selectedSourceListChanged();
    void tracksAndWaypointsChanged();
    void tracksAndWaypointsSortDescriptorsChanged();
    void tracksAndWaypointsSelectionIndexesChanged();
    void selectedTracksAndWaypointsChanged();
    void countOfTracksChanged();
    void countOfTrackPointsChanged();
    void countOfWaypointsChanged();
    // A refresh has set the counts, and the list if it changed.
    void didRefreshTracksAndWaypoints();

private:
    struct FetchedIdentifiers;
    struct Loading;

    void select(HBTreeNode *node, const QList<HBIndexPath> &paths);
    void observeSelectedSourceList();
    void stopObservingSelectedSourceList();
    void showFetchedIdentifiers(const FetchedIdentifiers &ids);
    void continueLoading();
    void continueLoadingLater();
    void showRefreshed(const Loading &loaded);
    void changeCount(quint64 &field, quint64 count, void (HBTrackSourceList::*changed)());
    void forgetSortedList();

    std::unique_ptr<HBSmartFileTree> m_smartTree;
    std::unique_ptr<HBDateTree> m_dateTree;
    std::unique_ptr<HBFileTree> m_fileTree;
    std::unique_ptr<HBSmartRecentImportsFile> m_recentImports;
    QList<HBIndexPath> m_sourceListSelectionIndexPaths;
    HBTreeNode *m_selectedSourceList = nullptr;
    QList<QMetaObject::Connection> m_selectedSourceListObservation;
    QList<HBManagedObject *> m_tracksAndWaypoints;
    QList<HBSortDescriptor> m_tracksAndWaypointsSortDescriptors;
    QList<qsizetype> m_tracksAndWaypointsSelectionIndexes;
    mutable std::optional<QList<HBManagedObject *>> m_sortedTracksAndWaypoints;
    quint64 m_countOfTracks = 0;
    quint64 m_countOfTrackPoints = 0;
    quint64 m_countOfWaypoints = 0;
    quint64 m_refreshRequested = 0;   // serial numbers of refreshes
    quint64 m_refreshShown = 0;
    std::unique_ptr<Loading> m_loading;
    bool m_continuationQueued = false;
    // Last, so that it goes first: its running refresh ends before the rest.
    std::unique_ptr<HBOperationQueue> m_refreshQueue;
};
