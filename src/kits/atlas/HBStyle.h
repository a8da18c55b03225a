#pragma once

#include "kits/geometry/HBGeometryType.h"

#include <QList>
#include <QObject>
#include <QPointF>

#include <memory>
#include <span>

class HBClippingRegion;
class HBRule;
class QDataStream;
class QPainter;

// The map events a style takes, as bits of spatialObjectEventOptions.
// Clicks are left to the map, which selects what is clicked.
enum HBSpatialObjectEvent : unsigned {
    HBSpatialObjectMouseEnteredAndExited = 0x2,
    HBSpatialObjectMouseMoved = 0x4,
};

// How a map draws one object: rules of symbolizers, drawn in order, the
// last rule being the one a style adds to. A style watches its symbolizers
// and hears of every change of what they archive in observeValueForKeyPath,
// which subclasses extend.
//
// Archives: "HBST", a format version, then the rules, each with its
// symbolizers' kinds and records (QDataStream, Qt 6.0 encoding). Records
// carry versions of their own and only ever gain values at their end; the
// format version changes only when older programs could not read the rest,
// and they refuse it.
class HBStyle : public QObject
{
    Q_OBJECT

public:
    HBStyle();
    ~HBStyle() override;

    // A style that draws every point of a geometry of the type with a point
    // symbolizer in its defaults.
    static std::shared_ptr<HBStyle> styleForGeometry(HBGeometryType type);

    const QList<std::shared_ptr<HBRule>> &rules() const { return m_rules; }
    void addRule(std::shared_ptr<HBRule> rule);

    // The events the map should send; none for a plain style.
    virtual unsigned spatialObjectEventOptions() const { return 0; }

    // points: the object's geometry in the map's projection; overlays last
    // (see HBSymbolizer::isOverlay)
    void draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const;

    void encodeWithCoder(QDataStream &stream) const;
    // Replaces the rules by the archived ones; false, leaving the style as
    // it was, for data that is not an archive this program can read.
    bool decodeWithCoder(QDataStream &stream);

signals:
    // Something the style draws with has changed: time to redraw.
    void changed();

protected:
    // keyPath: the name of the value that changed; object: its symbolizer
    virtual void observeValueForKeyPath(const QString &keyPath, QObject *object);

private:
    QList<std::shared_ptr<HBRule>> m_rules;
};
