#include "manager/HBTrackManager.h"

#include "manager/HBImportBatch.h"
#include "manager/HBTrackDeletion.h"
#include "manager/HBTrackQueries.h"
#include "manager/HBTrackStoreLayout.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackSegment.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBLogging.h"
#include "platform/HBMainThread.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCoreApplication>

namespace {

// Never freed: worker threads may use the managers until the very end.
struct Managers
{
    QMutex classLock;   // making the two managers
    std::atomic<HBTrackManager *> shared{nullptr};
    std::atomic<HBTrackManager *> background{nullptr};
};

Managers &managers()
{
    static Managers *made = new Managers;
    return *made;
}

HBTrackStoreLayout &layout() { return HBTrackStoreLayout::shared(); }

} // namespace

HBTrackManager::HBTrackManager(Role role)
    : m_role(role)
    , m_deletion(std::make_unique<HBTrackDeletion>(*this))
    , m_queries(std::make_unique<HBTrackQueries>(*this))
{
    if (QCoreApplication *app = QCoreApplication::instance())
        moveToThread(app->thread());
    m_queries->moveToThread(thread());
    connect(m_queries.get(), &HBTrackQueries::recentImportsPredicateChanged, this, &HBTrackManager::recentImportsPredicateChanged);
}

HBTrackManager::~HBTrackManager() = default;

// --- the two managers -----------------------------------------------------------------------

HBTrackManager *HBTrackManager::make(Role role)
{
    std::atomic<HBTrackManager *> &slot = role == Role::Shared ? managers().shared : managers().background;
    if (HBTrackManager *manager = slot.load())
        return manager;
    QMutexLocker lock(&managers().classLock);
    if (HBTrackManager *manager = slot.load())
        return manager;
    auto *manager = new HBTrackManager(role);
    // A period file opened through one manager is added to the other's
    // coordinator, making that manager first if need be; a segment's points
    // are deleted from their files through the background manager.
    layout().setCoordinatorMaker([](HBTrackStoreLayout::Side side) {
        return make(side == HBTrackStoreLayout::Side::Shared ? Role::Shared : Role::Background)->persistentStoreCoordinator();
    });
    HBTrackSegment::setPointRemoval({[](const QList<HBManagedObjectID> &ids) {
                                         HBBackgroundWork::start([ids] { sharedBackgroundThreadTrackManager()->deletePointsWithIDs(ids); });
                                     },
                                     [](const QList<QUrl> &uris) { sharedBackgroundThreadTrackManager()->deletePointsWithURIs(uris); }});
    manager->persistentStoreCoordinator();
    if (role == Role::Shared) {
        manager->m_batch = std::make_unique<HBImportBatch>(*manager);
        manager->m_batch->moveToThread(manager->thread());
        manager->forwardBatchSignals();
        manager->refreshRecentImportsPredicate();
    }
    slot.store(manager);
    return manager;
}

HBTrackManager *HBTrackManager::sharedTrackManager() { return make(Role::Shared); }

HBTrackManager *HBTrackManager::sharedBackgroundThreadTrackManager() { return make(Role::Background); }

void HBTrackManager::setErrorPresenter(ErrorPresenter presenter)
{
    HBErrorPresentation::setErrorPresenter(std::move(presenter));
}

void HBTrackManager::setFatalStartupReport(FatalStartupReport report)
{
    HBErrorPresentation::setFatalStartupReport(std::move(report));
}

void HBTrackManager::presentError(const HBError &error) { HBErrorPresentation::presentError(error); }

// --- the store layout -------------------------------------------------------------------------

QMutex *HBTrackManager::persistentStoreLock() { return layout().persistentStoreLock(); }

QString HBTrackManager::supportFolder() { return layout().supportFolder(); }

QString HBTrackManager::pointFolder() { return layout().pointFolder(); }

QString HBTrackManager::cacheFolder() { return HBTrackDataModel::cacheFolder(); }

QHash<QString, HBPersistentStore *> HBTrackManager::persistentStoresDictionary() { return layout().registry(); }

qint64 HBTrackManager::periodNumberForDate(const QDateTime &date)
{
    return HBTrackStoreLayout::periodNumberForDate(date);
}

HBPersistentStore *HBTrackManager::primaryPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator)
{
    return layout().primaryStoreForCoordinator(coordinator);
}

HBPersistentStore *HBTrackManager::persistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                                 const QDateTime &date)
{
    return layout().storeForCoordinator(coordinator, date);
}

HBPersistentStore *HBTrackManager::addPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                                    const QDateTime &date)
{
    return layout().addStoreForCoordinator(coordinator, date);
}

void HBTrackManager::assignToStore(HBGeoPoint *point, const QDateTime &date) { layout().assignToStore(point, date); }

void HBTrackManager::createSupportFoldersForApplication(const QString &folderName)
{
    layout().createSupportFolders(folderName);
}

std::unique_ptr<HBPersistentStoreCoordinator> HBTrackManager::centralPersistentStoreCoordinator()
{
    return layout().makeCoordinator();
}

HBPersistentStore *HBTrackManager::addStoreWithStore(HBPersistentStore *other)
{
    return layout().addStoreWithStore(persistentStoreCoordinator(), other);
}

HBPersistentStore *HBTrackManager::addStoreWithURL(const QUrl &url)
{
    HBError error;
    HBPersistentStore *store = persistentStoreCoordinator()->addPersistentStore(QStringLiteral("PointOnly"), url.toLocalFile(), &error);
    if (!store)
        presentError(error);
    return store;
}

// --- coordinator and contexts --------------------------------------------------------

HBPersistentStoreCoordinator *HBTrackManager::coordinatorIfMade() const
{
    QMutexLocker lock(&m_mutex);
    return m_coordinator.get();
}

HBPersistentStoreCoordinator *HBTrackManager::persistentStoreCoordinator()
{
    if (HBPersistentStoreCoordinator *coordinator = coordinatorIfMade())
        return coordinator;
    std::unique_ptr<HBPersistentStoreCoordinator> made = centralPersistentStoreCoordinator();
    QMutexLocker lock(&m_mutex);
    if (!m_coordinator) {
        m_coordinator = std::move(made);
        layout().setCoordinator(m_role == Role::Shared ? HBTrackStoreLayout::Side::Shared : HBTrackStoreLayout::Side::Background,
                                m_coordinator.get());
    }
    return m_coordinator.get();
}

void HBTrackManager::setPersistentStoreCoordinator(std::unique_ptr<HBPersistentStoreCoordinator> coordinator)
{
    QMutexLocker lock(&m_mutex);
    m_coordinator = std::move(coordinator);
    layout().setCoordinator(m_role == Role::Shared ? HBTrackStoreLayout::Side::Shared : HBTrackStoreLayout::Side::Background,
                            m_coordinator.get());
}

HBManagedObjectContext *HBTrackManager::managedObjectContext()
{
    HBPersistentStoreCoordinator *coordinator = persistentStoreCoordinator();
    QMutexLocker lock(&m_mutex);
    if (!m_managedObjectContext) {
        m_managedObjectContext = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::PrivateQueueConcurrencyType);
        m_managedObjectContext->setPersistentStoreCoordinator(coordinator);
        if (m_role == Role::Background)
            announceSavesOf(m_managedObjectContext.get());
    }
    return m_managedObjectContext.get();
}

HBManagedObjectContext *HBTrackManager::mainQueueContext()
{
    HBManagedObjectContext *root = managedObjectContext();
    QMutexLocker lock(&m_mutex);
    if (!m_mainQueueContext) {
        m_mainQueueContext = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::MainQueueConcurrencyType);
        m_mainQueueContext->setParentContext(root);
        if (QCoreApplication *app = QCoreApplication::instance())
            m_mainQueueContext->moveToThread(app->thread());
    }
    return m_mainQueueContext.get();
}

std::unique_ptr<HBManagedObjectContext> HBTrackManager::newManagedObjectContext()
{
    auto context = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::PrivateQueueConcurrencyType);
    context->setPersistentStoreCoordinator(persistentStoreCoordinator());
    if (m_role == Role::Background)
        announceSavesOf(context.get());
    return context;
}

std::unique_ptr<HBManagedObjectContext> HBTrackManager::newPrivateQueueContext()
{
    auto context = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::PrivateQueueConcurrencyType);
    context->setParentContext(managedObjectContext());
    return context;
}

HBImportContexts HBTrackManager::importContexts()
{
    HBTrackManager *background = sharedBackgroundThreadTrackManager();
    return {[background] { return background->newManagedObjectContext(); }, background->managedObjectContext(),
            &HBTrackManager::presentError};
}

// --- saving ------------------------------------------------------------------------

void HBTrackManager::save()
{
    HBManagedObjectContext *root = managedObjectContext();
    root->performBlockAndWait([root] {
        HBError error;
        if (!root->save(&error))
            error.log(hbManager(), QStringLiteral("error occurred in trackManager save."));
    });
}

void HBTrackManager::saveWithChildContext(HBManagedObjectContext *child)
{
    HBError childError;
    child->performBlockAndWait([&] { child->save(&childError); });
    // The parent's save runs later; its error is seen here only if it has
    // already happened.
    struct ErrorSlot
    {
        QMutex mutex;
        HBError error;
    };
    auto parentError = std::make_shared<ErrorSlot>();
    if (HBManagedObjectContext *parent = child->parentContext()) {
        parent->performBlock([parent, parentError] {
            HBError error;
            if (!parent->save(&error)) {
                QMutexLocker lock(&parentError->mutex);
                parentError->error = error;
            }
        });
    }
    HBError shown = childError;
    if (shown.isNull()) {
        QMutexLocker lock(&parentError->mutex);
        shown = parentError->error;
    }
    if (!shown.isNull())
        shown.log(hbManager(), {});
}

// --- what the import contexts saved ---------------------------------------------------------

// The imports write through the background manager's contexts; the user
// interface learns of their saves through the shared manager.
void HBTrackManager::announceSavesOf(HBManagedObjectContext *context)
{
    connect(context, &HBManagedObjectContext::didSave, context,
            [] { sharedTrackManager()->importOperationContextDidSave(); }, Qt::DirectConnection);
}

void HBTrackManager::importOperationContextDidSave()
{
    HBMainThread::post([] {
        HBTrackManager *shared = sharedTrackManager();
        shared->refreshRecentImportsPredicate();
        emit shared->didAddNewImportSource();
    });
}

void HBTrackManager::announceOwnSaves()
{
    if (m_observingOwnSaves)
        return;
    announceSavesOf(managedObjectContext());
    m_observingOwnSaves = true;
}

// --- queries and deletion ---------------------------------------------------------------------

QVariant HBTrackManager::fetchBonusTableValueForKey(const QString &key)
{
    return m_queries->fetchBonusTableValueForKey(key);
}

void HBTrackManager::setBonusTableValue(const QVariant &value, const QString &key)
{
    m_queries->setBonusTableValue(value, key);
}

HBFetchedRecords<HBTrack> HBTrackManager::tracksForPredicate(const HBPredicate &predicate)
{
    return m_queries->tracksForPredicate(predicate);
}

HBFetchedRecords<HBWaypoint> HBTrackManager::waypointsForPredicate(const HBPredicate &predicate)
{
    return m_queries->waypointsForPredicate(predicate);
}

QHash<QString, HBPredicate> HBTrackManager::nearbyPredicatesForDates(const QList<QDateTime> &dates)
{
    return HBTrackQueries::nearbyPredicatesForDates(dates);
}

QList<HBTrackPoint *> HBTrackManager::batchFaultGraphFromImportSource(HBManagedObject *importSource)
{
    return m_queries->batchFaultGraphFromImportSource(importSource);
}

HBPredicate HBTrackManager::recentImportsPredicate() const { return m_queries->recentImportsPredicate(); }

void HBTrackManager::refreshRecentImportsPredicate() { m_queries->refreshRecentImportsPredicate(); }

QList<HBManagedObject *> HBTrackManager::recentImports() { return m_queries->recentImports(); }

void HBTrackManager::deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs)
{
    m_deletion->deletePointsWithIDs(pointIDs);
}

void HBTrackManager::deletePointsWithURIs(const QList<QUrl> &pointURIs) { m_deletion->deletePointsWithURIs(pointURIs); }

void HBTrackManager::postDidDeleteObjects() { emit didDeleteObjects(); }

void HBTrackManager::deleteObjects(const QList<HBManagedObject *> &objects) { m_deletion->deleteObjects(objects); }

void HBTrackManager::deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    HBTrackDeletion::deleteImportSourcesWithIDs(ids, context);
}

void HBTrackManager::deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    HBTrackDeletion::deleteTracksWithIDs(ids, context);
}

void HBTrackManager::deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    HBTrackDeletion::deleteWaypointsWithIDs(ids, context);
}

// --- imports ---------------------------------------------------------------------------------

void HBTrackManager::forwardBatchSignals()
{
    const HBImportBatch *batch = m_batch.get();
    connect(batch, &HBImportBatch::inProgressChanged, this, &HBTrackManager::trackImportIsInProgressChanged);
    connect(batch, &HBImportBatch::indeterminateChanged, this, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
    connect(batch, &HBImportBatch::minChanged, this, &HBTrackManager::trackImportProgressMinChanged);
    connect(batch, &HBImportBatch::maxChanged, this, &HBTrackManager::trackImportProgressMaxChanged);
    connect(batch, &HBImportBatch::valueChanged, this, &HBTrackManager::trackImportProgressValueChanged);
    connect(batch, &HBImportBatch::lastFinishedChanged, this, &HBTrackManager::trackImportLastFinishedProgressValueChanged);
    connect(batch, &HBImportBatch::infoChanged, this, &HBTrackManager::trackImportProgressInfoChanged);
    connect(batch, &HBImportBatch::didFinishFileImport, this, &HBTrackManager::didFinishFileImport);
    connect(batch, &HBImportBatch::didFinishBatchImport, this, &HBTrackManager::didFinishBatchImport);
}

HBOperationQueue *HBTrackManager::trackImportQueue() const { return m_batch ? m_batch->queue() : nullptr; }

void HBTrackManager::importFilesAtPaths(const QStringList &paths) { m_batch->importFilesAtPaths(paths); }

QStringList HBTrackManager::pathsToSkip(const QStringList &paths) const { return m_batch->pathsToSkip(paths); }

void HBTrackManager::cancelImport() { m_batch->cancelImport(); }

void HBTrackManager::updateImportOperation() { m_batch->updateImportOperation(); }

void HBTrackManager::importWithGPSBabelForWindow(QObject *window) { m_batch->importWithGPSBabelForWindow(window); }

HBGPSBabelImporterPreflight *HBTrackManager::gpsBabelImporter() const { return m_batch->gpsBabelImporter(); }

void HBTrackManager::gpsBabelImporterDidFinishSuccessfully(HBGPSBabelImporterPreflight *importer, bool success)
{
    m_batch->gpsBabelImporterDidFinishSuccessfully(importer, success);
}

void HBTrackManager::handleTrackOperationDidFinish(HBOperation *operation)
{
    m_batch->handleTrackOperationDidFinish(operation);
}

bool HBTrackManager::trackImportIsInProgress() const { return m_batch && m_batch->progress().inProgress; }

bool HBTrackManager::trackImportIsIndeterminateProgress() const { return m_batch && m_batch->progress().indeterminate; }

quint64 HBTrackManager::trackImportProgressMin() const { return m_batch ? m_batch->progress().min : 0; }

quint64 HBTrackManager::trackImportProgressMax() const { return m_batch ? m_batch->progress().max : 0; }

quint64 HBTrackManager::trackImportProgressValue() const { return m_batch ? m_batch->progress().value : 0; }

quint64 HBTrackManager::trackImportLastFinishedProgressValue() const
{
    return m_batch ? m_batch->progress().lastFinished : 0;
}

QString HBTrackManager::trackImportProgressInfo() const { return m_batch ? m_batch->progress().info : QString(); }

QStringList HBTrackManager::validFileTypes() { return HBImportBatch::validFileTypes(); }

HBPredicate HBTrackManager::validFileTypePredicate() { return HBImportBatch::validFileTypePredicate(); }

bool HBTrackManager::validateFilesAtPaths(const QStringList &paths) { return HBImportBatch::validateFilesAtPaths(paths); }
