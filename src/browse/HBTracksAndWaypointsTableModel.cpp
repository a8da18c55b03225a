#include "browse/HBTracksAndWaypointsTableModel.h"

#include "browse/HBTrackSourceList.h"

#include <QScopedValueRollback>
#include <QSet>

HBTracksAndWaypointsTableModel::HBTracksAndWaypointsTableModel(HBTrackSourceList *sourceList, QObject *parent)
    : QAbstractTableModel(parent)
    , m_sourceList(sourceList)
    , m_rows(sourceList->sortedTracksAndWaypoints())
    , m_selectionModel(this)
{
    connect(sourceList, &HBTrackSourceList::tracksAndWaypointsChanged, this, &HBTracksAndWaypointsTableModel::showListedRows);
    connect(sourceList, &HBTrackSourceList::tracksAndWaypointsSortDescriptorsChanged, this,
            &HBTracksAndWaypointsTableModel::showSortedRows);
    connect(sourceList, &HBTrackSourceList::tracksAndWaypointsSelectionIndexesChanged, this,
            &HBTracksAndWaypointsTableModel::showSelectionIndexes);
    connect(&m_selectionModel, &QItemSelectionModel::selectionChanged, this,
            &HBTracksAndWaypointsTableModel::takeSelectionFromView);
    showSelectionIndexes();
}

QString HBTracksAndWaypointsTableModel::sortKey(int column)
{
    switch (column) {
    case Name: return QStringLiteral("name");
    case StartDate: return QStringLiteral("startDate");
    case Points: return QStringLiteral("numberOfTrackPoints");
    case Distance: return QStringLiteral("distance");
    case Duration: return QStringLiteral("duration");
    case SourceFile: return QStringLiteral("importSource.name");
    default: return {};
    }
}

int HBTracksAndWaypointsTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int HBTracksAndWaypointsTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant HBTracksAndWaypointsTableModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    HBManagedObject *object = m_rows.at(index.row());
    if (role == ObjectRole)
        return QVariant::fromValue(object);
    if (role == Qt::DisplayRole)
        return HBTrackSourceList::valueForSortKey(object, sortKey(index.column()));
    return {};
}

QVariant HBTracksAndWaypointsTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case Name: return tr("Name");
    case StartDate: return tr("Start Date");
    case Points: return tr("Points");
    case Distance: return tr("Distance");
    case Duration: return tr("Duration");
    case SourceFile: return tr("Source File");
    default: return {};
    }
}

void HBTracksAndWaypointsTableModel::sort(int column, Qt::SortOrder order)
{
    if (column >= 0 && column < ColumnCount)
        m_sourceList->setTracksAndWaypointsSortDescriptors({{sortKey(column), order == Qt::AscendingOrder}});
}

// After a merge the rows that stay are in the same order as before, so
// removals and then insertions reach the new rows; when a record's sort key
// changed on the way they do not, and the order is put right as a layout
// change.
void HBTracksAndWaypointsTableModel::showListedRows()
{
    const QList<HBManagedObject *> rows = m_sourceList->sortedTracksAndWaypoints();
    {
        const QScopedValueRollback following(m_followingSourceList, true);
        if (!patchRows(rows))
            reorderRows(rows);
    }
    showSelectionIndexes();
}

void HBTracksAndWaypointsTableModel::showSortedRows()
{
    {
        const QScopedValueRollback following(m_followingSourceList, true);
        reorderRows(m_sourceList->sortedTracksAndWaypoints());
    }
    showSelectionIndexes();
}

bool HBTracksAndWaypointsTableModel::patchRows(const QList<HBManagedObject *> &rows)
{
    const QSet<const HBManagedObject *> staying(rows.cbegin(), rows.cend());
    for (qsizetype last = m_rows.size() - 1; last >= 0; --last) {
        if (staying.contains(m_rows.at(last)))
            continue;
        qsizetype first = last;
        while (first > 0 && !staying.contains(m_rows.at(first - 1)))
            --first;
        beginRemoveRows({}, int(first), int(last));
        m_rows.remove(first, last - first + 1);
        endRemoveRows();
        last = first;
    }
    const QSet<const HBManagedObject *> shown(m_rows.cbegin(), m_rows.cend());
    for (qsizetype first = 0; first < rows.size(); ++first) {
        if (shown.contains(rows.at(first)))
            continue;
        qsizetype last = first;
        while (last + 1 < rows.size() && !shown.contains(rows.at(last + 1)))
            ++last;
        beginInsertRows({}, int(first), int(last));
        for (qsizetype i = first; i <= last; ++i)
            m_rows.insert(i, rows.at(i));
        endInsertRows();
        first = last;
    }
    return m_rows == rows;
}

void HBTracksAndWaypointsTableModel::reorderRows(const QList<HBManagedObject *> &rows)
{
    emit layoutAboutToBeChanged({}, VerticalSortHint);
    QHash<const HBManagedObject *, int> newRow;
    for (qsizetype i = 0; i < rows.size(); ++i)
        newRow.insert(rows.at(i), int(i));
    const QModelIndexList before = persistentIndexList();
    QModelIndexList after;
    for (const QModelIndex &index : before)
        after.append(this->index(newRow.value(m_rows.at(index.row())), index.column()));
    m_rows = rows;
    changePersistentIndexList(before, after);
    emit layoutChanged({}, VerticalSortHint);
}

// The source list's indexes are the truth: they do not move with a merge
// or a new order, so the view's selection is set to them afterwards.
void HBTracksAndWaypointsTableModel::showSelectionIndexes()
{
    QItemSelection selection;
    for (qsizetype row : m_sourceList->tracksAndWaypointsSelectionIndexes()) {
        if (row < m_rows.size())
            selection.select(index(int(row), 0), index(int(row), ColumnCount - 1));
    }
    const QScopedValueRollback following(m_followingSourceList, true);
    m_selectionModel.select(selection, QItemSelectionModel::ClearAndSelect);
}

void HBTracksAndWaypointsTableModel::takeSelectionFromView()
{
    if (m_followingSourceList)
        return;
    QList<qsizetype> rows;
    for (const QModelIndex &index : m_selectionModel.selectedRows())
        rows.append(index.row());
    m_sourceList->setTracksAndWaypointsSelectionIndexes(rows);
}
