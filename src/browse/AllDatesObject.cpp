#include "browse/AllDatesObject.h"

AllDatesObject *AllDatesObject::allDatesObject()
{
    static AllDatesObject node;
    return &node;
}
