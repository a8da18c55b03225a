#pragma once

#include <QList>
#include <QString>

class HBManagedObject;

// A GPX file in memory: its path and the records read from or to be
// written to it, each list in file order. Not persistent; it does not own
// the records, their context does.
class HBGPXFile
{
public:
    HBGPXFile() = default;
    explicit HBGPXFile(const QString &path) : m_path(path) {}

    QString path() const { return m_path; }
    void setPath(const QString &path) { m_path = path; }
    // The last path component, or empty when there is no path.
    QString filename() const;

    QList<HBManagedObject *> &tracks() { return m_tracks; }
    const QList<HBManagedObject *> &tracks() const { return m_tracks; }
    QList<HBManagedObject *> &routes() { return m_routes; }
    const QList<HBManagedObject *> &routes() const { return m_routes; }
    QList<HBManagedObject *> &waypoints() { return m_waypoints; }
    const QList<HBManagedObject *> &waypoints() const { return m_waypoints; }

private:
    QString m_path;
    QList<HBManagedObject *> m_tracks;
    QList<HBManagedObject *> m_routes;
    QList<HBManagedObject *> m_waypoints;
};
