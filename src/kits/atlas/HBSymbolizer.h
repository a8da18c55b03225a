#pragma once

#include <QObject>
#include <QPointF>

#include <span>

class HBClippingRegion;
class QDataStream;
class QPainter;

// One way of drawing a geometry; a rule draws its symbolizers in order.
// A symbolizer says when one of the values it archives changes, so that
// a style can keep its archive up to date; values of the moment (where a
// bubble points) change silently.
class HBSymbolizer : public QObject
{
    Q_OBJECT

public:
    // points: in map coordinates, drawn where the region shows them
    virtual void draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const = 0;

    // The name an archive knows this kind of symbolizer by, and its values;
    // kinds with no name are never archived.
    virtual QString archiveKind() const { return {}; }
    // Overlays (bubbles) are drawn above every other symbolizer of their
    // style, wherever their rule holds them.
    virtual bool isOverlay() const { return false; }
    virtual void encodeWithCoder(QDataStream &) const {}

signals:
    void changed(const QString &keyPath);
};
