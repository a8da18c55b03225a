#include "platform/store/HBObjectSort.h"

#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBPredicate.h"
#include "platform/store/HBPropertyDescription.h"

#include <algorithm>
#include <vector>

namespace {

// a and b: one key per sort descriptor
bool sortsBefore(const QVariant *a, const QVariant *b, const QList<HBSortDescriptor> &sort)
{
    for (qsizetype i = 0; i < sort.size(); ++i) {
        const QVariant &va = a[i], &vb = b[i];
        const bool ascending = sort.at(i).ascending;
        if (!va.isValid() || !vb.isValid()) {
            if (va.isValid() == vb.isValid())
                continue;
            return ascending ? !va.isValid() : va.isValid();
        }
        const int order = HBPredicate::compareValues(va, vb);
        if (order != 0)
            return ascending ? order < 0 : order > 0;
    }
    return false;
}

// Reads one sort key of object after object: a plain attribute straight
// from its slot, found by name once per entity; anything else (key paths,
// relationships, derived keys) through valueForKeyPath.
class SortKeyReader
{
public:
    explicit SortKeyReader(const QString &key) : m_key(key), m_isPath(key.contains(u'.')) {}

    QVariant operator()(const HBManagedObject *object)
    {
        if (object->entity() != m_entity) {
            m_entity = object->entity();
            const HBPropertyDescription *p = m_isPath || !m_entity ? nullptr : m_entity->propertyNamed(m_key);
            m_attribute = p && !p->isRelationship ? p : nullptr;
        }
        return m_attribute ? object->primitiveValue(m_attribute->index) : object->valueForKeyPath(m_key);
    }

private:
    QString m_key;
    bool m_isPath;
    const HBEntityDescription *m_entity = nullptr;
    const HBPropertyDescription *m_attribute = nullptr;
};

} // namespace

// Stable; each object's sort values are read once rather than at every
// comparison (a segment's points are sorted by the hundred thousand).
void HBObjectSort::sort(QList<HBManagedObject *> &objects, const QList<HBSortDescriptor> &sort)
{
    struct Keyed
    {
        HBManagedObject *object;
        const QVariant *values;   // in `keys`
    };
    std::vector<SortKeyReader> readers;
    for (const HBSortDescriptor &s : sort)
        readers.emplace_back(s.key);
    // every object's keys side by side in one array, not a list each
    std::vector<QVariant> keys;
    keys.reserve(size_t(objects.size()) * readers.size());
    for (const HBManagedObject *object : std::as_const(objects)) {
        for (SortKeyReader &read : readers)
            keys.push_back(read(object));
    }
    std::vector<Keyed> keyed;
    keyed.reserve(size_t(objects.size()));
    for (qsizetype i = 0; i < objects.size(); ++i)
        keyed.push_back({objects[i], keys.data() + size_t(i) * readers.size()});
    const auto before = [&sort](const Keyed &a, const Keyed &b) { return sortsBefore(a.values, b.values, sort); };
    // A merge sort over the runs already in order: each store file gives
    // its rows sorted, so a fetch over several files is a few long runs
    // and costs a few merges instead of a full sort. Merging only adjacent
    // runs, left before right on ties, keeps it stable.
    std::vector<size_t> bounds{0};   // where each run starts, then the end
    for (size_t i = 1; i < keyed.size(); ++i) {
        if (before(keyed[i], keyed[i - 1]))
            bounds.push_back(i);
    }
    bounds.push_back(keyed.size());
    while (bounds.size() > 2) {
        std::vector<size_t> merged;
        size_t r = 0;
        for (; r + 2 < bounds.size(); r += 2) {
            std::inplace_merge(keyed.begin() + qsizetype(bounds[r]), keyed.begin() + qsizetype(bounds[r + 1]),
                               keyed.begin() + qsizetype(bounds[r + 2]), before);
            merged.push_back(bounds[r]);
        }
        merged.insert(merged.end(), bounds.begin() + qsizetype(r), bounds.end());
        bounds = std::move(merged);
    }
    for (size_t i = 0; i < keyed.size(); ++i)
        objects[qsizetype(i)] = keyed[i].object;
}

