#pragma once

#include "platform/store/HBPredicate.h"

#include <QDate>
#include <QDateTime>
#include <QTimeZone>

// A year, month or day of the Gregorian calendar in one time zone: the
// instants from the first moment of its first day up to, not including, the
// first moment of the day after its last. A first moment is midnight, or
// the end of the gap where a change to summer time skips midnight.
class HBDatePeriod
{
public:
    HBDatePeriod(QDate firstDay, QDate dayAfter, QTimeZone calendar);
    static HBDatePeriod year(qint64 year, const QTimeZone &calendar);
    static HBDatePeriod month(qint64 year, qint64 month, const QTimeZone &calendar);
    static HBDatePeriod day(QDate day, const QTimeZone &calendar);

    QDateTime start() const;
    QDateTime end() const;
    const QTimeZone &calendar() const { return m_calendar; }

    // "(keyPath >= start) && (keyPath < end)": closed at the start, open at
    // the end, so that periods side by side share no instant.
    HBPredicate predicateForDateVariable(const QString &keyPath) const;

private:
    QDate m_firstDay;
    QDate m_dayAfter;
    QTimeZone m_calendar;
};
