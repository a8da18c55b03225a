#include "HBPickerScreenshot.h"

#include "browse/HBDateTree.h"
#include "browse/HBFileTree.h"
#include "browse/HBTrackSourceList.h"
#include "ui/HBScreenshot.h"
#include "ui/HBTrackPickerController.h"
#include "ui/HBTrackPickerWindowController.h"
#include "ui/TracksAndWaypointsTableView.h"

#include <QTimer>

#include <cstdio>

HBPickerScreenshot::HBPickerScreenshot(HBTrackPickerController *picker, const QString &entryPath, int row,
                                       const QString &path)
    : QObject(picker)
    , m_picker(picker)
    , m_entryPath(entryPath)
    , m_row(row)
    , m_path(path)
{
    HBTrackSourceList *list = picker->trackSourceList();
    connect(list->dateTree(), &HBDateTree::didReload, this, &HBPickerScreenshot::treeDidReload);
    connect(list->fileTree(), &HBFileTree::didReload, this, &HBPickerScreenshot::treeDidReload);
}

HBTreeNode *HBPickerScreenshot::nodeAtNamePath(const QList<HBTreeNode *> &roots, const QString &entryPath)
{
    QList<HBTreeNode *> level = roots;
    HBTreeNode *found = nullptr;
    for (const QString &name : entryPath.split(u'/', Qt::SkipEmptyParts)) {
        const auto match = std::find_if(level.cbegin(), level.cend(), [&](const HBTreeNode *node) {
            return node->name().compare(name.trimmed(), Qt::CaseInsensitive) == 0;
        });
        if (match == level.cend())
            return nullptr;
        found = *match;
        level = found->children();
    }
    return found;
}

// The first reload of both trees is the stores as they are at start.
void HBPickerScreenshot::treeDidReload()
{
    if (--m_treesToReload != 0)
        return;
    HBTrackSourceList *list = m_picker->trackSourceList();
    connect(list, &HBTrackSourceList::didRefreshTracksAndWaypoints, this, &HBPickerScreenshot::listDidRefresh);
    if (m_entryPath.isEmpty()) {
        list->refreshTracksAndWaypoints();
        return;
    }
    HBTreeNode *node = nodeAtNamePath(list->sources(), m_entryPath);
    if (!node)
        std::fprintf(stderr, "hbgpskit-picker: no entry %s in the source list\n", qPrintable(m_entryPath));
    list->setSelectedSourceList(node);
}

void HBPickerScreenshot::listDidRefresh()
{
    HBTrackSourceList *list = m_picker->trackSourceList();
    if (m_listShown || list->isRefreshing())
        return;
    m_listShown = true;
    if (m_row > 0)
        list->setTracksAndWaypointsSelectionIndexes({m_row - 1});
    if (m_path.isEmpty())
        return;
    // one more turn of the event loop, for the layout of what just changed
    QTimer::singleShot(0, this,
                       [this] { HBScreenshot::writeAndQuit(m_picker->windowController(), m_path, "hbgpskit-picker"); });
}
