#include "HBGPSTree.h"

#include "browse/DayObject.h"
#include "browse/HBDateTree.h"
#include "browse/HBFileTree.h"
#include "browse/HBSourceListTreeModel.h"
#include "browse/HBTrackSourceList.h"
#include "browse/MonthObject.h"
#include "browse/YearObject.h"
#include "manager/HBTrackManager.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// Runs the event loop until the condition holds.
void processEventsUntil(const std::function<bool()> &done)
{
    while (!done())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

// The newest batch is worked out in the background from the start; the
// smart list that follows it must start from the result.
void waitForRecentImports(HBTrackManager *manager)
{
    bool known = false;
    const QMetaObject::Connection c =
        QObject::connect(manager, &HBTrackManager::recentImportsPredicateChanged, [&known] { known = true; });
    manager->refreshRecentImportsPredicate();
    processEventsUntil([&known] { return known; });
    QObject::disconnect(c);
}

enum Root { Smart, Dates, Files };

} // namespace

HBGPSTree::HBGPSTree(QTextStream &out)
    : m_out(out)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    waitForRecentImports(manager);
    m_sourceList = std::make_unique<HBTrackSourceList>();
    bool datesLoaded = false, filesLoaded = false;
    QObject::connect(m_sourceList->dateTree(), &HBDateTree::didReload, [&datesLoaded] { datesLoaded = true; });
    QObject::connect(m_sourceList->fileTree(), &HBFileTree::didReload, [&filesLoaded] { filesLoaded = true; });
    processEventsUntil([&] { return datesLoaded && filesLoaded && !m_sourceList->isRefreshing(); });
    m_model = std::make_unique<HBSourceListTreeModel>(m_sourceList.get());
}

HBGPSTree::~HBGPSTree() = default;

HBGPSTree::Counts HBGPSTree::countsOfSelecting(const QModelIndex &index)
{
    m_sourceList->setSourceListSelectionIndexPaths({m_model->indexPathForIndex(index)});
    processEventsUntil([this] { return !m_sourceList->isRefreshing(); });
    return {m_sourceList->countOfTracks(), m_sourceList->countOfTrackPoints(), m_sourceList->countOfWaypoints()};
}

void HBGPSTree::printText()
{
    for (int row = 0; row < m_model->rowCount(); ++row) {
        const QModelIndex root = m_model->index(row, 0);
        m_out << root.data().toString() << '\n';
        printTextBelow(root, 1);
    }
}

void HBGPSTree::printTextBelow(const QModelIndex &parent, int depth)
{
    for (int row = 0; row < m_model->rowCount(parent); ++row) {
        const QModelIndex index = m_model->index(row, 0, parent);
        const Counts counts = countsOfSelecting(index);
        m_out << QString(2 * depth, u' ') << index.data().toString() << ": "
              << QStringLiteral("%1 Tracks (%2 points), %3 Waypoints").arg(counts.tracks).arg(counts.points).arg(counts.waypoints)
              << '\n';
        printTextBelow(index, depth + 1);
    }
}

void HBGPSTree::printJson()
{
    QJsonObject trees;
    trees.insert(QStringLiteral("smart"), jsonBelow(m_model->index(Smart, 0)));
    trees.insert(QStringLiteral("dates"), jsonBelow(m_model->index(Dates, 0)));
    trees.insert(QStringLiteral("files"), jsonBelow(m_model->index(Files, 0)));
    m_out << QJsonDocument(trees).toJson(QJsonDocument::Indented);
}

QJsonArray HBGPSTree::jsonBelow(const QModelIndex &parent)
{
    QJsonArray nodes;
    for (int row = 0; row < m_model->rowCount(parent); ++row) {
        const QModelIndex index = m_model->index(row, 0, parent);
        const Counts counts = countsOfSelecting(index);
        QJsonObject node{
            {QStringLiteral("name"), index.data(HBSourceListTreeModel::NameRole).toString()},
            {QStringLiteral("tracks"), double(counts.tracks)},
            {QStringLiteral("points"), double(counts.points)},
            {QStringLiteral("waypoints"), double(counts.waypoints)},
        };
        const HBTreeNode *treeNode = index.data(HBSourceListTreeModel::NodeRole).value<HBTreeNode *>();
        if (const auto *year = dynamic_cast<const YearObject *>(treeNode)) {
            node.insert(QStringLiteral("year"), double(year->year()));
            node.insert(QStringLiteral("months"), jsonBelow(index));
        } else if (const auto *month = dynamic_cast<const MonthObject *>(treeNode)) {
            node.insert(QStringLiteral("month"), double(month->month()));
            node.insert(QStringLiteral("days"), jsonBelow(index));
        } else if (const auto *day = dynamic_cast<const DayObject *>(treeNode)) {
            node.insert(QStringLiteral("day"), double(day->day()));
        }
        nodes.append(node);
    }
    return nodes;
}
