#include "ui/HBTrackPickerDefaults.h"

#include "platform/HBUserDefaults.h"

#include <QDir>

void HBTrackPickerDefaults::registerDefaults()
{
    static const bool registered = [] {
        HBUserDefaults::standardUserDefaults().registerDefaults({{defaultShouldWarnTrackOrWaypointDeletion, true},
                                                                 {defaultShouldWarnSourceListDeletion, true},
                                                                 {defaultTrackImportLocation, QDir::homePath()}});
        return true;
    }();
    Q_UNUSED(registered);
}
