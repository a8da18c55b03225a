#include "kits/geometry/HBProjectionContext_p.h"

#include "platform/HBLogging.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

// proj_trans_generic walks the x and y members of a QPointF array in place.
static_assert(sizeof(QPointF) == 2 * sizeof(double) && std::is_same_v<qreal, double>);

HBProjectionContext &HBProjectionContext::forCurrentThread()
{
    thread_local HBProjectionContext context;
    return context;
}

HBProjectionContext::HBProjectionContext()
    : m_context(proj_context_create())
{
    // PROJ prints its errors on stderr by default; keep them for our own
    // log line, which says what was being done.
    proj_log_func(m_context.get(), this, &HBProjectionContext::keepLogMessage);
}

void HBProjectionContext::keepLogMessage(void *context, int, const char *message)
{
    static_cast<HBProjectionContext *>(context)->m_logMessage = QString::fromUtf8(message);
}

QString HBProjectionContext::takeLogMessage()
{
    return std::exchange(m_logMessage, QString());
}

const HBProjectionContext::Target &HBProjectionContext::target(qint64 srid)
{
    auto found = m_targets.find(srid);
    if (found == m_targets.end())
        found = m_targets.emplace(srid, makeTarget(srid)).first;
    return found->second;
}

HBProjectionContext::Target HBProjectionContext::makeTarget(qint64 srid)
{
    takeLogMessage();
    const QByteArray targetName = "EPSG:" + QByteArray::number(srid);
    const Transformation asDefined(
        proj_create_crs_to_crs(m_context.get(), "EPSG:4326", targetName.constData(), nullptr));
    // EPSG:4326 is defined latitude first; the normalised transformation
    // takes and gives x = longitude (or easting) first, as the kit does.
    Transformation normalised(
        asDefined ? proj_normalize_for_visualization(m_context.get(), asDefined.get()) : nullptr);
    if (normalised)
        return {std::move(normalised), QString()};
    const QString reason = takeLogMessage();
    return {nullptr, reason.isEmpty() ? QStringLiteral("PROJ has no transformation to it") : reason};
}

std::optional<std::vector<QPointF>> HBProjectionContext::project(qint64 srid, std::span<const QPointF> lonLat)
{
    const Target &to = target(srid);
    if (!to.transformation) {
        qCWarning(hbGeometry, "cannot project to EPSG:%lld: %s", qlonglong(srid), qPrintable(to.errorString));
        return std::nullopt;
    }

    std::vector<QPointF> projected(lonLat.begin(), lonLat.end());
    if (projected.empty())
        return projected;
    takeLogMessage();
    proj_trans_generic(to.transformation.get(), PJ_FWD,
                       &projected.front().rx(), sizeof(QPointF), projected.size(),
                       &projected.front().ry(), sizeof(QPointF), projected.size(),
                       nullptr, 0, 0, nullptr, 0, 0);

    // PROJ marks a position it cannot project with infinite coordinates.
    const auto unprojected = std::ranges::find_if(projected, [](QPointF p) {
        return !std::isfinite(p.x()) || !std::isfinite(p.y());
    });
    if (unprojected != projected.end()) {
        const QPointF position = lonLat[unprojected - projected.begin()];
        qCWarning(hbGeometry, "cannot project position %lld (%.9g, %.9g) to EPSG:%lld: %s",
                  qlonglong(unprojected - projected.begin()), position.x(), position.y(),
                  qlonglong(srid), qPrintable(takeLogMessage()));
        return std::nullopt;
    }
    return projected;
}
