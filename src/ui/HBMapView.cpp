#include "ui/HBMapView.h"

#include <QTransform>

#include <algorithm>

namespace {

double clampedScale(double metresPerPixel)
{
    return std::clamp(metresPerPixel, HBMapView::kMinMetresPerPixel, HBMapView::kMaxMetresPerPixel);
}

} // namespace

HBMapView::HBMapView(QPointF centre, double metresPerPixel)
    : m_centre(centre)
    , m_metresPerPixel(clampedScale(metresPerPixel))
{
}

QRectF HBMapView::mapRect(QSize viewSize) const
{
    const QSizeF size(viewSize.width() * m_metresPerPixel, viewSize.height() * m_metresPerPixel);
    QRectF rect(QPointF(), size);
    rect.moveCenter(m_centre);
    return rect;
}

QPointF HBMapView::toView(QPointF mapPoint, QSize viewSize) const
{
    return QPointF(viewSize.width() / 2.0 + (mapPoint.x() - m_centre.x()) / m_metresPerPixel,
                   viewSize.height() / 2.0 - (mapPoint.y() - m_centre.y()) / m_metresPerPixel);
}

QPointF HBMapView::toMap(QPointF viewPoint, QSize viewSize) const
{
    return QPointF(m_centre.x() + (viewPoint.x() - viewSize.width() / 2.0) * m_metresPerPixel,
                   m_centre.y() - (viewPoint.y() - viewSize.height() / 2.0) * m_metresPerPixel);
}

HBClippingRegion HBMapView::clippingRegion(QSize viewSize, double margin, double minSpacingPixels) const
{
    const double reach = margin * m_metresPerPixel;
    const QRectF rect = mapRect(viewSize).adjusted(-reach, -reach, reach, reach);
    QTransform transform;
    transform.translate(viewSize.width() / 2.0, viewSize.height() / 2.0);
    transform.scale(1 / m_metresPerPixel, -1 / m_metresPerPixel);
    transform.translate(-m_centre.x(), -m_centre.y());
    return HBClippingRegion(rect, transform, minSpacingPixels * m_metresPerPixel);
}

HBMapView HBMapView::panned(QPointF pixels) const
{
    return HBMapView(m_centre + QPointF(-pixels.x(), pixels.y()) * m_metresPerPixel, m_metresPerPixel);
}

HBMapView HBMapView::zoomed(double factor, QPointF viewPoint, QSize viewSize) const
{
    const QPointF anchor = toMap(viewPoint, viewSize);
    const double scale = clampedScale(m_metresPerPixel / factor);
    const QPointF offset(viewPoint.x() - viewSize.width() / 2.0, viewSize.height() / 2.0 - viewPoint.y());
    return HBMapView(anchor - offset * scale, scale);
}

HBMapView HBMapView::fitting(const QRectF &mapRect, QSize viewSize, double margin, double fallbackMetresPerPixel)
{
    const double width = std::max(1.0, viewSize.width() - 2 * margin);
    const double height = std::max(1.0, viewSize.height() - 2 * margin);
    const bool hasExtent = mapRect.width() > 0 || mapRect.height() > 0;
    const double scale =
        hasExtent ? std::max(mapRect.width() / width, mapRect.height() / height) : fallbackMetresPerPixel;
    return HBMapView(mapRect.center(), scale);
}
