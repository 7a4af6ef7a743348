#include "CrontabText.h"

#include <climits>
#include <cstddef>
#include <fstream>
#include <gtest/gtest.h>
#include <istream>
#include <locale>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "TaskLine.h"

using namespace std::string_literals;
using namespace orv;
using support::openTaskLine;
using support::taskLine;

namespace {

const std::string manager = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";
const std::string discarded = " >> /dev/null 2>&1";
const std::string nightly = "0 3 * * *"; // the schedule of taskLine()
const std::string backup = "0 1 * * * /bin/backup\n";

/// A line of `length` characters without its line feed.
std::string longLine(std::size_t length)
{
    return std::string(length, 'x');
}

/// `line`, filled up in front to `length` characters.
std::string filledTo(std::size_t length, const std::string& line)
{
    return longLine(length - line.size()) + line;
}

/// A crontab before and after. The name completes that of the test.
struct Example {
    const char* name;
    std::string before;
    std::string after;
    std::string cronTime = nightly; ///< of every task, where task lines are split
};

std::ostream& operator<<(std::ostream& out, const Example& example)
{
    return out << example.name;
}

using Examples = std::vector<Example>;

class CrontabTextTest : public testing::TestWithParam<Example> { };

const auto nameOf = [](const auto& test) { return std::string(test.param.name); };

/// Keeps what had been written at each flush.
class FlushedText : public std::stringbuf {
public:
    std::vector<std::string> flushed;

protected:
    int sync() override
    {
        flushed.push_back(str());
        return 0;
    }
};

using Texts = std::vector<std::string>;

std::string writtenTaskLine(const std::string& cronTime, int id)
{
    std::ostringstream out;
    writeTaskLine(out, cronTime, id);
    return out.str();
}

TEST(WriteTaskLine, RunsTheTaskManagerForTheTaskAndDiscardsItsOutput)
{
    EXPECT_EQ("7 * * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 42 >> /dev/null 2>&1\n",
        writtenTaskLine("7 * * * *", 42));
}

TEST(WriteTaskLine, WritesAnyScheduleUnchanged)
{
    for (const std::string& schedule : {""s, "  often, \"please\"\t\\ "s, longLine(5000)})
        EXPECT_EQ(schedule + " " + manager + " 42" + discarded + "\n", writtenTaskLine(schedule, 42));
}

TEST(WriteTaskLine, WritesANegativeIdWithItsSign)
{
    EXPECT_EQ(taskLine(-7), writtenTaskLine(nightly, -7));
    EXPECT_EQ(taskLine(INT_MIN), writtenTaskLine(nightly, INT_MIN));
}

TEST(WriteTaskLine, WritesLargeIdsWithoutGroupingWhateverTheLocale)
{
    struct Grouping : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    std::ostringstream out;
    out.imbue(std::locale(std::locale(), new Grouping));
    writeTaskLine(out, nightly, INT_MAX);
    EXPECT_EQ(nightly + " " + manager + " 2147483647" + discarded + "\n", out.str());
}

TEST(WriteTaskLine, FlushesTheLineWithItsLineFeed)
{
    FlushedText text;
    std::ostream out(&text);
    writeTaskLine(out, nightly, 3);
    writeTaskLine(out, nightly, 9);
    EXPECT_EQ((Texts{taskLine(3), taskLine(3) + taskLine(9)}), text.flushed);
}

std::string afterDropTaskLines(const std::string& crontab)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    dropTaskLines(in, out);
    return out.str();
}

using DroppingTaskLines = CrontabTextTest;

TEST_P(DroppingTaskLines, Rule)
{
    EXPECT_EQ(GetParam().after, afterDropTaskLines(GetParam().before));
}

const std::string comments = "# m h dom mon dow command\nMAILTO=anna\n\tPATH = /bin\n" + backup;
const std::string partsOfThePath
    = "5 3 * * * TessaraTaskManager 1\n5 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTask\n"
      "5 3 * * * /opt/Kestrelcore/TessaraTaskManager 1\n";

const Examples drops = {
    {"KeepsTheLinesBeforeAndAfterATaskLineInTheirOrder", backup + taskLine(12) + "@daily /bin/tidy\n",
        backup + "@daily /bin/tidy\n"},
    {"KeepsCommentsAndVariables", comments, comments},
    {"KeepsLinesThatNameOnlyPartOfTheTaskManagersPath", partsOfThePath, partsOfThePath},
    {"LeavesNothingOfACrontabOfTaskLines", taskLine(1) + taskLine(2) + taskLine(3), ""},
    {"LeavesNothingOfAnEmptyCrontab", "", ""},
    {"DropsACommentThatMentionsTheTaskManager", "# run by " + manager + "\n" + backup, backup},
    {"DropsALineThatMentionsTheTaskManagerAnywhereAndInAnyForm",
        manager + "\n" + manager + "s\nX=" + manager + "/bin\n" + backup, backup},
    {"DropsALastTaskLineWithoutALineFeed", backup + openTaskLine(12), backup},
    {"EndsTheCopyAtAnEmptyLine", backup + "\n@daily /bin/tidy\n" + taskLine(1), backup},
    {"LeavesNothingIfTheFirstLineIsEmpty", "\n" + backup, ""},
    {"TreatsALineOfOneBlankAsALine", " \n" + backup, " " + backup},
    {"TreatsACarriageReturnAsACharacter", "\r\na\r\nab\r\n" + backup, "\ra\rab\r\n" + backup},
    {"JoinsALineOfOneCharacterToTheNext", "#\n" + backup, "#" + backup},
    {"JoinsALineOfTwoCharactersToTheNext", "ab\n" + backup, "ab" + backup},
    {"DoesNotJoinALineOfThreeCharacters", "abc\n" + backup, "abc\n" + backup},
    {"JoinsShortLinesToTheNextKeptOne", "ab\n#\n" + taskLine(12) + "c\n" + backup, "ab#c" + backup},
    {"WritesNoLineFeedAfterAShortLastLine", backup + "ab\n", backup + "ab"},
    {"GivesALastLineWithoutALineFeedOne", backup + "@daily /bin/tidy", backup + "@daily /bin/tidy\n"},
    {"KeepsALineOf499CharactersWhole", longLine(499) + "\n" + backup, longLine(499) + "\n" + backup},
    {"KeepsALastLineOf499CharactersWithoutALineFeedWhole", longLine(499), longLine(499) + "\n"},
    {"CutsALineOf500CharactersAndEndsTheCopyThere", backup + longLine(500) + "\n" + backup,
        backup + longLine(499) + "\n"},
    {"CutsALastLineOf500CharactersWithoutALineFeed", longLine(500), longLine(499) + "\n"},
    {"DropsALineThatIsTooLongIfItsFirst499CharactersMentionTheTaskManager",
        backup + filledTo(499, manager) + "xx\n" + backup, backup},
    {"KeepsTheBeginningOfALongLineThatMentionsTheTaskManagerTooLate", filledTo(500, manager) + "\n" + backup,
        filledTo(500, manager).substr(0, 499) + "\n"},
    {"CutsALineAtItsZeroByte", "0 1 * * * /bin/a\0"s + manager + "\n" + backup, "0 1 * * * /bin/a\n" + backup},
    {"JoinsALineThatIsShortUpToItsZeroByte", "ab\0cdef\n"s + backup, "ab" + backup},
    {"EndsTheCopyAtALineThatBeginsWithAZeroByte", backup + "\0abc\n"s + backup, backup},
};

INSTANTIATE_TEST_SUITE_P(, DroppingTaskLines, testing::ValuesIn(drops), nameOf);

TEST(DropTaskLines, FlushesAfterEachLineFeedOnly)
{
    std::istringstream in(backup + "ab\n#\n" + backup);
    FlushedText text;
    std::ostream out(&text);
    dropTaskLines(in, out);
    EXPECT_EQ((Texts{backup, backup + "ab#" + backup}), text.flushed);
}

TEST(DropTaskLines, WritesNothingFromAStreamThatCouldNotBeOpened)
{
    std::ifstream in("/nonexistent/crontab");
    std::ostringstream out;
    dropTaskLines(in, out);
    EXPECT_EQ("", out.str());
}

TEST(DropTaskLines, EndsTheCopyWhereReadingFails)
{
    struct BreakingText : std::stringbuf {
        using std::stringbuf::stringbuf;
        int_type underflow() override { throw std::runtime_error("unreadable"); }
    } text(backup);
    std::istream in(&text);
    std::ostringstream out;
    dropTaskLines(in, out);
    EXPECT_EQ(backup, out.str());
    EXPECT_TRUE(in.bad());
}

std::string afterDropLinesOfTask(int id, const std::string& crontab)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    dropLinesOfTask(id, in, out);
    return out.str();
}

using DroppingLinesOfTask12 = CrontabTextTest;

TEST_P(DroppingLinesOfTask12, Rule)
{
    EXPECT_EQ(GetParam().after, afterDropLinesOfTask(12, GetParam().before));
}

const std::string otherJobs = "# jobs of task 12\n12 12 * * * /bin/twelve 12\n" + backup + "X=TessaraTaskManage 12\n";

const Examples dropsOfTask12 = {
    {"KeepsTheLineOfTask123", taskLine(12) + taskLine(123), taskLine(123)},
    {"KeepsTheLineOfTask1", taskLine(12) + taskLine(1), taskLine(1)},
    {"DropsEveryLineOfTheTask", taskLine(12) + backup + taskLine(12) + "# " + taskLine(12), backup},
    {"FindsTheNameWithoutItsPath", "* * * * * cd /opt && ./TessaraTaskManager 12\n" + backup, backup},
    {"KeepsLinesThatDoNotMentionTheTaskManagerInTheirOrder", otherJobs, otherJobs},
    {"EndsTheCopyAtAnEmptyLine", backup + taskLine(12) + "\n" + taskLine(3) + backup, backup},
    {"LeavesNothingIfTheFirstLineIsEmpty", "\n" + backup, ""},
    {"GivesShortLinesTheirLineFeed", "#\nab\n\r\n" + backup, "#\nab\n\r\n" + backup},
    {"GivesALastLineWithoutALineFeedOne", backup + "ab", backup + "ab\n"},
    {"KeepsALineOf499CharactersWhole", longLine(499) + "\n" + backup, longLine(499) + "\n" + backup},
    {"KeepsALastLineOf499CharactersWithoutALineFeedWhole", longLine(499), longLine(499) + "\n"},
    {"CutsALineOf500CharactersAndEndsTheCopyThere", backup + longLine(500) + "\n" + backup,
        backup + longLine(499) + "\n"},
    {"DropsALineOfTheTaskThatIsTooLongAndEndsTheCopyThere", backup + openTaskLine(12) + longLine(500) + "\n" + backup,
        backup},
    {"ReadsTheIdFromTheFirst499CharactersOfALine", filledTo(499, "TessaraTaskManager 12") + "3\n", ""},
    {"CutsALineAtItsZeroByte", "ab\0TessaraTaskManager 12\n"s + backup, "ab\n" + backup},
    {"ReadsTheIdUpToAZeroByte", "TessaraTaskManager 12\0"s + "3\n", ""},
    {"EndsTheCopyAtALineThatBeginsWithAZeroByte", backup + "\0\n"s + backup, backup},
};

INSTANTIATE_TEST_SUITE_P(, DroppingLinesOfTask12, testing::ValuesIn(dropsOfTask12), nameOf);

/// The text after the task manager's name in a line, and the task that the line is taken for.
struct LineEnd {
    const char* name;
    std::string text;
    int id;
};

std::ostream& operator<<(std::ostream& out, const LineEnd& end)
{
    return out << end.name;
}

class IdOfALine : public testing::TestWithParam<LineEnd> { };

TEST_P(IdOfALine, Rule)
{
    const std::string line = "5 3 * * * TessaraTaskManager" + GetParam().text + "\n";
    for (const int id : {0, 1, -1, 7, -7, 12, -12, 13, INT_MAX, INT_MIN})
        EXPECT_EQ(id == GetParam().id ? "" : line, afterDropLinesOfTask(id, line)) << id;
}

const LineEnd lineEnds[] = {
    {"EndsAtTheFirstBlank", " 1 2", 1},
    {"MayHaveASourceAfterIt", " 12 LocalSource &", 12},
    {"EndsWithTheLine", " 12", 12},
    {"EndsAtAnyOtherCharacter", " 12>>/dev/null", 12},
    {"EndsAtATab", " 12\t13", 12},
    {"EndsAtACarriageReturn", " 12\r", 12},
    {"MayHaveASign", " +12", 12},
    {"MayBeNegative", " -12", -12},
    {"MayHaveLeadingZeros", " 0012", 12},
    {"MayFollowATab", " \t12", 12},
    {"MayBeOneCharacter", " 7", 7},
    {"IsZeroAtTheEndOfTheLine", "", 0},
    {"IsZeroAfterABlankAtTheEndOfTheLine", " ", 0},
    {"IsZeroAfterOneCharacter", "7", 0},
    {"IsZeroIfItIsNoNumber", " all 12", 0},
    {"IsZeroAfterASecondBlank", "  12", 0},
    {"MayFollowATabAlone", "\t12 x", 12},
    {"MayFollowAnEqualsSign", "=12 x", 12},
    {"MayFollowADigit", "912 x", 12},
    {"MayFollowAnApostrophe", "'12 x", 12},
    {"MayFollowAMinusSign", "-12 x", 12},
    {"MayFollowAByteBeyondAscii",
        "\xff"
        "12 x",
        12},
    {"IsCutTo32Bits", " 4294967308", 12},
    {"IsCutTo32BitsIfItIsNegative", " -4294967308", -12},
    {"MayHave15Characters", " 000000000000012", 12},
    {"HasNoMoreThan15Characters", " 0000000000000012", 1},
    {"IsZeroAfter400Zeros", " " + std::string(400, '0') + "12", 0},
    {"FollowsTheFirstMentionOfTheName", " 7; TessaraTaskManager 12", 7},
    {"FollowsTheFirstOfTwoNamesInOne", "TessaraTaskManager 12", 0},
};

INSTANTIATE_TEST_SUITE_P(, IdOfALine, testing::ValuesIn(lineEnds), nameOf);

TEST(DropLinesOfTask, KeepsTheLineOfTask12WhenTask123IsDropped)
{
    EXPECT_EQ(taskLine(12), afterDropLinesOfTask(123, taskLine(12) + taskLine(123)));
}

TEST(DropLinesOfTask, WritesNothingFromAStreamThatCouldNotBeOpened)
{
    std::ifstream in("/nonexistent/crontab");
    std::ostringstream out;
    dropLinesOfTask(12, in, out);
    EXPECT_EQ("", out.str());
}

/// The split crontab, where `cronTime` is the schedule of every task.
std::string afterSplitTaskLines(const std::string& crontab, const std::string& cronTime = nightly)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    splitTaskLines([&cronTime](int) { return cronTime; }, in, out);
    return out.str();
}

/// The ids whose schedules are asked for.
std::vector<int> idsAskedFor(const std::string& crontab)
{
    std::vector<int> ids;
    std::istringstream in(crontab);
    std::ostringstream out;
    const auto cronTimeOf = [&ids](int id) {
        ids.push_back(id);
        return nightly;
    };
    splitTaskLines(cronTimeOf, in, out);
    return ids;
}

using SplittingTaskLines = CrontabTextTest;

TEST_P(SplittingTaskLines, Rule)
{
    EXPECT_EQ(GetParam().after, afterSplitTaskLines(GetParam().before, GetParam().cronTime));
}

/// A line that starts the task manager for task 1, with `rest` after the id.
std::string lineOfTask1(const std::string& schedule, const std::string& rest)
{
    return schedule + " " + manager + " 1" + rest;
}

const std::string logged = lineOfTask1(nightly, " > /tmp/log\n");
const std::string otherLogged = lineOfTask1("2 2 * * *", " > /tmp/log\n");
const std::string afterSchedule = " " + manager + " 12" + discarded;
const std::string upToNullDevice = nightly + " " + manager + " 12 >> /dev/null";
const std::string other = openTaskLine(1, "9 9 * * *");
const std::string longSchedule = "0,5,10,15,20,25,30,35,40,45,50,55 0,2,4,6,8,10,12,14,16,18,20,22 * * 1-5";
const std::string deviceBefore = "1 1 * * * cat /dev/null 2>&1 | " + manager + " 1";
const std::string deviceInSchedule = "5 3 * * * cat /dev/null 2>&1 |";

const Examples splits = {
    {"KeepsLinesWithoutATaskLineUpToTheFirstEmptyOne", "#\nab\nabc\n" + backup + "\n" + backup,
        "#\nab\nabc\n" + backup},
    {"LeavesNothingOfAnEmptyCrontab", "", ""},
    {"LeavesNothingIfTheFirstLineIsEmpty", "\n" + backup, ""},
    {"KeepsATaskLineOnItsOwn", taskLine(12) + backup, taskLine(12) + backup},
    {"GivesALastTaskLineWithoutALineFeedOne", openTaskLine(12), taskLine(12)},
    {"DropsTheCharacterBeforeTheSchedule", "0 1 * * * /bin/backup;" + taskLine(12), backup + taskLine(12)},
    {"WritesAnEmptyLineForASingleCharacterBeforeTheSchedule", "#" + taskLine(12), "\n" + taskLine(12)},
    {"FindsTheScheduleInsideALongerOne", taskLine(12, "15 3 * * *"), "\n" + taskLine(12, "5 3 * * *"), "5 3 * * *"},
    {"FindsTheScheduleInsideAFieldOfALongerOne", taskLine(12, "30 53 * * *"), "30 \n" + taskLine(12, "3 * * *"),
        "3 * * *"},
    {"FindsAnEmptyScheduleAtTheBlankBeforeTheTaskManager", taskLine(12), "0 3 * * \n" + taskLine(12, ""), ""},
    {"FindsAScheduleOnlyRightBeforeTheTaskManager", "#" + taskLine(12, nightly + " /bin/sh -c"),
        "#" + taskLine(12, nightly + " /bin/sh -c")},
    {"KeepsATaskLineWithAnotherScheduleAfterATextTogether", "ab" + taskLine(12), "ab" + taskLine(12), "0 0 1 1 *"},
    {"SearchesTheWholeOfAScheduleOfMoreThan50Characters", "ab" + taskLine(12, longSchedule),
        "a\n" + taskLine(12, longSchedule), longSchedule},
    {"DoesNotFindALongScheduleThatDiffersInItsFirstCharacter", "ab" + taskLine(12, longSchedule),
        "ab" + taskLine(12, longSchedule), "1" + longSchedule.substr(1)},
    {"SearchesAScheduleLongerThanALine", "ab" + taskLine(12), "ab" + taskLine(12), longLine(5000)},
    {"SeparatesTwoTaskLinesThatWereJoined", openTaskLine(1) + taskLine(2), taskLine(1) + taskLine(2)},
    {"SeparatesJoinedTaskLinesOfOtherSchedules",
        openTaskLine(1, "1 1 * * *") + openTaskLine(2, "2 2 * * *") + taskLine(3, "3 3 * * *"),
        taskLine(1, "1 1 * * *") + taskLine(2, "2 2 * * *") + taskLine(3, "3 3 * * *")},
    {"WritesThePiecesBetweenTaskLinesAsLines", openTaskLine(1) + "/bin/tidy;" + taskLine(2),
        taskLine(1) + "/bin/tidy\n" + taskLine(2)},
    {"KeepsATextBeforeATaskLineOfAnotherScheduleWithIt", openTaskLine(1) + "/bin/tidy;" + taskLine(2, "2 2 * * *"),
        taskLine(1) + "/bin/tidy;" + taskLine(2, "2 2 * * *")},
    {"WritesATextOfThreeCharactersAfterATaskLineAsALine", openTaskLine(12) + "abc\n" + backup,
        taskLine(12) + "abc\n" + backup},
    {"JoinsATextOfTwoCharactersAfterATaskLineToTheNextLine", openTaskLine(12) + "ab\n" + backup,
        taskLine(12) + "ab" + backup},
    {"JoinsATextOfOneCharacterAfterATaskLineToTheNextLine", openTaskLine(12) + " \n" + taskLine(13),
        taskLine(12) + " " + taskLine(13)},
    {"TreatsACarriageReturnAfterATaskLineAsText", openTaskLine(12) + "\r\n" + backup, taskLine(12) + "\r" + backup},
    {"EndsATaskLine14CharactersAfterTheStartOfItsNullDevice", lineOfTask1("1 1 * * *", " > /dev/null;12345678\n"),
        lineOfTask1("1 1 * * *", " > /dev/null;1234\n5678\n")},
    {"KeepsATaskLineWithoutANullDevice", logged + backup, logged + backup},
    {"KeepsATextBeforeATaskLineOfAnotherScheduleWithoutANullDeviceWithIt", "ab 1" + logged + backup,
        "ab 1" + logged + backup, "9 9 * * *"},
    {"SplitsATaskLineWithoutANullDeviceAtItsSchedule", "ab" + logged + backup, "a\n" + logged + backup},
    {"WritesTheRestOfALineWithoutAnotherNullDeviceAsALine", openTaskLine(1) + otherLogged + backup,
        taskLine(1) + otherLogged + backup},
    {"SkipsANullDeviceBeforeTheMentionOfTheTaskManager", deviceBefore + "\n" + backup, deviceBefore + "\n" + backup},
    {"LooksForTheNullDeviceAfterTheMentionOfTheTaskManager", deviceBefore + discarded + "abc\n",
        deviceBefore + discarded + "\nabc\n"},
    {"LooksForTheNullDeviceOfASecondTaskLineAfterItsMention", openTaskLine(1) + deviceBefore + discarded + "abc\n",
        taskLine(1) + deviceBefore + discarded + "\nabc\n"},
    {"LooksForTheNullDeviceAfterTheScheduleOfALaterTaskLine", other + ";" + taskLine(2) + backup,
        other + "\n" + taskLine(2) + backup},
    {"EndsAPieceBeforeItBeginsWhereTheRedirectionOfAnEarlierTaskLineEnds", other + taskLine(2) + backup,
        other.substr(0, other.size() - 1) + "\n\n" + taskLine(2) + backup},
    {"EndsAPieceWhereTheRedirectionOfAnEarlierTaskLineEndsInsideIt",
        lineOfTask1("9 9 * * *", " > /dev/null") + taskLine(2) + backup,
        lineOfTask1("9 9 * * *", " > /dev/nul\n0 3 *\n * * ") + manager + " 2" + discarded + "\n" + backup},
    {"LooksForTheNullDeviceInsideAScheduleAfterAnEarlierTaskLine",
        lineOfTask1("9 9 * * *", ";" + deviceInSchedule + " " + manager + " 2\n"),
        lineOfTask1("9 9 * * *", "\n5 3 * * * cat /dev/null 2>&1\n | " + manager + " 2\n"), deviceInSchedule},
    {"SplitsAtEachPlaceWithTheSchedule", "ab" + openTaskLine(1) + "cd" + taskLine(2),
        "a\n" + taskLine(1) + "c\n" + taskLine(2)},
    {"HandlesTheFirst499CharactersOfALineThatIsTooLongAndEndsTheCopyThere",
        "ab" + openTaskLine(12) + longLine(500) + "\n" + backup,
        "a\n" + taskLine(12) + longLine(497 - openTaskLine(12).size()) + "\n"},
    {"CutsALineOf500CharactersAndEndsTheCopyThere", longLine(500) + "\n" + backup, longLine(499) + "\n"},
    {"KeepsALineOf499CharactersWhole", longLine(499) + "\n" + backup, longLine(499) + "\n" + backup},
    {"KeepsATaskLineOf499CharactersWhole", filledTo(499, afterSchedule) + "\n" + backup,
        filledTo(499, afterSchedule) + "\n" + backup},
    {"FindsNoTaskManagerAfterTheFirst499Characters", filledTo(500, manager) + "\n",
        filledTo(500, manager).substr(0, 499) + "\n"},
    {"FindsNoNullDeviceAfterTheFirst499Characters", filledTo(500, upToNullDevice) + "\n",
        filledTo(500, upToNullDevice).substr(0, 499) + "\n", "9 9 * * *"},
    {"CutsALineAtItsZeroByte", "ab\0"s + taskLine(12) + backup, "ab\n" + backup},
    {"EndsTheCopyAtALineThatBeginsWithAZeroByte", "\0"s + taskLine(12) + backup, ""},
};

INSTANTIATE_TEST_SUITE_P(, SplittingTaskLines, testing::ValuesIn(splits), nameOf);

TEST(SplitTaskLines, AsksForNoScheduleIfThereIsNoTaskLine)
{
    EXPECT_EQ(std::vector<int>(), idsAskedFor("TessaraTaskManager 12\n" + backup + "\n" + taskLine(1)));
}

TEST(SplitTaskLines, AsksForTheScheduleOfTask0WhateverTheIdOfTheLine)
{
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor(taskLine(12)));
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor("5 3 * * * " + manager + "\n"));
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor("5 3 * * * " + manager + "12 12\n"));
}

TEST(SplitTaskLines, AsksForTheScheduleAgainForEachPiece)
{
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}), idsAskedFor("ab" + openTaskLine(1) + taskLine(2) + taskLine(3)));
}

TEST(SplitTaskLines, UsesTheLatestSchedule)
{
    std::istringstream in("ab" + openTaskLine(1, "5 3 * * *") + "cd" + taskLine(2, "6 4 * * *"));
    std::ostringstream out;
    Texts schedules{"5 3 * * *", "5 3 * * *", "6 4 * * *", "6 4 * * *"};
    const auto nextSchedule = [&schedules](int) {
        const std::string schedule = schedules.at(0);
        schedules.erase(schedules.begin());
        return schedule;
    };
    splitTaskLines(nextSchedule, in, out);
    EXPECT_EQ("a\n" + taskLine(1, "5 3 * * *") + "c\n" + taskLine(2, "6 4 * * *"), out.str());
    EXPECT_EQ(Texts(), schedules);
}

TEST(SplitTaskLines, KeepsALineTogetherThatEndsBeforeTheRedirectionWould)
{
    for (const std::string end : {"", " ", " 2>&", " 2>&1"})
        EXPECT_EQ(lineOfTask1(nightly, " > /dev/null" + end + "\n"),
            afterSplitTaskLines(lineOfTask1(nightly, " > /dev/null" + end + "\n")));
}

TEST(SplitTaskLines, FlushesAfterEachLineFeedOnly)
{
    std::istringstream in("ab" + openTaskLine(1) + "abc\n" + openTaskLine(2) + "xy\n" + backup);
    FlushedText text;
    std::ostream out(&text);
    splitTaskLines([](int) { return nightly; }, in, out);
    const std::string first = "a\n";
    const std::string second = first + taskLine(1);
    const std::string third = second + "abc\n";
    const std::string fourth = third + taskLine(2);
    EXPECT_EQ((Texts{first, second, third, fourth, fourth + "xy" + backup}), text.flushed);
}

TEST(SplitTaskLines, PassesOnAnExceptionOfTheScheduleAndLeavesWhatWasWritten)
{
    std::istringstream in(backup + taskLine(12) + backup);
    std::ostringstream out;
    const auto noSchedule = [](int) -> std::string { throw std::runtime_error("no such task"); };
    EXPECT_THROW(splitTaskLines(noSchedule, in, out), std::runtime_error);
    EXPECT_EQ(backup, out.str());
}

TEST(SplitTaskLines, WritesNothingFromAStreamThatCouldNotBeOpened)
{
    std::ifstream in("/nonexistent/crontab");
    std::ostringstream out;
    splitTaskLines([](int) { return nightly; }, in, out);
    EXPECT_EQ("", out.str());
}

} // namespace
