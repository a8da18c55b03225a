#include "manager/HBTrackStoreLayout.h"

#include "manager/HBErrorPresentation.h"
#include "manager/HBStoreIdentifierCache.h"
#include "model/HBGeoPoint.h"
#include "model/HBTrackDataModel.h"
#include "platform/HBLogging.h"
#include "platform/HBMainThread.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBLockOrder.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStandardPaths>

#include <cmath>
#include <optional>

namespace {

const QString kPrimaryStoreKey = QStringLiteral("PrimaryStore");
const QString kDatelessStoreKey = QStringLiteral("DatelessPoints");
const QString kPointOnlyConfiguration = QStringLiteral("PointOnly");
constexpr qint64 kReferenceDateMSecs = 978307200000;   // 2001-01-01 00:00:00 UTC
constexpr double kPeriodSeconds = 864000.0;             // ten days
// A period file that could not be opened (a full disk, a file that cannot
// be read) is not tried again for a while: an import asks for its file
// at every point, and would report the same failure a hundred thousand times.
constexpr int kRetryOpeningAfterMs = 10000;

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
    return date.isValid() ? QString::number(HBTrackStoreLayout::periodNumberForDate(date)) : kDatelessStoreKey;
}

} // namespace

// The stores that failed to open while a coordinator was being made.
struct HBTrackStoreLayout::StartupErrors
{
    std::optional<HBError> first;

    void add(const HBError &error)
    {
        if (!first)
            first = error;
    }
};

HBTrackStoreLayout &HBTrackStoreLayout::shared()
{
    static HBTrackStoreLayout *layout = new HBTrackStoreLayout;
    return *layout;
}

void HBTrackStoreLayout::createSupportFolders(const QString &folderName)
{
    const QString support = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u'/' + folderName;
    const QString points = support + QStringLiteral("/PointDatabases");
    for (const QString &folder : {support, points}) {
        if (!QDir().mkpath(folder))
            qCWarning(hbManager).noquote() << "The folder" << folder << "could not be made.";
    }
    QMutexLocker lock(&m_lock);
    if (m_supportFolder != support)
        m_identifiers = std::make_unique<HBStoreIdentifierCache>(support + QStringLiteral("/PointDatabaseIdentifiers"));
    m_supportFolder = support;
    m_pointFolder = points;
}

QString HBTrackStoreLayout::supportFolder() const
{
    QMutexLocker lock(&m_lock);
    return m_supportFolder;
}

QString HBTrackStoreLayout::pointFolder() const
{
    QMutexLocker lock(&m_lock);
    return m_pointFolder;
}

QHash<QString, HBPersistentStore *> HBTrackStoreLayout::registry() const
{
    QMutexLocker lock(&m_lock);
    return m_registry;
}

qint64 HBTrackStoreLayout::periodNumberForDate(const QDateTime &date)
{
    const double seconds = double(date.toMSecsSinceEpoch() - kReferenceDateMSecs) / 1000.0;
    return qint64(std::floor(seconds / kPeriodSeconds));
}

HBPersistentStore *HBTrackStoreLayout::registeredStore(const QString &key) const
{
    QMutexLocker lock(&m_lock);
    return m_registry.value(key);
}

void HBTrackStoreLayout::registerStore(const QString &key, HBPersistentStore *store)
{
    QMutexLocker lock(&m_lock);
    m_registry.insert(key, store);
    ++m_registryGeneration;
}

// The first store opened for a file names it for everyone: a later one
// takes over its identifier.
void HBTrackStoreLayout::registerOrAdoptIdentifier(const QString &key, HBPersistentStore *store)
{
    if (HBPersistentStore *first = registeredStore(key))
        store->setIdentifier(first->identifier());
    else
        registerStore(key, store);
}

// --- coordinators -----------------------------------------------------------------------

std::unique_ptr<HBPersistentStoreCoordinator> HBTrackStoreLayout::makeCoordinator()
{
    createSupportFolders(QStringLiteral("Fernwick"));
    auto coordinator = std::make_unique<HBPersistentStoreCoordinator>(HBTrackDataModel::model());
    HBTrackDataModel::model()->setStorePlacement(this);
    StartupErrors errors;
    const QString central = supportFolder() + QStringLiteral("/TrackManagerDatabase.sql");
    const auto open = [&](const QString &path, const QString &key, const QString &failureLine) {
        HBError error;
        if (HBPersistentStore *store = coordinator->addPersistentStore({}, path, &error)) {
            registerOrAdoptIdentifier(key, store);
            return;
        }
        error.log(hbManager(), failureLine);
        errors.add(error);
    };
    open(central, kPrimaryStoreKey, QStringLiteral("Error occurred while adding TrackManagerDatabase.sql to the central store during init."));
    open(pointFolder() + QStringLiteral("/DatelessPoints.sql"), kDatelessStoreKey,
         QStringLiteral("Error occurred while adding DatelessPoints.sql to the central store during init."));
    addRegisteredStores(*coordinator, errors);
    if (errors.first)
        HBErrorPresentation::reportFatalStartupError(*errors.first);
    // Points name their segment in the central store, so a save commits
    // the point files first and the central store last, and what a save
    // cut off in between left in the point files is taken out here.
    coordinator->setCommitLastStore(coordinator->persistentStoreForPath(QFileInfo(central).absoluteFilePath()));
    coordinator->setSaveNoteFolder(supportFolder());
    coordinator->finishUnfinishedSaves();
    return coordinator;
}

// Period 0 reads like any name without a number and is skipped with them,
// so 0.sql is opened only when one of its points is inserted (kept as it
// is: the first ten days of 2001 are not reopened at start). A file whose
// identifier was noted before is added unopened, and opened when first used.
void HBTrackStoreLayout::addRegisteredStores(HBPersistentStoreCoordinator &coordinator, StartupErrors &errors)
{
    QDirIterator listing(pointFolder(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    QStringList periodFiles;
    while (listing.hasNext()) {
        const QFileInfo entry(listing.next());
        const qint64 period = leadingInteger(entry.completeBaseName());
        if (entry.suffix() != QLatin1String("sql") || period == 0)
            continue;
        periodFiles.append(entry.absoluteFilePath());
        HBError error;
        const QString known = m_identifiers->identifierFor(entry.filePath());
        HBPersistentStore *store = coordinator.addPersistentStore(kPointOnlyConfiguration, entry.filePath(), &error, known);
        if (!store) {
            error.log(hbManager(), QStringLiteral("Error occurred while adding a point database %1.sql to the central store during init.")
                                       .arg(period));
            errors.add(error);
            continue;
        }
        if (known.isEmpty())
            m_identifiers->note(store->path(), store->identifier());
        registerOrAdoptIdentifier(QString::number(period), store);
    }
    m_identifiers->tidy(periodFiles);
}

void HBTrackStoreLayout::setCoordinator(Side side, HBPersistentStoreCoordinator *coordinator)
{
    m_coordinators[int(side)].store(coordinator);
}

void HBTrackStoreLayout::setCoordinatorMaker(std::function<HBPersistentStoreCoordinator *(Side)> maker)
{
    QMutexLocker lock(&m_lock);
    m_makeCoordinator = std::move(maker);
}

bool HBTrackStoreLayout::isManagerCoordinator(const HBPersistentStoreCoordinator *coordinator) const
{
    return coordinator && (coordinator == m_coordinators[0].load() || coordinator == m_coordinators[1].load());
}

// --- routing ------------------------------------------------------------------------------

HBPersistentStore *HBTrackStoreLayout::primaryStoreForCoordinator(HBPersistentStoreCoordinator *coordinator) const
{
    const HBPersistentStore *primary = registeredStore(kPrimaryStoreKey);
    return primary && coordinator ? coordinator->persistentStoreForPath(primary->path()) : nullptr;
}

HBPersistentStore *HBTrackStoreLayout::storeForCoordinator(HBPersistentStoreCoordinator *coordinator,
                                                          const QDateTime &date) const
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
    const quint64 registryGeneration = m_registryGeneration.load();
    if (last.store && last.coordinator == coordinator && last.period == period
        && last.storesGeneration == storesGeneration && last.registryGeneration == registryGeneration)
        return last.store;

    const HBPersistentStore *registered = registeredStore(period ? QString::number(*period) : kDatelessStoreKey);
    HBPersistentStore *store = registered ? coordinator->persistentStoreForPath(registered->path()) : nullptr;
    last = {coordinator, storesGeneration, registryGeneration, period, store};
    return store;
}

bool HBTrackStoreLayout::openingFailedLately(const QString &key) const
{
    QMutexLocker lock(&m_lock);
    const auto it = m_failedOpenings.constFind(key);
    return it != m_failedOpenings.constEnd() && !it->hasExpired();
}

void HBTrackStoreLayout::noteFailedOpening(const QString &key)
{
    QMutexLocker lock(&m_lock);
    m_failedOpenings.insert(key, QDeadlineTimer(kRetryOpeningAfterMs));
}

HBPersistentStore *HBTrackStoreLayout::addStoreForCoordinator(HBPersistentStoreCoordinator *coordinator,
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
        registerStore(key, store);
        if (key != kDatelessStoreKey)
            m_identifiers->note(store->path(), store->identifier());
        mirrorIntoOtherSide(coordinator, store);
    } else {
        noteFailedOpening(key);
        HBErrorPresentation::presentError(error);
        error.log(hbManager(), QStringLiteral("Error occurred in addPersistentStoreForCoordinator:forDate:."));
    }
    coordinator->unlock();
    return store;
}

// On the main thread, while the opening thread waits with its locks held:
// the other side's coordinator serves the user interface.
void HBTrackStoreLayout::mirrorIntoOtherSide(HBPersistentStoreCoordinator *coordinator, HBPersistentStore *store)
{
    const Side other = coordinator == m_coordinators[int(Side::Background)].load() ? Side::Shared : Side::Background;
    HBPersistentStoreCoordinator *target = m_coordinators[int(other)].load();
    if (!target) {
        std::function<HBPersistentStoreCoordinator *(Side)> make;
        {
            QMutexLocker lock(&m_lock);
            make = m_makeCoordinator;
        }
        // a coordinator made now finds the new file among the others
        if (make)
            make(other);
        return;
    }
    if (target != coordinator)
        HBMainThread::runAndWait([&] { addStoreWithStore(target, store); });
}

HBPersistentStore *HBTrackStoreLayout::addStoreWithStore(HBPersistentStoreCoordinator *coordinator, HBPersistentStore *other)
{
    HBError error;
    // The other store has just opened the file and knows its identifier;
    // this one opens it when first used.
    HBPersistentStore *store = coordinator->addPersistentStore(kPointOnlyConfiguration, other->path(), &error, other->identifier());
    if (!store) {
        HBErrorPresentation::presentError(error);
        error.log(hbManager(), QStringLiteral("Error occurred in addStoreWithStore."));
    }
    return store;
}

void HBTrackStoreLayout::assignToStore(HBGeoPoint *object, const QDateTime &date)
{
    HBManagedObjectContext *context = object ? object->managedObjectContext() : nullptr;
    HBPersistentStoreCoordinator *coordinator = context ? context->persistentStoreCoordinator() : nullptr;
    if (!isManagerCoordinator(coordinator)) {
        // the log's wording is the system's own, kept on purpose
        qCWarning(hbManager).noquote() << "Not assigning point to ANY reasonable coordinator!!!";
        return;
    }
    if (!object->objectID().isTemporaryID())
        return;
    HBPersistentStore *store = nullptr;
    if (object->entity()->name() == QLatin1String("HBWaypoint")) {
        store = primaryStoreForCoordinator(coordinator);
    } else {
        store = storeForCoordinator(coordinator, date);
        if (!store) {
            HBMainThread::lock(m_persistentStoreLock);
            HB_WILL_LOCK(Opening);
            // another thread may have opened it meanwhile
            store = storeForCoordinator(coordinator, date);
            if (!store)
                store = addStoreForCoordinator(coordinator, date);
            HB_DID_UNLOCK(Opening);
            m_persistentStoreLock.unlock();
        }
    }
    if (store)
        context->assignObject(object, store);
}

void HBTrackStoreLayout::placeObject(HBManagedObject *object, const QVariant &routingKey)
{
    static const HBEntityDescription *const point = HBTrackDataModel::model()->entityNamed(QStringLiteral("HBGeoPoint"));
    if (object->entity()->rootEntity() == point)
        assignToStore(static_cast<HBGeoPoint *>(object), routingKey.toDateTime());
}
