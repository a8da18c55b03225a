#pragma once

#include "platform/store/HBManagedObject.h"

#include <QByteArray>

// The ordered point list of one segment: the URIs of its points, in the
// segment's order, as one HBPointURIList value.
class HBTrackSegmentPointURIs : public HBManagedObject
{
public:
    QByteArray data() const { return valueForKey(QStringLiteral("data")).toByteArray(); }
    void setData(const QByteArray &data) { setValueForKey(data, QStringLiteral("data")); }
};
