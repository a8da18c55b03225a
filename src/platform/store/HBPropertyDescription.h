#pragma once

#include "platform/store/HBAttributeType.h"

#include <QHash>
#include <QString>

#include <initializer_list>
#include <utility>

class HBEntityDescription;

enum class HBDeleteRule {
    Nullify,   // the related objects lose their reference to the deleted one
    Cascade,   // the related objects are deleted too
    NoAction,
};

// One attribute or relationship of an entity. To-one relationships are kept
// in their source row as the primary key of the destination, which must live
// in the same store; to-many relationships are the inverse view of a to-one
// and are never stored themselves.
struct HBPropertyDescription
{
    QString name;
    bool isRelationship = false;
    bool isTransient = false;           // named by the model, never stored (kept in memory only)

    // attributes
    HBAttributeType attributeType = HBAttributeType::String;
    // Looked up by value often enough to be worth an index in every file
    // that stores it; a decimal is indexed as the number it compares as.
    bool isIndexed = false;

    // relationships
    QString destinationEntityName;
    QString inverseName;                // empty: no inverse
    bool isToMany = false;
    HBDeleteRule deleteRule = HBDeleteRule::Nullify;

    // filled in when the model is finalised
    const HBEntityDescription *destinationEntity = nullptr;
    const HBPropertyDescription *inverse = nullptr;
    int index = -1;                     // slot of the value in an object of the entity
    bool isStored() const { return !isTransient && !(isRelationship && isToMany); }
    bool isToOne() const { return isRelationship && !isToMany; }

    // Plain attribute descriptions by name, as a map feature lists what an
    // inspector may show of it.
    static QHash<QString, HBPropertyDescription> attributes(
        std::initializer_list<std::pair<QString, HBAttributeType>> namesAndTypes)
    {
        QHash<QString, HBPropertyDescription> described;
        for (const auto &[name, type] : namesAndTypes) {
            HBPropertyDescription p;
            p.name = name;
            p.attributeType = type;
            described.insert(name, p);
        }
        return described;
    }
};
