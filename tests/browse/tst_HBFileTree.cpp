#include "BrowseTestSupport.h"
#include "TemporaryHome.h"

#include "browse/HBFileTree.h"
#include "browse/HBSmartRecentImportsFile.h"

#include <QSignalSpy>
#include <QTemporaryDir>

// The file tree over real imports of corpus files, patched as files come
// and go, and "Recent Imports" following the newest batch.
class tst_HBFileTree : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    HBFileTree m_files;

    static QString corpus(const char *name) { return QStringLiteral(HB_CORPUS_DIR "/") + QLatin1String(name); }

    // Reloads, and gives what was removed and inserted: one list of
    // indexes per announcement, removals first.
    QList<QList<qsizetype>> reload(const HBPredicate &predicate = {})
    {
        QSignalSpy removed(&m_files, &HBFileTree::childrenRemoved);
        QSignalSpy inserted(&m_files, &HBFileTree::childrenInserted);
        QSignalSpy reloaded(&m_files, &HBFileTree::didReload);
        m_files.reloadForDatePredicate(predicate);
        if (!reloaded.wait(30000))
            return {{-1}};
        QList<QList<qsizetype>> changes;
        for (const QSignalSpy *spy : {&removed, &inserted}) {
            for (const QVariantList &args : *spy)
                changes.append(args.constFirst().value<QList<qsizetype>>());
        }
        return changes;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
    }

    void aReloadPatchesTheFilesInNameOrder()
    {
        importAndWait({corpus("gpx/gpsbabel-basecamp.gpx"), corpus("gpx/togeojson-gdal.gpx")});
        QCOMPARE(reload(), (QList<QList<qsizetype>>{{0, 1}}));
        const QList<HBTreeNode *> before = m_files.children();
        QCOMPARE(namesOf(before), (QStringList{"gpsbabel-basecamp.gpx", "togeojson-gdal.gpx"}));

        importAndWait({corpus("gpx/gpxpy-unicode.gpx")});
        QCOMPARE(reload(), (QList<QList<qsizetype>>{{1}}));
        QCOMPARE(namesOf(m_files.children()), (QStringList{"gpsbabel-basecamp.gpx", "gpxpy-unicode.gpx", "togeojson-gdal.gpx"}));
        QCOMPARE(m_files.children().at(0), before.at(0));
        QCOMPARE(m_files.children().at(2), before.at(1));
        QCOMPARE(reload(), QList<QList<qsizetype>>{});

        QSignalSpy deleted(HBTrackManager::sharedTrackManager(), &HBTrackManager::didDeleteObjects);
        HBTrackManager::sharedTrackManager()->deleteObjects({m_files.importSources().at(0)});
        QVERIFY(deleted.wait(30000));
        QCOMPARE(reload(), (QList<QList<qsizetype>>{{0}}));
        QCOMPARE(m_files.children().at(1), before.at(1));

        QCOMPARE(reload(HBPredicate::falsePredicate()), (QList<QList<qsizetype>>{{0, 1}}));
        QVERIFY(m_files.children().isEmpty());
    }

    void recentImportsFollowTheNewestBatch()
    {
        HBSmartRecentImportsFile recent;
        QCOMPARE(recent.name(), QStringLiteral("Recent Imports"));
        QSignalSpy refresh(&recent, &HBSmartRecentImportsFile::shouldRefreshTracksAndWaypointsChanged);
        const QString path = corpus("gpx/gpxpy-korita-zbevnica.gpx");
        importAndWait({path});
        QVERIFY(refresh.count() >= 1);
        const HBPredicate newest = HBTrackManager::sharedTrackManager()->recentImportsPredicate();
        QCOMPARE(recent.trackPredicate().predicateFormat(), newest.predicateFormat());
        QCOMPARE(recent.waypointPredicate().predicateFormat(), newest.predicateFormat());
        QVERIFY(newest.predicateFormat().contains(importSourceOf(path)->objectID().uriString()));
        QVERIFY(!recent.shouldRefreshTracksAndWaypoints());
    }
};

QTEST_GUILESS_MAIN(tst_HBFileTree)
#include "tst_HBFileTree.moc"
