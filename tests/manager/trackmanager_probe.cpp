// A small host that the restart tests start as a separate process, so that
// each run opens the stores afresh as a real program does.
//
//   trackmanager_probe insert DATE...       one track point per date ("none": no date), then save
//   trackmanager_probe list                 names of the track points the shared manager sees, sorted,
//                                           then "store <file name>" for each open store file
//   trackmanager_probe fill BATCHES SIZE    BATCHES saves of SIZE points each, all of one period,
//                                           printing "saved <n>" after each

#include "manager/HBTrackManager.h"
#include "model/HBTrackPoint.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>

namespace {

void insert(const QStringList &dates)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    context->performBlockAndWait([&] {
        for (const QString &text : dates) {
            auto *point = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setName(text);
            if (text != QLatin1String("none"))
                point->setDate(QDateTime::fromString(text, Qt::ISODate));
        }
    });
    manager->save();
}

void list(QTextStream &out)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->mainQueueContext();
    QStringList names;
    context->performBlockAndWait([&] {
        for (const HBManagedObject *point : context->executeFetchRequest(HBFetchRequest(QStringLiteral("HBTrackPoint"))))
            names.append(static_cast<const HBTrackPoint *>(point)->name());
    });
    names.sort();
    for (const QString &name : names)
        out << name << "\n";
    QStringList stores;
    for (const HBPersistentStore *store : manager->persistentStoreCoordinator()->persistentStores())
        stores.append(QStringLiteral("store ") + QFileInfo(store->path()).fileName());
    stores.sort();
    for (const QString &store : stores)
        out << store << "\n";
}

void fill(QTextStream &out, int batches, int size)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    const QDateTime start(QDate(2023, 5, 1), QTime(6, 0), Qt::UTC);
    for (int batch = 0; batch < batches; ++batch) {
        context->performBlockAndWait([&] {
            for (int i = 0; i < size; ++i) {
                auto *point = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
                point->setLatitude(HBDecimal::fromString(QStringLiteral("52.%1").arg(i, 6, 10, QLatin1Char('0'))));
                point->setLongitude(HBDecimal::fromString(u"13.404954"));
                point->setName(QStringLiteral("batch %1").arg(batch));
                point->setOrder(qint64(batch) * size + i);
                point->setDate(start.addSecs(i));
            }
        });
        manager->save();
        context->performBlockAndWait([&] { context->reset(); });
        out << "saved " << batch + 1 << Qt::endl;
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    QTextStream out(stdout);
    const QString command = args.isEmpty() ? QString() : args.takeFirst();
    if (command == QLatin1String("insert"))
        insert(args);
    else if (command == QLatin1String("list"))
        list(out);
    else if (command == QLatin1String("fill") && args.size() == 2)
        fill(out, args[0].toInt(), args[1].toInt());
    else
        return 2;
    return 0;
}
