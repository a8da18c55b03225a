#include "model/HBTrackDataModel.h"

#include "model/HBEvent.h"
#include "model/HBGeoPointAdditions.h"
#include "model/HBGeoPointSymbol.h"
#include "model/HBTrack.h"
#include "model/HBTrackAdditions.h"
#include "model/HBImportSource.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBTrackSegmentPointURIs.h"
#include "model/HBWaypoint.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectModel.h"

#include <QDir>
#include <QMutex>
#include <QStandardPaths>

namespace {

using T = HBAttributeType;
using Rule = HBDeleteRule;

void addPointEntities(HBManagedObjectModel &m)
{
    HBEntityDescription &point = m.addEntity(QStringLiteral("HBGeoPoint"), {}, true);
    // An import looks for stored points at the positions of its new
    // waypoints; without an index on the latitude that would read every
    // point of the library, and the library grows with every import.
    point.addAttribute(QStringLiteral("latitude"), T::Decimal).isIndexed = true;
    for (const char *decimal : {"longitude", "elevation", "depth", "temperature", "wheelSensorDistance"})
        point.addAttribute(QLatin1String(decimal), T::Decimal);
    point.addAttribute(QStringLiteral("date"), T::Date);
    point.addAttribute(QStringLiteral("cadence"), T::Integer);
    point.addAttribute(QStringLiteral("heartRate"), T::Integer);
    point.addAttribute(QStringLiteral("wheelSensorIsPresent"), T::Boolean);
    for (const char *text : {"gpsComment", "name", "notes", "sourceOfData"})
        point.addAttribute(QLatin1String(text), T::String);
    point.addTransient(QStringLiteral("localDate"));
    point.addToOne(QStringLiteral("symbol"), QStringLiteral("HBGeoPointSymbol"), QStringLiteral("points"));
    point.addToOne(QStringLiteral("timeZone"), QStringLiteral("HBTimeZone"), QStringLiteral("points"));
    point.addToMany(QStringLiteral("additionalAttributes"), QStringLiteral("HBGeoPointAdditions"), QStringLiteral("point"),
                    Rule::Cascade);

    HBEntityDescription &trackPoint = m.addEntity(QStringLiteral("HBTrackPoint"), QStringLiteral("HBGeoPoint"));
    trackPoint.addAttribute(QStringLiteral("order"), T::Integer);
    trackPoint.addAttribute(QStringLiteral("trackSegmentURI"), T::String);
    trackPoint.setFactory([] { return new HBTrackPoint; });
    // position, elevation, time, order and segment
    trackPoint.setTypicalValueCount(6);

    HBEntityDescription &waypoint = m.addEntity(QStringLiteral("HBWaypoint"), QStringLiteral("HBGeoPoint"));
    waypoint.addAttribute(QStringLiteral("order"), T::Integer);
    waypoint.addToOne(QStringLiteral("importSource"), QStringLiteral("HBImportSource"), QStringLiteral("waypoints"));
    waypoint.addToOne(QStringLiteral("event"), QStringLiteral("HBEvent"), QStringLiteral("waypoints"));
    waypoint.setFactory([] { return new HBWaypoint; });

    HBEntityDescription &symbol = m.addEntity(QStringLiteral("HBGeoPointSymbol"));
    symbol.addAttribute(QStringLiteral("name"), T::String);
    symbol.addAttribute(QStringLiteral("garminUID"), T::Integer);
    symbol.addAttribute(QStringLiteral("imageData"), T::Binary);
    symbol.addAttribute(QStringLiteral("imagePath"), T::String);
    symbol.addToMany(QStringLiteral("points"), QStringLiteral("HBGeoPoint"), QStringLiteral("symbol"));
    symbol.setFactory([] { return new HBGeoPointSymbol; });

    HBEntityDescription &additions = m.addEntity(QStringLiteral("HBGeoPointAdditions"));
    additions.addAttribute(QStringLiteral("key"), T::String);
    additions.addAttribute(QStringLiteral("value"), T::Variant);
    additions.addToOne(QStringLiteral("point"), QStringLiteral("HBGeoPoint"), QStringLiteral("additionalAttributes"));
    additions.setFactory([] { return new HBGeoPointAdditions; });

    HBEntityDescription &timeZone = m.addEntity(QStringLiteral("HBTimeZone"));
    timeZone.addAttribute(QStringLiteral("name"), T::String);
    timeZone.addToMany(QStringLiteral("points"), QStringLiteral("HBGeoPoint"), QStringLiteral("timeZone"));
}

void addTrackEntities(HBManagedObjectModel &m)
{
    HBEntityDescription &track = m.addEntity(QStringLiteral("HBTrack"));
    for (const char *text : {"name", "notes", "gpsComment"})
        track.addAttribute(QLatin1String(text), T::String);
    for (const char *integer : {"cadence", "calories", "numberOfTrackPoints", "order"})
        track.addAttribute(QLatin1String(integer), T::Integer);
    track.addAttribute(QStringLiteral("distance"), T::Double);   // metres
    track.addAttribute(QStringLiteral("duration"), T::Double);   // seconds
    track.addAttribute(QStringLiteral("startDate"), T::Date);
    track.addAttribute(QStringLiteral("endDate"), T::Date);
    track.addToMany(QStringLiteral("trackSegments"), QStringLiteral("HBTrackSegment"), QStringLiteral("track"), Rule::Cascade);
    track.addToOne(QStringLiteral("event"), QStringLiteral("HBEvent"), QStringLiteral("tracks"));
    track.addToOne(QStringLiteral("importSource"), QStringLiteral("HBImportSource"), QStringLiteral("tracks"));
    track.addToMany(QStringLiteral("additionalAttributes"), QStringLiteral("HBTrackAdditions"), QStringLiteral("track"),
                    Rule::Cascade);
    track.setFactory([] { return new HBTrack; });

    HBEntityDescription &additions = m.addEntity(QStringLiteral("HBTrackAdditions"));
    additions.addAttribute(QStringLiteral("key"), T::String);
    additions.addAttribute(QStringLiteral("value"), T::Variant);
    additions.addToOne(QStringLiteral("track"), QStringLiteral("HBTrack"), QStringLiteral("additionalAttributes"));
    additions.setFactory([] { return new HBTrackAdditions; });

    HBEntityDescription &segment = m.addEntity(QStringLiteral("HBTrackSegment"));
    segment.addAttribute(QStringLiteral("order"), T::Integer);
    segment.addAttribute(QStringLiteral("numberOfTrackPoints"), T::Integer);
    segment.addAttribute(QStringLiteral("distance"), T::Double);   // metres
    segment.addAttribute(QStringLiteral("startDate"), T::Date);
    segment.addAttribute(QStringLiteral("endDate"), T::Date);
    for (const char *bound : {"minLatitude", "maxLatitude", "minLongitude", "maxLongitude"})
        segment.addAttribute(QLatin1String(bound), T::Double);     // degrees
    segment.addToOne(QStringLiteral("track"), QStringLiteral("HBTrack"), QStringLiteral("trackSegments"));
    // the point list goes with its segment
    segment.addToOne(QStringLiteral("trackPointURIs"), QStringLiteral("HBTrackSegmentPointURIs"), {}, Rule::Cascade);
    segment.setFactory([] { return new HBTrackSegment; });

    HBEntityDescription &uris = m.addEntity(QStringLiteral("HBTrackSegmentPointURIs"));
    uris.addAttribute(QStringLiteral("data"), T::Binary);
    uris.setFactory([] { return new HBTrackSegmentPointURIs; });
}

void addSourceEntities(HBManagedObjectModel &m)
{
    HBEntityDescription &source = m.addEntity(QStringLiteral("HBImportSource"));
    source.addAttribute(QStringLiteral("filePath"), T::String);
    source.addAttribute(QStringLiteral("name"), T::String);
    source.addAttribute(QStringLiteral("importDate"), T::Date);
    source.addAttribute(QStringLiteral("fileSize"), T::Integer);   // bytes
    source.addAttribute(QStringLiteral("fileModificationDate"), T::Date);
    source.addAttribute(QStringLiteral("sourceType"), T::Integer);
    source.addToMany(QStringLiteral("events"), QStringLiteral("HBEvent"), QStringLiteral("importSource"), Rule::Cascade);
    source.addToMany(QStringLiteral("tracks"), QStringLiteral("HBTrack"), QStringLiteral("importSource"), Rule::Cascade);
    source.addToMany(QStringLiteral("waypoints"), QStringLiteral("HBWaypoint"), QStringLiteral("importSource"), Rule::Cascade);
    source.setFactory([] { return new HBImportSource; });

    HBEntityDescription &event = m.addEntity(QStringLiteral("HBEvent"));
    event.addAttribute(QStringLiteral("name"), T::String);
    event.addAttribute(QStringLiteral("startDate"), T::Date);
    event.addAttribute(QStringLiteral("duration"), T::Decimal);
    event.addAttribute(QStringLiteral("order"), T::Integer);
    event.addToOne(QStringLiteral("importSource"), QStringLiteral("HBImportSource"), QStringLiteral("events"));
    event.addToMany(QStringLiteral("tracks"), QStringLiteral("HBTrack"), QStringLiteral("event"));
    event.addToMany(QStringLiteral("waypoints"), QStringLiteral("HBWaypoint"), QStringLiteral("event"));
    event.setFactory([] { return new HBEvent; });

    HBEntityDescription &bonus = m.addEntity(QStringLiteral("HBBonusTable"));
    bonus.addAttribute(QStringLiteral("key"), T::String);
    bonus.addAttribute(QStringLiteral("value"), T::Variant);
}

// Predicates take record pointers of any class as arguments.
template<class Record> void registerRecordClass()
{
    QMetaType::registerConverter<Record *, HBManagedObject *>([](Record *r) { return static_cast<HBManagedObject *>(r); });
}

HBManagedObjectModel *buildModel()
{
    registerRecordClass<HBImportSource>();
    registerRecordClass<HBEvent>();
    registerRecordClass<HBGeoPoint>();
    registerRecordClass<HBTrackPoint>();
    registerRecordClass<HBWaypoint>();
    registerRecordClass<HBGeoPointSymbol>();
    registerRecordClass<HBGeoPointAdditions>();
    registerRecordClass<HBTrack>();
    registerRecordClass<HBTrackAdditions>();
    registerRecordClass<HBTrackSegment>();
    registerRecordClass<HBTrackSegmentPointURIs>();

    auto *m = new HBManagedObjectModel;
    addPointEntities(*m);
    addTrackEntities(*m);
    addSourceEntities(*m);
    m->addConfiguration(QStringLiteral("PointOnly"),
                        {QStringLiteral("HBGeoPoint"), QStringLiteral("HBTrackPoint"), QStringLiteral("HBGeoPointAdditions")});
    QString why;
    if (!m->finalise(&why))
        qFatal("The track data model is inconsistent: %s", qPrintable(why));
    return m;
}

} // namespace

const HBManagedObjectModel *HBTrackDataModel::model()
{
    static const HBManagedObjectModel *const model = buildModel();
    return model;
}

QString HBTrackDataModel::cacheFolder()
{
    static QMutex lock;
    static QString folder;
    QMutexLocker locker(&lock);
    if (folder.isEmpty()) {
        folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
                 + QStringLiteral("/Fernwick/TrackManagerDatabase");
        if (!QDir().mkpath(folder))
            qCWarning(hbModel).noquote() << "The cache folder" << folder << "could not be made.";
    }
    return folder;
}
