#pragma once

#include "browse/HBPeriodNode.h"

#include <compare>

class YearObject;

// A month of the date tree, named in the user's language as the month
// stands alone ("March", "März"); its children are its days. One node per
// month for the whole process; the name is fixed when the node is made.
class MonthObject : public HBPeriodNode
{
    Q_OBJECT
public:
    // The node of the month the date falls in, in the calendar's time zone.
    static MonthObject *monthObjectWithDate(const QDateTime &date, const QTimeZone &calendar);

    qint64 year() const { return m_year; }
    qint64 month() const { return m_month; }
    QString name() const override { return m_name; }

private:
    MonthObject(QDate localDate, const QTimeZone &calendar);

    qint64 m_year;
    qint64 m_month;
    QString m_name;
};

// Months in ascending order.
std::strong_ordering monthSort(const MonthObject *a, const MonthObject *b);
