#include "platform/store/HBObjectIndex.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"

HBManagedObject *HBObjectIndex::value(const HBManagedObjectID &id)
{
    if (!m_unindexed.isEmpty() && id.entity())
        indexTable(id.entity()->rootEntity());
    return m_indexed.value(id);
}

void HBObjectIndex::insert(const HBManagedObjectID &id, HBManagedObject *object)
{
    m_indexed.insert(id, object);
}

void HBObjectIndex::insertLater(HBManagedObject *object)
{
    m_unindexed[object->entity()->rootEntity()].push_back(object);
}

void HBObjectIndex::remove(const HBManagedObjectID &id)
{
    if (!m_unindexed.isEmpty() && id.entity())
        indexTable(id.entity()->rootEntity());
    m_indexed.remove(id);
}

qsizetype HBObjectIndex::size() const
{
    qsizetype count = m_indexed.size();
    for (const std::vector<HBManagedObject *> &waiting : m_unindexed)
        count += qsizetype(waiting.size());
    return count;
}

std::vector<HBManagedObject *> HBObjectIndex::objects() const
{
    std::vector<HBManagedObject *> all(m_indexed.begin(), m_indexed.end());
    for (const std::vector<HBManagedObject *> &waiting : m_unindexed)
        all.insert(all.end(), waiting.begin(), waiting.end());
    return all;
}

void HBObjectIndex::clear()
{
    m_indexed.clear();
    m_unindexed.clear();
}

void HBObjectIndex::indexTable(const HBEntityDescription *root)
{
    const auto waiting = m_unindexed.constFind(root);
    if (waiting == m_unindexed.cend())
        return;
    m_indexed.reserve(m_indexed.size() + qsizetype(waiting->size()));
    for (HBManagedObject *object : *waiting)
        m_indexed.insert(object->objectID(), object);
    m_unindexed.erase(waiting);
}
