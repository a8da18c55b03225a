#include "platform/store/HBManagedObject.h"

#include "platform/HBLogging.h"
#include "platform/store/HBEntityDescription.h"
#include "platform/store/HBManagedObjectContext.h"
#include "platform/store/HBManagedObjectModel.h"
#include "platform/store/HBPersistentStoreCoordinator.h"
#include "platform/store/HBStorePlacement.h"

HBManagedObject::~HBManagedObject() = default;

const HBPropertyDescription *HBManagedObject::property(const QString &key) const
{
    return m_entity ? m_entity->propertyNamed(key) : nullptr;
}

void HBManagedObject::fulfillFault() const
{
    if (m_context)
        m_context->fulfillFault(const_cast<HBManagedObject *>(this));
}

QVariant *HBManagedObject::findSlot(int slot) const
{
    for (auto &entry : const_cast<HBRowValues &>(m_values)) {
        if (entry.first == slot)
            return &entry.second;
    }
    return nullptr;
}

QVariant HBManagedObject::primitiveValue(int slot) const
{
    fireFault();
    const QVariant *v = findSlot(slot);
    return v ? *v : QVariant();
}

void HBManagedObject::routingKeyDidChange(const QVariant &key)
{
    const HBPersistentStoreCoordinator *coordinator = m_context ? m_context->persistentStoreCoordinator() : nullptr;
    if (HBStorePlacement *placement = coordinator ? coordinator->managedObjectModel()->storePlacement() : nullptr)
        placement->placeObject(this, key);
}

void HBManagedObject::setPrimitiveValue(int slot, const QVariant &value, bool markChanged)
{
    fireFault();
    if (QVariant *v = findSlot(slot)) {
        *v = value;
    } else if (value.isValid()) {
        // grown by small steps: a point has a handful of values, and there
        // are a million points
        if (m_values.size() == m_values.capacity())
            m_values.reserve(m_values.size() + (m_values.empty() ? 4 : 2));
        m_values.emplace_back(slot, value);
    }
    if (markChanged && slot < 64) {
        m_changed |= quint64(1) << slot;
        if (m_context)
            m_context->objectDidChange(this, m_entity->properties().at(slot));
    }
}

QVariant HBManagedObject::valueForKey(const QString &key) const
{
    const HBPropertyDescription *p = property(key);
    if (!p)
        return valueForUndefinedKey(key);
    if (p->isToMany)
        return QVariant::fromValue(objectsForKey(key));
    if (p->isRelationship)
        return QVariant::fromValue(objectForKey(key));
    return primitiveValue(p->index);
}

QVariant HBManagedObject::valueForUndefinedKey(const QString &key) const
{
    qCWarning(hbStore) << "No key" << key << "on" << (m_entity ? m_entity->name() : QStringLiteral("an object"));
    return QVariant();
}

QVariant HBManagedObject::valueForKeyPath(const QString &keyPath) const
{
    const qsizetype dot = keyPath.indexOf(u'.');
    if (dot < 0)
        return valueForKey(keyPath);
    const QVariant head = valueForKey(keyPath.left(dot));
    const HBManagedObject *next = head.value<HBManagedObject *>();
    return next ? next->valueForKeyPath(keyPath.mid(dot + 1)) : QVariant();
}

HBManagedObject *HBManagedObject::objectForKey(const QString &key) const
{
    return objectForProperty(property(key));
}

HBManagedObject *HBManagedObject::objectForProperty(const HBPropertyDescription *p) const
{
    if (!p || !p->isToOne())
        return nullptr;
    fireFault();
    QVariant *v = findSlot(p->index);
    if (!v || !v->isValid())
        return nullptr;
    if (v->metaType() == QMetaType::fromType<HBManagedObject *>())
        return v->value<HBManagedObject *>();
    // resolved once, then kept as the object itself
    HBManagedObject *object = m_context ? m_context->objectWithID(v->value<HBManagedObjectID>()) : nullptr;
    if (object)
        *v = QVariant::fromValue(object);
    return object;
}

QList<HBManagedObject *> HBManagedObject::objectsForKey(const QString &key) const
{
    const HBPropertyDescription *p = property(key);
    if (!p || !p->isToMany || !m_context)
        return {};
    return m_context->relatedObjects(this, p);
}

void HBManagedObject::setObjectForKey(HBManagedObject *object, const QString &key)
{
    const HBPropertyDescription *p = property(key);
    if (!p || !p->isToOne())
        return;
    setPrimitiveValue(p->index, object ? QVariant::fromValue(object) : QVariant());
}

void HBManagedObject::setObjectsForKey(const QList<HBManagedObject *> &objects, const QString &key)
{
    const HBPropertyDescription *p = property(key);
    if (!p || !p->isToMany || !p->inverse)
        return;
    const QList<HBManagedObject *> old = objectsForKey(key);
    for (HBManagedObject *member : old) {
        if (!objects.contains(member))
            member->setPrimitiveValue(p->inverse->index, QVariant());
    }
    for (HBManagedObject *member : objects) {
        if (member->objectForKey(p->inverse->name) != this)
            member->setPrimitiveValue(p->inverse->index, QVariant::fromValue(this));
    }
}

void HBManagedObject::setValueForKey(const QVariant &value, const QString &key)
{
    const HBPropertyDescription *p = property(key);
    if (!p) {
        qCWarning(hbStore) << "Cannot set undefined key" << key << "on" << (m_entity ? m_entity->name() : QString());
        return;
    }
    if (p->isToMany) {
        setObjectsForKey(value.value<QList<HBManagedObject *>>(), key);
        return;
    }
    setPrimitiveValue(p->index, value);
}
