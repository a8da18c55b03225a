#include "browse/HBSmartFileTree.h"

#include "browse/HBSmartFile.h"

HBSmartFileTree::HBSmartFileTree() = default;

QList<HBTreeNode *> HBSmartFileTree::children() const
{
    return {m_children.cbegin(), m_children.cend()};
}

void HBSmartFileTree::insertObjectInChildrenAtIndex(HBSmartFile *smartFile, qsizetype index)
{
    insertChild(m_children, smartFile, index);
}

void HBSmartFileTree::removeObjectFromChildrenAtIndex(qsizetype index)
{
    removeChild(m_children, index);
}
