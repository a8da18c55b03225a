#pragma once

#include "browse/HBObservableTreeNode.h"

class HBSmartFile;

// "Smart Lists": the saved searches, in the order they were put there. It
// is always open. It does not own its smart files: whoever adds one keeps
// it alive while it is there.
class HBSmartFileTree : public HBObservableTreeNode
{
    Q_OBJECT
public:
    HBSmartFileTree();

    QString name() const override { return QStringLiteral("Smart Lists"); }
    QList<HBTreeNode *> children() const override;
    bool isLeaf() const override { return false; }
    bool isHeader() const override { return true; }
    bool shouldDisplayDisclosureTriangle() const override { return false; }
    bool isExpanded() const override { return true; }

    const QList<HBSmartFile *> &smartFiles() const { return m_children; }
    void insertObjectInChildrenAtIndex(HBSmartFile *smartFile, qsizetype index);
    void removeObjectFromChildrenAtIndex(qsizetype index);

private:
    QList<HBSmartFile *> m_children;
};
