#pragma once

#include <QString>

class HBManagedObjectModel;

// The library's data model: points, waypoints, symbols and their extra
// attributes, tracks, segments and their point lists, import sources,
// events, time zones and the bonus table, with the configuration
// "PointOnly" that the per-period point files are opened with.
namespace HBTrackDataModel {

// Built on first use, then shared read-only for the life of the process.
const HBManagedObjectModel *model();

// Where records keep what can be made again from the stores (a track's
// geometry per projection): "<Caches>/Fernwick/TrackManagerDatabase", made
// on first call.
QString cacheFolder();

}
