#pragma once

class HBManagedObject;
class QVariant;

// Which store of a coordinator receives a newly inserted object, where the
// first store that may hold its entity is not the right one: a layout that
// spreads one entity over several files by the value of one of its
// attributes (its routing key).
//
// Set on a data model, it is consulted by every context over a coordinator
// of that model: once when an object is inserted (the key still unset), and
// again each time the object reports a change of its routing key
// (HBManagedObject::routingKeyDidChange). It places the object with
// HBManagedObjectContext::assignObject, or leaves it to the default. It is
// called on the context's queue, and may open a store file there.
class HBStorePlacement
{
public:
    virtual ~HBStorePlacement() = default;
    virtual void placeObject(HBManagedObject *object, const QVariant &routingKey) = 0;
};
