#include "BrowseTestSupport.h"
#include "TemporaryHome.h"

#include "browse/DayObject.h"
#include "browse/HBDateTree.h"
#include "browse/MonthObject.h"
#include "browse/YearObject.h"
#include "model/HBTrack.h"
#include "model/HBWaypoint.h"

#include <QLocale>
#include <QSignalSpy>
#include <QTemporaryDir>

// Years, months and days of real imports, in the time zone and language
// of the moment, each node with what its predicates select in the store.
// Nodes live as long as the process, so each case keeps to years of its own.
class tst_HBDateTree : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    // "name tracks/waypoints [children]", as the predicates select them.
    static QString render(const QList<HBTreeNode *> &nodes)
    {
        HBTrackManager *manager = HBTrackManager::sharedTrackManager();
        QStringList parts;
        for (const HBTreeNode *node : nodes) {
            QString part = QStringLiteral("%1 %2/%3").arg(node->name())
                               .arg(manager->tracksForPredicate(node->trackPredicate()).records.size())
                               .arg(manager->waypointsForPredicate(node->waypointPredicate()).records.size());
            if (!node->isLeaf())
                part += QStringLiteral(" [") + render(node->children()) + u']';
            parts.append(part);
        }
        return parts.join(QStringLiteral(", "));
    }

    static void reloadAndWait(HBDateTree &tree, HBImportSource *source)
    {
        QSignalSpy reloaded(&tree, &HBDateTree::didReload);
        tree.reloadForImportSource(source);
        QVERIFY(reloaded.wait(30000));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
    }

    void cleanup()
    {
        QLocale::setDefault(QLocale::c());
        qputenv("TZ", "UTC");
    }

    void daysAreLocalCalendarDates_data()
    {
        QTest::addColumn<QByteArray>("timeZone");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QStringList>("tracks");
        QTest::addColumn<QStringList>("waypoints");
        QTest::addColumn<QString>("tree");
        QTest::newRow("two days of March; nothing undated")
            << QByteArray("UTC") << "en_GB" << QStringList{"2014-03-02T10:00:00Z", "2014-03-05T10:00:00Z", ""} << QStringList{""}
            << "2014 2/0 [March 2/0 [2 (Sunday) 1/0, 5 (Wednesday) 1/0]]";
        QTest::newRow("east of Greenwich 23:30 UTC is the next day")
            << QByteArray("Asia/Tokyo") << "en_GB" << QStringList{"2015-06-30T23:30:00Z"} << QStringList{"2015-08-10T12:00:00Z"}
            << "2015 1/1 [July 1/0 [1 (Wednesday) 1/0], August 0/1 [10 (Monday) 0/1]]";
        QTest::newRow("west of Greenwich 03:30 UTC is the day before")
            << QByteArray("America/New_York") << "en_GB" << QStringList{"2016-03-01T03:30:00Z"} << QStringList{}
            << "2016 1/0 [February 1/0 [29 (Monday) 1/0]]";
        QTest::newRow("December ends where the new year starts")
            << QByteArray("UTC") << "en_GB" << QStringList{"2017-12-31T23:59:59Z", "2018-01-01T00:00:00Z"} << QStringList{}
            << "2017 1/0 [December 1/0 [31 (Sunday) 1/0]], 2018 1/0 [January 1/0 [1 (Monday) 1/0]]";
        QTest::newRow("a day of 23 hours as summer time starts")
            << QByteArray("Europe/Berlin") << "en_GB"
            << QStringList{"2019-03-30T22:59:59Z", "2019-03-30T23:00:00Z", "2019-03-31T21:59:59Z", "2019-03-31T22:00:00Z"}
            << QStringList{} << "2019 4/0 [March 3/0 [30 (Saturday) 1/0, 31 (Sunday) 2/0], April 1/0 [1 (Monday) 1/0]]";
        QTest::newRow("a day whose midnight summer time skips")
            << QByteArray("America/Sao_Paulo") << "en_GB" << QStringList{"2013-10-20T02:59:59Z", "2013-10-20T03:00:00Z"}
            << QStringList{} << "2013 2/0 [October 2/0 [19 (Saturday) 1/0, 20 (Sunday) 1/0]]";
        QTest::newRow("German names") << QByteArray("UTC") << "de_DE" << QStringList{"2011-03-02T10:00:00Z"} << QStringList{}
                                      << "2011 1/0 [März 1/0 [2 (Mittwoch) 1/0]]";
        QTest::newRow("Polish month as it stands alone")
            << QByteArray("UTC") << "pl_PL" << QStringList{"2012-03-05T10:00:00Z"} << QStringList{}
            << "2012 1/0 [marzec 1/0 [5 (poniedziałek) 1/0]]";
    }

    void daysAreLocalCalendarDates()
    {
        QFETCH(QByteArray, timeZone);
        QFETCH(QString, locale);
        QFETCH(QStringList, tracks);
        QFETCH(QStringList, waypoints);
        QFETCH(QString, tree);
        qputenv("TZ", timeZone);
        QLocale::setDefault(QLocale(locale));
        const QString path = writeGpx(m_home.filePath(QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".gpx")),
                                      tracks, waypoints);
        importAndWait({path});
        HBDateTree dates;
        reloadAndWait(dates, importSourceOf(path));
        QCOMPARE(render(dates.children()), tree);
    }

    // Deleting the only track of a month and of a year takes the day, the
    // month and the year in one reload; the nodes that stay are the same
    // nodes, each change announced at its place.
    void aReloadAppliesOnlyTheDifference()
    {
        const QString path = writeGpx(m_home.filePath(QStringLiteral("difference.gpx")),
                                      {"2020-05-01T10:00:00Z", "2020-06-01T10:00:00Z", "2021-01-01T10:00:00Z"}, {});
        importAndWait({path});
        HBImportSource *source = importSourceOf(path);
        HBDateTree dates;
        reloadAndWait(dates, source);
        QCOMPARE(render(dates.children()), "2020 2/0 [May 1/0 [1 (Friday) 1/0], June 1/0 [1 (Monday) 1/0]], "
                                           "2021 1/0 [January 1/0 [1 (Friday) 1/0]]");
        YearObject *year2020 = dates.years().at(0);
        HBTreeNode *may = year2020->children().at(0);
        HBTreeNode *mayFirst = may->children().at(0);
        const QList<HBManagedObject *> tracks = source->tracks();
        QList<HBManagedObject *> gone;
        for (HBManagedObject *t : tracks) {
            if (static_cast<HBTrack *>(t)->startDate().date().month() != 5)
                gone.append(t);
        }
        QSignalSpy deleted(HBTrackManager::sharedTrackManager(), &HBTrackManager::didDeleteObjects);
        HBTrackManager::sharedTrackManager()->deleteObjects(gone);
        QVERIFY(deleted.wait(30000));

        QSignalSpy yearsRemoved(&dates, &HBDateTree::childrenRemoved);
        QSignalSpy monthsRemoved(year2020, &HBDateTree::childrenRemoved);
        QSignalSpy inserted(&dates, &HBDateTree::childrenInserted);
        reloadAndWait(dates, source);
        QCOMPARE(render(dates.children()), "2020 1/0 [May 1/0 [1 (Friday) 1/0]]");
        QCOMPARE(yearsRemoved, QList<QVariantList>{{QVariant::fromValue(QList<qsizetype>{1})}});
        QCOMPARE(monthsRemoved, QList<QVariantList>{{QVariant::fromValue(QList<qsizetype>{1})}});
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(dates.years().at(0), year2020);
        QCOMPARE(year2020->children().at(0), may);
        QCOMPARE(may->children().at(0), mayFirst);
        QCOMPARE(dates.days(), QList<DayObject *>{static_cast<DayObject *>(mayFirst)});
    }
};

QTEST_GUILESS_MAIN(tst_HBDateTree)
#include "tst_HBDateTree.moc"
