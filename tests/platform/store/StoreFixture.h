#pragma once

#include "model/HBTrackDataModel.h"
#include "platform/HBDecimal.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBPredicate.h"

#include <QDateTime>
#include <QLoggingCategory>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <memory>

// A central file and one point file in a temporary folder, under one
// coordinator, as the track manager lays them out.
struct StoreFixture
{
    QTemporaryDir dir;
    std::unique_ptr<HBPersistentStoreCoordinator> coordinator;
    HBPersistentStore *central = nullptr;
    HBPersistentStore *points = nullptr;

    QString centralPath() const { return dir.filePath(QStringLiteral("TrackManagerDatabase.sql")); }
    QString pointsPath() const { return dir.filePath(QStringLiteral("1.sql")); }

    bool open()
    {
        coordinator = std::make_unique<HBPersistentStoreCoordinator>(HBTrackDataModel::model());
        HBError error;
        central = coordinator->addPersistentStore(QString(), centralPath(), &error);
        points = coordinator->addPersistentStore(QStringLiteral("PointOnly"), pointsPath(), &error);
        return central && points;
    }

    std::unique_ptr<HBManagedObjectContext> newRootContext() const
    {
        auto context = std::make_unique<HBManagedObjectContext>(HBManagedObjectContext::PrivateQueueConcurrencyType);
        context->setPersistentStoreCoordinator(coordinator.get());
        return context;
    }
};

inline QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
}

inline QVariant dec(const char *text)
{
    return QVariant::fromValue(HBDecimal::fromString(QString::fromLatin1(text)));
}

inline HBManagedObject *insert(HBManagedObjectContext &c, const QString &entity, const QVariantMap &values)
{
    HBManagedObject *o = c.insertNewObjectForEntityForName(entity);
    for (auto it = values.begin(); it != values.end(); ++it)
        o->setValueForKey(it.value(), it.key());
    return o;
}

// The records of the entity that match the predicate, by name.
inline QList<HBManagedObject *> fetch(HBManagedObjectContext &c, const QString &entity, const QString &format = {},
                                      const QVariantList &args = {})
{
    HBFetchRequest r(entity);
    if (!format.isEmpty())
        r.setPredicate(HBPredicate::format(format, args));
    r.setSortDescriptors({{QStringLiteral("name"), true}});
    return c.executeFetchRequest(r);
}

// The fixture's points are not the track manager's, which says so for
// each; until the guard goes, that is not logged.
inline auto quietManagerWarnings()
{
    QLoggingCategory::setFilterRules(QStringLiteral("hb.manager.warning=false"));
    return qScopeGuard([] { QLoggingCategory::setFilterRules(QString()); });
}
