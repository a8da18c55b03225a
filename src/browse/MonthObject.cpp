#include "browse/MonthObject.h"

#include "browse/HBNodeRegistry.h"

#include <QLocale>

MonthObject::MonthObject(QDate localDate, const QTimeZone &calendar)
    : HBPeriodNode(HBDatePeriod::month(localDate.year(), localDate.month(), calendar))
    , m_year(localDate.year())
    , m_month(localDate.month())
    // Languages that inflect a month after a day number (Polish "5 marca")
    // have a form for the month alone ("marzec"), as a heading shows it.
    , m_name(QLocale().standaloneMonthName(localDate.month(), QLocale::LongFormat))
{
}

MonthObject *MonthObject::monthObjectWithDate(const QDateTime &date, const QTimeZone &calendar)
{
    const QDate local = date.toTimeZone(calendar).date();
    return HBNodeRegistry<MonthObject>::shared().nodeForKey(qint64(local.year()) * 100 + local.month(),
                                 [&] { return new MonthObject(local, calendar); });
}

std::strong_ordering monthSort(const MonthObject *a, const MonthObject *b)
{
    return a->month() <=> b->month();
}
