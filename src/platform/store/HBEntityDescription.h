#pragma once

#include "platform/store/HBPropertyDescription.h"

#include <QHash>
#include <QList>
#include <QString>

#include <deque>
#include <functional>

class HBManagedObject;
class HBManagedObjectContext;

// An entity of the data model: its name, its place in the inheritance tree
// (a sub-entity inherits every property of its parent and is kept in its
// root entity's table), its properties and the class of its objects.
class HBEntityDescription
{
public:
    using Factory = std::function<HBManagedObject *()>;

    HBEntityDescription(QString name, QString parentName = {}, bool isAbstract = false);

    QString name() const { return m_name; }
    QString parentName() const { return m_parentName; }
    bool isAbstract() const { return m_isAbstract; }
    const HBEntityDescription *superentity() const { return m_superentity; }
    const HBEntityDescription *rootEntity() const;
    QList<const HBEntityDescription *> subentities() const { return m_subentities; }
    // this entity and every entity below it
    QList<const HBEntityDescription *> selfAndDescendants() const;
    bool isKindOfEntity(const HBEntityDescription *other) const;

    int entityID() const { return m_entityID; }

    HBPropertyDescription &addAttribute(const QString &name, HBAttributeType type);
    HBPropertyDescription &addToOne(const QString &name, const QString &destination,
                                    const QString &inverse = {}, HBDeleteRule rule = HBDeleteRule::Nullify);
    HBPropertyDescription &addToMany(const QString &name, const QString &destination,
                                     const QString &inverse, HBDeleteRule rule = HBDeleteRule::Nullify);
    HBPropertyDescription &addTransient(const QString &name);

    // every property, the parent's first; valid once the model is finalised
    const QList<const HBPropertyDescription *> &properties() const { return m_allProperties; }
    const HBPropertyDescription *propertyNamed(const QString &name) const { return m_byName.value(name); }
    int propertyCount() const { return int(m_allProperties.size()); }

    void setFactory(Factory factory) { m_factory = std::move(factory); }

    // How many values a new object of this entity usually ends up with:
    // room for them is made once at insertion instead of growing as they
    // are set, for entities inserted by the million.
    void setTypicalValueCount(int count) { m_typicalValueCount = count; }
    int typicalValueCount() const { return m_typicalValueCount; }
    HBManagedObject *newObject() const;

private:
    friend class HBManagedObjectModel;
    void finalise(int entityID, const HBEntityDescription *superentity);
    void resolveRelationships(const std::function<const HBEntityDescription *(const QString &)> &lookup);

    QString m_name;
    QString m_parentName;
    bool m_isAbstract;
    int m_entityID = -1;
    const HBEntityDescription *m_superentity = nullptr;
    QList<const HBEntityDescription *> m_subentities;
    std::deque<HBPropertyDescription> m_ownProperties;   // stable addresses
    QList<const HBPropertyDescription *> m_allProperties;
    QHash<QString, const HBPropertyDescription *> m_byName;
    Factory m_factory;
    int m_typicalValueCount = 0;
};
