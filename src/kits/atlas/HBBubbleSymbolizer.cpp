#include "kits/atlas/HBBubbleSymbolizer.h"

#include <QPainter>
#include <QLayout>
#include <QPainterPath>
#include <QPixmap>
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
    // The texts may have changed since the view was last laid out, and a
    // view that is never shown is laid out only when asked.
    m_view->adjustSize();
    if (m_view->layout())
        m_view->layout()->activate();
    QPixmap contents(m_view->size());
    contents.fill(Qt::transparent);
    m_view->render(&contents, QPoint(), QRegion(), QWidget::DrawChildren);
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
    painter.drawPixmap(body.topLeft(), contents);
}
