#include "CFValues.h"

#include <algorithm>

using namespace OrvCF;

namespace {

Immortal<OrvCFBoolean> trueObject(true, Life::constant);
Immortal<OrvCFBoolean> falseObject(false, Life::constant);

} // namespace

const CFBooleanRef kCFBooleanTrue = &trueObject.object;
const CFBooleanRef kCFBooleanFalse = &falseObject.object;

CFTypeID CFBooleanGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::boolean);
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    return checked(boolean, __func__).value;
}

CFTypeID CFDateGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::date);
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime seconds)
{
    return orNull([&] { return new OrvCFDate(seconds); });
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date)
{
    return checked(date, __func__).value;
}

CFTypeID CFDataGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::data);
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex count)
{
    if (count < 0 || (count > 0 && bytes == nullptr))
        return nullptr;
    const auto* content = reinterpret_cast<const char*>(bytes);
    return orNull([&] { return new OrvCFData(std::string(content, content + count)); });
}

CFIndex CFDataGetLength(CFDataRef data)
{
    return static_cast<CFIndex>(checked(data, __func__).bytes.size());
}

const UInt8* CFDataGetBytePtr(CFDataRef data)
{
    return reinterpret_cast<const UInt8*>(checked(data, __func__).bytes.data());
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* bytes)
{
    checkRange(range, CFDataGetLength(data), __func__);
    std::copy_n(CFDataGetBytePtr(data) + range.location, range.length, bytes);
}
