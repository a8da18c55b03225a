#include "model/HBTrackSegment.h"

#include "kits/geometry/HBEarthDistance.h"
#include "kits/geometry/HBMultiPointGeometry.h"
#include "model/HBFeatureStyles.h"
#include "model/HBPointURIList.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegmentPointURIs.h"
#include "platform/HBBackgroundWork.h"
#include "platform/HBConcurrentFor.h"
#include "platform/HBLogging.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBPropertyDescription.h"

#include <QMutex>

#include <algorithm>

std::optional<qint64> HBTrackSegment::order() const
{
    const QVariant v = valueForKey(QStringLiteral("order"));
    return v.isValid() ? std::optional<qint64>(v.toLongLong()) : std::nullopt;
}

void HBTrackSegment::setOrder(std::optional<qint64> order)
{
    setValueForKey(order ? QVariant::fromValue(*order) : QVariant(), QStringLiteral("order"));
}

std::optional<double> HBTrackSegment::optionalDouble(const QString &key) const
{
    const QVariant v = valueForKey(key);
    return v.isValid() ? std::optional<double>(v.toDouble()) : std::nullopt;
}

HBTrack *HBTrackSegment::track() const
{
    return static_cast<HBTrack *>(objectForKey(QStringLiteral("track")));
}

HBTrackSegmentPointURIs *HBTrackSegment::trackPointURIs() const
{
    return static_cast<HBTrackSegmentPointURIs *>(objectForKey(QStringLiteral("trackPointURIs")));
}

// --- the point list -----------------------------------------------------------------

QList<HBTrackPoint *> HBTrackSegment::points()
{
    if (!m_pointsLoaded) {
        m_pointCache = fetchPoints();
        m_pointsLoaded = true;
    }
    return m_pointCache;
}

qsizetype HBTrackSegment::countOfPoints() const
{
    return m_pointsLoaded ? m_pointCache.size() : qsizetype(numberOfTrackPoints());
}

HBTrackPoint *HBTrackSegment::objectInPointsAtIndex(qsizetype index)
{
    const QList<HBTrackPoint *> list = points();
    return index >= 0 && index < list.size() ? list[index] : nullptr;
}

void HBTrackSegment::setPoints(const QList<HBTrackPoint *> &newPoints)
{
    if (countOfPoints() > 0)
        deletePointsFromStore(points());
    for (qsizetype i = 0; i < newPoints.size(); ++i) {
        newPoints[i]->setOrder(i);
        newPoints[i]->setTrackSegment(this);
    }
    m_pointCache = newPoints;
    m_pointsLoaded = true;
    m_geometry.reset();
    recalculateAttributes();
}

void HBTrackSegment::insertObject(HBTrackPoint *point, qsizetype index)
{
    points();
    index = std::clamp<qsizetype>(index, 0, m_pointCache.size());
    const QList<HBTrackPoint *> later = m_pointCache.mid(index);
    m_pointCache.insert(index, point);
    point->setOrder(index);
    point->setTrackSegment(this);
    // Deliberately one value for all of them: the points after an insertion
    // are only known to come after it, and keep their relative places by
    // the order the store returns them in.
    for (HBTrackPoint *p : later)
        p->setOrder(index + 1);
    m_geometry.reset();
    recalculateAttributes();
}

void HBTrackSegment::removeObjectFromPointsAtIndex(qsizetype index)
{
    points();
    if (index < 0 || index >= m_pointCache.size())
        return;
    const QList<HBTrackPoint *> later = m_pointCache.mid(index + 1);
    deletePointsFromStore({m_pointCache[index]});
    m_pointCache.removeAt(index);
    for (HBTrackPoint *p : later)
        p->setOrder(p->order().value_or(0) - 1);
    m_geometry.reset();
    recalculateAttributes();
}

void HBTrackSegment::removePoint(HBTrackPoint *point)
{
    const qsizetype index = points().indexOf(point);
    if (index >= 0)
        removeObjectFromPointsAtIndex(index);
}

// --- statistics ------------------------------------------------------------------------

namespace {

// The sum of the earth distances between consecutive positions (x =
// longitude), added up in order. The distances of a long segment are
// worked out side by side first; adding them in the same order keeps the
// sum the same to the last bit.
double pathLength(const std::vector<QPointF> &positions)
{
    if (positions.size() < 2)
        return 0.0;
    std::vector<double> legs(positions.size() - 1);
    constexpr qsizetype legsPerJob = 8192;
    const qsizetype jobs = (qsizetype(legs.size()) + legsPerJob - 1) / legsPerJob;
    const auto measure = [&](qsizetype job) {
        const size_t end = std::min(legs.size(), size_t(job + 1) * size_t(legsPerJob));
        for (size_t i = size_t(job) * size_t(legsPerJob); i < end; ++i)
            legs[i] = HBEarthDistance(positions[i].x(), positions[i].y(), positions[i + 1].x(), positions[i + 1].y());
    };
    if (jobs > 1) {
        HBConcurrentFor(jobs, measure);
    } else {
        measure(0);
    }
    double sum = 0.0;
    for (double leg : legs)
        sum += leg;
    return sum;
}

} // namespace

void HBTrackSegment::recalculateAttributes()
{
    if (m_pointCache.isEmpty())
        return;
    QDateTime start, end;
    std::optional<double> minLatitude, maxLatitude, minLongitude, maxLongitude;
    std::vector<QPointF> located;   // x = longitude
    located.reserve(size_t(m_pointCache.size()));
    for (const HBTrackPoint *p : std::as_const(m_pointCache)) {
        const std::optional<HBDecimal> latitude = p->latitude(), longitude = p->longitude();
        if (!latitude || !longitude)
            continue;
        const QDateTime date = p->date();
        const QPointF here(longitude->toDouble(), latitude->toDouble());
        const bool first = located.empty();
        if (first || !start.isValid() || (date.isValid() && start > date))
            start = date;
        if (first || !end.isValid() || (date.isValid() && end < date))
            end = date;
        minLatitude = std::min(minLatitude.value_or(here.y()), here.y());
        maxLatitude = std::max(maxLatitude.value_or(here.y()), here.y());
        minLongitude = std::min(minLongitude.value_or(here.x()), here.x());
        maxLongitude = std::max(maxLongitude.value_or(here.x()), here.x());
        located.push_back(here);
    }
    const auto optionalValue = [](const std::optional<double> &v) { return v ? QVariant(*v) : QVariant(); };
    constexpr size_t legsMeasuredAside = 8192;
    if (located.size() > legsMeasuredAside) {
        m_pendingDistance = HBBackgroundWork::async([positions = std::move(located)] { return pathLength(positions); });
    } else {
        m_pendingDistance = {};
        setValueForKey(pathLength(located), QStringLiteral("distance"));
    }
    setValueForKey(QVariant::fromValue(qint64(m_pointCache.size())), QStringLiteral("numberOfTrackPoints"));
    setValueForKey(start.isValid() ? QVariant(start) : QVariant(), QStringLiteral("startDate"));
    setValueForKey(end.isValid() ? QVariant(end) : QVariant(), QStringLiteral("endDate"));
    setValueForKey(optionalValue(minLatitude), QStringLiteral("minLatitude"));
    setValueForKey(optionalValue(maxLatitude), QStringLiteral("maxLatitude"));
    setValueForKey(optionalValue(minLongitude), QStringLiteral("minLongitude"));
    setValueForKey(optionalValue(maxLongitude), QStringLiteral("maxLongitude"));
    saveTrackPointURIs();
}

void HBTrackSegment::saveTrackPointURIs()
{
    HBManagedObjectContext *context = managedObjectContext();
    HBPersistentStoreCoordinator *coordinator = context->persistentStoreCoordinator();
    const QList<HBManagedObject *> objects(m_pointCache.begin(), m_pointCache.end());
    context->lock();
    coordinator->lock();
    HBError error;
    // One retry, and the log's wording, are the system's own, kept on purpose.
    if (!context->obtainPermanentIDsForObjects(objects, &error)) {
        qCWarning(hbModel).noquote() << "ObtainPermanentIDsForObjects error occurred in saveTrackPointURIs:"
                                     << error.localizedDescription();
        if (context->obtainPermanentIDsForObjects(objects, &error))
            qCWarning(hbModel).noquote() << "Tried again to ObtainPermanentIDsForObjects, and succeeded!";
        else
            qCWarning(hbModel).noquote()
                << "Tried again and failed: ObtainPermanentIDsForObjects error occurred in saveTrackPointURIs:"
                << error.localizedDescription();
    }
    coordinator->unlock();
    context->unlock();

    QList<HBManagedObjectID> ids;
    ids.reserve(m_pointCache.size());
    for (const HBTrackPoint *p : std::as_const(m_pointCache))
        ids.append(p->objectID());
    const QByteArray data = HBPointURIList::encode(ids);
    HBTrackSegmentPointURIs *record = trackPointURIs();
    if (!record) {
        record = context->insertNewObject<HBTrackSegmentPointURIs>(QStringLiteral("HBTrackSegmentPointURIs"));
        record->setData(data);
        setObjectForKey(record, QStringLiteral("trackPointURIs"));
        return;
    }
    record->setData(data);
}

QString HBTrackSegment::uriString() const
{
    const HBManagedObjectID id = objectID();
    if (id != m_uriStringID || m_uriString.isNull()) {
        m_uriString = id.uriString();
        m_uriStringID = id;
    }
    return m_uriString;
}

// --- loading -----------------------------------------------------------------------------

QList<HBManagedObjectID> HBTrackSegment::pointIDs() const
{
    const HBTrackSegmentPointURIs *record = trackPointURIs();
    const QByteArray data = record ? record->data() : QByteArray();
    HBPersistentStoreCoordinator *coordinator = managedObjectContext()->persistentStoreCoordinator();
    if (data.isEmpty() || !coordinator)
        return {};
    QList<HBManagedObjectID> ids =
        HBPointURIList::decodeIDs(
            data,
            [coordinator](QStringView store, QStringView entity) {
                return coordinator->managedObjectIDMaker(store, entity);
            },
            [coordinator](const QString &uri) { return coordinator->managedObjectIDForURIString(uri); })
            .value_or(QList<HBManagedObjectID>());
    ids.removeIf([](const HBManagedObjectID &id) { return id.isNull(); });
    return ids;
}

std::optional<HBFetchRequest> HBTrackSegment::pointsFetchRequest() const
{
    const QList<HBManagedObjectID> ids = pointIDs();
    if (ids.isEmpty())
        return std::nullopt;
    HBFetchRequest request(QStringLiteral("HBTrackPoint"));
    request.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(ids)}));
    request.setSortDescriptors({{QStringLiteral("order"), true}});
    // their extra attributes in the same pass: an export reads several of
    // each point, which would otherwise be a fetch each
    request.setRelationshipKeyPathsForPrefetching({QStringLiteral("additionalAttributes")});
    return request;
}

void HBTrackSegment::readAheadPoints() const
{
    if (m_pointsLoaded || m_pointsRequest)
        return;
    m_pointsRequest = pointsFetchRequest();
    if (m_pointsRequest)
        managedObjectContext()->readAhead(*m_pointsRequest);
}

QList<HBTrackPoint *> HBTrackSegment::fetchPoints() const
{
    std::optional<HBFetchRequest> request = std::exchange(m_pointsRequest, std::nullopt);
    if (!request)
        request = pointsFetchRequest();
    if (!request)
        return {};
    QList<HBTrackPoint *> result;
    for (HBManagedObject *o : managedObjectContext()->executeFetchRequest(*request))
        result.append(static_cast<HBTrackPoint *>(o));
    return result;
}

HBTrackPoint *HBTrackSegment::fetchPointAtIndex(qsizetype index) const
{
    const HBTrackSegmentPointURIs *record = trackPointURIs();
    const QByteArray data = record ? record->data() : QByteArray();
    if (data.isEmpty())
        return nullptr;
    const qsizetype count = HBPointURIList::count(data);
    if (index >= count) {
        qCWarning(hbModel).noquote() << QStringLiteral("Invalid index for fetchPointAtIndex. Requested index: %1 of total: %2")
                                            .arg(index)
                                            .arg(count);
        return nullptr;
    }
    const std::optional<QString> uri = HBPointURIList::stringAt(data, index);
    HBManagedObjectContext *context = managedObjectContext();
    const HBManagedObjectID id = uri ? context->persistentStoreCoordinator()->managedObjectIDForURIString(*uri) : HBManagedObjectID();
    if (id.isNull())
        return nullptr;
    HBFetchRequest request(QStringLiteral("HBTrackPoint"));
    request.setPredicate(HBPredicate::format(QStringLiteral("self == %@"), {QVariant::fromValue(id)}));
    const QList<HBManagedObject *> found = context->executeFetchRequest(request);
    return found.isEmpty() ? nullptr : static_cast<HBTrackPoint *>(found.last());
}

// --- deletion ----------------------------------------------------------------------------

void HBTrackSegment::dropPointURIs()
{
    HBTrackSegmentPointURIs *record = trackPointURIs();
    setObjectForKey(nullptr, QStringLiteral("trackPointURIs"));
    managedObjectContext()->deleteObject(record);
}

namespace {

QMutex &pointRemovalLock()
{
    static QMutex lock;
    return lock;
}

HBTrackSegment::PointRemoval &installedPointRemoval()
{
    static HBTrackSegment::PointRemoval removal;
    return removal;
}

HBTrackSegment::PointRemoval pointRemoval()
{
    QMutexLocker lock(&pointRemovalLock());
    return installedPointRemoval();
}

} // namespace

void HBTrackSegment::setPointRemoval(PointRemoval removal)
{
    QMutexLocker lock(&pointRemovalLock());
    installedPointRemoval() = std::move(removal);
}

void HBTrackSegment::deletePointsFromStore(const QList<HBTrackPoint *> &doomed)
{
    if (!trackPointURIs())
        return;
    QList<HBManagedObjectID> ids;
    ids.reserve(doomed.size());
    for (const HBTrackPoint *p : doomed)
        ids.append(p->objectID());
    if (const PointRemoval removal = pointRemoval(); removal.withIDs)
        removal.withIDs(ids);
    dropPointURIs();
}

void HBTrackSegment::deleteAllPointsFromStore()
{
    const HBTrackSegmentPointURIs *record = trackPointURIs();
    const QByteArray data = record ? record->data() : QByteArray();
    if (data.isEmpty())
        return;
    if (const PointRemoval removal = pointRemoval(); removal.withURIs)
        removal.withURIs(HBPointURIList::decode(data).value_or(QList<QUrl>()));
    dropPointURIs();
}

// Only the save that reaches the files takes the points along: a deletion
// saved into a parent context is carried out when the parent is saved.
double HBTrackSegment::distance() const
{
    settleDistance();
    return valueForKey(QStringLiteral("distance")).toDouble();
}

// Set from const accessors too: the attribute only catches up with the
// statistics already worked out.
void HBTrackSegment::settleDistance() const
{
    if (m_pendingDistance.valid())
        const_cast<HBTrackSegment *>(this)->setValueForKey(m_pendingDistance.get(), QStringLiteral("distance"));
}

void HBTrackSegment::willSave()
{
    settleDistance();
    if (isDeleted() && !managedObjectContext()->parentContext())
        deleteAllPointsFromStore();
}

// --- as a map feature ------------------------------------------------------------------------

QString HBTrackSegment::featureName() const
{
    const std::optional<qint64> n = order();
    return QStringLiteral("Segment #%1").arg(n ? QString::number(*n) : QStringLiteral("(null)"));
}

QHash<QString, HBPropertyDescription> HBTrackSegment::propertiesByName()
{
    return HBPropertyDescription::attributes({{QStringLiteral("name"), HBAttributeType::String},
                                              {QStringLiteral("startDate"), HBAttributeType::Date},
                                              {QStringLiteral("endDate"), HBAttributeType::Date}});
}

std::shared_ptr<HBMultiPointGeometry> HBTrackSegment::geometry()
{
    if (!m_geometry) {
        std::vector<QPointF> positions;
        const QList<HBTrackPoint *> list = points();
        positions.reserve(size_t(list.size()));
        for (const HBTrackPoint *p : list)
            positions.push_back(p->point());
        m_geometry = std::make_shared<HBMultiPointGeometry>(std::move(positions));
    }
    return m_geometry;
}

std::shared_ptr<HBStyle> HBTrackSegment::style()
{
    // A segment's geometry is always a multi-point: its type is known
    // without loading the points.
    if (!m_style && HBFeatureStyles::installed().styleForGeometry)
        m_style = HBFeatureStyles::installed().styleForGeometry(HBGeometryTypeMultiPoint);
    return m_style;
}
