#pragma once

#include "kits/atlas/HBSymbolizer.h"

#include <QVariant>

#include <memory>

class QWidget;

// A small information bubble drawn over the map with its tail at offset (a
// view point): a dark rounded body holding a view made from an interface
// file, which shows the represented object. What a bubble shows is the
// state of a moment, so bubbles are never archived.
class HBBubbleSymbolizer : public HBSymbolizer
{
    Q_OBJECT

public:
    // view: the bubble's contents, owned by the bubble from here on
    HBBubbleSymbolizer(std::unique_ptr<QWidget> view, const QVariant &representedObject);
    ~HBBubbleSymbolizer() override;

    QWidget *view() const { return m_view.get(); }
    QVariant representedObject() const { return m_representedObject; }
    virtual void setRepresentedObject(const QVariant &object) { m_representedObject = object; }
    QPointF offset() const { return m_offset; }
    void setOffset(QPointF viewPoint) { m_offset = viewPoint; }

    bool isOverlay() const override { return true; }
    // Draws at the offset, whatever the points.
    void draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const override;

private:
    std::unique_ptr<QWidget> m_view;
    QVariant m_representedObject;
    QPointF m_offset;
};
