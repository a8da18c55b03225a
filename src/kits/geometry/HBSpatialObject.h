#pragma once

#include <QVariant>

// Something a map shows and lets a person select: a track or a waypoint.
// The owner is whatever layer listed it, so that a map holding only the
// object can find the layer to change the selection through.
class HBSpatialObject
{
public:
    virtual ~HBSpatialObject() = default;

    virtual QVariant objectOwner() const = 0;
    virtual void setObjectOwner(const QVariant &owner) = 0;
};
