#pragma once

#include <QObject>

class HBManagedObject;
class HBTrackSourceList;
class HBTreeNode;
class QMessageBox;
class QWidget;

// The picker window's questions before it deletes: one track or waypoint,
// or everything a source-list entry holds. Each is a sheet on the window
// (window-modal, not blocking) with OK and Cancel and a box to stop asking;
// only OK deletes, and only OK with the box checked stops asking, for that
// kind of deletion alone. A question switched off deletes at once.
class HBTrackDeletionAlerts : public QObject
{
    Q_OBJECT
public:
    HBTrackDeletionAlerts(QWidget *window, HBTrackSourceList *sourceList);

    void alertToDeleteTrackOrWaypoint(HBManagedObject *object);
    void alertToDeleteSourceList(HBTreeNode *node);
    // A modal note that a file to show is not there.
    void alertSourceFileNotFound(const QString &message);

    // The sheet on show, null when there is none.
    QMessageBox *shownAlert() const;

private:
    // What a sheet deletes on OK: a track or waypoint, else a node.
    struct Subject
    {
        HBManagedObject *trackOrWaypoint = nullptr;
        HBTreeNode *node = nullptr;
    };

    QMessageBox *sheet(const QString &message, const QString &informativeText);
    void alertDidEnd(QMessageBox *alert, Subject subject);

    QWidget *m_window;
    HBTrackSourceList *m_sourceList;
};
