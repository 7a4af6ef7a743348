#pragma once

#include "CfRef.h"

#include <CoreFoundation/CoreFoundation.h>

namespace orv {

/// A copy of `list` with new, mutable containers. Null if `list` is null, if there is no memory, or if the copy would
/// have 2^20 objects or more: a short binary list can use one array in so many places that copying takes hours.
CfRef<CFPropertyListRef> mutableCopy(CFPropertyListRef list);

} // namespace orv
