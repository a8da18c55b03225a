#include "ui/HBSimplePointStyle.h"

#include "kits/atlas/HBDrawingContext.h"
#include "kits/atlas/HBPointSymbolizer.h"
#include "kits/atlas/HBRule.h"
#include "kits/utility/HBTimeZoneManager.h"
#include "model/HBFeatureStyles.h"
#include "model/HBTrack.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackGeometry.h"
#include "model/HBTrackPoint.h"
#include "model/HBTrackSegment.h"
#include "platform/store/HBEntityDescription.h"
#include "ui/HBTrackBubbleSymbolizer.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QTimer>

namespace {

constexpr int kSaveDelayMs = 1000;

bool isWaypoint(const HBManagedObject *object)
{
    return object->entity()->name() == QStringLiteral("HBWaypoint");
}

// The point of the track at index of its drawn points, found by the
// segments' point counts.
HBTrackPoint *trackPointAtIndex(const HBTrack *track, quint32 index)
{
    qint64 sum = 0;
    for (const HBTrackSegment *segment : track->segments()) {
        const qint64 count = segment->numberOfTrackPoints();
        sum += count;
        if (sum > index)
            return segment->fetchPointAtIndex(index - sum + count);
    }
    return nullptr;
}

// Records ask for their styles through the core library, which cannot
// link this one.
void installFeatureStyles()
{
    HBFeatureStyles::install({[](HBManagedObject *object) { return std::make_shared<HBSimplePointStyle>(object); },
                              HBStyle::styleForGeometry, [](HBSimplePointStyle &style) { style.save(); }});
}
Q_CONSTRUCTOR_FUNCTION(installFeatureStyles)

} // namespace

struct HBSimplePointStyle::Hover
{
    HBTrack *track;
    QPointF viewPoint;
};

HBSimplePointStyle::HBSimplePointStyle(HBManagedObject *trackOrWaypoint)
    : m_trackOrWaypoint(trackOrWaypoint)
{
    if (trackOrWaypoint->objectID().isTemporaryID() || !initWithCoder(styleCachePathForObject(trackOrWaypoint)))
        buildFreshStyle();
}

HBSimplePointStyle::~HBSimplePointStyle() = default;

QString HBSimplePointStyle::styleCachePathForObject(const HBManagedObject *object)
{
    const HBManagedObjectID id = object->objectID();
    const QString folder = HBTrackDataModel::cacheFolder() + u'/' + id.storeIdentifier() + QStringLiteral("/Styles");
    QDir().mkpath(folder);
    const QString name = id.uriString().section(u'/', -1);
    return folder + u'/' + (isWaypoint(object) ? QStringLiteral("Waypoint_") : QStringLiteral("Track_")) + name;
}

bool HBSimplePointStyle::initWithCoder(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QDataStream stream(&file);
    if (!decodeWithCoder(stream))
        return false;
    if (!rules().isEmpty() && !rules().last()->symbolizers().isEmpty())
        m_primaryPointSymbolizer = std::dynamic_pointer_cast<HBPointSymbolizer>(rules().last()->symbolizers().last());
    return true;
}

void HBSimplePointStyle::buildFreshStyle()
{
    m_primaryPointSymbolizer = std::make_shared<HBPointSymbolizer>();
    if (isWaypoint(m_trackOrWaypoint)) {
        m_primaryPointSymbolizer->setSymbolType(HBPointSymbolizer::Waypoint);
        m_primaryPointSymbolizer->setSymbolSize(15.0f);
        m_primaryPointSymbolizer->setFillColor(QColor::fromRgbF(1, 0, 1, 1));
    }
    auto rule = std::make_shared<HBRule>();
    rule->addSymbolizer(m_primaryPointSymbolizer);
    addRule(std::move(rule));
}

void HBSimplePointStyle::observeValueForKeyPath(const QString &keyPath, QObject *object)
{
    HBStyle::observeValueForKeyPath(keyPath, object);
    if (!m_saveTimer) {
        m_saveTimer = std::make_unique<QTimer>();
        m_saveTimer->setSingleShot(true);
        m_saveTimer->setInterval(kSaveDelayMs);
        connect(m_saveTimer.get(), &QTimer::timeout, this, &HBSimplePointStyle::save);
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, m_saveTimer.get(), [this] { save(); });
    }
    m_saveTimer->start();
}

void HBSimplePointStyle::save()
{
    if (m_trackOrWaypoint->objectID().isTemporaryID())
        return;
    const QString path = styleCachePathForObject(m_trackOrWaypoint);
    if (m_trackOrWaypoint->isDeleted()) {
        QFile::remove(path);
    } else {
        // A bubble is what the mouse points at now, not part of the style.
        if (m_trackBubbleSymbolizer)
            rules().last()->removeSymbolizer(m_trackBubbleSymbolizer);
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly)) {
            QDataStream stream(&file);
            encodeWithCoder(stream);
        }
        if (m_trackBubbleSymbolizer)
            rules().last()->addSymbolizer(m_trackBubbleSymbolizer, 0);
        if (file.commit())
            emit saved();
    }
    // deleted later: the save may be running from the timer's own signal
    if (m_saveTimer) {
        m_saveTimer->stop();
        m_saveTimer.release()->deleteLater();
    }
}

quint32 HBSimplePointStyle::indexOfVisibleMultiPoint(std::span<const QPointF> multiPoint, QPointF atPoint,
                                                     double radius, const HBClippingRegion &region)
{
    quint32 result = NoPoint;
    region.forEachDrawnPoint(multiPoint.data(), quint32(multiPoint.size()), [&](quint32 i, QPointF viewPoint) {
        if (std::abs(atPoint.x() - viewPoint.x()) + std::abs(atPoint.y() - viewPoint.y()) < radius)
            result = i;
    });
    return result;
}

std::optional<HBSimplePointStyle::Hover> HBSimplePointStyle::hoverOverPoint(QPointF atPoint,
                                                                            HBManagedObject *spatialObject,
                                                                            const HBDrawingContext &context)
{
    auto *track = dynamic_cast<HBTrack *>(spatialObject);
    if (!m_primaryPointSymbolizer || !track)
        return std::nullopt;
    const std::shared_ptr<HBMultiPointGeometry> projected =
        track->geometry()->geometryWithProjection(context.mapProjection());
    if (!projected || projected->geometryType() != HBGeometryTypeMultiPoint)
        return std::nullopt;
    const double radius = m_primaryPointSymbolizer->symbolSize() + m_primaryPointSymbolizer->strokeWidth() * 0.5;
    const quint32 i = indexOfVisibleMultiPoint(projected->points(), atPoint, radius, context.clippingRegion());
    if (i == NoPoint || i == m_mouseOverTrackPointIndex)
        return std::nullopt;
    m_mouseOverTrackPointIndex = i;
    m_mouseOverTrackPoint = trackPointAtIndex(track, i);
    return Hover{track, context.clippingRegion().transformPoint(projected->points()[i])};
}

void HBSimplePointStyle::describe(const Hover &hover)
{
    m_trackBubbleSymbolizer->setOffset(hover.viewPoint);
    m_trackBubbleSymbolizer->setPointDescription(tr("Point %1 of %2 in track %3")
                                                     .arg(m_mouseOverTrackPointIndex + 1)
                                                     .arg(hover.track->numberOfTrackPoints())
                                                     .arg(hover.track->name()));
}

void HBSimplePointStyle::mouseEntered(QPointF atPoint, HBManagedObject *spatialObject, const HBDrawingContext &context)
{
    const std::optional<Hover> hover = hoverOverPoint(atPoint, spatialObject, context);
    if (!hover)
        return;
    removeBubble();
    m_trackBubbleSymbolizer =
        std::make_shared<HBTrackBubbleSymbolizer>(QVariant::fromValue<HBManagedObject *>(m_mouseOverTrackPoint));
    describe(*hover);
    const HBTimeZoneManager &zones = HBTimeZoneManager::sharedTimeZoneManager();
    m_trackBubbleSymbolizer->setDateFormatter(zones.dateFormatter());
    m_trackBubbleSymbolizer->setTimeFormatter(zones.timeFormatter());
    rules().last()->addSymbolizer(m_trackBubbleSymbolizer, 0);
}

void HBSimplePointStyle::mouseMoved(QPointF atPoint, HBManagedObject *spatialObject, const HBDrawingContext &context)
{
    const std::optional<Hover> hover = hoverOverPoint(atPoint, spatialObject, context);
    // Without a bubble (the mouse entered off every point) moves only
    // follow the point; the bubble comes with the next enter.
    if (!hover || !m_trackBubbleSymbolizer)
        return;
    m_trackBubbleSymbolizer->setRepresentedObject(QVariant::fromValue<HBManagedObject *>(m_mouseOverTrackPoint));
    describe(*hover);
}

void HBSimplePointStyle::mouseExited()
{
    removeBubble();
    m_mouseOverTrackPoint = nullptr;
    m_mouseOverTrackPointIndex = NoPoint;
}

void HBSimplePointStyle::removeBubble()
{
    if (m_trackBubbleSymbolizer)
        rules().last()->removeSymbolizer(m_trackBubbleSymbolizer);
    m_trackBubbleSymbolizer.reset();
}
