#include "CFContainers.h"

#include <algorithm>
#include <utility>

using namespace OrvCF;

namespace {

const void* retainElement(CFAllocatorRef, const void* value)
{
    return CFRetain(value);
}

void releaseElement(CFAllocatorRef, const void* value)
{
    CFRelease(value);
}

size_t indexIn(const OrvCFArray& array, CFIndex index, const char* call)
{
    checkRange(CFRangeMake(index, 1), static_cast<CFIndex>(array.values().size()), call);
    return static_cast<size_t>(index);
}

OrvCFArray* copyOf(const OrvCFArray& array, Mutability mutability)
{
    return orNull([&] {
        Owned<OrvCFArray> copy(new OrvCFArray(mutability, &array.callBacks()));
        copy->reserve(array.values().size());
        for (const void* value : array.values())
            copy->append(value);
        return copy.release();
    });
}

} // namespace

OrvCFArray::OrvCFArray(Mutability mutability, const CFArrayCallBacks* callBacks)
    : Object(classKind)
    , m_mutability(mutability)
    , m_callBacks(callBacks != nullptr ? *callBacks : CFArrayCallBacks{})
{
}

OrvCFArray::~OrvCFArray()
{
    clear();
}

bool OrvCFArray::equals(const Object& other) const
{
    const auto& others = static_cast<const OrvCFArray&>(other).m_values;
    return std::equal(m_values.begin(), m_values.end(), others.begin(), others.end(),
        [this](const void* left, const void* right) { return equalUnder(m_callBacks, left, right); });
}

CFHashCode OrvCFArray::hash() const
{
    return m_values.size();
} // not the values': they may be long lists themselves

void OrvCFArray::insert(size_t index, const void* value)
{
    const auto place = m_values.insert(m_values.begin() + static_cast<CFIndex>(index), value);
    *place = retained(m_callBacks, value);
}

void OrvCFArray::replace(size_t index, const void* value)
{
    // the new value first: it may be the old one, and this array its only owner
    releaseHeld(m_callBacks, std::exchange(m_values[index], retained(m_callBacks, value)));
}

void OrvCFArray::remove(size_t index)
{
    const void* removed = m_values[index];
    m_values.erase(m_values.begin() + static_cast<CFIndex>(index));
    releaseHeld(m_callBacks, removed);
}

void OrvCFArray::clear()
{
    for (const void* value : std::exchange(m_values, {}))
        releaseHeld(m_callBacks, value);
}

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, retainElement, releaseElement, nullptr, CFEqual};

CFTypeID CFArrayGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::array);
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count, const CFArrayCallBacks* callBacks)
{
    if (count < 0 || (count > 0 && values == nullptr))
        return nullptr;
    return orNull([&] {
        Owned<OrvCFArray> array(new OrvCFArray(Mutability::immutable, callBacks));
        array->reserve(static_cast<size_t>(count));
        std::for_each(values, values + count, [&](const void* value) { array->append(value); });
        return array.release();
    });
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks)
{
    return orNull([&] { return new OrvCFArray(Mutability::mutableContainers, callBacks); });
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef, CFArrayRef array)
{
    return copyOf(checked(array, __func__), Mutability::immutable);
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef array)
{
    return copyOf(checked(array, __func__), Mutability::mutableContainers);
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return static_cast<CFIndex>(checked(array, __func__).values().size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    const OrvCFArray& from = checked(array, __func__);
    return from.values()[indexIn(from, index, __func__)];
}

void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values)
{
    checkRange(range, CFArrayGetCount(array), __func__);
    std::copy_n(array->values().begin() + range.location, range.length, values);
}

Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value)
{
    return CFArrayGetFirstIndexOfValue(array, range, value) != kCFNotFound;
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value)
{
    checkRange(range, CFArrayGetCount(array), __func__);
    const auto first = array->values().begin() + range.location;
    const auto found = std::find_if(
        first, first + range.length, [&](const void* held) { return equalUnder(array->callBacks(), value, held); });
    return found == first + range.length ? CFIndex(kCFNotFound) : found - array->values().begin();
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value)
{
    if (checked(array, __func__).isMutable())
        ifMemoryAllows([&] { array->append(value); });
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value)
{
    checkRange(CFRangeMake(index, 0), CFArrayGetCount(array), __func__);
    if (array->isMutable())
        ifMemoryAllows([&] { array->insert(static_cast<size_t>(index), value); });
}

void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value)
{
    if (index == CFArrayGetCount(array))
        CFArrayAppendValue(array, value);
    else if (const size_t place = indexIn(*array, index, __func__); array->isMutable())
        array->replace(place, value);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index)
{
    const size_t place = indexIn(checked(array, __func__), index, __func__);
    if (array->isMutable())
        array->remove(place);
}

void CFArrayRemoveAllValues(CFMutableArrayRef array)
{
    if (checked(array, __func__).isMutable())
        array->clear();
}
