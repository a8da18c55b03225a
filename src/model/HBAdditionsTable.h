#pragma once

#include <QString>
#include <QVariant>

class HBManagedObject;

// The extra attributes of points and tracks: rows of (owner, key, value)
// in a table of their own ("HBGeoPointAdditions" owned through "point",
// "HBTrackAdditions" through "track"). Each access is one fetch.
class HBAdditionsTable
{
public:
    enum class NewRow {
        Linked,     // a new row names its owner
        Unlinked,   // a new row gets its key and value only
    };

    HBAdditionsTable(QString entityName, QString ownerKey);

    // The value of the first row of the owner with the key, or an invalid
    // value. A failed fetch counts as no row.
    QVariant value(const HBManagedObject *owner, const QString &key) const;
    // Overwrites the first such row (even with an invalid value), else
    // inserts a row.
    void setValue(HBManagedObject *owner, const QVariant &value, const QString &key, NewRow newRow) const;

private:
    HBManagedObject *firstRow(const HBManagedObject *owner, const QString &key) const;

    QString m_entityName;
    QString m_ownerKey;
};
