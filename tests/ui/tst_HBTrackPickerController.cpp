#include "BrowseTestSupport.h"
#include "TemporaryHome.h"

#include "browse/HBTrackSourceList.h"
#include "ui/HBTrackPickerController.h"
#include "ui/HBTrackPickerWindowController.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// The picker as a host's map sees it: the listed records as spatial objects
// in the table's order, each owned by the picker, and the selection the map
// changes through it.
class tst_HBTrackPickerController : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QString m_listed;     // a file of three tracks and two waypoints
    QString m_unlisted;   // a file of one waypoint

    // Selects the file's entry and waits for its rows.
    static bool list(HBTrackPickerController &picker, const QString &path, int rows)
    {
        picker.setSelectedSourceList(importSourceOf(path));
        return QTest::qWaitFor([&] { return picker.spatialObjects().size() == rows; }, 30000);
    }

    static QObject *ownerOf(const HBSpatialObject *object) { return object->objectOwner().value<QObject *>(); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        m_listed = writeGpx(m_home.filePath(QStringLiteral("listed.gpx")),
                            {QStringLiteral("2010-03-01T10:00:00Z"), QStringLiteral("2010-03-03T10:00:00Z"),
                             QStringLiteral("2010-03-02T10:00:00Z")},
                            {QStringLiteral("2010-03-05T10:00:00Z"), QStringLiteral("2010-03-04T10:00:00Z")});
        m_unlisted = writeGpx(m_home.filePath(QStringLiteral("unlisted.gpx")), {}, {QStringLiteral("2011-01-01T10:00:00Z")});
        importAndWait({m_listed, m_unlisted});
    }

    void startsEmpty()
    {
        HBTrackPickerController picker;
        QCOMPARE(picker.name(), QStringLiteral("Tracks & Waypoints"));
        QCOMPARE(picker.spatialObjects(), QList<HBSpatialObject *>{});
        QCOMPARE(picker.spatialObjectSelectionIndexes(), QList<qsizetype>{});
        QCOMPARE(picker.windowController(), picker.windowController());
    }

    // A new order re-sorts the objects, and each is told its owner again.
    void objectsFollowTheSortOrder()
    {
        HBTrackPickerController picker;
        QVERIFY(list(picker, m_listed, 5));
        for (HBSpatialObject *object : picker.spatialObjects()) {
            QCOMPARE(ownerOf(object), &picker);
            object->setObjectOwner({});
        }
        QSignalSpy changes(&picker, &HBTrackPickerController::layerDidChange);
        picker.trackSourceList()->setTracksAndWaypointsSortDescriptors({{QStringLiteral("startDate"), false}});
        QCOMPARE(changes.value(0).value(0).value<quintptr>(), SpatialObjectsDidChangeContext);
        QStringList dates;
        for (HBSpatialObject *object : picker.spatialObjects()) {
            QCOMPARE(ownerOf(object), &picker);
            const auto *record = dynamic_cast<HBManagedObject *>(object);
            dates.append(HBTrackSourceList::valueForSortKey(record, QStringLiteral("startDate")).toDateTime().toString(Qt::ISODate));
        }
        QCOMPARE(dates, (QStringList{"2010-03-05T10:00:00Z", "2010-03-04T10:00:00Z", "2010-03-03T10:00:00Z",
                                     "2010-03-02T10:00:00Z", "2010-03-01T10:00:00Z"}));
    }

    // Positions are in the sorted list (by start date: the tracks of the
    // 1st, 2nd, 3rd, then the waypoints of the 4th and 5th); -1 stands for
    // the waypoint of the other file.
    void selectionFromTheMap_data()
    {
        QTest::addColumn<QList<qsizetype>>("selection");
        QTest::addColumn<bool>("adding");
        QTest::addColumn<QList<int>>("objects");
        QTest::addColumn<QList<qsizetype>>("expected");
        QTest::addColumn<bool>("found");
        QTest::newRow("add replaces") << QList<qsizetype>{0, 1} << true << QList<int>{4, 2} << QList<qsizetype>{2, 4} << true;
        QTest::newRow("add skips unlisted") << QList<qsizetype>{0} << true << QList<int>{-1, 3} << QList<qsizetype>{3} << true;
        QTest::newRow("add only unlisted clears") << QList<qsizetype>{0, 1} << true << QList<int>{-1} << QList<qsizetype>{} << false;
        QTest::newRow("remove subtracts") << QList<qsizetype>{0, 1, 4} << false << QList<int>{1, -1} << QList<qsizetype>{0, 4} << true;
        QTest::newRow("remove only unlisted keeps") << QList<qsizetype>{0, 1} << false << QList<int>{-1} << QList<qsizetype>{0, 1} << false;
        QTest::newRow("remove unselected") << QList<qsizetype>{0} << false << QList<int>{2} << QList<qsizetype>{0} << true;
    }

    void selectionFromTheMap()
    {
        QFETCH(QList<qsizetype>, selection);
        QFETCH(bool, adding);
        QFETCH(QList<int>, objects);
        QFETCH(QList<qsizetype>, expected);
        QFETCH(bool, found);
        HBTrackPickerController picker;
        QVERIFY(list(picker, m_unlisted, 1));
        HBSpatialObject *unlisted = picker.spatialObjects().first();
        picker.trackSourceList()->setTracksAndWaypointsSortDescriptors({{QStringLiteral("startDate"), true}});
        QVERIFY(list(picker, m_listed, 5));
        picker.trackSourceList()->setTracksAndWaypointsSelectionIndexes(selection);
        QList<HBSpatialObject *> given;
        for (int i : objects)
            given.append(i < 0 ? unlisted : picker.spatialObjects().at(i));
        QSignalSpy published(&picker, &HBTrackPickerController::spatialObjectSelectionIndexesChanged);
        QCOMPARE(adding ? picker.addSelectedSpatialObjects(given) : picker.removeSelectedSpatialObjects(given), found);
        QCOMPARE(picker.spatialObjectSelectionIndexes(), expected);
        QCOMPARE(picker.trackSourceList()->tracksAndWaypointsSelectionIndexes(), expected);
        QCOMPARE(published.size(), 1);
    }
};

QTEST_MAIN(tst_HBTrackPickerController)
#include "tst_HBTrackPickerController.moc"
