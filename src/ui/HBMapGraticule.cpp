#include "ui/HBMapGraticule.h"

#include "ui/HBMapView.h"

#include <QPainter>

#include <cmath>
#include <numbers>

namespace {

// The closed form of the spherical Mercator that EPSG:3857 is: the
// graticule needs it both ways for every line and label it draws.
constexpr double kEarthRadius = 6378137.0;       // metres
constexpr double kMaxLatitude = 85.0511287798;   // degrees, the edge of the square world
constexpr double kMinLinePixels = 100;
const QColor kVoid(0x2b, 0x30, 0x38);
const QColor kSea(0xdd, 0xe6, 0xee);
const QColor kLine(0x9a, 0xab, 0xbd, 160);
const QColor kLabel(0x2a, 0x36, 0x42);
const QColor kLabelOutline(255, 255, 255, 180);

double radians(double degrees) { return degrees * std::numbers::pi / 180; }
double degrees(double radians) { return radians * 180 / std::numbers::pi; }

// Dark text on a light outline, readable on the sea, the land and tiles.
void drawLabel(QPainter &painter, QPointF baseline, const QString &text)
{
    painter.setPen(kLabelOutline);
    for (QPointF offset : {QPointF(-1, 0), QPointF(1, 0), QPointF(0, -1), QPointF(0, 1)})
        painter.drawText(baseline + offset, text);
    painter.setPen(kLabel);
    painter.drawText(baseline, text);
}

int decimalsOf(double step)
{
    return step >= 1 ? 0 : int(std::ceil(-std::log10(step) - 1e-9));
}

} // namespace

QPointF HBMapGraticule::mercatorFromLonLat(QPointF lonLat)
{
    const double lat = std::clamp(lonLat.y(), -kMaxLatitude, kMaxLatitude);
    return QPointF(kEarthRadius * radians(lonLat.x()),
                   kEarthRadius * std::log(std::tan(std::numbers::pi / 4 + radians(lat) / 2)));
}

QPointF HBMapGraticule::lonLatFromMercator(QPointF mercator)
{
    return QPointF(degrees(mercator.x() / kEarthRadius),
                   degrees(2 * std::atan(std::exp(mercator.y() / kEarthRadius)) - std::numbers::pi / 2));
}

double HBMapGraticule::stepForScale(double metresPerPixel, double minPixels)
{
    const double minDegrees = degrees(minPixels * metresPerPixel / kEarthRadius);
    for (double decade = 1e-5; decade < 100; decade *= 10) {
        for (double m : {1.0, 2.0, 5.0}) {
            if (m * decade >= minDegrees && m * decade < 10)
                return m * decade;
        }
    }
    for (double step : {10.0, 15.0, 30.0, 45.0}) {
        if (step >= minDegrees)
            return step;
    }
    return 90;
}

QString HBMapGraticule::label(double value, bool isLatitude, double step)
{
    const double rounded = std::round(value / step) * step;
    const QString number = QString::number(std::abs(rounded), 'f', decimalsOf(step));
    if (std::abs(rounded) < step / 2)
        return number + QStringLiteral("°");
    const QChar hemisphere = isLatitude ? (rounded > 0 ? u'N' : u'S') : (rounded > 0 ? u'E' : u'W');
    return number + QStringLiteral("°") + hemisphere;
}

namespace {

QRectF worldInView(const HBMapView &view, QSize viewSize)
{
    const double half = HBMapView::kWorldHalf;
    return QRectF(view.toView(QPointF(-half, half), viewSize), view.toView(QPointF(half, -half), viewSize));
}

} // namespace

void HBMapGraticule::drawBackground(QPainter &painter, const HBMapView &view, QSize viewSize) const
{
    painter.fillRect(QRect(QPoint(), viewSize), kVoid);
    painter.fillRect(worldInView(view, viewSize), kSea);
}

void HBMapGraticule::drawLines(QPainter &painter, const HBMapView &view, QSize viewSize) const
{
    const QRectF world = worldInView(view, viewSize);
    const double step = stepForScale(view.metresPerPixel(), kMinLinePixels);
    const QRectF shown = view.mapRect(viewSize);
    const QPointF low = lonLatFromMercator(shown.topLeft());
    const QPointF high = lonLatFromMercator(shown.bottomRight());
    painter.save();
    QFont font = painter.font();
    font.setPointSizeF(8);
    painter.setFont(font);
    for (double lon = std::ceil(std::max(low.x(), -180.0) / step) * step; lon <= std::min(high.x(), 180.0);
         lon += step) {
        const double x = view.toView(mercatorFromLonLat(QPointF(lon, 0)), viewSize).x();
        painter.setPen(kLine);
        painter.drawLine(QLineF(x, std::max(0.0, world.top()), x, std::min<double>(viewSize.height(), world.bottom())));
        drawLabel(painter, QPointF(x + 3, viewSize.height() - 4), label(lon, false, step));
    }
    for (double lat = std::ceil(std::max(low.y(), -kMaxLatitude) / step) * step; lat <= std::min(high.y(), kMaxLatitude);
         lat += step) {
        const double y = view.toView(mercatorFromLonLat(QPointF(0, lat)), viewSize).y();
        painter.setPen(kLine);
        painter.drawLine(QLineF(std::max(0.0, world.left()), y, std::min<double>(viewSize.width(), world.right()), y));
        drawLabel(painter, QPointF(4, y - 3), label(lat, true, step));
    }
    painter.restore();
}
