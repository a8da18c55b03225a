#pragma once

#include <QMainWindow>

class FernwickLibraryLayer;
class HBMapCanvas;
class HBTileLayer;
class HBTrackManager;

// The desktop host: the map over every stored track and waypoint, with the
// menus to import, download, export and zoom. Its geometry and the map's
// last view are kept in the settings between runs.
class FernwickWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit FernwickWindow(HBTrackManager *manager, QWidget *parent = nullptr);
    ~FernwickWindow() override;

    HBMapCanvas *canvas() const { return m_canvas; }
    FernwickLibraryLayer *layer() const { return m_layer; }
    // Shows the selected objects whole, or all of them when none is selected.
    void zoomToFit();
    // Puts the mouse over the middle point of the first listed track with
    // points, so that its bubble shows; false without one.
    bool hoverFirstTrack();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void wireLayer();
    void restoreSettings();
    void saveSettings() const;
    void importFiles();
    void exportSelection();
    void showAbout();

    HBTrackManager *m_manager;
    HBMapCanvas *m_canvas;
    HBTileLayer *m_tiles = nullptr;
    FernwickLibraryLayer *m_layer;
};
