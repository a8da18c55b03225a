#pragma once

#include <QJsonArray>
#include <QModelIndex>
#include <QTextStream>

#include <memory>

class HBSourceListTreeModel;
class HBTrackSourceList;

// `hbgps tree`: the smart lists, the date tree and the file tree as the
// track picker's source list shows them, each node with what selecting it
// lists: "%d Tracks (%d points), %d Waypoints". The counts come from the
// source list's own refresh of each node in turn, as the window would get
// them.
class HBGPSTree
{
public:
    explicit HBGPSTree(QTextStream &out);
    ~HBGPSTree();
    void printText();
    // {"smart": [NODE...], "dates": [YEAR...], "files": [NODE...]}
    void printJson();

private:
    struct Counts
    {
        quint64 tracks = 0, points = 0, waypoints = 0;
    };

    Counts countsOfSelecting(const QModelIndex &index);
    void printTextBelow(const QModelIndex &parent, int depth);
    QJsonArray jsonBelow(const QModelIndex &parent);

    QTextStream &m_out;
    std::unique_ptr<HBTrackSourceList> m_sourceList;
    std::unique_ptr<HBSourceListTreeModel> m_model;
};
