#pragma once

#include "manager/HBFetchedRecords.h"
#include "platform/store/HBPredicate.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QObject>

#include <atomic>

class HBManagedObject;
class HBTrack;
class HBTrackManager;
class HBTrackPoint;
class HBWaypoint;

// What hosts ask of the stored tracks and waypoints, and the key/value
// table they keep beside them.
class HBTrackQueries : public QObject
{
    Q_OBJECT

public:
    explicit HBTrackQueries(HBTrackManager &manager);

    // Fully loaded, in a context made for the call.
    HBFetchedRecords<HBTrack> tracksForPredicate(const HBPredicate &predicate);
    HBFetchedRecords<HBWaypoint> waypointsForPredicate(const HBPredicate &predicate);
    // "trackPredicate" and "waypointPredicate": what lies within a day of
    // any of the dates.
    static QHash<QString, HBPredicate> nearbyPredicatesForDates(const QList<QDateTime> &dates);
    // Every track point of the import source, loaded into the root context
    // in one fetch.
    QList<HBTrackPoint *> batchFaultGraphFromImportSource(HBManagedObject *importSource);

    // Selects the tracks and waypoints of the newest import batch; false
    // until there is one. Recomputed in the background.
    HBPredicate recentImportsPredicate() const;
    void refreshRecentImportsPredicate();
    // The tracks, then the waypoints, of the newest batch, as objects of
    // the main-queue context.
    QList<HBManagedObject *> recentImports();

    QVariant fetchBonusTableValueForKey(const QString &key);
    void setBonusTableValue(const QVariant &value, const QString &key);

signals:
    void recentImportsPredicateChanged();

private:
    void setRecentImportsPredicate(const HBPredicate &predicate);

    HBTrackManager &m_manager;
    std::atomic<quint64> m_refreshesStarted{0};
    quint64 m_newestRefreshApplied = 0;   // on the main thread
    mutable QMutex m_recentImportsMutex;
    HBPredicate m_recentImportsPredicate = HBPredicate::falsePredicate();
};
