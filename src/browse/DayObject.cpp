#include "browse/DayObject.h"

#include "browse/HBNodeRegistry.h"
#include "browse/MonthObject.h"
#include "browse/YearObject.h"

#include <QLocale>

namespace {

// "d (cccc)": the day of the month, then the weekday as it stands alone.
QString dayName(QDate date)
{
    const QLocale locale;
    return QStringLiteral("%1 (%2)").arg(locale.toString(date, QStringLiteral("d")),
                                         locale.standaloneDayName(date.dayOfWeek(), QLocale::LongFormat));
}

} // namespace

DayObject::DayObject(const QDateTime &date, QDate localDate, const QTimeZone &calendar)
    : m_date(localDate)
    , m_period(HBDatePeriod::day(localDate, calendar))
    , m_name(dayName(localDate))
    , m_monthObject(MonthObject::monthObjectWithDate(date, calendar))
    , m_yearObject(YearObject::yearObjectWithDate(date, calendar))
{
}

DayObject *DayObject::dayObjectWithDate(const QDateTime &date, const QTimeZone &calendar)
{
    const QDate local = date.toTimeZone(calendar).date();
    return HBNodeRegistry<DayObject>::shared().nodeForKey(qint64(local.year()) * 10000 + local.month() * 100 + local.day(),
                                 [&] { return new DayObject(date, local, calendar); });
}

std::strong_ordering daySort(const DayObject *a, const DayObject *b)
{
    return a->day() <=> b->day();
}
