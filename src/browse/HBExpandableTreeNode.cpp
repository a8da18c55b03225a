#include "browse/HBExpandableTreeNode.h"

HBExpandableTreeNode::HBExpandableTreeNode(bool expanded)
    : m_isExpanded(expanded)
{
}

void HBExpandableTreeNode::setIsExpanded(bool expanded)
{
    if (m_isExpanded == expanded)
        return;
    m_isExpanded = expanded;
    emit isExpandedChanged();
}
