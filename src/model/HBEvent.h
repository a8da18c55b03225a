#pragma once

#include "platform/HBDecimal.h"
#include "platform/store/HBManagedObject.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

class HBImportSource;

// One activity of an import (a TCX "Activity", say): it groups the tracks
// and waypoints recorded for it. Events go with their import source.
class HBEvent : public HBManagedObject
{
public:
    QString name() const { return valueForKey(QStringLiteral("name")).toString(); }
    void setName(const QString &name) { setValueForKey(name, QStringLiteral("name")); }
    // UTC; invalid when unknown
    QDateTime startDate() const { return valueForKey(QStringLiteral("startDate")).toDateTime(); }
    void setStartDate(const QDateTime &date);
    // seconds; a not-a-number value is stored as absent
    std::optional<HBDecimal> duration() const;
    void setDuration(const std::optional<HBDecimal> &seconds);
    // position among the events of one import; absent reads 0
    qint64 order() const { return valueForKey(QStringLiteral("order")).toLongLong(); }
    void setOrder(qint64 order) { setValueForKey(QVariant::fromValue(order), QStringLiteral("order")); }

    HBImportSource *importSource() const;
    void setImportSource(HBImportSource *source);
    QList<HBManagedObject *> tracks() const { return objectsForKey(QStringLiteral("tracks")); }
    QList<HBManagedObject *> waypoints() const { return objectsForKey(QStringLiteral("waypoints")); }
};
