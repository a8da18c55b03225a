// A desktop host in two runs. "write" stores a waypoint, changes its style
// (size 9.5, fill #336699) and waits for the deferred save, then prints the
// waypoint's URI and the style's file. "read URI" starts afresh and prints
// the style of that waypoint as "type size fill".

#include "manager/HBTrackManager.h"
#include "model/HBWaypoint.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "kits/atlas/HBPointSymbolizer.h"
#include "ui/HBSimplePointStyle.h"

#include <QApplication>
#include <QEventLoop>
#include <QTimer>
#include <QUrl>

#include <cstdio>

namespace {

int write(HBTrackManager *manager)
{
    HBManagedObjectContext *context = manager->mainQueueContext();
    auto *waypoint = context->insertNewObject<HBWaypoint>(QStringLiteral("HBWaypoint"));
    waypoint->setName(QStringLiteral("Probe"));
    if (!context->obtainPermanentIDsForObjects({waypoint}) || !context->save())
        return 1;
    manager->save();
    std::shared_ptr<HBSimplePointStyle> style = waypoint->style();
    QEventLoop loop;
    QObject::connect(style.get(), &HBSimplePointStyle::saved, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, [&loop] { loop.exit(1); });
    style->primaryPointSymbolizer()->setSymbolSize(9.5f);
    style->primaryPointSymbolizer()->setFillColor(QColor(0x33, 0x66, 0x99));
    if (loop.exec() != 0)
        return 1;
    std::printf("%s\n%s\n", qPrintable(waypoint->objectID().uriString()),
                qPrintable(HBSimplePointStyle::styleCachePathForObject(waypoint)));
    return 0;
}

int read(HBTrackManager *manager, const QString &uri)
{
    const HBManagedObjectID id = manager->persistentStoreCoordinator()->managedObjectIDForURIRepresentation(QUrl(uri));
    auto *waypoint = static_cast<HBWaypoint *>(manager->mainQueueContext()->existingObjectWithID(id));
    if (!waypoint)
        return 1;
    const std::shared_ptr<HBPointSymbolizer> symbolizer = waypoint->style()->primaryPointSymbolizer();
    std::printf("%d %g %s\n", symbolizer->symbolType(), symbolizer->symbolSize(),
                qPrintable(symbolizer->fillColor().name()));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    const QStringList args = app.arguments();
    if (args.size() == 2 && args[1] == QStringLiteral("write"))
        return write(manager);
    if (args.size() == 3 && args[1] == QStringLiteral("read"))
        return read(manager, args[2]);
    return 2;
}
