#include <climits>
#include <ctime>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "StoreTest.h"

using namespace support;

namespace {

using Lines = std::vector<std::string>;

const char* const centralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr time_t day = 86400;
constexpr time_t summerRepeatHour = 1792888200; // 2026-10-25 00:30:00 UTC, 02:30:00 CEST
constexpr time_t winterRepeatHour = summerRepeatHour + 3600; // 02:30:00 CET

/// The moment that nine fields denote, in the order of the text.
time_t momentOf(const int (&fields)[9])
{
    tm local{};
    int* const places[] = {&local.tm_sec, &local.tm_min, &local.tm_hour, &local.tm_mday, &local.tm_mon, &local.tm_year,
        &local.tm_wday, &local.tm_yday, &local.tm_isdst};
    for (int field = 0; field < 9; ++field)
        *places[field] = fields[field];
    return mktime(&local);
}

class TimeStamp : public testing::Test {
protected:
    TimeZone utc{"UTC0"};
};

TEST_F(TimeStamp, HoldsTheNineFieldsSecondsFirstEachWithAComma)
{
    EXPECT_EQ("5,30,8,16,10,126,1,319,0,", convertTmToString(1794817805));
    EXPECT_EQ("59,59,23,31,11,-1,0,364,0,", convertTmToString(-2208988801));
    EXPECT_EQ("59,59,23,31,11,2147483647,3,364,0,", convertTmToString(67768036191676799));
}

/// A text and the moment that it is read as, in UTC.
struct Reading {
    const char* name;
    const char* text;
    time_t moment;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading)
{
    return out << reading.name;
}

class ReadTimeStamp : public TimeStamp, public testing::WithParamInterface<Reading> { };

TEST_P(ReadTimeStamp, Rule)
{
    EXPECT_EQ(GetParam().moment, convertStringToTm(GetParam().text));
}

constexpr time_t lastDayOf1899 = -2209075200; // its first second

const Reading readings[] = {
    {"HasNineFields", "5,30,8,16,10,126,1,319,0,", 1794817805},
    {"IsZeroAtTheEpoch", "0,0,0,1,0,70,4,0,0,", 0},
    {"MayHaveNegativeFields", "59,59,23,31,11,-1,0,364,0,", -2208988801},
    {"NeedsNoTrailingComma", "5,30,8,16,10,126,1,319,0", 1794817805},
    {"EndsWithTheNinthNumber", "5,30,8,16,10,126,1,319,0,7,7,7", 1794817805},
    {"EndsWithTheNinthField", "5,30,8,16,10,126,1,319,0,x", 1794817805},
    {"IsTheLastDayOf1899IfItIsEmpty", "", lastDayOf1899},
    {"IsTheLastDayOf1899IfItsFieldsAreEmpty", ",,,,,,,,,", lastDayOf1899},
    {"HasFieldsThatEndAtTheFirstOtherCharacter", " 5x,+30, 8 ,16.9,10,126,?,?,?", 1794817805},
    {"MayHaveANegativeSecond", "-5,0,0,1,0,70,0,0,0,", -5},
    {"MayHaveSecondsAndHoursOutOfRange", "61,0,24,1,0,70,0,0,0,", day + 61},
    {"MayHaveAMonthOutOfRange", "0,0,0,1,12,70,0,0,0,", 365 * day},
    {"TakesWeekdayAndDayOfTheYearFromTheDate", "0,0,0,1,0,70,99,-99,0,", 0},
    {"KeepsTheLow32BitsOfAField", "4294967308,0,0,1,0,70,0,0,0,", 12},
    {"KeepsTheLow32BitsOfANegativeField", "-4294967308,0,0,1,0,70,0,0,0,", -12},
    {"IsMinusOneIfItIsImpossible", "0,0,0,1,2147483647,2147483647,0,0,0,", -1},
};

INSTANTIATE_TEST_SUITE_P(
    , ReadTimeStamp, testing::ValuesIn(readings), [](const auto& test) { return std::string(test.param.name); });

TEST_F(TimeStamp, IsInLocalTime)
{
    const TimeZone india("IST-5:30");
    EXPECT_EQ("0,30,5,1,0,70,4,0,0,", convertTmToString(0));
    EXPECT_EQ(0, convertStringToTm("0,30,5,1,0,70,4,0,0,"));
}

TEST_F(TimeStamp, FollowsAChangeOfTheTimeZone)
{
    EXPECT_EQ("0,0,0,1,0,70,4,0,0,", convertTmToString(0));
    const TimeZone east("XXX-9");
    EXPECT_EQ("0,0,9,1,0,70,4,0,0,", convertTmToString(0));
}

TEST_F(TimeStamp, DistinguishesTheTwoHoursThatRepeatInAutumn)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ("0,30,2,25,9,126,0,297,1,", convertTmToString(summerRepeatHour));
    EXPECT_EQ("0,30,2,25,9,126,0,297,0,", convertTmToString(winterRepeatHour));
    EXPECT_EQ(summerRepeatHour, convertStringToTm("0,30,2,25,9,126,0,297,1,"));
    EXPECT_EQ(winterRepeatHour, convertStringToTm("0,30,2,25,9,126,0,297,0,"));
}

TEST_F(TimeStamp, ReadsBackWhatWasWritten)
{
    for (const char* zone : {"UTC0", centralEurope, "NST3:30NDT,M3.2.0,M11.1.0", "XXX12", "YYY-14"}) {
        const TimeZone local(zone);
        for (time_t moment = summerRepeatHour - 400 * day; moment < summerRepeatHour + day; moment += 1733)
            ASSERT_EQ(moment, convertStringToTm(convertTmToString(moment))) << zone << " " << moment;
    }
}

TEST_F(TimeStamp, ObeysTheDaylightFlagOfTheText)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(convertStringToTm("0,0,12,1,0,126,4,0,0,") - 3600, convertStringToTm("0,0,12,1,0,126,4,0,1,"));
}

TEST_F(TimeStamp, ReadsAShortTextAgainFromItsBeginning)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({7, 8, 7, 8, 7, 8, 7, 8, 7}), convertStringToTm("7,8"));
    EXPECT_EQ(momentOf({1, 2, 3, 1, 2, 3, 1, 2, 3}), convertStringToTm("1,2,3"));
}

TEST_F(TimeStamp, ReadsAnEmptyFieldAfterATrailingCommaBeforeItStartsAgain)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({1, 2, 3, 0, 1, 2, 3, 0, 1}), convertStringToTm("1,2,3,"));
    EXPECT_EQ(momentOf({7, 0, 7, 0, 7, 0, 7, 0, 7}), convertStringToTm("7,"));
}

TEST_F(TimeStamp, ReadsATextWithoutACommaIntoEveryField)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({9, 9, 9, 9, 9, 9, 9, 9, 9}), convertStringToTm("9"));
}

TEST_F(TimeStamp, AMomentWithoutALocalTimeIsLoggedOnceAndGivesAnEmptyText)
{
    takeLog();
    EXPECT_EQ("", convertTmToString(LONG_MAX));
    EXPECT_EQ(Lines{"3: convertTmToString : Error while getting localtime() "}, takeLog());
    EXPECT_EQ("", convertTmToString(LONG_MIN));
    EXPECT_EQ(Lines{"3: convertTmToString : Error while getting localtime() "}, takeLog());
}

TEST_F(TimeStamp, AMomentWithALocalTimeLogsNothing)
{
    takeLog();
    convertTmToString(0);
    convertStringToTm("nonsense");
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(TimeStamp, CanBeWrittenAndReadByManyThreadsAtOnce)
{
    const auto roundTrips = [](time_t first) {
        for (time_t moment = first; moment < first + 2000 * day; moment += day + 61)
            ASSERT_EQ(moment, convertStringToTm(convertTmToString(moment)));
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back(roundTrips, 1000000000 + thread * time_t(100000007));
    for (auto& thread : threads)
        thread.join();
}

} // namespace
