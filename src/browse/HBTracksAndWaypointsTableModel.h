#pragma once

#include <QAbstractTableModel>
#include <QItemSelectionModel>

class HBManagedObject;
class HBTrackSourceList;

// What the selected source-list node lists, as an item model for a table
// view: one row per track or waypoint in the source list's sort order, and
// the columns name, start date (a waypoint's date), points, distance
// (metres), duration (seconds) and source file. Sorting a column sets the
// source list's sort descriptors; the selection model follows the source
// list's selection indexes and sets them when the view changes it.
//
// A refresh patches the rows: rows that stay keep their identity and
// persistent indexes, rows that go are removed and new ones inserted, in
// runs. Only a change of order (a new sort) is a layout change.
class HBTracksAndWaypointsTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { Name, StartDate, Points, Distance, Duration, SourceFile, ColumnCount };
    enum Role { ObjectRole = Qt::UserRole + 1 };   // HBManagedObject *

    explicit HBTracksAndWaypointsTableModel(HBTrackSourceList *sourceList, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    QItemSelectionModel *selectionModel() { return &m_selectionModel; }
    // The source list's sort key of a column.
    static QString sortKey(int column);

private:
    void showListedRows();
    void showSortedRows();
    bool patchRows(const QList<HBManagedObject *> &rows);
    void reorderRows(const QList<HBManagedObject *> &rows);
    void showSelectionIndexes();
    void takeSelectionFromView();

    HBTrackSourceList *m_sourceList;
    QList<HBManagedObject *> m_rows;
    QItemSelectionModel m_selectionModel;
    // set while the rows and the selection model follow the source list: the
    // selection model's own adjustments are not a choice of the view
    bool m_followingSourceList = false;
};
