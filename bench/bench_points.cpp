// Inserting and saving a million track points through the track manager,
// beside a plain SQLite loop writing the same rows into one file (the
// median of three runs), then fetching a tenth of them by ID. Prints
// "BENCH <name> <value> <unit>" lines.
//
//   bench_points [POINTS]        default 1000000; data goes to a fresh temporary home

#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrackPoint.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <sqlite3.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr qint64 kPeriods = 36;
constexpr qint64 kPeriodSeconds = 864000;

struct Sample
{
    QString latitude, longitude, elevation;
    QDateTime date;
};

// A walk over 36 ten-day periods, with the digits a receiver writes.
Sample sample(qint64 i, qint64 count)
{
    const QDateTime start(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC);
    return {QString::number(47.0 + double(i % 100000) * 1e-6, 'f', 6),
            QString::number(8.0 + double(i % 70000) * 1e-6, 'f', 6),
            QString::number(400.0 + double(i % 1000) * 0.1, 'f', 1),
            start.addSecs(i * kPeriods * kPeriodSeconds / count)};
}

void bench(const char *name, double value, const char *unit)
{
    std::printf("BENCH %s %.3f %s\n", name, value, unit);
    std::fflush(stdout);
}

// Returns the seconds taken; every tenth point's ID goes to `sampleIDs`.
double insertThroughManager(qint64 count, QList<HBManagedObjectID> *sampleIDs)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    QList<HBTrackPoint *> samples;
    QElapsedTimer timer;
    timer.start();
    context->performBlockAndWait([&] {
        for (qint64 i = 0; i < count; ++i) {
            const Sample s = sample(i, count);
            auto *point = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setLatitude(HBDecimal::fromString(s.latitude));
            point->setLongitude(HBDecimal::fromString(s.longitude));
            point->setElevation(HBDecimal::fromString(s.elevation));
            point->setOrder(i);
            point->setDate(s.date);
            if (i % 10 == 0)
                samples.append(point);
        }
    });
    manager->save();
    const double seconds = timer.nsecsElapsed() / 1e9;
    context->performBlockAndWait([&] {
        for (const HBTrackPoint *point : std::as_const(samples))
            sampleIDs->append(point->objectID());
        // the fetch below starts from nothing loaded
        context->reset();
    });
    return seconds;
}

double insertWithSqlite(const QString &path, qint64 count)
{
    sqlite3 *db = nullptr;
    sqlite3_open(QFile::encodeName(path).constData(), &db);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
                     "CREATE TABLE points (id INTEGER PRIMARY KEY, ent INTEGER, latitude TEXT, longitude TEXT,"
                     " elevation TEXT, date INTEGER, \"order\" INTEGER)",
                 nullptr, nullptr, nullptr);
    QElapsedTimer timer;
    timer.start();
    sqlite3_stmt *insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO points VALUES (?, ?, ?, ?, ?, ?, ?)", -1, &insert, nullptr);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    for (qint64 i = 0; i < count; ++i) {
        const Sample s = sample(i, count);
        const QByteArray lat = s.latitude.toUtf8(), lon = s.longitude.toUtf8(), ele = s.elevation.toUtf8();
        sqlite3_bind_int64(insert, 1, i + 1);
        sqlite3_bind_int64(insert, 2, 2);
        sqlite3_bind_text(insert, 3, lat.constData(), int(lat.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 4, lon.constData(), int(lon.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 5, ele.constData(), int(ele.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int64(insert, 6, s.date.toMSecsSinceEpoch());
        sqlite3_bind_int64(insert, 7, i);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_finalize(insert);
    const double seconds = timer.nsecsElapsed() / 1e9;
    sqlite3_close(db);
    return seconds;
}

// A tenth of the points, fetched by ID in a fresh context.
double fetchByID(const QList<HBManagedObjectID> &ids, qint64 *found)
{
    std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedTrackManager()->newManagedObjectContext();
    QElapsedTimer timer;
    timer.start();
    context->performBlockAndWait([&] {
        HBFetchRequest request(QStringLiteral("HBTrackPoint"));
        request.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(ids)}));
        *found = context->executeFetchRequest(request).size();
    });
    return timer.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const qint64 count = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1000000;
    QTemporaryDir home;
    useTemporaryHome(home);

    // The plain loop is quick and swings with the disk's mood: the median of three runs.
    std::vector<double> rawRuns;
    for (int run = 0; run < 3; ++run)
        rawRuns.push_back(insertWithSqlite(home.filePath(QStringLiteral("raw%1.sql").arg(run)), count));
    std::sort(rawRuns.begin(), rawRuns.end());
    const double raw = rawRuns[1];
    QList<HBManagedObjectID> ids;
    const double managed = insertThroughManager(count, &ids);
    bench("sqlite_insert_rate", count / raw, "points/s");
    bench("insert_and_save_rate", count / managed, "points/s");
    bench("insert_and_save_ratio_to_sqlite", 100.0 * raw / managed, "%");
    qint64 found = 0;
    const double fetch = fetchByID(ids, &found);
    bench("fetch_100k_self_in", fetch, "s");
    bench("fetch_100k_found", double(found), "points");
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    bench("peak_rss", usage.ru_maxrss / 1024.0, "MiB");
    return found == (count + 9) / 10 ? 0 : 1;
}
