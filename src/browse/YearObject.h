#pragma once

#include "browse/HBPeriodNode.h"

#include <compare>

// A year of the date tree, named by its number ("2014"); its children are
// its months. One node per year for the whole process.
class YearObject : public HBPeriodNode
{
    Q_OBJECT
public:
    // The node of the year the date falls in, in the calendar's time zone.
    static YearObject *yearObjectWithDate(const QDateTime &date, const QTimeZone &calendar);

    qint64 year() const { return m_year; }
    QString name() const override { return QString::number(m_year); }

private:
    YearObject(QDate localDate, const QTimeZone &calendar);

    qint64 m_year;
};

// Years in ascending order.
std::strong_ordering yearSort(const YearObject *a, const YearObject *b);
