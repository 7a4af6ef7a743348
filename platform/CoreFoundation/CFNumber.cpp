#include "CFValues.h"

#include <cmath>
#include <cstring>
#include <type_traits>

using namespace OrvCF;

namespace {

using Value = OrvCFNumber::Value;

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 2 * twoTo63;

/// The type that CFNumberGetType tells for a number made from a T.
template <class T> constexpr CFNumberType sizedType()
{
    if (!std::is_integral_v<T>)
        return sizeof(T) == sizeof(Float32) ? kCFNumberFloat32Type : kCFNumberFloat64Type;
    return sizeof(T) == 1 ? kCFNumberSInt8Type
        : sizeof(T) == 2  ? kCFNumberSInt16Type
        : sizeof(T) == 4  ? kCFNumberSInt32Type
                          : kCFNumberSInt64Type;
}

/// What `use` returns for a zero of the C type that `type` means; false if `type` is unknown.
template <class Use> bool withType(CFNumberType type, Use use)
{
    switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        return use(SInt8());
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        return use(SInt16());
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return use(SInt32());
    case kCFNumberSInt64Type:
    case kCFNumberLongLongType:
        return use(SInt64());
    case kCFNumberLongType:
    case kCFNumberCFIndexType:
        return use(CFIndex());
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return use(Float32());
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        return use(Float64());
    }
    return false;
}

template <class T> Value loaded(const void* from, T number)
{
    std::memcpy(&number, from, sizeof number);
    if constexpr (std::is_integral_v<T>)
        return static_cast<int64_t>(number);
    else
        return static_cast<double>(number);
}

/// The form in which equal numbers are identical: an integer, if the number is whole and fits into one. Minus zero
/// stays a real, because it does not equal zero.
Value canonical(const Value& value)
{
    const double* real = std::get_if<double>(&value);
    const bool whole = real != nullptr && std::trunc(*real) == *real && !(*real == 0 && std::signbit(*real));
    if (!whole || *real < -twoTo63 || *real >= twoTo64)
        return value;
    if (*real < twoTo63)
        return static_cast<int64_t>(*real);
    return static_cast<uint64_t>(*real);
}

bool isNan(const Value& value)
{
    const double* real = std::get_if<double>(&value);
    return real != nullptr && std::isnan(*real);
}

bool sameNumber(const Value& left, const Value& right)
{
    return canonical(left) == canonical(right) || (isNan(left) && isNan(right));
}

/// The number as a T; an arbitrary T if it is out of range.
template <class T> T converted(const Value& value)
{
    const double* real = std::get_if<double>(&value);
    if (std::is_integral_v<T> && real != nullptr)
        return *real >= -twoTo63 && *real < twoTo63 ? static_cast<T>(static_cast<int64_t>(*real)) : 0;
    return std::visit([](auto number) { return static_cast<T>(number); }, value);
}

/// Stores `value` as a T, and returns whether that is exact.
template <class T> bool store(const Value& value, void* to)
{
    const T nearest = converted<T>(value);
    std::memcpy(to, &nearest, sizeof nearest);
    const Value stored = loaded(to, T());
    // minus zero counts as exact if 0 is stored for it
    return sameNumber(stored, value) || (std::is_integral_v<T> && stored == Value(int64_t(0)) && value == Value(-0.0));
}

} // namespace

bool OrvCFNumber::equals(const Object& other) const
{
    return sameNumber(value, static_cast<const OrvCFNumber&>(other).value);
}

CFHashCode OrvCFNumber::hash() const
{
    return isNan(value) ? 0 : std::hash<double>()(converted<double>(value));
}

CFTypeID CFNumberGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::number);
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value)
{
    if (value == nullptr)
        rejectArgument(__func__, "NULL");
    CFNumberRef number = nullptr;
    withType(type, [&](auto zero) {
        number = orNull([&] { return new OrvCFNumber(sizedType<decltype(zero)>(), loaded(value, zero)); });
        return true;
    });
    return number;
}

CFNumberType CFNumberGetType(CFNumberRef number)
{
    return checked(number, __func__).type;
}

Boolean CFNumberIsFloatType(CFNumberRef number)
{
    return std::holds_alternative<double>(checked(number, __func__).value);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
{
    const Value& held = checked(number, __func__).value;
    return withType(type, [&](auto zero) { return store<decltype(zero)>(held, value); });
}
