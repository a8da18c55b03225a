#pragma once

#include "kits/geometry/HBSpatialObject.h"
#include "platform/store/HBManagedObject.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QRectF>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

class HBSimplePointStyle;
class HBTrackGeometry;
class HBTrackSegment;
struct HBPropertyDescription;

// A recorded track: ordered segments of ordered points, with statistics
// summed from its segments and a map geometry kept on disk per spatial
// reference, so that a map opens without loading every track's points.
//
// Statistics follow structural edits only: setSegments, insertObject and
// removeObjectFromSegmentsAtIndex end by recalculating. An importer builds
// each segment's points first (setPoints) and then the track's segments.
class HBTrack : public HBManagedObject, public HBSpatialObject
{
public:
    QString name() const { return valueForKey(QStringLiteral("name")).toString(); }
    void setName(const QString &name) { setValueForKey(name, QStringLiteral("name")); }
    QString notes() const { return valueForKey(QStringLiteral("notes")).toString(); }
    void setNotes(const QString &notes) { setValueForKey(notes, QStringLiteral("notes")); }
    QString gpsComment() const { return valueForKey(QStringLiteral("gpsComment")).toString(); }
    void setGpsComment(const QString &comment) { setValueForKey(comment, QStringLiteral("gpsComment")); }
    std::optional<qint64> cadence() const { return optionalInteger(QStringLiteral("cadence")); }
    void setCadence(std::optional<qint64> v) { setOptionalInteger(v, QStringLiteral("cadence")); }
    std::optional<qint64> calories() const { return optionalInteger(QStringLiteral("calories")); }
    void setCalories(std::optional<qint64> v) { setOptionalInteger(v, QStringLiteral("calories")); }
    // metres
    std::optional<double> distance() const;
    // seconds from start to end; absent when either is
    std::optional<double> duration() const;
    qint64 numberOfTrackPoints() const { return valueForKey(QStringLiteral("numberOfTrackPoints")).toLongLong(); }
    QDateTime startDate() const { return valueForKey(QStringLiteral("startDate")).toDateTime(); }
    QDateTime endDate() const { return valueForKey(QStringLiteral("endDate")).toDateTime(); }
    // absent reads 0
    qint64 order() const { return valueForKey(QStringLiteral("order")).toLongLong(); }
    void setOrder(qint64 order) { setValueForKey(QVariant::fromValue(order), QStringLiteral("order")); }
    HBManagedObject *importSource() const { return objectForKey(QStringLiteral("importSource")); }
    void setImportSource(HBManagedObject *source) { setObjectForKey(source, QStringLiteral("importSource")); }
    HBManagedObject *event() const { return objectForKey(QStringLiteral("event")); }
    void setEvent(HBManagedObject *event) { setObjectForKey(event, QStringLiteral("event")); }

    // The segments by their order.
    QList<HBTrackSegment *> segments() const;
    // Numbers the segments from 0 and makes them the track's.
    void setSegments(const QList<HBTrackSegment *> &segments);
    qsizetype countOfSegments() const;
    HBTrackSegment *objectInSegmentsAtIndex(qsizetype index) const;
    void insertObject(HBTrackSegment *segment, qsizetype index);
    void removeObjectFromSegmentsAtIndex(qsizetype index);
    void addSegment(HBTrackSegment *segment) { insertObject(segment, countOfSegments()); }
    void removeSegment(HBTrackSegment *segment);

    void recalculateAttributes();
    // (min longitude, min latitude) and the extent of the segments' bounds,
    // degrees; absent bounds count as 0.
    QRectF bounds() const;

    // The track's type shares its extra-attribute key with links. Setting
    // it where the track has no row yet adds a row that names no track, so
    // it reads back nothing; stores hold such rows, and this stays as it is.
    QString type() const;
    void setType(const QString &type);
    QVariant fetchAdditionsTableValueForKey(const QString &key) const;
    void setAdditionsTableValue(const QVariant &value, const QString &key);

    // A new geometry from the located points of every segment.
    std::shared_ptr<HBTrackGeometry> primitiveTrackGeometry();
    // The kept geometry, else the cached one, else one built from points.
    std::shared_ptr<HBTrackGeometry> geometry();
    void setGeometry(std::shared_ptr<HBTrackGeometry> geometry);
    // How the map draws the track, made at first use (see HBFeatureStyles)
    // and kept; null in a program without the user-interface library.
    std::shared_ptr<HBSimplePointStyle> style();
    void setStyle(std::shared_ptr<HBSimplePointStyle> style) { m_style = std::move(style); }
    QVariant objectOwner() const override { return m_objectOwner; }
    void setObjectOwner(const QVariant &owner) override { m_objectOwner = owner; }

    // As a map feature.
    QString featureName() const { return name(); }
    QString featureDescription() const { return QStringLiteral("No Description."); }
    QString kind() const { return QStringLiteral("Track"); }
    bool allowsInteraction() const { return true; }
    static QHash<QString, HBPropertyDescription> propertiesByName();

    // The geometry cache: "<cache folder>/<store>/GeometryProjections/<srid>/<pN>",
    // well-known binary per spatial reference. Nothing for a track that
    // has a temporary ID.
    QByteArray cachedWKBData() const;
    QByteArray cachedWKBDataForSRID(qint64 srid) const;
    QString unprojectedGeometryCachePath() const;
    QString geometryCachePathForSRID(qint64 srid) const;
    QStringList existingGeometryCachePaths() const;
    QStringList existingProjectedGeometryCachePaths() const;
    void clearExistingGeometryCachePaths() const;

    void didSave() override;

    // The relationships a track's fetch loads ahead, in order.
    static const QStringList &prefetchKeyPaths();

private:
    std::optional<qint64> optionalInteger(const QString &key) const;
    void setOptionalInteger(std::optional<qint64> value, const QString &key);
    QString projectionsFolder() const;
    QString cacheFileName() const;
    void writeGeometryCache();

    std::shared_ptr<HBTrackGeometry> m_geometry;
    std::shared_ptr<HBSimplePointStyle> m_style;
    QVariant m_objectOwner;
};
