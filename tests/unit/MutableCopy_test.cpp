#include "MutableCopy.h"

#include <CoreFoundation/CoreFoundation.h>
#include <cstddef>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "CfObjects.h"

using namespace support;

namespace {

// An array of `count` times the same object.
Owned<CFMutableArrayRef> repeated(CFTypeRef object, std::size_t count)
{
    return newArray(std::vector<CFTypeRef>(count, object));
}

TEST(MutableCopy, HasNewContainers)
{
    const auto inner = repeated(kCFBooleanTrue, 2);
    const auto outer = newDictionary();
    CFDictionarySetValue(outer.get(), CFSTR("inner"), inner.get());
    const auto copy = orv::mutableCopy(outer.get());
    ASSERT_NE(nullptr, copy);
    EXPECT_TRUE(CFEqual(outer.get(), copy.get()));
    const void* innerCopy = CFDictionaryGetValue(static_cast<CFDictionaryRef>(copy.get()), CFSTR("inner"));
    EXPECT_NE(inner.get(), innerCopy);
    CFArrayAppendValue(static_cast<CFMutableArrayRef>(const_cast<void*>(innerCopy)), kCFBooleanFalse);
    EXPECT_EQ(2, CFArrayGetCount(inner.get()));
}

TEST(MutableCopy, OfALeafIsALeaf)
{
    EXPECT_EQ(kCFBooleanTrue, orv::mutableCopy(kCFBooleanTrue).get());
}

TEST(MutableCopy, TakesAMillionObjectsAndNoMore)
{
    const auto thousand = repeated(kCFBooleanTrue, 1000);
    EXPECT_NE(nullptr, orv::mutableCopy(repeated(thousand.get(), 1000).get()));
    EXPECT_EQ(nullptr, orv::mutableCopy(repeated(thousand.get(), 1100).get()));
}

TEST(MutableCopy, IsNotTriedOfArraysThatAreSharedManyTimesOver)
{
    auto list = newArray();
    for (int level = 0; level < 60; ++level) // 2^60 arrays
        list = repeated(list.get(), 2);
    EXPECT_EQ(nullptr, orv::mutableCopy(list.get()));
}

TEST(MutableCopy, IsNotTriedOfDictionariesThatAreSharedManyTimesOver)
{
    auto list = newDictionary();
    for (int level = 0; level < 60; ++level) {
        auto outer = newDictionary();
        CFDictionarySetValue(outer.get(), CFSTR("a"), list.get());
        CFDictionarySetValue(outer.get(), CFSTR("b"), list.get());
        list = std::move(outer);
    }
    EXPECT_EQ(nullptr, orv::mutableCopy(list.get()));
}

} // namespace
