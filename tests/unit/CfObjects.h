#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

/// CoreFoundation's objects, owned.
namespace support {

struct Releaser {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <class Reference> using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Releaser>;

inline Owned<CFStringRef> newString(const std::u16string& units)
{
    const std::vector<UniChar> copy(units.begin(), units.end());
    return Owned<CFStringRef>(CFStringCreateWithCharacters(nullptr, copy.data(), static_cast<CFIndex>(copy.size())));
}

template <class T> Owned<CFNumberRef> newNumber(CFNumberType type, T value)
{
    return Owned<CFNumberRef>(CFNumberCreate(nullptr, type, &value));
}

inline Owned<CFDateRef> newDate(double seconds = 1)
{
    return Owned<CFDateRef>(CFDateCreate(nullptr, seconds));
}

inline Owned<CFDataRef> newData(const std::string& bytes)
{
    return Owned<CFDataRef>(
        CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
}

inline Owned<CFMutableArrayRef> newArray(const std::vector<CFTypeRef>& values = {})
{
    Owned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const CFTypeRef value : values)
        CFArrayAppendValue(array.get(), value);
    return array;
}

inline Owned<CFMutableDictionaryRef> newDictionary()
{
    return Owned<CFMutableDictionaryRef>(
        CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

} // namespace support
