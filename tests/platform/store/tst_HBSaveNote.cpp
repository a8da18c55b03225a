#include "SqliteRows.h"
#include "StoreFixture.h"

#include "platform/store/HBSaveNote.h"

#include <QDir>
#include <QLoggingCategory>
#include <QTest>

// A save that spans the central file and a point file, where points name
// records of the central file: it must land whole or not at all, and what a
// save cut off between its commits left behind must be repaired when the
// files are next opened.
class tst_HBSaveNote : public QObject
{
    Q_OBJECT

    static bool openOrdered(StoreFixture &f)
    {
        if (!f.open())
            return false;
        f.coordinator->setCommitLastStore(f.central);
        f.coordinator->setSaveNoteFolder(f.dir.path());
        return true;
    }

    static int notesIn(const StoreFixture &f)
    {
        return int(QDir(f.dir.path()).entryList({QStringLiteral("UnfinishedSave-*")}, QDir::Files).size());
    }

    static QString refusal(const QString &table)
    {
        return QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON %1 BEGIN SELECT RAISE(ABORT, 'refused'); END").arg(table);
    }

private slots:
    // The fixture's points are not the track manager's, which says so for each.
    void initTestCase() { QLoggingCategory::setFilterRules(QStringLiteral("hb.manager.warning=false")); }

    // Points commit before the central file; a central file that refuses
    // its rows must not leave the points behind.
    void aSaveAcrossFilesIsWholeOrNothing_data()
    {
        QTest::addColumn<bool>("refusedByCentral");
        QTest::newRow("the point file refuses") << false;
        QTest::newRow("the central file refuses, after the points committed") << true;
    }

    void aSaveAcrossFilesIsWholeOrNothing()
    {
        QFETCH(bool, refusedByCentral);
        StoreFixture f;
        QVERIFY(openOrdered(f));
        const QString refused = refusedByCentral ? f.centralPath() : f.pointsPath();
        QVERIFY(execIn(refused, refusal(QStringLiteral("HBGeoPoint"))));
        auto root = f.newRootContext();
        root->performBlockAndWait([&] {
            root->insertNewObjectForEntityForName(QStringLiteral("HBWaypoint"))->setValueForKey(QStringLiteral("summit"), QStringLiteral("name"));
            for (int i = 0; i < 40; ++i)
                root->assignObject(root->insertNewObjectForEntityForName(QStringLiteral("HBTrackPoint")), f.points);
            HBError error;
            QVERIFY(!root->save(&error));
            QVERIFY(error.localizedDescription().contains(refused));
            QCOMPARE(root->insertedObjects().size(), 41);
        });
        QCOMPARE(rowsIn(f.pointsPath(), QStringLiteral("HBGeoPoint")), 0);
        QCOMPARE(rowsIn(f.centralPath(), QStringLiteral("HBGeoPoint")), 0);
        QCOMPARE(notesIn(f), 0);

        QVERIFY(execIn(refused, QStringLiteral("DROP TRIGGER refuse")));
        root->performBlockAndWait([&] {
            HBError error;
            QVERIFY2(root->save(&error), qPrintable(error.localizedDescription()));
        });
        QCOMPARE(rowsIn(f.pointsPath(), QStringLiteral("HBGeoPoint")), 40);
        QCOMPARE(rowsIn(f.centralPath(), QStringLiteral("HBGeoPoint")), 1);
        QCOMPARE(notesIn(f), 0);
    }

    // A note left by a save that was cut off: rows 1 to 3 were added before
    // the central file's commit, rows 4 and 5 were to be removed after it.
    // Whether the central file holds the save's token tells which to undo.
    void aCutOffSaveIsRepairedWhenTheFilesAreNextOpened_data()
    {
        QTest::addColumn<bool>("reachedCentral");
        QTest::addColumn<bool>("saveStillRunning");
        QTest::addColumn<QList<int>>("keysLeft");
        QTest::newRow("cut off before the central commit") << false << false << QList<int>{4, 5};
        QTest::newRow("cut off after the central commit") << true << false << QList<int>{1, 2, 3};
        QTest::newRow("still running in another save") << false << true << QList<int>{1, 2, 3, 4, 5};
    }

    void aCutOffSaveIsRepairedWhenTheFilesAreNextOpened()
    {
        QFETCH(bool, reachedCentral);
        QFETCH(bool, saveStillRunning);
        QFETCH(QList<int>, keysLeft);
        StoreFixture f;
        QVERIFY(openOrdered(f));
        for (int key = 1; key <= 5; ++key)
            QVERIFY(execIn(f.pointsPath(), QStringLiteral("INSERT INTO HBGeoPoint (Z_PK, Z_ENT) VALUES (%1, 1)").arg(key)));
        auto note = std::make_unique<HBSaveNote>();
        note->token = QStringLiteral("a-save");
        note->lastStorePath = f.central->path();
        note->undo = {{f.points->path(), QStringLiteral("PointOnly"), {{QStringLiteral("HBGeoPoint"), 1, 3}}}};
        note->redo = {{f.points->path(), QStringLiteral("PointOnly"), {{QStringLiteral("HBGeoPoint"), 4, 5}}}};
        HBError error;
        QVERIFY(note->write(f.dir.path(), &error));
        if (reachedCentral)
            QVERIFY(execIn(f.centralPath(), QStringLiteral("INSERT INTO Z_SAVELOG VALUES ('a-save')")));
        if (!saveStillRunning)
            note.reset();   // the process is gone: its lock with it

        QCOMPARE(f.coordinator->finishUnfinishedSaves(), saveStillRunning ? 0 : 1);
        QList<int> left;
        for (int key = 1; key <= 5; ++key) {
            if (rowsIn(f.pointsPath(), QStringLiteral("HBGeoPoint"), QStringLiteral("Z_PK = %1").arg(key)) == 1)
                left << key;
        }
        QCOMPARE(left, keysLeft);
        QCOMPARE(notesIn(f), saveStillRunning ? 1 : 0);
    }

    void keysBecomeRuns()
    {
        const QList<HBSaveNote::Rows> runs = HBSaveNote::runsOfKeys(QStringLiteral("HBGeoPoint"), {7, 5, 6, 9, 7, 12, 11});
        QList<std::pair<qint64, qint64>> spans;
        for (const HBSaveNote::Rows &r : runs)
            spans << std::pair(r.first, r.last);
        QCOMPARE(spans, (QList<std::pair<qint64, qint64>>{{5, 7}, {9, 9}, {11, 12}}));
        QCOMPARE(runs.first().entityName, QStringLiteral("HBGeoPoint"));
    }
};

QTEST_GUILESS_MAIN(tst_HBSaveNote)
#include "tst_HBSaveNote.moc"
