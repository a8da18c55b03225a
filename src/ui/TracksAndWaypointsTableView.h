#pragma once

#include "ui/HBRowContextMenu.h"

#include <QTableView>

// The list of the tracks and waypoints a source-list entry holds. Delete
// asks the window to remove the selected row, whether or not one is
// selected; the window decides. The row last right-clicked is kept for the
// context menu's actions.
class TracksAndWaypointsTableView : public QTableView
{
    Q_OBJECT
public:
    explicit TracksAndWaypointsTableView(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;

    // -1 when the last right-click hit no row.
    int clickedRow() const { return m_contextMenu.clickedIndex().row(); }

    // Pops up on a right-click, not owned.
    void setContextMenu(QMenu *menu) { m_contextMenu.setMenu(menu); }

signals:
    void removeSelectedTracksAndWaypointsAction();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    HBRowContextMenu m_contextMenu;
};
