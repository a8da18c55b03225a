#include "browse/HBFileTree.h"

#include "manager/HBTrackManager.h"
#include "model/HBImportSource.h"
#include "platform/store/HBManagedObjectContext.h"

#include <QPointer>
#include <QSet>

namespace {

// Where in the list are the sources that are not among the others.
QList<qsizetype> indexesNotAmong(const QList<HBImportSource *> &list, const QList<HBImportSource *> &others)
{
    const QSet<const HBImportSource *> among(others.cbegin(), others.cend());
    QList<qsizetype> indexes;
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (!among.contains(list.at(i)))
            indexes.append(i);
    }
    return indexes;
}

} // namespace

HBFileTree::HBFileTree()
    : HBExpandableTreeNode(false)
{
}

QList<HBTreeNode *> HBFileTree::children() const
{
    return {m_children.cbegin(), m_children.cend()};
}

void HBFileTree::reloadForDatePredicate(const HBPredicate &predicate)
{
    HBTrackManager *manager = HBTrackManager::sharedTrackManager();
    HBManagedObjectContext *context = manager->managedObjectContext();
    HBManagedObjectContext *ui = manager->mainQueueContext();
    context->performBlock([context, ui, predicate, tree = QPointer<HBFileTree>(this)] {
        HBFetchRequest request(QStringLiteral("HBImportSource"));
        request.setPredicate(predicate);
        request.setSortDescriptors({{QStringLiteral("name"), true}});
        const QList<HBManagedObjectID> ids = context->executeFetchRequestForObjectIDs(request);
        ui->performBlock([tree, ids] {
            if (tree)
                tree->showImportSources(ids);
        });
    });
}

void HBFileTree::showImportSources(const QList<HBManagedObjectID> &ids)
{
    HBManagedObjectContext *ui = HBTrackManager::sharedTrackManager()->mainQueueContext();
    QList<HBImportSource *> stored;
    stored.reserve(ids.size());
    for (const HBManagedObjectID &id : ids)
        stored.append(static_cast<HBImportSource *>(ui->objectWithID(id)));

    const QList<qsizetype> removed = indexesNotAmong(m_children, stored);
    if (!removed.isEmpty()) {
        for (auto i = removed.crbegin(); i != removed.crend(); ++i)
            m_children.removeAt(*i);
        emit childrenRemoved(removed);
    }
    const QList<qsizetype> added = indexesNotAmong(stored, m_children);
    if (!added.isEmpty()) {
        for (qsizetype i : added)
            m_children.insert(i, stored.at(i));
        emit childrenInserted(added);
    }
    emit didReload();
}
