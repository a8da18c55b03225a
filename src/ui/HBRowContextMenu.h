#pragma once

#include <QPersistentModelIndex>

class QAbstractItemView;
class QContextMenuEvent;
class QMenu;

// A list's context menu and the row it was opened on. The row stays the
// clicked row until the next right-click, so that the menu's actions, which
// run after the menu has closed, still know it.
class HBRowContextMenu
{
public:
    // Not owned; null for no menu.
    void setMenu(QMenu *menu) { m_menu = menu; }
    // Invalid when the last right-click hit no row.
    QModelIndex clickedIndex() const { return m_clickedIndex; }
    // Notes the row under the pointer, then pops the menu up there.
    void popUp(const QAbstractItemView *view, QContextMenuEvent *event);

private:
    QMenu *m_menu = nullptr;
    QPersistentModelIndex m_clickedIndex;
};
