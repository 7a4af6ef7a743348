#include "CFValues.h"

#include <algorithm>

using namespace OrvCF;

bool OrvCFDate::equals(const Object& other) const
{
    return seconds == static_cast<const OrvCFDate&>(other).seconds;
}

CFHashCode OrvCFDate::hash() const
{
    return std::hash<double>()(seconds);
}

OrvCFData::OrvCFData(std::string_view content)
    : Object(classKind)
    , m_count(content.size())
    , m_bytes(new UInt8[content.size()])
{
    std::copy(content.begin(), content.end(), m_bytes.get());
}

bool OrvCFData::equals(const Object& other) const
{
    return bytes() == static_cast<const OrvCFData&>(other).bytes();
}

CFHashCode OrvCFData::hash() const
{
    return std::hash<std::string_view>()(bytes());
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
    return checked(date, __func__).seconds;
}

CFTypeID CFDataGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::data);
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex count)
{
    if (count < 0 || (count > 0 && bytes == nullptr))
        return nullptr;
    return orNull([&] { return new OrvCFData({reinterpret_cast<const char*>(bytes), static_cast<size_t>(count)}); });
}

CFIndex CFDataGetLength(CFDataRef data)
{
    return static_cast<CFIndex>(checked(data, __func__).bytes().size());
}

const UInt8* CFDataGetBytePtr(CFDataRef data)
{
    return reinterpret_cast<const UInt8*>(checked(data, __func__).bytes().data());
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* bytes)
{
    checkRange(range, CFDataGetLength(data), __func__);
    std::copy_n(CFDataGetBytePtr(data) + range.location, range.length, bytes);
}
