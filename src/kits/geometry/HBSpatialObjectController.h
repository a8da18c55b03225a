#pragma once

#include <QList>

class HBSpatialObject;

// The map as a picker sees it. The map itself observes the picker's list
// and selection and selects through it; the only call the other way is to
// bring objects into view.
class HBSpatialObjectController
{
public:
    virtual ~HBSpatialObjectController() = default;

    // Shows every given object whole, with a margin; an empty list leaves
    // the view as it is.
    virtual void fitSpatialObjects(const QList<HBSpatialObject *> &objects) = 0;
};
