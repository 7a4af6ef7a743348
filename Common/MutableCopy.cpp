#include "MutableCopy.h"

#include "CfRef.h"

#include <CoreFoundation/CoreFoundation.h>

namespace orv {
namespace {

constexpr CFIndex maxObjects = 1 << 20;

// Subtracts one from `*left`, a CFIndex, for `list` and for each use of an object in it. The reader limits the depth.
void take(const void* list, void* left)
{
    CFIndex& objects = *static_cast<CFIndex*>(left);
    if (objects == 0)
        return;
    --objects;
    const auto takeValue = [](const void*, const void* value, void* rest) { take(value, rest); };
    if (CFGetTypeID(list) == CFDictionaryGetTypeID())
        CFDictionaryApplyFunction(static_cast<CFDictionaryRef>(list), takeValue, left);
    else if (CFGetTypeID(list) == CFArrayGetTypeID())
        for (CFIndex i = 0; i < CFArrayGetCount(static_cast<CFArrayRef>(list)) && objects > 0; ++i)
            take(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(list), i), left);
}

} // namespace

CfRef<CFPropertyListRef> mutableCopy(CFPropertyListRef list)
{
    if (list == nullptr)
        return nullptr;
    CFIndex left = maxObjects;
    take(list, &left);
    if (left == 0)
        return nullptr;
    return CfRef<CFPropertyListRef>(
        CFPropertyListCreateDeepCopy(kCFAllocatorDefault, list, kCFPropertyListMutableContainers));
}

} // namespace orv
