#include "kits/atlas/HBPointSymbolizer.h"

#include "kits/atlas/HBClippingRegion.h"

#include <QDataStream>
#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <vector>

namespace {

// Record versions: a later version only appends values, so that every
// version reads the values it knows from any record.
constexpr quint16 kRecordVersion = 1;
// Side of the cells of the view that take one stamp of a symbol each,
// pixels, and how far beyond the view the cells reach.
constexpr int kCell = 2;
constexpr int kGridMargin = 32;

QPainterPath outline(int type, double r)
{
    QPainterPath path;
    switch (type) {
    case HBPointSymbolizer::Square:
        path.addRect(-r, -r, 2 * r, 2 * r);
        break;
    case HBPointSymbolizer::Diamond:
        path.moveTo(0, -r);
        path.lineTo(r, 0);
        path.lineTo(0, r);
        path.lineTo(-r, 0);
        path.closeSubpath();
        break;
    case HBPointSymbolizer::Triangle:
        path.moveTo(0, -r);
        path.lineTo(r * std::sqrt(3.0) / 2, r / 2);
        path.lineTo(-r * std::sqrt(3.0) / 2, r / 2);
        path.closeSubpath();
        break;
    default:
        path.addEllipse(QPointF(), r, r);
        break;
    }
    return path;
}

} // namespace

template<typename T>
void HBPointSymbolizer::setValue(T &field, const T &value, const char *keyPath)
{
    if (field == value)
        return;
    field = value;
    m_symbolImage = QImage();
    emit changed(QString::fromLatin1(keyPath));
}

void HBPointSymbolizer::setSymbolType(int type)
{
    setValue(m_symbolType, type, "symbolType");
}

void HBPointSymbolizer::setSymbolSize(float size)
{
    setValue(m_symbolSize, size, "symbolSize");
}

void HBPointSymbolizer::setFillColor(const QColor &color)
{
    setValue(m_fillColor, color, "fillColor");
}

void HBPointSymbolizer::setStrokeColor(const QColor &color)
{
    setValue(m_strokeColor, color, "strokeColor");
}

void HBPointSymbolizer::setStrokeWidth(float width)
{
    setValue(m_strokeWidth, width, "strokeWidth");
}

QImage HBPointSymbolizer::symbolImage() const
{
    if (!m_symbolImage.isNull())
        return m_symbolImage;
    const double reach = std::max(0.0f, m_symbolSize) + std::max(0.0f, m_strokeWidth) / 2;
    const int side = 2 * int(std::ceil(reach)) + 2;
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(side / 2.0, side / 2.0);
    painter.setPen(m_strokeWidth > 0 ? QPen(m_strokeColor, m_strokeWidth) : QPen(Qt::NoPen));
    painter.setBrush(m_fillColor);
    painter.drawPath(outline(m_symbolType, m_symbolSize));
    if (m_symbolType == Waypoint) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_strokeColor);
        painter.drawEllipse(QPointF(), m_symbolSize / 5.0, m_symbolSize / 5.0);
    }
    m_symbolImage = image;
    return m_symbolImage;
}

void HBPointSymbolizer::draw(QPainter &painter, const HBClippingRegion &region, std::span<const QPointF> points) const
{
    const QImage symbol = symbolImage();
    const QPointF centre(symbol.width() / 2.0, symbol.height() / 2.0);
    // A track that passes the same place many times would stamp its symbol
    // on itself thousands of times: one stamp per cell of the view is what
    // shows, and the cells are smaller than a symbol.
    const QRect view = painter.device() ? QRect(0, 0, painter.device()->width(), painter.device()->height()) : QRect();
    const QRect grid = view.adjusted(-kGridMargin, -kGridMargin, kGridMargin, kGridMargin);
    const int columns = grid.width() / kCell + 1;
    std::vector<bool> stamped(size_t(columns) * size_t(grid.height() / kCell + 1));
    region.forEachDrawnPoint(points.data(), quint32(points.size()), [&](quint32, QPointF viewPoint) {
        const QPoint at = viewPoint.toPoint();
        if (grid.contains(at)) {
            const size_t cell = size_t((at.y() - grid.top()) / kCell) * columns + (at.x() - grid.left()) / kCell;
            if (stamped[cell])
                return;
            stamped[cell] = true;
        }
        painter.drawImage(viewPoint - centre, symbol);
    });
}

void HBPointSymbolizer::encodeWithCoder(QDataStream &stream) const
{
    stream << kRecordVersion << qint32(m_symbolType) << m_symbolSize << m_fillColor << m_strokeColor << m_strokeWidth;
}

std::shared_ptr<HBPointSymbolizer> HBPointSymbolizer::decode(QDataStream &stream)
{
    quint16 version = 0;
    qint32 type = 0;
    auto symbolizer = std::make_shared<HBPointSymbolizer>();
    stream >> version >> type >> symbolizer->m_symbolSize >> symbolizer->m_fillColor >> symbolizer->m_strokeColor
        >> symbolizer->m_strokeWidth;
    if (stream.status() != QDataStream::Ok || version < 1)
        return nullptr;
    symbolizer->m_symbolType = type;
    return symbolizer;
}
