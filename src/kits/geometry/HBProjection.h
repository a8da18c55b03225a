#pragma once

#include <QPointF>
#include <QtGlobal>

#include <optional>
#include <span>
#include <vector>

// A spatial reference named by its EPSG code (srid), into which geographic
// positions are projected. A light value: copy it, compare it, key hashes
// with it. The PROJ transformations behind it are made on first use and
// kept per thread, because a PROJ context must never serve two threads at
// once; any thread may project.
class HBProjection
{
public:
    static constexpr qint64 GeographicSRID = 4326;  // WGS84, x = longitude, y = latitude, degrees
    static constexpr qint64 WebMercatorSRID = 3857; // x = easting, y = northing, metres

    explicit HBProjection(qint64 srid = GeographicSRID)
        : m_srid(srid)
    {
    }

    qint64 srid() const { return m_srid; }

    // Projects geographic positions (x = longitude, y = latitude, degrees)
    // into this srid, x staying the easting whatever axis order the EPSG
    // definition has. Projecting to 4326 returns the positions unchanged.
    // Empty, with the reason logged under hbGeometry, when PROJ knows no
    // such srid or a position has no image in it.
    std::optional<std::vector<QPointF>> project(std::span<const QPointF> lonLat) const;

    friend bool operator==(HBProjection, HBProjection) = default;

private:
    qint64 m_srid;
};

size_t qHash(HBProjection projection, size_t seed = 0) noexcept;
