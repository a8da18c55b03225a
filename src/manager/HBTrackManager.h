#pragma once

#include "import/HBImportContexts.h"
#include "import/gpsbabel/HBGPSBabelImporterDelegate.h"
#include "import/HBImportReport.h"
#include "manager/HBErrorPresentation.h"
#include "manager/HBFetchedRecords.h"
#include "platform/HBError.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBPredicate.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QUrl>
#include <QVariant>

#include <memory>

class HBGPSBabelImportOperation;
class HBGPSBabelImporterPreflight;
class HBGeoPoint;
class HBImportBatch;
class HBManagedObject;
class HBManagedObjectContext;
class HBOperation;
class HBOperationQueue;
class HBPersistentStore;
class HBPersistentStoreCoordinator;
class HBTrack;
class HBTrackDeletion;
class HBTrackPoint;
class HBTrackQueries;
class HBWaypoint;

// Names of the manager's announcements; each is also a signal of the manager.
// Kept on purpose: hosts know the name, though nothing announces it.
inline const QString HBTrackManagerDidAddNewCentralStore = QStringLiteral("HBTrackManagerDidAddNewCentralStore");
inline const QString HBTrackManagerDidDeleteObjects = QStringLiteral("HBTrackManagerDidDeleteObjects");
inline const QString HBTrackManagerDidAddNewImportSource = QStringLiteral("HBTrackManagerDidAddNewImportSource");
inline const QString HBTrackManagerDidFinishBatchImport = QStringLiteral("HBTrackManagerDidFinishBatchImport");

// What hosts and the command line call: the stores and the contexts over
// them, imports, deletion and queries, each of them the work of a class of
// its own (HBTrackStoreLayout, HBImportBatch, HBTrackDeletion,
// HBTrackQueries) that this one fronts.
//
// Two managers share the store files: the shared manager, for the main
// thread and the user interface, and the background manager, for import
// threads, each with a coordinator of its own over the same files (see
// HBTrackStoreLayout). Both are made on first use and live as long as the
// process.
class HBTrackManager : public QObject, public HBGPSBabelImporterDelegate
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
    // See HBErrorPresentation.
    using ErrorPresenter = HBErrorPresentation::ErrorPresenter;
    using FatalStartupReport = HBErrorPresentation::FatalStartupReport;
    static void setErrorPresenter(ErrorPresenter presenter);
    static void setFatalStartupReport(FatalStartupReport report);
    static void presentError(const HBError &error);

    static HBTrackManager *sharedTrackManager();
    static HBTrackManager *sharedBackgroundThreadTrackManager();

    // The store layout (see HBTrackStoreLayout).
    static QMutex *persistentStoreLock();
    static QString supportFolder();
    static QString pointFolder();
    // "<Caches>/Fernwick/TrackManagerDatabase", made on first call.
    static QString cacheFolder();
    static QHash<QString, HBPersistentStore *> persistentStoresDictionary();
    static qint64 periodNumberForDate(const QDateTime &date);
    static HBPersistentStore *primaryPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator);
    static HBPersistentStore *persistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                            const QDateTime &date);
    static HBPersistentStore *addPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                               const QDateTime &date);
    static void assignToStore(HBGeoPoint *point, const QDateTime &date);
    void createSupportFoldersForApplication(const QString &folderName);
    // A new coordinator over every store file there is.
    std::unique_ptr<HBPersistentStoreCoordinator> centralPersistentStoreCoordinator();
    // Adds the other coordinator's file here under the other's identifier.
    HBPersistentStore *addStoreWithStore(HBPersistentStore *other);
    HBPersistentStore *addStoreWithURL(const QUrl &url);

    HBPersistentStoreCoordinator *persistentStoreCoordinator();
    void setPersistentStoreCoordinator(std::unique_ptr<HBPersistentStoreCoordinator> coordinator);
    // The root context (private queue, on the coordinator).
    HBManagedObjectContext *managedObjectContext();
    // The main-thread child of the root context, for the user interface.
    HBManagedObjectContext *mainQueueContext();
    // A new private-queue context straight on the coordinator.
    std::unique_ptr<HBManagedObjectContext> newManagedObjectContext();
    // A new private-queue child of the root context.
    std::unique_ptr<HBManagedObjectContext> newPrivateQueueContext();
    // Where import operations make their records: contexts of the
    // background manager.
    HBImportContexts importContexts();

    // Saves the root context into the files; failures are logged.
    void save();
    // Saves the child into its parent, then starts (without waiting) a save
    // of the parent.
    void saveWithChildContext(HBManagedObjectContext *child);

    // Queries (see HBTrackQueries).
    QVariant fetchBonusTableValueForKey(const QString &key);
    void setBonusTableValue(const QVariant &value, const QString &key);
    HBFetchedRecords<HBTrack> tracksForPredicate(const HBPredicate &predicate);
    HBFetchedRecords<HBWaypoint> waypointsForPredicate(const HBPredicate &predicate);
    static QHash<QString, HBPredicate> nearbyPredicatesForDates(const QList<QDateTime> &dates);
    QList<HBTrackPoint *> batchFaultGraphFromImportSource(HBManagedObject *importSource);
    HBPredicate recentImportsPredicate() const;
    void refreshRecentImportsPredicate();
    QList<HBManagedObject *> recentImports();

    // Deletion (see HBTrackDeletion).
    void deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs);
    void deletePointsWithURIs(const QList<QUrl> &pointURIs);
    void postDidDeleteObjects();
    void deleteObjects(const QList<HBManagedObject *> &objects);
    void deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    void deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);
    void deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context);

    // Imports (see HBImportBatch; shared manager only).
    HBOperationQueue *trackImportQueue() const;
    static QStringList validFileTypes();
    static HBPredicate validFileTypePredicate();
    static bool validateFilesAtPaths(const QStringList &paths);
    void importFilesAtPaths(const QStringList &paths);
    QStringList pathsToSkip(const QStringList &paths) const;
    void cancelImport();
    void updateImportOperation();
    // Device downloads (see HBImportBatch and HBGPSBabelImporterPreflight).
    void importWithGPSBabelForWindow(QObject *window);
    HBGPSBabelImporterPreflight *gpsBabelImporter() const;
    void gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight *importer, bool success) override;
    void handleTrackOperationDidFinish(HBOperation *operation);
    bool trackImportIsInProgress() const;
    bool trackImportIsIndeterminateProgress() const;
    quint64 trackImportProgressMin() const;
    quint64 trackImportProgressMax() const;
    quint64 trackImportProgressValue() const;
    quint64 trackImportLastFinishedProgressValue() const;
    QString trackImportProgressInfo() const;

    // Called on the saving thread after an import context saved.
    void importOperationContextDidSave();
    // The shared manager's own saves are announced as imports' are, once it
    // queues imports.
    void announceOwnSaves();

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
    static HBTrackManager *make(Role role);
    HBPersistentStoreCoordinator *coordinatorIfMade() const;
    static void announceSavesOf(HBManagedObjectContext *context);
    void forwardBatchSignals();

    const Role m_role;
    mutable QMutex m_mutex;   // the lazily made coordinator and contexts
    std::unique_ptr<HBPersistentStoreCoordinator> m_coordinator;
    std::unique_ptr<HBManagedObjectContext> m_managedObjectContext;
    std::unique_ptr<HBManagedObjectContext> m_mainQueueContext;
    std::unique_ptr<HBImportBatch> m_batch;
    std::unique_ptr<HBTrackDeletion> m_deletion;
    std::unique_ptr<HBTrackQueries> m_queries;
    bool m_observingOwnSaves = false;
};
