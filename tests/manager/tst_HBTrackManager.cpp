#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "manager/HBTrackManager.h"
#include "model/HBTrackDataModel.h"
#include "model/HBTrackPoint.h"
#include "model/HBWaypoint.h"
#include "platform/HBOperationQueue.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBPersistentStore.h"
#include "platform/store/HBPersistentStoreCoordinator.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <atomic>
#include <thread>

// The two managers in one process, over real files in a temporary home:
// where points land, how a new period file reaches both coordinators, and
// that opening files from several threads at once neither deadlocks nor
// opens a file twice.
class tst_HBTrackManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackManager *m_manager = nullptr;

    static QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
    {
        return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
    }

    static QString fileOf(const QString &name)
    {
        return name == QLatin1String("TrackManagerDatabase.sql") ? HBTrackManager::supportFolder() + u'/' + name
                                                                 : HBTrackManager::pointFolder() + u'/' + name;
    }

    static int storesAt(HBPersistentStoreCoordinator *coordinator, const QString &path)
    {
        int n = 0;
        for (const HBPersistentStore *s : coordinator->persistentStores())
            n += s->path() == path;
        return n;
    }

    // Inserts a named track point (or waypoint) in the root context.
    HBGeoPoint *insertPoint(const QString &entity, const QString &name, const QDateTime &date)
    {
        HBManagedObjectContext *context = m_manager->managedObjectContext();
        HBGeoPoint *point = nullptr;
        context->performBlockAndWait([&] {
            point = context->insertNewObject<HBGeoPoint>(entity);
            point->setName(name);
            point->setLatitude(HBDecimal::fromString(u"47.123456789"));
            if (date.isValid())
                point->setDate(date);
        });
        return point;
    }

    static qint64 pointsNamed(const QString &file, const QString &name)
    {
        return rowsIn(fileOf(file), QStringLiteral("HBGeoPoint"), QStringLiteral("name = '%1'").arg(name));
    }

    // Inserts one point of the date in a fresh background context and saves it.
    static void insertInBackground(const QDateTime &date, const QString &name)
    {
        std::unique_ptr<HBManagedObjectContext> context = HBTrackManager::sharedBackgroundThreadTrackManager()->newManagedObjectContext();
        context->performBlockAndWait([&] {
            auto *point = context->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setName(name);
            point->setDate(date);
            context->save();
        });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_manager = HBTrackManager::sharedTrackManager();
        QCOMPARE(HBTrackManager::supportFolder(), m_home.filePath(QStringLiteral("data/Fernwick")));
        QCOMPARE(HBTrackManager::pointFolder(), m_home.filePath(QStringLiteral("data/Fernwick/PointDatabases")));
    }

    void periodNumber_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<qint64>("period");
        QTest::newRow("reference date") << utc(2001, 1, 1) << qint64(0);
        QTest::newRow("last second of period 0") << utc(2001, 1, 10, 23, 59, 59) << qint64(0);
        QTest::newRow("first second of period 1") << utc(2001, 1, 11) << qint64(1);
        QTest::newRow("one second before the reference") << utc(2000, 12, 31, 23, 59, 59) << qint64(-1);
        QTest::newRow("ten days before the reference") << utc(2000, 12, 22) << qint64(-1);
        QTest::newRow("just past ten days before") << utc(2000, 12, 21, 23, 59, 59) << qint64(-2);
        QTest::newRow("milliseconds do not round up")
            << QDateTime(QDate(2001, 1, 10), QTime(23, 59, 59, 999), Qt::UTC) << qint64(0);
        QTest::newRow("2024") << utc(2024, 6, 14, 9, 30) << qint64(856);
        QTest::newRow("1970") << utc(1970, 1, 1) << qint64(-1133);
        QTest::newRow("offset dates count as their instant")
            << QDateTime(QDate(2001, 1, 11), QTime(0, 30), QTimeZone(3600)) << qint64(0);
    }

    void periodNumber()
    {
        QFETCH(QDateTime, date);
        QFETCH(qint64, period);
        QCOMPARE(HBTrackManager::periodNumberForDate(date), period);
    }

    void pointsGoToTheFileOfTheirKindAndPeriod_data()
    {
        QTest::addColumn<QString>("entity");
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<QString>("file");
        const QString point = QStringLiteral("HBTrackPoint"), waypoint = QStringLiteral("HBWaypoint");
        QTest::newRow("last second of period 0") << point << utc(2001, 1, 10, 23, 59, 59) << QStringLiteral("0.sql");
        QTest::newRow("first second of period 1") << point << utc(2001, 1, 11) << QStringLiteral("1.sql");
        QTest::newRow("before the reference date") << point << utc(2000, 12, 31, 23, 59, 59) << QStringLiteral("-1.sql");
        QTest::newRow("no date") << point << QDateTime() << QStringLiteral("DatelessPoints.sql");
        QTest::newRow("dated waypoint") << waypoint << utc(2001, 1, 11) << QStringLiteral("TrackManagerDatabase.sql");
        QTest::newRow("waypoint without date") << waypoint << QDateTime() << QStringLiteral("TrackManagerDatabase.sql");
    }

    void pointsGoToTheFileOfTheirKindAndPeriod()
    {
        QFETCH(QString, entity);
        QFETCH(QDateTime, date);
        QFETCH(QString, file);
        const QString name = QStringLiteral("routing %1").arg(QTest::currentDataTag());
        insertPoint(entity, name, date);
        m_manager->save();
        QCOMPARE(pointsNamed(file, name), qint64(1));
        // and in no other file
        qint64 everywhere = 0;
        const QDir points(HBTrackManager::pointFolder(), QStringLiteral("*.sql"));
        for (const QString &other : points.entryList())
            everywhere += pointsNamed(other, name);
        everywhere += pointsNamed(QStringLiteral("TrackManagerDatabase.sql"), name);
        QCOMPARE(everywhere, qint64(1));
    }

    void savedPointKeepsItsFileWhenItsDateChanges()
    {
        HBGeoPoint *point = insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("mover"), utc(2010, 3, 1));
        m_manager->save();
        m_manager->managedObjectContext()->performBlockAndWait([&] { point->setDate(utc(2012, 7, 1)); });
        m_manager->save();
        const QString first = QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(utc(2010, 3, 1)));
        QCOMPARE(pointsNamed(first, QStringLiteral("mover")), qint64(1));
        QVERIFY(!QFile::exists(fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(utc(2012, 7, 1))))));
    }

    void unsavedPointFollowsItsDate()
    {
        HBGeoPoint *point = insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("follower"), utc(2011, 3, 1));
        m_manager->managedObjectContext()->performBlockAndWait([&] { point->setDate(utc(2011, 5, 1)); });
        m_manager->save();
        const QString second = QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(utc(2011, 5, 1)));
        QCOMPARE(pointsNamed(second, QStringLiteral("follower")), qint64(1));
    }

    void newPeriodFileIsMirroredUnderOneIdentifier()
    {
        const QDateTime date = utc(2015, 8, 8, 8, 8, 8);
        HBGeoPoint *point = insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("mirrored"), date);
        const QString path = fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)));
        HBPersistentStoreCoordinator *main = m_manager->persistentStoreCoordinator();
        HBPersistentStoreCoordinator *background = HBTrackManager::sharedBackgroundThreadTrackManager()->persistentStoreCoordinator();
        QVERIFY(main != background);
        QCOMPARE(storesAt(main, path), 1);
        QCOMPARE(storesAt(background, path), 1);
        HBPersistentStore *registered = HBTrackManager::persistentStoresDictionary().value(
            QString::number(HBTrackManager::periodNumberForDate(date)));
        QVERIFY(registered);
        QCOMPARE(registered->path(), path);
        QCOMPARE(main->persistentStoreForURL(QUrl::fromLocalFile(path))->identifier(),
                 background->persistentStoreForURL(QUrl::fromLocalFile(path))->identifier());

        m_manager->save();
        QString uri;
        m_manager->managedObjectContext()->performBlockAndWait([&] { uri = point->objectID().uriString(); });
        // the ID minted through one coordinator names the row in the other
        std::unique_ptr<HBManagedObjectContext> other = HBTrackManager::sharedBackgroundThreadTrackManager()->newManagedObjectContext();
        other->performBlockAndWait([&] {
            auto *found = static_cast<HBGeoPoint *>(other->existingObjectWithID(background->managedObjectIDForURIString(uri)));
            QVERIFY(found);
            QCOMPARE(found->name(), QStringLiteral("mirrored"));
            QCOMPARE(found->latitude()->toString(), QStringLiteral("47.123456789"));
        });
    }

    // Worker threads open the same new period while the main thread waits
    // for them in a queue: the main thread must serve their mirroring.
    void threadsOpeningOnePeriodOpenItOnce()
    {
        const QDateTime date = utc(2018, 2, 2);
        const QString path = fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)));
        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(4);
        for (int i = 0; i < 4; ++i)
            queue.addOperationWithBlock([date, i] { insertInBackground(date.addSecs(i), QStringLiteral("racer")); });
        queue.waitUntilAllOperationsAreFinished();
        QCOMPARE(storesAt(HBTrackManager::sharedBackgroundThreadTrackManager()->persistentStoreCoordinator(), path), 1);
        QCOMPARE(storesAt(m_manager->persistentStoreCoordinator(), path), 1);
        QCOMPARE(rowsIn(path, QStringLiteral("HBGeoPoint")), qint64(4));
    }

    // A worker opens a period while the main thread runs its event loop,
    // as in a desktop host.
    void workerOpensAPeriodUnderTheEventLoop()
    {
        const QDateTime date = utc(2017, 5, 5);
        const QString path = fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)));
        std::atomic<bool> done{false};
        std::thread worker([&] {
            insertInBackground(date, QStringLiteral("looped"));
            done = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(done.load(), 60000);
        worker.join();
        QCOMPARE(storesAt(m_manager->persistentStoreCoordinator(), path), 1);
        QCOMPARE(rowsIn(path, QStringLiteral("HBGeoPoint")), qint64(1));
    }

    // The main thread opens a period itself while workers open the same one.
    void mainThreadAndWorkersOpenOnePeriod()
    {
        const QDateTime date = utc(2019, 9, 9);
        const QString path = fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)));
        HBOperationQueue queue;
        queue.setMaxConcurrentOperationCount(3);
        for (int i = 0; i < 3; ++i)
            queue.addOperationWithBlock([date, i] { insertInBackground(date.addSecs(i), QStringLiteral("worker")); });
        HBManagedObjectContext *ui = m_manager->mainQueueContext();
        ui->performBlockAndWait([&] {
            auto *point = ui->insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            point->setName(QStringLiteral("main"));
            point->setDate(date.addSecs(100));
            QVERIFY(ui->save());
        });
        queue.waitUntilAllOperationsAreFinished();
        m_manager->save();
        QCOMPARE(storesAt(HBTrackManager::sharedBackgroundThreadTrackManager()->persistentStoreCoordinator(), path), 1);
        QCOMPARE(storesAt(m_manager->persistentStoreCoordinator(), path), 1);
        QCOMPARE(rowsIn(path, QStringLiteral("HBGeoPoint")), qint64(4));
    }

    void extraAttributesLiveWithTheirPoint()
    {
        const QDateTime date = utc(2016, 4, 4);
        HBGeoPoint *point = insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("precise"), date);
        m_manager->managedObjectContext()->performBlockAndWait(
            [&] { point->setHorizontalDilutionOfPrecision(HBDecimal::fromString(u"1.40")); });
        m_manager->save();
        const QString path = fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)));
        QCOMPARE(rowsIn(path, QStringLiteral("HBGeoPointAdditions"), QStringLiteral("key = 'com.fernwick.hdop'")), qint64(1));
    }

    void bonusTableKeepsOneRowPerKey()
    {
        QVERIFY(!m_manager->fetchBonusTableValueForKey(QStringLiteral("never set")).isValid());
        m_manager->setBonusTableValue(QStringLiteral("dark"), QStringLiteral("theme"));
        m_manager->setBonusTableValue(QStringLiteral("light"), QStringLiteral("theme"));
        m_manager->setBonusTableValue(42, QStringLiteral("launches"));
        QCOMPARE(m_manager->fetchBonusTableValueForKey(QStringLiteral("theme")).toString(), QStringLiteral("light"));
        QCOMPARE(m_manager->fetchBonusTableValueForKey(QStringLiteral("launches")).toInt(), 42);
        m_manager->save();
        const QString central = fileOf(QStringLiteral("TrackManagerDatabase.sql"));
        QCOMPARE(rowsIn(central, QStringLiteral("HBBonusTable"), QStringLiteral("key = 'theme'")), qint64(1));
        QCOMPARE(rowsIn(central, QStringLiteral("HBBonusTable")), qint64(2));
    }

    void deletePointsWithIDsRemovesThemAndTheirExtras()
    {
        const QDateTime a = utc(2020, 1, 5), b = utc(2020, 3, 5);
        QList<HBGeoPoint *> points{
            insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("gone 1"), a),
            insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("gone 2"), b),
            insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("stays"), b),
        };
        m_manager->managedObjectContext()->performBlockAndWait([&] { points[0]->setNumberOfSatellites(7); });
        m_manager->save();
        QList<HBManagedObjectID> ids;
        m_manager->managedObjectContext()->performBlockAndWait([&] { ids = {points[0]->objectID(), points[1]->objectID()}; });
        QSignalSpy announced(m_manager, &HBTrackManager::didDeleteObjects);
        m_manager->deletePointsWithIDs({});
        m_manager->deletePointsWithIDs(ids);
        m_manager->save();
        const QString fileA = QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(a));
        const QString fileB = QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(b));
        QCOMPARE(pointsNamed(fileA, QStringLiteral("gone 1")), qint64(0));
        QCOMPARE(pointsNamed(fileB, QStringLiteral("gone 2")), qint64(0));
        QCOMPARE(pointsNamed(fileB, QStringLiteral("stays")), qint64(1));
        QCOMPARE(rowsIn(fileOf(fileA), QStringLiteral("HBGeoPointAdditions")), qint64(0));
        QCoreApplication::processEvents();
        QCOMPARE(announced.count(), 0);
    }

    void deletePointsWithURIsRemovesThemAcrossFilesAndAnnouncesOnce()
    {
        const QList<QDateTime> dates{utc(2021, 1, 1), utc(2021, 2, 1), utc(2021, 3, 1)};
        QList<HBGeoPoint *> points;
        for (const QDateTime &date : dates)
            points.append(insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("by uri"), date));
        points.append(insertPoint(QStringLiteral("HBTrackPoint"), QStringLiteral("kept"), dates.first()));
        m_manager->save();
        QList<QUrl> uris;
        m_manager->managedObjectContext()->performBlockAndWait([&] {
            for (int i = 0; i < 3; ++i)
                uris.append(points[i]->objectID().URIRepresentation());
        });
        uris.append(QUrl(QStringLiteral("x-hbgps://00000000-0000-0000-0000-000000000000/HBTrackPoint/p1")));
        QSignalSpy announced(m_manager, &HBTrackManager::didDeleteObjects);
        m_manager->deletePointsWithURIs({});
        m_manager->deletePointsWithURIs(uris);
        QVERIFY(announced.wait(20000));
        QCoreApplication::processEvents();
        QCOMPARE(announced.count(), 1);
        for (const QDateTime &date : dates)
            QCOMPARE(pointsNamed(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(date)), QStringLiteral("by uri")),
                     qint64(0));
        QCOMPARE(pointsNamed(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(dates.first())),
                             QStringLiteral("kept")),
                 qint64(1));
    }

    void pointOfAForeignCoordinatorIsNotAssigned()
    {
        QTemporaryDir dir;
        HBPersistentStoreCoordinator foreign(HBTrackDataModel::model());
        HBError error;
        QVERIFY(foreign.addPersistentStore({}, dir.filePath(QStringLiteral("other.sql")), &error));
        HBManagedObjectContext context(HBManagedObjectContext::PrivateQueueConcurrencyType);
        context.setPersistentStoreCoordinator(&foreign);
        context.performBlockAndWait([&] {
            QTest::ignoreMessage(QtWarningMsg, "Not assigning point to ANY reasonable coordinator!!!");
            auto *point = context.insertNewObject<HBTrackPoint>(QStringLiteral("HBTrackPoint"));
            QTest::ignoreMessage(QtWarningMsg, "Not assigning point to ANY reasonable coordinator!!!");
            point->setDate(utc(2022, 2, 2));
            QVERIFY(context.save());
        });
        QVERIFY(!QFile::exists(fileOf(QStringLiteral("%1.sql").arg(HBTrackManager::periodNumberForDate(utc(2022, 2, 2))))));
    }

    void cacheFolderIsMadeUnderTheUsersCaches()
    {
        const QString folder = HBTrackManager::cacheFolder();
        QCOMPARE(folder, m_home.filePath(QStringLiteral("cache/Fernwick/TrackManagerDatabase")));
        QVERIFY(QFileInfo(folder).isDir());
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackManager)
#include "tst_HBTrackManager.moc"
