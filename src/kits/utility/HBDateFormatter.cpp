#include "kits/utility/HBDateFormatter.h"

HBDateFormatter::HBDateFormatter(Part part, const QLocale &locale, const QTimeZone &timeZone)
    : m_part(part)
    , m_locale(locale)
    , m_timeZone(timeZone)
{
}

QString HBDateFormatter::stringFromDate(const QDateTime &date) const
{
    if (!date.isValid())
        return {};
    const QDateTime local = date.toTimeZone(m_timeZone);
    return m_part == Date ? m_locale.toString(local.date(), QLocale::ShortFormat)
                          : m_locale.toString(local.time(), QLocale::ShortFormat);
}
