#pragma once

#include "model/HBGeoPoint.h"

class HBTrackSegment;

// A sample of a recorded track. Its segment lives in the central store
// while the point lives in a file of its period, so the point names its
// segment by the segment's URI, written when the point is saved.
class HBTrackPoint : public HBGeoPoint
{
public:
    // position within the segment, as the importer numbered it
    std::optional<qint64> order() const;
    void setOrder(std::optional<qint64> order);
    QString trackSegmentURI() const;

    // Resolved from trackSegmentURI on first use after a load; before the
    // first save only this field knows the segment.
    HBTrackSegment *trackSegment() const;
    void setTrackSegment(HBTrackSegment *segment) { m_trackSegment = segment; }

    void willSave() override;

private:
    mutable HBTrackSegment *m_trackSegment = nullptr;
};
