#pragma once

#include <QImage>
#include <QString>

class HBMapView;
class QPainter;
class QSize;

// A picture of the Earth under the map, for a background that works
// offline: an equirectangular image (longitude -180 to 180 across, latitude
// 90 to -90 down), such as the one the xplanet-images package ships,
// reprojected once into the square Mercator world. Without the file the
// map shows the graticule alone.
class HBMapWorldImage
{
public:
    static QString defaultPath() { return QStringLiteral("/usr/share/xplanet/images/earth.jpg"); }

    // The image at path, reprojected; a null image when it cannot be read.
    explicit HBMapWorldImage(const QString &path = defaultPath());

    bool isNull() const { return m_mercator.isNull(); }
    // How much of the picture shows at a scale: it fades out as the view
    // zooms in past its detail, leaving the plain sea and the graticule.
    double opacityAt(double metresPerPixel) const;
    void draw(QPainter &painter, const HBMapView &view, QSize viewSize) const;

    // The square Mercator world of side pixels (north up, to 85.05 degrees)
    // from an equirectangular image, nearest pixel.
    static QImage mercatorFromEquirectangular(const QImage &image, int side);

private:
    QImage m_mercator;
};
