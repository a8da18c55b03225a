#pragma once

#include "platform/store/HBManagedObject.h"

#include <QString>
#include <QVariant>

// One extra attribute of one point: a key such as
// kHBGeoPointHorizontalDilutionOfPrecisionProperty and its value (a
// decimal, an integer or a text, by key).
class HBGeoPointAdditions : public HBManagedObject
{
public:
    QString key() const { return valueForKey(QStringLiteral("key")).toString(); }
    void setKey(const QString &key) { setValueForKey(key, QStringLiteral("key")); }
    QVariant value() const { return valueForKey(QStringLiteral("value")); }
    void setValue(const QVariant &value) { setValueForKey(value, QStringLiteral("value")); }
    HBManagedObject *point() const { return objectForKey(QStringLiteral("point")); }
    void setPoint(HBManagedObject *point) { setObjectForKey(point, QStringLiteral("point")); }
};
