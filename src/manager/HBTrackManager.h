#pragma once

#include "import/HBImportReport.h"
#include "manager/HBFetchedRecords.h"
#include "platform/HBError.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBPredicate.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QTimer>
#include <QUrl>
#include <QVariant>

#include <functional>
#include <memory>

class HBFileImportOperation;
class HBGPSBabelImportOperation;
class HBGeoPoint;
class HBImportLock;
class HBManagedObject;
class HBManagedObjectContext;
class HBTrack;
class HBTrackPoint;
class HBWaypoint;
class HBOperation;
class HBOperationQueue;
class HBPersistentStore;
class HBPersistentStoreCoordinator;

// Names of the manager's announcements; each is also a signal of the manager.
inline const QString HBTrackManagerDidAddNewCentralStore = QStringLiteral("HBTrackManagerDidAddNewCentralStore");
inline const QString HBTrackManagerDidDeleteObjects = QStringLiteral("HBTrackManagerDidDeleteObjects");
inline const QString HBTrackManagerDidAddNewImportSource = QStringLiteral("HBTrackManagerDidAddNewImportSource");
inline const QString HBTrackManagerDidFinishBatchImport = QStringLiteral("HBTrackManagerDidFinishBatchImport");

// Owns everything persistent: the folders, the store files, the
// coordinators over them and the contexts the library works in.
//
// Points are not kept in one database. A track point lives in the file of
// its ten-day period ("<n>.sql" in "PointDatabases", n counted from
// 2001-01-01 UTC, negative before), a point without a date in
// "DatelessPoints.sql", everything else in "TrackManagerDatabase.sql". A
// period file is opened the moment its first point is inserted, in both
// managers' coordinators at once, so that IDs minted through one resolve
// through the other.
//
// Two managers share the files: the shared manager, for the main thread,
// and the background manager, for import threads. A process-wide registry
// maps "PrimaryStore", "DatelessPoints" and "<n>" to the first store opened
// for each file, and a coordinator opening a registered file takes over
// that store's identifier.
class HBTrackManager : public QObject
{
    Q_OBJECT
    // The progress of the running import batch, for a progress display;
    // read and changed on the main thread.
    Q_PROPERTY(bool trackImportIsInProgress READ trackImportIsInProgress NOTIFY trackImportIsInProgressChanged)
    Q_PROPERTY(bool trackImportIsIndeterminateProgress READ trackImportIsIndeterminateProgress
                   NOTIFY trackImportIsIndeterminateProgressChanged)
    Q_PROPERTY(quint64 trackImportProgressMin READ trackImportProgressMin NOTIFY trackImportProgressMinChanged)
    Q_PROPERTY(quint64 trackImportProgressMax READ trackImportProgressMax NOTIFY trackImportProgressMaxChanged)
    Q_PROPERTY(quint64 trackImportProgressValue READ trackImportProgressValue NOTIFY trackImportProgressValueChanged)
    Q_PROPERTY(quint64 trackImportLastFinishedProgressValue READ trackImportLastFinishedProgressValue
                   NOTIFY trackImportLastFinishedProgressValueChanged)
    Q_PROPERTY(QString trackImportProgressInfo READ trackImportProgressInfo NOTIFY trackImportProgressInfoChanged)
public:
    // What a host shows instead of an error panel, and the fatal report
    // when the stores cannot be opened at start (message, informative text).
    using ErrorPresenter = std::function<void(const HBError &)>;
    using FatalStartupReport = std::function<void(const QString &message, const QString &informativeText)>;
    // The defaults write to stderr; the fatal report then ends the process
    // with a non-zero status.
    static void setErrorPresenter(ErrorPresenter presenter);
    static void setFatalStartupReport(FatalStartupReport report);
    // Shows the error through the installed presenter, on the main thread;
    // returns when it has been shown.
    static void presentError(const HBError &error);

    static HBTrackManager *sharedTrackManager();
    static HBTrackManager *sharedBackgroundThreadTrackManager();
    // Serialises the opening of period stores.
    static QMutex *persistentStoreLock();
    static QString supportFolder();
    static QString pointFolder();
    // "<Caches>/Fernwick/TrackManagerDatabase", made on first call.
    static QString cacheFolder();
    static QHash<QString, HBPersistentStore *> persistentStoresDictionary();

    // Whole ten-day periods since 2001-01-01 00:00:00 UTC, rounded down.
    static qint64 periodNumberForDate(const QDateTime &date);
    static HBPersistentStore *primaryPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator);
    // The coordinator's own store for the date's period (an invalid date:
    // the dateless store), or null when that file is not open there.
    static HBPersistentStore *persistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                            const QDateTime &date);
    // Opens the period (or dateless) file in the coordinator and in the
    // other manager's coordinator.
    static HBPersistentStore *addPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                               const QDateTime &date);
    // Routes a newly inserted point to its store file: a waypoint to the
    // central store, a point with a date to its period's file, one without
    // to the dateless file. A saved point never moves. `date` is the
    // point's own, given by the caller that has just set it.
    static void assignToStore(HBGeoPoint *point, const QDateTime &date);

    HBPersistentStoreCoordinator *persistentStoreCoordinator();
    void setPersistentStoreCoordinator(std::unique_ptr<HBPersistentStoreCoordinator> coordinator);
    void createSupportFoldersForApplication(const QString &folderName);
    // A new coordinator with every existing store file opened.
    std::unique_ptr<HBPersistentStoreCoordinator> centralPersistentStoreCoordinator();
    // Opens the other coordinator's file here under the other's identifier.
    HBPersistentStore *addStoreWithStore(HBPersistentStore *other);
    HBPersistentStore *addStoreWithURL(const QUrl &url);

    // The root context (private queue, on the coordinator).
    HBManagedObjectContext *managedObjectContext();
    // The main-thread child of the root context, for the user interface.
    HBManagedObjectContext *mainQueueContext();
    // A new private-queue context straight on the coordinator.
    std::unique_ptr<HBManagedObjectContext> newManagedObjectContext();
    // A new private-queue child of the root context.
    std::unique_ptr<HBManagedObjectContext> newPrivateQueueContext();

    // Saves the root context into the files; failures are logged.
    void save();
    // Saves the child into its parent, then starts (without waiting) a save
    // of the parent.
    void saveWithChildContext(HBManagedObjectContext *child);

    // A small key/value table for the host application.
    QVariant fetchBonusTableValueForKey(const QString &key);
    void setBonusTableValue(const QVariant &value, const QString &key);

    // Deletes track points and saves, before returning.
    void deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs);
    // Deletes track points straight from the files, in the background, then
    // announces HBTrackManagerDidDeleteObjects on the main thread.
    void deletePointsWithURIs(const QList<QUrl> &pointURIs);
    void postDidDeleteObjects();

    // Deletes the objects (import sources, tracks, waypoints, anything
    // else) in the background, saves, then announces
    // HBTrackManagerDidDeleteObjects from that background thread. Deleting
    // an import source takes its tracks, segments, points and waypoints.
    void deleteObjects(const QList<HBManagedObject *> &objects);
    // Delete in the given context, without saving; related records are
    // loaded in one go first, so that the cascade finds them in memory.
    void deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    void deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    void deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);

    // Fully loaded, in a context made for the call.
    HBFetchedRecords<HBTrack> tracksForPredicate(const HBPredicate &predicate);
    HBFetchedRecords<HBWaypoint> waypointsForPredicate(const HBPredicate &predicate);
    // "trackPredicate" and "waypointPredicate": what lies within a day of
    // any of the dates.
    static QHash<QString, HBPredicate> nearbyPredicatesForDates(const QList<QDateTime> &dates);
    // Every track point of the import source, loaded into the root context
    // in one fetch.
    QList<HBTrackPoint *> batchFaultGraphFromImportSource(HBManagedObject *importSource);

    // Imports run here, one at a time (shared manager only).
    HBOperationQueue *trackImportQueue() const { return m_trackImportQueue.get(); }

    // The file types the importers read ("gpx", "tcx", "nmea", "log",
    // "txt", "gps"), and a predicate on paths that ends in one of them.
    static QStringList validFileTypes();
    static HBPredicate validFileTypePredicate();
    // Whether any path, or any file below a folder among them, has a
    // valid type. Names only: no file is opened.
    static bool validateFilesAtPaths(const QStringList &paths);

    // Queues one import operation per file whose extension has an importer,
    // skipping files already queued and files imported before that have
    // not changed since; returns at once. A call while a batch runs joins it.
    // Processes importing into the same store files take turns: while
    // another one's batch runs, the paths wait (the progress in progress
    // and indeterminate, "Waiting for another import to finish"), and are
    // looked at only once it has ended, so that what it imported is
    // skipped as unchanged. A batch holds its turn until it ends.
    void importFilesAtPaths(const QStringList &paths);
    // The paths importFilesAtPaths would skip now: those already queued,
    // and those imported before whose size and modification date have not
    // changed since.
    QStringList pathsToSkip(const QStringList &paths) const;
    // Cancels every queued operation, and paths waiting for their turn;
    // each operation still finishes, as cancelled.
    void cancelImport();
    // The progress tick, every 0.1 s while a batch runs.
    void updateImportOperation();
    // Queues a download from a GPS receiver, configured with its
    // destination and gpsbabel arguments. The progress turns indeterminate
    // with "Downloading from GPS…"; a download that succeeds imports its
    // file as a batch of its own, one that fails only ends the progress.
    // Text gpsbabel prints is logged as "GPSBabel error: <text>".
    void queueGPSBabelImportOperation(std::shared_ptr<HBGPSBabelImportOperation> operation);
    // Batch bookkeeping when an operation is done (main thread).
    void handleTrackOperationDidFinish(HBOperation *operation);

    bool trackImportIsInProgress() const { return m_progress.inProgress; }
    bool trackImportIsIndeterminateProgress() const { return m_progress.indeterminate; }
    quint64 trackImportProgressMin() const { return m_progress.min; }
    quint64 trackImportProgressMax() const { return m_progress.max; }
    quint64 trackImportProgressValue() const { return m_progress.value; }
    quint64 trackImportLastFinishedProgressValue() const { return m_progress.lastFinished; }
    QString trackImportProgressInfo() const { return m_progress.info; }

    // Selects the tracks and waypoints of the newest import batch; false
    // until there is one. Recomputed in the background.
    HBPredicate recentImportsPredicate() const;
    void refreshRecentImportsPredicate();
    // The tracks, then the waypoints, of the newest batch, as objects of
    // the main-queue context.
    QList<HBManagedObject *> recentImports();
    // Called on the saving thread after an import context saved.
    void importOperationContextDidSave();

signals:
    void didDeleteObjects();
    void didAddNewImportSource();
    void didFinishBatchImport();
    // On the main thread when a file's import operation has finished,
    // cancelled ones included, before the batch's bookkeeping goes on.
    void didFinishFileImport(const HBImportReport &report);
    void recentImportsPredicateChanged();
    void trackImportIsInProgressChanged();
    void trackImportIsIndeterminateProgressChanged();
    void trackImportProgressMinChanged();
    void trackImportProgressMaxChanged();
    void trackImportProgressValueChanged();
    void trackImportLastFinishedProgressValueChanged();
    void trackImportProgressInfoChanged();

private:
    enum class Role { Shared, Background };
    explicit HBTrackManager(Role role);
    ~HBTrackManager() override;
    HBPersistentStoreCoordinator *coordinatorIfMade() const;
    static void announceSavesOf(HBManagedObjectContext *context);
    void setRecentImportsPredicate(const HBPredicate &predicate);
    void queueImportsOfPaths(const QStringList &paths);
    HBImportLock &importLock();
    void waitForImportTurn(const QStringList &paths);
    void retryImportTurn();
    void stopWaitingForImportTurn();
    void endImportTurnWhenIdle();
    void startBatch(qsizetype pathCount);
    void observeFinishOf(const std::shared_ptr<HBOperation> &operation);
    void handleDownloadDidFinish(HBGPSBabelImportOperation *download);
    void handleFileImportDidFinish(HBFileImportOperation *operation);
    void showFileBeingImported();
    // Progress changes are announced only when the value really changes.
    template<class T> void changeProgress(T &field, const T &value, void (HBTrackManager::*changed)())
    {
        if (field == value)
            return;
        field = value;
        emit (this->*changed)();
    }

    const Role m_role;
    mutable QMutex m_mutex;   // the lazily made coordinator and contexts
    std::unique_ptr<HBPersistentStoreCoordinator> m_coordinator;
    std::unique_ptr<HBManagedObjectContext> m_managedObjectContext;
    std::unique_ptr<HBManagedObjectContext> m_mainQueueContext;
    std::unique_ptr<HBOperationQueue> m_trackImportQueue;
    mutable QMutex m_recentImportsMutex;
    HBPredicate m_recentImportsPredicate;
    struct Progress
    {
        bool inProgress = false;
        bool indeterminate = false;
        quint64 min = 0, max = 0, value = 0, lastFinished = 0;
        QString info;
    } m_progress;
    QTimer *m_periodicUpdateTimer = nullptr;
    bool m_observingOwnSaves = false;
    std::unique_ptr<HBImportLock> m_importLock;
    QStringList m_pathsAwaitingTurn;
    QTimer *m_importTurnTimer = nullptr;   // retries the lock while paths wait
};
