#include "export/HBGPXExporter.h"

#include "model/HBGeoPoint.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBLogging.h"

#include <QSaveFile>
#include <QXmlStreamWriter>

namespace {

const QString kGPXNamespace = QStringLiteral("http://www.topografix.com/GPX/1/1");
const QString kSchemaInstanceNamespace = QStringLiteral("http://www.w3.org/2001/XMLSchema-instance");

// "%Y-%m-%dT%H:%M:%SZ" in UTC, written by hand: the locale-aware
// formatter costs more than the rest of a track point's element.
QString gpxTime(const QDateTime &date)
{
    const QDateTime utc = date.toUTC();
    const QDate day = utc.date();
    const QTime time = utc.time();
    return QString::asprintf("%04d-%02d-%02dT%02d:%02d:%02dZ", day.year(), day.month(), day.day(), time.hour(),
                             time.minute(), time.second());
}

QString decimalText(const std::optional<HBDecimal> &value)
{
    return value ? value->toString() : QString();
}

// The smallest and largest of one coordinate over the points; absent
// values take no part.
struct Extent
{
    std::optional<HBDecimal> low, high;

    void add(const std::optional<HBDecimal> &v)
    {
        if (!v)
            return;
        if (!low || *v < *low)
            low = v;
        if (!high || *v > *high)
            high = v;
    }
};

} // namespace

HBXMLElement HBGPXExporter::xmlNodeFromGeoPoint(HBGeoPoint *point)
{
    const char *name = dynamic_cast<HBWaypoint *>(point) ? "wpt" : dynamic_cast<HBTrackPoint *>(point) ? "trkpt" : "rtept";
    HBXMLElement element{QLatin1String(name)};
    // a point without a position still gets both attributes, empty
    element.addAttribute(QStringLiteral("lat"), decimalText(point->latitude()))
        .addAttribute(QStringLiteral("lon"), decimalText(point->longitude()));
    const QDateTime date = point->date();
    element.addTextChild(QStringLiteral("ele"), decimalText(point->elevation()))
        .addTextChild(QStringLiteral("time"), date.isValid() ? gpxTime(date) : QString())
        .addTextChild(QStringLiteral("magvar"), decimalText(point->magneticVariation()))
        .addTextChild(QStringLiteral("geoidheight"), decimalText(point->geoidHeight()))
        .addTextChild(QStringLiteral("name"), point->name())
        .addTextChild(QStringLiteral("cmt"), point->gpsComment())
        .addTextChild(QStringLiteral("desc"), point->notes())
        .addTextChild(QStringLiteral("src"), point->sourceOfData())
        .addTextChild(QStringLiteral("link"), point->link())
        .addTextChild(QStringLiteral("sym"), point->symbolName());
    return element;
}

HBXMLElement HBGPXExporter::xmlNodeFromSegment(HBTrackSegment *segment)
{
    HBXMLElement element(QStringLiteral("trkseg"));
    for (HBTrackPoint *point : segment->points())
        element.addChild(xmlNodeFromGeoPoint(point));
    return element;
}

HBXMLElement HBGPXExporter::xmlNodeFromTrack(HBTrack *track)
{
    HBXMLElement element(QStringLiteral("trk"));
    element.addTextChild(QStringLiteral("name"), track->name()).addTextChild(QStringLiteral("desc"), track->notes());
    for (HBTrackSegment *segment : track->segments())
        element.addChild(xmlNodeFromSegment(segment));
    return element;
}

// Bounds over the waypoints and the tracks' points. The points are those
// of each segment's point list: the segments keep no store relationship
// to their points that could be asked instead.
HBXMLElement HBGPXExporter::xmlNodeForBounds() const
{
    Extent latitude, longitude;
    const auto add = [&](const HBGeoPoint *p) {
        latitude.add(p->latitude());
        longitude.add(p->longitude());
    };
    for (const HBWaypoint *w : m_waypoints)
        add(w);
    for (const HBTrack *t : m_tracks) {
        for (HBTrackSegment *s : t->segments()) {
            for (const HBTrackPoint *p : s->points())
                add(p);
        }
    }
    if (!latitude.low || !longitude.low)
        return {};
    HBXMLElement bounds(QStringLiteral("bounds"));
    bounds.addAttribute(QStringLiteral("minlat"), latitude.low->toString())
        .addAttribute(QStringLiteral("minlon"), longitude.low->toString())
        .addAttribute(QStringLiteral("maxlat"), latitude.high->toString())
        .addAttribute(QStringLiteral("maxlon"), longitude.high->toString());
    return bounds;
}

QByteArray HBGPXExporter::serialise() const
{
    HBXMLElement root(QStringLiteral("gpx"));
    root.addAttribute(QStringLiteral("xmlns:xsi"), kSchemaInstanceNamespace)
        .addAttribute(QStringLiteral("xmlns"), kGPXNamespace)
        .addAttribute(QStringLiteral("xsi:schemaLocation"), kGPXNamespace + u' ' + kGPXNamespace + QStringLiteral("/gpx.xsd"))
        .addAttribute(QStringLiteral("version"), QStringLiteral("1.1"))
        .addAttribute(QStringLiteral("creator"), QStringLiteral("Fernwick"));
    HBXMLElement metadata(QStringLiteral("metadata"));
    metadata.addTextChild(QStringLiteral("time"), gpxTime(QDateTime::currentDateTimeUtc()));
    if (const HBXMLElement bounds = xmlNodeForBounds(); !bounds.isNull())
        metadata.addChild(bounds);
    root.addChild(metadata);
    for (HBWaypoint *w : m_waypoints)
        root.addChild(xmlNodeFromGeoPoint(w));
    for (HBTrack *t : m_tracks)
        root.addChild(xmlNodeFromTrack(t));

    QByteArray bytes;
    QXmlStreamWriter writer(&bytes);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(2);
    writer.writeStartDocument(QStringLiteral("1.0"));
    root.write(writer);
    writer.writeEndDocument();
    return bytes;
}

bool HBGPXExporter::exportToPath(const QString &path)
{
    m_xmlDocument = serialise();
    QSaveFile file(path);
    const bool written = file.open(QIODevice::WriteOnly) && file.write(m_xmlDocument) == m_xmlDocument.size() && file.commit();
    m_errorString = written ? QString() : file.errorString();
    if (!written)
        qCWarning(hbExport).noquote() << "The GPX file" << path << "could not be written:" << m_errorString;
    return written;
}
