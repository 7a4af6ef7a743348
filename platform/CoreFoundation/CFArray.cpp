#include "CFContainers.h"

#include <algorithm>

using namespace OrvCF;

struct OrvCFArrayCallBacks { };
const CFArrayCallBacks kCFTypeArrayCallBacks{};

bool OrvCFArray::equals(const Object& other) const
{
    const auto& others = static_cast<const OrvCFArray&>(other).values;
    return std::equal(values.begin(), values.end(), others.begin(), others.end(),
        [](const auto& left, const auto& right) { return CFEqual(left.get(), right.get()); });
}

CFTypeID CFArrayGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::array);
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks* callBacks)
{
    checkCallBacks(callBacks, kCFTypeArrayCallBacks, __func__);
    if (count < 0 || (count > 0 && values == nullptr))
        return nullptr;
    return orNull([&] {
        Owned<OrvCFArray> array(new OrvCFArray(Mutability::immutable));
        array->values.reserve(static_cast<size_t>(count));
        for (CFIndex i = 0; i < count; ++i)
            array->values.push_back(shared(objectOf(values[i], "CFArrayCreate")));
        return array.release();
    });
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks)
{
    checkCallBacks(callBacks, kCFTypeArrayCallBacks, __func__);
    return orNull([] { return new OrvCFArray(Mutability::mutableContainers); });
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef array)
{
    const OrvCFArray& from = checked(array, __func__);
    return orNull([&] {
        Owned<OrvCFArray> copy(new OrvCFArray(Mutability::mutableContainers));
        copy->values.reserve(from.values.size());
        for (const auto& value : from.values)
            copy->values.push_back(shared(*value));
        return copy.release();
    });
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return static_cast<CFIndex>(checked(array, __func__).values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    checkRange(CFRangeMake(index, 1), CFArrayGetCount(array), __func__);
    return array->values[static_cast<size_t>(index)].get();
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value)
{
    OrvCFArray& changed = changeable(array, __func__);
    const Object& added = objectOf(value, __func__);
    ifMemoryAllows([&] { changed.values.push_back(shared(added)); });
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index)
{
    OrvCFArray& changed = changeable(array, __func__);
    checkRange(CFRangeMake(index, 1), CFArrayGetCount(array), __func__);
    changed.values.erase(changed.values.begin() + index);
}
