#include "import/HBGPXFileImportOperation.h"

#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBWaypoint.h"
#include "platform/HBLogging.h"
#include "platform/store/HBManagedObjectContext.h"

// Element names compare against Latin-1 literals, whose length is known
// without scanning them at every tag.
using namespace Qt::Literals::StringLiterals;

namespace {

// "lat" and "lon" as written; a missing or malformed attribute is NaN,
// which a point stores as absent.
void setPosition(HBGeoPoint *point, const ExpatXMLParserDelegate::Attributes &attributes)
{
    point->setLatitude(HBDecimal::fromString(attributes.value(QStringLiteral("lat"))));
    point->setLongitude(HBDecimal::fromString(attributes.value(QStringLiteral("lon"))));
}

// A text that names or describes the point if one is open, else the track.
void setOnTarget(HBGeoPoint *point, HBTrack *track, void (HBGeoPoint::*onPoint)(const QString &),
                 void (HBTrack::*onTrack)(const QString &), QStringView text)
{
    if (point)
        (point->*onPoint)(text.toString());
    else if (track)
        (track->*onTrack)(text.toString());
}

} // namespace

HBGPXFileImportOperation::HBGPXFileImportOperation() = default;

void HBGPXFileImportOperation::parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                                                     const QString &namespaceURI, const QString &qualifiedName,
                                                     const Attributes &attributes)
{
    HBXMLFileImportOperation::parserDidStartElement(parser, elementName, namespaceURI, qualifiedName, attributes);
    m_currentElement = elementName;
    clearCurrentStringValue();
    if (elementName == "trkpt"_L1) {
        openTrackPoint();
        setPosition(m_currentTrackPoint, attributes);
    } else if (elementName == "trkseg"_L1) {
        openTrackSegment();
    } else if (elementName == "trk"_L1) {
        openTrack();
    } else if (elementName == "wpt"_L1) {
        m_currentWaypoint = managedObjectContext()->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
        m_currentWaypoint->setOrder(m_objectImportOrder++);
        setPosition(m_currentWaypoint, attributes);
    }
}

void HBGPXFileImportOperation::parserDidEndElement(ExpatXMLParser &, const QString &elementName, const QString &,
                                                   const QString &)
{
    if (elementName == "trkpt"_L1)
        closeTrackPoint();
    else if (elementName == "trkseg"_L1)
        closeTrackSegment();
    else if (elementName == "trk"_L1)
        closeTrack();
    else if (elementName == "wpt"_L1)
        closeWaypoint();
    else if (hasCurrentStringValue())
        setText(elementName);
}

void HBGPXFileImportOperation::closeWaypoint()
{
    if (m_currentWaypoint)
        m_waypoints.append(m_currentWaypoint);
    m_currentWaypoint = nullptr;
}

// A receiver that lost power while writing, or a partial download, leaves
// a track open: its complete points are kept as a track of the file. The
// open point or waypoint is left unlinked, and the end of the import drops
// whatever is unlinked.
void HBGPXFileImportOperation::parserDidEndDocument(ExpatXMLParser &parser)
{
    if (!isCancelled() && (m_currentTrackPoint || m_currentWaypoint || m_currentSegment || m_currentTrack)) {
        m_currentTrackPoint = nullptr;
        m_currentWaypoint = nullptr;
        closeTrackSegment();
        closeTrack();
        qCWarning(hbImport) << "There was an error parsing the file.";
    }
    HBXMLFileImportOperation::parserDidEndDocument(parser);
}

void HBGPXFileImportOperation::setText(const QString &elementName)
{
    const QStringView text = currentStringValue();
    HBGeoPoint *point = m_currentTrackPoint ? static_cast<HBGeoPoint *>(m_currentTrackPoint) : m_currentWaypoint;
    if (elementName == "ele"_L1) {
        if (point)
            point->setElevation(HBDecimal::fromString(text));
    } else if (elementName == "time"_L1) {
        if (point)
            point->setDate(dateFromTimeText(text));
    } else if (elementName == "name"_L1) {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setName, &HBTrack::setName, text);
    } else if (elementName == "cmt"_L1) {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setGpsComment, &HBTrack::setGpsComment, text);
    } else if (elementName == "desc"_L1) {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setNotes, &HBTrack::setNotes, text);
    } else if (elementName == "sym"_L1) {
        if (m_currentWaypoint)
            m_currentWaypoint->setSymbolName(text.toString());
    }
}
