#pragma once

#include "export/HBXMLElement.h"

#include <QByteArray>
#include <QList>
#include <QString>

class HBGeoPoint;
class HBManagedObject;
class HBTrack;
class HBTrackSegment;
class HBWaypoint;
class QIODevice;

// Writes waypoints and tracks to one GPX 1.1 file. The host fills the lists
// and calls exportToPath; decimals are written with every digit they were
// stored with, times in UTC. Routes are accepted and never written.
//
// The records are read where the caller stands: call from the queue of the
// context that holds them.
class HBGPXExporter
{
public:
    QList<HBWaypoint *> &waypoints() { return m_waypoints; }
    QList<HBTrack *> &tracks() { return m_tracks; }
    QList<HBManagedObject *> &routes() { return m_routes; }

    // Builds the document and writes it in one piece: a regular file (or
    // none yet) is replaced only by a complete file, through a temporary
    // file and a rename. Anything else there (a device such as /dev/null, a
    // FIFO, a terminal) cannot be replaced and is written into. false when
    // the write fails.
    bool exportToPath(const QString &path);
    // Builds the document and writes it into an open device (standard
    // output, say); an unbuffered one reports a failed write at once.
    bool exportToDevice(QIODevice &device);
    // The document of the last export, kept as the bytes written: an
    // element tree of a million points would take several times the memory.
    QByteArray xmlDocument() const { return m_xmlDocument; }
    QString errorString() const { return m_errorString; }

    // The building blocks: the elements exportToPath writes, as trees.
    static HBXMLElement xmlNodeFromGeoPoint(HBGeoPoint *point);
    static HBXMLElement xmlNodeFromSegment(HBTrackSegment *segment);
    static HBXMLElement xmlNodeFromTrack(HBTrack *track);
    // Null when no point of the lists has a position.
    HBXMLElement xmlNodeForBounds() const;

private:
    QByteArray serialise() const;
    // Keeps the reason of a failed write and logs it; returns `written`.
    bool noteWritten(bool written, const QString &error, const QString &target);

    QList<HBWaypoint *> m_waypoints;
    QList<HBTrack *> m_tracks;
    QList<HBManagedObject *> m_routes;
    QByteArray m_xmlDocument;
    QString m_errorString;
};
