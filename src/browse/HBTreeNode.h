#pragma once

#include "platform/store/HBPredicate.h"

#include <QList>
#include <QMetaType>
#include <QString>

class HBObservableTreeNode;

// What every entry of the source list answers: the headers, the date and
// file trees with their years, months, days and files, and the smart lists.
// Selecting a node lists the tracks its trackPredicate selects and the
// waypoints its waypointPredicate selects; an invalid predicate selects
// nothing.
//
// Nodes whose children, expansion, name or predicates can change are
// HBObservableTreeNode objects and announce those changes; the others (a
// day, a file) never change once made.
class HBTreeNode
{
public:
    virtual ~HBTreeNode() = default;

    virtual QString name() const = 0;
    virtual QList<HBTreeNode *> children() const { return {}; }
    virtual bool isLeaf() const = 0;
    virtual bool isHeader() const { return false; }
    virtual bool shouldDisplayDisclosureTriangle() const { return !isLeaf(); }
    virtual bool isExpanded() const { return false; }
    virtual void setIsExpanded(bool) {}
    // Stays false; an observable node signals instead when what it lists
    // has changed and should be fetched again.
    virtual bool shouldRefreshTracksAndWaypoints() const { return false; }
    virtual HBPredicate trackPredicate() const { return {}; }
    virtual HBPredicate waypointPredicate() const { return {}; }

    // Null for a node that never changes.
    virtual HBObservableTreeNode *observable() { return nullptr; }
};

Q_DECLARE_METATYPE(HBTreeNode *)
