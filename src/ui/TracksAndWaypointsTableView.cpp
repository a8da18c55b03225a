#include "ui/TracksAndWaypointsTableView.h"

#include "ui/HBDeleteKey.h"
#include "ui/HBTracksAndWaypointsItemDelegate.h"

#include <QHeaderView>

TracksAndWaypointsTableView::TracksAndWaypointsTableView(QWidget *parent)
    : QTableView(parent)
{
    setItemDelegate(new HBTracksAndWaypointsItemDelegate(this));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setWordWrap(false);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    horizontalHeader()->setSectionsMovable(true);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setHighlightSections(false);
}

// No column is sorted until a person clicks a header (the list is then in
// fetch order, tracks first): QTableView sorts by the header's indicator as
// soon as it has a model, and the header's own is the first column,
// descending.
void TracksAndWaypointsTableView::setModel(QAbstractItemModel *model)
{
    setSortingEnabled(false);
    QTableView::setModel(model);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    setSortingEnabled(true);
}

void TracksAndWaypointsTableView::keyPressEvent(QKeyEvent *event)
{
    if (HBIsDeleteKeyPress(event)) {
        emit removeSelectedTracksAndWaypointsAction();
        return;
    }
    QTableView::keyPressEvent(event);
}

void TracksAndWaypointsTableView::contextMenuEvent(QContextMenuEvent *event)
{
    m_contextMenu.popUp(this, event);
}
