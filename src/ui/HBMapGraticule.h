#pragma once

#include <QPointF>
#include <QString>

class HBMapView;
class QPainter;
class QSize;

// The offline background of the map: the Mercator world as a sea-coloured
// square on a darker void (under the world image, when there is one), and
// lines of latitude and longitude at a round
// step that keeps them about 100 pixels or more apart, labelled in degrees
// along the view's left and bottom edges.
class HBMapGraticule
{
public:
    // The void and the sea, to draw first.
    void drawBackground(QPainter &painter, const HBMapView &view, QSize viewSize) const;
    // The lines and their labels, over whatever the map shows below them.
    void drawLines(QPainter &painter, const HBMapView &view, QSize viewSize) const;

    // The step in degrees for a view of metresPerPixel: the smallest round
    // step (1, 2 or 5 times a power of ten, or 15, 30, 45, 90) whose lines
    // of longitude are at least minPixels apart; 90 at most.
    static double stepForScale(double metresPerPixel, double minPixels);
    // "12.5°E", "0°", "45°S": degrees of longitude (isLatitude false) or latitude.
    static QString label(double degrees, bool isLatitude, double step);

    // Web Mercator of geographic coordinates (x = longitude, y = latitude,
    // degrees) and back, in metres.
    static QPointF mercatorFromLonLat(QPointF lonLat);
    static QPointF lonLatFromMercator(QPointF mercator);
};
