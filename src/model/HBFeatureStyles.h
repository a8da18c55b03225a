#pragma once

#include "kits/geometry/HBGeometryType.h"

#include <functional>
#include <memory>

class HBManagedObject;
class HBSimplePointStyle;
class HBStyle;

// Who makes the map styles of tracks, segments and waypoints, and saves
// them. Styles draw, so they belong to the user-interface library
// (hbgpskit-ui), which installs itself here when it is loaded. In a program
// without it (hbgps) records have no style, and the style file a desktop
// host wrote for a record it deletes stays in the cache folder.
struct HBFeatureStyles
{
    // for a track or a waypoint
    std::function<std::shared_ptr<HBSimplePointStyle>(HBManagedObject *)> styleForObject;
    std::function<std::shared_ptr<HBStyle>(HBGeometryType)> styleForGeometry;
    std::function<void(HBSimplePointStyle &)> save;

    static void install(HBFeatureStyles styles);
    static const HBFeatureStyles &installed();

    // The style kept in slot for object, made first when there is none.
    static std::shared_ptr<HBSimplePointStyle> styleOf(HBManagedObject *object,
                                                       std::shared_ptr<HBSimplePointStyle> &slot);
    // What a record that was just deleted does with its style: saving it
    // removes its file.
    static void saveStyle(const std::shared_ptr<HBSimplePointStyle> &style);
};
