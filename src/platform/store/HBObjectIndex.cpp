#include "platform/store/HBObjectIndex.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"

#include <algorithm>

bool HBObjectIndex::Waiting::mayHold(const HBManagedObjectID &id) const
{
    return std::any_of(keys.begin(), keys.end(), [&id](const KeyRange &r) {
        return r.storeToken == id.storeToken() && id.primaryKey() >= r.lowest && id.primaryKey() <= r.highest;
    });
}

void HBObjectIndex::Waiting::add(const HBManagedObjectID &id)
{
    const qint64 key = id.primaryKey();
    for (KeyRange &r : keys) {
        if (r.storeToken == id.storeToken()) {
            r.lowest = std::min(r.lowest, key);
            r.highest = std::max(r.highest, key);
            return;
        }
    }
    keys.push_back({id.storeToken(), key, key});
}

HBManagedObject *HBObjectIndex::value(const HBManagedObjectID &id)
{
    indexWaitingFor(id);
    return m_indexed.value(id);
}

void HBObjectIndex::insert(HBManagedObject *object)
{
    const HBManagedObjectID &id = object->objectID();
    Waiting &waiting = m_waiting[id.entity()->rootEntity()];
    waiting.objects.push_back(object);
    waiting.add(id);
}

void HBObjectIndex::remove(const HBManagedObjectID &id)
{
    indexWaitingFor(id);
    m_indexed.remove(id);
}

qsizetype HBObjectIndex::size() const
{
    qsizetype count = m_indexed.size();
    for (const Waiting &waiting : m_waiting)
        count += qsizetype(waiting.objects.size());
    return count;
}

std::vector<HBManagedObject *> HBObjectIndex::objects() const
{
    std::vector<HBManagedObject *> all(m_indexed.begin(), m_indexed.end());
    for (const Waiting &waiting : m_waiting)
        all.insert(all.end(), waiting.objects.begin(), waiting.objects.end());
    return all;
}

void HBObjectIndex::clear()
{
    m_indexed.clear();
    m_waiting.clear();
}

void HBObjectIndex::indexWaitingFor(const HBManagedObjectID &id)
{
    if (m_waiting.isEmpty() || !id.entity())
        return;
    const auto waiting = m_waiting.constFind(id.entity()->rootEntity());
    if (waiting == m_waiting.cend() || !waiting->mayHold(id))
        return;
    m_indexed.reserve(m_indexed.size() + qsizetype(waiting->objects.size()));
    for (HBManagedObject *object : waiting->objects)
        m_indexed.insert(object->objectID(), object);
    m_waiting.erase(waiting);
}
