#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <atomic>
#include <optional>

class HBEntityDescription;
class HBManagedObject;
struct HBPropertyDescription;

// The extra attributes of points and tracks: rows of (owner, key, value)
// in a table of their own ("HBGeoPointAdditions" owned through "point",
// "HBTrackAdditions" through "track"). Each access is one fetch, unless the
// owner's rows were loaded ahead with it and are still current.
class HBAdditionsTable
{
public:
    enum class NewRow {
        Linked,     // a new row names its owner
        Unlinked,   // a new row gets its key and value only
    };

    // ownersRowsKey: the owner's to-many relationship to its rows, if it has one.
    HBAdditionsTable(QString entityName, QString ownerKey, QString ownersRowsKey = {});

    // The value of the first row of the owner with the key, or an invalid
    // value. A failed fetch counts as no row.
    QVariant value(const HBManagedObject *owner, const QString &key) const;
    // value() of each key, in their order: with the owner's rows loaded
    // ahead they are looked up once for all the keys.
    QVariantList values(const HBManagedObject *owner, const QStringList &keys) const;
    // Overwrites the first such row (even with an invalid value), else
    // inserts a row.
    void setValue(HBManagedObject *owner, const QVariant &value, const QString &key, NewRow newRow) const;

private:
    const HBPropertyDescription *rowsProperty(const HBEntityDescription *entity) const;
    std::optional<QList<HBManagedObject *>> loadedRows(const HBManagedObject *owner) const;
    HBManagedObject *firstRow(const HBManagedObject *owner, const QString &key) const;
    HBManagedObject *firstRow(const HBManagedObject *owner, const QString &key,
                              const std::optional<QList<HBManagedObject *>> &loaded) const;
    static HBManagedObject *firstLoadedRow(const QList<HBManagedObject *> &rows, const QString &key);
    static QVariant valueOf(const HBManagedObject *row);

    QString m_entityName;
    QString m_ownerKey;
    QString m_ownersRowsKey;
    mutable std::atomic<int> m_rowsPropertyIndex{-1};
};
