#pragma once

#include <QMainWindow>

class HBMapCanvas;
class HBTileLayer;
class HBTrackPickerController;

// The desktop host: the map of the tracks and waypoints the track picker
// lists, beside the picker's window, with the menus to import, download,
// export and zoom. The map follows the picker's list and selection, and a
// click on the map selects through the picker. Until the picker's source
// list has a selection of its own, the map shows "Recent Imports". The window's
// geometry and the map's last view are kept in the settings between runs.
class FernwickWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit FernwickWindow(QWidget *parent = nullptr);
    ~FernwickWindow() override;

    HBMapCanvas *canvas() const { return m_canvas; }
    HBTrackPickerController *picker() const { return m_picker; }
    // Shows the picker's window beside the map; it closes with the map.
    void showTrackPicker();
    // Shows the selected objects whole, or all of them when none is selected.
    void zoomToFit();
    // Puts the mouse over the middle point of the first listed track with
    // points, so that its bubble shows; false without one.
    bool hoverFirstTrack();

protected:
    void closeEvent(QCloseEvent *event) override;

signals:
    // The picker listed something for the first time.
    void firstListShown();

private:
    void buildMenus();
    void wirePicker();
    void selectRecentImportsUnlessSelected();
    void restoreSettings();
    void saveSettings() const;
    void exportSelection();
    void showAbout();

    HBMapCanvas *m_canvas;
    HBTileLayer *m_tiles = nullptr;
    HBTrackPickerController *m_picker;
    bool m_firstListShown = false;
};
