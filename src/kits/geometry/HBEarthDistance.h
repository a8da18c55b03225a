#pragma once

// Geodesic distance in metres between (x1 = longitude, y1 = latitude) and
// (x2, y2), all in degrees, on the WGS84 ellipsoid. Accurate to round-off
// for every pair of positions, nearly antipodal ones and pairs across the
// antimeridian included. Allocates nothing, so track lengths over millions
// of points can call it once per pair of fixes.
double HBEarthDistance(double x1, double y1, double x2, double y2);
