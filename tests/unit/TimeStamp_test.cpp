#include <climits>
#include <ctime>
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

TEST(TimeStamp, HoldsTheNineFieldsSecondsFirstEachWithAComma)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ("5,30,8,16,10,126,1,319,0,", convertTmToString(1794817805));
}

TEST(TimeStamp, OfTheEpochInUtc)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ("0,0,0,1,0,70,4,0,0,", convertTmToString(0));
    EXPECT_EQ(0, convertStringToTm("0,0,0,1,0,70,4,0,0,"));
}

TEST(TimeStamp, IsInLocalTime)
{
    const TimeZone india("IST-5:30");
    EXPECT_EQ("0,30,5,1,0,70,4,0,0,", convertTmToString(0));
    EXPECT_EQ(0, convertStringToTm("0,30,5,1,0,70,4,0,0,"));
}

TEST(TimeStamp, FollowsAChangeOfTheTimeZone)
{
    {
        const TimeZone utc("UTC0");
        EXPECT_EQ("0,0,0,1,0,70,4,0,0,", convertTmToString(0));
    }
    const TimeZone east("XXX-9");
    EXPECT_EQ("0,0,9,1,0,70,4,0,0,", convertTmToString(0));
}

TEST(TimeStamp, WritesNegativeFieldsWithAMinusSign)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ("59,59,23,31,11,-1,0,364,0,", convertTmToString(-2208988801));
    EXPECT_EQ(-2208988801, convertStringToTm("59,59,23,31,11,-1,0,364,0,"));
}

TEST(TimeStamp, DistinguishesTheTwoHoursThatRepeatInAutumn)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ("0,30,2,25,9,126,0,297,1,", convertTmToString(summerRepeatHour));
    EXPECT_EQ("0,30,2,25,9,126,0,297,0,", convertTmToString(winterRepeatHour));
    EXPECT_EQ(summerRepeatHour, convertStringToTm("0,30,2,25,9,126,0,297,1,"));
    EXPECT_EQ(winterRepeatHour, convertStringToTm("0,30,2,25,9,126,0,297,0,"));
}

TEST(TimeStamp, ReadsBackWhatWasWritten)
{
    for (const char* zone : {"UTC0", centralEurope, "NST3:30NDT,M3.2.0,M11.1.0", "XXX12", "YYY-14"}) {
        const TimeZone local(zone);
        for (time_t moment = summerRepeatHour - 400 * day; moment < summerRepeatHour + day; moment += 1733)
            ASSERT_EQ(moment, convertStringToTm(convertTmToString(moment))) << zone << " " << moment;
    }
}

TEST(TimeStamp, ObeysTheDaylightFlagOfTheText)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(convertStringToTm("0,0,12,1,0,126,4,0,0,") - 3600, convertStringToTm("0,0,12,1,0,126,4,0,1,"));
}

TEST(TimeStamp, NeedsNoTrailingComma)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(1794817805, convertStringToTm("5,30,8,16,10,126,1,319,0,"));
    EXPECT_EQ(1794817805, convertStringToTm("5,30,8,16,10,126,1,319,0"));
}

TEST(TimeStamp, ReadsNothingAfterTheNinthField)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(1794817805, convertStringToTm("5,30,8,16,10,126,1,319,0,7,7,7"));
    EXPECT_EQ(1794817805, convertStringToTm("5,30,8,16,10,126,1,319,0,x"));
}

TEST(TimeStamp, ReadsAShortTextAgainFromItsBeginning)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({7, 8, 7, 8, 7, 8, 7, 8, 7}), convertStringToTm("7,8"));
    EXPECT_EQ(momentOf({1, 2, 3, 1, 2, 3, 1, 2, 3}), convertStringToTm("1,2,3"));
}

TEST(TimeStamp, ReadsAnEmptyFieldAfterATrailingCommaBeforeItStartsAgain)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({1, 2, 3, 0, 1, 2, 3, 0, 1}), convertStringToTm("1,2,3,"));
    EXPECT_EQ(momentOf({7, 0, 7, 0, 7, 0, 7, 0, 7}), convertStringToTm("7,"));
}

TEST(TimeStamp, ReadsATextWithoutACommaIntoEveryField)
{
    const TimeZone zone(centralEurope);
    EXPECT_EQ(momentOf({9, 9, 9, 9, 9, 9, 9, 9, 9}), convertStringToTm("9"));
}

TEST(TimeStamp, ReadsAnEmptyTextAsTheLastDayOf1899)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(-2209075200, convertStringToTm("")); // midnight at the start of 31 December 1899
    EXPECT_EQ(-2209075200, convertStringToTm(",,,,,,,,,"));
}

TEST(TimeStamp, ReadsFieldsAsNumbersThatEndAtTheFirstOtherCharacter)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(1794817805, convertStringToTm(" 5x,+30, 8 ,16.9,10,126,?,?,?"));
    EXPECT_EQ(-5, convertStringToTm("-5,0,0,1,0,70,0,0,0,"));
}

TEST(TimeStamp, NormalisesFieldsThatAreOutOfRange)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(86400 + 61, convertStringToTm("61,0,24,1,0,70,0,0,0,"));
    EXPECT_EQ(convertStringToTm("0,0,0,1,0,71,0,0,0,"), convertStringToTm("0,0,0,1,12,70,0,0,0,"));
}

TEST(TimeStamp, TakesWeekdayAndDayOfTheYearFromTheDate)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(0, convertStringToTm("0,0,0,1,0,70,99,-99,0,"));
}

TEST(TimeStamp, KeepsTheLow32BitsOfFieldsBeyondTheRangeOfInt)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(12, convertStringToTm("4294967308,0,0,1,0,70,0,0,0,"));
    EXPECT_EQ(-12, convertStringToTm("-4294967308,0,0,1,0,70,0,0,0,"));
}

TEST(TimeStamp, OfAnImpossibleTimeIsMinusOne)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ(-1, convertStringToTm("0,0,0,1,2147483647,2147483647,0,0,0,"));
}

TEST(TimeStamp, AMomentWithoutALocalTimeIsLoggedOnceAndGivesAnEmptyText)
{
    takeLog();
    EXPECT_EQ("", convertTmToString(LONG_MAX));
    EXPECT_EQ(Lines{"3: convertTmToString : Error while getting localtime() "}, takeLog());
    EXPECT_EQ("", convertTmToString(LONG_MIN));
    EXPECT_EQ(Lines{"3: convertTmToString : Error while getting localtime() "}, takeLog());
}

TEST(TimeStamp, AMomentWithALocalTimeLogsNothing)
{
    takeLog();
    convertTmToString(0);
    convertStringToTm("nonsense");
    EXPECT_EQ(Lines(), takeLog());
}

TEST(TimeStamp, OfTheFarFutureIsWhole)
{
    const TimeZone utc("UTC0");
    EXPECT_EQ("59,59,23,31,11,2147483647,3,364,0,", convertTmToString(67768036191676799));
}

TEST(TimeStamp, CanBeWrittenAndReadByManyThreadsAtOnce)
{
    const TimeZone utc("UTC0");
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
