#include "CFValues.h"

#include "Utf.h"

#include <algorithm>
#include <cstring>
#include <mutex>

using namespace OrvCF;

namespace {

/// Whether bytes that are valid UTF-8 are valid in `encoding`.
bool suits(std::string_view utf8, CFStringEncoding encoding)
{
    return encoding == kCFStringEncodingUTF8 || (encoding == kCFStringEncodingASCII && isAscii(utf8));
}

CFStringRef createString(std::string_view bytes, CFStringEncoding encoding)
{
    return orNull([&]() -> CFStringRef {
        auto units = utf16FromUtf8(bytes);
        return units && suits(bytes, encoding) ? new OrvCFString(std::move(*units)) : nullptr;
    });
}

} // namespace

CFTypeID CFStringGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::string);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding)
{
    if (text == nullptr)
        rejectArgument(__func__, "NULL");
    return createString(text, encoding);
}

CFStringRef CFStringCreateWithBytes(
    CFAllocatorRef, const UInt8* bytes, CFIndex count, CFStringEncoding encoding, Boolean)
{
    if (count < 0)
        return nullptr;
    return createString({reinterpret_cast<const char*>(bytes), static_cast<size_t>(count)}, encoding);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* units, CFIndex count)
{
    if (count < 0)
        return nullptr;
    return orNull([&] { return new OrvCFString(std::u16string(units, units + count)); });
}

CFIndex CFStringGetLength(CFStringRef string)
{
    return static_cast<CFIndex>(checked(string, __func__).units.size());
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* units)
{
    checkRange(range, CFStringGetLength(string), __func__);
    std::copy_n(string->units.begin() + range.location, range.length, units);
}

Boolean CFStringGetCString(CFStringRef string, char* text, CFIndex capacity, CFStringEncoding encoding)
{
    const std::u16string_view units = checked(string, __func__).units;
    if (capacity < 1)
        return false;
    text[0] = '\0';
    Boolean fits = false;
    completes([&] {
        const auto bytes = utf8FromUtf16(units);
        fits = bytes && suits(*bytes, encoding) && bytes->size() < static_cast<size_t>(capacity);
        if (fits)
            std::memcpy(text, bytes->c_str(), bytes->size() + 1);
    });
    return fits;
}

CFStringRef OrvCFMakeConstantString(OrvCFConstantString* place, const char16_t* units, CFIndex count)
{
    static_assert(sizeof(OrvCFString) <= sizeof(place->object) && alignof(OrvCFString) <= alignof(uint64_t));
    static std::mutex making;

    // The first calls of two threads may coincide, so the place is filled under a lock. Reading it takes none.
    if (CFStringRef made = __atomic_load_n(&place->made, __ATOMIC_ACQUIRE))
        return made;
    const std::lock_guard<std::mutex> lock(making);
    if (place->made == nullptr) {
        const std::u16string_view literal(units, static_cast<size_t>(count));
        __atomic_store_n(&place->made, new (place->object) OrvCFString(literal, Life::constant), __ATOMIC_RELEASE);
    }
    return place->made;
}
