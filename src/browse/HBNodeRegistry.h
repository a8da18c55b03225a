#pragma once

#include <QHash>
#include <QMutex>

#include <functional>

// The nodes of one kind that the process has made, by key, so that a year,
// month or day has one node however many times and on whichever thread it
// is looked up: a tree compares its nodes by identity, and the state a node
// keeps (expanded or not) survives every reload. Nodes are never removed.
template<class Node>
class HBNodeRegistry
{
public:
    // The one registry of the node class; it lives as long as the process.
    static HBNodeRegistry &shared()
    {
        static auto *registry = new HBNodeRegistry;
        return *registry;
    }

    Node *nodeForKey(qint64 key, const std::function<Node *()> &make)
    {
        QMutexLocker lock(&m_mutex);
        Node *&node = m_nodes[key];
        if (!node)
            node = make();
        return node;
    }

private:
    QMutex m_mutex;
    QHash<qint64, Node *> m_nodes;
};
