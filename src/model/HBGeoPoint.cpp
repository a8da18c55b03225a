#include "model/HBGeoPoint.h"

#include "model/HBAdditionsTable.h"
#include "model/HBGeoPointSymbol.h"
#include "model/HBTrackDataModel.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPropertyDescription.h"

#include <QHash>
#include <QTimeZone>

#include <array>
#include <iterator>

namespace {

// The derived keys that read an extra attribute, for key paths and sorting.
const QHash<QString, QString> &additionsKeyForDerivedKey()
{
    // never destroyed: a fetch on a context's thread may still sort by it at exit
    static const auto &keys = *new QHash<QString, QString>{
        {QStringLiteral("ageOfGPSData"), kHBGeoPointAgeOfGPSDataProperty},
        {QStringLiteral("dgpsStationID"), kHBGeoPointDGPSStationIDProperty},
        {QStringLiteral("horizontalDilutionOfPrecision"), kHBGeoPointHorizontalDilutionOfPrecisionProperty},
        {QStringLiteral("verticalDilutionOfPrecision"), kHBGeoPointVerticalDilutionOfPrecisionProperty},
        {QStringLiteral("positionDilutionOfPrecision"), kHBGeoPointPositionDilutionOfPrecisionProperty},
        {QStringLiteral("numberOfSatellites"), kHBGeoPointNumberOfSatellitesProperty},
        {QStringLiteral("fixType"), kHBGeoPointFixTypeProperty},
        {QStringLiteral("geoidHeight"), kHBGeoPointGeoidHeightProperty},
        {QStringLiteral("magneticVariation"), kHBGeoPointMagneticVariationProperty},
        {QStringLiteral("link"), kHBGeoPointLinkProperty},
    };
    return keys;
}

std::optional<HBDecimal> asDecimal(const QVariant &value)
{
    if (!value.isValid())
        return std::nullopt;
    if (value.metaType() == QMetaType::fromType<HBDecimal>())
        return value.value<HBDecimal>();
    const HBDecimal parsed = HBDecimal::fromString(value.toString());
    return parsed.isNaN() ? std::nullopt : std::optional<HBDecimal>(parsed);
}

std::optional<qint64> asInteger(const QVariant &value)
{
    if (!value.isValid())
        return std::nullopt;
    return value.toLongLong();
}

} // namespace

int HBGeoPoint::slotOf(Attribute attribute)
{
    static const std::array<int, size_t(Attribute::Count)> slotByAttribute = [] {
        const HBEntityDescription *entity = HBTrackDataModel::model()->entityNamed(QStringLiteral("HBGeoPoint"));
        std::array<int, size_t(Attribute::Count)> found{};
        const char *names[] = {"latitude", "longitude", "elevation", "depth", "temperature", "wheelSensorDistance",
                               "date", "cadence", "heartRate", "wheelSensorIsPresent", "gpsComment", "name", "notes",
                               "sourceOfData", "localDate"};
        static_assert(std::size(names) == size_t(Attribute::Count));
        for (size_t i = 0; i < found.size(); ++i)
            found[i] = entity->propertyNamed(QLatin1String(names[i]))->index;
        return found;
    }();
    return slotByAttribute[size_t(attribute)];
}

std::optional<HBDecimal> HBGeoPoint::decimal(Attribute attribute) const
{
    return asDecimal(attributeValue(attribute));
}

void HBGeoPoint::setDecimal(const std::optional<HBDecimal> &value, Attribute attribute)
{
    setPrimitiveValue(slotOf(attribute), value && !value->isNaN() ? QVariant::fromValue(*value) : QVariant());
}

std::optional<qint64> HBGeoPoint::integer(Attribute attribute) const
{
    return asInteger(attributeValue(attribute));
}

void HBGeoPoint::setInteger(std::optional<qint64> value, Attribute attribute)
{
    setPrimitiveValue(slotOf(attribute), value ? QVariant::fromValue(*value) : QVariant());
}

void HBGeoPoint::setText(const QString &text, Attribute attribute)
{
    setPrimitiveValue(slotOf(attribute), text.isNull() ? QVariant() : QVariant(text));
}

QDateTime HBGeoPoint::date() const
{
    return attributeValue(Attribute::Date).toDateTime();
}

void HBGeoPoint::setDate(const QDateTime &date)
{
    const QDateTime utc = date.isValid() ? date.toUTC() : QDateTime();
    setPrimitiveValue(slotOf(Attribute::Date), utc.isValid() ? QVariant(utc) : QVariant());
    // the store of a point not yet saved is that of its date
    routingKeyDidChange(utc);
}

QDateTime HBGeoPoint::localDate() const
{
    const int slot = slotOf(Attribute::LocalDate);
    const QVariant cached = primitiveValue(slot);
    if (cached.isValid())
        return cached.toDateTime();
    const QDateTime instant = date();
    const HBManagedObject *zoneRecord = timeZone();
    if (!instant.isValid() || !zoneRecord)
        return {};
    const QTimeZone zone(zoneRecord->valueForKey(QStringLiteral("name")).toString().toUtf8());
    if (!zone.isValid())
        return {};
    const QDateTime local = instant.toTimeZone(zone);
    const_cast<HBGeoPoint *>(this)->setPrimitiveValue(slot, local, false);
    return local;
}

std::optional<bool> HBGeoPoint::wheelSensorIsPresent() const
{
    const QVariant v = attributeValue(Attribute::WheelSensorIsPresent);
    return v.isValid() ? std::optional<bool>(v.toBool()) : std::nullopt;
}

void HBGeoPoint::setWheelSensorIsPresent(std::optional<bool> value)
{
    setPrimitiveValue(slotOf(Attribute::WheelSensorIsPresent), value ? QVariant(*value) : QVariant());
}

HBGeoPointSymbol *HBGeoPoint::symbol() const
{
    // asked of every point an export writes
    static const HBPropertyDescription *const symbolProperty =
        HBTrackDataModel::model()->entityNamed(QStringLiteral("HBGeoPoint"))->propertyNamed(QStringLiteral("symbol"));
    return static_cast<HBGeoPointSymbol *>(objectForProperty(symbolProperty));
}

void HBGeoPoint::setSymbol(HBGeoPointSymbol *symbol)
{
    setObjectForKey(symbol, QStringLiteral("symbol"));
}

QString HBGeoPoint::symbolName() const
{
    const HBGeoPointSymbol *s = symbol();
    return s ? s->name() : QString();
}

void HBGeoPoint::setSymbolName(const QString &name)
{
    setSymbol(HBGeoPointSymbol::geoPointSymbolWithName(name, managedObjectContext()));
}

QPointF HBGeoPoint::point() const
{
    const std::optional<HBDecimal> x = longitude(), y = latitude();
    return QPointF(x ? x->toDouble() : 0.0, y ? y->toDouble() : 0.0);
}

void HBGeoPoint::setPoint(QPointF point)
{
    setLongitude(HBDecimal::fromDouble(point.x()));
    setLatitude(HBDecimal::fromDouble(point.y()));
}

namespace {

const HBAdditionsTable &additions()
{
    static const HBAdditionsTable table(QStringLiteral("HBGeoPointAdditions"), QStringLiteral("point"),
                                        QStringLiteral("additionalAttributes"));
    return table;
}

} // namespace

QVariant HBGeoPoint::fetchAdditionsTableValueForKey(const QString &key) const
{
    return additions().value(this, key);
}

void HBGeoPoint::setAdditionsTableValue(const QVariant &value, const QString &key)
{
    additions().setValue(this, value, key, HBAdditionsTable::NewRow::Linked);
}

QVariantList HBGeoPoint::fetchAdditionsTableValuesForKeys(const QStringList &keys) const
{
    return additions().values(this, keys);
}

std::optional<HBDecimal> HBGeoPoint::decimalFromAdditionsValue(const QVariant &value)
{
    return asDecimal(value);
}

std::optional<HBDecimal> HBGeoPoint::additionsDecimal(const QString &key) const
{
    return asDecimal(fetchAdditionsTableValueForKey(key));
}

void HBGeoPoint::setAdditionsDecimal(const std::optional<HBDecimal> &value, const QString &key)
{
    setAdditionsTableValue(value ? QVariant::fromValue(*value) : QVariant(), key);
}

std::optional<qint64> HBGeoPoint::additionsInteger(const QString &key) const
{
    return asInteger(fetchAdditionsTableValueForKey(key));
}

void HBGeoPoint::setAdditionsInteger(std::optional<qint64> value, const QString &key)
{
    setAdditionsTableValue(value ? QVariant::fromValue(*value) : QVariant(), key);
}

void HBGeoPoint::setAdditionsText(const QString &value, const QString &key)
{
    setAdditionsTableValue(value.isNull() ? QVariant() : QVariant(value), key);
}

QVariant HBGeoPoint::valueForUndefinedKey(const QString &key) const
{
    if (key == QLatin1String("point"))
        return point();
    if (key == QLatin1String("symbolName"))
        return symbolName();
    const auto derived = additionsKeyForDerivedKey().constFind(key);
    if (derived != additionsKeyForDerivedKey().constEnd())
        return fetchAdditionsTableValueForKey(*derived);
    return HBManagedObject::valueForUndefinedKey(key);
}
