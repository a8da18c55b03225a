// One import of a GPX or TCX file (chosen by its extension) into a fresh
// temporary home, from the start of the operation to the end of its save,
// as the import queue runs it. Prints "BENCH <name> <value> <unit>" lines:
// the time, the points per second, the CPU time, the records saved and the peak resident
// memory of the process.
//
//   bench_xml_import FILE        make FILE with generate_tracks.py

#include "TemporaryHome.h"

#include "import/HBGPXFileImportOperation.h"
#include "import/HBTCXFileImportOperation.h"
#include "manager/HBTrackManager.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cstdio>

namespace {

void bench(const char *name, double value, const char *unit)
{
    std::printf("BENCH %s %.3f %s\n", name, value, unit);
    std::fflush(stdout);
}

qsizetype savedCount(const QString &entity)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    qsizetype count = 0;
    context->performBlockAndWait([&] { count = context->countForFetchRequest(HBFetchRequest(entity)); });
    return count;
}

// User and system time of the whole process, in seconds: on a busy
// machine it tells more than the clock about the work done.
double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_xml_import FILE.gpx|FILE.tcx\n");
        return 2;
    }
    const QString path = QFile::decodeName(argv[1]);
    if (!QFileInfo(path).isFile()) {
        std::fprintf(stderr, "bench_xml_import: no file %s\n", argv[1]);
        return 2;
    }
    QTemporaryDir home;
    useTemporaryHome(home);
    // the stores are opened before the clock starts, as in a running program
    HBTrackManager::sharedTrackManager();
    HBTrackManager::sharedBackgroundThreadTrackManager()->persistentStoreCoordinator();

    std::shared_ptr<HBXMLFileImportOperation> operation;
    if (QFileInfo(path).suffix().compare(QLatin1String("tcx"), Qt::CaseInsensitive) == 0)
        operation = std::make_shared<HBTCXFileImportOperation>();
    else
        operation = std::make_shared<HBGPXFileImportOperation>();
    operation->setImportContexts(HBTrackManager::sharedTrackManager()->importContexts());
    operation->setFilePath(path);
    operation->setImportDate(QDateTime::currentDateTimeUtc());

    HBOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    const double cpuBefore = cpuSeconds();
    QElapsedTimer timer;
    timer.start();
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
    const double seconds = timer.nsecsElapsed() / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const qsizetype points = savedCount(QStringLiteral("HBTrackPoint"));
    bench("import_seconds", seconds, "s");
    bench("import_rate", points / seconds, "points/s");
    bench("import_cpu_seconds", cpu, "s");
    bench("saved_track_points", double(points), "points");
    bench("saved_waypoints", double(savedCount(QStringLiteral("HBWaypoint"))), "waypoints");
    bench("peak_rss", usage.ru_maxrss / 1024.0, "MiB");
    return 0;
}
