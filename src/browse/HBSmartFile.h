#pragma once

#include "browse/HBObservableTreeNode.h"

#include <QMutex>

// A saved search of the smart lists: a name and the predicates that select
// its tracks and waypoints. A new one is "Untitled" and selects nothing.
// Its fields may be read and set from any thread.
class HBSmartFile : public HBObservableTreeNode
{
    Q_OBJECT
public:
    HBSmartFile();

    QString name() const override;
    void setName(const QString &name);
    bool isLeaf() const override { return true; }
    HBPredicate trackPredicate() const override;
    void setTrackPredicate(const HBPredicate &predicate);
    HBPredicate waypointPredicate() const override;
    void setWaypointPredicate(const HBPredicate &predicate);

private:
    template<class T>
    T locked(const T &field) const
    {
        QMutexLocker lock(&m_mutex);
        return field;
    }
    template<class T>
    void setLocked(T &field, const T &value)
    {
        QMutexLocker lock(&m_mutex);
        field = value;
    }

    mutable QMutex m_mutex;
    QString m_name;
    HBPredicate m_trackPredicate;
    HBPredicate m_waypointPredicate;
};
