#include "model/HBImportSource.h"

#include "model/HBEvent.h"

namespace {

QVariant dateValue(const QDateTime &date)
{
    return date.isValid() ? QVariant(date.toUTC()) : QVariant();
}

} // namespace

void HBImportSource::setImportDate(const QDateTime &date)
{
    setValueForKey(dateValue(date), QStringLiteral("importDate"));
}

void HBImportSource::setFileModificationDate(const QDateTime &date)
{
    setValueForKey(dateValue(date), QStringLiteral("fileModificationDate"));
}

std::optional<quint64> HBImportSource::fileSize() const
{
    const QVariant v = valueForKey(QStringLiteral("fileSize"));
    return v.isValid() ? std::optional<quint64>(quint64(v.toLongLong())) : std::nullopt;
}

void HBImportSource::setFileSize(std::optional<quint64> bytes)
{
    // kept as the store's signed 64-bit integer; the bits come back unchanged
    setValueForKey(bytes ? QVariant::fromValue(qint64(*bytes)) : QVariant(), QStringLiteral("fileSize"));
}

qint32 HBImportSource::sourceType() const
{
    return qint32(valueForKey(QStringLiteral("sourceType")).toLongLong());
}

void HBImportSource::setSourceType(qint32 type)
{
    setValueForKey(QVariant::fromValue(qint64(quint32(type))), QStringLiteral("sourceType"));
}

QList<HBEvent *> HBImportSource::events() const
{
    QList<HBEvent *> events;
    for (HBManagedObject *event : objectsForKey(QStringLiteral("events")))
        events.append(static_cast<HBEvent *>(event));
    return events;
}

// By identifier, which stays good on the thread that fetches with it.
HBPredicate HBImportSource::importSourcePredicate() const
{
    return HBPredicate::format(QStringLiteral("importSource == %@"), {QVariant::fromValue(objectID())});
}
