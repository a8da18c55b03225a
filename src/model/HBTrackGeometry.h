#pragma once

#include "kits/geometry/HBMultiPointGeometry.h"

class HBTrack;

// The map geometry of a track, in geographic coordinates. Its projections
// come from the track's cache files when they exist and are written there
// when made, so a map reopened in the same projection reads them back.
class HBTrackGeometry : public HBMultiPointGeometry
{
public:
    explicit HBTrackGeometry(std::vector<QPointF> points);
    // Null for data that is not a well-known-binary multipoint.
    static std::shared_ptr<HBTrackGeometry> fromWKBData(const QByteArray &wkb);

    // Not owned: the track clears or replaces its geometry before it goes.
    HBTrack *track() const { return m_track; }
    void setTrack(HBTrack *track) { m_track = track; }
    // true while the geographic data differs from the cache file
    bool hasUnsavedChanges() const { return m_hasUnsavedChanges; }
    void setHasUnsavedChanges(bool changed) { m_hasUnsavedChanges = changed; }

    std::shared_ptr<HBMultiPointGeometry> geometryWithProjection(const HBProjection &projection) override;

private:
    HBTrack *m_track = nullptr;
    bool m_hasUnsavedChanges = false;
};
