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
std::optional<QList<HBManagedObject *>> HBAdditionsTable::loadedRows(const HBManagedObject *owner) const
{
    const HBPropertyDescription *toOwner = owner->entity() ? owner->entity()->propertyNamed(m_ownersRowsKey) : nullptr;
    if (!toOwner || !toOwner->isToMany)
        return std::nullopt;
    return owner->managedObjectContext()->loadedRelatedObjects(owner, toOwner);
}

HBManagedObject *HBAdditionsTable::firstRow(const HBManagedObject *owner, const QString &key) const
{
    HBManagedObjectContext *context = owner->managedObjectContext();
    if (!context)
        return nullptr;
    if (const std::optional<QList<HBManagedObject *>> rows = loadedRows(owner))
        return firstLoadedRow(*rows, key);
    HBFetchRequest request(m_entityName);
    request.setPredicate(HBPredicate::format(m_ownerKey + QStringLiteral(" == %@ AND key == %@"),
                                             {QVariant::fromValue(const_cast<HBManagedObject *>(owner)), key}));
    const QList<HBManagedObject *> rows = context->executeFetchRequest(request);
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

QVariant HBAdditionsTable::value(const HBManagedObject *owner, const QString &key) const
{
    const HBManagedObject *row = firstRow(owner, key);
    return row ? row->valueForKey(QStringLiteral("value")) : QVariant();
}

QVariantList HBAdditionsTable::values(const HBManagedObject *owner, const QStringList &keys) const
{
    QVariantList found;
    found.reserve(keys.size());
    const std::optional<QList<HBManagedObject *>> rows =
        owner->managedObjectContext() ? loadedRows(owner) : std::nullopt;
    for (const QString &key : keys) {
        if (!rows) {
            found.append(value(owner, key));
        } else {
            const HBManagedObject *row = firstLoadedRow(*rows, key);
            found.append(row ? row->valueForKey(QStringLiteral("value")) : QVariant());
        }
    }
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
