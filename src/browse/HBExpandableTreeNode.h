#pragma once

#include "browse/HBObservableTreeNode.h"

// An observable node that keeps whether it is shown open, so that the
// state survives every reload of the tree around it.
class HBExpandableTreeNode : public HBObservableTreeNode
{
    Q_OBJECT
public:
    explicit HBExpandableTreeNode(bool expanded);

    bool isExpanded() const override { return m_isExpanded; }
    void setIsExpanded(bool expanded) override;

private:
    bool m_isExpanded;
};
