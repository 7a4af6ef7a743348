// What the stand-in for CoreFoundation does when memory runs out. This program's operator new fails when told to, and
// so does what the XML parser allocates with.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "CfObjects.h"

using namespace support;

namespace {

/// How many more allocations this thread gets; negative: as many as it wants.
thread_local long gAllocationsLeft = -1;

void* allocate(std::size_t size)
{
    if (gAllocationsLeft == 0)
        throw std::bad_alloc();
    if (gAllocationsLeft > 0)
        --gAllocationsLeft;
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size)
{
    return allocate(size);
}
void* operator new[](std::size_t size)
{
    return allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

const bool gParserCounts = [] {
    const auto allocateOrNot = [](std::size_t size) -> void* {
        try {
            return allocate(size);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    };
    pugi::set_memory_management_functions(allocateOrNot, std::free);
    return true;
}();

/// What `make` returns when it gets no more than `count` allocations.
template <class Make> auto withAllocations(long count, Make make)
{
    gAllocationsLeft = count;
    auto made = make();
    gAllocationsLeft = -1;
    return made;
}

/// How often `create` gave NULL when its first allocation failed, its second, ... until it got through.
template <class Create> long failuresOf(Create create)
{
    for (long count = 0; count < 1000; ++count)
        if (const auto* object = withAllocations(count, create)) {
            CFRelease(object);
            return count;
        }
    ADD_FAILURE() << "never got through";
    return 0;
}

/// A list of every kind of object, long enough that nothing fits where strings and tables keep a few elements in place.
const char listXml[]
    = "<dict><key>a key that is too long to be kept in place</key><array><string>text</string><integer>1"
      "</integer><real>0.5</real><true/><date>2001-01-01T00:00:00Z</date><data>AQID</data></array>"
      "<key>k2</key><dict><key>CF$UID</key><integer>18446744073709551615</integer></dict></dict>";

CFTypeRef read(CFDataRef data)
{
    return CFPropertyListCreateWithData(nullptr, data, kCFPropertyListMutableContainers, nullptr, nullptr);
}

CFDataRef written(CFTypeRef list)
{
    return CFPropertyListCreateData(nullptr, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr);
}

TEST(CFMemory, GivesNullForObjectsThatCannotBeMade)
{
    const UniChar units[30] = {'a'};
    const double number = 0.5;
    const UInt8 bytes[30] = {1};
    EXPECT_GT(failuresOf([] { return CFStringCreateWithCString(nullptr, "text", kCFStringEncodingUTF8); }), 0);
    EXPECT_GT(failuresOf([&] { return CFStringCreateWithCharacters(nullptr, units, 30); }), 1);
    EXPECT_GT(failuresOf([&] { return CFNumberCreate(nullptr, kCFNumberDoubleType, &number); }), 0);
    EXPECT_GT(failuresOf([] { return CFDateCreate(nullptr, 1); }), 0);
    EXPECT_GT(failuresOf([&] { return CFDataCreate(nullptr, bytes, 30); }), 1);
}

TEST(CFMemory, GivesNullForContainersThatCannotBeMade)
{
    CFTypeRef values[] = {CFSTR("a"), CFSTR("b"), CFSTR("c")};
    EXPECT_GT(failuresOf([] { return CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks); }), 0);
    EXPECT_GT(failuresOf([&] {
        return CFDictionaryCreate(
            nullptr, values, values, 3, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    }),
        3);
    EXPECT_GT(failuresOf([] {
        return CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    }),
        0);
}

TEST(CFMemory, GivesNullForCopiesThatCannotBeMadeAndLeavesTheOriginalAlone)
{
    const Owned<CFDictionaryRef> list(static_cast<CFDictionaryRef>(read(newData(listXml).get())));
    const auto array = static_cast<CFArrayRef>(
        CFDictionaryGetValue(list.get(), CFSTR("a key that is too long to be kept in place")));
    EXPECT_GT(failuresOf([&] { return CFDictionaryCreateMutableCopy(nullptr, 0, list.get()); }), 2);
    EXPECT_GT(failuresOf([&] { return CFArrayCreateMutableCopy(nullptr, 0, array); }), 1);
    EXPECT_GT(
        failuresOf([&] { return CFPropertyListCreateDeepCopy(nullptr, list.get(), kCFPropertyListMutableContainers); }),
        5);
    EXPECT_EQ(1, CFGetRetainCount(array));
    EXPECT_EQ(1, CFGetRetainCount(CFArrayGetValueAtIndex(array, 0)));
}

/// A binary list of every kind of object: a dictionary of an array of the others.
std::string binaryList()
{
    const std::vector<std::string> objects{"\xd1\x01\x02", "\x5f\x10\025a key too long to be.",
        "\xa7\x03\x04\x05\x06\x07\x08\x09", "\x68" + std::string(16, 'u'), "\x10\x01", "\x22" + std::string(4, '\0'),
        "\x09", "\x33" + std::string(8, '\0'), "\103abc", "\x80\x05"};
    std::string list = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(list.size());
        list += object;
    }
    const auto number = [](std::size_t value) { return std::string(7, '\0') + static_cast<char>(value); };
    return list + offsets + std::string(6, '\0') + "\x01\x01" + number(objects.size()) + number(0)
        + number(list.size());
}

TEST(CFMemory, GivesNullForListsThatCannotBeRead)
{
    const auto xml = newData(listXml);
    const auto binary = newData(binaryList());
    EXPECT_TRUE(gParserCounts);
    EXPECT_GT(failuresOf([&] { return read(xml.get()); }), 15);
    EXPECT_GT(failuresOf([&] { return read(binary.get()); }), 10);
}

TEST(CFMemory, GivesNullForListsThatCannotBeWritten)
{
    const Owned<CFTypeRef> list(read(newData(listXml).get()));
    EXPECT_GT(failuresOf([&] { return written(list.get()); }), 4);
}

TEST(CFMemory, GivesNoErrorObjectThatCannotBeMade)
{
    const auto data = newData("");
    CFErrorRef error = nullptr;
    withAllocations(0, [&] { return CFPropertyListCreateWithData(nullptr, data.get(), 0, nullptr, &error); });
    EXPECT_EQ(nullptr, error);
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(nullptr, data.get(), 0, nullptr, &error));
    ASSERT_NE(nullptr, error);
    CFRelease(error);
}

TEST(CFMemory, LeavesAnArrayAsItWasWhenItCannotGrow)
{
    const auto array = newArray();
    const auto date = newDate();
    for (CFIndex count = 0; count < 3; ++count) { // with 0, 1 and 2 values it has no room for another
        withAllocations(0, [&] {
            CFArrayAppendValue(array.get(), date.get());
            return 0;
        });
        EXPECT_EQ(count, CFArrayGetCount(array.get()));
        CFArrayAppendValue(array.get(), date.get());
    }
    EXPECT_EQ(4, CFGetRetainCount(date.get()));
}

TEST(CFMemory, LeavesADictionaryAsItWasWhenItCannotGrow)
{
    const auto dictionary = newDictionary();
    const auto date = newDate();
    for (long count = 0; CFDictionaryGetCount(dictionary.get()) == 0; ++count) {
        EXPECT_EQ(1, CFGetRetainCount(date.get()));
        withAllocations(count, [&] {
            CFDictionarySetValue(dictionary.get(), date.get(), date.get());
            return 0;
        });
    }
    EXPECT_EQ(3, CFGetRetainCount(date.get()));
    withAllocations(0, [&] {
        CFDictionarySetValue(dictionary.get(), date.get(), kCFBooleanTrue);
        CFDictionarySetValue(dictionary.get(), kCFBooleanTrue, kCFBooleanTrue);
        return 0;
    });
    EXPECT_EQ(kCFBooleanTrue, CFDictionaryGetValue(dictionary.get(), date.get())); // takes no memory
    EXPECT_EQ(1, CFDictionaryGetCount(dictionary.get()));
}

TEST(CFMemory, DoesNotGiveAStringForWhichThereIsNoRoom)
{
    char text[100] = "before";
    const Owned<CFStringRef> string(CFStringCreateWithCString(
        nullptr, "a text that is too long to be kept in place by the string it is made of", kCFStringEncodingUTF8));
    EXPECT_FALSE(
        withAllocations(0, [&] { return CFStringGetCString(string.get(), text, sizeof text, kCFStringEncodingUTF8); }));
    EXPECT_STREQ("", text);
}

TEST(CFMemory, IsNotNeededForConstantsOrWhatOnlyLooks)
{
    const Owned<CFTypeRef> list(read(newData(listXml).get()));
    const bool equal = withAllocations(0, [&] {
        const auto constant = CFSTR("a constant that is too long to be kept in place");
        return CFEqual(list.get(), list.get()) && CFEqual(constant, constant) && CFHash(list.get()) == 2;
    });
    EXPECT_TRUE(equal);
}

} // namespace
