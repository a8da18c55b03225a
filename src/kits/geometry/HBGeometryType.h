#pragma once

#include <QtGlobal>

// The geometry type codes of ISO well-known binary for two-dimensional
// geometries; the kit knows the ones tracks and waypoints are made of.
enum HBGeometryType : quint32 {
    HBGeometryTypePoint = 1,
    HBGeometryTypeMultiPoint = 4,
};
