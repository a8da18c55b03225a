#include "model/HBFeatureStyles.h"

namespace {

// A function's static, so that a library loaded before this one's statics
// are made can still install.
HBFeatureStyles &current()
{
    static HBFeatureStyles styles;
    return styles;
}

} // namespace

void HBFeatureStyles::install(HBFeatureStyles styles)
{
    current() = std::move(styles);
}

const HBFeatureStyles &HBFeatureStyles::installed()
{
    return current();
}

std::shared_ptr<HBSimplePointStyle> HBFeatureStyles::styleOf(HBManagedObject *object,
                                                             std::shared_ptr<HBSimplePointStyle> &slot)
{
    if (!slot && current().styleForObject)
        slot = current().styleForObject(object);
    return slot;
}

void HBFeatureStyles::saveStyle(const std::shared_ptr<HBSimplePointStyle> &style)
{
    if (style)
        current().save(*style);
}
