#include "browse/YearObject.h"

#include "browse/HBNodeRegistry.h"

YearObject::YearObject(QDate localDate, const QTimeZone &calendar)
    : HBPeriodNode(HBDatePeriod::year(localDate.year(), calendar))
    , m_year(localDate.year())
{
}

YearObject *YearObject::yearObjectWithDate(const QDateTime &date, const QTimeZone &calendar)
{
    const QDate local = date.toTimeZone(calendar).date();
    return HBNodeRegistry<YearObject>::shared().nodeForKey(local.year(), [&] { return new YearObject(local, calendar); });
}

std::strong_ordering yearSort(const YearObject *a, const YearObject *b)
{
    return a->year() <=> b->year();
}
