#pragma once

#include "browse/HBDatePeriod.h"
#include "browse/HBTreeNode.h"

#include <compare>

class MonthObject;
class YearObject;

// A day of the date tree, named by its number and weekday in the user's
// language ("2 (Sunday)"). One node per day for the whole process, made
// with its month and year nodes; the name is fixed when the node is made.
// Days never change, so they may be made on any thread.
class DayObject : public HBTreeNode
{
public:
    // The node of the day the date falls on, in the calendar's time zone:
    // a track that starts at 23:30 UTC falls on the next day east of
    // Greenwich.
    static DayObject *dayObjectWithDate(const QDateTime &date, const QTimeZone &calendar);

    qint64 year() const { return m_date.year(); }
    qint64 month() const { return m_date.month(); }
    qint64 day() const { return m_date.day(); }
    const QTimeZone &calendar() const { return m_period.calendar(); }
    MonthObject *monthObject() const { return m_monthObject; }
    YearObject *yearObject() const { return m_yearObject; }

    QString name() const override { return m_name; }
    bool isLeaf() const override { return true; }
    HBPredicate trackPredicate() const override { return predicateForDateVariable(QStringLiteral("self.startDate")); }
    HBPredicate waypointPredicate() const override { return predicateForDateVariable(QStringLiteral("self.date")); }
    HBPredicate predicateForDateVariable(const QString &keyPath) const { return m_period.predicateForDateVariable(keyPath); }

private:
    DayObject(const QDateTime &date, QDate localDate, const QTimeZone &calendar);

    QDate m_date;
    HBDatePeriod m_period;
    QString m_name;
    MonthObject *m_monthObject;
    YearObject *m_yearObject;
};

// Days in ascending order.
std::strong_ordering daySort(const DayObject *a, const DayObject *b);
