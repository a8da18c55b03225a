#include "import/HBXMLFileImportOperation.h"

#include "import/ExpatXMLParser.h"
#include "model/HBEvent.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "model/HBWaypoint.h"
#include "platform/HBLogging.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPredicate.h"

#include <QSet>
#include <QStringDecoder>

#include <algorithm>

namespace {

using DuplicateKey = HBXMLFileImportOperation::DuplicateKey;

// Waypoints are taken in batches of this many by the older duplicate rule,
// a new batch starting every kDuplicateBatchStep waypoints.
constexpr qsizetype kDuplicateBatchSize = 500;
constexpr qsizetype kDuplicateBatchStep = 300;

DuplicateKey keyOf(const HBGeoPoint *point)
{
    return {point->latitude(), point->longitude(), point->name()};
}

// Sorting puts absent values first, as the store's sorting does.
template<class T> int compareOptional(const std::optional<T> &a, const std::optional<T> &b)
{
    if (!a || !b)
        return int(bool(a)) - int(bool(b));
    return *a < *b ? -1 : (*b < *a ? 1 : 0);
}

int compareNames(const QString &a, const QString &b)
{
    if (a.isNull() || b.isNull())
        return int(!a.isNull()) - int(!b.isNull());
    return a.compare(b);
}

bool sortsBefore(const DuplicateKey &a, const DuplicateKey &b)
{
    if (const int c = compareOptional(a.latitude, b.latitude))
        return c < 0;
    if (const int c = compareOptional(a.longitude, b.longitude))
        return c < 0;
    return compareNames(a.name, b.name) < 0;
}

// The walk's test of one key: an absent value on either side is never smaller.
template<class T> bool isSmaller(const std::optional<T> &a, const std::optional<T> &b)
{
    return a && b && *a < *b;
}

bool nameIsSmaller(const QString &a, const QString &b)
{
    return !a.isNull() && !b.isNull() && a.compare(b) < 0;
}

// Numeric equality of the coordinates (48.1173 equals 48.117300); a point
// without a name never matches.
bool sameKeys(const DuplicateKey &a, const DuplicateKey &b)
{
    return a.latitude && b.latitude && *a.latitude == *b.latitude && a.longitude && b.longitude
        && *a.longitude == *b.longitude && !a.name.isNull() && !b.name.isNull() && a.name == b.name;
}

template<class Record> QList<HBManagedObject *> asObjects(const QList<Record *> &records)
{
    return QList<HBManagedObject *>(records.cbegin(), records.cend());
}

} // namespace

HBXMLFileImportOperation::HBXMLFileImportOperation()
{
    // most texts of a GPS file (numbers, times, names) fit without growing
    m_currentStringBytes.reserve(50);
    m_currentStringValue.reserve(50);
}

HBXMLFileImportOperation::~HBXMLFileImportOperation() = default;

void HBXMLFileImportOperation::main()
{
    if (!hasImportContexts())
        return;
    setManagedObjectContext(importContexts().newContext());
    HBManagedObjectContext *context = managedObjectContext();
    m_xmlParser = ExpatXMLParser::fromContentsOfFile(filePath());
    m_xmlParser->setDelegate(this);
    m_xmlParser->setShouldResolveExternalEntities(false);
    context->performBlockAndWait([&] {
        m_importSource = insertImportSource(context);
        m_xmlParser->parse();
    });
}

ExpatXMLParserDelegate::Callbacks HBXMLFileImportOperation::implementedCallbacks() const
{
    return Callback::StartElement | Callback::EndElement | Callback::FoundUTF8Characters | Callback::ParseErrorOccurred
        | Callback::EndDocument;
}

void HBXMLFileImportOperation::parserDidStartElement(ExpatXMLParser &parser, const QString &, const QString &,
                                                     const QString &, const Attributes &)
{
    if (isCancelled()) {
        parser.abortParsing();
        return;
    }
    setCurrentCharacter(quint64(parser.byteNumber()));
}

void HBXMLFileImportOperation::parserFoundUTF8Characters(ExpatXMLParser &, QByteArrayView utf8)
{
    if (!m_hasCurrentStringValue) {
        m_currentStringBytes.clear();   // keeps the capacity
        m_hasCurrentStringValue = true;
    }
    m_currentStringBytes.append(utf8.data(), size_t(utf8.size()));
}

QStringView HBXMLFileImportOperation::currentStringValue()
{
    if (!m_hasCurrentStringValue)
        return {};
    // UTF-8 never takes more UTF-16 units than it has bytes
    const qsizetype length = qsizetype(m_currentStringBytes.size());
    m_currentStringValue.resize(length);
    // Numbers and times are plain ASCII, which widens byte by byte; the
    // decoder is only set up for the rest, and keeps a leading U+FEFF as
    // the character it is here.
    const char *bytes = m_currentStringBytes.data();
    char16_t *units = reinterpret_cast<char16_t *>(m_currentStringValue.data());
    qsizetype i = 0;
    for (; i < length && uchar(bytes[i]) < 0x80; ++i)
        units[i] = char16_t(bytes[i]);
    if (i == length)
        return m_currentStringValue;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    const QChar *end = decoder.appendToBuffer(m_currentStringValue.data(), QByteArrayView(bytes, length));
    m_currentStringValue.truncate(end - m_currentStringValue.constData());
    return m_currentStringValue;
}

// A cancelled parse stops with an abort, which is no fault of the file.
// The column is counted from 1, as editors count it (Expat counts from 0).
void HBXMLFileImportOperation::parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error)
{
    if (!isCancelled())
        m_parseError = QStringLiteral("not valid XML at line %1, column %2: %3")
                           .arg(parser.lineNumber())
                           .arg(parser.columnNumber() + 1)
                           .arg(error.localizedDescription());
}

void HBXMLFileImportOperation::parserDidEndDocument(ExpatXMLParser &)
{
    if (isCancelled()) {
        // the context, with everything inserted so far, goes with the operation
        m_tracks.clear();
        m_routes.clear();
        m_waypoints.clear();
        return;
    }
    removeDuplicates2();
    linkToImportSource();
    dropUnlinkedRecords();
    noteParseError();
    save();
}

void HBXMLFileImportOperation::noteParseError()
{
    if (m_parseError.isNull())
        return;
    const HBImportReport kept = report();
    noteProblem(kept.tracks + kept.waypoints > 0 ? m_parseError + QStringLiteral("; the complete elements before it were kept")
                                                 : m_parseError);
}

void HBXMLFileImportOperation::linkToImportSource()
{
    qint64 points = 0;
    for (const HBTrack *track : std::as_const(m_tracks))
        points += track->numberOfTrackPoints();
    noteKept(m_tracks.size(), points, m_waypoints.size());
    m_importSource->setObjectsForKey(asObjects(m_tracks), QStringLiteral("tracks"));
    m_importSource->setObjectsForKey(asObjects(m_waypoints), QStringLiteral("waypoints"));
    m_tracks.clear();
    m_routes.clear();
    m_waypoints.clear();
}

// What the file's structure did not reach (a point outside any segment, a
// segment outside any track, a track that a nested one replaced, the point
// or waypoint a file was cut off in) is not saved: nothing could find it
// afterwards, not even the deletion of the file's import source.
void HBXMLFileImportOperation::dropUnlinkedRecords()
{
    HBManagedObjectContext *context = managedObjectContext();
    QList<HBTrackSegment *> segments;
    QList<HBTrackPoint *> points;
    for (HBManagedObject *record : context->insertedObjects()) {
        if (auto *point = dynamic_cast<HBTrackPoint *>(record))
            points.append(point);
        else if (auto *segment = dynamic_cast<HBTrackSegment *>(record))
            segments.append(segment);
        else if ((dynamic_cast<HBTrack *>(record) || dynamic_cast<HBWaypoint *>(record))
                 && !record->objectForKey(QStringLiteral("importSource")))
            context->deleteObject(record);
    }
    // a segment goes with its deleted track, but its points are no relationship of it
    const auto isGone = [](const HBManagedObject *owner) { return !owner || owner->isDeleted(); };
    for (HBTrackSegment *segment : std::as_const(segments)) {
        if (isGone(segment->track()))
            context->deleteObject(segment);
    }
    for (HBTrackPoint *point : std::as_const(points)) {
        if (isGone(point->trackSegment()))
            context->deleteObject(point);
    }
}

void HBXMLFileImportOperation::save()
{
    HBError error;
    if (managedObjectContext()->save(&error)) {
        noteSaved();
        return;
    }
    noteSaveFailure(error);
    qCWarning(hbImport).noquote() << QStringLiteral("Error occurred in parserDidEndDocument saving confined context: %1 : %2")
                                         .arg(error.localizedDescription(), error.detailedErrorsDescription());
}

// --- duplicate waypoints --------------------------------------------------------------

// The stored points are read in a context of their own on the same
// coordinator, so that the fetch sees only what is saved and not the new,
// unsaved waypoints of the import context.
QList<DuplicateKey> HBXMLFileImportOperation::fetchStoredPointKeys(const HBPredicate &predicate,
                                                                  const QStringList &sortKeys) const
{
    HBManagedObjectContext stored(HBManagedObjectContext::PrivateQueueConcurrencyType);
    stored.setPersistentStoreCoordinator(managedObjectContext()->persistentStoreCoordinator());
    QList<DuplicateKey> keys;
    stored.performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBGeoPoint"));
        request.setPredicate(predicate);
        QList<HBSortDescriptor> sort;
        for (const QString &key : sortKeys)
            sort.append({key, true});
        request.setSortDescriptors(sort);
        HBError error;
        const QList<HBManagedObject *> points = stored.executeFetchRequest(request, &error);
        if (!error.isNull())
            qCWarning(hbImport).noquote() << "Stored points for the duplicate check not read:"
                                          << error.localizedDescription();
        keys.reserve(points.size());
        for (const HBManagedObject *point : points)
            keys.append(keyOf(static_cast<const HBGeoPoint *>(point)));
    });
    return keys;
}

void HBXMLFileImportOperation::removeDuplicates2()
{
    if (m_waypoints.isEmpty())
        return;
    QSet<HBDecimal> latitudes, longitudes;
    for (const HBWaypoint *waypoint : std::as_const(m_waypoints)) {
        if (const std::optional<HBDecimal> latitude = waypoint->latitude())
            latitudes.insert(*latitude);
        if (const std::optional<HBDecimal> longitude = waypoint->longitude())
            longitudes.insert(*longitude);
    }
    QVariantList latitudeList, longitudeList;
    for (const HBDecimal &latitude : std::as_const(latitudes))
        latitudeList.append(QVariant::fromValue(latitude));
    for (const HBDecimal &longitude : std::as_const(longitudes))
        longitudeList.append(QVariant::fromValue(longitude));
    const HBPredicate atCoordinates = HBPredicate::format(QStringLiteral("(latitude IN %@) AND (longitude IN %@)"),
                                                          {latitudeList, longitudeList});
    removeExistingDupesFromWaypoints(fetchStoredPointKeys(atCoordinates, {QStringLiteral("latitude")}));
}

// Kept on purpose: hosts may call this older rule, which no import uses.
void HBXMLFileImportOperation::removeDuplicates()
{
    qCInfo(hbImport) << "Begin dupes";
    QList<HBPredicate> atWaypoints;
    atWaypoints.reserve(m_waypoints.size());
    for (const HBWaypoint *waypoint : std::as_const(m_waypoints)) {
        const auto decimalValue = [](const std::optional<HBDecimal> &d) {
            return d ? QVariant::fromValue(*d) : QVariant();
        };
        atWaypoints.append(HBPredicate::format(QStringLiteral("(latitude == %@) && (longitude == %@)"),
                                               {decimalValue(waypoint->latitude()), decimalValue(waypoint->longitude())}));
    }
    QList<DuplicateKey> stored;
    for (qsizetype i = 0; i < atWaypoints.size(); i += kDuplicateBatchStep) {
        qCInfo(hbImport).noquote() << QStringLiteral("i=%1").arg(i);
        stored += fetchStoredPointKeys(HBPredicate::orPredicate(atWaypoints.mid(i, kDuplicateBatchSize)),
                                       {QStringLiteral("latitude"), QStringLiteral("longitude"), QStringLiteral("name")});
    }
    qCInfo(hbImport) << "Fetch completed.";
    removeExistingDupesFromWaypoints(stored);
    qCInfo(hbImport) << "End dupes:";
}

void HBXMLFileImportOperation::removeExistingDupesFromWaypoints(QList<DuplicateKey> storedPoints)
{
    struct NewWaypoint
    {
        DuplicateKey key;
        HBWaypoint *waypoint;
    };
    QList<NewWaypoint> fresh;
    fresh.reserve(m_waypoints.size());
    for (HBWaypoint *waypoint : std::as_const(m_waypoints))
        fresh.append({keyOf(waypoint), waypoint});
    std::stable_sort(fresh.begin(), fresh.end(),
                     [](const NewWaypoint &a, const NewWaypoint &b) { return sortsBefore(a.key, b.key); });
    std::stable_sort(storedPoints.begin(), storedPoints.end(), sortsBefore);

    QSet<HBWaypoint *> duplicates;
    qsizetype cursor = 0;
    for (const NewWaypoint &w : std::as_const(fresh)) {
        if (cursor == storedPoints.size())
            break;
        // each key alone, not a combined ordering
        while (cursor < storedPoints.size()
               && (isSmaller(storedPoints[cursor].latitude, w.key.latitude)
                   || isSmaller(storedPoints[cursor].longitude, w.key.longitude)
                   || nameIsSmaller(storedPoints[cursor].name, w.key.name)))
            ++cursor;
        if (cursor < storedPoints.size() && sameKeys(storedPoints[cursor], w.key))
            duplicates.insert(w.waypoint);
    }
    if (duplicates.isEmpty())
        return;
    for (HBWaypoint *waypoint : std::as_const(duplicates))
        managedObjectContext()->deleteObject(waypoint);
    m_waypoints.removeIf([&](HBWaypoint *waypoint) { return duplicates.contains(waypoint); });
}

// --- working state --------------------------------------------------------------------

void HBXMLFileImportOperation::openEvent()
{
    m_currentEvent = managedObjectContext()->insertNewObject<HBEvent>(QStringLiteral("HBEvent"));
    m_currentEvent->setOrder(m_eventImportOrder++);
    m_currentTracks = QList<HBTrack *>();
    checkWorkingState();
}

void HBXMLFileImportOperation::openTrack()
{
    m_currentTrack = managedObjectContext()->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
    m_currentTrack->setOrder(m_objectImportOrder++);
    m_currentSegments = QList<HBTrackSegment *>();
    checkWorkingState();
}

void HBXMLFileImportOperation::openTrackSegment()
{
    m_currentSegment = managedObjectContext()->insertNewObject<HBTrackSegment>(QStringLiteral("HBTrackSegment"));
    m_currentTrackPoints = QList<HBTrackPoint *>();
    checkWorkingState();
}

void HBXMLFileImportOperation::openTrackPoint()
{
    m_currentTrackPoint = managedObjectContext()->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
}

void HBXMLFileImportOperation::closeTrackPoint()
{
    if (!m_currentTrackPoint)
        return;
    if (m_currentTrackPoints)
        m_currentTrackPoints->append(m_currentTrackPoint);
    m_currentTrackPoint = nullptr;
}

void HBXMLFileImportOperation::closeTrackSegment()
{
    if (!m_currentSegment)
        return;
    m_currentSegment->setPoints(m_currentTrackPoints.value_or(QList<HBTrackPoint *>()));
    if (m_currentSegments)
        m_currentSegments->append(m_currentSegment);
    m_currentTrackPoints.reset();
    m_currentSegment = nullptr;
    checkWorkingState();
}

void HBXMLFileImportOperation::closeTrack()
{
    if (!m_currentTrack)
        return;
    m_currentTrack->setSegments(m_currentSegments.value_or(QList<HBTrackSegment *>()));
    m_tracks.append(m_currentTrack);
    m_currentSegments.reset();
    m_currentTrack = nullptr;
    checkWorkingState();
}

// An event's track list is never filled by the importers, so events are
// saved without tracks.
void HBXMLFileImportOperation::closeEvent()
{
    if (!m_currentEvent)
        return;
    m_currentEvent->setObjectsForKey(asObjects(m_currentTracks.value_or(QList<HBTrack *>())), QStringLiteral("tracks"));
    m_events.append(m_currentEvent);
    m_currentTracks.reset();
    m_currentEvent = nullptr;
    checkWorkingState();
}

void HBXMLFileImportOperation::checkWorkingState() const
{
    Q_ASSERT(bool(m_currentEvent) == m_currentTracks.has_value());
    Q_ASSERT(bool(m_currentTrack) == m_currentSegments.has_value());
    Q_ASSERT(bool(m_currentSegment) == m_currentTrackPoints.has_value());
}

// --- time texts -----------------------------------------------------------------------

QDateTime HBXMLFileImportOperation::dateFromTimeText(QStringView text)
{
    // The calendar formats "%Y-%m-%dT%H:%M:%S %Z" and "%Y-%m-%d %H:%M:%S %Z",
    // read after " GMT" is appended, match only the 19 characters of
    // "YYYY-MM-DDTHH:MM:SS" (or with a space for the T).
    const QStringView kept = text.size() >= 20 ? text.first(19) : text;
    if (kept.size() != 19)
        return {};
    const auto isAt = [&](qsizetype i, char16_t c) { return kept[i] == c; };
    if (!isAt(4, u'-') || !isAt(7, u'-') || !(isAt(10, u'T') || isAt(10, u' ')) || !isAt(13, u':')
        || !isAt(16, u':'))
        return {};
    const auto number = [&](qsizetype from, qsizetype length) {
        int value = 0;
        for (qsizetype i = from; i < from + length; ++i) {
            const char16_t c = kept[i].unicode();
            if (c < u'0' || c > u'9')
                return -1;
            value = value * 10 + (c - u'0');
        }
        return value;
    };
    const int year = number(0, 4), month = number(5, 2), day = number(8, 2);
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    // QDate takes negative years (before Christ), so a bad digit must not reach it
    if (std::min({year, month, day, hour, minute, second}) < 0)
        return {};
    const QDate date(year, month, day);
    if (!date.isValid() || !QTime::isValid(hour, minute, second, 0))
        return {};
    return QDateTime(date, QTime(hour, minute, second), Qt::UTC);
}
