#pragma once

#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QUrl>
#include <QVariant>

#include <functional>
#include <future>
#include <memory>
#include <optional>

class HBMultiPointGeometry;
class HBStyle;
class HBTrack;
class HBTrackPoint;
class HBTrackSegmentPointURIs;
struct HBPropertyDescription;

// An ordered run of track points. The segment lives in the central store
// and its points in the files of their periods, so it keeps them as an
// ordered list of point URIs in a record of its own, rewritten after every
// edit together with the statistics (distance, point count, dates, bounds).
//
// Unloaded, a segment answers its point count from the stored statistics;
// the points are loaded with one fetch on first use of points().
class HBTrackSegment : public HBManagedObject
{
public:
    // position in the track, from 0
    std::optional<qint64> order() const;
    void setOrder(std::optional<qint64> order);
    // metres along the located points. A long segment's distance is
    // measured aside after its points change: this and every save wait for
    // it, while valueForKey("distance") gives the value before until then.
    double distance() const;
    qint64 numberOfTrackPoints() const { return valueForKey(QStringLiteral("numberOfTrackPoints")).toLongLong(); }
    QDateTime startDate() const { return valueForKey(QStringLiteral("startDate")).toDateTime(); }
    QDateTime endDate() const { return valueForKey(QStringLiteral("endDate")).toDateTime(); }
    // degrees; absent while no point is located
    std::optional<double> minLatitude() const { return optionalDouble(QStringLiteral("minLatitude")); }
    std::optional<double> maxLatitude() const { return optionalDouble(QStringLiteral("maxLatitude")); }
    std::optional<double> minLongitude() const { return optionalDouble(QStringLiteral("minLongitude")); }
    std::optional<double> maxLongitude() const { return optionalDouble(QStringLiteral("maxLongitude")); }
    HBTrack *track() const;
    HBTrackSegmentPointURIs *trackPointURIs() const;

    // The points in order, loaded on first use.
    QList<HBTrackPoint *> points();
    // Takes the list as the segment's points (numbering them from 0); the
    // points it had before are deleted from their stores.
    void setPoints(const QList<HBTrackPoint *> &points);
    qsizetype countOfPoints() const;
    HBTrackPoint *objectInPointsAtIndex(qsizetype index);
    // Every point after the inserted one gets the same order, index + 1.
    void insertObject(HBTrackPoint *point, qsizetype index);
    void removeObjectFromPointsAtIndex(qsizetype index);
    void addPoint(HBTrackPoint *point) { insertObject(point, countOfPoints()); }
    void removePoint(HBTrackPoint *point);
    bool pointsAreLoaded() const { return m_pointsLoaded; }
    // Starts reading the points' rows on a thread of their own, for a
    // caller about to work through several segments: it asks the next
    // segment to read ahead, then loads this one's points.
    void readAheadPoints() const;

    // The points named by the URI list, ordered by their order.
    QList<HBTrackPoint *> fetchPoints() const;
    // The IDs the URI list names, in its order, without those that name no
    // record a store of this context's coordinator could hold.
    QList<HBManagedObjectID> pointIDs() const;
    // The point at the index of the URI list, without loading the others.
    HBTrackPoint *fetchPointAtIndex(qsizetype index) const;
    void saveTrackPointURIs();
    void recalculateAttributes();
    // The URI text of the segment's object ID, which each of its points
    // stores: made once per ID rather than once per point saved.
    QString uriString() const;

    // Sends the points to background deletion and drops the URI list.
    void deletePointsFromStore(const QList<HBTrackPoint *> &points);
    void deleteAllPointsFromStore();
    // Who takes points out of the store files for a segment that no longer
    // holds them, without the segment waiting: the points live in files of
    // their own, which whoever laid the stores out knows (the track
    // manager); without it the points stay where they are.
    struct PointRemoval
    {
        std::function<void(const QList<HBManagedObjectID> &)> withIDs;
        std::function<void(const QList<QUrl> &)> withURIs;
    };
    static void setPointRemoval(PointRemoval removal);

    // As a map feature.
    QString featureName() const;
    QString featureDescription() const { return QStringLiteral("No Description."); }
    QString kind() const { return QStringLiteral("Track Segment"); }
    bool allowsInteraction() const { return true; }
    static QHash<QString, HBPropertyDescription> propertiesByName();
    // Made from the points at first use (a point without a position counts
    // as (0, 0)) and kept.
    std::shared_ptr<HBMultiPointGeometry> geometry();
    // The plain style of its geometry, made at first use and kept; null in
    // a program without the user-interface library (see HBFeatureStyles).
    std::shared_ptr<HBStyle> style();
    void setStyle(std::shared_ptr<HBStyle> style) { m_style = std::move(style); }
    QVariant objectOwner() const { return m_objectOwner; }
    void setObjectOwner(const QVariant &owner) { m_objectOwner = owner; }

    void willSave() override;

private:
    std::optional<double> optionalDouble(const QString &key) const;
    void dropPointURIs();

    std::optional<HBFetchRequest> pointsFetchRequest() const;

    QList<HBTrackPoint *> m_pointCache;
    bool m_pointsLoaded = false;
    // the fetch a read-ahead was started for, until the points are loaded
    mutable std::optional<HBFetchRequest> m_pointsRequest;
    std::shared_ptr<HBMultiPointGeometry> m_geometry;
    std::shared_ptr<HBStyle> m_style;
    QVariant m_objectOwner;
    mutable HBManagedObjectID m_uriStringID;
    mutable QString m_uriString;
    // The distance of a long segment is measured on another thread while
    // the caller goes on (an import reads the next segment meanwhile), and
    // settled into the attribute when it is asked for and before any save.
    void settleDistance() const;
    mutable std::future<double> m_pendingDistance;
};
