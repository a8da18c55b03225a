#pragma once

#include "import/HBXMLFileImportOperation.h"

// Reads a GPX file, version 1.0 or 1.1 alike, into tracks, segments, track
// points and waypoints. Element names are compared exactly, without
// namespace: a name written with a prefix ("gpx:trkpt") is not recognised.
//
//   element    start tag                               end tag
//   trk        new track, order from the shared        segments in file order,
//              counter                                  track into tracks()
//   trkseg     new segment                             points in file order,
//                                                      segment into the track
//   trkpt      new track point, "lat" / "lon"          point into the segment
//   wpt        new waypoint, order from the shared     waypoint into waypoints()
//              counter, "lat" / "lon"
//
//   text of    sets                  on the first open one of
//   ele        elevation (decimal)   track point, waypoint
//   time       date (UTC, see        track point, waypoint
//              dateFromTimeText)
//   name       name                  track point, waypoint, track
//   cmt        GPS comment           track point, waypoint, track
//   desc       notes                 track point, waypoint, track
//   sym        symbol name           waypoint only
//
// Tracks and waypoints share one order counter, so their orders interleave
// in file order from 1. Text with no open target is dropped: the file's
// metadata, everything of routes (rte, rtept), and every other element
// (extensions, hdop, fix, link, ...). A symbol on a track point is dropped
// too. Decimals keep the digits of the file; an element without text sets
// nothing.
//
// A file that ends early (cut off, or malformed) keeps what was complete:
// the end of the document closes the open segment into the open track and
// that track into tracks(), and logs "There was an error parsing the
// file." once; the point or waypoint being read is incomplete and dropped.
class HBGPXFileImportOperation : public HBXMLFileImportOperation
{
    Q_OBJECT

public:
    HBGPXFileImportOperation();

    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                               const QString &namespaceURI, const QString &qualifiedName,
                               const Attributes &attributes) override;
    void parserDidEndElement(ExpatXMLParser &parser, const QString &elementName,
                             const QString &namespaceURI, const QString &qualifiedName) override;
    void parserDidEndDocument(ExpatXMLParser &parser) override;

private:
    void setText(const QString &elementName);
    void closeWaypoint();
};
