#include "ui/HBTrackSourceDetailView.h"

#include <QPainter>

HBTrackSourceDetailView::HBTrackSourceDetailView(QWidget *parent)
    : QWidget(parent)
{
    // hue in fractions of a full turn, then saturation, value, alpha
    m_gradient.setCoordinateMode(QGradient::ObjectMode);
    m_gradient.setStart(0, 1);   // the first stop along the bottom edge
    m_gradient.setFinalStop(0, 0);
    m_gradient.setColorAt(0.0, QColor::fromHsvF(220.0f / 360, 0.18f, 0.59f, 1.0f));
    m_gradient.setColorAt(0.9, QColor::fromHsvF(222.0f / 360, 0.20f, 0.47f, 1.0f));
    m_gradient.setColorAt(1.0, QColor::fromHsvF(217.0f / 360, 0.21f, 0.30f, 1.0f));
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void HBTrackSourceDetailView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), m_gradient);
}
