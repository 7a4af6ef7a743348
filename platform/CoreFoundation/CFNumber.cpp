#include "CFNumber.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <type_traits>

using namespace OrvCF;

namespace {

using Value = OrvCFNumber::Value;

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 2 * twoTo63;

template <class T> constexpr CFNumberType integerType()
{
    return sizeof(T) == sizeof(SInt32) ? kCFNumberSInt32Type : kCFNumberSInt64Type;
}

/// The type by size of any type; nothing if it is none.
std::optional<CFNumberType> sizedType(CFNumberType type)
{
    switch (type) {
    case kCFNumberCharType:
        return kCFNumberSInt8Type;
    case kCFNumberShortType:
        return kCFNumberSInt16Type;
    case kCFNumberIntType:
        return integerType<int>();
    case kCFNumberLongType:
        return integerType<long>();
    case kCFNumberLongLongType:
        return integerType<long long>();
    case kCFNumberCFIndexType:
        return integerType<CFIndex>();
    case kCFNumberFloatType:
        return kCFNumberFloat32Type;
    case kCFNumberDoubleType:
        return kCFNumberFloat64Type;
    default:
        return type >= kCFNumberSInt8Type && type <= kCFNumberFloat64Type ? std::optional(type) : std::nullopt;
    }
}

/// Calls `use` with a zero of the C type that `type`, one of the six, stands for.
template <class Use> auto withType(CFNumberType type, Use use)
{
    switch (type) {
    case kCFNumberSInt8Type:
        return use(SInt8());
    case kCFNumberSInt16Type:
        return use(SInt16());
    case kCFNumberSInt32Type:
        return use(SInt32());
    case kCFNumberSInt64Type:
        return use(SInt64());
    case kCFNumberFloat32Type:
        return use(Float32());
    default:
        return use(Float64());
    }
}

template <class T> Value loaded(const void* from, T number)
{
    std::memcpy(&number, from, sizeof number);
    if constexpr (std::is_integral_v<T>)
        return static_cast<int64_t>(number);
    else
        return static_cast<double>(number);
}

/// The number in the form in which equal numbers are the same: as an integer if it is whole and fits into one. Minus
/// zero stays a real, for it differs from zero.
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

/// The number as a T: the nearest there is.
template <class T> struct Nearest {
    T operator()(int64_t number) const
    {
        if constexpr (std::is_integral_v<T>)
            return static_cast<T>(std::clamp<int64_t>(number, lowest, highest));
        else
            return static_cast<T>(number);
    }

    T operator()(uint64_t number) const
    {
        if constexpr (std::is_integral_v<T>)
            return highest; // it is 2^63 or more
        else
            return static_cast<T>(number);
    }

    T operator()(double number) const
    {
        if constexpr (!std::is_integral_v<T>)
            return static_cast<T>(number);
        else if (std::isnan(number))
            return 0;
        else if (number <= static_cast<double>(lowest))
            return lowest;
        else
            return number >= static_cast<double>(highest) ? highest : static_cast<T>(number);
    }

    static constexpr T lowest = std::numeric_limits<T>::lowest();
    static constexpr T highest = std::numeric_limits<T>::max();
};

/// Stores `value` as a T; whether that is exact.
template <class T> bool store(const Value& value, void* to)
{
    const T nearest = std::visit(Nearest<T>(), value);
    std::memcpy(to, &nearest, sizeof nearest);
    const Value stored = loaded(to, T());
    // as an integer, minus zero is exact
    return sameNumber(stored, value) || (std::is_integral_v<T> && stored == Value(int64_t(0)) && value == Value(-0.0));
}

Immortal<OrvCFBoolean> trueObject(true);
Immortal<OrvCFBoolean> falseObject(false);

} // namespace

OrvCFNumber::OrvCFNumber(CFNumberType sizedType, Value number)
    : Object(classKind)
    , type(sizedType)
    , value(number)
{
}

bool OrvCFNumber::equals(const Object& other) const
{
    return sameNumber(value, static_cast<const OrvCFNumber&>(other).value);
}

CFHashCode OrvCFNumber::hash() const
{
    return isNan(value)
        ? 0
        : std::visit([](auto number) { return std::hash<decltype(number)>()(number); }, canonical(value));
}

bool OrvCFBoolean::equals(const Object& other) const
{
    return value == static_cast<const OrvCFBoolean&>(other).value;
}

CFHashCode OrvCFBoolean::hash() const
{
    return value;
}

CFTypeID CFNumberGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::number);
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value)
{
    const auto sized = sizedType(type);
    if (!sized)
        return nullptr;
    if (value == nullptr)
        rejectArgument(__func__, "NULL");
    return orNull(
        [&] { return new OrvCFNumber(*sized, withType(*sized, [&](auto zero) { return loaded(value, zero); })); });
}

CFNumberType CFNumberGetType(CFNumberRef number)
{
    return checked(number, __func__).type;
}

Boolean CFNumberIsFloatType(CFNumberRef number)
{
    return checked(number, __func__).isReal();
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
{
    const Value& held = checked(number, __func__).value;
    const auto sized = sizedType(type);
    return sized && withType(*sized, [&](auto zero) { return store<decltype(zero)>(held, value); });
}

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
