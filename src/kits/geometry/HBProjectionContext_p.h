#pragma once

#include <QPointF>
#include <QString>

#include <proj.h>

#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

// The PROJ context of one thread and the transformations from EPSG:4326
// made in it, one per target srid, made on first use. A PROJ context and
// its objects must never serve two threads at once, hence one of these per
// thread. Failures are kept too, so an unknown srid costs one look-up in
// the PROJ database per thread.
class HBProjectionContext
{
public:
    static HBProjectionContext &forCurrentThread();

    // Geographic positions (x = longitude, y = latitude, degrees) projected
    // into srid, or empty with the reason logged under hbGeometry.
    std::optional<std::vector<QPointF>> project(qint64 srid, std::span<const QPointF> lonLat);

private:
    struct ContextDeleter {
        void operator()(PJ_CONTEXT *context) const { proj_context_destroy(context); }
    };
    struct TransformationDeleter {
        void operator()(PJ *transformation) const { proj_destroy(transformation); }
    };
    using Transformation = std::unique_ptr<PJ, TransformationDeleter>;

    struct Target {
        Transformation transformation; // null when PROJ could not make one
        QString errorString;
    };

    HBProjectionContext();
    const Target &target(qint64 srid);
    Target makeTarget(qint64 srid);
    QString takeLogMessage();
    static void keepLogMessage(void *context, int level, const char *message);

    // Declared first so that it is destroyed last, after the
    // transformations made in it.
    std::unique_ptr<PJ_CONTEXT, ContextDeleter> m_context;
    QString m_logMessage;
    std::unordered_map<qint64, Target> m_targets;
};
