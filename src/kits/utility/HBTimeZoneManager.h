#pragma once

#include "kits/utility/HBDateFormatter.h"

// The user's clock and language for dates shown in the interface: the
// system's time zone and locale as they were when first asked.
class HBTimeZoneManager
{
public:
    static HBTimeZoneManager &sharedTimeZoneManager();

    HBDateFormatter dateFormatter() const { return HBDateFormatter(HBDateFormatter::Date, m_locale, m_timeZone); }
    HBDateFormatter timeFormatter() const { return HBDateFormatter(HBDateFormatter::Time, m_locale, m_timeZone); }

private:
    HBTimeZoneManager();

    QLocale m_locale;
    QTimeZone m_timeZone;
};
