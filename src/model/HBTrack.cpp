#include "model/HBTrack.h"

#include "model/HBAdditionsTable.h"
#include "model/HBFeatureStyles.h"
#include "model/HBGeoPoint.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackGeometry.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPropertyDescription.h"

#include <QDir>
#include <QFile>

#include <algorithm>

namespace {

const HBAdditionsTable &additions()
{
    static const HBAdditionsTable table(QStringLiteral("HBTrackAdditions"), QStringLiteral("track"));
    return table;
}

// Written in place: a torn cache file reads as damaged data and the
// geometry is then built from the points again.
void writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(data);
}

} // namespace

std::optional<qint64> HBTrack::optionalInteger(const QString &key) const
{
    const QVariant v = valueForKey(key);
    return v.isValid() ? std::optional<qint64>(v.toLongLong()) : std::nullopt;
}

void HBTrack::setOptionalInteger(std::optional<qint64> value, const QString &key)
{
    setValueForKey(value ? QVariant::fromValue(*value) : QVariant(), key);
}

std::optional<double> HBTrack::distance() const
{
    const QVariant v = valueForKey(QStringLiteral("distance"));
    return v.isValid() ? std::optional<double>(v.toDouble()) : std::nullopt;
}

std::optional<double> HBTrack::duration() const
{
    const QVariant v = valueForKey(QStringLiteral("duration"));
    return v.isValid() ? std::optional<double>(v.toDouble()) : std::nullopt;
}

// --- segments -----------------------------------------------------------------------

QList<HBTrackSegment *> HBTrack::segments() const
{
    QList<HBTrackSegment *> list;
    for (HBManagedObject *o : objectsForKey(QStringLiteral("trackSegments")))
        list.append(static_cast<HBTrackSegment *>(o));
    std::stable_sort(list.begin(), list.end(), [](const HBTrackSegment *a, const HBTrackSegment *b) {
        return a->order().value_or(0) < b->order().value_or(0);
    });
    return list;
}

qsizetype HBTrack::countOfSegments() const
{
    return objectsForKey(QStringLiteral("trackSegments")).size();
}

HBTrackSegment *HBTrack::objectInSegmentsAtIndex(qsizetype index) const
{
    const QList<HBTrackSegment *> list = segments();
    return index >= 0 && index < list.size() ? list[index] : nullptr;
}

void HBTrack::setSegments(const QList<HBTrackSegment *> &list)
{
    for (qsizetype i = 0; i < list.size(); ++i)
        list[i]->setOrder(i);
    setObjectsForKey(QList<HBManagedObject *>(list.begin(), list.end()), QStringLiteral("trackSegments"));
    recalculateAttributes();
}

void HBTrack::insertObject(HBTrackSegment *segment, qsizetype index)
{
    const QList<HBTrackSegment *> later = segments().mid(index);
    segment->setOrder(index);
    segment->setObjectForKey(this, QStringLiteral("track"));
    for (HBTrackSegment *s : later)
        s->setOrder(s->order().value_or(0) + 1);
    recalculateAttributes();
}

void HBTrack::removeObjectFromSegmentsAtIndex(qsizetype index)
{
    const QList<HBTrackSegment *> list = segments();
    if (index < 0 || index >= list.size())
        return;
    list[index]->setObjectForKey(nullptr, QStringLiteral("track"));
    for (HBTrackSegment *s : list.mid(index + 1))
        s->setOrder(s->order().value_or(0) - 1);
    recalculateAttributes();
}

void HBTrack::removeSegment(HBTrackSegment *segment)
{
    const qsizetype index = segments().indexOf(segment);
    if (index >= 0)
        removeObjectFromSegmentsAtIndex(index);
}

// --- statistics ------------------------------------------------------------------------

void HBTrack::recalculateAttributes()
{
    const QList<HBTrackSegment *> list = segments();
    if (list.isEmpty())
        return;
    // The geometry needs only the points: it is made while the last
    // segment's distance may still be worked out aside, before waiting for it.
    clearExistingGeometryCachePaths();
    setGeometry(primitiveTrackGeometry());
    QDateTime start = list.first()->startDate(), end = list.first()->endDate();
    double distance = 0.0;
    qint64 points = 0;
    for (const HBTrackSegment *s : list) {
        distance += s->distance();
        points += s->numberOfTrackPoints();
        const QDateTime segmentStart = s->startDate(), segmentEnd = s->endDate();
        if (!start.isValid() || (segmentStart.isValid() && start > segmentStart))
            start = segmentStart;
        if (!end.isValid() || (segmentEnd.isValid() && end < segmentEnd))
            end = segmentEnd;
    }
    setValueForKey(distance, QStringLiteral("distance"));
    setValueForKey(start.isValid() && end.isValid() ? QVariant(double(start.msecsTo(end)) / 1000.0) : QVariant(),
                   QStringLiteral("duration"));
    setValueForKey(QVariant::fromValue(points), QStringLiteral("numberOfTrackPoints"));
    setValueForKey(start.isValid() ? QVariant(start) : QVariant(), QStringLiteral("startDate"));
    setValueForKey(end.isValid() ? QVariant(end) : QVariant(), QStringLiteral("endDate"));
}

QRectF HBTrack::bounds() const
{
    std::optional<double> minLatitude, maxLatitude, minLongitude, maxLongitude;
    const auto lower = [](std::optional<double> &into, std::optional<double> v) {
        if (v)
            into = std::min(into.value_or(*v), *v);
    };
    const auto upper = [](std::optional<double> &into, std::optional<double> v) {
        if (v)
            into = std::max(into.value_or(*v), *v);
    };
    for (const HBTrackSegment *s : segments()) {
        lower(minLatitude, s->minLatitude());
        upper(maxLatitude, s->maxLatitude());
        lower(minLongitude, s->minLongitude());
        upper(maxLongitude, s->maxLongitude());
    }
    const double x = minLongitude.value_or(0), y = minLatitude.value_or(0);
    return QRectF(x, y, maxLongitude.value_or(0) - x, maxLatitude.value_or(0) - y);
}

// --- extra attributes ----------------------------------------------------------------------

QString HBTrack::type() const
{
    return fetchAdditionsTableValueForKey(kHBTrackLinkProperty).toString();
}

void HBTrack::setType(const QString &type)
{
    setAdditionsTableValue(type, kHBTrackLinkProperty);
}

QVariant HBTrack::fetchAdditionsTableValueForKey(const QString &key) const
{
    return additions().value(this, key);
}

void HBTrack::setAdditionsTableValue(const QVariant &value, const QString &key)
{
    additions().setValue(this, value, key, HBAdditionsTable::NewRow::Unlinked);
}

// --- geometry --------------------------------------------------------------------------------

std::shared_ptr<HBTrackGeometry> HBTrack::primitiveTrackGeometry()
{
    if (isFault())
        qCInfo(hbModel).noquote() << "isfault:" << objectID().uriString();
    std::vector<QPointF> positions;
    qsizetype total = 0;
    const QList<HBTrackSegment *> list = segments();
    for (const HBTrackSegment *s : list)
        total += s->countOfPoints();
    positions.reserve(size_t(total));
    for (HBTrackSegment *s : list) {
        for (const HBTrackPoint *p : s->points()) {
            const std::optional<HBDecimal> latitude = p->latitude(), longitude = p->longitude();
            if (latitude && longitude)
                positions.emplace_back(longitude->toDouble(), latitude->toDouble());
        }
    }
    auto geometry = std::make_shared<HBTrackGeometry>(std::move(positions));
    geometry->setTrack(this);
    geometry->setHasUnsavedChanges(true);
    return geometry;
}

std::shared_ptr<HBTrackGeometry> HBTrack::geometry()
{
    if (!m_geometry) {
        const QByteArray cached = cachedWKBData();
        std::shared_ptr<HBTrackGeometry> made = cached.isEmpty() ? nullptr : HBTrackGeometry::fromWKBData(cached);
        m_geometry = made ? made : primitiveTrackGeometry();
        m_geometry->setTrack(this);
    }
    return m_geometry;
}

void HBTrack::setGeometry(std::shared_ptr<HBTrackGeometry> geometry)
{
    m_geometry = std::move(geometry);
}

std::shared_ptr<HBSimplePointStyle> HBTrack::style()
{
    return HBFeatureStyles::styleOf(this, m_style);
}

QHash<QString, HBPropertyDescription> HBTrack::propertiesByName()
{
    return HBPropertyDescription::attributes({{QStringLiteral("name"), HBAttributeType::String},
                                              {QStringLiteral("kind"), HBAttributeType::String},
                                              {QStringLiteral("localStartDate"), HBAttributeType::Date},
                                              {QStringLiteral("localEndDate"), HBAttributeType::Date}});
}

// --- the geometry cache -------------------------------------------------------------------------

// the last path component of the track's URI, "p<key>"
QString HBTrack::cacheFileName() const
{
    return objectID().uriString().section(u'/', -1);
}

QString HBTrack::projectionsFolder() const
{
    return HBTrackDataModel::cacheFolder() + u'/' + objectID().storeIdentifier() + QStringLiteral("/GeometryProjections");
}

QString HBTrack::geometryCachePathForSRID(qint64 srid) const
{
    const QString folder = projectionsFolder() + u'/' + QString::number(srid);
    QDir().mkpath(folder);
    return folder + u'/' + cacheFileName();
}

QString HBTrack::unprojectedGeometryCachePath() const
{
    return geometryCachePathForSRID(HBProjection::GeographicSRID);
}

QByteArray HBTrack::cachedWKBData() const
{
    return cachedWKBDataForSRID(HBProjection::GeographicSRID);
}

QByteArray HBTrack::cachedWKBDataForSRID(qint64 srid) const
{
    if (objectID().isTemporaryID())
        return {};
    QFile file(geometryCachePathForSRID(srid));
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

QStringList HBTrack::existingGeometryCachePaths() const
{
    const QDir folder(projectionsFolder());
    if (objectID().isTemporaryID() || !folder.exists())
        return {};
    const QString fileName = cacheFileName();
    QStringList paths;
    for (const QString &entry : folder.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
        const QString path = folder.filePath(entry) + u'/' + fileName;
        if (QFile::exists(path))
            paths.append(path);
    }
    return paths;
}

QStringList HBTrack::existingProjectedGeometryCachePaths() const
{
    QStringList paths = existingGeometryCachePaths();
    paths.removeAll(unprojectedGeometryCachePath());
    return paths;
}

void HBTrack::clearExistingGeometryCachePaths() const
{
    for (const QString &path : existingGeometryCachePaths())
        QFile::remove(path);
}

void HBTrack::didSave()
{
    if (isDeleted()) {
        clearExistingGeometryCachePaths();
        HBFeatureStyles::saveStyle(style());
        return;
    }
    if (!m_geometry)
        return;
    if (objectID().isTemporaryID()) {
        qCInfo(hbModel).noquote() << "Requesting permanent ID";
        HBError error;
        if (!managedObjectContext()->obtainPermanentIDsForObjects({this}, &error)) {
            qCWarning(hbModel).noquote() << "Failed to obtain a permanent ID for geometry save.";
            qCWarning(hbModel).noquote() << error.localizedDescription();
        }
    }
    if (m_geometry->hasUnsavedChanges() && !objectID().isTemporaryID())
        writeGeometryCache();
}

void HBTrack::writeGeometryCache()
{
    writeFile(unprojectedGeometryCachePath(), m_geometry->wkbData());
    m_geometry->setHasUnsavedChanges(false);
    const auto projected = m_geometry->projectedGeometries();
    for (auto it = projected.cbegin(); it != projected.cend(); ++it) {
        const QString path = geometryCachePathForSRID(it.key().srid());
        if (!QFile::exists(path))
            writeFile(path, it.value()->wkbData());
    }
}

const QStringList &HBTrack::prefetchKeyPaths()
{
    // never destroyed: a fetch on a context's thread may still prefetch at exit
    static const QStringList &keyPaths = *new QStringList{
        QStringLiteral("additionalAttributes"), QStringLiteral("cities"), QStringLiteral("continents"),
        QStringLiteral("counties"), QStringLiteral("countries"), QStringLiteral("derivedRoutes"),
        QStringLiteral("event"), QStringLiteral("importedTrackSegment"), QStringLiteral("importSource"),
        QStringLiteral("keywords"), QStringLiteral("manualGroups"), QStringLiteral("modeOfTransit"),
        QStringLiteral("owner"), QStringLiteral("people"), QStringLiteral("startTimeZone"),
        QStringLiteral("states"), QStringLiteral("trackSegments"),
    };
    return keyPaths;
}
