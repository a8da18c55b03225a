#pragma once

#include "platform/store/HBStorePlacement.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QHash>
#include <QMutex>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class HBGeoPoint;
class HBPersistentStore;
class HBPersistentStoreCoordinator;
class HBStoreIdentifierCache;

// Where the track manager's records live on disk, and which file each new
// point goes to.
//
// Points are not kept in one database. A track point lives in the file of
// its ten-day period ("<n>.sql" in "PointDatabases", n counted from
// 2001-01-01 UTC, negative before), a point without a date in
// "DatelessPoints.sql", everything else in "TrackManagerDatabase.sql". A
// period file is opened the moment its first point is inserted, and added
// to the other manager's coordinator at once (on the main thread), so that
// IDs minted through one resolve through the other.
//
// Two coordinators share the files: the shared manager's, for the main
// thread, and the background manager's, for import threads. A process-wide
// registry maps "PrimaryStore", "DatelessPoints" and "<n>" to the first
// store opened for each file, and a coordinator opening a registered file
// takes over that store's identifier.
//
// Process-wide and never destroyed: worker threads route points until the
// very end.
class HBTrackStoreLayout : public HBStorePlacement
{
public:
    enum class Side { Shared, Background };

    static HBTrackStoreLayout &shared();

    // The folders, made under the user's data folder ("Fernwick", with
    // "PointDatabases" inside); known once made.
    void createSupportFolders(const QString &folderName);
    QString supportFolder() const;
    QString pointFolder() const;
    // Serialises the opening of period stores.
    QMutex *persistentStoreLock() { return &m_persistentStoreLock; }
    QHash<QString, HBPersistentStore *> registry() const;

    // Whole ten-day periods since 2001-01-01 00:00:00 UTC, rounded down.
    static qint64 periodNumberForDate(const QDateTime &date);

    // A new coordinator over every store file there is: the central and
    // dateless stores opened, period files registered by the identifiers
    // noted beside them (opened at first use), and what a save cut off
    // between its commits left behind repaired. A store that fails to open
    // is the fatal start-up error.
    std::unique_ptr<HBPersistentStoreCoordinator> makeCoordinator();
    // The coordinators between which new period files are mirrored; the
    // maker is asked for a side's coordinator that is not made yet.
    void setCoordinator(Side side, HBPersistentStoreCoordinator *coordinator);
    void setCoordinatorMaker(std::function<HBPersistentStoreCoordinator *(Side)> maker);

    HBPersistentStore *primaryStoreForCoordinator(HBPersistentStoreCoordinator *coordinator) const;
    // The coordinator's own store for the date's period (an invalid date:
    // the dateless store), or null when that file is not open there.
    HBPersistentStore *storeForCoordinator(HBPersistentStoreCoordinator *coordinator, const QDateTime &date) const;
    // Opens the period (or dateless) file in the coordinator and mirrors it
    // into the other side's.
    HBPersistentStore *addStoreForCoordinator(HBPersistentStoreCoordinator *coordinator, const QDateTime &date);
    // Adds the other coordinator's file here under the other's identifier.
    HBPersistentStore *addStoreWithStore(HBPersistentStoreCoordinator *coordinator, HBPersistentStore *other);

    // Routes a newly inserted point to its store file: a waypoint to the
    // central store, a point with a date to its period's file, one without
    // to the dateless file. A saved point never moves. `date` is the
    // point's own, given by the caller that has just set it.
    void assignToStore(HBGeoPoint *point, const QDateTime &date);
    // Points only; every other record goes to the central store.
    void placeObject(HBManagedObject *object, const QVariant &routingKey) override;

private:
    struct StartupErrors;
    HBTrackStoreLayout() = default;
    bool isManagerCoordinator(const HBPersistentStoreCoordinator *coordinator) const;
    HBPersistentStore *registeredStore(const QString &key) const;
    void registerOrAdoptIdentifier(const QString &key, HBPersistentStore *store);
    void registerStore(const QString &key, HBPersistentStore *store);
    void addRegisteredStores(HBPersistentStoreCoordinator &coordinator, StartupErrors &errors);
    void mirrorIntoOtherSide(HBPersistentStoreCoordinator *coordinator, HBPersistentStore *store);
    bool openingFailedLately(const QString &key) const;
    void noteFailedOpening(const QString &key);

    mutable QMutex m_lock;   // everything below but the coordinators
    QMutex m_persistentStoreLock;
    QString m_supportFolder;
    QString m_pointFolder;
    QHash<QString, HBPersistentStore *> m_registry;
    std::atomic<quint64> m_registryGeneration{0};   // changes with every registration
    std::unique_ptr<HBStoreIdentifierCache> m_identifiers;   // of the period files
    QHash<QString, QDeadlineTimer> m_failedOpenings;         // by registry key: when to try again
    std::function<HBPersistentStoreCoordinator *(Side)> m_makeCoordinator;
    std::atomic<HBPersistentStoreCoordinator *> m_coordinators[2] = {nullptr, nullptr};
};
