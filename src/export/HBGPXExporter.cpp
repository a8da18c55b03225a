#include "export/HBGPXExporter.h"

#include "export/HBXMLWriter.h"
#include "model/HBGeoPoint.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBLogging.h"

#include <QFile>
#include <QSaveFile>

#include <cstring>
#include <vector>

#include <sys/stat.h>

namespace {

using namespace Qt::Literals::StringLiterals;

constexpr QLatin1StringView kGPXNamespace = "http://www.topografix.com/GPX/1/1"_L1;
constexpr QLatin1StringView kSchemaInstanceNamespace = "http://www.w3.org/2001/XMLSchema-instance"_L1;
constexpr QLatin1StringView kSchemaLocation = "http://www.topografix.com/GPX/1/1 http://www.topografix.com/GPX/1/1/gpx.xsd"_L1;
constexpr qint64 kMSecsPerDay = 86'400'000;
constexpr qint64 kJulianDayOfEpoch = 2'440'588;   // 1970-01-01

// "%Y-%m-%dT%H:%M:%SZ" in UTC, written by hand: the locale-aware
// formatter and printf cost more than the rest of a track point's element.
class GPXTime
{
public:
    explicit GPXTime(const QDateTime &date)
    {
        const qint64 msecs = date.toMSecsSinceEpoch();
        const qint64 days = msecs / kMSecsPerDay - (msecs % kMSecsPerDay < 0 ? 1 : 0);
        const qint64 secondOfDay = (msecs - days * kMSecsPerDay) / 1000;
        const QDate day = QDate::fromJulianDay(kJulianDayOfEpoch + days);
        if (day.year() < 0 || day.year() > 9999) {
            // %04d of a year without four digits
            m_long = QString::asprintf("%04d-%02d-%02dT%02d:%02d:%02dZ", day.year(), day.month(), day.day(),
                                       int(secondOfDay / 3600), int(secondOfDay / 60 % 60), int(secondOfDay % 60))
                         .toLatin1();
            return;
        }
        char *to = m_text;
        const auto put = [&to](int value, int digits, char after) {
            for (int i = digits - 1; i >= 0; --i, value /= 10)
                to[i] = char('0' + value % 10);
            to[digits] = after;
            to += digits + 1;
        };
        put(day.year(), 4, '-');
        put(day.month(), 2, '-');
        put(day.day(), 2, 'T');
        put(int(secondOfDay / 3600), 2, ':');
        put(int(secondOfDay / 60 % 60), 2, ':');
        put(int(secondOfDay % 60), 2, 'Z');
    }
    QLatin1StringView text() const
    {
        return m_long.isEmpty() ? QLatin1StringView(m_text, sizeof m_text) : QLatin1StringView(m_long);
    }

private:
    char m_text[20] = {};
    QByteArray m_long;
};

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

struct Bounds
{
    Extent latitude, longitude;

    void add(const std::optional<HBDecimal> &lat, const std::optional<HBDecimal> &lon)
    {
        latitude.add(lat);
        longitude.add(lon);
    }
    // no point had a position
    bool isEmpty() const { return !latitude.low || !longitude.low; }
};

// Bounds over the waypoints and the tracks' points. The points are those
// of each segment's point list: the segments keep no store relationship
// to their points that could be asked instead. nullopt when no point has
// a position.
std::optional<Bounds> boundsOf(const QList<HBWaypoint *> &waypoints, const QList<HBTrack *> &tracks)
{
    Bounds bounds;
    for (const HBWaypoint *w : waypoints)
        bounds.add(w->latitude(), w->longitude());
    for (const HBTrack *t : tracks) {
        for (HBTrackSegment *s : t->segments()) {
            for (const HBTrackPoint *p : s->points())
                bounds.add(p->latitude(), p->longitude());
        }
    }
    if (bounds.isEmpty())
        return std::nullopt;
    return bounds;
}

// The document is described once (the describe... functions below) and
// given to one of two sinks: TextSink writes it out as the file's bytes,
// TreeSink builds the elements the building blocks return. Both take the
// same calls: an element's text is absent (no element) for a null string,
// an absent decimal or an invalid date.

class TextSink
{
public:
    explicit TextSink(HBXMLWriter &writer)
        : m_writer(writer)
    {
    }

    void start(QLatin1StringView name) { m_writer.writeStartElement(name); }
    void end() { m_writer.writeEndElement(); }
    void attribute(QLatin1StringView name, QLatin1StringView value) { m_writer.writeAttribute(name, value); }
    // an absent value gives an empty attribute
    void attribute(QLatin1StringView name, const std::optional<HBDecimal> &value)
    {
        m_writer.writeAttribute(name, decimal(value));
    }
    // A point's "lat" and "lon", noted for the bounds of all points written.
    void position(const std::optional<HBDecimal> &latitude, const std::optional<HBDecimal> &longitude)
    {
        attribute("lat"_L1, latitude);
        attribute("lon"_L1, longitude);
        m_bounds.add(latitude, longitude);
    }
    const Bounds &bounds() const { return m_bounds; }
    void text(QLatin1StringView name, const QString &value)
    {
        if (!value.isNull())
            textElement(name, QStringView(value));
    }
    void text(QLatin1StringView name, const std::optional<HBDecimal> &value)
    {
        if (value)
            textElement(name, decimal(value));
    }
    void text(QLatin1StringView name, const QDateTime &value)
    {
        if (value.isValid())
            textElement(name, GPXTime(value).text());
    }

private:
    QLatin1StringView decimal(const std::optional<HBDecimal> &value)
    {
        m_decimal.resize(0);   // keeps the buffer, where clear() would free it
        if (value)
            value->appendLatin1(m_decimal);
        return QLatin1StringView(m_decimal);
    }
    template <typename View>
    void textElement(QLatin1StringView name, View text)
    {
        m_writer.writeStartElement(name);
        // an empty text leaves an empty element, "<name/>"
        if (!text.isEmpty())
            m_writer.writeCharacters(text);
        m_writer.writeEndElement();
    }

    HBXMLWriter &m_writer;
    QByteArray m_decimal;   // reused for every number
    Bounds m_bounds;
};

class TreeSink
{
public:
    void start(QLatin1StringView name) { m_open.emplace_back(QString(name)); }
    void end()
    {
        HBXMLElement done = std::move(m_open.back());
        m_open.pop_back();
        if (m_open.empty())
            m_done = std::move(done);
        else
            m_open.back().addChild(std::move(done));
    }
    void attribute(QLatin1StringView name, QLatin1StringView value) { m_open.back().addAttribute(name, value); }
    void attribute(QLatin1StringView name, const std::optional<HBDecimal> &value)
    {
        m_open.back().addAttribute(name, value ? value->toString() : QString());
    }
    void position(const std::optional<HBDecimal> &latitude, const std::optional<HBDecimal> &longitude)
    {
        attribute("lat"_L1, latitude);
        attribute("lon"_L1, longitude);
    }
    void text(QLatin1StringView name, const QString &value) { m_open.back().addTextChild(name, value); }
    void text(QLatin1StringView name, const std::optional<HBDecimal> &value)
    {
        if (value)
            m_open.back().addTextChild(name, value->toString());
    }
    void text(QLatin1StringView name, const QDateTime &value)
    {
        if (value.isValid())
            m_open.back().addTextChild(name, GPXTime(value).text());
    }

    // The element that describe(sink, subject) describes.
    template <typename Describe, typename Subject>
    static HBXMLElement built(Describe describe, const Subject &subject)
    {
        TreeSink tree;
        describe(tree, subject);
        return std::move(tree.m_done);
    }

private:
    std::vector<HBXMLElement> m_open;
    HBXMLElement m_done;
};

template <class Sink>
void describePoint(Sink &out, const HBGeoPoint *point)
{
    // track points first: they are nearly all of a file, and no kind of
    // point is both
    out.start(dynamic_cast<const HBTrackPoint *>(point)  ? "trkpt"_L1
              : dynamic_cast<const HBWaypoint *>(point) ? "wpt"_L1
                                                         : "rtept"_L1);
    // a point without a position still gets both attributes, empty
    out.position(point->latitude(), point->longitude());
    out.text("ele"_L1, point->elevation());
    out.text("time"_L1, point->date());
    // the extra attributes in one look at the point's rows
    static const QStringList extraKeys{kHBGeoPointMagneticVariationProperty, kHBGeoPointGeoidHeightProperty,
                                       kHBGeoPointLinkProperty};
    const QVariantList extra = point->fetchAdditionsTableValuesForKeys(extraKeys);
    out.text("magvar"_L1, HBGeoPoint::decimalFromAdditionsValue(extra[0]));
    out.text("geoidheight"_L1, HBGeoPoint::decimalFromAdditionsValue(extra[1]));
    out.text("name"_L1, point->name());
    out.text("cmt"_L1, point->gpsComment());
    out.text("desc"_L1, point->notes());
    out.text("src"_L1, point->sourceOfData());
    out.text("link"_L1, extra[2].toString());
    out.text("sym"_L1, point->symbolName());
    out.end();
}

template <class Sink>
void describeSegment(Sink &out, HBTrackSegment *segment)
{
    out.start("trkseg"_L1);
    for (const HBTrackPoint *point : segment->points())
        describePoint(out, point);
    out.end();
}

// Each segment is described while the next one's rows are read. The
// segment's points, with the extras that come with them, are taken first:
// reading holds the point files, and asking them for the extras while the
// next rows are read would wait for all of those.
template <class Sink>
void describeTrack(Sink &out, HBTrack *track)
{
    out.start("trk"_L1);
    out.text("name"_L1, track->name());
    out.text("desc"_L1, track->notes());
    const QList<HBTrackSegment *> segments = track->segments();
    for (qsizetype i = 0; i < segments.size(); ++i) {
        segments[i]->points();
        if (i + 1 < segments.size())
            segments[i + 1]->readAheadPoints();
        describeSegment(out, segments[i]);
    }
    out.end();
}

template <class Sink>
void describeBounds(Sink &out, const Bounds &bounds)
{
    out.start("bounds"_L1);
    out.attribute("minlat"_L1, bounds.latitude.low);
    out.attribute("minlon"_L1, bounds.longitude.low);
    out.attribute("maxlat"_L1, bounds.latitude.high);
    out.attribute("maxlon"_L1, bounds.longitude.high);
    out.end();
}

// head + body, in body's memory: a document of a million points is too
// large to hold twice.
QByteArray joined(const QByteArray &head, QByteArray body)
{
    const qsizetype bodySize = body.size();
    body.resize(bodySize + head.size());
    char *data = body.data();
    std::memmove(data + head.size(), data, size_t(bodySize));
    std::memcpy(data, head.constData(), size_t(head.size()));
    return body;
}

} // namespace

HBXMLElement HBGPXExporter::xmlNodeFromGeoPoint(HBGeoPoint *point)
{
    return TreeSink::built(describePoint<TreeSink>, point);
}

HBXMLElement HBGPXExporter::xmlNodeFromSegment(HBTrackSegment *segment)
{
    return TreeSink::built(describeSegment<TreeSink>, segment);
}

HBXMLElement HBGPXExporter::xmlNodeFromTrack(HBTrack *track)
{
    return TreeSink::built(describeTrack<TreeSink>, track);
}

HBXMLElement HBGPXExporter::xmlNodeForBounds() const
{
    const std::optional<Bounds> bounds = boundsOf(m_waypoints, m_tracks);
    return bounds ? TreeSink::built(describeBounds<TreeSink>, *bounds) : HBXMLElement();
}

// Written straight as text rather than built as elements first: a
// document of a million points would hold a dozen elements per point.
// What follows the metadata is written first, as the segments' points
// are read: the bounds in the metadata are those of every point written.
QByteArray HBGPXExporter::serialise() const
{
    QByteArray body;
    Bounds bounds;
    {
        HBXMLWriter writer(&body, {"gpx"_L1});
        TextSink out(writer);
        for (const HBWaypoint *w : m_waypoints)
            describePoint(out, w);
        for (HBTrack *t : m_tracks)
            describeTrack(out, t);
        writer.writeEndDocument();
        bounds = out.bounds();
    }
    QByteArray head;
    HBXMLWriter writer(&head);
    TextSink out(writer);
    writer.writeStartDocument();
    out.start("gpx"_L1);
    out.attribute("xmlns:xsi"_L1, kSchemaInstanceNamespace);
    out.attribute("xmlns"_L1, kGPXNamespace);
    out.attribute("xsi:schemaLocation"_L1, kSchemaLocation);
    out.attribute("version"_L1, "1.1"_L1);
    out.attribute("creator"_L1, "Fernwick"_L1);
    out.start("metadata"_L1);
    out.text("time"_L1, QDateTime::currentDateTimeUtc());
    if (!bounds.isEmpty())
        describeBounds(out, bounds);
    out.end();
    return joined(head, std::move(body));
}

// A device, a FIFO or a terminal cannot be replaced: the rename would put
// a regular file in its place (run as root, /dev/null would be one).
bool HBGPXExporter::exportToPath(const QString &path)
{
    struct stat target;
    if (::stat(QFile::encodeName(path).constData(), &target) == 0 && !S_ISREG(target.st_mode)) {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return exportToDevice(file);
        return noteWritten(false, file.errorString(), QStringLiteral("file ") + path);
    }
    m_xmlDocument = serialise();
    QSaveFile file(path);
    const bool written = file.open(QIODevice::WriteOnly) && file.write(m_xmlDocument) == m_xmlDocument.size() && file.commit();
    return noteWritten(written, file.errorString(), QStringLiteral("file ") + path);
}

bool HBGPXExporter::exportToDevice(QIODevice &device)
{
    m_xmlDocument = serialise();
    return noteWritten(device.write(m_xmlDocument) == m_xmlDocument.size(), device.errorString(), QStringLiteral("document"));
}

bool HBGPXExporter::noteWritten(bool written, const QString &error, const QString &target)
{
    m_errorString = written ? QString() : error;
    if (!written)
        qCWarning(hbExport).noquote() << "The GPX" << target << "could not be written:" << m_errorString;
    return written;
}
