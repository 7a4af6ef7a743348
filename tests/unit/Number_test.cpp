#include "Number.h"

#include <gtest/gtest.h>

#include <climits>

using orv::toInt;

namespace {

TEST(ToInt, ReadsDecimalDigits)
{
    EXPECT_EQ(0, toInt("0"));
    EXPECT_EQ(7, toInt("7"));
    EXPECT_EQ(1234567890, toInt("1234567890"));
    EXPECT_EQ(9, toInt("0000000000000000000000009"));
}

TEST(ToInt, ReadsASign)
{
    EXPECT_EQ(-12, toInt("-12"));
    EXPECT_EQ(12, toInt("+12"));
    EXPECT_EQ(0, toInt("-"));
    EXPECT_EQ(0, toInt("+"));
    EXPECT_EQ(0, toInt("-0"));
}

TEST(ToInt, ReadsOneSignOnly)
{
    EXPECT_EQ(0, toInt("--5"));
    EXPECT_EQ(0, toInt("+-5"));
    EXPECT_EQ(0, toInt("-+5"));
    EXPECT_EQ(0, toInt("- 5"));
}

TEST(ToInt, SkipsLeadingWhiteSpace)
{
    EXPECT_EQ(5, toInt(" \t\n\v\f\r5"));
    EXPECT_EQ(-5, toInt("   -5"));
    EXPECT_EQ(0, toInt(" \t\n\v\f\r"));
}

TEST(ToInt, StopsAtTheFirstOtherCharacter)
{
    EXPECT_EQ(12, toInt("12 34"));
    EXPECT_EQ(12, toInt("12.9"));
    EXPECT_EQ(12, toInt("12-34"));
    EXPECT_EQ(12, toInt("12/"));
    EXPECT_EQ(12, toInt("12:"));
    EXPECT_EQ(12, toInt(std::string("12\0003", 4)));
}

TEST(ToInt, GivesZeroWithoutDigits)
{
    EXPECT_EQ(0, toInt(""));
    EXPECT_EQ(0, toInt("x5"));
    EXPECT_EQ(0, toInt(std::string("\0005", 2)));
}

TEST(ToInt, ReadsTheWholeRangeOfInt)
{
    EXPECT_EQ(2147483646, toInt("2147483646"));
    EXPECT_EQ(INT_MAX, toInt("2147483647"));
    EXPECT_EQ(-2147483647, toInt("-2147483647"));
    EXPECT_EQ(INT_MIN, toInt("-2147483648"));
}

TEST(ToInt, KeepsTheLow32BitsBeyondTheRange)
{
    EXPECT_EQ(INT_MIN, toInt("2147483648"));
    EXPECT_EQ(INT_MAX, toInt("-2147483649"));
    EXPECT_EQ(12, toInt("4294967308"));
    EXPECT_EQ(-2, toInt("4294967294"));
    EXPECT_EQ(-12, toInt("-4294967308"));
}

TEST(ToInt, KeepsTheLow32BitsOfTheNearestLongBeyondTheRangeOfLong)
{
    EXPECT_EQ(-1, toInt("9223372036854775807"));
    EXPECT_EQ(-1, toInt("9223372036854775808"));
    EXPECT_EQ(0, toInt("-9223372036854775809"));
    EXPECT_EQ(-1, toInt(std::string(1000, '9')));
}

} // namespace
