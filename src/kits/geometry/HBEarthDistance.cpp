#include "kits/geometry/HBEarthDistance.h"

#include <GeographicLib/Geodesic.hpp>

double HBEarthDistance(double x1, double y1, double x2, double y2)
{
    // Receivers standing still log run after run of identical fixes; they
    // need no geodesic solution.
    if (x1 == x2 && y1 == y2)
        return 0.0;

    double metres = 0.0;
    GeographicLib::Geodesic::WGS84().Inverse(y1, x1, y2, x2, metres);
    return metres;
}
