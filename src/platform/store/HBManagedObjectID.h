#pragma once

#include <QHashFunctions>
#include <QMetaType>
#include <QString>
#include <QUrl>

class HBEntityDescription;

// The identity of a record. A temporary ID names an object that was inserted
// and never given a primary key; a permanent ID names a row of one store
// (by the store's identifier) and stays valid in every coordinator that
// opened that file under the same identifier.
//
// URI forms: permanent "x-hbgps://<STORE-UUID>/<Entity>/p<pk>",
// temporary "x-hbgps:///<Entity>/t<UUID>". The last path component names
// the record's cache files.
class HBManagedObjectID
{
public:
    HBManagedObjectID() = default;
    static HBManagedObjectID temporaryID(const HBEntityDescription *entity);
    static HBManagedObjectID permanentID(const HBEntityDescription *entity, const QString &storeIdentifier,
                                         qint64 primaryKey);
    static HBManagedObjectID permanentID(const HBEntityDescription *entity, quint32 storeToken, qint64 primaryKey);

    bool isNull() const { return m_entity == nullptr; }
    bool isTemporaryID() const { return m_temporary; }
    const HBEntityDescription *entity() const { return m_entity; }
    QString storeIdentifier() const;
    // The store identifier as interned by internStoreIdentifier; 0 while temporary.
    quint32 storeToken() const { return m_store; }
    qint64 primaryKey() const { return m_temporary ? 0 : m_key; }

    QUrl URIRepresentation() const;
    QString uriString() const;
    static QString uriScheme() { return QStringLiteral("x-hbgps"); }

    friend bool operator==(const HBManagedObjectID &a, const HBManagedObjectID &b)
    {
        return a.m_key == b.m_key && a.m_store == b.m_store && a.m_temporary == b.m_temporary
               && a.rootEntity() == b.rootEntity();
    }
    friend bool operator!=(const HBManagedObjectID &a, const HBManagedObjectID &b) { return !(a == b); }
    friend size_t qHash(const HBManagedObjectID &id, size_t seed = 0)
    {
        return qHashMulti(seed, id.m_key, id.m_store, id.m_temporary);
    }

    // Store identifiers are interned process-wide, so an ID is three words
    // and compares without touching strings.
    // Identifiers are compared without regard to case, since URI hosts are
    // case-insensitive and come back lower-cased from QUrl.
    static quint32 internStoreIdentifier(const QString &identifier);

private:
    const HBEntityDescription *rootEntity() const;

    const HBEntityDescription *m_entity = nullptr;
    qint64 m_key = 0;        // primary key, or a process-unique serial number while temporary
    quint32 m_store = 0;     // interned store identifier; 0 while temporary
    bool m_temporary = false;
};

Q_DECLARE_METATYPE(HBManagedObjectID)
