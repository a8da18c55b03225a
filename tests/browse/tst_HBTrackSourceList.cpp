#include "BrowseTestSupport.h"
#include "TemporaryHome.h"

#include "browse/HBDateTree.h"
#include "browse/HBFileTree.h"
#include "browse/HBSmartFile.h"
#include "browse/HBSmartFileTree.h"
#include "browse/HBSourceListTreeModel.h"
#include "browse/HBTrackSourceList.h"
#include "browse/HBTracksAndWaypointsTableModel.h"
#include "model/HBTrack.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTemporaryDir>

// The source list over real imports of corpus files, with the tree and
// table models a window binds, both checked by QAbstractItemModelTester
// through every import, deletion and reload. Two batches: the Cerknica lake
// walks, then the MapSource sample with a TCX history (the newest batch).
class tst_HBTrackSourceList : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBTrackSourceList *m_list = nullptr;
    HBSourceListTreeModel *m_tree = nullptr;
    HBTracksAndWaypointsTableModel *m_table = nullptr;

    static QString corpus(const char *name) { return QStringLiteral(HB_CORPUS_DIR "/") + QLatin1String(name); }

    // Brings the trees and the list to what the store holds now.
    void settle()
    {
        QSignalSpy dates(m_list->dateTree(), &HBDateTree::didReload);
        QSignalSpy files(m_list->fileTree(), &HBFileTree::didReload);
        m_list->handleDidAddNewImportSource();
        QTRY_VERIFY_WITH_TIMEOUT(!dates.isEmpty() && !files.isEmpty() && !m_list->isRefreshing(), 30000);
    }

    void select(const QList<HBIndexPath> &paths)
    {
        m_list->setSourceListSelectionIndexPaths(paths);
        QTRY_VERIFY_WITH_TIMEOUT(!m_list->isRefreshing(), 30000);
    }

    QString counts() const
    {
        return QStringLiteral("%1/%2/%3").arg(m_list->countOfTracks()).arg(m_list->countOfTrackPoints()).arg(m_list->countOfWaypoints());
    }

    // The node at "root/child/...", by the names the tree model shows.
    QModelIndex indexNamed(const QString &names) const
    {
        QModelIndex index;
        for (const QString &name : names.split(u'/')) {
            const QModelIndexList found = m_tree->match(m_tree->index(0, 0, index), HBSourceListTreeModel::NameRole, name, 1,
                                                        Qt::MatchExactly);
            if (found.isEmpty())
                return {};
            index = found.constFirst();
        }
        return index;
    }

    QStringList namesBelow(const QString &names) const
    {
        QStringList below;
        const QModelIndex parent = indexNamed(names);
        for (int row = 0; row < m_tree->rowCount(parent); ++row)
            below.append(m_tree->index(row, 0, parent).data().toString());
        return below;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_list = new HBTrackSourceList(this);
        m_tree = new HBSourceListTreeModel(m_list, this);
        m_table = new HBTracksAndWaypointsTableModel(m_list, this);
        new QAbstractItemModelTester(m_tree, QAbstractItemModelTester::FailureReportingMode::Fatal, this);
        new QAbstractItemModelTester(m_table, QAbstractItemModelTester::FailureReportingMode::Fatal, this);
        QTRY_VERIFY(!m_list->isRefreshing());
        QCOMPARE(counts(), QStringLiteral("0/0/0"));
        importAndWait({corpus("gpx/gpxpy-cerknicko-jezero.gpx")});
        importAndWait({corpus("gpx/gpsbabel-gdb-sample.gpx"), corpus("tcx/gpsbabel-history.tcx")});
        settle();
        QCOMPARE(namesBelow(QStringLiteral("Smart Lists")), QStringList{"Recent Imports"});
        QCOMPARE(namesBelow(QStringLiteral("Date Browser")), (QStringList{"2005", "2008", "2010"}));
    }

    void selectingPathsListsWhatTheLastOneNames_data()
    {
        QTest::addColumn<QList<HBIndexPath>>("paths");
        QTest::addColumn<QString>("node");
        QTest::addColumn<QString>("counts");   // tracks/points/waypoints
        QTest::newRow("nothing") << QList<HBIndexPath>{} << "" << "0/0/0";
        QTest::newRow("a header lists nothing") << QList<HBIndexPath>{{1}} << "Date Browser" << "0/0/0";
        QTest::newRow("Recent Imports: the newer batch") << QList<HBIndexPath>{{0, 0}} << "Recent Imports" << "10/1952/9";
        QTest::newRow("a year") << QList<HBIndexPath>{{1, 0}} << "2005" << "9/747/8";
        QTest::newRow("a month") << QList<HBIndexPath>{{1, 0, 1}} << "May" << "9/747/0";
        QTest::newRow("a day of waypoints only") << QList<HBIndexPath>{{1, 0, 0, 0}} << "26 (Saturday)" << "0/0/5";
        QTest::newRow("a file, undated records too") << QList<HBIndexPath>{{2, 2}} << "gpxpy-cerknicko-jezero.gpx" << "8/296/7";
        QTest::newRow("several: the last") << QList<HBIndexPath>{{1, 0}, {2, 1}} << "gpsbabel-history.tcx" << "1/1205/0";
        QTest::newRow("past the end") << QList<HBIndexPath>{{2, 3}} << "" << "0/0/0";
        QTest::newRow("through a leaf") << QList<HBIndexPath>{{2, 0, 0}} << "" << "0/0/0";
    }

    void selectingPathsListsWhatTheLastOneNames()
    {
        QFETCH(QList<HBIndexPath>, paths);
        QFETCH(QString, node);
        QFETCH(QString, counts);
        select(paths);
        QCOMPARE(m_list->selectedSourceList() ? m_list->selectedSourceList()->name() : QString(), node);
        QCOMPARE(this->counts(), counts);
        const QStringList c = counts.split(u'/');
        QCOMPARE(m_list->tracksAndWaypoints().size(), c[0].toInt() + c[2].toInt());
        QCOMPARE(m_table->rowCount(), c[0].toInt() + c[2].toInt());

        QSignalSpy selected(m_list, &HBTrackSourceList::selectedSourceListChanged);
        m_list->setSourceListSelectionIndexPaths(paths);
        QCOMPARE(selected.count(), 0);
        QVERIFY(!m_list->isRefreshing());
    }

    void selectingANodeFindsItsPath_data()
    {
        QTest::addColumn<HBIndexPath>("node");   // empty: a smart file not in the trees
        QTest::addColumn<QList<HBIndexPath>>("paths");
        QTest::newRow("a root, with no path") << HBIndexPath{1} << QList<HBIndexPath>{};
        QTest::newRow("a day") << HBIndexPath{1, 0, 3, 0} << QList<HBIndexPath>{{1, 0, 3, 0}};
        QTest::newRow("a file") << HBIndexPath{2, 1} << QList<HBIndexPath>{{2, 1}};
        QTest::newRow("not in the trees, with no path") << HBIndexPath{} << QList<HBIndexPath>{};
    }

    void selectingANodeFindsItsPath()
    {
        QFETCH(HBIndexPath, node);
        QFETCH(QList<HBIndexPath>, paths);
        HBSmartFile detached;
        HBTreeNode *chosen = node.isEmpty() ? &detached : HBTrackSourceList::sourceListInChildrenArray(m_list->sources(), node);
        m_list->setSelectedSourceList(chosen);
        QCOMPARE(m_list->selectedSourceList(), chosen);
        QCOMPARE(m_list->sourceListSelectionIndexPaths(), paths);
        QTRY_VERIFY(!m_list->isRefreshing());
        m_list->setSelectedSourceList(nullptr);
        QTRY_VERIFY(!m_list->isRefreshing());
    }

    void smartFilesListWhatTheirPredicatesSelect_data()
    {
        QTest::addColumn<QString>("tracks");   // "-": none; empty: as made
        QTest::addColumn<QString>("waypoints");
        QTest::addColumn<QString>("counts");
        QTest::newRow("a new one selects nothing") << "" << "" << "0/0/0";
        QTest::newRow("waypoints need a track predicate") << "-" << "TRUEPREDICATE" << "0/0/0";
        QTest::newRow("everything") << "TRUEPREDICATE" << "TRUEPREDICATE" << "18/2248/16";
        QTest::newRow("tracks from 1000 points up")
            << "numberOfTrackPoints >= 1000" << "FALSEPREDICATE" << "1/1205/0";
    }

    void smartFilesListWhatTheirPredicatesSelect()
    {
        QFETCH(QString, tracks);
        QFETCH(QString, waypoints);
        QFETCH(QString, counts);
        HBSmartFile smartFile;
        if (!tracks.isEmpty()) {
            smartFile.setTrackPredicate(tracks == u'-' ? HBPredicate() : HBPredicate::format(tracks));
            smartFile.setWaypointPredicate(HBPredicate::format(waypoints));
        }
        m_list->addSmartFile(&smartFile);
        QCOMPARE(namesBelow(QStringLiteral("Smart Lists")), (QStringList{"Untitled", "Recent Imports"}));
        m_list->setSelectedSourceList(&smartFile);
        QTRY_VERIFY(!m_list->isRefreshing());
        QCOMPARE(this->counts(), counts);
        m_list->removeSmartFile(&smartFile);
        QSignalSpy removed(m_list->smartTree(), &HBSmartFileTree::childrenRemoved);
        m_list->removeSmartFile(&smartFile);
        QCOMPARE(removed.count(), 0);
        QCOMPARE(namesBelow(QStringLiteral("Smart Lists")), QStringList{"Recent Imports"});
    }

    // Rows that stay keep their records and persistent indexes; new ones
    // come last. A refresh that finds the same list changes no row, but
    // sets the counts.
    void aRefreshMergesIntoTheList()
    {
        select({{2, 0}});
        const QList<HBManagedObject *> before = m_list->tracksAndWaypoints();
        QCOMPARE(before.size(), 18);
        const QPersistentModelIndex second(m_table->index(2, 0)), fifth(m_table->index(5, 0));
        QSignalSpy listed(m_list, &HBTrackSourceList::tracksAndWaypointsChanged);
        QSignalSpy rowsIn(m_table, &QAbstractItemModel::rowsInserted), rowsOut(m_table, &QAbstractItemModel::rowsRemoved);
        m_list->setCountOfTracks(99);
        m_list->refreshTracksAndWaypoints();
        QTRY_VERIFY(!m_list->isRefreshing());
        QCOMPARE(counts(), QStringLiteral("9/747/9"));
        QCOMPARE(listed.count() + rowsIn.count() + rowsOut.count(), 0);

        HBManagedObject *other = importSourceOf(corpus("tcx/gpsbabel-history.tcx"))->tracks().constFirst();
        m_list->setTracksAndWaypoints({before.at(5), other, before.at(2)});
        QCOMPARE(m_list->tracksAndWaypoints(), (QList<HBManagedObject *>{before.at(2), before.at(5), other}));
        QCOMPARE(m_table->rowCount(), 3);
        QCOMPARE(second.row(), 0);
        QCOMPARE(fifth.row(), 1);
        QCOMPARE(fifth.data(HBTracksAndWaypointsTableModel::ObjectRole).value<HBManagedObject *>(), before.at(5));
    }

    // The selection indexes are positions in the sorted list, and the
    // table's selection model shows and sets them.
    void rowSelectionFollowsTheSortedList()
    {
        select({{1, 0}});
        m_table->sort(HBTracksAndWaypointsTableModel::StartDate, Qt::AscendingOrder);
        const QList<HBManagedObject *> sorted = m_list->sortedTracksAndWaypoints();
        QCOMPARE(sorted.size(), 17);
        for (qsizetype i = 0; i + 1 < sorted.size(); ++i) {
            QVERIFY(HBTrackSourceList::valueForSortKey(sorted.at(i), QStringLiteral("startDate")).toDateTime()
                    <= HBTrackSourceList::valueForSortKey(sorted.at(i + 1), QStringLiteral("startDate")).toDateTime());
            QCOMPARE(m_table->index(int(i), 0).data(HBTracksAndWaypointsTableModel::ObjectRole).value<HBManagedObject *>(), sorted.at(i));
        }
        HBManagedObject *unlisted = importSourceOf(corpus("tcx/gpsbabel-history.tcx"))->tracks().constFirst();
        QVERIFY(m_list->addSelectedTracksAndWaypoints({sorted.at(9), sorted.at(2), unlisted}));
        QCOMPARE(m_list->tracksAndWaypointsSelectionIndexes(), (QList<qsizetype>{2, 9}));
        QCOMPARE(m_list->selectedTracksAndWaypoints(), (QList<HBManagedObject *>{sorted.at(2), sorted.at(9)}));
        QCOMPARE(m_table->selectionModel()->selectedRows(), (QModelIndexList{m_table->index(2, 0), m_table->index(9, 0)}));
        QVERIFY(!m_list->removeSelectedTracksAndWaypoints({unlisted}));
        QVERIFY(!m_list->addSelectedSpatialObjects({sorted.at(4)}));
        QVERIFY(m_list->removeSelectedTracksAndWaypoints({sorted.at(2)}));
        QCOMPARE(m_list->tracksAndWaypointsSelectionIndexes(), QList<qsizetype>{9});
        m_table->selectionModel()->select(m_table->index(4, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        QCOMPARE(m_list->tracksAndWaypointsSelectionIndexes(), QList<qsizetype>{4});

        m_table->sort(HBTracksAndWaypointsTableModel::Name, Qt::DescendingOrder);
        QCOMPARE(m_list->tracksAndWaypointsSelectionIndexes(), QList<qsizetype>{4});
        QCOMPARE(m_table->selectionModel()->selectedRows(), QModelIndexList{m_table->index(4, 0)});
        m_list->setTracksAndWaypointsSortDescriptors({});
    }

    // Rows stay through an import: the persistent indexes follow their
    // nodes to their new rows, and an open year stays open.
    void anImportPatchesTheTrees()
    {
        select({{0, 0}});
        const QPersistentModelIndex year(indexNamed(QStringLiteral("Date Browser/2005")));
        const QPersistentModelIndex file(indexNamed(QStringLiteral("File Browser/gpsbabel-gdb-sample.gpx")));
        HBTreeNode *yearNode = m_tree->nodeForIndex(year);
        HBTreeNode *fileNode = m_tree->nodeForIndex(file);
        QVERIFY(m_tree->setData(year, true, HBSourceListTreeModel::IsExpandedRole));
        QSignalSpy refreshed(m_list, &HBTrackSourceList::didRefreshTracksAndWaypoints);

        importAndWait({corpus("gpx/gpsbabel-fitwrite-mavi.gpx")});
        settle();
        QCOMPARE(namesBelow(QStringLiteral("Date Browser")), (QStringList{"2002", "2005", "2008", "2010"}));
        QCOMPARE(year.row(), 1);
        QCOMPARE(m_tree->nodeForIndex(year), yearNode);
        QVERIFY(year.data(HBSourceListTreeModel::IsExpandedRole).toBool());
        QCOMPARE(file.row(), 1);
        QCOMPARE(m_tree->nodeForIndex(file), fileNode);
        QVERIFY(!refreshed.isEmpty());
        QCOMPARE(counts(), QStringLiteral("1/64/12"));
    }

    void deletingFromTheSourceList()
    {
        // a day deletes what it lists; the day's file stays, emptied
        m_list->setSelectedSourceList(m_tree->nodeForIndex(indexNamed(QStringLiteral("Date Browser/2008/August/21 (Thursday)"))));
        QTRY_VERIFY(!m_list->isRefreshing());
        QSignalSpy deleted(HBTrackManager::sharedTrackManager(), &HBTrackManager::didDeleteObjects);
        m_list->deleteObjectsFromSourceList(m_list->selectedSourceList());
        QVERIFY(deleted.wait(30000));
        settle();
        QCOMPARE(namesBelow(QStringLiteral("Date Browser")), (QStringList{"2002", "2005", "2010"}));
        QCOMPARE(counts(), QStringLiteral("0/0/0"));
        select({m_tree->indexPathForIndex(indexNamed(QStringLiteral("File Browser/gpsbabel-history.tcx")))});
        QCOMPARE(counts(), QStringLiteral("0/0/0"));

        // a file's leaf deletes its import source
        select({m_tree->indexPathForIndex(indexNamed(QStringLiteral("File Browser/gpxpy-cerknicko-jezero.gpx")))});
        m_list->deleteObjectsFromSourceList(m_list->selectedSourceList());
        QVERIFY(deleted.wait(30000));
        settle();
        QCOMPARE(namesBelow(QStringLiteral("Date Browser")), (QStringList{"2002", "2005"}));
        QCOMPARE(namesBelow(QStringLiteral("File Browser")),
                 (QStringList{"gpsbabel-fitwrite-mavi.gpx", "gpsbabel-gdb-sample.gpx", "gpsbabel-history.tcx"}));

        // one record leaves the list and the row selection
        select({m_tree->indexPathForIndex(indexNamed(QStringLiteral("File Browser/gpsbabel-gdb-sample.gpx")))});
        HBManagedObject *first = m_list->tracksAndWaypoints().constFirst();
        m_list->setTracksAndWaypointsSelectionIndexes({0, 1});
        m_list->deleteTrackOrWaypoint(first);
        QCOMPARE(m_list->tracksAndWaypointsSelectionIndexes(), QList<qsizetype>{1});
        QVERIFY(deleted.wait(30000));
        settle();
        QCOMPARE(counts(), QStringLiteral("8/%1/9").arg(747 - static_cast<HBTrack *>(first)->numberOfTrackPoints()));
        QVERIFY(!m_list->tracksAndWaypoints().contains(first));
    }
};

QTEST_GUILESS_MAIN(tst_HBTrackSourceList)
#include "tst_HBTrackSourceList.moc"
