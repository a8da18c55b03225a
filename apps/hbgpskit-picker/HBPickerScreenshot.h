#pragma once

#include <QObject>
#include <QString>

class HBTrackPickerController;
class HBTreeNode;

// Brings the picker window to a given state once the stores have been read
// (an entry of the source list selected, then a row of its list) and, for a
// screenshot, writes the window to a PNG file after that entry's first
// refresh and quits.
class HBPickerScreenshot : public QObject
{
    Q_OBJECT
public:
    // entryPath: names from a root down, separated by "/" ("Date Browser/
    // 2005/May"), matched without regard to case; empty selects nothing.
    // row: from 1, 0 for none. path: where to write, empty for no file.
    HBPickerScreenshot(HBTrackPickerController *picker, const QString &entryPath, int row, const QString &path);

    // The node at the names, null when a name is not there.
    static HBTreeNode *nodeAtNamePath(const QList<HBTreeNode *> &roots, const QString &entryPath);

private:
    void treeDidReload();
    void listDidRefresh();

    HBTrackPickerController *m_picker;
    QString m_entryPath;
    int m_row;
    QString m_path;
    int m_treesToReload = 2;   // the date tree and the file tree
    bool m_listShown = false;
};
