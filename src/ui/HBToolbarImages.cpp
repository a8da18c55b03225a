#include "ui/HBToolbarImages.h"

#include <QPainter>
#include <QPainterPath>

QIcon HBToolbarImages::imageNamed(const QString &name)
{
    if (name != QLatin1String("24-zoom-fill"))
        return {};
    QIcon icon;
    for (qreal ratio : {1.0, 2.0})
        icon.addPixmap(zoomFill(ratio));
    return icon;
}

// Drawn on a 24 x 24 grid: corner marks 2 units from the edges, the lens
// centred a little up and left, its handle toward the lower right corner.
QPixmap HBToolbarImages::zoomFill(qreal devicePixelRatio)
{
    QPixmap pixmap(QSize(24, 24) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor ink(0x3c, 0x3f, 0x44);
    painter.setPen(QPen(ink, 2.0, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    QPainterPath corners;
    for (const auto &[x, y, dx, dy] : {std::tuple(3, 3, 1, 1), std::tuple(21, 3, -1, 1), std::tuple(3, 21, 1, -1),
                                       std::tuple(21, 21, -1, -1)}) {
        corners.moveTo(x, y + 5 * dy);
        corners.lineTo(x, y);
        corners.lineTo(x + 5 * dx, y);
    }
    painter.drawPath(corners);
    painter.setPen(QPen(ink, 2.0));
    painter.setBrush(QColor(0x9c, 0xc3, 0xe8));
    painter.drawEllipse(QPointF(10.5, 10.5), 4.5, 4.5);
    painter.setPen(QPen(ink, 3.0, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(14.0, 14.0), QPointF(17.5, 17.5));
    return pixmap;
}
