#pragma once

#include "CfRef.h"

#include <CoreFoundation/CoreFoundation.h>

namespace orv {

/// A copy of a property list in which every container is new and mutable. Null if memory runs out, or if the list
/// stands for more than a million objects, which no task's settings do. A binary list can use one array in many places,
/// and the copy makes a new one for each: a few bytes could otherwise keep it busy for hours.
CfRef<CFPropertyListRef> mutableCopy(CFPropertyListRef list);

} // namespace orv
