#pragma once

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

// Turns instants into the date or the time of day as a person reads them:
// in one locale's short format, on the clock of one time zone.
class HBDateFormatter
{
public:
    enum Part { Date, Time };

    HBDateFormatter(Part part, const QLocale &locale, const QTimeZone &timeZone);

    // Empty for an invalid date.
    QString stringFromDate(const QDateTime &date) const;

private:
    Part m_part;
    QLocale m_locale;
    QTimeZone m_timeZone;
};
