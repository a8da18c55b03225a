#include "ui/HBTrackSourceOutlineView.h"

#include "browse/HBSourceListTreeModel.h"
#include "ui/HBDeleteKey.h"

#include <QMouseEvent>

HBTrackSourceOutlineView::HBTrackSourceOutlineView(QWidget *parent)
    : QTreeView(parent)
{
    setHeaderHidden(true);
    setUniformRowHeights(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setExpandsOnDoubleClick(true);
    // The nodes remember what is open. QTreeView has no veto before a row
    // closes: a refused close is undone at once, before anything is drawn.
    connect(this, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        model()->setData(index, true, HBSourceListTreeModel::IsExpandedRole);
    });
    connect(this, &QTreeView::collapsed, this, &HBTrackSourceOutlineView::collapsedRow);
}

HBTreeNode *HBTrackSourceOutlineView::nodeAtIndex(const QModelIndex &index) const
{
    return index.data(HBSourceListTreeModel::NodeRole).value<HBTreeNode *>();
}

bool HBTrackSourceOutlineView::isHeader(const QModelIndex &index) const
{
    return index.data(HBSourceListTreeModel::IsHeaderRole).toBool();
}

bool HBTrackSourceOutlineView::hidesDisclosureIndicator(const QModelIndex &index) const
{
    return isHeader(index) && !index.data(HBSourceListTreeModel::ShouldDisplayDisclosureTriangleRole).toBool();
}

bool HBTrackSourceOutlineView::mayCollapse(const QModelIndex &index) const
{
    if (index.data(HBSourceListTreeModel::IsLeafRole).toBool())
        return false;
    return !hidesDisclosureIndicator(index);
}

void HBTrackSourceOutlineView::collapsedRow(const QModelIndex &index)
{
    if (mayCollapse(index))
        model()->setData(index, false, HBSourceListTreeModel::IsExpandedRole);
    else
        expand(index);
}

void HBTrackSourceOutlineView::keyPressEvent(QKeyEvent *event)
{
    if (HBIsDeleteKeyPress(event)) {
        emit removeSelectedSourceListAction();
        return;
    }
    QTreeView::keyPressEvent(event);
}

// A click where a hidden indicator would be does nothing at all, as if the
// row had no children there.
void HBTrackSourceOutlineView::mousePressEvent(QMouseEvent *event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    const int rowStart = visualRect(index).x();
    if (index.isValid() && hidesDisclosureIndicator(index) && event->position().x() < rowStart) {
        event->accept();
        return;
    }
    QTreeView::mousePressEvent(event);
}

void HBTrackSourceOutlineView::mouseDoubleClickEvent(QMouseEvent *event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid() && hidesDisclosureIndicator(index)) {
        event->accept();
        return;
    }
    QTreeView::mouseDoubleClickEvent(event);
}

void HBTrackSourceOutlineView::contextMenuEvent(QContextMenuEvent *event)
{
    m_contextMenu.popUp(this, event);
}

void HBTrackSourceOutlineView::drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const
{
    if (!hidesDisclosureIndicator(index))
        QTreeView::drawBranches(painter, rect, index);
}

void HBTrackSourceOutlineView::drawRow(QPainter *painter, const QStyleOptionViewItem &option,
                                       const QModelIndex &index) const
{
    if (!isHeader(index)) {
        QTreeView::drawRow(painter, option, index);
        return;
    }
    QStyleOptionViewItem header = option;
    header.font.setBold(true);
    header.palette.setColor(QPalette::Text, option.palette.color(QPalette::PlaceholderText));
    QTreeView::drawRow(painter, header, index);
}

QItemSelectionModel::SelectionFlags HBTrackSourceOutlineView::selectionCommand(const QModelIndex &index,
                                                                              const QEvent *event) const
{
    if (isHeader(index))
        return QItemSelectionModel::NoUpdate;
    return QTreeView::selectionCommand(index, event);
}
