#include "browse/HBDatePeriod.h"

HBDatePeriod::HBDatePeriod(QDate firstDay, QDate dayAfter, QTimeZone calendar)
    : m_firstDay(firstDay)
    , m_dayAfter(dayAfter)
    , m_calendar(std::move(calendar))
{
}

HBDatePeriod HBDatePeriod::year(qint64 year, const QTimeZone &calendar)
{
    const QDate first(int(year), 1, 1);
    return {first, first.addYears(1), calendar};
}

HBDatePeriod HBDatePeriod::month(qint64 year, qint64 month, const QTimeZone &calendar)
{
    const QDate first(int(year), int(month), 1);
    return {first, first.addMonths(1), calendar};
}

HBDatePeriod HBDatePeriod::day(QDate day, const QTimeZone &calendar)
{
    return {day, day.addDays(1), calendar};
}

QDateTime HBDatePeriod::start() const
{
    return m_firstDay.startOfDay(m_calendar).toUTC();
}

QDateTime HBDatePeriod::end() const
{
    return m_dayAfter.startOfDay(m_calendar).toUTC();
}

HBPredicate HBDatePeriod::predicateForDateVariable(const QString &keyPath) const
{
    return HBPredicate::format(QStringLiteral("(%1 >= %@) && (%1 < %@)").arg(keyPath), {start(), end()});
}
