#pragma once

#include "browse/HBExpandableTreeNode.h"
#include "platform/store/HBManagedObjectID.h"

class HBImportSource;

// "File Browser": one leaf per imported file, the import sources
// themselves as objects of the track manager's main-queue context, in the
// order of their names.
//
// A reload patches the children instead of replacing them: the files that
// went are removed in one change, then the new ones are inserted at their
// places in name order in one change; the files that stay keep their
// objects, so that a selected or expanded row stays so.
class HBFileTree : public HBExpandableTreeNode
{
    Q_OBJECT
public:
    HBFileTree();

    QString name() const override { return QStringLiteral("File Browser"); }
    QList<HBTreeNode *> children() const override;
    bool isLeaf() const override { return false; }
    bool isHeader() const override { return true; }

    const QList<HBImportSource *> &importSources() const { return m_children; }

    // Reads the import sources that match the predicate (an invalid one:
    // all) and brings the children to them; didReload follows on the main
    // thread.
    void reloadForDatePredicate(const HBPredicate &predicate);

signals:
    void didReload();

private:
    void showImportSources(const QList<HBManagedObjectID> &ids);

    QList<HBImportSource *> m_children;
};
