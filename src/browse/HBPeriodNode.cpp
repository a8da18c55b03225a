#include "browse/HBPeriodNode.h"

HBPeriodNode::HBPeriodNode(HBDatePeriod period)
    : HBExpandableTreeNode(false)
    , m_period(std::move(period))
{
}

void HBPeriodNode::insertChild(HBTreeNode *child, qsizetype index)
{
    HBObservableTreeNode::insertChild(m_children, child, index);
}

void HBPeriodNode::removeChildAtIndex(qsizetype index)
{
    removeChild(m_children, index);
}
