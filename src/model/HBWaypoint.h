#pragma once

#include "kits/geometry/HBSpatialObject.h"
#include "model/HBGeoPoint.h"

#include <QHash>
#include <QVariant>

#include <memory>

class HBPointGeometry;
class HBSimplePointStyle;
struct HBPropertyDescription;

// A named place. Waypoints stay in the central store with the tracks and
// are shown on the map as features of their own.
class HBWaypoint : public HBGeoPoint, public HBSpatialObject
{
public:
    // absent reads as 0
    qint64 order() const { return valueForKey(QStringLiteral("order")).toLongLong(); }
    void setOrder(qint64 order) { setValueForKey(QVariant::fromValue(order), QStringLiteral("order")); }

    // As a map feature.
    QString featureName() const { return name(); }
    QString featureDescription() const { return QStringLiteral("No Description."); }
    QString kind() const { return QStringLiteral("Waypoint"); }
    bool allowsInteraction() const { return true; }
    // Made from the position at first use and kept: moving the waypoint
    // later does not move it.
    std::shared_ptr<HBPointGeometry> geometry() const;
    // The attributes a feature inspector shows: "name" and "kind", both text.
    static QHash<QString, HBPropertyDescription> propertiesByName();
    // How the map draws the waypoint, made at first use (see
    // HBFeatureStyles) and kept; null in a program without the
    // user-interface library.
    std::shared_ptr<HBSimplePointStyle> style();
    void setStyle(std::shared_ptr<HBSimplePointStyle> style) { m_style = std::move(style); }

    // A deleted waypoint's style removes its file.
    void didSave() override;

    // Whoever shows the waypoint on a map may hang its own object here.
    QVariant objectOwner() const override { return m_objectOwner; }
    void setObjectOwner(const QVariant &owner) override { m_objectOwner = owner; }

private:
    mutable std::shared_ptr<HBPointGeometry> m_geometry;
    std::shared_ptr<HBSimplePointStyle> m_style;
    QVariant m_objectOwner;
};
