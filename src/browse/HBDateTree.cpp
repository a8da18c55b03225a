#include "browse/HBDateTree.h"

#include "browse/DayObject.h"
#include "browse/MonthObject.h"
#include "browse/YearObject.h"
#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QPointer>

#include <algorithm>

namespace {

// The dates of what matches, as stored.
QList<QDateTime> storedDates(HBManagedObjectContext *context, const QString &entity, const QString &dateKey,
                             const QVariant &importSource)
{
    HBFetchRequest request(entity);
    request.setPredicate(importSource.isValid()
                             ? HBPredicate::format(dateKey + QStringLiteral(" != nil AND importSource == %@"), {importSource})
                             : HBPredicate::format(dateKey + QStringLiteral(" != nil")));
    QList<QDateTime> dates;
    for (const HBManagedObject *object : context->executeFetchRequest(request))
        dates.append(object->valueForKey(dateKey).toDateTime());
    return dates;
}

// The days the tracks start on and the waypoints are dated on, in the
// system's time zone, ascending, each once. Track points are not looked at:
// a track counts on the day it starts.
QList<DayObject *> storedDays(HBManagedObjectContext *context, const QVariant &importSource)
{
    QList<QDateTime> dates = storedDates(context, QStringLiteral("HBTrack"), QStringLiteral("startDate"), importSource);
    dates += storedDates(context, QStringLiteral("HBWaypoint"), QStringLiteral("date"), importSource);
    std::sort(dates.begin(), dates.end());
    const QTimeZone calendar = QTimeZone::systemTimeZone();
    QList<DayObject *> days;
    for (const QDateTime &date : std::as_const(dates)) {
        DayObject *day = DayObject::dayObjectWithDate(date, calendar);
        if (days.isEmpty() || days.constLast() != day)
            days.append(day);
    }
    return days;
}

// Where the node goes among the sorted nodes.
template<class Node, class Element>
qsizetype sortedIndex(const QList<Element *> &nodes, const Node *node, std::strong_ordering (*sort)(const Node *, const Node *))
{
    const auto at = std::lower_bound(nodes.cbegin(), nodes.cend(), node, [sort](const Element *element, const Node *n) {
        return sort(static_cast<const Node *>(element), n) < 0;
    });
    return at - nodes.cbegin();
}

} // namespace

HBDateTree::HBDateTree()
    : HBExpandableTreeNode(true)
{
}

QList<HBTreeNode *> HBDateTree::children() const
{
    return {m_years.cbegin(), m_years.cend()};
}

void HBDateTree::reloadForImportSource(HBImportSource *importSource)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    // the identifier, not the record, goes to the store's thread
    const QVariant source = importSource ? QVariant::fromValue(importSource->objectID()) : QVariant();
    HBManagedObjectContext *context = manager->managedObjectContext();
    HBManagedObjectContext *ui = manager->mainQueueContext();
    context->performBlock([context, ui, source, tree = QPointer<HBDateTree>(this)] {
        const QList<DayObject *> days = storedDays(context, source);
        ui->performBlock([tree, days] {
            if (tree)
                tree->showDays(days);
        });
    });
}

void HBDateTree::showDays(const QList<DayObject *> &days)
{
    for (DayObject *day : days) {
        if (!m_daySet.contains(day))
            addDay(day);
    }
    const QSet<const DayObject *> stored(days.cbegin(), days.cend());
    const QList<DayObject *> shown = m_days;
    for (DayObject *day : shown) {
        if (!stored.contains(day))
            removeDay(day);
    }
    emit didReload();
}

void HBDateTree::addDay(DayObject *day)
{
    if (!m_daySet.contains(day)) {
        m_days.append(day);
        m_daySet.insert(day);
    }
    YearObject *year = day->yearObject();
    if (!m_years.contains(year)) {
        insertChild(m_years, year, sortedIndex(m_years, year, yearSort));
    }
    MonthObject *month = day->monthObject();
    if (year->indexOfChild(month) < 0)
        year->insertChild(month, sortedIndex(year->children(), month, monthSort));
    if (month->indexOfChild(day) < 0)
        month->insertChild(day, sortedIndex(month->children(), day, daySort));
}

void HBDateTree::removeDay(DayObject *day)
{
    m_days.removeOne(day);
    m_daySet.remove(day);
    MonthObject *month = day->monthObject();
    if (const qsizetype index = month->indexOfChild(day); index >= 0)
        month->removeChildAtIndex(index);
    YearObject *year = day->yearObject();
    if (month->children().isEmpty()) {
        if (const qsizetype index = year->indexOfChild(month); index >= 0)
            year->removeChildAtIndex(index);
    }
    if (year->children().isEmpty()) {
        if (const qsizetype index = m_years.indexOf(year); index >= 0)
            removeChild(m_years, index);
    }
}
