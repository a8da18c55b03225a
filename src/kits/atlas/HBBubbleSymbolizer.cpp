#include "kits/atlas/HBBubbleSymbolizer.h"

#include <QPainter>
#include <QPainterPath>
#include <QWidget>

namespace {

constexpr double kTail = 8;    // pixels from the offset up to the body
constexpr double kRadius = 6;  // of the body's corners
const QColor kBodyColor(0, 0, 0, 200);

} // namespace

HBBubbleSymbolizer::HBBubbleSymbolizer(std::unique_ptr<QWidget> view, const QVariant &representedObject)
    : m_view(std::move(view))
    , m_representedObject(representedObject)
{
}

HBBubbleSymbolizer::~HBBubbleSymbolizer() = default;

void HBBubbleSymbolizer::draw(QPainter &painter, const HBClippingRegion &, std::span<const QPointF>) const
{
    // the texts may have changed since the view was last laid out
    m_view->adjustSize();
    const QSizeF size = m_view->size();
    const QRectF body(m_offset.x() - size.width() / 2, m_offset.y() - kTail - size.height(), size.width(),
                      size.height());
    QPainterPath shape;
    shape.addRoundedRect(body, kRadius, kRadius);
    QPainterPath tail;
    tail.moveTo(m_offset);
    tail.lineTo(m_offset.x() - kTail, body.bottom());
    tail.lineTo(m_offset.x() + kTail, body.bottom());
    tail.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(kBodyColor);
    painter.drawPath(shape.united(tail));
    painter.restore();
    m_view->render(&painter, body.topLeft().toPoint(), QRegion(), QWidget::DrawChildren);
}
