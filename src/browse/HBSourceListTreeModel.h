#pragma once

#include "browse/HBTrackSourceList.h"

#include <QAbstractItemModel>
#include <QHash>

// The source list's three trees as an item model for a tree view: one
// column, the roots on top. Each children change a node announces becomes
// row insertions or removals of that node's rows, never a reset, so that the
// rows a person expanded or selected stay as they are.
//
// The model keeps its own copy of the children lists it has announced, so
// that it answers consistently between a change and its announcement.
// Beside the name (headers upper-cased, as a source list shows them) it
// hands out the node itself and its flags.
class HBSourceListTreeModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Role {
        NodeRole = Qt::UserRole + 1,   // HBTreeNode *
        NameRole,                      // the name as the node gives it
        IsHeaderRole,
        IsLeafRole,
        ShouldDisplayDisclosureTriangleRole,
        IsExpandedRole,                // settable
    };

    explicit HBSourceListTreeModel(HBTrackSourceList *sourceList, QObject *parent = nullptr);
    ~HBSourceListTreeModel() override;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    QHash<int, QByteArray> roleNames() const override;

    HBTreeNode *nodeForIndex(const QModelIndex &index) const;
    // The source list's selection paths and the model's indexes.
    HBIndexPath indexPathForIndex(const QModelIndex &index) const;
    QModelIndex indexForIndexPath(const HBIndexPath &path) const;

private:
    // A node that has children, as the model last announced them.
    struct Branch
    {
        HBTreeNode *parent = nullptr;   // null for a root
        QList<HBTreeNode *> children;
    };

    void show(HBTreeNode *node, HBTreeNode *parent);
    void hide(HBTreeNode *node);
    void observe(HBTreeNode *node, HBTreeNode *parent);
    void insertChildren(HBTreeNode *node, const QList<qsizetype> &indexes);
    void removeChildren(HBTreeNode *node, const QList<qsizetype> &indexes);
    void announceDataChanged(HBTreeNode *node, HBTreeNode *parent, const QList<int> &roles);
    QModelIndex indexOfNode(const HBTreeNode *node, const HBTreeNode *parent) const;
    const QList<HBTreeNode *> &childrenOf(const HBTreeNode *parent) const;

    QList<HBTreeNode *> m_roots;
    QHash<const HBTreeNode *, Branch> m_branches;
    QHash<const HBTreeNode *, QList<QMetaObject::Connection>> m_observations;
};
