#include "ui/ImportProgressView.h"

#include <QPainter>

ImportProgressView::ImportProgressView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
}

// The whole strip is painted whatever part is dirty. The top line is two
// units tall and centred on the top edge, so that only its lower half shows.
void ImportProgressView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor::fromRgbF(0.84f, 0.87f, 0.90f, 1.0f));
    painter.fillRect(QRectF(0, -1, width(), 2), QColor::fromRgbF(0.65f, 0.65f, 0.65f, 1.0f));
}
