#include "platform/store/HBPersistentStoreCoordinator.h"

#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"

#include <QFileInfo>

HBPersistentStoreCoordinator::HBPersistentStoreCoordinator(const HBManagedObjectModel *model)
    : m_model(model)
{
}

HBPersistentStoreCoordinator::~HBPersistentStoreCoordinator() = default;

HBPersistentStore *HBPersistentStoreCoordinator::addPersistentStore(const QString &configuration, const QString &path,
                                                                    HBError *error)
{
    auto store = std::make_unique<HBPersistentStore>(m_model, QFileInfo(path).absoluteFilePath(), configuration);
    if (!store->load(error))
        return nullptr;
    QWriteLocker lock(&m_storesLock);
    m_stores.push_back(std::move(store));
    ++m_storesGeneration;
    return m_stores.back().get();
}

QList<HBPersistentStore *> HBPersistentStoreCoordinator::persistentStores() const
{
    QReadLocker lock(&m_storesLock);
    QList<HBPersistentStore *> list;
    for (const auto &s : m_stores)
        list.append(s.get());
    return list;
}

HBPersistentStore *HBPersistentStoreCoordinator::persistentStoreForURL(const QUrl &url) const
{
    return persistentStoreForPath(QFileInfo(url.toLocalFile()).absoluteFilePath());
}

HBPersistentStore *HBPersistentStoreCoordinator::persistentStoreForPath(const QString &path) const
{
    QReadLocker lock(&m_storesLock);
    // The newest store for a file wins: a file may be open twice under
    // different configurations, and the later one is the one in use.
    for (auto it = m_stores.rbegin(); it != m_stores.rend(); ++it) {
        if ((*it)->path() == path)
            return it->get();
    }
    return nullptr;
}

HBPersistentStore *HBPersistentStoreCoordinator::persistentStoreForIdentifier(const QString &identifier) const
{
    return persistentStoreForIdentifierToken(HBManagedObjectID::internStoreIdentifier(identifier));
}

HBPersistentStore *HBPersistentStoreCoordinator::persistentStoreForIdentifierToken(quint32 token) const
{
    QReadLocker lock(&m_storesLock);
    for (auto it = m_stores.rbegin(); it != m_stores.rend(); ++it) {
        if ((*it)->identifierToken() == token)
            return it->get();
    }
    return nullptr;
}

HBPersistentStore *HBPersistentStoreCoordinator::defaultStoreForEntity(const HBEntityDescription *entity) const
{
    QReadLocker lock(&m_storesLock);
    for (const auto &s : m_stores) {
        if (s->holdsEntity(entity))
            return s.get();
    }
    return nullptr;
}

HBManagedObjectID HBPersistentStoreCoordinator::managedObjectIDForURIRepresentation(const QUrl &uri) const
{
    if (uri.scheme() != HBManagedObjectID::uriScheme() || uri.host().isEmpty())
        return {};
    const QStringList parts = uri.path().split(u'/', Qt::SkipEmptyParts);
    if (parts.size() != 2 || !parts[1].startsWith(u'p'))
        return {};
    bool ok = false;
    const qint64 key = QStringView(parts[1]).mid(1).toLongLong(&ok);
    const HBEntityDescription *entity = m_model->entityNamed(parts[0]);
    if (!ok || key <= 0 || !entity)
        return {};
    HBPersistentStore *store = persistentStoreForIdentifier(uri.host());
    if (!store || !store->holdsEntity(entity))
        return {};
    return HBManagedObjectID::permanentID(entity, store->identifierToken(), key);
}

HBManagedObjectID HBPersistentStoreCoordinator::managedObjectIDForURIString(const QString &uri) const
{
    return managedObjectIDForURIRepresentation(QUrl(uri));
}

void HBPersistentStoreCoordinator::assignObject(HBManagedObject *object, HBPersistentStore *store)
{
    if (object && object->managedObjectContext())
        object->managedObjectContext()->assignObject(object, store);
}
