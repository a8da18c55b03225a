#include "model/HBAdditionsTable.h"

#include "platform/store/HBFetchRequest.h"
#include "platform/store/HBManagedObject.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBPropertyDescription.h"

HBAdditionsTable::HBAdditionsTable(QString entityName, QString ownerKey, QString ownersRowsKey)
    : m_entityName(std::move(entityName))
    , m_ownerKey(std::move(ownerKey))
    , m_ownersRowsKey(std::move(ownersRowsKey))
{
}

// The owner's rows when they were loaded ahead (a segment's points come
// with theirs): the rows a fetch would give, in the same order.
// Owners of one kind have the relationship at the same place: the place
// found last is checked by name before the owner's properties are looked up
// by name, which an export would do for each of a million points.
const HBPropertyDescription *HBAdditionsTable::rowsProperty(const HBEntityDescription *entity) const
{
    if (!entity)
        return nullptr;
    const QList<const HBPropertyDescription *> &properties = entity->properties();
    const int last = m_rowsPropertyIndex.load(std::memory_order_relaxed);
    if (last >= 0 && last < properties.size() && properties[last]->name == m_ownersRowsKey)
        return properties[last];
    const HBPropertyDescription *found = entity->propertyNamed(m_ownersRowsKey);
    if (found)
        m_rowsPropertyIndex.store(found->index, std::memory_order_relaxed);
    return found;
}

std::optional<QList<HBManagedObject *>> HBAdditionsTable::loadedRows(const HBManagedObject *owner) const
{
    const HBPropertyDescription *toOwner = rowsProperty(owner->entity());
    if (!toOwner || !toOwner->isToMany)
        return std::nullopt;
    return owner->managedObjectContext()->loadedRelatedObjects(owner, toOwner);
}

HBManagedObject *HBAdditionsTable::firstRow(const HBManagedObject *owner, const QString &key) const
{
    return owner->managedObjectContext() ? firstRow(owner, key, loadedRows(owner)) : nullptr;
}

// Among the rows loaded ahead when there are, else by a fetch.
HBManagedObject *HBAdditionsTable::firstRow(const HBManagedObject *owner, const QString &key,
                                            const std::optional<QList<HBManagedObject *>> &loaded) const
{
    if (loaded)
        return firstLoadedRow(*loaded, key);
    HBFetchRequest request(m_entityName);
    request.setPredicate(HBPredicate::format(m_ownerKey + QStringLiteral(" == %@ AND key == %@"),
                                             {QVariant::fromValue(const_cast<HBManagedObject *>(owner)), key}));
    const QList<HBManagedObject *> rows = owner->managedObjectContext()->executeFetchRequest(request);
    return rows.isEmpty() ? nullptr : rows.first();
}

HBManagedObject *HBAdditionsTable::firstLoadedRow(const QList<HBManagedObject *> &rows, const QString &key)
{
    for (HBManagedObject *row : rows) {
        if (!row->isDeleted() && row->valueForKey(QStringLiteral("key")).toString() == key)
            return row;
    }
    return nullptr;
}

QVariant HBAdditionsTable::valueOf(const HBManagedObject *row)
{
    return row ? row->valueForKey(QStringLiteral("value")) : QVariant();
}

QVariant HBAdditionsTable::value(const HBManagedObject *owner, const QString &key) const
{
    return valueOf(firstRow(owner, key));
}

QVariantList HBAdditionsTable::values(const HBManagedObject *owner, const QStringList &keys) const
{
    if (!owner->managedObjectContext())
        return QVariantList(keys.size());
    const std::optional<QList<HBManagedObject *>> loaded = loadedRows(owner);
    QVariantList found;
    found.reserve(keys.size());
    for (const QString &key : keys)
        found.append(valueOf(firstRow(owner, key, loaded)));
    return found;
}

void HBAdditionsTable::setValue(HBManagedObject *owner, const QVariant &value, const QString &key, NewRow newRow) const
{
    if (HBManagedObject *row = firstRow(owner, key)) {
        row->setValueForKey(value, QStringLiteral("value"));
        return;
    }
    HBManagedObjectContext *context = owner->managedObjectContext();
    if (!context)
        return;
    HBManagedObject *row = context->insertNewObjectForEntityForName(m_entityName);
    row->setValueForKey(key, QStringLiteral("key"));
    row->setValueForKey(value, QStringLiteral("value"));
    if (newRow == NewRow::Linked)
        row->setObjectForKey(owner, m_ownerKey);
}
