#include "import/HBTCXFileImportOperation.h"

#include "model/HBTrack.h"
#include "model/HBTrackPoint.h"
#include "platform/HBLogging.h"

// Element names compare against Latin-1 literals, whose length is known
// without scanning them at every tag.
using namespace Qt::Literals::StringLiterals;

HBTCXFileImportOperation::HBTCXFileImportOperation() = default;

void HBTCXFileImportOperation::parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                                                     const QString &namespaceURI, const QString &qualifiedName,
                                                     const Attributes &attributes)
{
    HBXMLFileImportOperation::parserDidStartElement(parser, elementName, namespaceURI, qualifiedName, attributes);
    m_currentElement = elementName;
    clearCurrentStringValue();
    if (elementName == "Trackpoint"_L1) {
        if (m_currentTrackPoint)
            repairFrom(Level::Point);
        openTrackPoint();
    } else if (elementName == "Track"_L1) {
        if (m_currentSegment)
            repairFrom(Level::Segment);
        openTrackSegment();
    } else if (elementName == "Lap"_L1) {
        if (m_currentTrack)
            repairFrom(Level::Track);
        openTrack();
        m_currentTrack->setName(QStringLiteral("Lap #%1").arg(m_currentTrack->order()));
    } else if (elementName == "Activity"_L1) {
        if (m_currentEvent)
            repairFrom(Level::Event);
        openEvent();
    }
}

void HBTCXFileImportOperation::repairFrom(Level level)
{
    closeTrackPoint();
    if (level <= Level::Segment)
        closeTrackSegment();
    if (level <= Level::Track)
        closeTrack();
    if (level == Level::Event)
        closeEvent();
    qCWarning(hbImport) << "There was an error parsing the file.";
}

void HBTCXFileImportOperation::parserDidEndElement(ExpatXMLParser &, const QString &elementName, const QString &,
                                                   const QString &)
{
    if (elementName == "Trackpoint"_L1)
        closeTrackPoint();
    else if (elementName == "Track"_L1)
        closeTrackSegment();
    else if (elementName == "Lap"_L1)
        closeTrack();
    else if (elementName == "Activity"_L1)
        closeEvent();
    else if (hasCurrentStringValue() && m_currentTrackPoint)
        setText(elementName);
}

void HBTCXFileImportOperation::setText(const QString &elementName)
{
    const QStringView text = currentStringValue();
    if (elementName == "Time"_L1) {
        if (text.size() >= 19)
            m_currentTrackPoint->setDate(dateFromTimeText(text));
    } else if (elementName == "LatitudeDegrees"_L1) {
        m_currentTrackPoint->setLatitude(HBDecimal::fromString(text));
    } else if (elementName == "LongitudeDegrees"_L1) {
        m_currentTrackPoint->setLongitude(HBDecimal::fromString(text));
    } else if (elementName == "AltitudeMeters"_L1) {
        m_currentTrackPoint->setElevation(HBDecimal::fromString(text));
    }
}

// A file that ends inside an activity (cut off, or malformed) keeps what was
// open, closed as far as it got.
void HBTCXFileImportOperation::parserDidEndDocument(ExpatXMLParser &parser)
{
    if (m_currentEvent)
        repairFrom(Level::Event);
    HBXMLFileImportOperation::parserDidEndDocument(parser);
}
