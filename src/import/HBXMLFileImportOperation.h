#pragma once

#include "import/ExpatXMLParserDelegate.h"
#include "import/HBFileImportOperation.h"
#include "platform/HBDecimal.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

class ExpatXMLParser;
class HBEvent;
class HBImportSource;
class HBPredicate;
class HBTrack;
class HBTrackPoint;
class HBTrackSegment;
class HBWaypoint;

// The common body of the importers of XML files (GPX, TCX). main() reads the
// file with an ExpatXMLParser whose delegate is the operation itself; the
// subclass turns elements into records through the working state below, and
// at the end of the document this base drops the new waypoints that are
// already stored, links what was made to the file's import source and saves.
//
// Life cycle of one operation (all of it inside one performBlockAndWait of
// the import context, on that context's queue):
//   1. main(): a fresh context of the background manager, the reader over
//      the whole file, the import source record, then the parse;
//   2. every start tag: the cancellation point and the progress report
//      (currentCharacter = the reader's byte index); subclasses that
//      override parserDidStartElement call this base first;
//   3. parserDidEndDocument (after success, malformed XML or an abort):
//      cancelled -> the result lists are emptied and nothing is saved;
//      otherwise duplicate waypoints are removed, tracks and waypoints are
//      linked to the import source, what is then linked to nothing (a
//      segment without a track, a point without a segment, a track or
//      waypoint without the import source) is dropped, and the context is
//      saved once.
// A malformed or truncated file is not logged: what was complete up to the
// fault is saved, and the fault goes into the report. An unreadable file
// saves an import source alone.
//
// State of the working fields:
//   | level    | opened by        | closed by          | result list        |
//   | event    | openEvent        | closeEvent         | events (unlinked)  |
//   | track    | openTrack        | closeTrack         | tracks             |
//   | segment  | openTrackSegment | closeTrackSegment  | the track's list   |
//   | point    | openTrackPoint   | closeTrackPoint    | the segment's list |
//   | waypoint | the subclass     | the subclass       | waypoints          |
// A list that is absent (std::nullopt) is a missing list: what is closed
// into it is lost to the structure and dropped at the end of the document
// (a "trkpt" outside any "trkseg", say).
// Invariant: an event, track or segment is open exactly when its list of
// children exists (checked in debug builds after every open and close).
class HBXMLFileImportOperation : public HBFileImportOperation, public ExpatXMLParserDelegate
{
    Q_OBJECT

public:
    ~HBXMLFileImportOperation() override;

    void main() override;

    // The record of this file; null before main() runs.
    HBImportSource *importSource() const { return m_importSource; }
    // What the subclass made, until the end of the document links and
    // empties them. Each record is listed once, in the order it was closed.
    const QList<HBEvent *> &events() const { return m_events; }
    const QList<HBWaypoint *> &waypoints() const { return m_waypoints; }
    const QList<HBTrack *> &tracks() const { return m_tracks; }
    // No importer of this library makes routes, and the data model gives an
    // import source no route relationship: the list is emptied, never linked.
    const QList<HBTrack *> &routes() const { return m_routes; }
    // The next order numbers to give, from 1: tracks and waypoints (GPX) or
    // laps (TCX) share the first, events have the second.
    qint64 objectImportOrder() const { return m_objectImportOrder; }
    qint64 eventImportOrder() const { return m_eventImportOrder; }
    ExpatXMLParser *xmlParser() const { return m_xmlParser.get(); }

    // Drops every new waypoint that equals a stored point (any stored
    // geo point, track points included) in latitude, longitude and name:
    // one fetch of the stored points at the new waypoints' distinct
    // coordinates, then removeExistingDupesFromWaypoints.
    void removeDuplicates2();
    // The older form of the same rule: one fetch per batch of at most 500
    // waypoints, the batches starting 300 apart. Not on the import path.
    void removeDuplicates();

    // Latitude, longitude and name of a point, for the duplicate rule.
    struct DuplicateKey
    {
        std::optional<HBDecimal> latitude;
        std::optional<HBDecimal> longitude;
        QString name;   // null: no name
    };
    // The merge walk over the new waypoints and the stored points, both
    // sorted by latitude, longitude and name. The cursor on the stored list
    // moves past every entry that is smaller than the waypoint in any one of
    // the three keys taken alone (an absent value is never smaller), so it
    // can pass a stored point before an equal waypoint reaches it; that
    // waypoint is then kept. The walk is a cheap filter, not an exact set
    // difference. Deletes the duplicates and takes them off waypoints().
    void removeExistingDupesFromWaypoints(QList<DuplicateKey> storedPoints);

    // The instant of a GPS time text: texts of 20 characters or more are cut
    // to their first 19, so fractions of a second, a trailing "Z" and any
    // offset are dropped without being applied; what is left must read
    // "YYYY-MM-DDTHH:MM:SS" or "YYYY-MM-DD HH:MM:SS" and is taken as UTC.
    // Invalid otherwise.
    static QDateTime dateFromTimeText(QStringView text);

    // The reader's callbacks: progress and cancellation at start tags, text
    // gathering, the fault that stops the reader, and the end of the
    // document. End tags do nothing here.
    Callbacks implementedCallbacks() const override;
    void parserDidStartElement(ExpatXMLParser &parser, const QString &elementName,
                               const QString &namespaceURI, const QString &qualifiedName,
                               const Attributes &attributes) override;
    void parserFoundUTF8Characters(ExpatXMLParser &parser, QByteArrayView utf8) override;
    void parserParseErrorOccurred(ExpatXMLParser &parser, const HBError &error) override;
    void parserDidEndDocument(ExpatXMLParser &parser) override;

protected:
    HBXMLFileImportOperation();

    // Starts an element's text afresh: absent until text arrives.
    void clearCurrentStringValue() { m_hasCurrentStringValue = false; }
    bool hasCurrentStringValue() const { return m_hasCurrentStringValue; }
    // The text gathered since the last clear, untrimmed; valid until the
    // next call or the next text.
    QStringView currentStringValue();

    // Inserts the records of the levels; each becomes the open one of its
    // level, and a track, segment or event starts its list of children.
    void openEvent();
    void openTrack();
    void openTrackSegment();
    void openTrackPoint();
    // Each closes its level into the level above, doing nothing when no
    // object of the level is open.
    void closeTrackPoint();
    void closeTrackSegment();
    void closeTrack();
    void closeEvent();

    // Working state of the subclasses' element handling.
    QString m_currentElement;
    HBEvent *m_currentEvent = nullptr;
    std::optional<QList<HBTrack *>> m_currentTracks;
    HBTrack *m_currentTrack = nullptr;
    std::optional<QList<HBTrackSegment *>> m_currentSegments;
    HBTrackSegment *m_currentSegment = nullptr;
    std::optional<QList<HBTrackPoint *>> m_currentTrackPoints;
    HBTrackPoint *m_currentTrackPoint = nullptr;
    HBWaypoint *m_currentWaypoint = nullptr;

    QList<HBEvent *> m_events;
    QList<HBWaypoint *> m_waypoints;
    QList<HBTrack *> m_tracks;
    QList<HBTrack *> m_routes;
    std::atomic<qint64> m_objectImportOrder = 1;
    std::atomic<qint64> m_eventImportOrder = 1;

private:
    QList<DuplicateKey> fetchStoredPointKeys(const HBPredicate &predicate,
                                             const QStringList &sortKeys) const;
    void linkToImportSource();
    void dropUnlinkedRecords();
    void noteParseError();
    void save();
    void checkWorkingState() const;

    std::unique_ptr<ExpatXMLParser> m_xmlParser;
    HBImportSource *m_importSource = nullptr;
    // where and why the reader stopped before the end; null when it did not
    QString m_parseError;
    // The text is gathered as UTF-8 and decoded only when an element's text
    // is read: most of it is white space between elements. Both buffers
    // serve every element, so their capacity is reused rather than a string
    // grown anew per element.
    // std::string: appended to at every piece of text between tags, and
    // its append is a plain copy
    std::string m_currentStringBytes;
    QString m_currentStringValue;
    bool m_hasCurrentStringValue = false;
};
