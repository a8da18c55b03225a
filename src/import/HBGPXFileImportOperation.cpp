#include "import/HBGPXFileImportOperation.h"

#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBManagedObjectContext.h"

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
    if (elementName == u"trkpt") {
        openTrackPoint();
        setPosition(m_currentTrackPoint, attributes);
    } else if (elementName == u"trkseg") {
        openTrackSegment();
    } else if (elementName == u"trk") {
        openTrack();
    } else if (elementName == u"wpt") {
        m_currentWaypoint = managedObjectContext()->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
        m_currentWaypoint->setOrder(m_objectImportOrder++);
        setPosition(m_currentWaypoint, attributes);
    }
}

void HBGPXFileImportOperation::parserDidEndElement(ExpatXMLParser &, const QString &elementName, const QString &,
                                                   const QString &)
{
    if (elementName == u"trkpt")
        closeTrackPoint();
    else if (elementName == u"trkseg")
        closeTrackSegment();
    else if (elementName == u"trk")
        closeTrack();
    else if (elementName == u"wpt")
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

void HBGPXFileImportOperation::setText(const QString &elementName)
{
    const QStringView text = currentStringValue();
    HBGeoPoint *point = m_currentTrackPoint ? static_cast<HBGeoPoint *>(m_currentTrackPoint) : m_currentWaypoint;
    if (elementName == u"ele") {
        if (point)
            point->setElevation(HBDecimal::fromString(text));
    } else if (elementName == u"time") {
        if (point)
            point->setDate(dateFromTimeText(text));
    } else if (elementName == u"name") {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setName, &HBTrack::setName, text);
    } else if (elementName == u"cmt") {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setGpsComment, &HBTrack::setGpsComment, text);
    } else if (elementName == u"desc") {
        setOnTarget(point, m_currentTrack, &HBGeoPoint::setNotes, &HBTrack::setNotes, text);
    } else if (elementName == u"sym") {
        if (m_currentWaypoint)
            m_currentWaypoint->setSymbolName(text.toString());
    }
}
