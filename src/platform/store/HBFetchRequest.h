#pragma once

#include "platform/store/HBPredicate.h"
#include "platform/store/HBSortDescriptor.h"

#include <QList>
#include <QString>
#include <QStringList>

// What to fetch: records of an entity (and its sub-entities) that match a
// predicate, in the order of the sort descriptors, at most fetchLimit of
// them (0: all). Relationship key paths to prefetch are loaded in one pass
// with the results, so that walking them later does not fetch per object.
// Fetched records are always loaded; a fetch of identifiers only is
// HBManagedObjectContext::executeFetchRequestForObjectIDs.
class HBFetchRequest
{
public:
    HBFetchRequest() = default;
    explicit HBFetchRequest(QString entityName) : m_entityName(std::move(entityName)) {}
    static HBFetchRequest fetchRequestWithEntityName(const QString &entityName) { return HBFetchRequest(entityName); }
    // Full objects of the entity matching the predicate, the relationships
    // on the key paths loaded along in one fetch each.
    static HBFetchRequest loaded(const QString &entityName, const HBPredicate &predicate, const QStringList &prefetch)
    {
        HBFetchRequest request(entityName);
        request.setPredicate(predicate);
        request.setRelationshipKeyPathsForPrefetching(prefetch);
        return request;
    }

    QString entityName() const { return m_entityName; }
    void setEntityName(const QString &name) { m_entityName = name; }
    HBPredicate predicate() const { return m_predicate; }   // invalid: every record
    void setPredicate(const HBPredicate &predicate) { m_predicate = predicate; }
    QList<HBSortDescriptor> sortDescriptors() const { return m_sortDescriptors; }
    void setSortDescriptors(const QList<HBSortDescriptor> &sortDescriptors) { m_sortDescriptors = sortDescriptors; }
    int fetchLimit() const { return m_fetchLimit; }
    void setFetchLimit(int limit) { m_fetchLimit = limit; }
    QStringList relationshipKeyPathsForPrefetching() const { return m_prefetch; }
    void setRelationshipKeyPathsForPrefetching(const QStringList &keyPaths) { m_prefetch = keyPaths; }

private:
    QString m_entityName;
    HBPredicate m_predicate;
    QList<HBSortDescriptor> m_sortDescriptors;
    int m_fetchLimit = 0;
    QStringList m_prefetch;
};
