// One import of an NMEA log, end to end as the import queue runs it: read,
// parse, build the track and save into a fresh temporary home. Prints
// "BENCH <name> <value> <unit>" lines.
//
//   bench_nmea_import FILE        such as tracks.nmea from generate_tracks.py

#include "TemporaryHome.h"

#include "import/HBNMEAImportOperation.h"
#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBFetchRequest.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cstdio>

namespace {

void bench(const char *name, double value, const char *unit)
{
    std::printf("BENCH %s %.3f %s\n", name, value, unit);
    std::fflush(stdout);
}

// The points the import saved, as the track's statistics count them.
qint64 savedPoints()
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    qint64 points = 0;
    context->performBlockAndWait([&] {
        for (HBManagedObject *track : context->executeFetchRequest(HBFetchRequest(QStringLiteral("HBTrack"))))
            points += static_cast<HBTrack *>(track)->numberOfTrackPoints();
    });
    return points;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_nmea_import FILE\n");
        return 2;
    }
    QTemporaryDir home;
    useTemporaryHome(home);
    HBTrackManager::sharedTrackManager();
    HBTrackManager::sharedBackgroundThreadTrackManager()->managedObjectContext();

    HBNMEAImportOperation operation;
    operation.setImportContexts(HBTrackManager::sharedTrackManager()->importContexts());
    operation.setFilePath(QString::fromLocal8Bit(argv[1]));
    QElapsedTimer timer;
    timer.start();
    operation.main();
    const double seconds = timer.nsecsElapsed() / 1e9;

    const qint64 points = savedPoints();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    bench("nmea_import_points", double(points), "points");
    bench("nmea_import_seconds", seconds, "s");
    bench("nmea_import_rate", double(points) / seconds, "points/s");
    bench("nmea_import_errors", double(operation.errorLog().size()), "entries");
    bench("peak_resident_memory", double(usage.ru_maxrss) / 1024.0, "MiB");
    return points > 0 ? 0 : 1;
}
