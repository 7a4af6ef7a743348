#include "CFContainers.h"

#include <algorithm>
#include <functional>
#include <utility>

using namespace OrvCF;

namespace {

const void* retainMember(CFAllocatorRef, const void* value)
{
    return CFRetain(value);
}

void releaseMember(CFAllocatorRef, const void* value)
{
    CFRelease(value);
}

OrvCFDictionary* copyOf(const OrvCFDictionary& dictionary, Mutability mutability)
{
    return orNull([&] {
        Owned<OrvCFDictionary> copy(
            new OrvCFDictionary(mutability, &dictionary.keyCallBacks(), &dictionary.valueCallBacks()));
        for (const auto& [key, value] : dictionary.pairs())
            copy->add(key, value);
        return copy.release();
    });
}

} // namespace

OrvCFDictionary::OrvCFDictionary(Mutability mutability, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks)
    : Object(classKind)
    , m_mutability(mutability)
    , m_keyCallBacks(keyCallBacks != nullptr ? *keyCallBacks : CFDictionaryKeyCallBacks{})
    , m_valueCallBacks(valueCallBacks != nullptr ? *valueCallBacks : CFDictionaryValueCallBacks{})
    , m_pairs(0, KeyHash{&m_keyCallBacks}, KeyEqual{&m_keyCallBacks})
{
}

OrvCFDictionary::~OrvCFDictionary()
{
    clear();
}

size_t OrvCFDictionary::KeyHash::operator()(const void* key) const
{
    return callBacks->hash != nullptr ? callBacks->hash(key) : std::hash<const void*>()(key);
}

bool OrvCFDictionary::equals(const Object& other) const
{
    const auto& others = static_cast<const OrvCFDictionary&>(other);
    return m_pairs.size() == others.m_pairs.size()
        && std::all_of(m_pairs.begin(), m_pairs.end(), [&](const Pairs::value_type& pair) {
               const void* const* value = others.find(pair.first);
               return value != nullptr && equalUnder(m_valueCallBacks, pair.second, *value);
           });
}

CFHashCode OrvCFDictionary::hash() const
{
    return m_pairs.size();
}

const void* const* OrvCFDictionary::find(const void* key) const
{
    const auto found = m_pairs.find(key);
    return found != m_pairs.end() ? &found->second : nullptr;
}

void OrvCFDictionary::add(const void* key, const void* value)
{
    if (find(key) != nullptr)
        return;
    const auto release = [this](const void* held) { releaseHeld(m_keyCallBacks, held); };
    std::unique_ptr<const void, decltype(release)> ownKey(retained(m_keyCallBacks, key), release);
    const auto place = m_pairs.emplace(ownKey.get(), value).first;
    static_cast<void>(ownKey.release()); // the table's from here
    place->second = retained(m_valueCallBacks, value);
}

bool OrvCFDictionary::replace(const void* key, const void* value)
{
    const auto found = m_pairs.find(key);
    if (found == m_pairs.end())
        return false;
    // the new value first: it may be the old one, and this dictionary its only owner
    releaseHeld(m_valueCallBacks, std::exchange(found->second, retained(m_valueCallBacks, value)));
    return true;
}

void OrvCFDictionary::remove(const void* key)
{
    const auto found = m_pairs.find(key);
    if (found == m_pairs.end())
        return;
    const Pairs::value_type removed = *found;
    m_pairs.erase(found);
    releasePair(removed);
}

void OrvCFDictionary::clear()
{
    Pairs removed(0, m_pairs.hash_function(), m_pairs.key_eq());
    removed.swap(m_pairs);
    for (const auto& pair : removed)
        releasePair(pair);
}

void OrvCFDictionary::releasePair(const Pairs::value_type& pair) const
{
    releaseHeld(m_keyCallBacks, pair.first);
    releaseHeld(m_valueCallBacks, pair.second);
}

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks
    = {0, retainMember, releaseMember, nullptr, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, retainMember, releaseMember, nullptr, CFEqual};

CFTypeID CFDictionaryGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::dictionary);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks)
{
    if (count < 0 || (count > 0 && (keys == nullptr || values == nullptr)))
        return nullptr;
    return orNull([&] {
        Owned<OrvCFDictionary> dictionary(new OrvCFDictionary(Mutability::immutable, keyCallBacks, valueCallBacks));
        for (CFIndex i = 0; i < count; ++i)
            dictionary->add(keys[i], values[i]);
        return dictionary.release();
    });
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks)
{
    return orNull([&] { return new OrvCFDictionary(Mutability::mutableContainers, keyCallBacks, valueCallBacks); });
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef dictionary)
{
    return copyOf(checked(dictionary, __func__), Mutability::immutable);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex, CFDictionaryRef dictionary)
{
    return copyOf(checked(dictionary, __func__), Mutability::mutableContainers);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary)
{
    return static_cast<CFIndex>(checked(dictionary, __func__).pairs().size());
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key)
{
    return checked(dictionary, __func__).find(key) != nullptr;
}

Boolean CFDictionaryContainsValue(CFDictionaryRef dictionary, const void* value)
{
    const auto& pairs = checked(dictionary, __func__).pairs();
    return std::any_of(pairs.begin(), pairs.end(), [&](const OrvCFDictionary::Pairs::value_type& pair) {
        return equalUnder(dictionary->valueCallBacks(), value, pair.second);
    });
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key)
{
    const void* const* value = checked(dictionary, __func__).find(key);
    return value != nullptr ? *value : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value)
{
    const void* const* found = checked(dictionary, __func__).find(key);
    if (found != nullptr && value != nullptr)
        *value = *found;
    return found != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values)
{
    for (const auto& [key, value] : checked(dictionary, __func__).pairs()) {
        if (keys != nullptr)
            *keys++ = key;
        if (values != nullptr)
            *values++ = value;
    }
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value)
{
    if (checked(dictionary, __func__).isMutable())
        ifMemoryAllows([&] { dictionary->add(key, value); });
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value)
{
    if (checked(dictionary, __func__).isMutable() && !dictionary->replace(key, value))
        ifMemoryAllows([&] { dictionary->add(key, value); });
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key, const void* value)
{
    if (checked(dictionary, __func__).isMutable())
        dictionary->replace(key, value);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key)
{
    if (checked(dictionary, __func__).isMutable())
        dictionary->remove(key);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary)
{
    if (checked(dictionary, __func__).isMutable())
        dictionary->clear();
}
