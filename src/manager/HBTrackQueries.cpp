#include "manager/HBTrackQueries.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBLogging.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <algorithm>

namespace {

QList<HBManagedObject *> fetchLoaded(HBManagedObjectContext *context, const QString &entity, const HBPredicate &predicate,
                                     const QStringList &prefetch)
{
    return context->executeFetchRequest(HBFetchRequest::loaded(entity, predicate, prefetch));
}

template<class Record>
HBFetchedRecords<Record> fetchIntoNewChild(HBTrackManager &manager, const QString &entity, const HBPredicate &predicate)
{
    HBFetchedRecords<Record> fetched{manager.newPrivateQueueContext(), {}};
    fetched.context->performBlockAndWait([&] {
        for (HBManagedObject *o : fetchLoaded(fetched.context.get(), entity, predicate, {}))
            fetched.records.append(static_cast<Record *>(o));
    });
    return fetched;
}

HBManagedObject *bonusTableRow(HBManagedObjectContext *context, const QString &key)
{
    HBFetchRequest request(QStringLiteral("HBBonusTable"));
    request.setPredicate(HBPredicate::format(QStringLiteral("key == %@"), {key}));
    const QList<HBManagedObject *> rows = context->executeFetchRequest(request);
    return rows.isEmpty() ? nullptr : rows.first();
}

} // namespace

HBTrackQueries::HBTrackQueries(HBTrackManager &manager)
    : m_manager(manager)
{
}

HBFetchedRecords<HBTrack> HBTrackQueries::tracksForPredicate(const HBPredicate &predicate)
{
    return fetchIntoNewChild<HBTrack>(m_manager, QStringLiteral("HBTrack"), predicate);
}

HBFetchedRecords<HBWaypoint> HBTrackQueries::waypointsForPredicate(const HBPredicate &predicate)
{
    return fetchIntoNewChild<HBWaypoint>(m_manager, QStringLiteral("HBWaypoint"), predicate);
}

QHash<QString, HBPredicate> HBTrackQueries::nearbyPredicatesForDates(const QList<QDateTime> &unsorted)
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
QList<HBTrackPoint *> HBTrackQueries::batchFaultGraphFromImportSource(HBManagedObject *importSource)
{
    HBManagedObjectContext *root = m_manager.managedObjectContext();
    QList<HBTrackPoint *> points;
    root->performBlockAndWait([&] {
        QList<HBManagedObjectID> ids;
        const QList<HBManagedObject *> tracks = fetchLoaded(
            root, QStringLiteral("HBTrack"),
            HBPredicate::format(QStringLiteral("importSource == %@"), {QVariant::fromValue(importSource->objectID())}),
            {QStringLiteral("trackSegments")});
        for (const HBManagedObject *t : tracks) {
            for (const HBTrackSegment *s : static_cast<const HBTrack *>(t)->segments())
                ids += s->pointIDs();
        }
        if (ids.isEmpty())
            return;
        const HBPredicate pointsIn = HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(ids)});
        for (HBManagedObject *p : fetchLoaded(root, QStringLiteral("HBTrackPoint"), pointsIn,
                                              {QStringLiteral("additionalAttributes"), QStringLiteral("children")}))
            points.append(static_cast<HBTrackPoint *>(p));
    });
    return points;
}

HBPredicate HBTrackQueries::recentImportsPredicate() const
{
    QMutexLocker lock(&m_recentImportsMutex);
    return m_recentImportsPredicate;
}

void HBTrackQueries::setRecentImportsPredicate(const HBPredicate &predicate)
{
    {
        QMutexLocker lock(&m_recentImportsMutex);
        m_recentImportsPredicate = predicate;
    }
    emit recentImportsPredicateChanged();
}

// All files of one import call share its date, so the sources with the
// newest import date are the newest batch.
void HBTrackQueries::refreshRecentImportsPredicate()
{
    // Made here rather than on the worker thread: making it moves it to the
    // application's thread, which the worker may outlive once the program
    // returns from main() and the application waits for the workers.
    HBManagedObjectContext *ui = m_manager.mainQueueContext();
    const quint64 serial = ++m_refreshesStarted;
    HBBackgroundWork::start([this, ui, serial] {
        std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
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
        // refreshes run side by side: an older one finishing last must not win
        ui->performBlock([this, predicate, serial] {
            if (serial < m_newestRefreshApplied)
                return;
            m_newestRefreshApplied = serial;
            setRecentImportsPredicate(predicate);
        });
    });
}

QList<HBManagedObject *> HBTrackQueries::recentImports()
{
    const HBPredicate predicate = recentImportsPredicate();
    std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
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
    HBManagedObjectContext *ui = m_manager.mainQueueContext();
    ui->performBlockAndWait([&] {
        for (const HBManagedObjectID &id : std::as_const(ids))
            objects.append(ui->objectWithID(id));
    });
    return objects;
}

QVariant HBTrackQueries::fetchBonusTableValueForKey(const QString &key)
{
    std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
    QVariant value;
    context->performBlockAndWait([&] {
        if (const HBManagedObject *row = bonusTableRow(context.get(), key))
            value = row->valueForKey(QStringLiteral("value"));
    });
    return value;
}

void HBTrackQueries::setBonusTableValue(const QVariant &value, const QString &key)
{
    std::unique_ptr<HBManagedObjectContext> context = m_manager.newPrivateQueueContext();
    context->performBlockAndWait([&] {
        HBManagedObject *row = bonusTableRow(context.get(), key);
        if (!row) {
            row = context->insertNewObjectForEntityForName(QStringLiteral("HBBonusTable"));
            row->setValueForKey(key, QStringLiteral("key"));
        }
        row->setValueForKey(value, QStringLiteral("value"));
        context->save();
    });
}
