#include "ui/HBTrackPickerWindowController.h"

#include "browse/HBSourceListTreeModel.h"
#include "browse/HBTrackSourceList.h"
#include "browse/HBTracksAndWaypointsTableModel.h"
#include "kits/geometry/HBSpatialObject.h"
#include "kits/geometry/HBSpatialObjectController.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "platform/HBUserDefaults.h"
#include "platform/store/HBEntityDescription.h"
#include "ui/HBFileViewer.h"
#include "ui/HBGPSBabelImporterPreflightWindow.h"
#include "ui/HBTrackDeletionAlerts.h"
#include "ui/HBTrackDetailViewController.h"
#include "ui/HBTrackPickerDefaults.h"
#include "ui/HBTrackPickerToolbar.h"
#include "ui/HBWaypointDetailViewController.h"
#include "ui_HBTrackPickerWindow.h"

#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QMenu>
#include <QMimeData>
#include <QScopedValueRollback>

// What the window shows follows three things:
//   1. the source list's tracksAndWaypoints (and each refresh's counts):
//      the toolbar's description;
//   2. the source list's selected records: the detail pane, which shows the
//      last of them, or nothing;
//   3. the manager's trackImportIsInProgress: the progress strip, shown
//      exactly while an import runs, the window taller by its height.
// The outline's selection and the source list's selection paths are kept
// equal both ways; headers are never selected.

namespace {

// Tags of the changes the window follows in the source list.
constexpr quintptr kTracksAndWaypointsDidChangeContext = 1234564879;   // 0x4995F70F
constexpr quintptr kSelectedObjectsDidChangeContext = 3816031;         // 0x3A3A5F

const QString kGeometryKey = QStringLiteral("HBTrackPickerWindow/geometry");
const QString kLeftWidthKey = QStringLiteral("HBTrackPickerWindow/sourceListWidth");
const QString kColumnsKey = QStringLiteral("HBTrackPickerWindow/tracksAndWaypointsColumns");

HBUserDefaults &defaults()
{
    return HBUserDefaults::standardUserDefaults();
}

bool isEntity(const HBManagedObject *object, QLatin1String name)
{
    return object && object->entity()->name() == name;
}

QStringList localFilePaths(const QMimeData *data)
{
    QStringList paths;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile())
            paths.append(url.toLocalFile());
    }
    return paths;
}

} // namespace

HBTrackPickerWindowController::HBTrackPickerWindowController(HBTrackSourceList *trackSourceList, QWidget *parent)
    : QMainWindow(parent)
    , m_ui(std::make_unique<Ui::HBTrackPickerWindow>())
    , m_trackSourceList(trackSourceList)
    , m_sourceTreeModel(new HBSourceListTreeModel(trackSourceList, this))
    , m_tableModel(new HBTracksAndWaypointsTableModel(trackSourceList, this))
    , m_toolbar(new HBTrackPickerToolbar(this))
    , m_alerts(new HBTrackDeletionAlerts(this, trackSourceList))
{
    HBTrackPickerDefaults::registerDefaults();
    HBGPSBabelImporterPreflightWindow::install();
    m_ui->setupUi(this);
    setAcceptDrops(true);
    centralWidget()->setMinimumSize(kMinimumContentWidth, kMinimumContentHeight);
    resize(minimumSizeHint());
    addToolBar(Qt::TopToolBarArea, m_toolbar);
    setUpSourceOutline();
    setUpTable();
    setUpMenus();
    connectActions();
    restoreSettings();
    expandItems();
    selectFirstSelectableSourceRow();
    connect(trackSourceList, &HBTrackSourceList::tracksAndWaypointsChanged, this,
            [this] { sourceListDidChange(kTracksAndWaypointsDidChangeContext); });
    connect(trackSourceList, &HBTrackSourceList::didRefreshTracksAndWaypoints, this,
            [this] { sourceListDidChange(kTracksAndWaypointsDidChangeContext); });
    sourceListDidChange(kTracksAndWaypointsDidChangeContext);
    connect(trackSourceList, &HBTrackSourceList::selectedTracksAndWaypointsChanged, this,
            [this] { sourceListDidChange(kSelectedObjectsDidChangeContext); });
    setUpImportProgress();
}

HBTrackPickerWindowController::~HBTrackPickerWindowController()
{
    saveSettings();
}

HBTrackManager *HBTrackPickerWindowController::trackManager() const
{
    return HBTrackManager::sharedTrackManager();
}

HBTrackSourceSplitView *HBTrackPickerWindowController::splitView() const { return m_ui->splitView; }
HBTrackSourceOutlineView *HBTrackPickerWindowController::sourceOutlineView() const { return m_ui->sourceOutlineView; }
TracksAndWaypointsTableView *HBTrackPickerWindowController::tracksAndWaypointsTableView() const
{
    return m_ui->tracksAndWaypointsTableView;
}
ImportProgressView *HBTrackPickerWindowController::importProgressView() const { return m_ui->importProgressView; }
QProgressBar *HBTrackPickerWindowController::progressIndicator() const { return m_ui->progressIndicator; }

// --- setting up -------------------------------------------------------------------------------

void HBTrackPickerWindowController::setUpSourceOutline()
{
    HBTrackSourceOutlineView *outline = m_ui->sourceOutlineView;
    outline->setModel(m_sourceTreeModel);
    connect(outline->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &HBTrackPickerWindowController::takeSourceOutlineSelection);
    connect(m_trackSourceList, &HBTrackSourceList::sourceListSelectionIndexPathsChanged, this,
            &HBTrackPickerWindowController::showSourceListSelection);
    // the trees fill in the background: rows that arrive open as remembered
    connect(m_sourceTreeModel, &QAbstractItemModel::rowsInserted, this, &HBTrackPickerWindowController::expandItems,
            Qt::QueuedConnection);
    connect(outline, &HBTrackSourceOutlineView::removeSelectedSourceListAction, this,
            &HBTrackPickerWindowController::removeSelectedSourceListAction);
}

void HBTrackPickerWindowController::setUpTable()
{
    TracksAndWaypointsTableView *table = m_ui->tracksAndWaypointsTableView;
    table->setModel(m_tableModel);
    // the model's selection follows the source list's selection indexes
    QItemSelectionModel *made = table->selectionModel();
    table->setSelectionModel(m_tableModel->selectionModel());
    delete made;
    // pixels, until a person widens them; the source file takes the rest
    using Model = HBTracksAndWaypointsTableModel;
    for (const auto &[column, width] : {std::pair(Model::Name, 180), std::pair(Model::StartDate, 160),
                                        std::pair(Model::Points, 70), std::pair(Model::Distance, 90),
                                        std::pair(Model::Duration, 80)})
        table->horizontalHeader()->resizeSection(column, width);
    connect(table, &TracksAndWaypointsTableView::removeSelectedTracksAndWaypointsAction, this,
            &HBTrackPickerWindowController::removeSelectedTracksAndWaypointsAction);
}

// The menus' items, in order: 0 zoom to fit, 1 show the file, 2 a
// separator, 3 remove.
void HBTrackPickerWindowController::setUpMenus()
{
    m_sourceListMenu = new QMenu(this);
    m_sourceListMenu->addActions({m_ui->sourceViewZoomToFitAction, m_ui->sourceViewRevealAction});
    m_sourceListMenu->addSeparator();
    m_sourceListMenu->addAction(m_ui->sourceViewRemoveAction);
    m_tableMenu = new QMenu(this);
    m_tableMenu->addActions({m_ui->tableViewZoomToFitAction, m_ui->tableViewRevealAction});
    m_tableMenu->addSeparator();
    m_tableMenu->addAction(m_ui->tableViewRemoveAction);
    connect(m_sourceListMenu, &QMenu::aboutToShow, this, [this] { menuNeedsUpdate(m_sourceListMenu); });
    m_ui->sourceOutlineView->setContextMenu(m_sourceListMenu);
    m_ui->tracksAndWaypointsTableView->setContextMenu(m_tableMenu);
}

void HBTrackPickerWindowController::connectActions()
{
    using W = HBTrackPickerWindowController;
    const QList<std::pair<QAction *, void (W::*)()>> actions = {
        {m_ui->importFilesAction, &W::importFilesAction},
        {m_ui->downloadFromGPSAction, &W::downloadFromGPSAction},
        {m_ui->cancelImportAction, &W::cancelImportAction},
        {m_ui->sourceViewZoomToFitAction, &W::sourceViewZoomToFitAction},
        {m_ui->sourceViewRevealAction, &W::sourceViewRevealAction},
        {m_ui->sourceViewRemoveAction, &W::sourceViewRemoveAction},
        {m_ui->tableViewZoomToFitAction, &W::tableViewZoomToFitAction},
        {m_ui->tableViewRevealAction, &W::tableViewRevealAction},
        {m_ui->tableViewRemoveAction, &W::tableViewRemoveAction},
        {m_toolbar->zoomToFitItem(), &W::zoomToFit},
    };
    for (const auto &[action, slot] : actions)
        connect(action, &QAction::triggered, this, slot);
    connect(m_ui->closeAction, &QAction::triggered, this, &QWidget::close);
    connect(m_ui->cancelImportButton, &QPushButton::clicked, this, &W::cancelImportAction);
}

void HBTrackPickerWindowController::setUpImportProgress()
{
    m_ui->importProgressView->hide();
    HBTrackManager *manager = trackManager();
    connect(manager, &HBTrackManager::trackImportIsInProgressChanged, this,
            &HBTrackPickerWindowController::importInProgressDidChange);
    for (void (HBTrackManager::*changed)() :
         {&HBTrackManager::trackImportIsIndeterminateProgressChanged, &HBTrackManager::trackImportProgressMaxChanged,
          &HBTrackManager::trackImportProgressValueChanged, &HBTrackManager::trackImportProgressInfoChanged})
        connect(manager, changed, this, &HBTrackPickerWindowController::showImportProgress);
    importInProgressDidChange();
}

// --- the source outline -----------------------------------------------------------------------

void HBTrackPickerWindowController::expandItems()
{
    HBTrackSourceOutlineView *outline = m_ui->sourceOutlineView;
    QModelIndex row = m_sourceTreeModel->index(0, 0);
    while (row.isValid()) {
        const HBTreeNode *node = outline->nodeAtIndex(row);
        // Only a row to open is a difference: a row open in the view whose
        // node does not remember it would otherwise be found again forever.
        if (node && !node->isLeaf() && node->isExpanded() && !outline->isExpanded(row)) {
            outline->expand(row);   // rows below it appear: look again from the top
            row = m_sourceTreeModel->index(0, 0);
            continue;
        }
        row = outline->indexBelow(row);
    }
}

void HBTrackPickerWindowController::selectFirstSelectableSourceRow()
{
    HBTrackSourceOutlineView *outline = m_ui->sourceOutlineView;
    for (QModelIndex row = m_sourceTreeModel->index(0, 0); row.isValid(); row = outline->indexBelow(row)) {
        if (!row.data(HBSourceListTreeModel::IsHeaderRole).toBool()) {
            outline->selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect);
            return;
        }
    }
    outline->clearSelection();
}

void HBTrackPickerWindowController::takeSourceOutlineSelection()
{
    if (m_showingSourceListSelection)
        return;
    QList<HBIndexPath> paths;
    for (const QModelIndex &index : m_ui->sourceOutlineView->selectionModel()->selectedRows())
        paths.append(m_sourceTreeModel->indexPathForIndex(index));
    m_trackSourceList->setSourceListSelectionIndexPaths(paths);
}

void HBTrackPickerWindowController::showSourceListSelection()
{
    const QScopedValueRollback showing(m_showingSourceListSelection, true);
    QItemSelection selection;
    QModelIndex last;
    for (const HBIndexPath &path : m_trackSourceList->sourceListSelectionIndexPaths()) {
        last = m_sourceTreeModel->indexForIndexPath(path);
        selection.select(last, last);
    }
    HBTrackSourceOutlineView *outline = m_ui->sourceOutlineView;
    outline->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (last.isValid()) {
        outline->selectionModel()->setCurrentIndex(last, QItemSelectionModel::NoUpdate);
        outline->scrollTo(last);   // which opens the rows above it
    }
}

// --- following the source list ----------------------------------------------------------------

void HBTrackPickerWindowController::sourceListDidChange(quintptr context)
{
    if (context == kSelectedObjectsDidChangeContext) {
        reloadTracksAndWaypointsDetailView();
        const QModelIndexList rows = m_tableModel->selectionModel()->selectedRows();
        if (!rows.isEmpty())
            m_ui->tracksAndWaypointsTableView->scrollTo(rows.last());
    } else if (context == kTracksAndWaypointsDidChangeContext) {
        m_selectedSourceListDescription = tr("%1 Tracks (%2 points), %3 Waypoints")
                                              .arg(m_trackSourceList->countOfTracks())
                                              .arg(m_trackSourceList->countOfTrackPoints())
                                              .arg(m_trackSourceList->countOfWaypoints());
        m_toolbar->setSelectedSourceListDescription(m_selectedSourceListDescription);
        emit selectedSourceListDescriptionChanged();
    }
}

void HBTrackPickerWindowController::reloadTracksAndWaypointsDetailView()
{
    HBManagedObject *object = m_trackSourceList->selectedTracksAndWaypoints().value(
        m_trackSourceList->selectedTracksAndWaypoints().size() - 1);
    if (!object) {
        showDetailView(nullptr);
        return;
    }
    HBDetailViewController *&controller =
        isEntity(object, QLatin1String("HBWaypoint")) ? m_waypointDetailViewController : m_trackDetailViewController;
    if (!controller) {
        if (isEntity(object, QLatin1String("HBWaypoint")))
            controller = new HBWaypointDetailViewController(m_ui->tracksAndWaypointsPane);
        else
            controller = new HBTrackDetailViewController(m_ui->tracksAndWaypointsPane);
        controller->hide();
    }
    controller->setRepresentedObject(object);
    showDetailView(controller);
}

// The pane goes under the table, full width, as high as its fields need;
// the table gives up that height.
void HBTrackPickerWindowController::showDetailView(HBDetailViewController *detailView)
{
    if (m_detailViewController == detailView)
        return;
    QLayout *layout = m_ui->tracksAndWaypointsPane->layout();
    if (m_detailViewController) {
        layout->removeWidget(m_detailViewController);
        m_detailViewController->hide();
        m_detailViewController->setRepresentedObject(nullptr);
    }
    if (detailView) {
        layout->addWidget(detailView);
        detailView->show();
    }
    m_detailViewController = detailView;
}

// --- import progress ----------------------------------------------------------------------------

void HBTrackPickerWindowController::importInProgressDidChange()
{
    ImportProgressView *strip = m_ui->importProgressView;
    const bool inProgress = trackManager()->trackImportIsInProgress();
    const bool shown = !strip->isHidden();
    if (inProgress == shown)
        return;
    const int height = strip->sizeHint().height();
    strip->setFixedHeight(height);
    strip->setVisible(inProgress);
    // the split view keeps its size: the window grows by the strip, or
    // gives its height back
    resize(width(), this->height() + (inProgress ? height : -height));
    showImportProgress();
}

void HBTrackPickerWindowController::showImportProgress()
{
    const HBTrackManager *manager = trackManager();
    QProgressBar *bar = m_ui->progressIndicator;
    const quint64 max = manager->trackImportProgressMax();
    bar->setRange(0, manager->trackImportIsIndeterminateProgress() ? 0 : 1000);
    bar->setValue(max == 0 ? 0 : int(1000 * manager->trackImportProgressValue() / max));
    m_ui->progressInfoLabel->setText(manager->trackImportProgressInfo());
    m_ui->cancelImportAction->setEnabled(manager->trackImportIsInProgress());
}

// --- actions ------------------------------------------------------------------------------------

void HBTrackPickerWindowController::showWindow()
{
    show();
    raise();
    activateWindow();
}

void HBTrackPickerWindowController::importFilesAction()
{
    auto *panel = new QFileDialog(this, tr("Import Files"), defaults().stringForKey(defaultTrackImportLocation));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::ExistingFiles);
    QStringList patterns;
    for (const QString &type : HBTrackManager::validFileTypes())
        patterns.append(QStringLiteral("*.") + type);
    panel->setNameFilter(tr("GPS files (%1)").arg(patterns.join(u' ')));
    connect(panel, &QFileDialog::filesSelected, this, [this](const QStringList &paths) {
        if (paths.isEmpty())
            return;
        defaults().setObject(QFileInfo(paths.last()).absolutePath(), defaultTrackImportLocation);
        trackManager()->importFilesAtPaths(paths);
    });
    panel->open();
}

void HBTrackPickerWindowController::downloadFromGPSAction()
{
    showWindow();
    trackManager()->importWithGPSBabelForWindow(this);
}

void HBTrackPickerWindowController::cancelImportAction()
{
    trackManager()->cancelImport();
}

void HBTrackPickerWindowController::fit(const QList<HBManagedObject *> &objects)
{
    if (!m_mapController)
        return;
    QList<HBSpatialObject *> spatialObjects;
    for (HBManagedObject *object : objects) {
        if (auto *spatialObject = dynamic_cast<HBSpatialObject *>(object))
            spatialObjects.append(spatialObject);
    }
    m_mapController->fitSpatialObjects(spatialObjects);
}

void HBTrackPickerWindowController::zoomToFit()
{
    const QList<HBManagedObject *> selected = m_trackSourceList->selectedTracksAndWaypoints();
    fit(selected.isEmpty() ? m_trackSourceList->sortedTracksAndWaypoints() : selected);
}

void HBTrackPickerWindowController::sourceViewZoomToFitAction()
{
    fit(m_trackSourceList->sortedTracksAndWaypoints());
}

HBManagedObject *HBTrackPickerWindowController::arrangedObjectAtClickedRow() const
{
    return m_trackSourceList->sortedTracksAndWaypoints().value(m_ui->tracksAndWaypointsTableView->clickedRow());
}

void HBTrackPickerWindowController::tableViewZoomToFitAction()
{
    if (HBManagedObject *object = arrangedObjectAtClickedRow())
        fit({object});
}

void HBTrackPickerWindowController::revealSourceFile(const QString &path, const QString &notFoundMessage)
{
    if (!path.isEmpty() && QFileInfo::exists(path))
        HBFileViewer::selectFile(path);
    else
        m_alerts->alertSourceFileNotFound(notFoundMessage);
}

void HBTrackPickerWindowController::sourceViewRevealAction()
{
    const auto *source = dynamic_cast<const HBImportSource *>(m_ui->sourceOutlineView->clickedNode());
    revealSourceFile(source ? source->filePath() : QString(), tr("The source file could not be found."));
}

void HBTrackPickerWindowController::tableViewRevealAction()
{
    const HBManagedObject *object = arrangedObjectAtClickedRow();
    revealSourceFile(object ? object->valueForKeyPath(QStringLiteral("importSource.filePath")).toString() : QString(),
                     tr("The source file for this track or waypoint could not be found."));
}

void HBTrackPickerWindowController::sourceViewRemoveAction()
{
    if (HBTreeNode *node = m_ui->sourceOutlineView->clickedNode())
        m_trackSourceList->deleteObjectsFromSourceList(node);
}

void HBTrackPickerWindowController::removeSelectedSourceListAction()
{
    if (HBTreeNode *node = m_trackSourceList->selectedSourceList())
        m_trackSourceList->deleteObjectsFromSourceList(node);
}

void HBTrackPickerWindowController::tableViewRemoveAction()
{
    if (HBManagedObject *object = arrangedObjectAtClickedRow())
        alertToDeleteTrackOrWaypoint(object);
}

void HBTrackPickerWindowController::removeSelectedTracksAndWaypointsAction()
{
    const QList<HBManagedObject *> selected = m_trackSourceList->selectedTracksAndWaypoints();
    if (selected.size() == 1)
        alertToDeleteTrackOrWaypoint(selected.first());
}

void HBTrackPickerWindowController::alertToDeleteSourceList(HBTreeNode *node)
{
    m_alerts->alertToDeleteSourceList(node);
}

void HBTrackPickerWindowController::alertToDeleteTrackOrWaypoint(HBManagedObject *object)
{
    m_alerts->alertToDeleteTrackOrWaypoint(object);
}

// An import source's entry can show its file and removes the file's
// records; zooming is offered only for the entry whose rows are listed.
void HBTrackPickerWindowController::menuNeedsUpdate(QMenu *menu)
{
    HBTreeNode *node = m_ui->sourceOutlineView->clickedNode();
    if (menu != m_sourceListMenu || !node)
        return;
    const bool isImportSource = dynamic_cast<HBImportSource *>(node) != nullptr;
    const QList<QAction *> items = menu->actions();
    items.at(1)->setVisible(isImportSource);
    const QString removeTitle =
        isImportSource ? tr("Remove Track File From Database") : tr("Remove Tracks & Waypoints From List");
    items.at(3)->setText(QString(removeTitle).replace(u'&', QStringLiteral("&&")));
    items.at(0)->setVisible(node == m_trackSourceList->selectedSourceList());
}

// --- drops and settings -------------------------------------------------------------------------

void HBTrackPickerWindowController::dragEnterEvent(QDragEnterEvent *event)
{
    const QStringList paths = localFilePaths(event->mimeData());
    if (!paths.isEmpty() && HBTrackManager::validateFilesAtPaths(paths))
        event->acceptProposedAction();
}

void HBTrackPickerWindowController::dropEvent(QDropEvent *event)
{
    const QStringList paths = localFilePaths(event->mimeData());
    if (paths.isEmpty())
        return;
    trackManager()->importFilesAtPaths(paths);
    event->acceptProposedAction();
}

void HBTrackPickerWindowController::closeEvent(QCloseEvent *event)
{
    saveSettings();
    QMainWindow::closeEvent(event);
}

void HBTrackPickerWindowController::restoreSettings()
{
    const QByteArray geometry = defaults().objectForKey(kGeometryKey).toByteArray();
    if (!geometry.isEmpty())
        restoreGeometry(geometry);
    if (const qint64 left = defaults().integerForKey(kLeftWidthKey); left > 0)
        m_ui->splitView->setLeftWidth(int(left));
    const QByteArray columns = defaults().objectForKey(kColumnsKey).toByteArray();
    if (!columns.isEmpty())
        m_ui->tracksAndWaypointsTableView->horizontalHeader()->restoreState(columns);
}

void HBTrackPickerWindowController::saveSettings() const
{
    defaults().setObject(saveGeometry(), kGeometryKey);
    defaults().setObject(m_ui->splitView->leftWidth(), kLeftWidthKey);
    defaults().setObject(m_ui->tracksAndWaypointsTableView->horizontalHeader()->saveState(), kColumnsKey);
}
