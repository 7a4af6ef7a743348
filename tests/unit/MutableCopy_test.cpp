#include "CfRef.h"
#include "MutableCopy.h"

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <utility>

namespace {

using Array = orv::CfRef<CFMutableArrayRef>;
using Dictionary = orv::CfRef<CFMutableDictionaryRef>;

Array newArray()
{
    return Array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

Dictionary newDictionary()
{
    return Dictionary(
        CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// An array of `count` times the same object.
Array repeated(CFTypeRef object, CFIndex count)
{
    Array array = newArray();
    for (CFIndex i = 0; i < count; ++i)
        CFArrayAppendValue(array.get(), object);
    return array;
}

TEST(MutableCopy, HasNewContainers)
{
    const Array inner = repeated(kCFBooleanTrue, 2);
    const Dictionary outer = newDictionary();
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
    const Array thousand = repeated(kCFBooleanTrue, 1000);
    EXPECT_NE(nullptr, orv::mutableCopy(repeated(thousand.get(), 1000).get()));
    EXPECT_EQ(nullptr, orv::mutableCopy(repeated(thousand.get(), 1100).get()));
}

TEST(MutableCopy, IsNotTriedOfArraysThatAreSharedManyTimesOver)
{
    Array list = newArray();
    for (int level = 0; level < 60; ++level) // 2^60 arrays
        list = repeated(list.get(), 2);
    EXPECT_EQ(nullptr, orv::mutableCopy(list.get()));
}

TEST(MutableCopy, IsNotTriedOfDictionariesThatAreSharedManyTimesOver)
{
    Dictionary list = newDictionary();
    for (int level = 0; level < 60; ++level) {
        Dictionary outer = newDictionary();
        CFDictionarySetValue(outer.get(), CFSTR("a"), list.get());
        CFDictionarySetValue(outer.get(), CFSTR("b"), list.get());
        list = std::move(outer);
    }
    EXPECT_EQ(nullptr, orv::mutableCopy(list.get()));
}

} // namespace
