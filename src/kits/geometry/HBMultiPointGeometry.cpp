#include "kits/geometry/HBMultiPointGeometry.h"

#include "kits/geometry/HBWKB.h"
#include "kits/geometry/HBWKBReader.h"
#include "kits/geometry/HBWKBWriter.h"
#include "platform/HBLogging.h"

#include <algorithm>
#include <limits>

namespace {

QRectF boundingRectOf(const std::vector<QPointF> &points)
{
    if (points.empty())
        return {};
    // One pass of branch-free minima and maxima: tracks have a million points.
    double left = points.front().x();
    double right = left;
    double top = points.front().y();
    double bottom = top;
    for (QPointF p : points) {
        left = std::min(left, p.x());
        right = std::max(right, p.x());
        top = std::min(top, p.y());
        bottom = std::max(bottom, p.y());
    }
    return QRectF(QPointF(left, top), QPointF(right, bottom));
}

std::optional<std::vector<QPointF>> readMultiPoint(HBWKBReader &reader)
{
    if (!reader.readHeader(HBGeometryTypeMultiPoint))
        return std::nullopt;
    const std::optional<quint32> count = reader.readUInt32();
    if (!count)
        return std::nullopt;
    // Checked before reserving, so that a damaged count cannot ask for
    // gigabytes.
    if (*count > reader.bytesLeft() / HBWKB::pointSize) {
        reader.fail(QStringLiteral("%1 points announced, room for %2")
                        .arg(*count).arg(reader.bytesLeft() / HBWKB::pointSize));
        return std::nullopt;
    }

    std::vector<QPointF> points;
    points.reserve(*count);
    for (quint32 i = 0; i < *count; ++i) {
        const std::optional<QPointF> point = reader.readPoint();
        if (!point)
            return std::nullopt;
        points.push_back(*point);
    }
    if (reader.bytesLeft() != 0) {
        reader.fail(QStringLiteral("%1 bytes after the last point").arg(reader.bytesLeft()));
        return std::nullopt;
    }
    return points;
}

} // namespace

HBMultiPointGeometry::HBMultiPointGeometry(const QPointF *points, qsizetype count, qint64 srid)
    : HBMultiPointGeometry(std::vector<QPointF>(points, points + count), srid)
{
}

HBMultiPointGeometry::HBMultiPointGeometry(std::vector<QPointF> points, qint64 srid)
    : m_points(std::move(points))
    , m_srid(srid)
    , m_boundingRect(boundingRectOf(m_points))
{
}

HBMultiPointGeometry::~HBMultiPointGeometry() = default;

std::shared_ptr<HBMultiPointGeometry> HBMultiPointGeometry::fromWKBData(const QByteArray &wkb, qint64 srid)
{
    HBWKBReader reader(wkb);
    std::optional<std::vector<QPointF>> points = readMultiPoint(reader);
    if (!points) {
        qCWarning(hbGeometry, "ignoring malformed multipoint well-known binary of %lld bytes: %s",
                  qlonglong(wkb.size()), qPrintable(reader.errorString()));
        return nullptr;
    }
    return std::make_shared<HBMultiPointGeometry>(std::move(*points), srid);
}

QByteArray HBMultiPointGeometry::wkbData() const
{
    Q_ASSERT(m_points.size() <= std::numeric_limits<quint32>::max());
    HBWKBWriter writer(HBWKB::multiPointHeaderSize + count() * HBWKB::pointSize);
    writer.writeHeader(HBGeometryTypeMultiPoint);
    writer.writeUInt32(quint32(m_points.size()));
    for (QPointF point : m_points)
        writer.writePoint(point);
    return writer.takeData();
}

QHash<HBProjection, std::shared_ptr<HBMultiPointGeometry>> HBMultiPointGeometry::projectedGeometries() const
{
    QMutexLocker locker(&m_projectedMutex);
    return m_projectedGeometries;
}

void HBMultiPointGeometry::setProjectedGeometry(const HBProjection &projection,
                                                std::shared_ptr<HBMultiPointGeometry> geometry)
{
    Q_ASSERT(geometry);
    QMutexLocker locker(&m_projectedMutex);
    m_projectedGeometries.insert(projection, std::move(geometry));
}

std::shared_ptr<HBMultiPointGeometry> HBMultiPointGeometry::geometryWithProjection(const HBProjection &projection)
{
    {
        QMutexLocker locker(&m_projectedMutex);
        if (auto kept = m_projectedGeometries.value(projection))
            return kept;
    }
    // Projected outside the lock: a million points take a while, and other
    // projections of this geometry need not wait for it.
    std::shared_ptr<HBMultiPointGeometry> projected = projectedGeometry(projection);
    if (!projected)
        return nullptr;

    QMutexLocker locker(&m_projectedMutex);
    // Another thread may have kept one meanwhile; every caller shares that.
    const auto kept = m_projectedGeometries.constFind(projection);
    if (kept != m_projectedGeometries.constEnd())
        return *kept;
    m_projectedGeometries.insert(projection, projected);
    return projected;
}

std::shared_ptr<HBMultiPointGeometry> HBMultiPointGeometry::projectedGeometry(const HBProjection &projection) const
{
    if (projection.srid() == m_srid)
        return std::make_shared<HBMultiPointGeometry>(m_points, m_srid);
    if (m_srid != HBProjection::GeographicSRID) {
        qCWarning(hbGeometry, "cannot project a geometry in EPSG:%lld to EPSG:%lld: only geographic positions are projected",
                  qlonglong(m_srid), qlonglong(projection.srid()));
        return nullptr;
    }
    std::optional<std::vector<QPointF>> projected = projection.project(m_points);
    if (!projected)
        return nullptr;
    return std::make_shared<HBMultiPointGeometry>(std::move(*projected), projection.srid());
}
