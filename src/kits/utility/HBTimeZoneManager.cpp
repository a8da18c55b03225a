#include "kits/utility/HBTimeZoneManager.h"

HBTimeZoneManager::HBTimeZoneManager()
    : m_locale(QLocale::system())
    , m_timeZone(QTimeZone::systemTimeZone())
{
}

HBTimeZoneManager &HBTimeZoneManager::sharedTimeZoneManager()
{
    static HBTimeZoneManager manager;
    return manager;
}
