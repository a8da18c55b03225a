#pragma once

#include "platform/HBDecimal.h"
#include "platform/store/HBManagedObject.h"

#include <QDateTime>
#include <QPointF>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

class HBGeoPointSymbol;
class HBManagedObjectContext;

// Keys of the rarer GPS quality fields, kept as extra-attribute rows of a
// point. Importers and the GPX writer share these texts.
inline const QString kHBGeoPointAgeOfGPSDataProperty = QStringLiteral("com.fernwick.ageofgpsdata");
inline const QString kHBGeoPointDGPSStationIDProperty = QStringLiteral("com.fernwick.dgpsid");
inline const QString kHBGeoPointHorizontalDilutionOfPrecisionProperty = QStringLiteral("com.fernwick.hdop");
inline const QString kHBGeoPointVerticalDilutionOfPrecisionProperty = QStringLiteral("com.fernwick.vdop");
inline const QString kHBGeoPointPositionDilutionOfPrecisionProperty = QStringLiteral("com.fernwick.pdop");
inline const QString kHBGeoPointNumberOfSatellitesProperty = QStringLiteral("com.fernwick.sat");
inline const QString kHBGeoPointFixTypeProperty = QStringLiteral("com.fernwick.fix");
inline const QString kHBGeoPointGeoidHeightProperty = QStringLiteral("com.fernwick.geoidheight");
inline const QString kHBGeoPointMagneticVariationProperty = QStringLiteral("com.fernwick.magvar");
inline const QString kHBGeoPointLinkProperty = QStringLiteral("com.fernwick.link");
inline const QString kHBTrackLinkProperty = QStringLiteral("com.fernwick.link");

// One measured or marked position: the common part of track points and
// waypoints. Every value is optional; an absent decimal reads as nullopt.
//
// A point is routed to its store file when it is inserted and again each
// time its date is set, since a track point's file follows its date until
// the point is first saved.
class HBGeoPoint : public HBManagedObject
{
public:
    std::optional<HBDecimal> latitude() const { return decimal(Attribute::Latitude); }
    std::optional<HBDecimal> longitude() const { return decimal(Attribute::Longitude); }
    std::optional<HBDecimal> elevation() const { return decimal(Attribute::Elevation); }
    // A not-a-number value is stored as absent.
    void setLatitude(const std::optional<HBDecimal> &value) { setDecimal(value, Attribute::Latitude); }
    void setLongitude(const std::optional<HBDecimal> &value) { setDecimal(value, Attribute::Longitude); }
    void setElevation(const std::optional<HBDecimal> &value) { setDecimal(value, Attribute::Elevation); }
    std::optional<HBDecimal> depth() const { return decimal(Attribute::Depth); }
    void setDepth(const std::optional<HBDecimal> &value) { setDecimal(value, Attribute::Depth); }
    std::optional<HBDecimal> temperature() const { return decimal(Attribute::Temperature); }
    void setTemperature(const std::optional<HBDecimal> &value) { setDecimal(value, Attribute::Temperature); }
    std::optional<HBDecimal> wheelSensorDistance() const { return decimal(Attribute::WheelSensorDistance); }
    void setWheelSensorDistance(const std::optional<HBDecimal> &value)
    {
        setDecimal(value, Attribute::WheelSensorDistance);
    }

    // The time of the fix, in UTC; invalid when there is none.
    QDateTime date() const;
    void setDate(const QDateTime &date);
    // The date in the point's own time zone, computed once and then kept,
    // even when the date or the zone change later.
    QDateTime localDate() const;

    std::optional<qint64> cadence() const { return integer(Attribute::Cadence); }
    void setCadence(std::optional<qint64> value) { setInteger(value, Attribute::Cadence); }
    std::optional<qint64> heartRate() const { return integer(Attribute::HeartRate); }
    void setHeartRate(std::optional<qint64> value) { setInteger(value, Attribute::HeartRate); }
    std::optional<bool> wheelSensorIsPresent() const;
    void setWheelSensorIsPresent(std::optional<bool> value);

    QString gpsComment() const { return attributeValue(Attribute::GpsComment).toString(); }
    void setGpsComment(const QString &text) { setText(text, Attribute::GpsComment); }
    QString name() const { return attributeValue(Attribute::Name).toString(); }
    void setName(const QString &text) { setText(text, Attribute::Name); }
    QString notes() const { return attributeValue(Attribute::Notes).toString(); }
    void setNotes(const QString &text) { setText(text, Attribute::Notes); }
    QString sourceOfData() const { return attributeValue(Attribute::SourceOfData).toString(); }
    void setSourceOfData(const QString &text) { setText(text, Attribute::SourceOfData); }

    HBGeoPointSymbol *symbol() const;
    void setSymbol(HBGeoPointSymbol *symbol);
    QString symbolName() const;
    // Shares the symbol of that name, making it on first use.
    void setSymbolName(const QString &name);
    // The time-zone record; its "name" is a zone identifier such as "Europe/Berlin".
    HBManagedObject *timeZone() const { return objectForKey(QStringLiteral("timeZone")); }
    void setTimeZone(HBManagedObject *zone) { setObjectForKey(zone, QStringLiteral("timeZone")); }

    // x = longitude, y = latitude, in degrees.
    QPointF point() const;
    void setPoint(QPointF point);

    // The extra attributes, one store fetch per access.
    std::optional<HBDecimal> ageOfGPSData() const { return additionsDecimal(kHBGeoPointAgeOfGPSDataProperty); }
    void setAgeOfGPSData(const std::optional<HBDecimal> &v) { setAdditionsDecimal(v, kHBGeoPointAgeOfGPSDataProperty); }
    std::optional<qint64> dgpsStationID() const { return additionsInteger(kHBGeoPointDGPSStationIDProperty); }
    void setDgpsStationID(std::optional<qint64> v) { setAdditionsInteger(v, kHBGeoPointDGPSStationIDProperty); }
    std::optional<HBDecimal> horizontalDilutionOfPrecision() const
    {
        return additionsDecimal(kHBGeoPointHorizontalDilutionOfPrecisionProperty);
    }
    void setHorizontalDilutionOfPrecision(const std::optional<HBDecimal> &v)
    {
        setAdditionsDecimal(v, kHBGeoPointHorizontalDilutionOfPrecisionProperty);
    }
    std::optional<HBDecimal> verticalDilutionOfPrecision() const
    {
        return additionsDecimal(kHBGeoPointVerticalDilutionOfPrecisionProperty);
    }
    void setVerticalDilutionOfPrecision(const std::optional<HBDecimal> &v)
    {
        setAdditionsDecimal(v, kHBGeoPointVerticalDilutionOfPrecisionProperty);
    }
    std::optional<HBDecimal> positionDilutionOfPrecision() const
    {
        return additionsDecimal(kHBGeoPointPositionDilutionOfPrecisionProperty);
    }
    void setPositionDilutionOfPrecision(const std::optional<HBDecimal> &v)
    {
        setAdditionsDecimal(v, kHBGeoPointPositionDilutionOfPrecisionProperty);
    }
    std::optional<qint64> numberOfSatellites() const { return additionsInteger(kHBGeoPointNumberOfSatellitesProperty); }
    void setNumberOfSatellites(std::optional<qint64> v) { setAdditionsInteger(v, kHBGeoPointNumberOfSatellitesProperty); }
    QString fixType() const { return fetchAdditionsTableValueForKey(kHBGeoPointFixTypeProperty).toString(); }
    void setFixType(const QString &v) { setAdditionsText(v, kHBGeoPointFixTypeProperty); }
    std::optional<HBDecimal> geoidHeight() const { return additionsDecimal(kHBGeoPointGeoidHeightProperty); }
    void setGeoidHeight(const std::optional<HBDecimal> &v) { setAdditionsDecimal(v, kHBGeoPointGeoidHeightProperty); }
    std::optional<HBDecimal> magneticVariation() const { return additionsDecimal(kHBGeoPointMagneticVariationProperty); }
    void setMagneticVariation(const std::optional<HBDecimal> &v)
    {
        setAdditionsDecimal(v, kHBGeoPointMagneticVariationProperty);
    }
    QString link() const { return fetchAdditionsTableValueForKey(kHBGeoPointLinkProperty).toString(); }
    void setLink(const QString &v) { setAdditionsText(v, kHBGeoPointLinkProperty); }

    // The value of the first extra-attribute row with the key, or an
    // invalid value. Writing keeps one row per key: the first row found is
    // overwritten (even with an absent value), else a row is made.
    QVariant fetchAdditionsTableValueForKey(const QString &key) const;
    // The same for several keys, in their order: a reader of many extra
    // attributes of many points (an export) looks at each point's rows once.
    QVariantList fetchAdditionsTableValuesForKeys(const QStringList &keys) const;
    // An extra attribute's value as the decimal getters give it.
    static std::optional<HBDecimal> decimalFromAdditionsValue(const QVariant &value);
    void setAdditionsTableValue(const QVariant &value, const QString &key);


protected:
    QVariant valueForUndefinedKey(const QString &key) const override;

private:
    // The stored attributes, read and written by slot: points come by the
    // million, and a lookup by name for each value would show.
    enum class Attribute {
        Latitude, Longitude, Elevation, Depth, Temperature, WheelSensorDistance, Date, Cadence, HeartRate,
        WheelSensorIsPresent, GpsComment, Name, Notes, SourceOfData, LocalDate, Count
    };
    static int slotOf(Attribute attribute);
    QVariant attributeValue(Attribute attribute) const { return primitiveValue(slotOf(attribute)); }
    std::optional<HBDecimal> decimal(Attribute attribute) const;
    void setDecimal(const std::optional<HBDecimal> &value, Attribute attribute);
    std::optional<qint64> integer(Attribute attribute) const;
    void setInteger(std::optional<qint64> value, Attribute attribute);
    void setText(const QString &text, Attribute attribute);
    std::optional<HBDecimal> additionsDecimal(const QString &key) const;
    void setAdditionsDecimal(const std::optional<HBDecimal> &value, const QString &key);
    std::optional<qint64> additionsInteger(const QString &key) const;
    void setAdditionsInteger(std::optional<qint64> value, const QString &key);
    void setAdditionsText(const QString &value, const QString &key);
};
