#include <CoreFoundation/CoreFoundation.h>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CfObjects.h"

using namespace support;

namespace {

using namespace std::string_literals;

constexpr CFRange all(CFIndex count)
{
    return {0, count};
}

Owned<CFStringRef> fromUtf8(const char* text)
{
    return Owned<CFStringRef>(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8));
}

Owned<CFStringRef> fromBytes(const std::string& bytes, CFStringEncoding encoding, bool isExternal = false)
{
    return Owned<CFStringRef>(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
        static_cast<CFIndex>(bytes.size()), encoding, isExternal));
}

std::u16string unitsOf(CFStringRef string)
{
    std::vector<UniChar> units(static_cast<size_t>(CFStringGetLength(string)));
    CFStringGetCharacters(string, all(CFStringGetLength(string)), units.data());
    return {units.begin(), units.end()};
}

/// The string in `encoding`, or "(refused)".
std::string cString(CFStringRef string, CFStringEncoding encoding = kCFStringEncodingUTF8, CFIndex capacity = 100)
{
    std::vector<char> text(100, '#');
    return CFStringGetCString(string, text.data(), capacity, encoding) ? text.data() : "(refused)";
}

Owned<CFNumberRef> newInteger(SInt64 value)
{
    return newNumber(kCFNumberSInt64Type, value);
}
Owned<CFNumberRef> newReal(double value)
{
    return newNumber(kCFNumberFloat64Type, value);
}

std::vector<CFTypeRef> valuesOf(CFArrayRef array)
{
    std::vector<CFTypeRef> values;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i)
        values.push_back(CFArrayGetValueAtIndex(array, i));
    return values;
}

Owned<CFDictionaryRef> dictionaryOf(CFTypeRef* keys, CFTypeRef* values, CFIndex count)
{
    return Owned<CFDictionaryRef>(CFDictionaryCreate(
        nullptr, keys, values, count, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// --- Every object ----------------------------------------------------------------------------------------------------

TEST(CFObject, StartsWithOneOwnerAndCountsTheOthers)
{
    const auto date = newDate();
    EXPECT_EQ(1, CFGetRetainCount(date.get()));
    EXPECT_EQ(date.get(), CFRetain(date.get()));
    EXPECT_EQ(2, CFGetRetainCount(date.get()));
    CFRelease(date.get());
    EXPECT_EQ(1, CFGetRetainCount(date.get()));
}

TEST(CFObject, HasTheTypeOfItsClass)
{
    EXPECT_EQ(CFStringGetTypeID(), CFGetTypeID(newString(u"s").get()));
    EXPECT_EQ(CFStringGetTypeID(), CFGetTypeID(CFSTR("s")));
    EXPECT_EQ(CFNumberGetTypeID(), CFGetTypeID(newInteger(1).get()));
    EXPECT_EQ(CFBooleanGetTypeID(), CFGetTypeID(kCFBooleanTrue));
    EXPECT_EQ(CFDateGetTypeID(), CFGetTypeID(newDate(0).get()));
    EXPECT_EQ(CFDataGetTypeID(), CFGetTypeID(newData("d").get()));
    EXPECT_EQ(CFArrayGetTypeID(), CFGetTypeID(newArray().get()));
    EXPECT_EQ(CFDictionaryGetTypeID(), CFGetTypeID(newDictionary().get()));
}

TEST(CFObject, IsNeverEqualToOneOfAnotherType)
{
    const auto date = newDate(1);
    const auto array = newArray();
    const auto dictionary = newDictionary();
    const std::vector<CFTypeRef> objects{CFSTR("1"), kCFBooleanTrue, date.get(), array.get(), dictionary.get()};
    for (const CFTypeRef object : objects) {
        EXPECT_FALSE(CFEqual(newInteger(1).get(), object));
        EXPECT_FALSE(CFEqual(object, newInteger(1).get()));
    }
}

TEST(CFObject, CountsItsOwnersFromManyThreads)
{
    const auto date = newDate();
    const auto array = newArray({date.get()});
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                CFRetain(date.get());
                const Owned<CFArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, array.get()));
                CFRelease(date.get());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2, CFGetRetainCount(date.get()));
}

TEST(CFObject, IsReleasedFromAnyDepthWithoutDepthOfStack)
{
    auto outer = newArray();
    for (int depth = 0; depth < 1000000; ++depth)
        outer = newArray({outer.get()});
    const auto innermost = newDate();
    auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("k"), innermost.get());
    for (int depth = 0; depth < 100000; ++depth) {
        auto next = newDictionary();
        CFDictionarySetValue(next.get(), CFSTR("k"), dictionary.get());
        dictionary = std::move(next);
    }
    outer.reset();
    dictionary.reset();
    EXPECT_EQ(1, CFGetRetainCount(innermost.get()));
}

TEST(CFObjectDeathTest, EndsTheProcessWhenNullIsHandedIn)
{
    EXPECT_DEATH(CFRelease(nullptr), "");
    EXPECT_DEATH(CFRetain(nullptr), "");
    EXPECT_DEATH(CFDataGetLength(nullptr), "");
    EXPECT_DEATH(CFEqual(kCFBooleanTrue, nullptr), "");
    EXPECT_DEATH(CFArrayAppendValue(newArray().get(), nullptr), "");
    EXPECT_DEATH(CFDictionarySetValue(newDictionary().get(), CFSTR("k"), nullptr), "");
}

TEST(CFObjectDeathTest, EndsTheProcessWhenAnotherTypeOrRangeIsHandedIn)
{
    const auto array = newArray({kCFBooleanTrue});
    const auto* notDictionary = static_cast<CFDictionaryRef>(static_cast<CFTypeRef>(array.get()));
    EXPECT_DEATH(CFDictionaryCreateMutableCopy(nullptr, 0, notDictionary), "");
    EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), 1), "");
    EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), -1), "");
    EXPECT_DEATH(CFArrayRemoveValueAtIndex(array.get(), 1), "");
}

TEST(CFObjectDeathTest, EndsTheProcessWhenAnImmutableContainerIsChanged)
{
    CFTypeRef values[] = {CFSTR("a"), CFSTR("b")};
    const Owned<CFPropertyListRef> array(
        CFPropertyListCreateDeepCopy(nullptr, newArray({values[0]}).get(), kCFPropertyListImmutable));
    const auto dictionary = dictionaryOf(values, values, 2);
    const auto changedArray = static_cast<CFMutableArrayRef>(const_cast<void*>(array.get()));
    const auto changedDictionary = const_cast<CFMutableDictionaryRef>(dictionary.get());
    EXPECT_DEATH(CFArrayAppendValue(changedArray, values[0]), ".");
    EXPECT_DEATH(CFArrayRemoveValueAtIndex(changedArray, 0), ".");
    EXPECT_DEATH(CFDictionarySetValue(changedDictionary, values[0], values[1]), ".");
    EXPECT_DEATH(CFDictionaryRemoveValue(changedDictionary, values[0]), ".");
}

// --- CFString --------------------------------------------------------------------------------------------------------

TEST(CFString, TakesUtf8OfEveryLength)
{
    const std::u16string units = u"\u0001a\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff";
    const char* utf8
        = "\x01"
          "a\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf";
    EXPECT_EQ(units, unitsOf(fromUtf8(utf8).get()));
    EXPECT_EQ(utf8, cString(newString(units).get()));
}

TEST(CFString, RefusesWhatIsNotUtf8)
{
    for (const std::string& bad :
        {"\x80"s, "\xbf"s, "\xc0\x80"s, "\xc1\xbf"s, "\xc3"s, "\xc3("s, "\xc3\xc3"s, "\xe2\xc2\x80"s, "\xe0\x80\x80"s,
            "\xe0\x9f\xbf"s, "\xe2\x82"s, "\xe2(\xa1"s, "\xed\xa0\x80"s, "\xed\xbf\xbf"s, "\xf0\x80\x80\x80"s,
            "\xf0\x8f\xbf\xbf"s, "\xf0\x9f\x98"s, "\xf4\x90\x80\x80"s, "\xf5\x80\x80\x80"s, "\xff"s})
        EXPECT_EQ(nullptr, fromBytes("a" + bad + "b", kCFStringEncodingUTF8)) << testing::PrintToString(bad);
}

TEST(CFString, DoesNotLookBeyondTheBytesItIsGiven)
{
    const auto* bytes = reinterpret_cast<const UInt8*>("\xf0\x9f\x98\x80");
    for (CFIndex count = 1; count < 4; ++count)
        EXPECT_EQ(nullptr, CFStringCreateWithBytes(nullptr, bytes, count, kCFStringEncodingUTF8, false));
    EXPECT_EQ(nullptr, CFStringCreateWithBytes(nullptr, bytes, -1, kCFStringEncodingUTF8, false));
}

TEST(CFString, TakesAsciiAndNothingBeyond)
{
    EXPECT_EQ(u"a\u007f"s, unitsOf(fromBytes("a\x7f", kCFStringEncodingASCII).get()));
    EXPECT_EQ(nullptr, fromBytes("caf\xc3\xa9", kCFStringEncodingASCII));
    EXPECT_EQ("abc", cString(CFSTR("abc"), kCFStringEncodingASCII));
    EXPECT_EQ("(refused)", cString(CFSTR("caf\u00e9"), kCFStringEncodingASCII));
}

TEST(CFString, RefusesUnknownEncodings)
{
    for (const CFStringEncoding encoding : {0U, 0x100U, 0x0500U, 0xffffffffU}) {
        EXPECT_EQ(nullptr, fromBytes("a", encoding));
        EXPECT_EQ(nullptr, CFStringCreateWithCString(nullptr, "a", encoding));
        EXPECT_EQ("(refused)", cString(CFSTR("a"), encoding));
    }
}

TEST(CFString, DropsOneByteOrderMarkAtTheFront)
{
    const std::string marked = "\xef\xbb\xbf"
                               "a";
    EXPECT_EQ(u"a"s, unitsOf(fromBytes(marked, kCFStringEncodingUTF8, true).get()));
    EXPECT_EQ(u"a"s, unitsOf(fromBytes(marked, kCFStringEncodingUTF8, false).get()));
    EXPECT_EQ(u"a"s, unitsOf(fromUtf8(marked.c_str()).get()));
    EXPECT_EQ(u""s, unitsOf(fromUtf8("\xef\xbb\xbf").get()));
    EXPECT_EQ(u"a\ufeff"s, unitsOf(fromUtf8("a\xef\xbb\xbf").get()));
    EXPECT_EQ(u"a"s, unitsOf(fromBytes("a", kCFStringEncodingUTF8, true).get()));
    EXPECT_EQ(u""s, unitsOf(fromBytes("", kCFStringEncodingUTF8, true).get()));
}

TEST(CFString, KeepsZeroAndUnpairedSurrogates)
{
    for (const std::u16string& units : {u"a\0b"s, u"\xd800"s, u"x\xdc00y"s, u"\xde00\xd83d"s})
        EXPECT_EQ(units, unitsOf(newString(units).get()));
    EXPECT_EQ(3, CFStringGetLength(fromBytes("a\0b"s, kCFStringEncodingUTF8).get()));
}

TEST(CFString, CannotBeConvertedToUtf8WithAnUnpairedSurrogate)
{
    for (const std::u16string& units : {u"\xd800"s, u"a\xd800"s, u"\xd800z"s, u"\xdc00"s, u"\xd83d\xd83d\xde00"s})
        EXPECT_EQ("(refused)", cString(newString(units).get()));
}

TEST(CFString, NeedsRoomForTheZeroByte)
{
    char text[4] = "???";
    EXPECT_FALSE(CFStringGetCString(CFSTR("abc"), text, 3, kCFStringEncodingUTF8));
    EXPECT_STREQ("", text);
    EXPECT_TRUE(CFStringGetCString(CFSTR("abc"), text, 4, kCFStringEncodingUTF8));
    EXPECT_STREQ("abc", text);
    EXPECT_FALSE(CFStringGetCString(CFSTR(""), text, 0, kCFStringEncodingUTF8));
    EXPECT_STREQ("abc", text);
}

TEST(CFString, GivesTheUnitsOfARange)
{
    UniChar units[3] = {0, 0, 7};
    CFStringGetCharacters(CFSTR("abcd"), CFRangeMake(1, 2), units);
    EXPECT_EQ('b', units[0]);
    EXPECT_EQ('c', units[1]);
    EXPECT_EQ(7, units[2]);
}

TEST(CFString, IsEqualByItsUnits)
{
    EXPECT_TRUE(CFEqual(CFSTR("caf\u00e9"), fromUtf8("caf\xc3\xa9").get()));
    EXPECT_EQ(CFHash(CFSTR("caf\u00e9")), CFHash(fromUtf8("caf\xc3\xa9").get()));
    EXPECT_FALSE(CFEqual(CFSTR("caf\u00e9"), CFSTR("cafe\u0301")));
    EXPECT_FALSE(CFEqual(newString(u"a\0b"s).get(), newString(u"a\0c"s).get()));
    EXPECT_FALSE(CFEqual(CFSTR("a"), CFSTR("ab")));
}

CFStringRef constantOfOnePlace()
{
    return CFSTR("constant \u00e9");
}

TEST(CFString, IsTheSameConstantEachTimeAndOutlivesEveryRelease)
{
    const CFStringRef constant = constantOfOnePlace();
    for (int i = 0; i < 3; ++i)
        CFRelease(constant);
    for (int i = 0; i < 3; ++i)
        CFRetain(constant);
    EXPECT_EQ(constant, constantOfOnePlace());
    EXPECT_EQ("constant \xc3\xa9", cString(constantOfOnePlace()));
}

TEST(CFString, IsMadeOnceByManyThreadsAsAConstant)
{
    std::vector<CFStringRef> seen(8);
    std::vector<std::thread> threads;
    for (CFStringRef& place : seen)
        threads.emplace_back([&place] { place = constantOfOnePlace(); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<CFStringRef>(8, constantOfOnePlace()), seen);
}

// --- CFNumber and CFBoolean ------------------------------------------------------------------------------------------

TEST(CFNumber, IsStoredUnderTheTypeOfItsSize)
{
    EXPECT_EQ(kCFNumberSInt8Type, CFNumberGetType(newNumber(kCFNumberCharType, char(1)).get()));
    EXPECT_EQ(kCFNumberSInt16Type, CFNumberGetType(newNumber(kCFNumberShortType, short(1)).get()));
    EXPECT_EQ(kCFNumberSInt32Type, CFNumberGetType(newNumber(kCFNumberIntType, 1).get()));
    EXPECT_EQ(kCFNumberSInt64Type, CFNumberGetType(newNumber(kCFNumberLongType, 1L).get()));
    EXPECT_EQ(kCFNumberSInt64Type, CFNumberGetType(newNumber(kCFNumberLongLongType, 1LL).get()));
    EXPECT_EQ(kCFNumberSInt64Type, CFNumberGetType(newNumber(kCFNumberCFIndexType, CFIndex(1)).get()));
    EXPECT_EQ(kCFNumberFloat32Type, CFNumberGetType(newNumber(kCFNumberFloatType, 1.0f).get()));
    EXPECT_EQ(kCFNumberFloat64Type, CFNumberGetType(newNumber(kCFNumberDoubleType, 1.0).get()));
    for (const auto type : {kCFNumberSInt8Type, kCFNumberSInt16Type, kCFNumberSInt32Type, kCFNumberSInt64Type,
             kCFNumberFloat32Type, kCFNumberFloat64Type})
        EXPECT_EQ(type, CFNumberGetType(newNumber(type, SInt64(0)).get()));
}

TEST(CFNumber, IsARealByItsTypeNotItsValue)
{
    EXPECT_TRUE(CFNumberIsFloatType(newReal(1.0).get()));
    EXPECT_TRUE(CFNumberIsFloatType(newNumber(kCFNumberFloatType, 1.0f).get()));
    EXPECT_FALSE(CFNumberIsFloatType(newInteger(1).get()));
}

TEST(CFNumber, IsNotMadeFromAnUnknownType)
{
    for (const int number : {-1, 0, 17, 100})
        EXPECT_EQ(nullptr, newNumber(static_cast<CFNumberType>(number), SInt64(1)));
    SInt64 value = 7;
    EXPECT_FALSE(CFNumberGetValue(newInteger(1).get(), static_cast<CFNumberType>(17), &value));
    EXPECT_EQ(7, value);
}

/// The number as a T, and whether that is exact.
template <class T> std::pair<T, bool> valueOf(CFNumberRef number, CFNumberType type)
{
    T value = 99;
    const bool exact = CFNumberGetValue(number, type, &value);
    return {value, exact};
}

template <class T> std::pair<T, bool> exactly(T value)
{
    return {value, true};
}

template <class T> std::pair<T, bool> nearly(T value)
{
    return {value, false};
}

TEST(CFNumber, GivesAnIntegerAsAnyTypeThatCanHoldIt)
{
    const auto number = newInteger(-100);
    EXPECT_EQ(exactly<SInt8>(-100), valueOf<SInt8>(number.get(), kCFNumberSInt8Type));
    EXPECT_EQ(exactly<SInt16>(-100), valueOf<SInt16>(number.get(), kCFNumberSInt16Type));
    EXPECT_EQ(exactly<SInt32>(-100), valueOf<SInt32>(number.get(), kCFNumberSInt32Type));
    EXPECT_EQ(exactly<SInt64>(-100), valueOf<SInt64>(number.get(), kCFNumberSInt64Type));
    EXPECT_EQ(exactly<float>(-100), valueOf<float>(number.get(), kCFNumberFloat32Type));
    EXPECT_EQ(exactly<double>(-100), valueOf<double>(number.get(), kCFNumberFloat64Type));
    EXPECT_EQ(exactly<char>(-100), valueOf<char>(number.get(), kCFNumberCharType));
    EXPECT_EQ(exactly<short>(-100), valueOf<short>(number.get(), kCFNumberShortType));
    EXPECT_EQ(exactly<int>(-100), valueOf<int>(number.get(), kCFNumberIntType));
    EXPECT_EQ(exactly<long>(-100), valueOf<long>(number.get(), kCFNumberLongType));
    EXPECT_EQ(exactly<long long>(-100), valueOf<long long>(number.get(), kCFNumberLongLongType));
    EXPECT_EQ(exactly<CFIndex>(-100), valueOf<CFIndex>(number.get(), kCFNumberCFIndexType));
}

/// Whether the number has a T that is exactly it.
template <class T> bool fits(CFNumberRef number, CFNumberType type)
{
    return valueOf<T>(number, type).second;
}

TEST(CFNumber, ReportsThatAnIntegerDoesNotFit)
{
    EXPECT_FALSE(fits<SInt8>(newInteger(128).get(), kCFNumberSInt8Type));
    EXPECT_FALSE(fits<SInt8>(newInteger(-129).get(), kCFNumberSInt8Type));
    EXPECT_FALSE(fits<SInt32>(newInteger(INT64_MAX).get(), kCFNumberSInt32Type));
    EXPECT_EQ(nearly(9223372036854775808.0), valueOf<double>(newInteger(INT64_MAX).get(), kCFNumberDoubleType));
    EXPECT_EQ(exactly(-9223372036854775808.0), valueOf<double>(newInteger(INT64_MIN).get(), kCFNumberDoubleType));
    EXPECT_EQ(nearly(16777216.0f), valueOf<float>(newInteger(16777217).get(), kCFNumberFloatType));
}

TEST(CFNumber, GivesARealAsAnIntegerWithoutItsFraction)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(exactly<SInt32>(3), valueOf<SInt32>(newReal(3).get(), kCFNumberSInt32Type));
    EXPECT_EQ(nearly<SInt32>(3), valueOf<SInt32>(newReal(3.9).get(), kCFNumberSInt32Type));
    EXPECT_EQ(nearly<SInt32>(-3), valueOf<SInt32>(newReal(-3.9).get(), kCFNumberSInt32Type));
    EXPECT_EQ(exactly<SInt32>(0), valueOf<SInt32>(newReal(-0.0).get(), kCFNumberSInt32Type));
    EXPECT_EQ(exactly<SInt64>(INT64_MIN), valueOf<SInt64>(newReal(-0x1p63).get(), kCFNumberSInt64Type));
    EXPECT_FALSE(fits<SInt8>(newReal(300).get(), kCFNumberSInt8Type));
    for (const double large : {0x1p63, 1e300, infinity, -infinity, std::nan("")})
        EXPECT_FALSE(fits<SInt64>(newReal(large).get(), kCFNumberSInt64Type)) << large;
}

TEST(CFNumber, GivesARealAsAFloatIfThatIsExact)
{
    EXPECT_EQ(exactly(0.5f), valueOf<float>(newReal(0.5).get(), kCFNumberFloatType));
    EXPECT_EQ(nearly(0.1f), valueOf<float>(newReal(0.1).get(), kCFNumberFloatType));
    EXPECT_EQ(exactly(double(0.1f)), valueOf<double>(newNumber(kCFNumberFloatType, 0.1f).get(), kCFNumberDoubleType));
    float nan = 0;
    EXPECT_TRUE(CFNumberGetValue(newReal(std::nan("")).get(), kCFNumberFloatType, &nan));
    EXPECT_TRUE(std::isnan(nan));
}

void expectEqual(CFTypeRef left, CFTypeRef right)
{
    EXPECT_TRUE(CFEqual(left, right));
    EXPECT_TRUE(CFEqual(right, left));
    EXPECT_EQ(CFHash(left), CFHash(right));
}

TEST(CFNumber, IsEqualByValueWhateverItsTypes)
{
    const auto one = newNumber(kCFNumberSInt8Type, SInt8(1));
    expectEqual(one.get(), newInteger(1).get());
    expectEqual(one.get(), newReal(1.0).get());
    expectEqual(newNumber(kCFNumberFloatType, 1.0f).get(), newReal(1.0).get());
    expectEqual(newInteger(INT64_MIN).get(), newReal(-0x1p63).get());
    expectEqual(newReal(0.5).get(), newNumber(kCFNumberFloatType, 0.5f).get());
    expectEqual(newReal(std::nan("1")).get(), newReal(-std::nan("2")).get());
}

TEST(CFNumber, IsNotEqualWhenTheValueDiffersHoweverLittle)
{
    EXPECT_FALSE(CFEqual(newInteger(1).get(), newInteger(2).get()));
    EXPECT_FALSE(CFEqual(newInteger(1).get(), newReal(1.5).get()));
    EXPECT_FALSE(CFEqual(newInteger(INT64_MAX).get(), newReal(0x1p63).get()));
    EXPECT_FALSE(CFEqual(newInteger(INT64_MIN).get(), newReal(0x1p63).get()));
    EXPECT_FALSE(CFEqual(newInteger(9007199254740993).get(), newReal(9007199254740992.0).get()));
    EXPECT_FALSE(CFEqual(newReal(0.0).get(), newReal(-0.0).get()));
    EXPECT_FALSE(CFEqual(newReal(0.0).get(), newReal(std::nan("")).get()));
}

TEST(CFBoolean, IsTrueOrFalseAndNoNumber)
{
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, newInteger(1).get()));
    CFRelease(kCFBooleanTrue);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

// --- CFDate and CFData -----------------------------------------------------------------------------------------------

TEST(CFDate, KeepsItsSeconds)
{
    const auto date = newDate(475145103.75);
    EXPECT_EQ(475145103.75, CFDateGetAbsoluteTime(date.get()));
    expectEqual(date.get(), newDate(475145103.75).get());
    EXPECT_FALSE(CFEqual(date.get(), newDate(475145103.5).get()));
}

TEST(CFData, IsACopyOfTheBytes)
{
    UInt8 bytes[] = {1, 2, 0, 4};
    const Owned<CFDataRef> data(CFDataCreate(nullptr, bytes, 4));
    bytes[0] = 9;
    UInt8 out[4] = {7, 7, 7, 7};
    CFDataGetBytes(data.get(), CFRangeMake(0, 2), out);
    EXPECT_EQ(4, CFDataGetLength(data.get()));
    EXPECT_EQ(1, CFDataGetBytePtr(data.get())[0]);
    EXPECT_EQ(std::vector<UInt8>({1, 2, 7, 7}), std::vector<UInt8>(out, out + 4));
    CFDataGetBytes(data.get(), CFRangeMake(3, 1), out);
    EXPECT_EQ(4, out[0]);
}

TEST(CFData, MayBeEmpty)
{
    const Owned<CFDataRef> data(CFDataCreate(nullptr, nullptr, 0));
    ASSERT_NE(nullptr, data);
    EXPECT_EQ(0, CFDataGetLength(data.get()));
    CFDataGetBytes(data.get(), CFRangeMake(0, 0), nullptr);
    expectEqual(data.get(), newData("").get());
}

TEST(CFData, IsEqualByItsBytes)
{
    const auto data = newData("a\0b"s);
    expectEqual(data.get(), newData("a\0b"s).get());
    EXPECT_FALSE(CFEqual(data.get(), newData("a\0c"s).get()));
    EXPECT_FALSE(CFEqual(data.get(), newData("a\0"s).get()));
}

TEST(CFData, IsNotMadeFromNullOrANegativeCount)
{
    const UInt8 byte = 0;
    EXPECT_EQ(nullptr, CFDataCreate(nullptr, nullptr, 1));
    EXPECT_EQ(nullptr, CFDataCreate(nullptr, &byte, -1));
}

// --- CFArray ---------------------------------------------------------------------------------------------------------

TEST(CFArray, RetainsWhatItHoldsUntilItIsReleased)
{
    const auto date = newDate();
    auto array = newArray({date.get(), date.get()});
    EXPECT_EQ(3, CFGetRetainCount(date.get()));
    CFArrayRemoveValueAtIndex(array.get(), 0);
    EXPECT_EQ(2, CFGetRetainCount(date.get()));
    array.reset();
    EXPECT_EQ(1, CFGetRetainCount(date.get()));
}

TEST(CFArray, GrowsAtItsEndAndShrinksAnywhere)
{
    const CFStringRef a = CFSTR("a");
    const CFStringRef b = CFSTR("b");
    const CFStringRef c = CFSTR("c");
    const auto array = newArray({a, b});
    CFArrayAppendValue(array.get(), c);
    EXPECT_EQ((std::vector<CFTypeRef>{a, b, c}), valuesOf(array.get()));
    CFArrayRemoveValueAtIndex(array.get(), 1);
    EXPECT_EQ((std::vector<CFTypeRef>{a, c}), valuesOf(array.get()));
}

TEST(CFArray, IsEqualByItsValuesInOrder)
{
    const auto array = newArray({newInteger(1).get(), CFSTR("x")});
    expectEqual(array.get(), newArray({newReal(1.0).get(), CFSTR("x")}).get());
    EXPECT_FALSE(CFEqual(array.get(), newArray({CFSTR("x"), newInteger(1).get()}).get()));
    EXPECT_FALSE(CFEqual(array.get(), newArray({newInteger(1).get()}).get()));
    expectEqual(newArray().get(), newArray().get());
}

TEST(CFArray, IsCopiedShallowly)
{
    const auto date = newDate();
    const auto array = newArray({date.get()});
    const Owned<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, array.get()));
    EXPECT_EQ(3, CFGetRetainCount(date.get()));
    CFArrayAppendValue(copy.get(), kCFBooleanTrue);
    EXPECT_EQ((std::vector<CFTypeRef>{date.get()}), valuesOf(array.get()));
    EXPECT_EQ((std::vector<CFTypeRef>{date.get(), kCFBooleanTrue}), valuesOf(copy.get()));
}

// --- CFDictionary ----------------------------------------------------------------------------------------------------

TEST(CFDictionary, RetainsKeysAndValuesUntilItIsReleased)
{
    const auto key = newString(u"k");
    const auto value = newDate();
    auto dictionary = newDictionary();
    const auto counts = [&] { return std::pair(CFGetRetainCount(key.get()), CFGetRetainCount(value.get())); };
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    EXPECT_EQ(std::pair(2L, 2L), counts());
    CFDictionarySetValue(dictionary.get(), key.get(), kCFBooleanTrue);
    EXPECT_EQ(std::pair(2L, 1L), counts());
    CFDictionaryRemoveValue(dictionary.get(), key.get());
    EXPECT_EQ(std::pair(1L, 1L), counts());
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    dictionary.reset();
    EXPECT_EQ(std::pair(1L, 1L), counts());
}

TEST(CFDictionary, FindsValuesByEqualKeys)
{
    const auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), kCFBooleanTrue);
    CFDictionarySetValue(dictionary.get(), newInteger(1).get(), kCFBooleanFalse);
    EXPECT_EQ(kCFBooleanTrue, CFDictionaryGetValue(dictionary.get(), newString(u"a").get()));
    EXPECT_EQ(kCFBooleanFalse, CFDictionaryGetValue(dictionary.get(), newReal(1.0).get()));
    EXPECT_EQ(nullptr, CFDictionaryGetValue(dictionary.get(), CFSTR("b")));
}

TEST(CFDictionary, ReplacesTheValueOfAnEqualKey)
{
    const auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("k"), CFSTR("set"));
    CFDictionarySetValue(dictionary.get(), newString(u"k").get(), CFSTR("set again"));
    EXPECT_TRUE(CFEqual(CFSTR("set again"), CFDictionaryGetValue(dictionary.get(), CFSTR("k"))));
    EXPECT_EQ(1, CFDictionaryGetCount(dictionary.get()));
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("other"));
    EXPECT_EQ(1, CFDictionaryGetCount(dictionary.get()));
}

TEST(CFDictionary, KeepsTheFirstOfEqualKeysWhenAValueIsSet)
{
    const auto first = newString(u"k");
    const auto second = newString(u"k");
    const auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), first.get(), kCFBooleanTrue);
    CFDictionarySetValue(dictionary.get(), second.get(), kCFBooleanFalse);
    EXPECT_EQ(2, CFGetRetainCount(first.get()));
    EXPECT_EQ(1, CFGetRetainCount(second.get()));
}

TEST(CFDictionary, MayReplaceAValueByItselfWhenItIsTheOnlyOwner)
{
    const auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("k"), newDate().get());
    CFDictionarySetValue(dictionary.get(), CFSTR("k"), CFDictionaryGetValue(dictionary.get(), CFSTR("k")));
    EXPECT_EQ(1, CFGetRetainCount(CFDictionaryGetValue(dictionary.get(), CFSTR("k"))));
}

TEST(CFDictionary, GivesKeysAndValuesInTheSameOrder)
{
    const auto dictionary = newDictionary();
    for (SInt64 i = 0; i < 100; ++i)
        CFDictionarySetValue(dictionary.get(), newInteger(i).get(), newInteger(i).get());
    std::vector<const void*> keys(100);
    std::vector<const void*> values(100);
    CFDictionaryGetKeysAndValues(dictionary.get(), keys.data(), values.data());
    for (size_t i = 0; i < 100; ++i)
        EXPECT_TRUE(CFEqual(keys[i], values[i]));
    std::vector<const void*> only(100);
    CFDictionaryGetKeysAndValues(dictionary.get(), only.data(), nullptr);
    EXPECT_EQ(keys, only);
    CFDictionaryGetKeysAndValues(dictionary.get(), nullptr, only.data());
    EXPECT_EQ(values, only);
}

TEST(CFDictionary, AppliesAFunctionToEachPair)
{
    const auto dictionary = newDictionary();
    for (SInt64 i = 1; i <= 4; ++i)
        CFDictionarySetValue(dictionary.get(), newInteger(i).get(), newInteger(i).get());
    SInt64 sum = 0;
    CFDictionaryApplyFunction(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
            SInt64 number = 0;
            EXPECT_TRUE(CFEqual(key, value));
            EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number));
            *static_cast<SInt64*>(context) += number;
        },
        &sum);
    EXPECT_EQ(10, sum);
}

TEST(CFDictionary, IsMadeOfPairsAndTakesTheFirstOfEqualKeys)
{
    CFTypeRef keys[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")};
    CFTypeRef values[] = {CFSTR("1"), CFSTR("2"), CFSTR("3")};
    const auto dictionary = dictionaryOf(keys, values, 3);
    EXPECT_EQ(2, CFDictionaryGetCount(dictionary.get()));
    EXPECT_EQ(values[0], CFDictionaryGetValue(dictionary.get(), keys[0]));
}

TEST(CFDictionary, IsNotMadeFromNullOrANegativeCount)
{
    CFTypeRef key = CFSTR("a");
    EXPECT_EQ(nullptr, dictionaryOf(nullptr, &key, 1));
    EXPECT_EQ(nullptr, dictionaryOf(&key, nullptr, 1));
    EXPECT_EQ(nullptr, dictionaryOf(&key, &key, -1));
    EXPECT_EQ(0, CFDictionaryGetCount(dictionaryOf(nullptr, nullptr, 0).get()));
}

TEST(CFDictionary, IsEqualByItsPairsWhateverTheirOrder)
{
    const auto forwards = newDictionary();
    const auto backwards = newDictionary();
    for (SInt64 i = 0; i < 50; ++i) {
        CFDictionarySetValue(forwards.get(), newInteger(i).get(), newInteger(-i).get());
        CFDictionarySetValue(backwards.get(), newInteger(49 - i).get(), newReal(static_cast<double>(i - 49)).get());
    }
    CFDictionarySetValue(backwards.get(), newInteger(0).get(), newInteger(0).get()); // -0.0 it was
    expectEqual(forwards.get(), backwards.get());
    CFDictionarySetValue(backwards.get(), newInteger(7).get(), CFSTR("other"));
    EXPECT_FALSE(CFEqual(forwards.get(), backwards.get()));
    CFDictionaryRemoveValue(backwards.get(), newInteger(7).get());
    EXPECT_FALSE(CFEqual(forwards.get(), backwards.get()));
    EXPECT_FALSE(CFEqual(backwards.get(), forwards.get()));
}

TEST(CFDictionary, IsCopiedShallowlyAndWithoutALimit)
{
    const auto key = newString(u"k");
    const auto value = newArray();
    const auto dictionary = newDictionary();
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    const Owned<CFMutableDictionaryRef> copy(CFDictionaryCreateMutableCopy(nullptr, 0, dictionary.get()));
    EXPECT_EQ(3, CFGetRetainCount(key.get()));
    EXPECT_EQ(3, CFGetRetainCount(value.get()));
    EXPECT_EQ(value.get(), CFDictionaryGetValue(copy.get(), key.get()));
    for (SInt64 i = 0; i < 1000; ++i)
        CFDictionarySetValue(copy.get(), newInteger(i).get(), kCFBooleanTrue);
    EXPECT_EQ(1, CFDictionaryGetCount(dictionary.get()));
    EXPECT_EQ(1001, CFDictionaryGetCount(copy.get()));
}

} // namespace
