#pragma once

#include <QMainWindow>

#include <memory>

class HBDetailViewController;
class HBManagedObject;
class HBSourceListTreeModel;
class HBSpatialObjectController;
class HBTrackDeletionAlerts;
class HBTrackManager;
class HBTrackPickerToolbar;
class HBTrackSourceList;
class HBTrackSourceOutlineView;
class HBTrackSourceSplitView;
class HBTracksAndWaypointsTableModel;
class HBTreeNode;
class ImportProgressView;
class QMenu;
class QProgressBar;
class TracksAndWaypointsTableView;

namespace Ui {
class HBTrackPickerWindow;
}

// The track picker window ("HBTrackPickerWindow.ui"): the source list on
// the left, the tracks and waypoints of the selected entry on the right
// with a pane of details about the selected one under them, a toolbar
// saying what the list holds with a button to fit the map to it, a strip
// at the bottom while an import runs, context menus, and questions before
// deleting. Everything it shows comes from the source list; the map is
// reached through the map controller, which may be absent.
//
// The window remembers its size, the split and the list's columns (order,
// widths, sort) between runs. Files dropped on it are imported.
class HBTrackPickerWindowController : public QMainWindow
{
    Q_OBJECT
    Q_PROPERTY(QString selectedSourceListDescription READ selectedSourceListDescription
                   NOTIFY selectedSourceListDescriptionChanged)
public:
    // The content never gets smaller than this: the left pane's 150 and the
    // right pane's 280 pixels beside the divider, and a few rows of each.
    static constexpr int kMinimumContentWidth = 430 + 1;   // pixels
    static constexpr int kMinimumContentHeight = 220;      // pixels

    explicit HBTrackPickerWindowController(HBTrackSourceList *trackSourceList, QWidget *parent = nullptr);
    ~HBTrackPickerWindowController() override;

    HBTrackSourceList *trackSourceList() const { return m_trackSourceList; }
    HBTrackManager *trackManager() const;
    HBSpatialObjectController *mapController() const { return m_mapController; }
    void setMapController(HBSpatialObjectController *mapController) { m_mapController = mapController; }

    HBTrackSourceSplitView *splitView() const;
    HBTrackSourceOutlineView *sourceOutlineView() const;
    TracksAndWaypointsTableView *tracksAndWaypointsTableView() const;
    ImportProgressView *importProgressView() const;
    QProgressBar *progressIndicator() const;
    HBTrackPickerToolbar *toolbar() const { return m_toolbar; }
    QMenu *sourceListMenu() const { return m_sourceListMenu; }
    QMenu *tableMenu() const { return m_tableMenu; }
    HBTrackDeletionAlerts *alerts() const { return m_alerts; }
    // The detail pane on show, null when no row is selected.
    HBDetailViewController *tracksAndWaypointsDetailViewController() const { return m_detailViewController; }
    // "3 Tracks (1,024 points), 2 Waypoints", as the toolbar shows it.
    QString selectedSourceListDescription() const { return m_selectedSourceListDescription; }

public slots:
    void showWindow();
    void importFilesAction();
    void downloadFromGPSAction();
    void cancelImportAction();
    // The selected rows, or every row when none is selected.
    void zoomToFit();
    void sourceViewZoomToFitAction();
    void sourceViewRevealAction();
    void sourceViewRemoveAction();
    void removeSelectedSourceListAction();
    void tableViewZoomToFitAction();
    void tableViewRevealAction();
    void tableViewRemoveAction();
    // Asks about the one selected row; with none or several, does nothing.
    void removeSelectedTracksAndWaypointsAction();
    void alertToDeleteSourceList(HBTreeNode *node);
    void alertToDeleteTrackOrWaypoint(HBManagedObject *object);

    // Opens the rows whose nodes remember being open.
    void expandItems();
    void reloadTracksAndWaypointsDetailView();
    void importInProgressDidChange();
    void menuNeedsUpdate(QMenu *menu);

signals:
    void selectedSourceListDescriptionChanged();

protected:
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void setUpSourceOutline();
    void setUpTable();
    void setUpMenus();
    void setUpImportProgress();
    void connectActions();
    void selectFirstSelectableSourceRow();
    void takeSourceOutlineSelection();
    void showSourceListSelection();
    void sourceListDidChange(quintptr context);
    void showImportProgress();
    void showDetailView(HBDetailViewController *detailView);
    HBManagedObject *arrangedObjectAtClickedRow() const;
    void fit(const QList<HBManagedObject *> &objects);
    void revealSourceFile(const QString &path, const QString &notFoundMessage);
    void restoreSettings();
    void saveSettings() const;

    std::unique_ptr<Ui::HBTrackPickerWindow> m_ui;
    HBTrackSourceList *m_trackSourceList;
    HBSpatialObjectController *m_mapController = nullptr;
    HBSourceListTreeModel *m_sourceTreeModel;
    HBTracksAndWaypointsTableModel *m_tableModel;
    HBTrackPickerToolbar *m_toolbar;
    HBTrackDeletionAlerts *m_alerts;
    QMenu *m_sourceListMenu = nullptr;
    QMenu *m_tableMenu = nullptr;
    HBDetailViewController *m_trackDetailViewController = nullptr;
    HBDetailViewController *m_waypointDetailViewController = nullptr;
    HBDetailViewController *m_detailViewController = nullptr;
    QString m_selectedSourceListDescription;
    // set while the outline is being brought to the source list's selection
    bool m_showingSourceListSelection = false;
};
