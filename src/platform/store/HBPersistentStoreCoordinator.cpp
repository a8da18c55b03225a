#include "platform/store/HBPersistentStoreCoordinator.h"

#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectID.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBStoreTransaction.h"

#include "platform/HBLogging.h"

#include <QFileInfo>

#include <algorithm>

HBPersistentStoreCoordinator::HBPersistentStoreCoordinator(const HBManagedObjectModel *model)
    : m_model(model)
{
}

HBPersistentStoreCoordinator::~HBPersistentStoreCoordinator() = default;

HBPersistentStore *HBPersistentStoreCoordinator::addPersistentStore(const QString &configuration, const QString &path,
                                                                    HBError *error, const QString &knownIdentifier)
{
    auto store = std::make_unique<HBPersistentStore>(m_model, QFileInfo(path).absoluteFilePath(), configuration);
    if (!knownIdentifier.isEmpty())
        store->loadLater(knownIdentifier);
    else if (!store->load(error))
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

namespace {

bool isHostCharacter(QChar c)
{
    return (c.isLetterOrNumber() && c.unicode() < 128) || c == u'-';
}

bool isNameCharacter(QChar c)
{
    return (c.isLetterOrNumber() && c.unicode() < 128) || c == u'_';
}

} // namespace

// A segment turns the URIs of all its points into IDs when it loads them,
// a million at a time: the plain form "x-hbgps://<store>/<Entity>/p<key>"
// is read by hand, anything else goes through QUrl.
HBManagedObjectID HBPersistentStoreCoordinator::managedObjectIDForURIString(const QString &uri) const
{
    // never destroyed: work on a context's thread may still read URIs at exit
    static const QString &prefix = *new QString(HBManagedObjectID::uriScheme() + QStringLiteral("://"));
    const QStringView text(uri);
    if (!text.startsWith(prefix))
        return managedObjectIDForURIRepresentation(QUrl(uri));
    const qsizetype hostStart = prefix.size();
    qsizetype i = hostStart;
    while (i < text.size() && isHostCharacter(text[i]))
        ++i;
    const qsizetype hostEnd = i;
    if (hostEnd == hostStart || i >= text.size() || text[i] != u'/')
        return managedObjectIDForURIRepresentation(QUrl(uri));
    const qsizetype entityStart = ++i;
    while (i < text.size() && isNameCharacter(text[i]))
        ++i;
    const qsizetype entityEnd = i;
    if (entityEnd == entityStart || i + 1 >= text.size() || text[i] != u'/' || text[i + 1] != u'p')
        return managedObjectIDForURIRepresentation(QUrl(uri));
    bool ok = false;
    const qint64 key = text.mid(i + 2).toLongLong(&ok);
    return permanentIDForPlainParts(text.mid(hostStart, hostEnd - hostStart),
                                    text.mid(entityStart, entityEnd - entityStart), ok ? key : 0);
}

std::function<HBManagedObjectID(qint64)> HBPersistentStoreCoordinator::managedObjectIDMaker(QStringView host,
                                                                                      QStringView entityName) const
{
    const auto plain = [](QStringView name, bool (*allowed)(QChar)) {
        return !name.isEmpty() && std::all_of(name.begin(), name.end(), allowed);
    };
    if (!plain(host, isHostCharacter) || !plain(entityName, isNameCharacter)) {
        const QString prefix = QStringLiteral("%1://%2/%3/p").arg(HBManagedObjectID::uriScheme(), host, entityName);
        return [this, prefix](qint64 key) { return managedObjectIDForURIString(prefix + QString::number(key)); };
    }
    const quint32 token = HBManagedObjectID::internStoreIdentifier(host.toString());
    const HBEntityDescription *entity = entityInStore(entityName, token);
    return [entity, token](qint64 key) { return permanentIDOf(entity, token, key); };
}

const HBEntityDescription *HBPersistentStoreCoordinator::entityInStore(QStringView entityName, quint32 storeToken) const
{
    const HBEntityDescription *entity = m_model->entityNamed(entityName.toString());
    const HBPersistentStore *store = entity ? persistentStoreForIdentifierToken(storeToken) : nullptr;
    return store && store->holdsEntity(entity) ? entity : nullptr;
}

HBManagedObjectID HBPersistentStoreCoordinator::permanentIDOf(const HBEntityDescription *entity, quint32 storeToken,
                                                              qint64 key)
{
    return entity && key > 0 ? HBManagedObjectID::permanentID(entity, storeToken, key) : HBManagedObjectID();
}

HBManagedObjectID HBPersistentStoreCoordinator::permanentIDForPlainParts(QStringView host, QStringView entityName,
                                                                         qint64 key) const
{
    if (key <= 0)
        return {};
    // the points of a segment nearly all name the same few stores
    thread_local QString lastHost;
    thread_local quint32 lastToken = 0;
    if (host != lastHost) {
        lastHost = host.toString();
        lastToken = HBManagedObjectID::internStoreIdentifier(lastHost);
    }
    return permanentIDOf(entityInStore(entityName, lastToken), lastToken, key);
}

void HBPersistentStoreCoordinator::assignObject(HBManagedObject *object, HBPersistentStore *store)
{
    if (object && object->managedObjectContext())
        object->managedObjectContext()->assignObject(object, store);
}

void HBPersistentStoreCoordinator::setSaveNoteFolder(const QString &folder)
{
    QMutexLocker lock(&m_savesLock);
    m_saveNoteFolder = folder;
}

QString HBPersistentStoreCoordinator::saveNoteFolder() const
{
    QMutexLocker lock(&m_savesLock);
    return m_saveNoteFolder;
}

void HBPersistentStoreCoordinator::noteFinishedSave(const QString &token)
{
    QMutexLocker lock(&m_savesLock);
    m_finishedSaves.append(token);
}

QStringList HBPersistentStoreCoordinator::takeFinishedSaves()
{
    QMutexLocker lock(&m_savesLock);
    return std::exchange(m_finishedSaves, {});
}

bool HBPersistentStoreCoordinator::undoSave(const HBSaveNote &note)
{
    return removeNotedRows(note.undo, QStringLiteral("added by a save that failed"));
}

int HBPersistentStoreCoordinator::finishUnfinishedSaves()
{
    const QString folder = saveNoteFolder();
    if (folder.isEmpty())
        return 0;
    int repaired = 0;
    for (const std::unique_ptr<HBSaveNote> &note : HBSaveNote::abandoned(folder)) {
        HBPersistentStore *last = persistentStoreForPath(note->lastStorePath);
        HBError error;
        const std::optional<bool> decided = last ? last->holdsSaveToken(note->token, &error) : std::nullopt;
        if (!decided) {
            qCWarning(hbStore).noquote() << "A save that was cut off cannot be repaired yet:" << note->lastStorePath
                                         << (last ? error.localizedDescription() : QStringLiteral("is not open"));
            continue;
        }
        const bool removed = *decided
                                 ? removeNotedRows(note->redo, QStringLiteral("that a save cut off after its last commit still had to remove"))
                                 : removeNotedRows(note->undo, QStringLiteral("of a save cut off before its last commit"));
        if (removed) {
            note->remove();
            ++repaired;
        }
    }
    return repaired;
}

bool HBPersistentStoreCoordinator::removeNotedRows(const QList<HBSaveNote::StoreRows> &stores, const QString &done)
{
    bool allRemoved = true;
    for (const HBSaveNote::StoreRows &noted : stores) {
        std::unique_ptr<HBPersistentStore> opened;
        HBPersistentStore *store = persistentStoreForPath(noted.path);
        HBError error;
        if (!store) {
            opened = std::make_unique<HBPersistentStore>(m_model, noted.path, noted.configuration);
            store = opened->load(&error) ? opened.get() : nullptr;
        }
        qint64 removed = 0;
        std::optional<HBStoreTransaction> transaction;
        if (store)
            transaction.emplace(*store);
        bool ok = transaction && transaction->begin(&error);
        for (auto it = noted.rows.begin(); ok && it != noted.rows.end(); ++it) {
            const HBEntityDescription *entity = m_model->entityNamed(it->entityName);
            qint64 count = 0;
            ok = entity && transaction->deleteRows(entity, it->first, it->last, &error, &count);
            removed += count;
        }
        ok = ok && transaction->commit(&error);
        if (ok) {
            if (removed > 0)
                qCWarning(hbStore).noquote() << QStringLiteral("Removed %1 rows %2 from %3.").arg(removed).arg(done, noted.path);
        } else {
            qCWarning(hbStore).noquote() << QStringLiteral("The rows %1 could not be removed from %2: %3")
                                                .arg(done, noted.path, error.localizedDescription());
            allRemoved = false;
        }
    }
    return allRemoved;
}
