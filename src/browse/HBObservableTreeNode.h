#pragma once

#include "browse/HBTreeNode.h"

#include <QObject>

// A tree node that announces its changes, so that a model over the tree can
// patch its rows instead of starting again: the rows a person expanded or
// selected stay as they are.
//
// Every change is announced right after it is made, on the main thread:
// childrenRemoved with the positions the children had, childrenInserted
// with the positions they have now, both in ascending order.
class HBObservableTreeNode : public QObject, public HBTreeNode
{
    Q_OBJECT
public:
    HBObservableTreeNode();

    HBObservableTreeNode *observable() override { return this; }

protected:
    // One child in or out of the node's children list, announced.
    template<class Child>
    void insertChild(QList<Child *> &children, Child *child, qsizetype index)
    {
        children.insert(index, child);
        emit childrenInserted({index});
    }
    template<class Child>
    void removeChild(QList<Child *> &children, qsizetype index)
    {
        children.removeAt(index);
        emit childrenRemoved({index});
    }

signals:
    void childrenInserted(const QList<qsizetype> &indexes);
    void childrenRemoved(const QList<qsizetype> &indexes);
    void isExpandedChanged();
    void nameChanged();
    // What the node lists has changed: fetch it again.
    void shouldRefreshTracksAndWaypointsChanged();
};
