// The map canvas drawing the sample library and a track of a million
// points at world, city and street scale, each frame panned by a pixel, and
// the hover over that track on a still map (finding the point under the
// mouse and moving the bubble). Each figure is the median of RUNS, offscreen,
// into a 1000 x 700 image.
// Prints "BENCH <name> <value> <unit>" lines.
//
//   bench_map_canvas [POINTS [RUNS]]     defaults 1000000 and 15; a fresh temporary home

#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBWaypoint.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"
#include "ui/HBMapCanvas.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QMouseEvent>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

const QSize kViewSize(1000, 700);

double threadCpuMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The medians of the main thread's processor time and of the wall time: on
// a shared machine the first is what the frame costs, the second what it
// took while the others ran.
struct Timing
{
    double cpu;
    double wall;
};

Timing medianMilliseconds(int runs, const std::function<void()> &work)
{
    std::vector<double> cpu, wall;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        const double start = threadCpuMilliseconds();
        work();
        cpu.push_back(threadCpuMilliseconds() - start);
        wall.push_back(timer.nsecsElapsed() / 1e6);
    }
    return {median(cpu), median(wall)};
}

void report(const char *name, Timing timing)
{
    std::printf("BENCH %s %.3f ms\nBENCH %s_wall %.3f ms\n", name, timing.cpu, name, timing.wall);
    std::fflush(stdout);
}

// A walk of `count` steps of about 5 m through Munich's streets, kept as a
// track's geometry (the cache files, as an import leaves them) without points.
void storeLongTrack(HBTrackManager *manager, qint64 count)
{
    std::vector<QPointF> points;
    points.reserve(count);
    double lon = 11.45, lat = 48.10, heading = 0;
    for (qint64 i = 0; i < count; ++i) {
        heading += std::sin(double(i) * 0.0007) * 0.05;
        lon += 0.00006 * std::cos(heading);
        lat += 0.00004 * std::sin(heading);
        points.emplace_back(lon, lat);
    }
    HBManagedObjectContext *context = manager->managedObjectContext();
    context->performBlockAndWait([&] {
        auto *track = context->insertNewObject<HBTrack>(QStringLiteral("HBTrack"));
        track->setName(QStringLiteral("Long"));
        auto geometry = std::make_shared<HBTrackGeometry>(std::move(points));
        geometry->setHasUnsavedChanges(true);
        track->setGeometry(geometry);
        context->obtainPermanentIDsForObjects({track});
        track->geometry()->geometryWithProjection(HBProjection(HBProjection::WebMercatorSRID));
        context->save();
    });
}

void importSamples(HBTrackManager *manager)
{
    const QDir samples(QStringLiteral(HB_SAMPLES_DIR));
    QStringList paths;
    for (const QString &name : samples.entryList(QDir::Files))
        paths.append(samples.filePath(name));
    manager->importFilesAtPaths(paths);
    while (manager->trackImportIsInProgress() || manager->trackImportQueue()->operationCount() > 0)
        QApplication::processEvents(QEventLoop::AllEvents, 50);
}

QList<HBSpatialObject *> listed(const HBFetchedRecords<HBTrack> &tracks, const HBFetchedRecords<HBWaypoint> &waypoints)
{
    QList<HBSpatialObject *> objects(tracks.records.cbegin(), tracks.records.cend());
    for (HBWaypoint *waypoint : waypoints.records)
        objects.append(waypoint);
    return objects;
}

// Each frame of a view moved by a pixel, as while panning: nothing of the
// frame before can be reused.
Timing paint(HBMapCanvas &canvas, int runs)
{
    QImage frame(kViewSize, QImage::Format_ARGB32_Premultiplied);
    double direction = 1;
    return medianMilliseconds(runs, [&] {
        canvas.setView(canvas.view().panned(QPointF(direction, 0)));
        direction = -direction;
        canvas.render(&frame);
    });
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const qint64 count = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1000000;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 15;
    QTemporaryDir home;
    useTemporaryHome(home);
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();

    HBMapCanvas canvas;
    canvas.resize(kViewSize);
    importSamples(manager);
    {
        const auto tracks = manager->tracksForPredicate(HBPredicate::truePredicate());
        const auto waypoints = manager->waypointsForPredicate(HBPredicate::truePredicate());
        canvas.setSpatialObjects(listed(tracks, waypoints));
        canvas.fitSpatialObjects(canvas.spatialObjects());
        report("paint_sample_library", paint(canvas, runs));
        canvas.setSpatialObjects({});
    }

    storeLongTrack(manager, count);
    const auto tracks = manager->tracksForPredicate(HBPredicate::format(QStringLiteral("name == 'Long'")));
    report("long_track_list", medianMilliseconds(1, [&] { canvas.setSpatialObjects({tracks.records.first()}); }));
    canvas.fitSpatialObjects(canvas.spatialObjects());
    const QPointF middle = canvas.view().centre();
    const struct { const char *name; double metresPerPixel; } scales[] = {
        {"paint_long_track_world", HBMapView::kMaxMetresPerPixel / 4},
        {"paint_long_track_fitted", canvas.view().metresPerPixel()},
        {"paint_long_track_city", 10},
        {"paint_long_track_street", 1},
    };
    for (const auto &scale : scales) {
        canvas.setView(HBMapView(middle, scale.metresPerPixel));
        report(scale.name, paint(canvas, runs));
    }

    // the hover at city scale, the mouse going along the track's points
    canvas.setView(HBMapView(middle, 10));
    const auto projected = tracks.records.first()->geometry()->geometryWithProjection(HBProjection(3857));
    qint64 step = 0;
    report("hover_long_track_city", medianMilliseconds(runs, [&] {
               const QPointF at = canvas.view().toView(projected->points()[count / 2 + 50 * step++], kViewSize);
               QMouseEvent move(QEvent::MouseMove, at, canvas.mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                                Qt::NoModifier);
               QApplication::sendEvent(&canvas, &move);
           }));
    report("paint_long_track_city_with_bubble", paint(canvas, runs));
    return 0;
}
