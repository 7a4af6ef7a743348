#include "CFContainers.h"

#include <algorithm>

using namespace OrvCF;

struct OrvCFArrayCallBacks { };
struct OrvCFDictionaryKeyCallBacks { };
struct OrvCFDictionaryValueCallBacks { };
const CFArrayCallBacks kCFTypeArrayCallBacks{};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{};

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
    completes([&] { changed.values.push_back(shared(added)); });
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index)
{
    OrvCFArray& changed = changeable(array, __func__);
    checkRange(CFRangeMake(index, 1), CFArrayGetCount(array), __func__);
    changed.values.erase(changed.values.begin() + index);
}

bool OrvCFDictionary::equals(const Object& other) const
{
    const auto& others = static_cast<const OrvCFDictionary&>(other);
    return pairs.size() == others.pairs.size() && std::all_of(pairs.begin(), pairs.end(), [&](const auto& entry) {
        const Object* value = others.find(*entry.first);
        return value != nullptr && CFEqual(entry.second.value.get(), value);
    });
}

const Object* OrvCFDictionary::find(const Object& key) const
{
    const auto found = pairs.find(&key);
    return found != pairs.end() ? found->second.value.get() : nullptr;
}

void OrvCFDictionary::add(Owned<const Object> key, Owned<const Object> value)
{
    const Object* const name = key.get();
    pairs.try_emplace(name, Pair{std::move(key), std::move(value)});
}

void OrvCFDictionary::set(Owned<const Object> key, Owned<const Object> value)
{
    const Object* const name = key.get();
    pairs.try_emplace(name, Pair{std::move(key), nullptr}).first->second.value = std::move(value);
}

CFTypeID CFDictionaryGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::dictionary);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks)
{
    checkCallBacks(keyCallBacks, kCFTypeDictionaryKeyCallBacks, __func__);
    checkCallBacks(valueCallBacks, kCFTypeDictionaryValueCallBacks, __func__);
    if (count < 0 || (count > 0 && (keys == nullptr || values == nullptr)))
        return nullptr;
    return orNull([&] {
        Owned<OrvCFDictionary> dictionary(new OrvCFDictionary(Mutability::immutable));
        for (CFIndex i = 0; i < count; ++i)
            dictionary->add(
                shared(objectOf(keys[i], "CFDictionaryCreate")), shared(objectOf(values[i], "CFDictionaryCreate")));
        return dictionary.release();
    });
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks)
{
    checkCallBacks(keyCallBacks, kCFTypeDictionaryKeyCallBacks, __func__);
    checkCallBacks(valueCallBacks, kCFTypeDictionaryValueCallBacks, __func__);
    return orNull([] { return new OrvCFDictionary(Mutability::mutableContainers); });
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex, CFDictionaryRef dictionary)
{
    const OrvCFDictionary& from = checked(dictionary, __func__);
    return orNull([&] {
        Owned<OrvCFDictionary> copy(new OrvCFDictionary(Mutability::mutableContainers));
        for (const auto& [key, pair] : from.pairs)
            copy->add(shared(*key), shared(*pair.value));
        return copy.release();
    });
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary)
{
    return static_cast<CFIndex>(checked(dictionary, __func__).pairs.size());
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key)
{
    return checked(dictionary, __func__).find(objectOf(key, __func__));
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values)
{
    for (const auto& [key, pair] : checked(dictionary, __func__).pairs) {
        if (keys != nullptr)
            *keys++ = key;
        if (values != nullptr)
            *values++ = pair.value.get();
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction apply, void* context)
{
    for (const auto& [key, pair] : checked(dictionary, __func__).pairs)
        apply(key, pair.value.get(), context);
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value)
{
    OrvCFDictionary& changed = changeable(dictionary, __func__);
    const Object& name = objectOf(key, __func__);
    const Object& content = objectOf(value, __func__);
    completes([&] { changed.set(shared(name), shared(content)); });
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key)
{
    changeable(dictionary, __func__).pairs.erase(&objectOf(key, __func__));
}
