#include "MutableCopy.h"

#include "CfRef.h"

#include <CoreFoundation/CoreFoundation.h>

namespace orv {
namespace {

constexpr CFIndex maxObjects = 1 << 20;

void takeValue(const void* key, const void* value, void* left);

// Subtracts one from `left` for the list and for each use of an object in it. The reader limits how deep a list is.
void take(CFPropertyListRef list, CFIndex& left)
{
    if (left == 0)
        return;
    --left;
    if (CFGetTypeID(list) == CFDictionaryGetTypeID())
        CFDictionaryApplyFunction(static_cast<CFDictionaryRef>(list), takeValue, &left);
    if (CFGetTypeID(list) != CFArrayGetTypeID())
        return;
    const auto array = static_cast<CFArrayRef>(list);
    for (CFIndex i = 0; i < CFArrayGetCount(array) && left > 0; ++i)
        take(CFArrayGetValueAtIndex(array, i), left);
}

void takeValue(const void*, const void* value, void* left)
{
    take(value, *static_cast<CFIndex*>(left));
}

} // namespace

CfRef<CFPropertyListRef> mutableCopy(CFPropertyListRef list)
{
    CFIndex left = maxObjects;
    take(list, left);
    if (left == 0)
        return nullptr;
    return CfRef<CFPropertyListRef>(
        CFPropertyListCreateDeepCopy(kCFAllocatorDefault, list, kCFPropertyListMutableContainers));
}

} // namespace orv
