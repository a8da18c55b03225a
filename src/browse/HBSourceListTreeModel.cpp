#include "browse/HBSourceListTreeModel.h"

#include "browse/HBObservableTreeNode.h"

#include <QLocale>

namespace {

// Runs of consecutive indexes, from an ascending list: [first, last] pairs.
QList<std::pair<qsizetype, qsizetype>> runsOf(const QList<qsizetype> &indexes)
{
    QList<std::pair<qsizetype, qsizetype>> runs;
    for (qsizetype i : indexes) {
        if (!runs.isEmpty() && runs.last().second + 1 == i)
            runs.last().second = i;
        else
            runs.append({i, i});
    }
    return runs;
}

} // namespace

HBSourceListTreeModel::HBSourceListTreeModel(HBTrackSourceList *sourceList, QObject *parent)
    : QAbstractItemModel(parent)
    , m_roots(sourceList->sources())
{
    for (HBTreeNode *root : std::as_const(m_roots))
        show(root, nullptr);
}

HBSourceListTreeModel::~HBSourceListTreeModel()
{
    for (const QList<QMetaObject::Connection> &connections : std::as_const(m_observations)) {
        for (const QMetaObject::Connection &c : connections)
            disconnect(c);
    }
}

// --- the copy of the trees ------------------------------------------------------------------

void HBSourceListTreeModel::show(HBTreeNode *node, HBTreeNode *parent)
{
    observe(node, parent);
    if (node->isLeaf())
        return;
    Branch &branch = m_branches[node];
    branch.parent = parent;
    branch.children = node->children();
    for (HBTreeNode *child : std::as_const(branch.children))
        show(child, node);
}

void HBSourceListTreeModel::hide(HBTreeNode *node)
{
    if (const auto branch = m_branches.constFind(node); branch != m_branches.constEnd()) {
        for (HBTreeNode *child : branch->children)
            hide(child);
        m_branches.remove(node);
    }
    for (const QMetaObject::Connection &c : m_observations.take(node))
        disconnect(c);
}

void HBSourceListTreeModel::observe(HBTreeNode *node, HBTreeNode *parent)
{
    HBObservableTreeNode *observable = node->observable();
    if (!observable || m_observations.contains(node))
        return;
    m_observations.insert(node, {
        connect(observable, &HBObservableTreeNode::childrenInserted, this,
                [this, node](const QList<qsizetype> &indexes) { insertChildren(node, indexes); }),
        connect(observable, &HBObservableTreeNode::childrenRemoved, this,
                [this, node](const QList<qsizetype> &indexes) { removeChildren(node, indexes); }),
        connect(observable, &HBObservableTreeNode::isExpandedChanged, this,
                [this, node, parent] { announceDataChanged(node, parent, {IsExpandedRole}); }),
        connect(observable, &HBObservableTreeNode::nameChanged, this,
                [this, node, parent] { announceDataChanged(node, parent, {Qt::DisplayRole, NameRole}); }),
    });
}

// The new children are at the indexes of the node's children now; each
// run of them is inserted with the subtrees below it.
void HBSourceListTreeModel::insertChildren(HBTreeNode *node, const QList<qsizetype> &indexes)
{
    const auto branch = m_branches.find(node);
    if (branch == m_branches.end())
        return;
    const QList<HBTreeNode *> children = node->children();
    const QModelIndex parentIndex = indexOfNode(node, branch->parent);
    for (const auto &[first, last] : runsOf(indexes)) {
        beginInsertRows(parentIndex, int(first), int(last));
        for (qsizetype i = first; i <= last; ++i) {
            m_branches[node].children.insert(i, children.at(i));
            show(children.at(i), node);
        }
        endInsertRows();
    }
}

// The indexes are where the children were; runs go from the last, so that
// the earlier ones keep their places.
void HBSourceListTreeModel::removeChildren(HBTreeNode *node, const QList<qsizetype> &indexes)
{
    const auto branch = m_branches.constFind(node);
    if (branch == m_branches.constEnd())
        return;
    const QModelIndex parentIndex = indexOfNode(node, branch->parent);
    const QList<std::pair<qsizetype, qsizetype>> runs = runsOf(indexes);
    for (auto run = runs.crbegin(); run != runs.crend(); ++run) {
        beginRemoveRows(parentIndex, int(run->first), int(run->second));
        for (qsizetype i = run->second; i >= run->first; --i)
            hide(m_branches[node].children.takeAt(i));
        endRemoveRows();
    }
}

void HBSourceListTreeModel::announceDataChanged(HBTreeNode *node, HBTreeNode *parent, const QList<int> &roles)
{
    const QModelIndex index = indexOfNode(node, parent);
    if (index.isValid())
        emit dataChanged(index, index, roles);
}

const QList<HBTreeNode *> &HBSourceListTreeModel::childrenOf(const HBTreeNode *parent) const
{
    static const QList<HBTreeNode *> none;
    if (!parent)
        return m_roots;
    const auto branch = m_branches.constFind(parent);
    return branch == m_branches.constEnd() ? none : branch->children;
}

QModelIndex HBSourceListTreeModel::indexOfNode(const HBTreeNode *node, const HBTreeNode *parent) const
{
    const qsizetype row = childrenOf(parent).indexOf(node);
    return row < 0 ? QModelIndex() : createIndex(int(row), 0, const_cast<HBTreeNode *>(parent));
}

// --- the item model ---------------------------------------------------------------------------

// An index carries its parent node; the row finds the node among the
// parent's children.
HBTreeNode *HBSourceListTreeModel::nodeForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    const QList<HBTreeNode *> &siblings = childrenOf(static_cast<const HBTreeNode *>(index.internalPointer()));
    return index.row() < siblings.size() ? siblings.at(index.row()) : nullptr;
}

QModelIndex HBSourceListTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0 || (parent.isValid() && parent.column() != 0))
        return {};
    HBTreeNode *parentNode = parent.isValid() ? nodeForIndex(parent) : nullptr;
    if (parent.isValid() && !parentNode)
        return {};
    return row < childrenOf(parentNode).size() ? createIndex(row, 0, parentNode) : QModelIndex();
}

QModelIndex HBSourceListTreeModel::parent(const QModelIndex &child) const
{
    const auto *parentNode = child.isValid() ? static_cast<const HBTreeNode *>(child.internalPointer()) : nullptr;
    if (!parentNode)
        return {};
    const auto branch = m_branches.constFind(parentNode);
    return branch == m_branches.constEnd() ? QModelIndex() : indexOfNode(parentNode, branch->parent);
}

int HBSourceListTreeModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_roots.size());
    const HBTreeNode *node = parent.column() == 0 ? nodeForIndex(parent) : nullptr;
    return node ? int(childrenOf(node).size()) : 0;
}

int HBSourceListTreeModel::columnCount(const QModelIndex &) const
{
    return 1;
}

QVariant HBSourceListTreeModel::data(const QModelIndex &index, int role) const
{
    const HBTreeNode *node = nodeForIndex(index);
    if (!node)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return node->isHeader() ? QLocale().toUpper(node->name()) : node->name();
    case NodeRole:
        return QVariant::fromValue(const_cast<HBTreeNode *>(node));
    case NameRole:
        return node->name();
    case IsHeaderRole:
        return node->isHeader();
    case IsLeafRole:
        return node->isLeaf();
    case ShouldDisplayDisclosureTriangleRole:
        return node->shouldDisplayDisclosureTriangle();
    case IsExpandedRole:
        return node->isExpanded();
    default:
        return {};
    }
}

bool HBSourceListTreeModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    HBTreeNode *node = nodeForIndex(index);
    if (!node || role != IsExpandedRole)
        return false;
    node->setIsExpanded(value.toBool());
    return true;
}

QHash<int, QByteArray> HBSourceListTreeModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractItemModel::roleNames();
    names.insert(NodeRole, "node");
    names.insert(NameRole, "name");
    names.insert(IsHeaderRole, "isHeader");
    names.insert(IsLeafRole, "isLeaf");
    names.insert(ShouldDisplayDisclosureTriangleRole, "shouldDisplayDisclosureTriangle");
    names.insert(IsExpandedRole, "isExpanded");
    return names;
}

HBIndexPath HBSourceListTreeModel::indexPathForIndex(const QModelIndex &index) const
{
    HBIndexPath path;
    for (QModelIndex i = index; i.isValid(); i = i.parent())
        path.prepend(i.row());
    return path;
}

QModelIndex HBSourceListTreeModel::indexForIndexPath(const HBIndexPath &path) const
{
    QModelIndex index;
    for (qsizetype row : path) {
        index = this->index(int(row), 0, index);
        if (!index.isValid())
            break;
    }
    return index;
}
