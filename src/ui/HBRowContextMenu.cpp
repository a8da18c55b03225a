#include "ui/HBRowContextMenu.h"

#include <QAbstractItemView>
#include <QContextMenuEvent>
#include <QMenu>

void HBRowContextMenu::popUp(const QAbstractItemView *view, QContextMenuEvent *event)
{
    // the event comes from the viewport, with its position there
    m_clickedIndex = view->indexAt(event->pos());
    if (m_menu)
        m_menu->popup(event->globalPos());
    event->accept();
}
