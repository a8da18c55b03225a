#pragma once

#include "browse/HBExpandableTreeNode.h"

#include <QSet>

class DayObject;
class HBImportSource;
class YearObject;

// "Date Browser": the years, months and days on which a track starts or a
// waypoint is dated, in the system's time zone, in ascending order.
//
// A reload reads the store in the background and applies only the
// difference on the main thread, day by day, so that every node that stays
// keeps its place and its expansion. Nodes are shared by the whole process
// (see YearObject), so membership is a matter of identity.
//
// Invariants, on the main thread between changes:
//  1. years() is sorted by yearSort, each year's children by monthSort,
//     each month's children by daySort;
//  2. a year in years() has at least one month, a month in a listed year at
//     least one day; every listed day is in days();
//  3. each change to a children list is announced once, right after it.
class HBDateTree : public HBExpandableTreeNode
{
    Q_OBJECT
public:
    HBDateTree();

    QString name() const override { return QStringLiteral("Date Browser"); }
    QList<HBTreeNode *> children() const override;
    bool isLeaf() const override { return false; }
    bool isHeader() const override { return true; }
    bool shouldDisplayDisclosureTriangle() const override { return false; }

    const QList<YearObject *> &years() const { return m_years; }
    // Every day in the tree, in the order they came.
    const QList<DayObject *> &days() const { return m_days; }

    // Reads the days of every track and waypoint, or of one import
    // source's, and brings the tree to them; didReload follows on the main
    // thread.
    void reloadForImportSource(HBImportSource *importSource);
    // Each adds or removes one day with the month and year that come or go
    // with it; adding a day already there changes nothing.
    void addDay(DayObject *day);
    void removeDay(DayObject *day);

signals:
    void didReload();

private:
    void showDays(const QList<DayObject *> &days);

    QList<YearObject *> m_years;
    QList<DayObject *> m_days;
    QSet<const DayObject *> m_daySet;   // m_days, for the membership tests of a reload
};
