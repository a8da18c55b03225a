#include "BrowseTestSupport.h"
#include "SqliteRows.h"
#include "TemporaryHome.h"

#include "browse/HBSourceListTreeModel.h"
#include "browse/HBSmartFileTree.h"
#include "browse/HBTrackSourceList.h"
#include "browse/HBTracksAndWaypointsTableModel.h"
#include "kits/geometry/HBSpatialObject.h"
#include "kits/geometry/HBSpatialObjectController.h"
#include "model/HBImportSource.h"
#include "platform/HBUserDefaults.h"
#include "ui/HBTrackDeletionAlerts.h"
#include "ui/HBTrackPickerDefaults.h"
#include "ui/HBTrackPickerToolbar.h"
#include "ui/HBTrackPickerWindowController.h"
#include "ui/HBTrackSourceOutlineView.h"
#include "ui/HBTrackSourceSplitView.h"
#include "ui/ImportProgressView.h"
#include "ui/TracksAndWaypointsTableView.h"

#include <QCheckBox>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitterHandle>
#include <QTemporaryDir>
#include <QTest>

// The picker window as a person uses it, offscreen, on real stores in a
// temporary home: what it opens on, its sizes, the Delete key and the
// questions before deleting, zoom to fit, and the strip of a real import.
class tst_HBTrackPickerWindowController : public QObject
{
    Q_OBJECT

    struct Map : HBSpatialObjectController
    {
        QList<QList<HBSpatialObject *>> fitted;
        void fitSpatialObjects(const QList<HBSpatialObject *> &objects) override { fitted.append(objects); }
    };

    QTemporaryDir m_home;
    int m_files = 0;

    static HBUserDefaults &defaults() { return HBUserDefaults::standardUserDefaults(); }

    static std::unique_ptr<HBTrackPickerWindowController> openWindow(HBTrackSourceList *list)
    {
        auto window = std::make_unique<HBTrackPickerWindowController>(list);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            return {};
        return window;
    }

    // A new file of `tracks` tracks and `waypoints` waypoints, imported,
    // then selected in the source list and listed; null when it is not.
    HBImportSource *importAndSelect(HBTrackSourceList *list, int tracks, int waypoints)
    {
        QStringList starts, dates;
        for (int i = 0; i < tracks; ++i)
            starts.append(QStringLiteral("2009-05-%1T10:00:00Z").arg(10 + i));
        for (int i = 0; i < waypoints; ++i)
            dates.append(QStringLiteral("2009-06-%1T10:00:00Z").arg(10 + i));
        const QString path = writeGpx(m_home.filePath(QStringLiteral("files/%1.gpx").arg(++m_files)), starts, dates);
        importAndWait({path});
        HBImportSource *source = importSourceOf(path);
        list->setSelectedSourceList(source);
        const auto listed = [&] { return !list->isRefreshing() && list->tracksAndWaypoints().size() == tracks + waypoints; };
        return QTest::qWaitFor(listed, 30000) ? source : nullptr;
    }

    static void clickRows(TracksAndWaypointsTableView *table, const QList<int> &rows)
    {
        for (int row : rows) {
            const QRect place = table->visualRect(table->model()->index(row, 0));
            QTest::mouseClick(table->viewport(), Qt::LeftButton, row == rows.first() ? Qt::NoModifier : Qt::ControlModifier,
                              place.center());
        }
    }

    // Delete as the keyboard types it on a desktop: the key with the text 0x7F.
    static void pressDelete(QWidget *view)
    {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Delete, Qt::NoModifier, QStringLiteral("\x7f"));
        QApplication::sendEvent(view, &press);
    }

    static QPushButton *button(QMessageBox *alert, const QString &text)
    {
        for (QAbstractButton *b : alert->buttons()) {
            if (b->text() == text)
                return qobject_cast<QPushButton *>(b);
        }
        return nullptr;
    }

    // The table's rows from the file of that name. When a file's entry goes,
    // the outline moves on to a neighbouring entry, and the table to its rows.
    static int rowsFrom(const HBTrackPickerWindowController *window, const QString &fileName)
    {
        const QAbstractItemModel *table = window->tracksAndWaypointsTableView()->model();
        return int(table->match(table->index(0, HBTracksAndWaypointsTableModel::SourceFile), Qt::DisplayRole, fileName, -1,
                                Qt::MatchExactly)
                       .size());
    }

    static qint64 storedRows(const QString &entity)
    {
        return rowsIn(HBTrackManager::supportFolder() + QStringLiteral("/TrackManagerDatabase.sql"), entity);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        useTemporaryHome(m_home);
        HBTrackManager::sharedTrackManager();
    }

    void init()
    {
        for (const QString &key : {defaultShouldWarnTrackOrWaypointDeletion, defaultShouldWarnSourceListDeletion})
            defaults().removeObjectForKey(key);
    }

    // Runs first, on empty stores: without "Recent Imports" the source list
    // holds only its three headers.
    void opensOnFirstSelectableRow_data()
    {
        QTest::addColumn<bool>("withRecentImports");
        QTest::addColumn<QString>("selected");
        QTest::newRow("only headers") << false << QString();
        QTest::newRow("recent imports") << true << QStringLiteral("Recent Imports");
    }

    void opensOnFirstSelectableRow()
    {
        QFETCH(bool, withRecentImports);
        QFETCH(QString, selected);
        HBTrackSourceList list;
        if (!withRecentImports)
            list.removeSmartFile(list.smartTree()->smartFiles().value(0));
        const auto window = openWindow(&list);
        QVERIFY(window);
        const QModelIndexList rows = window->sourceOutlineView()->selectionModel()->selectedRows();
        QCOMPARE(rows.isEmpty() ? QString() : rows.first().data().toString(), selected);
        QCOMPARE(list.selectedSourceList() ? list.selectedSourceList()->name() : QString(), selected);
        QCOMPARE(window->toolbar()->trackInfoItem()->text(), QStringLiteral("0 Tracks (0 points), 0 Waypoints"));
    }

    // The content keeps 430 + the divider by 220; the left pane stays
    // within 150 and the width less 280 and the divider as it is dragged.
    void sizeAndSplitBounds_data()
    {
        QTest::addColumn<int>("dragTo");
        QTest::addColumn<int>("leftWidth");
        QTest::newRow("narrower than 150") << 40 << 150;
        QTest::newRow("within") << 300 << 300;
        QTest::newRow("past the right pane's 280") << 780 << 800 - 281;
    }

    void sizeAndSplitBounds()
    {
        QFETCH(int, dragTo);
        QFETCH(int, leftWidth);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        window->resize(100, 100);
        QTRY_COMPARE(window->centralWidget()->size(), QSize(431, 220));
        window->resize(window->width() - 431 + 800, 500);
        HBTrackSourceSplitView *split = window->splitView();
        QTRY_COMPARE(split->width(), 800);
        QSplitterHandle *divider = split->handle(1);
        const QPoint grip = divider->rect().center();
        QTest::mousePress(divider, Qt::LeftButton, {}, grip);
        QMouseEvent move(QEvent::MouseMove, QPointF(grip + QPoint(dragTo - divider->x(), 0)),
                         divider->mapToGlobal(QPointF(grip + QPoint(dragTo - divider->x(), 0))), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(divider, &move);
        QTest::mouseRelease(divider, Qt::LeftButton, {}, grip + QPoint(dragTo - divider->x(), 0));
        QCOMPARE(split->sizes().value(0), leftWidth);
        QCOMPARE(split->leftWidth(), leftWidth);
    }

    // A file dropped on the window is imported; the strip shows while the
    // import runs, the window taller by its height, and leaves with it.
    void progressStripDuringImportOfDroppedFile()
    {
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        const int height = window->height();
        HBTrackManager *manager = HBTrackManager::sharedTrackManager();
        QList<std::pair<bool, int>> seen;   // strip shown, window height
        connect(manager, &HBTrackManager::trackImportIsInProgressChanged, window.get(), [&] {
            seen.append({window->importProgressView()->isVisible(), window->height()});
        });
        const QString file = QStringLiteral(HB_CORPUS_DIR "/gpx/gpsbabel-garmin-edge-800-output.gpx");
        QCOMPARE(window->importProgressView()->isVisible(), false);
        QMimeData dragged;
        dragged.setUrls({QUrl::fromLocalFile(file)});
        const QPoint there = window->rect().center();
        QDragEnterEvent enter(there, Qt::CopyAction, &dragged, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window.get(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(there, Qt::CopyAction, &dragged, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window.get(), &drop);
        QTRY_VERIFY_WITH_TIMEOUT(seen.size() == 2, 60000);
        const int strip = window->importProgressView()->height();
        QVERIFY(strip > 0);
        QCOMPARE(seen, (QList<std::pair<bool, int>>{{true, height + strip}, {false, height}}));
    }

    // With nothing selected the map gets every row, in the table's order;
    // the table's menu fits the row right-clicked, not the selected ones.
    void zoomToFit_data()
    {
        QTest::addColumn<QList<int>>("selectedRows");
        QTest::addColumn<int>("menuRow");   // -1: the toolbar's button
        QTest::addColumn<QList<int>>("fittedRows");
        QTest::newRow("nothing selected") << QList<int>{} << -1 << QList<int>{0, 1, 2};
        QTest::newRow("two selected") << QList<int>{2, 0} << -1 << QList<int>{0, 2};
        QTest::newRow("table menu") << QList<int>{0} << 2 << QList<int>{2};
    }

    void zoomToFit()
    {
        QFETCH(QList<int>, selectedRows);
        QFETCH(int, menuRow);
        QFETCH(QList<int>, fittedRows);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        Map map;
        window->setMapController(&map);
        QVERIFY(importAndSelect(&list, 2, 1));
        TracksAndWaypointsTableView *table = window->tracksAndWaypointsTableView();
        clickRows(table, selectedRows);
        if (menuRow < 0) {
            window->toolbar()->zoomToFitItem()->trigger();
        } else {
            const QPoint place = table->visualRect(table->model()->index(menuRow, 0)).center();
            QContextMenuEvent click(QContextMenuEvent::Mouse, place, table->viewport()->mapToGlobal(place));
            QApplication::sendEvent(table->viewport(), &click);
            QTRY_VERIFY(window->tableMenu()->isVisible());
            window->tableMenu()->actions().at(0)->trigger();
            window->tableMenu()->close();
        }
        QList<HBSpatialObject *> expected;
        for (int row : fittedRows)
            expected.append(dynamic_cast<HBSpatialObject *>(list.sortedTracksAndWaypoints().at(row)));
        QCOMPARE(map.fitted, (QList<QList<HBSpatialObject *>>{expected}));
        QCOMPARE(window->toolbar()->trackInfoItem()->text(), QStringLiteral("2 Tracks (4 points), 1 Waypoints"));
    }

    void deleteKeyInTable_data()
    {
        QTest::addColumn<QList<int>>("selectedRows");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("informativeText");
        QTest::newRow("two rows") << QList<int>{0, 1} << QString() << QString();
        QTest::newRow("a track") << QList<int>{0} << QStringLiteral("Remove selected track?")
                                 << QStringLiteral("Are you sure you want to remove the track T?");
        QTest::newRow("a waypoint") << QList<int>{2} << QStringLiteral("Remove selected waypoint?")
                                    << QStringLiteral("Are you sure you want to remove the waypoint W?");
    }

    void deleteKeyInTable()
    {
        QFETCH(QList<int>, selectedRows);
        QFETCH(QString, message);
        QFETCH(QString, informativeText);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        QVERIFY(importAndSelect(&list, 2, 1));
        clickRows(window->tracksAndWaypointsTableView(), selectedRows);
        pressDelete(window->tracksAndWaypointsTableView());
        QMessageBox *alert = window->alerts()->shownAlert();
        QCOMPARE(alert ? alert->text() : QString(), message);
        QCOMPARE(alert ? alert->informativeText() : QString(), informativeText);
        if (alert) {
            QCOMPARE(alert->checkBox()->text(), QStringLiteral("Do not show this message again"));
            QTest::mouseClick(button(alert, QStringLiteral("Cancel")), Qt::LeftButton);
        }
        QCOMPARE(list.tracksAndWaypoints().size(), 3);
    }

    // Only OK with the box checked stops asking, and only for its kind.
    void suppressionBox_data()
    {
        QTest::addColumn<bool>("sourceListAlert");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("checked");
        QTest::addColumn<bool>("warnTrackOrWaypoint");
        QTest::addColumn<bool>("warnSourceList");
        QTest::addColumn<int>("listedAfter");
        QTest::newRow("track: OK, checked") << false << "OK" << true << false << true << 1;
        QTest::newRow("track: OK") << false << "OK" << false << true << true << 1;
        QTest::newRow("track: Cancel, checked") << false << "Cancel" << true << true << true << 2;
        QTest::newRow("source list: OK, checked") << true << "OK" << true << true << false << 0;
        QTest::newRow("source list: Cancel, checked") << true << "Cancel" << true << true << true << 2;
    }

    void suppressionBox()
    {
        QFETCH(bool, sourceListAlert);
        QFETCH(QString, answer);
        QFETCH(bool, checked);
        QFETCH(bool, warnTrackOrWaypoint);
        QFETCH(bool, warnSourceList);
        QFETCH(int, listedAfter);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        HBImportSource *source = importAndSelect(&list, 1, 1);
        QVERIFY(source);
        const QString fileName = source->name();
        if (sourceListAlert)
            window->alertToDeleteSourceList(source);
        else
            window->alertToDeleteTrackOrWaypoint(list.tracksAndWaypoints().at(0));
        QMessageBox *alert = window->alerts()->shownAlert();
        QVERIFY(alert);
        if (checked)
            alert->checkBox()->click();
        QTest::mouseClick(button(alert, answer), Qt::LeftButton);
        QCOMPARE(defaults().boolForKey(defaultShouldWarnTrackOrWaypointDeletion), warnTrackOrWaypoint);
        QCOMPARE(defaults().boolForKey(defaultShouldWarnSourceListDeletion), warnSourceList);
        QTRY_COMPARE_WITH_TIMEOUT(rowsFrom(window.get(), fileName), listedAfter, 30000);
    }

    // Checked in the store file and in both views: the file's rows in the
    // table, and the file's entry in the outline.
    void deletionLeavesStoresAndViews_data()
    {
        QTest::addColumn<bool>("wholeFile");
        QTest::addColumn<qint64>("tracksGone");
        QTest::addColumn<qint64>("waypointsGone");
        QTest::addColumn<int>("rowsLeft");
        QTest::newRow("a track from the table") << false << qint64(1) << qint64(0) << 2;
        QTest::newRow("the file from the source list") << true << qint64(2) << qint64(1) << 0;
    }

    void deletionLeavesStoresAndViews()
    {
        QFETCH(bool, wholeFile);
        QFETCH(qint64, tracksGone);
        QFETCH(qint64, waypointsGone);
        QFETCH(int, rowsLeft);
        defaults().setObject(false, defaultShouldWarnTrackOrWaypointDeletion);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        const HBImportSource *source = importAndSelect(&list, 2, 1);
        QVERIFY(source);
        const QString fileName = source->name();
        const qint64 tracks = storedRows(QStringLiteral("HBTrack"));
        const qint64 waypoints = storedRows(QStringLiteral("HBGeoPoint"));
        if (wholeFile) {
            pressDelete(window->sourceOutlineView());
        } else {
            clickRows(window->tracksAndWaypointsTableView(), {0});
            pressDelete(window->tracksAndWaypointsTableView());
        }
        QTRY_COMPARE_WITH_TIMEOUT(storedRows(QStringLiteral("HBTrack")), tracks - tracksGone, 30000);
        QCOMPARE(storedRows(QStringLiteral("HBGeoPoint")), waypoints - waypointsGone);
        QTRY_COMPARE_WITH_TIMEOUT(rowsFrom(window.get(), fileName), rowsLeft, 30000);
        const QAbstractItemModel *tree = window->sourceOutlineView()->model();
        const QModelIndexList entries =
            tree->match(tree->index(0, 0), Qt::DisplayRole, fileName, -1, Qt::MatchExactly | Qt::MatchRecursive);
        QTRY_COMPARE(entries.size(), wholeFile ? 0 : 1);
    }

    // A right-click on the selected file's entry, then on a year.
    void sourceListMenu_data()
    {
        QTest::addColumn<bool>("onFile");
        QTest::addColumn<QList<bool>>("visible");
        QTest::addColumn<QString>("removeTitle");
        QTest::newRow("selected file") << true << QList<bool>{true, true, true, true}
                                       << QStringLiteral("Remove Track File From Database");
        QTest::newRow("unselected year") << false << QList<bool>{false, false, true, true}
                                         << QStringLiteral("Remove Tracks && Waypoints From List");
    }

    void sourceListMenu()
    {
        QFETCH(bool, onFile);
        QFETCH(QList<bool>, visible);
        QFETCH(QString, removeTitle);
        HBTrackSourceList list;
        const auto window = openWindow(&list);
        QVERIFY(window);
        const HBImportSource *source = importAndSelect(&list, 1, 0);
        QVERIFY(source);
        HBTrackSourceOutlineView *outline = window->sourceOutlineView();
        const QAbstractItemModel *tree = outline->model();
        const QModelIndexList entries = tree->match(tree->index(0, 0), Qt::DisplayRole, onFile ? source->name() : "2009",
                                                    1, Qt::MatchExactly | Qt::MatchRecursive);
        QCOMPARE(entries.size(), 1);
        outline->scrollTo(entries.first());
        const QPoint place = outline->visualRect(entries.first()).center();
        QContextMenuEvent click(QContextMenuEvent::Mouse, place, outline->viewport()->mapToGlobal(place));
        QApplication::sendEvent(outline->viewport(), &click);
        QTRY_VERIFY(window->sourceListMenu()->isVisible());
        QList<bool> shown;
        for (const QAction *item : window->sourceListMenu()->actions())
            shown.append(item->isVisible());
        window->sourceListMenu()->close();
        QCOMPARE(shown, visible);
        QCOMPARE(window->sourceListMenu()->actions().at(3)->text(), removeTitle);
    }

    // Sizes, the split and the columns come back in the next window.
    void remembersLayout()
    {
        HBTrackSourceList list;
        auto window = openWindow(&list);
        QVERIFY(window);
        window->resize(900, 500);
        QTRY_COMPARE(window->width(), 900);
        window->splitView()->setLeftWidth(260);
        window->tracksAndWaypointsTableView()->sortByColumn(1, Qt::DescendingOrder);
        window->close();
        window.reset();
        window = openWindow(&list);
        QVERIFY(window);
        QCOMPARE(window->size(), QSize(900, 500));
        QCOMPARE(window->splitView()->sizes().value(0), 260);
        QCOMPARE(list.tracksAndWaypointsSortDescriptors().size(), 1);
        QCOMPARE(list.tracksAndWaypointsSortDescriptors().first().key, QStringLiteral("startDate"));
        QCOMPARE(list.tracksAndWaypointsSortDescriptors().first().ascending, false);
    }
};

QTEST_MAIN(tst_HBTrackPickerWindowController)
#include "tst_HBTrackPickerWindowController.moc"
