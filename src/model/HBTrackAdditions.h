#pragma once

#include "platform/store/HBManagedObject.h"

#include <QString>
#include <QVariant>

// One extra attribute of a track: a key and its value.
class HBTrackAdditions : public HBManagedObject
{
public:
    QString key() const { return valueForKey(QStringLiteral("key")).toString(); }
    void setKey(const QString &key) { setValueForKey(key, QStringLiteral("key")); }
    QVariant value() const { return valueForKey(QStringLiteral("value")); }
    void setValue(const QVariant &value) { setValueForKey(value, QStringLiteral("value")); }
    HBManagedObject *track() const { return objectForKey(QStringLiteral("track")); }
    void setTrack(HBManagedObject *track) { setObjectForKey(track, QStringLiteral("track")); }
};
