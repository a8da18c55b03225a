// The browsing trees and the source list on a library of ten years: 10,000
// tracks of 100 points each and 10,000 waypoints, imported from one GPX
// file per month. For each measurement, the median over the runs of the
// time from the request to its result, of the longest single stay on the
// main thread (one event, or the request's own call; the longest of all
// runs) and of all the main thread's time in between; an unchanged refresh
// also gives the row changes it announced. Prints "BENCH <name> <value> <unit>" lines.
//
// Every run starts from a new source list, with a tree and a table model
// attached as the window has them, and an emptied main-queue context, so
// that each run loads its records as the first one after a start does.
//
//   bench_browse [--runs N] [--library DIR]
//
// The library is made in a temporary home, or in DIR and kept there for
// the next call; making it imports 1,000,000 points (about a minute).

#include "TemporaryHome.h"

#include "browse/HBDateTree.h"
#include "browse/HBFileTree.h"
#include "browse/HBSmartFileTree.h"
#include "browse/HBSourceListTreeModel.h"
#include "browse/HBTrackSourceList.h"
#include "browse/HBTracksAndWaypointsTableModel.h"
#include "browse/YearObject.h"
#include "manager/HBTrackManager.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>

namespace {

constexpr int kTracks = 10000;
constexpr int kPointsPerTrack = 100;
constexpr int kWaypoints = 10000;
constexpr int kFiles = 120;   // one a month

// Times every event the main thread handles while it records.
class TimedApplication : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        if (!recording)
            return QCoreApplication::notify(receiver, event);
        QElapsedTimer timer;
        timer.start();
        const bool handled = QCoreApplication::notify(receiver, event);
        stay(timer.nsecsElapsed());
        return handled;
    }

    void stay(qint64 nanoseconds)
    {
        longest = std::max(longest, nanoseconds);
        total += nanoseconds;
    }

    bool recording = false;
    qint64 longest = 0, total = 0;
};

struct Sample
{
    double seconds, longestStay, mainThread;
};

std::map<QString, QList<Sample>> samples;
TimedApplication *application = nullptr;

// Runs the request, then the event loop until done() holds.
void measure(const QString &name, const std::function<void()> &request, const std::function<bool()> &done)
{
    application->longest = application->total = 0;
    application->recording = true;
    QElapsedTimer timer;
    timer.start();
    request();
    application->stay(timer.nsecsElapsed());
    while (!done())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    application->recording = false;
    samples[name].append({timer.nsecsElapsed() / 1e9, application->longest / 1e9, application->total / 1e9});
}

void waitUntil(const std::function<bool()> &done)
{
    while (!done())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

// One month's file: its share of the tracks (a point every 10 s from
// 09:00 UTC on their day) and of the waypoints (07:00 UTC).
QByteArray monthFile(int file)
{
    const QDateTime first(QDate(2014, 1, 1), QTime(0, 0), Qt::UTC);
    const qint64 span = first.secsTo(QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC));
    QByteArray gpx = "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" creator=\"bench_browse\" "
                     "xmlns=\"http://www.topografix.com/GPX/1/1\">\n";
    for (int w = kWaypoints * file / kFiles; w < kWaypoints * (file + 1) / kFiles; ++w) {
        const QDateTime date = first.addSecs(span * w / kWaypoints).addSecs(7 * 3600);
        gpx += QStringLiteral("<wpt lat=\"%1\" lon=\"%2\"><time>%3</time><name>W%4</name></wpt>\n")
                   .arg(45.0 + w * 1e-4, 0, 'f', 6).arg(7.0 + w * 1e-4, 0, 'f', 6).arg(date.toString(Qt::ISODate)).arg(w)
                   .toUtf8();
    }
    for (int t = kTracks * file / kFiles; t < kTracks * (file + 1) / kFiles; ++t) {
        const QDateTime start = first.addSecs(span * t / kTracks).addSecs(9 * 3600);
        gpx += "<trk><name>T" + QByteArray::number(t) + "</name><trkseg>\n";
        for (int p = 0; p < kPointsPerTrack; ++p) {
            gpx += QStringLiteral("<trkpt lat=\"%1\" lon=\"%2\"><ele>%3</ele><time>%4</time></trkpt>\n")
                       .arg(46.0 + t * 1e-3 + p * 1e-5, 0, 'f', 6).arg(8.0 + p * 1e-5, 0, 'f', 6).arg(400 + p % 7)
                       .arg(start.addSecs(10 * p).toString(Qt::ISODate)).toUtf8();
        }
        gpx += "</trkseg></trk>\n";
    }
    return gpx + "</gpx>\n";
}

// Imports the library in one batch, so that "Recent Imports" lists all of it.
void makeLibrary(const QString &folder)
{
    QStringList paths;
    for (int file = 0; file < kFiles; ++file) {
        const QString path = QStringLiteral("%1/month-%2.gpx").arg(folder).arg(file, 3, 10, QLatin1Char('0'));
        QFile out(path);
        if (!out.open(QIODevice::WriteOnly) || out.write(monthFile(file)) < 0) {
            std::fprintf(stderr, "bench_browse: cannot write %s\n", qPrintable(path));
            std::exit(1);
        }
        paths.append(path);
    }
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    QElapsedTimer timer;
    timer.start();
    manager->importFilesAtPaths(paths);
    waitUntil([manager] { return !manager->trackImportIsInProgress() && manager->trackImportQueue()->operationCount() == 0; });
    manager->save();
    std::printf("BENCH library_import %.3f seconds\n", timer.nsecsElapsed() / 1e9);
}

qint64 storedCount(const QString &entity)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    qint64 count = 0;
    context->performBlockAndWait([&] { count = context->countForFetchRequest(HBFetchRequest(entity)); });
    return count;
}

// Counts the row changes of a model.
struct RowChanges
{
    explicit RowChanges(QAbstractItemModel *model)
    {
        for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
            QObject::connect(model, signal, [this] { ++count; });
        QObject::connect(model, &QAbstractItemModel::layoutChanged, [this] { ++count; });
        QObject::connect(model, &QAbstractItemModel::modelReset, [this] { ++count; });
    }
    int count = 0;
};

void oneRun()
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBTrackSourceList *list = nullptr;
    bool datesLoaded = false, filesLoaded = false;
    measure(QStringLiteral("source_list_start"), [&] {
        list = new HBTrackSourceList;
        new HBSourceListTreeModel(list, list);
        new HBTracksAndWaypointsTableModel(list, list);
        QObject::connect(list->dateTree(), &HBDateTree::didReload, [&datesLoaded] { datesLoaded = true; });
        QObject::connect(list->fileTree(), &HBFileTree::didReload, [&filesLoaded] { filesLoaded = true; });
    }, [&] { return datesLoaded && filesLoaded && !list->isRefreshing(); });

    auto reload = [&](const QString &name, auto *tree, const std::function<void()> &request) {
        bool done = false;
        const auto c = QObject::connect(tree, &std::remove_pointer_t<decltype(tree)>::didReload, [&done] { done = true; });
        measure(name, request, [&done] { return done; });
        QObject::disconnect(c);
    };
    reload(QStringLiteral("date_tree_reload"), list->dateTree(), [&] { list->dateTree()->reloadForImportSource(nullptr); });
    reload(QStringLiteral("file_tree_reload"), list->fileTree(), [&] { list->fileTree()->reloadForDatePredicate({}); });
    auto fresh = std::make_unique<HBDateTree>();
    reload(QStringLiteral("date_tree_first_load"), fresh.get(), [&] { fresh->reloadForImportSource(nullptr); });
    auto freshFiles = std::make_unique<HBFileTree>();
    reload(QStringLiteral("file_tree_first_load"), freshFiles.get(), [&] { freshFiles->reloadForDatePredicate({}); });

    auto refreshed = [list] { return !list->isRefreshing(); };
    HBTreeNode *year = list->dateTree()->years().at(list->dateTree()->years().size() / 2);
    measure(QStringLiteral("refresh_year"), [&] { list->setSelectedSourceList(year); }, refreshed);
    const quint64 yearTracks = list->countOfTracks();
    list->setSelectedSourceList(nullptr);
    waitUntil(refreshed);
    HBTreeNode *everything = list->smartTree()->children().constFirst();
    measure(QStringLiteral("refresh_everything"), [&] { list->setSelectedSourceList(everything); }, refreshed);
    if (list->countOfTracks() != quint64(kTracks) || list->countOfWaypoints() != quint64(kWaypoints) || yearTracks == 0) {
        std::fprintf(stderr, "bench_browse: listed %llu tracks and %llu waypoints\n", list->countOfTracks(), list->countOfWaypoints());
        std::exit(1);
    }
    RowChanges table(list->findChild<HBTracksAndWaypointsTableModel *>());
    int listChanges = 0;
    QObject::connect(list, &HBTrackSourceList::tracksAndWaypointsChanged, [&listChanges] { ++listChanges; });
    measure(QStringLiteral("refresh_unchanged"), [&] { list->refreshTracksAndWaypoints(); }, refreshed);
    samples[QStringLiteral("refresh_unchanged_row_changes")].append({double(table.count + listChanges), 0, 0});
    // a person sorts the whole library by name: the waypoints' values
    // load first, in one go, then the 20,000 rows are put in order
    auto *tableModel = list->findChild<HBTracksAndWaypointsTableModel *>();
    measure(QStringLiteral("sort_everything_by_name"), [&] { tableModel->sort(HBTracksAndWaypointsTableModel::Name); },
            [] { return true; });
    measure(QStringLiteral("sort_everything_by_date"), [&] { tableModel->sort(HBTracksAndWaypointsTableModel::StartDate); },
            [] { return true; });

    delete list;
    // Records of the main-queue context load again in the next run, as
    // after a start.
    manager->mainQueueContext()->performBlockAndWait([manager] { manager->mainQueueContext()->reset(); });
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    const qsizetype n = values.size();
    return n % 2 ? values.at(n / 2) : (values.at(n / 2 - 1) + values.at(n / 2)) / 2;
}

void printMedians()
{
    for (const auto &[name, runs] : samples) {
        QList<double> seconds, longest, total;
        for (const Sample &s : runs) {
            seconds.append(s.seconds);
            longest.append(s.longestStay);
            total.append(s.mainThread);
        }
        if (name.endsWith(QLatin1String("_row_changes"))) {
            std::printf("BENCH %s %.0f changes\n", qPrintable(name), median(seconds));
            continue;
        }
        std::printf("BENCH %s %.4f seconds\n", qPrintable(name), median(seconds));
        // the longest stay of all runs: a frame may fall on any of them
        std::printf("BENCH %s_main_thread_longest %.4f seconds\n", qPrintable(name), *std::max_element(longest.cbegin(), longest.cend()));
        std::printf("BENCH %s_main_thread_total %.4f seconds\n", qPrintable(name), median(total));
    }
}

} // namespace

int main(int argc, char **argv)
{
    TimedApplication app(argc, argv);
    application = &app;
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("runs"), QStringLiteral("Runs of each measurement (5)."), QStringLiteral("N"), QStringLiteral("5")});
    parser.addOption({QStringLiteral("library"), QStringLiteral("Folder that keeps the library."), QStringLiteral("DIR")});
    parser.process(app);
    QTemporaryDir temporary;
    const QString home = parser.isSet(QStringLiteral("library")) ? parser.value(QStringLiteral("library")) : temporary.path();
    QDir().mkpath(home + QStringLiteral("/files"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home + QStringLiteral("/cache")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/config")));
    if (storedCount(QStringLiteral("HBTrack")) == 0)
        makeLibrary(home + QStringLiteral("/files"));
    if (storedCount(QStringLiteral("HBTrack")) != kTracks || storedCount(QStringLiteral("HBWaypoint")) != kWaypoints) {
        std::fprintf(stderr, "bench_browse: the library in %s is not the one this program makes\n", qPrintable(home));
        return 1;
    }
    const int runs = std::max(1, parser.value(QStringLiteral("runs")).toInt());
    for (int run = 0; run < runs; ++run)
        oneRun();
    printMedians();
    return 0;
}
