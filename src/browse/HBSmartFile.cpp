#include "browse/HBSmartFile.h"

HBSmartFile::HBSmartFile()
    : m_name(QStringLiteral("Untitled"))
    , m_trackPredicate(HBPredicate::falsePredicate())
    , m_waypointPredicate(HBPredicate::falsePredicate())
{
}

QString HBSmartFile::name() const
{
    return locked(m_name);
}

void HBSmartFile::setName(const QString &name)
{
    if (locked(m_name) == name)
        return;
    setLocked(m_name, name);
    emit nameChanged();
}

HBPredicate HBSmartFile::trackPredicate() const
{
    return locked(m_trackPredicate);
}

void HBSmartFile::setTrackPredicate(const HBPredicate &predicate)
{
    setLocked(m_trackPredicate, predicate);
}

HBPredicate HBSmartFile::waypointPredicate() const
{
    return locked(m_waypointPredicate);
}

void HBSmartFile::setWaypointPredicate(const HBPredicate &predicate)
{
    setLocked(m_waypointPredicate, predicate);
}
