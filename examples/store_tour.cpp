// A host's first steps with the object store: open the central file and a
// point file in the user's Fernwick folder, insert a track's import source,
// a waypoint and a few track points, save, and list the files with the rows
// each one holds.

#include "model/HBTrackDataModel.h"
#include "platform/HBDecimal.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QStandardPaths>
#include <QTextStream>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QString support = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Fernwick");
    if (!QDir().mkpath(support + QStringLiteral("/PointDatabases"))) {
        QTextStream(stderr) << "Cannot create " << support << "\n";
        return 1;
    }
    HBPersistentStoreCoordinator coordinator(HBTrackDataModel::model());
    HBError error;
    HBPersistentStore *central = coordinator.addPersistentStore(QString(), support + QStringLiteral("/TrackManagerDatabase.sql"), &error);
    HBPersistentStore *points = central ? coordinator.addPersistentStore(QStringLiteral("PointOnly"),
                                                                         support + QStringLiteral("/PointDatabases/example.sql"), &error)
                                        : nullptr;
    if (!points) {
        QTextStream(stderr) << error.localizedDescription() << " " << error.localizedFailureReason() << "\n";
        return 1;
    }

    HBManagedObjectContext context(HBManagedObjectContext::PrivateQueueConcurrencyType);
    context.setPersistentStoreCoordinator(&coordinator);
    bool saved = false;
    context.performBlockAndWait([&] {
        HBManagedObject *source = context.insertNewObjectForEntityForName(QStringLiteral("HBImportSource"));
        source->setValueForKey(QStringLiteral("example"), QStringLiteral("name"));
        source->setValueForKey(QDateTime::currentDateTimeUtc(), QStringLiteral("importDate"));
        HBManagedObject *waypoint = context.insertNewObjectForEntityForName(QStringLiteral("HBWaypoint"));
        waypoint->setValueForKey(QStringLiteral("Summit"), QStringLiteral("name"));
        waypoint->setValueForKey(QVariant::fromValue(HBDecimal::fromString(u"47.421100")), QStringLiteral("latitude"));
        waypoint->setValueForKey(QVariant::fromValue(HBDecimal::fromString(u"10.985300")), QStringLiteral("longitude"));
        waypoint->setObjectForKey(source, QStringLiteral("importSource"));
        for (int i = 0; i < 3; ++i) {
            HBManagedObject *point = context.insertNewObjectForEntityForName(QStringLiteral("HBTrackPoint"));
            point->setValueForKey(QVariant::fromValue(HBDecimal::fromString(QStringLiteral("47.4%1").arg(i))), QStringLiteral("latitude"));
            point->setValueForKey(QVariant::fromValue(HBDecimal::fromString(u"10.98")), QStringLiteral("longitude"));
            point->setValueForKey(i, QStringLiteral("order"));
            context.assignObject(point, points);
        }
        saved = context.save(&error);
    });
    if (!saved) {
        QTextStream(stderr) << error.localizedDescription() << " " << error.detailedErrorsDescription() << "\n";
        return 1;
    }
    for (HBPersistentStore *store : coordinator.persistentStores()) {
        out << store->path() << "\n";
        for (const HBEntityDescription *entity : HBTrackDataModel::model()->entities()) {
            if (!entity->isAbstract() && store->holdsEntity(entity) && store->countRows(entity) > 0)
                out << "  " << entity->name() << ": " << store->countRows(entity) << " rows\n";
        }
    }
    return 0;
}
