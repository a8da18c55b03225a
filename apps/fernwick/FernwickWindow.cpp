#include "FernwickWindow.h"

#include "browse/HBSmartFileTree.h"
#include "browse/HBSmartRecentImportsFile.h"
#include "browse/HBTrackSourceList.h"
#include "export/HBGPXExporter.h"
#include "model/HBTrack.h"
#include "model/HBTrackGeometry.h"
#include "model/HBWaypoint.h"
#include "ui/HBMapCanvas.h"
#include "ui/HBTileLayer.h"
#include "ui/HBTrackPickerController.h"
#include "ui/HBTrackPickerWindowController.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QMouseEvent>
#include <QSettings>
#include <QStandardPaths>

namespace {

// The same file as the library's user defaults.
const QString kSettingsOrganisation = QStringLiteral("Fernwick");
const QString kSettingsApplication = QStringLiteral("Fernwick");
const QString kGeometryKey = QStringLiteral("fernwick/windowGeometry");
const QString kViewKey = QStringLiteral("fernwick/mapView"); // centre x, centre y (metres), metres per pixel
// Off by default: no tile server is asked unless the user names one.
const QString kTileTemplateKey = QStringLiteral("fernwick/tileURLTemplate");
const QString kTileAttributionKey = QStringLiteral("fernwick/tileAttribution");

template<class Record>
QList<Record *> selectedOf(const HBTrackPickerController *picker)
{
    QList<Record *> records;
    for (qsizetype i : picker->spatialObjectSelectionIndexes()) {
        if (auto *record = dynamic_cast<Record *>(picker->spatialObjects().value(i)))
            records.append(record);
    }
    return records;
}

} // namespace

FernwickWindow::FernwickWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_canvas(new HBMapCanvas(this))
    , m_picker(new HBTrackPickerController(this))
{
    setWindowTitle(tr("Fernwick"));
    setCentralWidget(m_canvas);
    const QSettings s(kSettingsOrganisation, kSettingsApplication);
    const QString tileTemplate = s.value(kTileTemplateKey).toString();
    if (!tileTemplate.isEmpty()) {
        const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
                              + QStringLiteral("/Fernwick/Tiles");
        m_tiles = new HBTileLayer(tileTemplate, s.value(kTileAttributionKey).toString(), cache, this);
        m_canvas->setTileLayer(m_tiles);
    }
    buildMenus();
    wirePicker();
    restoreSettings();
}

FernwickWindow::~FernwickWindow() = default;

void FernwickWindow::wirePicker()
{
    m_picker->setMapController(m_canvas);
    connect(m_picker, &HBTrackPickerController::spatialObjectsChanged, m_canvas,
            [this] { m_canvas->setSpatialObjects(m_picker->spatialObjects()); });
    connect(m_picker, &HBTrackPickerController::spatialObjectSelectionIndexesChanged, m_canvas,
            [this] { m_canvas->setSpatialObjectSelectionIndexes(m_picker->spatialObjectSelectionIndexes()); });
    connect(m_canvas, &HBMapCanvas::spatialObjectsClicked, m_picker, &HBTrackPickerController::addSelectedSpatialObjects);
    selectRecentImportsUnlessSelected();
    connect(m_picker, &HBTrackPickerController::spatialObjectsChanged, this, [this] {
        if (!m_firstListShown && !m_picker->spatialObjects().isEmpty()) {
            m_firstListShown = true;
            emit firstListShown();
        }
    });
}

void FernwickWindow::selectRecentImportsUnlessSelected()
{
    HBTrackSourceList *list = m_picker->trackSourceList();
    if (list->selectedSourceList())
        return;
    for (HBSmartFile *file : list->smartTree()->smartFiles()) {
        if (dynamic_cast<HBSmartRecentImportsFile *>(file)) {
            list->setSelectedSourceList(file);
            return;
        }
    }
}

void FernwickWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("Import\u2026"), QKeySequence::Open, m_picker, &HBTrackPickerController::importFilesAction);
    file->addAction(tr("Download from GPS\u2026"), m_picker, &HBTrackPickerController::downloadFromGPSAction);
    file->addAction(tr("Export Selection as GPX\u2026"), QKeySequence(tr("Ctrl+E")), this,
                    &FernwickWindow::exportSelection);
    file->addSeparator();
    file->addAction(tr("Quit"), QKeySequence::Quit, this, &QWidget::close);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->addAction(tr("Zoom To Fit"), QKeySequence(tr("Ctrl+0")), this, &FernwickWindow::zoomToFit);
    view->addAction(tr("Show Track Picker"), QKeySequence(tr("Ctrl+T")), this, &FernwickWindow::showTrackPicker);

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("About Fernwick"), this, &FernwickWindow::showAbout);
}

void FernwickWindow::showTrackPicker()
{
    m_picker->showWindow();
    // the map's window is the program: closing it quits, the picker with it
    m_picker->windowController()->setAttribute(Qt::WA_QuitOnClose, false);
}

void FernwickWindow::zoomToFit()
{
    QList<HBSpatialObject *> objects;
    for (qsizetype i : m_picker->spatialObjectSelectionIndexes())
        objects.append(m_picker->spatialObjects().value(i));
    m_canvas->fitSpatialObjects(objects.isEmpty() ? m_picker->spatialObjects() : objects);
}

bool FernwickWindow::hoverFirstTrack()
{
    const HBProjection mercator(HBProjection::WebMercatorSRID);
    for (HBSpatialObject *object : m_picker->spatialObjects()) {
        auto *track = dynamic_cast<HBTrack *>(object);
        const std::shared_ptr<HBTrackGeometry> geometry = track ? track->geometry() : nullptr;
        const auto points = geometry ? geometry->geometryWithProjection(mercator) : nullptr;
        if (!points || points->count() == 0)
            continue;
        const QPointF at = m_canvas->view().toView(points->points()[points->count() / 2], m_canvas->size());
        QMouseEvent move(QEvent::MouseMove, at, m_canvas->mapToGlobal(at), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(m_canvas, &move);
        return true;
    }
    return false;
}

void FernwickWindow::exportSelection()
{
    HBGPXExporter exporter;
    exporter.tracks() = selectedOf<HBTrack>(m_picker);
    exporter.waypoints() = selectedOf<HBWaypoint>(m_picker);
    if (exporter.tracks().isEmpty() && exporter.waypoints().isEmpty()) {
        QMessageBox::information(this, tr("Export Selection as GPX"),
                                 tr("Select tracks or waypoints on the map or in the track picker first."));
        return;
    }
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Export Selection as GPX"), QString(), tr("GPX files (*.gpx)"));
    if (!path.isEmpty() && !exporter.exportToPath(path))
        QMessageBox::warning(this, tr("Export Selection as GPX"), exporter.errorString());
}

void FernwickWindow::showAbout()
{
    QMessageBox::about(this, tr("About Fernwick"),
                       tr("<b>Fernwick</b> %1<p>Tracks and waypoints from GPS files and receivers on a map.</p>")
                           .arg(QApplication::applicationVersion()));
}

void FernwickWindow::restoreSettings()
{
    QSettings s(kSettingsOrganisation, kSettingsApplication);
    if (!restoreGeometry(s.value(kGeometryKey).toByteArray()))
        resize(1000, 700);
    const QList<QVariant> view = s.value(kViewKey).toList();
    if (view.size() == 3)
        m_canvas->setView(HBMapView(QPointF(view[0].toDouble(), view[1].toDouble()), view[2].toDouble()));
}

void FernwickWindow::saveSettings() const
{
    QSettings s(kSettingsOrganisation, kSettingsApplication);
    s.setValue(kGeometryKey, saveGeometry());
    const HBMapView view = m_canvas->view();
    s.setValue(kViewKey, QVariantList{view.centre().x(), view.centre().y(), view.metresPerPixel()});
}

void FernwickWindow::closeEvent(QCloseEvent *event)
{
    saveSettings();
    event->accept();
}
