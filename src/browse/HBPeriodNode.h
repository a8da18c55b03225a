#pragma once

#include "browse/HBDatePeriod.h"
#include "browse/HBExpandableTreeNode.h"

// A year or a month of the date tree: a period of the calendar whose
// children are the shorter periods in it that hold tracks or waypoints,
// in the order the date tree keeps them. It lists the tracks that start in
// it and the waypoints dated in it.
class HBPeriodNode : public HBExpandableTreeNode
{
    Q_OBJECT
public:
    explicit HBPeriodNode(HBDatePeriod period);

    QList<HBTreeNode *> children() const override { return m_children; }
    bool isLeaf() const override { return false; }
    HBPredicate trackPredicate() const override { return predicateForDateVariable(QStringLiteral("self.startDate")); }
    HBPredicate waypointPredicate() const override { return predicateForDateVariable(QStringLiteral("self.date")); }
    HBPredicate predicateForDateVariable(const QString &keyPath) const { return m_period.predicateForDateVariable(keyPath); }
    const QTimeZone &calendar() const { return m_period.calendar(); }

    qsizetype indexOfChild(const HBTreeNode *child) const { return m_children.indexOf(child); }
    void insertChild(HBTreeNode *child, qsizetype index);
    void removeChildAtIndex(qsizetype index);

private:
    HBDatePeriod m_period;
    QList<HBTreeNode *> m_children;
};
