#include "manager/HBTrackManager.h"

#include "import/HBFileImportOperation.h"
#include "import/HBImportOperationFactory.h"
#include "import/gpsbabel/HBGPSBabelImportOperation.h"
#include "manager/HBImportLock.h"
#include "manager/HBStoreIdentifierCache.h"
#include "model/HBGeoPoint.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "model/HBTrackDataModel.h"
#include "platform/HBFileName.h"
#include "platform/HBLogging.h"
#include "platform/HBMainThread.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThreadPool>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

const QString kApplicationFolder = QStringLiteral("Fernwick");
const QString kPrimaryStoreKey = QStringLiteral("PrimaryStore");
const QString kDatelessStoreKey = QStringLiteral("DatelessPoints");
const QString kPointOnlyConfiguration = QStringLiteral("PointOnly");
constexpr qint64 kReferenceDateMSecs = 978307200000;   // 2001-01-01 00:00:00 UTC
constexpr double kPeriodSeconds = 864000.0;             // ten days

// The loaded relationships of track points that are about to be deleted.
const QStringList kTrackPointPrefetchKeyPaths{
    QStringLiteral("additionalAttributes"), QStringLiteral("children"), QStringLiteral("cities"),
    QStringLiteral("continents"), QStringLiteral("countries"), QStringLiteral("keywords"),
    QStringLiteral("states"),
};

void defaultErrorPresenter(const HBError &error)
{
    std::fprintf(stderr, "%s %s\n", qPrintable(error.localizedDescription()), qPrintable(error.localizedFailureReason()));
}

void defaultFatalStartupReport(const QString &message, const QString &informativeText)
{
    std::fprintf(stderr, "%s\n%s\n", qPrintable(message), qPrintable(informativeText));
    std::fflush(stdout);
    std::fflush(stderr);
    // Other threads may still be at work on the stores; ending without
    // running static destructors keeps them from tripping over freed state.
    std::_Exit(EXIT_FAILURE);
}

// Everything that lives for the whole process. Never freed: worker threads
// may use it until the very end.
struct ProcessState
{
    QMutex classLock;          // making the two managers
    QMutex valuesLock;         // folders, registry, hooks
    QMutex persistentStoreLock;
    std::atomic<HBTrackManager *> shared{nullptr};
    std::atomic<HBTrackManager *> background{nullptr};
    QString supportFolder;
    QString pointFolder;
    QString cacheFolder;
    QHash<QString, HBPersistentStore *> registry;
    std::unique_ptr<HBStoreIdentifierCache> identifiers;   // of the period files, made with the folders
    QHash<QString, QDeadlineTimer> failedOpenings;         // by registry key: when to try again
    std::atomic<quint64> registryGeneration{0};   // changes with every registration
    HBTrackManager::ErrorPresenter presentError = defaultErrorPresenter;
    HBTrackManager::FatalStartupReport reportFatal = defaultFatalStartupReport;
};

ProcessState &process()
{
    static ProcessState *state = new ProcessState;
    return *state;
}

// A period file that could not be opened (a full disk, a file that cannot
// be read) is not tried again for a while: an import asks for its file
// at every point, and would report the same failure a hundred thousand times.
constexpr int kRetryOpeningAfterMs = 10000;

bool openingFailedLately(const QString &key)
{
    QMutexLocker lock(&process().valuesLock);
    const auto it = process().failedOpenings.constFind(key);
    return it != process().failedOpenings.constEnd() && !it->hasExpired();
}

void noteFailedOpening(const QString &key)
{
    QMutexLocker lock(&process().valuesLock);
    process().failedOpenings.insert(key, QDeadlineTimer(kRetryOpeningAfterMs));
}

HBStoreIdentifierCache &periodFileIdentifiers()
{
    QMutexLocker lock(&process().valuesLock);
    return *process().identifiers;
}

HBPersistentStore *registeredStore(const QString &key)
{
    QMutexLocker lock(&process().valuesLock);
    return process().registry.value(key);
}

// The first store opened for a file names it for everyone: a later one
// takes over its identifier.
void registerOrAdoptIdentifier(const QString &key, HBPersistentStore *store)
{
    QMutexLocker lock(&process().valuesLock);
    if (HBPersistentStore *first = process().registry.value(key)) {
        store->setIdentifier(first->identifier());
    } else {
        process().registry.insert(key, store);
        ++process().registryGeneration;
    }
}

// Every store error is logged as its description, its detailed errors and
// a line that says where it happened.
void logError(const HBError &error, const QString &where)
{
    qCWarning(hbManager).noquote() << error.localizedDescription();
    qCWarning(hbManager).noquote() << error.detailedErrorsDescription();
    if (!where.isEmpty())
        qCWarning(hbManager).noquote() << where;
}

// Like a C library's atol: optional sign and leading digits; anything else reads as 0.
qint64 leadingInteger(const QString &text)
{
    qsizetype end = 0;
    if (end < text.size() && (text[end] == u'-' || text[end] == u'+'))
        ++end;
    while (end < text.size() && text[end].isDigit() && text[end].unicode() < 128)
        ++end;
    return QStringView(text).left(end).toLongLong();
}

QString storeKeyForDate(const QDateTime &date)
{
    return date.isValid() ? QString::number(HBTrackManager::periodNumberForDate(date)) : kDatelessStoreKey;
}

// The stores that failed to open while a coordinator was being built.
struct StartupErrors
{
    int count = 0;
    std::optional<HBError> first;

    void add(const HBError &error)
    {
        ++count;
        if (!first)
            first = error;
    }
};

// A period file whose identifier was noted before is added unopened, and
// opened when first used.
void openStartupStore(HBPersistentStoreCoordinator &coordinator, const QString &configuration, const QString &path,
                      const QString &key, const QString &failureLine, StartupErrors &errors, bool isPeriodFile = false)
{
    HBError error;
    const QString known = isPeriodFile ? periodFileIdentifiers().identifierFor(path) : QString();
    HBPersistentStore *store = coordinator.addPersistentStore(configuration, path, &error, known);
    if (store) {
        if (isPeriodFile && known.isEmpty())
            periodFileIdentifiers().note(store->path(), store->identifier());
        registerOrAdoptIdentifier(key, store);
        return;
    }
    logError(error, failureLine);
    errors.add(error);
}

void reportFatalStartupError(const HBError &error)
{
    const QString message = QCoreApplication::translate("HBTrackManager",
                                                        "An Error was encountered trying to load the track manager database.");
    const QString informative = QStringLiteral("%1. %2").arg(error.localizedDescription(), error.localizedFailureReason());
    HBTrackManager::FatalStartupReport report;
    {
        QMutexLocker lock(&process().valuesLock);
        report = process().reportFatal;
    }
    HBMainThread::runAndWait([&] { report(message, informative); });
}

} // namespace

HBTrackManager::HBTrackManager(Role role)
    : m_role(role)
{
    if (QCoreApplication *app = QCoreApplication::instance())
        moveToThread(app->thread());
}

HBTrackManager::~HBTrackManager() = default;

void HBTrackManager::setErrorPresenter(ErrorPresenter presenter)
{
    QMutexLocker lock(&process().valuesLock);
    process().presentError = presenter ? std::move(presenter) : defaultErrorPresenter;
}

void HBTrackManager::setFatalStartupReport(FatalStartupReport report)
{
    QMutexLocker lock(&process().valuesLock);
    process().reportFatal = report ? std::move(report) : defaultFatalStartupReport;
}

void HBTrackManager::presentError(const HBError &error)
{
    ErrorPresenter present;
    {
        QMutexLocker lock(&process().valuesLock);
        present = process().presentError;
    }
    HBMainThread::runAndWait([&] { present(error); });
}

// --- the two managers and the process-wide values ------------------------------

HBTrackManager *HBTrackManager::sharedTrackManager()
{
    if (HBTrackManager *manager = process().shared.load())
        return manager;
    QMutexLocker lock(&process().classLock);
    if (HBTrackManager *manager = process().shared.load())
        return manager;
    auto *manager = new HBTrackManager(Role::Shared);
    manager->setPersistentStoreCoordinator(manager->centralPersistentStoreCoordinator());
    manager->m_trackImportQueue = std::make_unique<HBOperationQueue>();
    manager->m_trackImportQueue->setMaxConcurrentOperationCount(1);
    manager->m_recentImportsPredicate = HBPredicate::falsePredicate();
    manager->refreshRecentImportsPredicate();
    process().shared.store(manager);
    return manager;
}

HBTrackManager *HBTrackManager::sharedBackgroundThreadTrackManager()
{
    if (HBTrackManager *manager = process().background.load())
        return manager;
    QMutexLocker lock(&process().classLock);
    if (HBTrackManager *manager = process().background.load())
        return manager;
    auto *manager = new HBTrackManager(Role::Background);
    manager->setPersistentStoreCoordinator(manager->centralPersistentStoreCoordinator());
    process().background.store(manager);
    return manager;
}

QMutex *HBTrackManager::persistentStoreLock()
{
    return &process().persistentStoreLock;
}

QString HBTrackManager::supportFolder()
{
    QMutexLocker lock(&process().valuesLock);
    return process().supportFolder;
}

QString HBTrackManager::pointFolder()
{
    QMutexLocker lock(&process().valuesLock);
    return process().pointFolder;
}

QString HBTrackManager::cacheFolder()
{
    QMutexLocker lock(&process().valuesLock);
    QString &folder = process().cacheFolder;
    if (folder.isEmpty()) {
        folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + u'/' + kApplicationFolder
                 + QStringLiteral("/TrackManagerDatabase");
        if (!QDir().mkpath(folder))
            qCWarning(hbManager).noquote() << "The cache folder" << folder << "could not be made.";
    }
    return folder;
}

QHash<QString, HBPersistentStore *> HBTrackManager::persistentStoresDictionary()
{
    QMutexLocker lock(&process().valuesLock);
    return process().registry;
}

void HBTrackManager::createSupportFoldersForApplication(const QString &folderName)
{
    const QString support = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u'/' + folderName;
    const QString points = support + QStringLiteral("/PointDatabases");
    for (const QString &folder : {support, points}) {
        if (!QDir().mkpath(folder))
            qCWarning(hbManager).noquote() << "The folder" << folder << "could not be made.";
    }
    QMutexLocker lock(&process().valuesLock);
    if (process().supportFolder != support)
        process().identifiers = std::make_unique<HBStoreIdentifierCache>(support + QStringLiteral("/PointDatabaseIdentifiers"));
    process().supportFolder = support;
    process().pointFolder = points;
}

// --- stores ------------------------------------------------------------------------

qint64 HBTrackManager::periodNumberForDate(const QDateTime &date)
{
    const double seconds = double(date.toMSecsSinceEpoch() - kReferenceDateMSecs) / 1000.0;
    return qint64(std::floor(seconds / kPeriodSeconds));
}

std::unique_ptr<HBPersistentStoreCoordinator> HBTrackManager::centralPersistentStoreCoordinator()
{
    createSupportFoldersForApplication(kApplicationFolder);
    auto coordinator = std::make_unique<HBPersistentStoreCoordinator>(HBTrackDataModel::model());
    StartupErrors errors;
    openStartupStore(*coordinator, {}, supportFolder() + QStringLiteral("/TrackManagerDatabase.sql"), kPrimaryStoreKey,
                     QStringLiteral("Error occurred while adding TrackManagerDatabase.sql to the central store during init."),
                     errors);
    openStartupStore(*coordinator, {}, pointFolder() + QStringLiteral("/DatelessPoints.sql"), kDatelessStoreKey,
                     QStringLiteral("Error occurred while adding DatelessPoints.sql to the central store during init."), errors);

    // Period 0 reads like any name without a number and is skipped with
    // them, so 0.sql is opened only when one of its points is inserted.
    QDirIterator listing(pointFolder(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    QStringList periodFiles;
    while (listing.hasNext()) {
        const QFileInfo entry(listing.next());
        const qint64 period = leadingInteger(entry.completeBaseName());
        if (entry.suffix() != QLatin1String("sql") || period == 0)
            continue;
        openStartupStore(*coordinator, kPointOnlyConfiguration, entry.filePath(), QString::number(period),
                         QStringLiteral("Error occurred while adding a point database %1.sql to the central store during init.")
                             .arg(period),
                         errors, true);
        periodFiles.append(entry.absoluteFilePath());
    }
    periodFileIdentifiers().tidy(periodFiles);
    if (errors.count > 0 && errors.first)
        reportFatalStartupError(*errors.first);
    // Points name their segment in the central store, so a save commits
    // the point files first and the central store last, and what a save
    // cut off in between left in the point files is taken out here.
    coordinator->setCommitLastStore(coordinator->persistentStoreForPath(supportFolder() + QStringLiteral("/TrackManagerDatabase.sql")));
    coordinator->setSaveNoteFolder(supportFolder());
    coordinator->finishUnfinishedSaves();
    return coordinator;
}

HBPersistentStore *HBTrackManager::primaryPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator)
{
    const HBPersistentStore *primary = registeredStore(kPrimaryStoreKey);
    return primary && coordinator ? coordinator->persistentStoreForPath(primary->path()) : nullptr;
}

HBPersistentStore *HBTrackManager::persistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                                 const QDateTime &date)
{
    if (!coordinator)
        return nullptr;
    // An import asks this twice per point (once without a date, when the
    // point is made, then with it), nearly always for the stores it asked
    // for last; an answer holds until a store is added or registered.
    struct LastAnswer
    {
        const HBPersistentStoreCoordinator *coordinator = nullptr;
        quint64 storesGeneration = 0;
        quint64 registryGeneration = 0;
        std::optional<qint64> period;
        HBPersistentStore *store = nullptr;
    };
    thread_local LastAnswer lastAnswers[2];   // without a date, with one
    const std::optional<qint64> period = date.isValid() ? std::optional(periodNumberForDate(date)) : std::nullopt;
    LastAnswer &last = lastAnswers[period.has_value()];
    const quint64 storesGeneration = coordinator->storesGeneration();
    const quint64 registryGeneration = process().registryGeneration.load();
    if (last.store && last.coordinator == coordinator && last.period == period
        && last.storesGeneration == storesGeneration && last.registryGeneration == registryGeneration)
        return last.store;

    const HBPersistentStore *registered =
        registeredStore(period ? QString::number(*period) : kDatelessStoreKey);
    HBPersistentStore *store = registered ? coordinator->persistentStoreForPath(registered->path()) : nullptr;
    last = {coordinator, storesGeneration, registryGeneration, period, store};
    return store;
}

HBPersistentStore *HBTrackManager::addPersistentStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                                    const QDateTime &date)
{
    const QString key = storeKeyForDate(date);
    if (openingFailedLately(key))
        return nullptr;
    coordinator->lock();
    const QString path = pointFolder() + u'/' + key + QStringLiteral(".sql");
    HBError error;
    // The dateless file is opened as a point file here, although start-up
    // opens it for every entity.
    HBPersistentStore *store = coordinator->addPersistentStore(kPointOnlyConfiguration, path, &error);
    if (store) {
        {
            QMutexLocker lock(&process().valuesLock);
            process().registry.insert(key, store);
            ++process().registryGeneration;
        }
        if (key != kDatelessStoreKey)
            periodFileIdentifiers().note(store->path(), store->identifier());
        HBTrackManager *background = process().background.load();
        if (background && coordinator == background->coordinatorIfMade()) {
            HBTrackManager *shared = sharedTrackManager();
            if (shared->coordinatorIfMade() != coordinator)
                HBMainThread::runAndWait([&] { shared->addStoreWithStore(store); });
        } else {
            background = sharedBackgroundThreadTrackManager();
            HBMainThread::runAndWait([&] { background->addStoreWithStore(store); });
        }
    } else {
        noteFailedOpening(key);
        presentError(error);
        logError(error, QStringLiteral("Error occurred in addPersistentStoreForCoordinator:forDate:."));
    }
    coordinator->unlock();
    return store;
}

HBPersistentStore *HBTrackManager::addStoreWithStore(HBPersistentStore *other)
{
    HBError error;
    // The other store has just opened the file and knows its identifier;
    // this one opens it when first used.
    HBPersistentStore *store =
        persistentStoreCoordinator()->addPersistentStore(kPointOnlyConfiguration, other->path(), &error, other->identifier());
    if (!store) {
        presentError(error);
        logError(error, QStringLiteral("Error occurred in addStoreWithStore."));
        return nullptr;
    }
    return store;
}

HBPersistentStore *HBTrackManager::addStoreWithURL(const QUrl &url)
{
    HBError error;
    HBPersistentStore *store = persistentStoreCoordinator()->addPersistentStore(kPointOnlyConfiguration, url.toLocalFile(), &error);
    if (!store)
        presentError(error);
    return store;
}

void HBTrackManager::assignToStore(HBGeoPoint *object, const QDateTime &date)
{
    HBManagedObjectContext *context = object ? object->managedObjectContext() : nullptr;
    HBPersistentStoreCoordinator *coordinator = context ? context->persistentStoreCoordinator() : nullptr;
    const HBTrackManager *shared = process().shared.load();
    const HBTrackManager *background = process().background.load();
    if (!coordinator || ((!shared || coordinator != shared->coordinatorIfMade())
                         && (!background || coordinator != background->coordinatorIfMade()))) {
        qCWarning(hbManager).noquote() << "Not assigning point to ANY reasonable coordinator!!!";
        return;
    }
    if (!object->objectID().isTemporaryID())
        return;
    HBPersistentStore *store = nullptr;
    if (object->entity()->name() == QLatin1String("HBWaypoint")) {
        store = primaryPersistentStoreForCoordinator(coordinator);
    } else {
        store = persistentStoreForCoordinator(coordinator, date);
        if (!store) {
            QMutex *lock = persistentStoreLock();
            HBMainThread::lock(*lock);
            // another thread may have opened it meanwhile
            store = persistentStoreForCoordinator(coordinator, date);
            if (!store)
                store = addPersistentStoreForCoordinator(coordinator, date);
            lock->unlock();
        }
    }
    if (store)
        context->assignObject(object, store);
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
    if (!m_coordinator)
        m_coordinator = std::move(made);
    return m_coordinator.get();
}

void HBTrackManager::setPersistentStoreCoordinator(std::unique_ptr<HBPersistentStoreCoordinator> coordinator)
{
    QMutexLocker lock(&m_mutex);
    m_coordinator = std::move(coordinator);
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

// --- saving ------------------------------------------------------------------------

void HBTrackManager::save()
{
    HBManagedObjectContext *root = managedObjectContext();
    root->performBlockAndWait([root] {
        HBError error;
        if (!root->save(&error))
            logError(error, QStringLiteral("error occurred in trackManager save."));
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
        logError(shown, {});
}

// --- bonus table -----------------------------------------------------------------------

QVariant HBTrackManager::fetchBonusTableValueForKey(const QString &key)
{
    std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
    QVariant value;
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBBonusTable"));
        request.setPredicate(HBPredicate::format(QStringLiteral(" key == %@"), {key}));
        const QList<HBManagedObject *> rows = context->executeFetchRequest(request);
        if (!rows.isEmpty())
            value = rows.first()->valueForKey(QStringLiteral("value"));
    });
    return value;
}

void HBTrackManager::setBonusTableValue(const QVariant &value, const QString &key)
{
    std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBBonusTable"));
        request.setPredicate(HBPredicate::format(QStringLiteral("key == %@"), {key}));
        const QList<HBManagedObject *> rows = context->executeFetchRequest(request);
        HBManagedObject *row = rows.isEmpty() ? nullptr : rows.first();
        if (!row) {
            row = context->insertNewObjectForEntityForName(QStringLiteral("HBBonusTable"));
            row->setValueForKey(key, QStringLiteral("key"));
        }
        row->setValueForKey(value, QStringLiteral("value"));
        context->save();
    });
}

// --- point deletion -----------------------------------------------------------------------

namespace {

QList<HBManagedObject *> fetchTrackPoints(HBManagedObjectContext *context, const QList<HBManagedObjectID> &ids)
{
    HBFetchRequest request(QStringLiteral("HBTrackPoint"));
    request.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(ids)}));
    request.setRelationshipKeyPathsForPrefetching(kTrackPointPrefetchKeyPaths);
    request.setReturnsObjectsAsFaults(false);
    return context->executeFetchRequest(request);
}

} // namespace

void HBTrackManager::deletePointsWithIDs(const QList<HBManagedObjectID> &pointIDs)
{
    if (pointIDs.isEmpty())
        return;
    std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
    context->performBlockAndWait([&] {
        for (HBManagedObject *point : fetchTrackPoints(context.get(), pointIDs))
            context->deleteObject(point);
        saveWithChildContext(context.get());
    });
}

void HBTrackManager::deletePointsWithURIs(const QList<QUrl> &pointURIs)
{
    if (pointURIs.isEmpty())
        return;
    QThreadPool::globalInstance()->start([this, pointURIs] {
        std::unique_ptr<HBManagedObjectContext> context = newManagedObjectContext();
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
        HBMainThread::post([] { sharedTrackManager()->postDidDeleteObjects(); });
    });
}

void HBTrackManager::postDidDeleteObjects()
{
    emit didDeleteObjects();
}

// --- deletion of what the user removes -------------------------------------------------------

namespace {

const QStringList kImportSourcePrefetchKeyPaths{
    QStringLiteral("events"), QStringLiteral("routes"), QStringLiteral("tracks"), QStringLiteral("waypoints"),
};

const QStringList kWaypointPrefetchKeyPaths{
    QStringLiteral("additionalAttributes"), QStringLiteral("children"), QStringLiteral("cities"),
    QStringLiteral("continents"), QStringLiteral("counties"), QStringLiteral("countries"),
    QStringLiteral("event"), QStringLiteral("importSource"), QStringLiteral("keywords"),
    QStringLiteral("manualGroups"), QStringLiteral("people"), QStringLiteral("states"),
};

// Full objects of the entity matching the predicate, their relationships
// loaded ahead; a failed fetch gives nothing.
QList<HBManagedObject *> fetchLoaded(HBManagedObjectContext *context, const QString &entity, const HBPredicate &predicate,
                                     const QStringList &prefetch)
{
    HBFetchRequest request(entity);
    request.setPredicate(predicate);
    request.setRelationshipKeyPathsForPrefetching(prefetch);
    request.setReturnsObjectsAsFaults(false);
    return context->executeFetchRequest(request);
}

HBPredicate idsIn(const QString &keyPath, const QList<HBManagedObjectID> &ids)
{
    return HBPredicate::format(keyPath + QStringLiteral(" IN %@"), {QVariant::fromValue(ids)});
}

} // namespace

void HBTrackManager::deleteObjects(const QList<HBManagedObject *> &objects)
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
    // The context is made and dropped on a pool thread: a context cannot be
    // destroyed from inside its own queue.
    QThreadPool::globalInstance()->start([this, waypoints, tracks, sources, others] {
        std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
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
            saveWithChildContext(k);
            postDidDeleteObjects();
        });
    });
}

void HBTrackManager::deleteImportSourcesWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    const QList<HBManagedObject *> sources =
        fetchLoaded(context, QStringLiteral("HBImportSource"), idsIn(QStringLiteral("self"), ids), kImportSourcePrefetchKeyPaths);
    // loaded only so that the cascade below finds them in memory
    fetchLoaded(context, QStringLiteral("HBTrack"), idsIn(QStringLiteral("self.importSource"), ids), HBTrack::prefetchKeyPaths());
    fetchLoaded(context, QStringLiteral("HBWaypoint"), idsIn(QStringLiteral("self.importSource"), ids), kWaypointPrefetchKeyPaths);
    for (HBManagedObject *source : sources)
        context->deleteObject(source);
}

void HBTrackManager::deleteTracksWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    for (HBManagedObject *track : fetchLoaded(context, QStringLiteral("HBTrack"), idsIn(QStringLiteral("self"), ids),
                                              HBTrack::prefetchKeyPaths()))
        context->deleteObject(track);
}

void HBTrackManager::deleteWaypointsWithIDs(const QList<HBManagedObjectID> &ids, HBManagedObjectContext *context)
{
    for (HBManagedObject *waypoint : fetchLoaded(context, QStringLiteral("HBWaypoint"), idsIn(QStringLiteral("self"), ids),
                                                 kWaypointPrefetchKeyPaths))
        context->deleteObject(waypoint);
}

// --- queries for the host ------------------------------------------------------------------------

namespace {

template<class Record>
HBFetchedRecords<Record> fetchIntoNewChild(HBTrackManager *manager, const QString &entity, const HBPredicate &predicate)
{
    HBFetchedRecords<Record> fetched{manager->newPrivateQueueContext(), {}};
    fetched.context->performBlockAndWait([&] {
        for (HBManagedObject *o : fetchLoaded(fetched.context.get(), entity, predicate, {}))
            fetched.records.append(static_cast<Record *>(o));
    });
    return fetched;
}

} // namespace

HBFetchedRecords<HBTrack> HBTrackManager::tracksForPredicate(const HBPredicate &predicate)
{
    return fetchIntoNewChild<HBTrack>(this, QStringLiteral("HBTrack"), predicate);
}

HBFetchedRecords<HBWaypoint> HBTrackManager::waypointsForPredicate(const HBPredicate &predicate)
{
    return fetchIntoNewChild<HBWaypoint>(this, QStringLiteral("HBWaypoint"), predicate);
}

QHash<QString, HBPredicate> HBTrackManager::nearbyPredicatesForDates(const QList<QDateTime> &unsorted)
{
    constexpr qint64 span = 86400;   // seconds either side of a date
    QList<QDateTime> dates = unsorted;
    std::sort(dates.begin(), dates.end());
    if (dates.isEmpty())
        return {{QStringLiteral("trackPredicate"), HBPredicate::falsePredicate()},
                {QStringLiteral("waypointPredicate"), HBPredicate::falsePredicate()}};
    // spans that overlap or touch merge into one interval
    QList<std::pair<QDateTime, QDateTime>> intervals;
    QDateTime start = dates.first().addSecs(-span), end;
    for (const QDateTime &d : std::as_const(dates)) {
        if (end.isValid() && end < d.addSecs(-span)) {
            intervals.append({start, end});
            start = d.addSecs(-span);
        }
        end = d.addSecs(span);
    }
    intervals.append({start, end});

    QList<HBPredicate> trackParts, waypointParts;
    for (const auto &[s, e] : std::as_const(intervals)) {
        trackParts << HBPredicate::format(QStringLiteral("startDate <= %@ AND endDate >= %@"), {s, s})
                   << HBPredicate::format(QStringLiteral("startDate >= %@ AND endDate <= %@"), {s, e})
                   << HBPredicate::format(QStringLiteral("startDate <= %@ AND endDate >= %@"), {e, e});
        waypointParts << HBPredicate::format(QStringLiteral("date >= %@ AND date <= %@"), {s, e});
    }
    return {{QStringLiteral("trackPredicate"), HBPredicate::orPredicate(trackParts)},
            {QStringLiteral("waypointPredicate"), HBPredicate::orPredicate(waypointParts)}};
}

// Points name their segment by URI, not by a relationship a fetch could
// follow across files, so a source's points are found through the point
// lists of its segments and loaded with one fetch.
QList<HBTrackPoint *> HBTrackManager::batchFaultGraphFromImportSource(HBManagedObject *importSource)
{
    HBManagedObjectContext *root = managedObjectContext();
    QList<HBTrackPoint *> points;
    root->performBlockAndWait([&] {
        QList<HBManagedObjectID> ids;
        const QList<HBManagedObject *> tracks = fetchLoaded(
            root, QStringLiteral("HBTrack"), HBPredicate::format(QStringLiteral("importSource == %@"), {QVariant::fromValue(importSource->objectID())}),
            {QStringLiteral("trackSegments")});
        for (const HBManagedObject *t : tracks) {
            for (const HBTrackSegment *s : static_cast<const HBTrack *>(t)->segments())
                ids += s->pointIDs();
        }
        if (ids.isEmpty())
            return;
        for (HBManagedObject *p : fetchLoaded(root, QStringLiteral("HBTrackPoint"), idsIn(QStringLiteral("self"), ids),
                                              {QStringLiteral("additionalAttributes"), QStringLiteral("children")}))
            points.append(static_cast<HBTrackPoint *>(p));
    });
    return points;
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

HBPredicate HBTrackManager::recentImportsPredicate() const
{
    QMutexLocker lock(&m_recentImportsMutex);
    return m_recentImportsPredicate;
}

void HBTrackManager::setRecentImportsPredicate(const HBPredicate &predicate)
{
    {
        QMutexLocker lock(&m_recentImportsMutex);
        m_recentImportsPredicate = predicate;
    }
    emit recentImportsPredicateChanged();
}

// All files of one import call share its date, so the sources with the
// newest import date are the newest batch.
void HBTrackManager::refreshRecentImportsPredicate()
{
    // Made here rather than on the pool's thread: making it moves it to the
    // application's thread, which the pool's thread may outlive once the
    // program returns from main() and the application waits for the pool.
    HBManagedObjectContext *ui = mainQueueContext();
    QThreadPool::globalInstance()->start([this, ui] {
        std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
        QList<HBManagedObjectID> batch;
        context->performBlockAndWait([&] {
            HBFetchRequest newest(QStringLiteral("HBImportSource"));
            newest.setPredicate(HBPredicate::format(QStringLiteral("importDate <= %@"), {QDateTime::currentDateTimeUtc()}));
            newest.setSortDescriptors({{QStringLiteral("importDate"), false}});
            newest.setFetchLimit(1);
            const QList<HBManagedObject *> found = context->executeFetchRequest(newest);
            if (found.isEmpty())
                return;
            HBFetchRequest sameBatch(QStringLiteral("HBImportSource"));
            sameBatch.setPredicate(HBPredicate::format(QStringLiteral("importDate == %@"),
                                                       {found.first()->valueForKey(QStringLiteral("importDate"))}));
            batch = context->executeFetchRequestForObjectIDs(sameBatch);
        });
        const HBPredicate predicate = batch.isEmpty()
                                          ? HBPredicate::falsePredicate()
                                          : HBPredicate::format(QStringLiteral("self.importSource IN %@"), {QVariant::fromValue(batch)});
        ui->performBlock([this, predicate] { setRecentImportsPredicate(predicate); });
    });
}

QList<HBManagedObject *> HBTrackManager::recentImports()
{
    const HBPredicate predicate = recentImportsPredicate();
    std::unique_ptr<HBManagedObjectContext> context = newPrivateQueueContext();
    QList<HBManagedObjectID> ids;
    context->performBlockAndWait([&] {
        for (const char *entity : {"HBTrack", "HBWaypoint"}) {
            HBFetchRequest request{QLatin1String(entity)};
            request.setPredicate(predicate);
            HBError error;
            const QList<HBManagedObjectID> found = context->executeFetchRequestForObjectIDs(request, &error);
            if (!error.isNull())
                qCWarning(hbManager).noquote() << "FetchRequest error occurred in recentImports:" << error.localizedDescription();
            ids += found;
        }
    });
    QList<HBManagedObject *> objects;
    HBManagedObjectContext *ui = mainQueueContext();
    ui->performBlockAndWait([&] {
        for (const HBManagedObjectID &id : std::as_const(ids))
            objects.append(ui->objectWithID(id));
    });
    return objects;
}

// --- import batches ---------------------------------------------------------------------------

// Already queued files, and files imported before whose size and
// modification date are still those of their import source.
QStringList HBTrackManager::pathsToSkip(const QStringList &paths) const
{
    QStringList skip;
    for (const auto &operation : m_trackImportQueue->operations()) {
        if (const auto *file = dynamic_cast<const HBFileImportOperation *>(operation.get()))
            skip.append(file->filePath());
    }
    std::unique_ptr<HBManagedObjectContext> context = const_cast<HBTrackManager *>(this)->newPrivateQueueContext();
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBImportSource"));
        request.setPredicate(HBPredicate::format(QStringLiteral(" filePath IN %@"), {paths}));
        for (const HBManagedObject *source : context->executeFetchRequest(request)) {
            const QString path = source->valueForKey(QStringLiteral("filePath")).toString();
            const HBFileName::Status file = HBFileName::status(path);
            if (file.exists && file.size != 0 && file.modified.isValid()
                && file.size == source->valueForKey(QStringLiteral("fileSize")).toLongLong()
                && file.modified == source->valueForKey(QStringLiteral("fileModificationDate")).toDateTime())
                skip.append(path);
        }
    });
    return skip;
}

void HBTrackManager::startBatch(qsizetype pathCount)
{
    changeProgress(m_progress.indeterminate, true, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
    changeProgress(m_progress.inProgress, true, &HBTrackManager::trackImportIsInProgressChanged);
    changeProgress(m_progress.min, quint64(0), &HBTrackManager::trackImportProgressMinChanged);
    changeProgress(m_progress.max, quint64(0), &HBTrackManager::trackImportProgressMaxChanged);
    changeProgress(m_progress.lastFinished, quint64(0), &HBTrackManager::trackImportLastFinishedProgressValueChanged);
    if (!m_periodicUpdateTimer) {
        m_periodicUpdateTimer = new QTimer(this);
        m_periodicUpdateTimer->setInterval(100);
        connect(m_periodicUpdateTimer, &QTimer::timeout, this, &HBTrackManager::updateImportOperation);
    }
    m_periodicUpdateTimer->start();
    changeProgress(m_progress.info, tr("Determining file lengths for %1 files").arg(pathCount),
                   &HBTrackManager::trackImportProgressInfoChanged);
}

void HBTrackManager::showFileBeingImported()
{
    const QList<std::shared_ptr<HBOperation>> queued = m_trackImportQueue->operations();
    const auto *first = queued.isEmpty() ? nullptr : dynamic_cast<const HBFileImportOperation *>(queued.first().get());
    if (first)
        changeProgress(m_progress.info, tr("Importing from %1").arg(QFileInfo(first->filePath()).fileName()),
                       &HBTrackManager::trackImportProgressInfoChanged);
}

void HBTrackManager::importFilesAtPaths(const QStringList &paths)
{
    if (!importLock().tryLock()) {
        waitForImportTurn(paths);
        return;
    }
    queueImportsOfPaths(paths);
    endImportTurnWhenIdle();
}

HBImportLock &HBTrackManager::importLock()
{
    if (!m_importLock)
        m_importLock = std::make_unique<HBImportLock>(supportFolder() + QStringLiteral("/ImportBatch.lock"));
    return *m_importLock;
}

// Polled rather than waited for: the main thread stays free, and a wait
// can be given up (cancelImport).
void HBTrackManager::waitForImportTurn(const QStringList &paths)
{
    m_pathsAwaitingTurn += paths;
    changeProgress(m_progress.indeterminate, true, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
    changeProgress(m_progress.inProgress, true, &HBTrackManager::trackImportIsInProgressChanged);
    changeProgress(m_progress.info, tr("Waiting for another import to finish"), &HBTrackManager::trackImportProgressInfoChanged);
    if (!m_importTurnTimer) {
        m_importTurnTimer = new QTimer(this);
        m_importTurnTimer->setInterval(100);
        connect(m_importTurnTimer, &QTimer::timeout, this, &HBTrackManager::retryImportTurn);
    }
    m_importTurnTimer->start();
}

void HBTrackManager::retryImportTurn()
{
    if (!importLock().tryLock())
        return;
    queueImportsOfPaths(m_pathsAwaitingTurn);
    stopWaitingForImportTurn();
    endImportTurnWhenIdle();
}

// With nothing queued (all of it imported by the other process, or the
// wait cancelled) the wait was the whole batch, and its progress ends.
void HBTrackManager::stopWaitingForImportTurn()
{
    m_pathsAwaitingTurn.clear();
    m_importTurnTimer->stop();
    if (m_trackImportQueue->operationCount() > 0)
        return;
    changeProgress(m_progress.indeterminate, false, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
    changeProgress(m_progress.inProgress, false, &HBTrackManager::trackImportIsInProgressChanged);
}

void HBTrackManager::endImportTurnWhenIdle()
{
    if (m_trackImportQueue->operationCount() == 0)
        importLock().unlock();
}

void HBTrackManager::queueImportsOfPaths(const QStringList &paths)
{
    if (!m_observingOwnSaves) {
        announceSavesOf(managedObjectContext());
        m_observingOwnSaves = true;
    }
    const bool wasIndeterminate = m_progress.indeterminate;
    const QDateTime batchDate = QDateTime::currentDateTimeUtc();
    const QStringList skip = pathsToSkip(paths);
    bool first = true;
    for (const QString &path : paths) {
        if (skip.contains(path))
            continue;
        if (first && (!m_progress.inProgress || wasIndeterminate))
            startBatch(paths.size());
        first = false;
        std::shared_ptr<HBFileImportOperation> operation = HBImportOperationFactory::operationForPath(path);
        if (!operation)
            continue;
        operation->setFilePath(path);
        operation->setImportDate(batchDate);
        changeProgress(m_progress.max, m_progress.max + operation->numberOfCharacters(),
                       &HBTrackManager::trackImportProgressMaxChanged);
        observeFinishOf(operation);
        m_trackImportQueue->addOperation(operation);
    }
    if (m_trackImportQueue->operationCount() > 0) {
        changeProgress(m_progress.indeterminate, false, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
        showFileBeingImported();
    }
}

void HBTrackManager::cancelImport()
{
    m_trackImportQueue->cancelAllOperations();
    if (!m_pathsAwaitingTurn.isEmpty())
        stopWaitingForImportTurn();
}

void HBTrackManager::updateImportOperation()
{
    const QList<std::shared_ptr<HBOperation>> queued = m_trackImportQueue->operations();
    if (queued.isEmpty())
        return;
    const auto *first = dynamic_cast<const HBFileImportOperation *>(queued.first().get());
    changeProgress(m_progress.value, m_progress.lastFinished + (first ? first->currentCharacter() : 0),
                   &HBTrackManager::trackImportProgressValueChanged);
}

void HBTrackManager::queueGPSBabelImportOperation(std::shared_ptr<HBGPSBabelImportOperation> operation)
{
    connect(operation.get(), &HBGPSBabelImportOperation::babelOutputTextChanged, this,
            [](const QString &text) { qCWarning(hbManager).noquote() << "GPSBabel error:" << text; },
            Qt::QueuedConnection);
    observeFinishOf(operation);
    // A download starts no progress timer: it has no progress to show.
    changeProgress(m_progress.indeterminate, true, &HBTrackManager::trackImportIsIndeterminateProgressChanged);
    changeProgress(m_progress.inProgress, true, &HBTrackManager::trackImportIsInProgressChanged);
    changeProgress(m_progress.min, quint64(0), &HBTrackManager::trackImportProgressMinChanged);
    changeProgress(m_progress.max, quint64(0), &HBTrackManager::trackImportProgressMaxChanged);
    changeProgress(m_progress.value, quint64(0), &HBTrackManager::trackImportProgressValueChanged);
    changeProgress(m_progress.info, tr("Downloading from GPS\u2026"), &HBTrackManager::trackImportProgressInfoChanged);
    m_trackImportQueue->addOperation(std::move(operation));
}

// The connection keeps the operation alive until its bookkeeping is done.
void HBTrackManager::observeFinishOf(const std::shared_ptr<HBOperation> &operation)
{
    connect(operation.get(), &HBOperation::finished, this,
            [this, operation] {
                // disconnecting drops the captured pointer
                const std::shared_ptr<HBOperation> finished = operation;
                handleTrackOperationDidFinish(finished.get());
            },
            Qt::QueuedConnection);
}

void HBTrackManager::handleTrackOperationDidFinish(HBOperation *operation)
{
    disconnect(operation, &HBOperation::finished, this, nullptr);
    if (auto *download = qobject_cast<HBGPSBabelImportOperation *>(operation))
        handleDownloadDidFinish(download);
    else if (auto *file = qobject_cast<HBFileImportOperation *>(operation))
        handleFileImportDidFinish(file);
}

// The downloaded file goes through the file import like a dropped file; a
// failed download leaves the progress figures and text as they were.
void HBTrackManager::handleDownloadDidFinish(HBGPSBabelImportOperation *download)
{
    disconnect(download, &HBGPSBabelImportOperation::babelOutputTextChanged, this, nullptr);
    // A download cancelled before it started wrote nothing; the destination
    // may hold an older file that the user did not ask for now.
    if (!download->errorOccurredDuringDownload() && !download->isCancelled())
        importFilesAtPaths({download->fileDestinationPath()});
    else
        changeProgress(m_progress.inProgress, false, &HBTrackManager::trackImportIsInProgressChanged);
}

void HBTrackManager::handleFileImportDidFinish(HBFileImportOperation *operation)
{
    emit didFinishFileImport(operation->report());
    changeProgress(m_progress.lastFinished, m_progress.lastFinished + operation->numberOfCharacters(),
                   &HBTrackManager::trackImportLastFinishedProgressValueChanged);
    HBMainThread::post([this] { emit didFinishBatchImport(); });
    if (m_trackImportQueue->operationCount() > 0) {
        showFileBeingImported();
        return;
    }
    changeProgress(m_progress.inProgress, false, &HBTrackManager::trackImportIsInProgressChanged);
    if (m_periodicUpdateTimer)
        m_periodicUpdateTimer->stop();
    endImportTurnWhenIdle();
}

// --- file types ---------------------------------------------------------------------------

QStringList HBTrackManager::validFileTypes()
{
    return {QStringLiteral("gpx"), QStringLiteral("tcx"), QStringLiteral("nmea"),
            QStringLiteral("log"), QStringLiteral("txt"),  QStringLiteral("gps")};
}

HBPredicate HBTrackManager::validFileTypePredicate()
{
    static const HBPredicate predicate = [] {
        QList<HBPredicate> suffixes;
        for (const QString &type : validFileTypes())
            suffixes.append(HBPredicate::format(QStringLiteral("SELF endswith[cd] %@"), {u'.' + type}));
        return HBPredicate::orPredicate(suffixes);
    }();
    return predicate;
}

bool HBTrackManager::validateFilesAtPaths(const QStringList &paths)
{
    const HBPredicate valid = validFileTypePredicate();
    for (const QString &path : paths) {
        if (valid.evaluateWithValue(path))
            return true;
        if (!QFileInfo(path).isDir())
            continue;
        QDirIterator below(path, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (below.hasNext()) {
            if (valid.evaluateWithValue(below.next()))
                return true;
        }
    }
    return false;
}
