// A host's first steps with the track library: start the shared track
// manager, insert a waypoint and track points of three ten-day periods plus
// one without a date, save, and list the store files with their rows.

#include "manager/HBTrackManager.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackPoint.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QTextStream>

namespace {

void insertPoints(HBManagedObjectContext *context)
{
    auto *waypoint = context->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
    waypoint->setName(QStringLiteral("Summit"));
    waypoint->setLatitude(HBDecimal::fromString(u"47.421100"));
    waypoint->setLongitude(HBDecimal::fromString(u"10.985300"));
    waypoint->setElevation(HBDecimal::fromString(u"2962.0"));

    // Three walks, each in a different ten-day period, and one fix without a time.
    const QList<QDateTime> starts{
        QDateTime(QDate(2024, 6, 2), QTime(8, 0), Qt::UTC),
        QDateTime(QDate(2024, 6, 14), QTime(9, 30), Qt::UTC),
        QDateTime(QDate(2024, 6, 29), QTime(7, 15), Qt::UTC),
        QDateTime(),
    };
    qint64 order = 0;
    for (const QDateTime &start : starts) {
        for (int i = 0; i < 3; ++i) {
            auto *point = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setLatitude(HBDecimal::fromString(QStringLiteral("47.4%1").arg(order, 4, 10, QLatin1Char('0'))));
            point->setLongitude(HBDecimal::fromString(u"10.985300"));
            point->setOrder(order++);
            if (start.isValid())
                point->setDate(start.addSecs(i * 60));
        }
    }
}

void listStores(QTextStream &out, HBPersistentStoreCoordinator *coordinator)
{
    for (HBPersistentStore *store : coordinator->persistentStores()) {
        out << store->path() << "\n";
        for (const HBEntityDescription *entity : HBTrackDataModel::model()->entities()) {
            const qint64 rows = entity->isAbstract() || !store->holdsEntity(entity) ? 0 : store->countRows(entity);
            if (rows > 0)
                out << "  " << entity->name() << ": " << rows << " rows\n";
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    context->performBlockAndWait([context] { insertPoints(context); });
    manager->save();
    QTextStream out(stdout);
    listStores(out, manager->persistentStoreCoordinator());
    return 0;
}
