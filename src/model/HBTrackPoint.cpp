#include "model/HBTrackPoint.h"

#include "model/HBTrackDataModel.h"
#include "model/HBTrackSegment.h"
#include "platform/HBLogging.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBPropertyDescription.h"

namespace {

// By slot: every imported point sets its order, and every save asks for
// the segment URI.
int slotOf(const char *name)
{
    return HBTrackDataModel::model()->entityNamed(QStringLiteral("HBTrackPoint"))->propertyNamed(QLatin1String(name))->index;
}

int orderSlot()
{
    static const int slot = slotOf("order");
    return slot;
}

int trackSegmentURISlot()
{
    static const int slot = slotOf("trackSegmentURI");
    return slot;
}

} // namespace

QString HBTrackPoint::trackSegmentURI() const
{
    return primitiveValue(trackSegmentURISlot()).toString();
}

std::optional<qint64> HBTrackPoint::order() const
{
    const QVariant v = primitiveValue(orderSlot());
    return v.isValid() ? std::optional<qint64>(v.toLongLong()) : std::nullopt;
}

void HBTrackPoint::setOrder(std::optional<qint64> order)
{
    setPrimitiveValue(orderSlot(), order ? QVariant::fromValue(*order) : QVariant());
}

HBTrackSegment *HBTrackPoint::trackSegment() const
{
    if (m_trackSegment)
        return m_trackSegment;
    const QString uri = trackSegmentURI();
    HBManagedObjectContext *context = managedObjectContext();
    if (uri.isEmpty() || !context || !context->persistentStoreCoordinator())
        return nullptr;
    const HBManagedObjectID id = context->persistentStoreCoordinator()->managedObjectIDForURIString(uri);
    if (id.isNull() || id.entity()->name() != QLatin1String("HBTrackSegment"))
        return nullptr;
    m_trackSegment = static_cast<HBTrackSegment *>(context->objectWithID(id));
    return m_trackSegment;
}

void HBTrackPoint::willSave()
{
    if (isDeleted())
        return;
    HBTrackSegment *segment = trackSegment();
    if (!segment)
        return;
    HBError error;
    if (segment->objectID().isTemporaryID() && !managedObjectContext()->obtainPermanentIDsForObjects({segment}, &error))
        error.log(hbModel(), QStringLiteral("Error occurred in HBTrackPoint willSave"));
    const QString uri = segment->uriString();
    if (uri != trackSegmentURI())
        setPrimitiveValue(trackSegmentURISlot(), uri);
}
