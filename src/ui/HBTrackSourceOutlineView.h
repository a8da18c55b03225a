#pragma once

#include "ui/HBRowContextMenu.h"

#include <QTreeView>

class HBTreeNode;

// The source list's tree. Headers are group rows: drawn in bold, never
// selected, and a header that shows no disclosure indicator has none, so it
// cannot be opened or closed by a click where the indicator would be, nor
// closed by the keyboard. Delete asks the window to remove what the selected
// entry holds, whether or not something is selected; the window decides.
//
// The model is an HBSourceListTreeModel (or one with the same roles).
class HBTrackSourceOutlineView : public QTreeView
{
    Q_OBJECT
public:
    explicit HBTrackSourceOutlineView(QWidget *parent = nullptr);

    HBTreeNode *nodeAtIndex(const QModelIndex &index) const;
    // True when the row has no disclosure indicator although it has children.
    bool hidesDisclosureIndicator(const QModelIndex &index) const;
    // The node of the row last right-clicked, null when the click hit no row.
    HBTreeNode *clickedNode() const { return nodeAtIndex(m_contextMenu.clickedIndex()); }

    // Pops up on a right-click, not owned.
    void setContextMenu(QMenu *menu) { m_contextMenu.setMenu(menu); }

signals:
    void removeSelectedSourceListAction();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const override;
    void drawRow(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex &index,
                                                         const QEvent *event = nullptr) const override;

private:
    bool isHeader(const QModelIndex &index) const;
    bool mayCollapse(const QModelIndex &index) const;
    void collapsedRow(const QModelIndex &index);

    HBRowContextMenu m_contextMenu;
};
