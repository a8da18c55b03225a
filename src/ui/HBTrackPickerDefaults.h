#pragma once

#include <QString>

// The picker window's user defaults.
// Ask before deleting one track or waypoint (default true).
inline const QString defaultShouldWarnTrackOrWaypointDeletion = QStringLiteral("defaultShouldWarnTrackOrWaypointDeletion");
// Ask before deleting what a source-list entry holds (default true).
inline const QString defaultShouldWarnSourceListDeletion = QStringLiteral("defaultShouldWarnSourceListDeletion");
// The folder the open panel starts in, the last one imported from (default
// the home folder).
inline const QString defaultTrackImportLocation = QStringLiteral("defaultTrackImportLocation");

class HBTrackPickerDefaults
{
public:
    // Registers the defaults above once; later calls do nothing.
    static void registerDefaults();
};
