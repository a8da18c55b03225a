// A small host that the importer tests start as a separate process, so that
// every corpus file is imported into an empty home of its own (no waypoint
// of another file is stored there) and counted after the stores are opened
// afresh, as the next run of a program would.
//
//   xmlimport_probe import FILE   imports FILE as the track manager would
//                                 choose by extension ("tcx", else GPX)
//   xmlimport_probe count         prints one line:
//       sources N linked T S P W saved T S P W E
//     linked: tracks of the import sources, their segments, the points of
//     those segments (through each segment's point list) and the sources'
//     waypoints; saved: every track, segment, track point, waypoint and
//     event record in the stores.

#include "import/HBGPXFileImportOperation.h"
#include "import/HBTCXFileImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "model/HBTrack.h"
#include "model/HBTrackSegment.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

namespace {

int import(const QString &path)
{
    std::shared_ptr<HBXMLFileImportOperation> operation;
    if (QFileInfo(path).suffix() == QLatin1String("tcx"))
        operation = std::make_shared<HBTCXFileImportOperation>();
    else
        operation = std::make_shared<HBGPXFileImportOperation>();
    operation->setFilePath(path);
    operation->setImportDate(QDateTime::currentDateTimeUtc());
    HBOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
    return operation->isFinished() ? 0 : 1;
}

int count(QTextStream &out)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    context->performBlockAndWait([&] {
        const auto saved = [&](const char *entity) {
            return context->countForFetchRequest(HBFetchRequest(QLatin1String(entity)));
        };
        const QList<HBManagedObject *> sources = context->executeFetchRequest(HBFetchRequest(QStringLiteral("HBImportSource")));
        qsizetype tracks = 0, segments = 0, points = 0, waypoints = 0;
        for (const HBManagedObject *object : sources) {
            const auto *source = static_cast<const HBImportSource *>(object);
            waypoints += source->waypoints().size();
            for (HBManagedObject *track : source->tracks()) {
                ++tracks;
                for (HBTrackSegment *segment : static_cast<HBTrack *>(track)->segments()) {
                    ++segments;
                    points += segment->points().size();
                }
            }
        }
        out << "sources " << sources.size() << " linked " << tracks << ' ' << segments << ' ' << points << ' '
            << waypoints << " saved " << saved("HBTrack") << ' ' << saved("HBTrackSegment") << ' '
            << saved("HBTrackPoint") << ' ' << saved("HBWaypoint") << ' ' << saved("HBEvent") << '\n';
    });
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    QTextStream out(stdout);
    if (arguments.size() == 2 && arguments[0] == QLatin1String("import"))
        return import(arguments[1]);
    if (arguments.size() == 1 && arguments[0] == QLatin1String("count"))
        return count(out);
    QTextStream(stderr) << "usage: xmlimport_probe import FILE | count\n";
    return 2;
}
