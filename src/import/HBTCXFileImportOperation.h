#pragma once

#include "import/HBXMLFileImportOperation.h"

// Reads a Training Center XML file into events, tracks, segments and track
// points. Element names are compared exactly, without namespace.
//
//   element      record          start tag                        end tag
//   Activity     event           order from the event counter     closeEvent
//   Lap          track           named "Lap #<n>", order n from   closeTrack
//                                the object counter
//   Track        segment                                          closeTrackSegment
//   Trackpoint   track point                                      closeTrackPoint
//
//   text of            sets on the open track point
//   Time               date (UTC, see dateFromTimeText); a text shorter
//                      than 19 characters is ignored
//   LatitudeDegrees    latitude (decimal, as written)
//   LongitudeDegrees   longitude (decimal, as written)
//   AltitudeMeters     elevation (decimal, as written)
//
// The open records form a stack event > track > segment > point. A start
// tag of a level whose record is still open (an unbalanced file) first
// closes that level and every level below it and logs "There was an error
// parsing the file." once; so does the end of a document that leaves an
// event open. Lap numbers run through the whole file, across activities.
//
// Everything else is ignored: lap totals, heart rate, cadence, speed,
// courses' points, a lap's start time (no track point is open). Events are
// saved with their order but without tracks, and are not linked to the
// import source; laps reach the import source as tracks.
class HBTCXFileImportOperation : public HBXMLFileImportOperation
{
    Q_OBJECT

public:
    HBTCXFileImportOperation();

    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                               const QString &namespaceURI, const QString &qualifiedName,
                               const Attributes &attributes) override;
    void parserDidEndElement(ExpatXMLParser &parser, const QString &elementName,
                             const QString &namespaceURI, const QString &qualifiedName) override;
    void parserDidEndDocument(ExpatXMLParser &parser) override;

private:
    // The levels of open records, outermost first.
    enum class Level { Event, Track, Segment, Point };
    // Closes the level and every level below it, and logs the repair.
    void repairFrom(Level level);
    void setText(const QString &elementName);
};
