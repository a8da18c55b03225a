#include "SqliteRows.h"
#include "StoreFixture.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBStoreTransaction.h"

#include <QScopeGuard>
#include <QTest>

#include <thread>

// A write transaction leaves the file as it was unless it commits, however
// it is left, and keeps other threads out of the store until it ends.
class tst_HBStoreTransaction : public QObject
{
    Q_OBJECT

    static HBRowValues named(const HBEntityDescription *entity, const QString &name)
    {
        return {{entity->propertyNamed(QStringLiteral("name"))->index, name}};
    }

private slots:
    void onlyACommittedTransactionReachesTheFile_data()
    {
        QTest::addColumn<bool>("commit");
        QTest::newRow("committed") << true;
        QTest::newRow("left without a commit") << false;
    }

    void onlyACommittedTransactionReachesTheFile()
    {
        QFETCH(bool, commit);
        StoreFixture f;
        QVERIFY(f.open());
        const HBEntityDescription *waypoint = HBTrackDataModel::model()->entityNamed(QStringLiteral("HBWaypoint"));
        const HBRowValues values = named(waypoint, QStringLiteral("summit"));
        bool otherThreadWaited = false;
        std::thread reader;
        auto joinReader = qScopeGuard([&reader] {
            if (reader.joinable())
                reader.join();
        });
        {
            HBStoreTransaction transaction(*f.central);
            HBError error;
            QVERIFY(transaction.begin(&error));
            QVERIFY(transaction.insertRows(std::vector<HBStoreTransaction::NewRow>{{1, waypoint, &values}}, &error));
            // another thread's read waits for the end of the transaction
            reader = std::thread([&] {
                const HBPersistentStore::FetchResult read = f.central->fetchRows(waypoint, HBPredicate(), {}, 0);
                otherThreadWaited = read.rows.size() == (commit ? 1 : 0);
            });
            QTest::qWait(50);
            if (commit)
                QVERIFY(transaction.commit(&error));
        }
        joinReader.dismiss();
        reader.join();
        QVERIFY(otherThreadWaited);
        QCOMPARE(rowsIn(f.centralPath(), QStringLiteral("HBGeoPoint")), qint64(commit ? 1 : 0));
        // the store is free again: a second transaction begins at once
        HBStoreTransaction next(*f.central);
        QVERIFY(next.begin(nullptr));
    }
};

QTEST_GUILESS_MAIN(tst_HBStoreTransaction)
#include "tst_HBStoreTransaction.moc"
