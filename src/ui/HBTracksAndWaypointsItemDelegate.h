#pragma once

#include <QStyledItemDelegate>

// How the list shows its raw values: dates in local time, point counts
// with group separators, distances in kilometres and durations as hours,
// minutes and seconds. Sorting still uses the raw values.
class HBTracksAndWaypointsItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The text of one cell of the given column for its raw value.
    static QString textForValue(int column, const QVariant &value, const QLocale &locale);

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};
