#include "SqliteRows.h"
#include "StoreFixture.h"

#include "platform/store/HBManagedObjectModel.h"

#include <QFile>
#include <QTest>
#include <QThread>

// What contexts write to and read from the store files themselves: fetches
// over several point files, in order and by ID lists, rows read ahead,
// large saves, files that refuse rows, cannot be opened or come from an
// earlier model.
class tst_HBStoreFiles : public QObject
{
    Q_OBJECT

    // A fresh pair of files for every test.
    std::unique_ptr<StoreFixture> f;

private slots:
    void init()
    {
        f = std::make_unique<StoreFixture>();
        QVERIFY(f->open());
    }

    // Each file gives its rows sorted, or in the order it scans them for
    // the context to sort; either way the fetch must come out in order
    // however the files' runs interleave, with equal orders in the order
    // they were saved, file by file (-1: no order at all, which sorts first).
    void sortedFetchOverSeveralFiles_data()
    {
        QTest::addColumn<QList<QList<int>>>("ordersByFile");
        QTest::addColumn<bool>("ascending");
        QTest::newRow("runs interleave") << QList<QList<int>>{{0, 3, 6}, {1, 4, 7}, {2, 5, 8}} << true;
        QTest::newRow("later file holds earlier points") << QList<QList<int>>{{5, 6, 7}, {0, 1}, {2, 3, 4}} << true;
        QTest::newRow("descending") << QList<QList<int>>{{5, 6, 7}, {0, 1}, {2, 3, 4}} << false;
        QTest::newRow("one file, one empty") << QList<QList<int>>{{9, 2, 4, 1}, {}, {}} << true;
        QTest::newRow("files in order already") << QList<QList<int>>{{0, 1}, {2, 3}, {4}} << true;
        QTest::newRow("equal orders in one file") << QList<QList<int>>{{3, 1, 3, 0, 3, 1}, {}, {}} << true;
        QTest::newRow("equal orders, descending") << QList<QList<int>>{{3, 1, 3, 0, 3, 1}, {}, {}} << false;
        QTest::newRow("equal orders across files") << QList<QList<int>>{{2, 2, 0}, {2, 1}, {0, 2}} << true;
        QTest::newRow("points without an order") << QList<QList<int>>{{4, -1, 2, -1}, {-1, 3}, {}} << true;
        QTest::newRow("without an order, descending") << QList<QList<int>>{{4, -1, 2, -1}, {-1, 3}, {}} << false;
    }

    void sortedFetchOverSeveralFiles()
    {
        QFETCH(QList<QList<int>>, ordersByFile);
        QFETCH(bool, ascending);
        HBError error;
        QList<HBPersistentStore *> files{f->points};
        for (const QString &name : {QStringLiteral("2.sql"), QStringLiteral("3.sql")})
            files << f->coordinator->addPersistentStore(QStringLiteral("PointOnly"), f->dir.filePath(name), &error);
        QVERIFY(!files.contains(nullptr));
        QList<std::pair<int, QString>> expected;   // order and name, as saved
        auto root = f->newRootContext();
        root->performBlockAndWait([&] {
            for (qsizetype i = 0; i < ordersByFile.size(); ++i) {
                for (int order : ordersByFile[i]) {
                    const QString name = QStringLiteral("%1.%2").arg(i).arg(expected.size());
                    QVariantMap values{{"name", name}};
                    if (order >= 0)
                        values.insert("order", order);
                    root->assignObject(insert(*root, "HBTrackPoint", values), files[i]);
                    expected.append({order, name});
                }
            }
            QVERIFY(root->save(&error));
        });
        std::stable_sort(expected.begin(), expected.end(), [ascending](const auto &a, const auto &b) {
            return ascending ? a.first < b.first : a.first > b.first;
        });
        auto fresh = f->newRootContext();
        QList<std::pair<int, QString>> fetched;
        fresh->performBlockAndWait([&] {
            HBFetchRequest r(QStringLiteral("HBTrackPoint"));
            r.setSortDescriptors({{QStringLiteral("order"), ascending}});
            for (const HBManagedObject *o : fresh->executeFetchRequest(r)) {
                const QVariant order = o->valueForKey(QStringLiteral("order"));
                fetched.append({order.isValid() ? order.toInt() : -1, o->valueForKey(QStringLiteral("name")).toString()});
            }
        });
        QCOMPARE(fetched, expected);
    }

    // A list of record IDs selects exactly those records, whether the file
    // reads them as runs of keys or as a list of keys: the first and last
    // of a run are in, their neighbours out, and IDs the file does not hold
    // match nothing.
    void idListSelectsExactlyItsRecords_data()
    {
        QTest::addColumn<QList<int>>("chosen");   // orders of the points, as listed
        QTest::addColumn<bool>("withStrangers");  // a track's ID and an unsaved point's too
        QList<int> everyOther;
        for (int order = 0; order < 40; order += 2)
            everyOther << order;
        QTest::newRow("one run") << QList<int>{5, 6, 7, 8, 9, 10, 11, 12, 13, 14} << false;
        QTest::newRow("runs and single points") << QList<int>{0, 1, 2, 7, 9, 10, 39} << false;
        QTest::newRow("more runs than are written out") << everyOther << false;
        QTest::newRow("out of order, repeated") << QList<int>{12, 11, 10, 10, 30, 29} << false;
        QTest::newRow("one point") << QList<int>{0} << false;
        QTest::newRow("with IDs this file does not hold") << QList<int>{3, 4, 20} << true;
        QTest::newRow("only IDs this file does not hold") << QList<int>{} << true;
    }

    void idListSelectsExactlyItsRecords()
    {
        QFETCH(QList<int>, chosen);
        QFETCH(bool, withStrangers);
        HBError error;
        QList<HBManagedObjectID> pointIDs, strangers;
        auto root = f->newRootContext();
        root->performBlockAndWait([&] {
            QList<HBManagedObject *> points;
            for (int order = 0; order < 40; ++order) {
                points << insert(*root, "HBTrackPoint", {{"order", order}});
                root->assignObject(points.last(), f->points);
            }
            HBManagedObject *track = insert(*root, "HBTrack", {{"name", "t"}});
            QVERIFY(root->save(&error));
            for (const HBManagedObject *p : points)
                pointIDs << p->objectID();
            strangers << track->objectID() << insert(*root, "HBTrackPoint", {{"order", 3}})->objectID();
        });
        QList<HBManagedObjectID> listed;
        for (int order : chosen)
            listed << pointIDs[order];
        auto reader = f->newRootContext();
        QList<int> fetched;
        reader->performBlockAndWait([&] {
            if (withStrangers)
                listed += strangers;
            HBFetchRequest r(QStringLiteral("HBTrackPoint"));
            r.setPredicate(HBPredicate::format(QStringLiteral("self IN %@"), {QVariant::fromValue(listed)}));
            r.setSortDescriptors({{QStringLiteral("order"), true}});
            for (const HBManagedObject *o : reader->executeFetchRequest(r))
                fetched << o->valueForKey(QStringLiteral("order")).toInt();
        });
        QList<int> expected = QSet<int>(chosen.begin(), chosen.end()).values();
        std::sort(expected.begin(), expected.end());
        QCOMPARE(fetched, expected);
    }

    // Rows read ahead serve the next fetch of the request only while they
    // are what the files hold for it: a save of the context or a file added
    // in between makes the fetch read again.
    void readAheadServesTheFetchUnlessTheFilesMovedOn_data()
    {
        QTest::addColumn<QString>("between");
        QTest::addColumn<QStringList>("expected");
        const QStringList saved{"a", "b", "c", "d"};
        QTest::newRow("nothing") << QString() << saved;
        QTest::newRow("a save") << "save" << saved + QStringList{"e"};
        QTest::newRow("a file added") << "file" << QStringList{"a", "b", "x", "c", "d"};
    }

    void readAheadServesTheFetchUnlessTheFilesMovedOn()
    {
        QFETCH(QString, between);
        QFETCH(QStringList, expected);
        HBError error;
        HBPersistentStore *second = f->coordinator->addPersistentStore(QStringLiteral("PointOnly"), f->dir.filePath("2.sql"), &error);
        QVERIFY(second);
        const QString thirdPath = f->dir.filePath("3.sql");
        {
            // a file that another coordinator wrote, opened here later
            HBPersistentStoreCoordinator other(HBTrackDataModel::model());
            HBPersistentStore *third = other.addPersistentStore(QStringLiteral("PointOnly"), thirdPath, &error);
            QVERIFY(third);
            HBManagedObjectContext writer(HBManagedObjectContext::PrivateQueueConcurrencyType);
            writer.setPersistentStoreCoordinator(&other);
            writer.performBlockAndWait([&] {
                writer.assignObject(insert(writer, "HBTrackPoint", {{"name", "x"}, {"order", 2}}), third);
                QVERIFY(writer.save(&error));
            });
        }
        auto root = f->newRootContext();
        const QList<std::pair<QString, int>> rows{{"a", 0}, {"b", 1}, {"c", 3}, {"d", 4}};
        root->performBlockAndWait([&] {
            for (const auto &[name, order] : rows)
                root->assignObject(insert(*root, "HBTrackPoint", {{"name", name}, {"order", order}}), order % 2 ? second : f->points);
            QVERIFY(root->save(&error));
        });

        auto reader = f->newRootContext();
        QStringList fetched;
        reader->performBlockAndWait([&] {
            HBFetchRequest request(QStringLiteral("HBTrackPoint"));
            request.setPredicate(HBPredicate::format(QStringLiteral("order >= %@"), {0}));
            request.setSortDescriptors({{QStringLiteral("order"), true}});
            reader->readAhead(request);
            // time for the reading to end first, as it would while an
            // exporter works, so that a read that is no longer good is there
            // to be taken
            QThread::msleep(200);
            if (between == "save") {
                reader->assignObject(insert(*reader, "HBTrackPoint", {{"name", "e"}, {"order", 5}}), f->points);
                QVERIFY(reader->save(&error));
            } else if (between == "file") {
                QVERIFY(f->coordinator->addPersistentStore(QStringLiteral("PointOnly"), thirdPath, &error));
            }
            for (const HBManagedObject *o : reader->executeFetchRequest(request))
                fetched << o->valueForKey(QStringLiteral("name")).toString();
        });
        QCOMPARE(fetched, expected);
    }

    // The store-error log prints the description and the detailed errors,
    // so the reason must be among the detailed errors.
    void aFileThatCannotBeOpenedIsRefusedWithAReason_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("reason");
        QTest::newRow("not SQLite") << QStringLiteral("TrackManagerDatabase.sql") << QByteArray(4096, 'x')
                                    << QStringLiteral("file is not a database");
        QTest::newRow("folder missing") << QStringLiteral("missing/TrackManagerDatabase.sql") << QByteArray()
                                        << QStringLiteral("unable to open database file (No such file or directory)");
    }

    void aFileThatCannotBeOpenedIsRefusedWithAReason()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QFETCH(QString, reason);
        QTemporaryDir dir;
        const QString path = dir.filePath(name);
        if (!content.isEmpty()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
        }
        HBPersistentStoreCoordinator coordinator(HBTrackDataModel::model());
        HBError error;
        QVERIFY(!coordinator.addPersistentStore(QString(), path, &error));
        QCOMPARE(error.localizedDescription(), QStringLiteral("The store file %1 could not be opened.").arg(path));
        QCOMPARE(error.localizedFailureReason(), reason);
        QCOMPARE(error.detailedErrorsDescription(), reason);
        QVERIFY(coordinator.persistentStores().isEmpty());
    }

    // A large save writes both files side by side, each statement binding
    // its values from buffers it reuses row after row, and skipping the
    // UTF-8 conversion of a string it has just bound. Every row must come
    // back with its own texts: a short number after a long one, a new
    // string after a repeated one, and no value after a value, included.
    // SQLite itself reads them back.
    void largeSaveKeepsEveryRowsOwnValues()
    {
        const auto quiet = quietManagerWarnings();
        auto root = f->newRootContext();
        constexpr int count = 6000;
        const QString shared = QStringLiteral("shared");
        const auto number = [](int i) {
            return i % 3 == 0 ? QStringLiteral("-%1.123456789").arg(i) : QStringLiteral("%1.5").arg(i % 90);
        };
        root->performBlockAndWait([&] {
            for (int i = 0; i < count; ++i) {
                const QVariant text = i % 5 == 4 ? QVariant() : QVariant(i % 2 ? shared : QStringLiteral("w%1").arg(i));
                const QVariant latitude = QVariant::fromValue(HBDecimal::fromString(number(i)));
                insert(*root, "HBWaypoint", {{"name", text}, {"latitude", latitude}});
                HBManagedObject *point = insert(*root, "HBTrackPoint", {{"trackSegmentURI", text}, {"latitude", latitude}});
                root->assignObject(point, f->points);
            }
            HBError error;
            QVERIFY2(root->save(&error), qPrintable(error.localizedDescription()));
        });
        // keys count from 1 in the order of insertion
        const QString expectedNumber = QStringLiteral("CASE WHEN (Z_PK - 1) % 3 = 0 THEN '-' || (Z_PK - 1) || '.123456789' "
                                                      "ELSE ((Z_PK - 1) % 90) || '.5' END");
        const QString expectedText = QStringLiteral("CASE WHEN (Z_PK - 1) % 5 = 4 THEN NULL "
                                                    "WHEN (Z_PK - 1) % 2 = 1 THEN 'shared' ELSE 'w' || (Z_PK - 1) END");
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPoint"), count);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint"), count);
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPoint", QStringLiteral("latitude IS NOT %1 OR name IS NOT %2").arg(expectedNumber, expectedText)), 0);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint",
                        QStringLiteral("latitude IS NOT %1 OR \"trackSegmentURI\" IS NOT %2").arg(expectedNumber, expectedText)),
                 0);
    }

    // A save whose rows one file refuses writes the rest: what reached a
    // file is clean, what did not stays pending and is written by the next
    // save, and an object inserted and deleted again is gone either way.
    // Points go into a file many rows to a statement and the rest one by
    // one; the refused row is in either, after rows the file had taken. A
    // trigger refuses a row and undoes its statement; a primary key the file
    // already holds stops the statement where it stands, and the rows of it
    // that went in must still not stay.
    void aFileThatRefusesItsRowsLeavesThemPending_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("refused");
        QTest::addColumn<bool>("byKey");
        for (const bool byKey : {false, true}) {
            const char *how = byKey ? "a key taken" : "a trigger";
            QTest::addRow("%s, a few points, the first refused", how) << 3 << 0 << byKey;
            QTest::addRow("%s, many points, one inside the second full statement refused", how) << 70 << 40 << byKey;
            QTest::addRow("%s, many points, one after the full statements refused", how) << 70 << 66 << byKey;
        }
    }

    void aFileThatRefusesItsRowsLeavesThemPending()
    {
        QFETCH(int, count);
        QFETCH(int, refused);
        QFETCH(bool, byKey);
        const auto quiet = quietManagerWarnings();
        auto root = f->newRootContext();
        // points are numbered from 1 in the order they were inserted
        const QString refusal = byKey ? QStringLiteral("INSERT INTO HBGeoPoint (Z_PK, Z_ENT) VALUES (%1, 0)").arg(refused + 1)
                                      : QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON HBGeoPoint WHEN NEW.\"order\" = %1 "
                                                       "BEGIN SELECT RAISE(ABORT, 'refused'); END").arg(refused);
        QVERIFY(execIn(f->pointsPath(), refusal));
        root->performBlockAndWait([&] {
            HBManagedObject *waypoint = insert(*root, "HBWaypoint", {{"name", "summit"}});
            QList<HBManagedObject *> points;
            for (int i = 0; i < count; ++i) {
                points << insert(*root, "HBTrackPoint", {{"order", i}});
                root->assignObject(points.last(), f->points);
            }
            HBManagedObject *dropped = insert(*root, "HBWaypoint", {{"name", "dropped"}});
            root->deleteObject(dropped);

            HBError error;
            QVERIFY(!root->save(&error));
            QCOMPARE(error.code(), 134030);
            QVERIFY(!waypoint->hasChanges());
            for (HBManagedObject *point : points)
                QVERIFY(point->isInserted());
            QCOMPARE(fetch(*root, "HBWaypoint").size(), 1);
            QCOMPARE(fetch(*root, "HBTrackPoint").size(), count);
        });
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint", QStringLiteral("Z_ENT <> 0")), 0);
        QVERIFY(execIn(f->pointsPath(), byKey ? QStringLiteral("DELETE FROM HBGeoPoint") : QStringLiteral("DROP TRIGGER refuse")));
        root->performBlockAndWait([&] {
            HBError error;
            QVERIFY2(root->save(&error), qPrintable(error.localizedDescription()));
            QVERIFY(!root->hasChanges());
        });
        QCOMPARE(rowsIn(f->centralPath(), "HBGeoPoint"), 1);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint"), count);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint", QStringLiteral("\"order\" <> Z_PK - 1")), 0);
    }

    // A file made by an earlier model gets the columns the model has
    // gained since; its rows read as nil there, and new rows fill them.
    void aFileOfAnEarlierModelGainsTheNewColumns()
    {
        const auto quiet = quietManagerWarnings();
        f->coordinator.reset();
        const int pointEntity = HBTrackDataModel::model()->entityNamed(QStringLiteral("HBTrackPoint"))->entityID();
        QVERIFY(execIn(f->pointsPath(),
                       QStringLiteral("DROP TABLE HBGeoPoint; "
                                      "CREATE TABLE HBGeoPoint (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER NOT NULL, latitude); "
                                      "INSERT INTO HBGeoPoint VALUES (1, %1, '48.500'); "
                                      "UPDATE Z_PRIMARYKEY SET Z_MAX = 1 WHERE Z_NAME = 'HBGeoPoint'")
                           .arg(pointEntity)));
        QVERIFY(f->open());
        auto root = f->newRootContext();
        root->performBlockAndWait([&] {
            const QList<HBManagedObject *> earlier = fetch(*root, "HBTrackPoint");
            QCOMPARE(earlier.size(), 1);
            QCOMPARE(earlier.first()->valueForKey(QStringLiteral("latitude")).value<HBDecimal>().toString(), QStringLiteral("48.500"));
            QVERIFY(!earlier.first()->valueForKey(QStringLiteral("order")).isValid());
            HBManagedObject *point = insert(*root, "HBTrackPoint", {{"order", 5}, {"latitude", dec("1.25")}});
            root->assignObject(point, f->points);
            HBError error;
            QVERIFY2(root->save(&error), qPrintable(error.localizedDescription()));
        });
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint"), 2);
        QCOMPARE(rowsIn(f->pointsPath(), "HBGeoPoint", QStringLiteral("Z_PK = 2 AND \"order\" = 5 AND latitude = '1.25'")), 1);
    }
};

QTEST_GUILESS_MAIN(tst_HBStoreFiles)
#include "tst_HBStoreFiles.moc"
