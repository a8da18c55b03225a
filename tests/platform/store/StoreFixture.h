#pragma once

#include "model/HBTrackDataModel.h"
#include "platform/HBDecimal.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QDateTime>
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
