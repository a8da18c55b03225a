#include "platform/store/HBManagedObjectID.h"

#include "platform/store/HBEntityDescription.h"

#include <QHash>
#include <QMutex>
#include <QUuid>
#include <QtEndian>

#include <atomic>

namespace {

struct StoreIdentifierTable
{
    QMutex mutex;
    QHash<QString, quint32> numbers;
    QList<QString> identifiers{QString()};   // number 0 stands for "no store"
};

StoreIdentifierTable &identifierTable()
{
    // never destroyed: work on a context's thread may still make URIs at exit
    static StoreIdentifierTable &table = *new StoreIdentifierTable;
    return table;
}

std::atomic<qint64> nextTemporarySerial{1};

// Temporary IDs need a UUID in their URI but are minted by the million
// during an import: the UUID is made from one random value per process and
// the serial number instead of asking the system for randomness each time.
QUuid temporaryUuid(qint64 serial)
{
    static const QUuid processUuid = QUuid::createUuid();
    QByteArray bytes = processUuid.toRfc4122();
    qToBigEndian<qint64>(serial, bytes.data() + 8);
    bytes[8] = char((uchar(bytes[8]) & 0x3f) | 0x80);   // keep the RFC 4122 variant bits
    return QUuid::fromRfc4122(bytes);
}

} // namespace

quint32 HBManagedObjectID::internStoreIdentifier(const QString &anyCase)
{
    const QString identifier = anyCase.toUpper();
    StoreIdentifierTable &t = identifierTable();
    QMutexLocker lock(&t.mutex);
    auto it = t.numbers.constFind(identifier);
    if (it != t.numbers.constEnd())
        return *it;
    const quint32 number = quint32(t.identifiers.size());
    t.identifiers.append(identifier);
    t.numbers.insert(identifier, number);
    return number;
}

HBManagedObjectID HBManagedObjectID::temporaryID(const HBEntityDescription *entity)
{
    HBManagedObjectID id;
    id.m_entity = entity;
    id.m_key = nextTemporarySerial.fetch_add(1, std::memory_order_relaxed);
    id.m_temporary = true;
    return id;
}

HBManagedObjectID HBManagedObjectID::permanentID(const HBEntityDescription *entity,
                                                 const QString &storeIdentifier, qint64 primaryKey)
{
    return permanentID(entity, internStoreIdentifier(storeIdentifier), primaryKey);
}

HBManagedObjectID HBManagedObjectID::permanentID(const HBEntityDescription *entity, quint32 storeToken, qint64 primaryKey)
{
    HBManagedObjectID id;
    id.m_entity = entity;
    id.m_key = primaryKey;
    id.m_store = storeToken;
    return id;
}

QString HBManagedObjectID::storeIdentifier() const
{
    StoreIdentifierTable &t = identifierTable();
    QMutexLocker lock(&t.mutex);
    return t.identifiers.value(m_store);
}

const HBEntityDescription *HBManagedObjectID::rootEntity() const
{
    return m_entity ? m_entity->rootEntity() : nullptr;
}

QString HBManagedObjectID::uriString() const
{
    if (!m_entity)
        return QString();
    if (m_temporary) {
        return QStringLiteral("x-hbgps:///%1/t%2")
            .arg(m_entity->name(), temporaryUuid(m_key).toString(QUuid::WithoutBraces).toUpper());
    }
    return QStringLiteral("x-hbgps://%1/%2/p%3").arg(storeIdentifier(), m_entity->name()).arg(m_key);
}

QUrl HBManagedObjectID::URIRepresentation() const
{
    return QUrl(uriString());
}
