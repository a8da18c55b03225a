#include "model/HBEvent.h"

#include "model/HBImportSource.h"

void HBEvent::setStartDate(const QDateTime &date)
{
    setValueForKey(date.isValid() ? QVariant(date.toUTC()) : QVariant(), QStringLiteral("startDate"));
}

std::optional<HBDecimal> HBEvent::duration() const
{
    const QVariant v = valueForKey(QStringLiteral("duration"));
    return v.isValid() ? std::optional<HBDecimal>(v.value<HBDecimal>()) : std::nullopt;
}

void HBEvent::setDuration(const std::optional<HBDecimal> &seconds)
{
    setValueForKey(seconds && !seconds->isNaN() ? QVariant::fromValue(*seconds) : QVariant(),
                   QStringLiteral("duration"));
}

HBImportSource *HBEvent::importSource() const
{
    return static_cast<HBImportSource *>(objectForKey(QStringLiteral("importSource")));
}

void HBEvent::setImportSource(HBImportSource *source)
{
    setObjectForKey(source, QStringLiteral("importSource"));
}
