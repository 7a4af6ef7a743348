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

using namespace std::string_literals;
using namespace orv;

namespace {

const std::string manager = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";
const std::string discarded = " >> /dev/null 2>&1";
const std::string nightly = "5 3 * * *";
const std::string backup = "0 1 * * * /bin/backup\n";

/// A line as the rebuilding pass lays it down, without its line feed.
std::string taskLine(int id, const std::string& schedule = nightly)
{
    return schedule + " " + manager + " " + std::to_string(id) + discarded;
}

/// A line of `length` characters without its line feed, all of them to be told apart from what follows it.
std::string longLine(std::size_t length)
{
    return std::string(length, 'x');
}

/// `line`, filled up in front to `length` characters.
std::string filledTo(std::size_t length, const std::string& line)
{
    return longLine(length - line.size()) + line;
}

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

TEST(WriteTaskLine, WritesAnEmptyScheduleUnchanged)
{
    EXPECT_EQ(" " + manager + " 42" + discarded + "\n", writtenTaskLine("", 42));
}

TEST(WriteTaskLine, WritesAMalformedScheduleUnchanged)
{
    EXPECT_EQ("  often, \"please\"\t\\  " + manager + " 42" + discarded + "\n",
        writtenTaskLine("  often, \"please\"\t\\ ", 42));
}

TEST(WriteTaskLine, WritesAScheduleOfAnyLengthWhole)
{
    EXPECT_EQ(longLine(5000) + " " + manager + " 42" + discarded + "\n", writtenTaskLine(longLine(5000), 42));
}

TEST(WriteTaskLine, WritesANegativeIdWithItsSign)
{
    EXPECT_EQ(taskLine(-7) + "\n", writtenTaskLine(nightly, -7));
    EXPECT_EQ(taskLine(INT_MIN) + "\n", writtenTaskLine(nightly, INT_MIN));
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
    const std::string first = taskLine(3) + "\n";
    EXPECT_EQ((Texts{first, first + taskLine(9) + "\n"}), text.flushed);
}

std::string afterDropTaskLines(const std::string& crontab)
{
    std::istringstream in(crontab);
    std::ostringstream out;
    dropTaskLines(in, out);
    return out.str();
}

TEST(DropTaskLines, KeepsTheLinesBeforeAndAfterATaskLineInTheirOrder)
{
    EXPECT_EQ(backup + "@daily /bin/tidy\n", afterDropTaskLines(backup + taskLine(12) + "\n@daily /bin/tidy\n"));
}

TEST(DropTaskLines, LeavesNothingOfACrontabOfTaskLines)
{
    EXPECT_EQ("", afterDropTaskLines(taskLine(1) + "\n" + taskLine(2) + "\n" + taskLine(3) + "\n"));
}

TEST(DropTaskLines, LeavesNothingOfAnEmptyCrontab)
{
    EXPECT_EQ("", afterDropTaskLines(""));
}

TEST(DropTaskLines, DropsACommentThatMentionsTheTaskManager)
{
    EXPECT_EQ(backup, afterDropTaskLines("# run by " + manager + "\n" + backup));
}

TEST(DropTaskLines, DropsALineThatMentionsTheTaskManagerAnywhereAndInAnyForm)
{
    EXPECT_EQ(backup, afterDropTaskLines(manager + "\n" + manager + "s\nX=" + manager + "/bin\n" + backup));
}

TEST(DropTaskLines, KeepsCommentsAndVariables)
{
    const std::string crontab = "# m h dom mon dow command\nMAILTO=anna\n\tPATH = /bin\n" + backup;
    EXPECT_EQ(crontab, afterDropTaskLines(crontab));
}

TEST(DropTaskLines, KeepsLinesThatNameOnlyPartOfTheTaskManagersPath)
{
    const std::string crontab = "5 3 * * * TessaraTaskManager 1\n5 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTask\n"
                                "5 3 * * * /opt/Kestrelcore/TessaraTaskManager 1\n";
    EXPECT_EQ(crontab, afterDropTaskLines(crontab));
}

TEST(DropTaskLines, EndsTheCopyAtAnEmptyLine)
{
    EXPECT_EQ(backup, afterDropTaskLines(backup + "\n@daily /bin/tidy\n" + taskLine(1) + "\n"));
}

TEST(DropTaskLines, LeavesNothingIfTheFirstLineIsEmpty)
{
    EXPECT_EQ("", afterDropTaskLines("\n" + backup));
}

TEST(DropTaskLines, TreatsALineOfOneBlankAsALine)
{
    EXPECT_EQ(" " + backup, afterDropTaskLines(" \n" + backup));
}

TEST(DropTaskLines, JoinsALineOfOneCharacterToTheNext)
{
    EXPECT_EQ("#" + backup, afterDropTaskLines("#\n" + backup));
}

TEST(DropTaskLines, JoinsALineOfTwoCharactersToTheNext)
{
    EXPECT_EQ("ab" + backup, afterDropTaskLines("ab\n" + backup));
}

TEST(DropTaskLines, DoesNotJoinALineOfThreeCharacters)
{
    EXPECT_EQ("abc\n" + backup, afterDropTaskLines("abc\n" + backup));
}

TEST(DropTaskLines, JoinsShortLinesToTheNextKeptOne)
{
    EXPECT_EQ("ab#c" + backup, afterDropTaskLines("ab\n#\n" + taskLine(12) + "\nc\n" + backup));
}

TEST(DropTaskLines, WritesNoLineFeedAfterAShortLastLine)
{
    EXPECT_EQ(backup + "ab", afterDropTaskLines(backup + "ab\n"));
}

TEST(DropTaskLines, GivesALastLineWithoutALineFeedOne)
{
    EXPECT_EQ(backup + "@daily /bin/tidy\n", afterDropTaskLines(backup + "@daily /bin/tidy"));
}

TEST(DropTaskLines, DropsALastTaskLineWithoutALineFeed)
{
    EXPECT_EQ(backup, afterDropTaskLines(backup + taskLine(12)));
}

TEST(DropTaskLines, KeepsALineOf499CharactersWhole)
{
    EXPECT_EQ(longLine(499) + "\n" + backup, afterDropTaskLines(longLine(499) + "\n" + backup));
}

TEST(DropTaskLines, KeepsALastLineOf499CharactersWithoutALineFeedWhole)
{
    EXPECT_EQ(longLine(499) + "\n", afterDropTaskLines(longLine(499)));
}

TEST(DropTaskLines, CutsALineOf500CharactersAndEndsTheCopyThere)
{
    EXPECT_EQ(backup + longLine(499) + "\n", afterDropTaskLines(backup + longLine(500) + "\n" + backup));
}

TEST(DropTaskLines, CutsALastLineOf500CharactersWithoutALineFeed)
{
    EXPECT_EQ(longLine(499) + "\n", afterDropTaskLines(longLine(500)));
}

TEST(DropTaskLines, CutsALineOf600CharactersAndEndsTheCopyThere)
{
    EXPECT_EQ(backup + longLine(499) + "\n", afterDropTaskLines(backup + longLine(600) + "\n" + backup));
}

TEST(DropTaskLines, DropsALineThatIsTooLongIfItsFirst499CharactersMentionTheTaskManager)
{
    EXPECT_EQ(backup, afterDropTaskLines(backup + filledTo(499, manager) + "xx\n" + backup));
}

TEST(DropTaskLines, KeepsTheBeginningOfALongLineThatMentionsTheTaskManagerTooLate)
{
    const std::string line = filledTo(500, manager);
    EXPECT_EQ(line.substr(0, 499) + "\n", afterDropTaskLines(line + "\n" + backup));
}

TEST(DropTaskLines, CutsALineAtItsZeroByte)
{
    EXPECT_EQ("0 1 * * * /bin/a\n" + backup, afterDropTaskLines("0 1 * * * /bin/a\0"s + manager + "\n" + backup));
    EXPECT_EQ("ab" + backup, afterDropTaskLines("ab\0cdef\n"s + backup));
}

TEST(DropTaskLines, EndsTheCopyAtALineThatBeginsWithAZeroByte)
{
    EXPECT_EQ(backup, afterDropTaskLines(backup + "\0abc\n"s + backup));
}

TEST(DropTaskLines, TreatsACarriageReturnAsACharacter)
{
    EXPECT_EQ("\r" + backup, afterDropTaskLines("\r\n" + backup));
    EXPECT_EQ("a\r" + backup, afterDropTaskLines("a\r\n" + backup));
    EXPECT_EQ("ab\r\n" + backup, afterDropTaskLines("ab\r\n" + backup));
}

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

/// Whether a line that ends in `rest` behind the task manager's name is taken for one of the task `id`.
bool isLineOfTask(int id, const std::string& rest)
{
    const std::string line = "5 3 * * * TessaraTaskManager" + rest + "\n";
    const std::string left = afterDropLinesOfTask(id, line);
    EXPECT_TRUE(left.empty() || left == line) << left;
    return left.empty();
}

TEST(DropLinesOfTask, KeepsTheLineOfTask123WhenTask12IsDropped)
{
    EXPECT_EQ(taskLine(123) + "\n", afterDropLinesOfTask(12, taskLine(12) + "\n" + taskLine(123) + "\n"));
}

TEST(DropLinesOfTask, KeepsTheLineOfTask12WhenTask123IsDropped)
{
    EXPECT_EQ(taskLine(12) + "\n", afterDropLinesOfTask(123, taskLine(12) + "\n" + taskLine(123) + "\n"));
}

TEST(DropLinesOfTask, DropsEveryLineOfTheTask)
{
    const std::string line = taskLine(12) + "\n";
    EXPECT_EQ(backup, afterDropLinesOfTask(12, line + backup + line + "# " + line));
}

TEST(DropLinesOfTask, KeepsLinesThatDoNotMentionTheTaskManagerInTheirOrder)
{
    const std::string crontab = "# jobs of task 12\n12 12 * * * /bin/twelve 12\n" + backup + "X=TessaraTaskManage 12\n";
    EXPECT_EQ(crontab, afterDropLinesOfTask(12, crontab));
}

TEST(DropLinesOfTask, ReadsTheIdUpToTheFirstBlank)
{
    EXPECT_TRUE(isLineOfTask(12, " 12 LocalSource &"));
    EXPECT_FALSE(isLineOfTask(12, " 1 2"));
    EXPECT_TRUE(isLineOfTask(1, " 1 2"));
}

TEST(DropLinesOfTask, ReadsTheIdUpToTheEndOfTheLine)
{
    EXPECT_TRUE(isLineOfTask(12, " 12"));
    EXPECT_EQ("", afterDropLinesOfTask(12, "TessaraTaskManager 12"));
}

TEST(DropLinesOfTask, ReadsALineThatEndsWithTheNameAsTask0)
{
    EXPECT_FALSE(isLineOfTask(12, ""));
    EXPECT_TRUE(isLineOfTask(0, ""));
}

TEST(DropLinesOfTask, ReadsALineWithOneCharacterAfterTheNameAsTask0)
{
    EXPECT_FALSE(isLineOfTask(7, "7"));
    EXPECT_FALSE(isLineOfTask(12, " "));
    EXPECT_TRUE(isLineOfTask(0, "7"));
    EXPECT_TRUE(isLineOfTask(0, " "));
}

TEST(DropLinesOfTask, ReadsAnIdOfOneCharacterAfterTheSeparator)
{
    EXPECT_TRUE(isLineOfTask(7, " 7"));
    EXPECT_FALSE(isLineOfTask(0, " 7"));
}

TEST(DropLinesOfTask, ReadsAnIdThatIsNotANumberAsTask0)
{
    EXPECT_TRUE(isLineOfTask(0, " all 12"));
    EXPECT_FALSE(isLineOfTask(12, " all 12"));
}

TEST(DropLinesOfTask, SkipsOneSeparatorOnly)
{
    EXPECT_TRUE(isLineOfTask(0, "  12"));
    EXPECT_FALSE(isLineOfTask(12, "  12"));
}

TEST(DropLinesOfTask, TakesAnyCharacterAsTheSeparator)
{
    for (const std::string separator : {"\t", "=", "9", "'", "-", "\xff"})
        EXPECT_TRUE(isLineOfTask(12, separator + "12 x")) << separator;
}

TEST(DropLinesOfTask, ReadsTheIdAsANumber)
{
    EXPECT_TRUE(isLineOfTask(12, " +12"));
    EXPECT_TRUE(isLineOfTask(12, " 0012"));
    EXPECT_TRUE(isLineOfTask(12, " \t12"));
    EXPECT_TRUE(isLineOfTask(12, " 12>>/dev/null"));
    EXPECT_TRUE(isLineOfTask(12, " 12\t13"));
    EXPECT_TRUE(isLineOfTask(-12, " -12"));
    EXPECT_FALSE(isLineOfTask(12, " -12"));
}

TEST(DropLinesOfTask, ReadsAnIdBeyondTheRangeAsItsLow32Bits)
{
    EXPECT_TRUE(isLineOfTask(12, " 4294967308"));
    EXPECT_FALSE(isLineOfTask(INT_MAX, " 4294967308"));
    EXPECT_TRUE(isLineOfTask(-12, " -4294967308"));
}

TEST(DropLinesOfTask, ReadsAtMost15CharactersOfTheId)
{
    EXPECT_TRUE(isLineOfTask(12, " 000000000000012"));
    EXPECT_TRUE(isLineOfTask(1, " 0000000000000012"));
    EXPECT_FALSE(isLineOfTask(12, " 0000000000000012"));
    EXPECT_TRUE(isLineOfTask(0, " " + std::string(400, '0') + "12"));
}

TEST(DropLinesOfTask, GoesByTheFirstMentionOfTheName)
{
    EXPECT_FALSE(isLineOfTask(12, " 7; TessaraTaskManager 12"));
    EXPECT_TRUE(isLineOfTask(7, " 7; TessaraTaskManager 12"));
    EXPECT_FALSE(isLineOfTask(12, "TessaraTaskManager 12"));
}

TEST(DropLinesOfTask, FindsTheNameWithoutItsPath)
{
    EXPECT_EQ(backup, afterDropLinesOfTask(12, "* * * * * cd /opt && ./TessaraTaskManager 12\n" + backup));
}

TEST(DropLinesOfTask, EndsTheCopyAtAnEmptyLine)
{
    EXPECT_EQ(backup, afterDropLinesOfTask(12, backup + taskLine(12) + "\n\n" + taskLine(3) + "\n" + backup));
}

TEST(DropLinesOfTask, LeavesNothingIfTheFirstLineIsEmpty)
{
    EXPECT_EQ("", afterDropLinesOfTask(12, "\n" + backup));
}

TEST(DropLinesOfTask, GivesShortLinesTheirLineFeed)
{
    EXPECT_EQ("#\nab\n" + backup, afterDropLinesOfTask(12, "#\nab\n" + backup));
}

TEST(DropLinesOfTask, GivesALastLineWithoutALineFeedOne)
{
    EXPECT_EQ(backup + "ab\n", afterDropLinesOfTask(12, backup + "ab"));
    EXPECT_EQ(taskLine(3) + "\n", afterDropLinesOfTask(12, taskLine(3)));
}

TEST(DropLinesOfTask, KeepsALineOf499CharactersWhole)
{
    EXPECT_EQ(longLine(499) + "\n" + backup, afterDropLinesOfTask(12, longLine(499) + "\n" + backup));
    EXPECT_EQ(longLine(499) + "\n", afterDropLinesOfTask(12, longLine(499)));
}

TEST(DropLinesOfTask, CutsALineOf500CharactersAndEndsTheCopyThere)
{
    EXPECT_EQ(backup + longLine(499) + "\n", afterDropLinesOfTask(12, backup + longLine(500) + "\n" + backup));
}

TEST(DropLinesOfTask, DropsALineOfTheTaskThatIsTooLongAndEndsTheCopyThere)
{
    EXPECT_EQ(backup, afterDropLinesOfTask(12, backup + taskLine(12) + longLine(500) + "\n" + backup));
}

TEST(DropLinesOfTask, ReadsTheIdFromTheFirst499CharactersOfALine)
{
    const std::string line = filledTo(500, "TessaraTaskManager 12");
    EXPECT_EQ(line.substr(0, 499) + "\n", afterDropLinesOfTask(12, line + "\n"));
    EXPECT_EQ("", afterDropLinesOfTask(1, line + "\n"));
}

TEST(DropLinesOfTask, CutsALineAtItsZeroByte)
{
    EXPECT_EQ("ab\n" + backup, afterDropLinesOfTask(12, "ab\0TessaraTaskManager 12\n"s + backup));
    EXPECT_EQ("", afterDropLinesOfTask(1, "TessaraTaskManager 1\0"s + "2\n"));
    EXPECT_EQ("", afterDropLinesOfTask(12, "\0\n"s + backup));
}

TEST(DropLinesOfTask, TreatsACarriageReturnAsACharacter)
{
    EXPECT_EQ("\r\n" + backup, afterDropLinesOfTask(12, "\r\n" + backup));
    EXPECT_TRUE(isLineOfTask(12, " 12\r"));
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

TEST(SplitTaskLines, KeepsLinesWithoutATaskLineUpToTheFirstEmptyOne)
{
    EXPECT_EQ("#\nab\nabc\n" + backup, afterSplitTaskLines("#\nab\nabc\n" + backup + "\n" + backup));
}

TEST(SplitTaskLines, AsksForNoScheduleIfThereIsNoTaskLine)
{
    EXPECT_EQ(std::vector<int>(), idsAskedFor("TessaraTaskManager 12\n" + backup + "\n" + taskLine(1) + "\n"));
}

TEST(SplitTaskLines, LeavesNothingOfAnEmptyCrontab)
{
    EXPECT_EQ("", afterSplitTaskLines(""));
    EXPECT_EQ("", afterSplitTaskLines("\n" + backup));
}

TEST(SplitTaskLines, AsksForTheScheduleOfTask0WhateverTheIdOfTheLine)
{
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor(taskLine(12) + "\n"));
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor("5 3 * * * " + manager + "\n"));
    EXPECT_EQ(std::vector<int>{0}, idsAskedFor("5 3 * * * " + manager + "12 12\n"));
}

TEST(SplitTaskLines, AsksForTheScheduleAgainForEachPiece)
{
    EXPECT_EQ(
        (std::vector<int>{0, 0, 0, 0}), idsAskedFor("ab" + taskLine(1) + taskLine(2) + "\n" + taskLine(3) + "\n"));
}

TEST(SplitTaskLines, UsesTheLatestSchedule)
{
    std::istringstream in("ab" + taskLine(1, "5 3 * * *") + "cd" + taskLine(2, "6 4 * * *") + "\n");
    std::ostringstream out;
    Texts schedules{"5 3 * * *", "5 3 * * *", "6 4 * * *", "6 4 * * *"};
    const auto nextSchedule = [&schedules](int) {
        const std::string schedule = schedules.at(0);
        schedules.erase(schedules.begin());
        return schedule;
    };
    splitTaskLines(nextSchedule, in, out);
    EXPECT_EQ("a\n" + taskLine(1, "5 3 * * *") + "\nc\n" + taskLine(2, "6 4 * * *") + "\n", out.str());
    EXPECT_EQ(Texts(), schedules);
}

TEST(SplitTaskLines, KeepsATaskLineOnItsOwn)
{
    EXPECT_EQ(taskLine(12) + "\n" + backup, afterSplitTaskLines(taskLine(12) + "\n" + backup));
}

TEST(SplitTaskLines, GivesALastTaskLineWithoutALineFeedOne)
{
    EXPECT_EQ(taskLine(12) + "\n", afterSplitTaskLines(taskLine(12)));
}

TEST(SplitTaskLines, DropsTheCharacterBetweenATextAndTheScheduleThatFollows)
{
    EXPECT_EQ("a\n" + taskLine(12) + "\n", afterSplitTaskLines("ab" + taskLine(12) + "\n"));
    EXPECT_EQ("0 1 * * * /bin/backup\n" + taskLine(12) + "\n",
        afterSplitTaskLines("0 1 * * * /bin/backup;" + taskLine(12) + "\n"));
}

TEST(SplitTaskLines, WritesAnEmptyLineForASingleCharacterBeforeTheSchedule)
{
    EXPECT_EQ("\n" + taskLine(12) + "\n", afterSplitTaskLines("#" + taskLine(12) + "\n"));
}

TEST(SplitTaskLines, FindsTheScheduleInsideALongerOne)
{
    EXPECT_EQ(
        "\n" + taskLine(12, "5 3 * * *") + "\n", afterSplitTaskLines(taskLine(12, "15 3 * * *") + "\n", "5 3 * * *"));
    EXPECT_EQ(
        "30 \n" + taskLine(12, "3 * * *") + "\n", afterSplitTaskLines(taskLine(12, "30 53 * * *") + "\n", "3 * * *"));
}

TEST(SplitTaskLines, FindsAnEmptyScheduleAtTheBlankBeforeTheTaskManager)
{
    EXPECT_EQ("5 3 * * \n " + manager + " 12" + discarded + "\n", afterSplitTaskLines(taskLine(12) + "\n", ""));
}

TEST(SplitTaskLines, FindsAScheduleOnlyRightBeforeTheTaskManager)
{
    const std::string line = "#" + nightly + " /bin/sh -c " + manager + " 12" + discarded + "\n";
    EXPECT_EQ(line, afterSplitTaskLines(line));
}

TEST(SplitTaskLines, KeepsATaskLineWithAnotherScheduleAfterATextTogether)
{
    EXPECT_EQ("ab" + taskLine(12) + "\n", afterSplitTaskLines("ab" + taskLine(12) + "\n", "0 0 1 1 *"));
}

TEST(SplitTaskLines, SearchesTheWholeOfAScheduleOfMoreThan50Characters)
{
    const std::string schedule = "0,5,10,15,20,25,30,35,40,45,50,55 0,2,4,6,8,10,12,14,16,18,20,22 * * 1-5";
    const std::string other = "1" + schedule.substr(1);
    EXPECT_EQ(
        "a\n" + taskLine(12, schedule) + "\n", afterSplitTaskLines("ab" + taskLine(12, schedule) + "\n", schedule));
    EXPECT_EQ("ab" + taskLine(12, other) + "\n", afterSplitTaskLines("ab" + taskLine(12, other) + "\n", schedule));
}

TEST(SplitTaskLines, SearchesAScheduleLongerThanALine)
{
    EXPECT_EQ("ab" + taskLine(12) + "\n", afterSplitTaskLines("ab" + taskLine(12) + "\n", longLine(5000)));
}

TEST(SplitTaskLines, SeparatesTwoTaskLinesThatWereJoined)
{
    EXPECT_EQ(taskLine(1) + "\n" + taskLine(2) + "\n", afterSplitTaskLines(taskLine(1) + taskLine(2) + "\n"));
}

TEST(SplitTaskLines, SeparatesJoinedTaskLinesOfOtherSchedules)
{
    const std::string first = taskLine(1, "1 1 * * *");
    const std::string second = taskLine(2, "2 2 * * *");
    const std::string third = taskLine(3, "3 3 * * *");
    EXPECT_EQ(first + "\n" + second + "\n" + third + "\n", afterSplitTaskLines(first + second + third + "\n"));
}

TEST(SplitTaskLines, WritesThePiecesBetweenTaskLinesAsLines)
{
    EXPECT_EQ(taskLine(1) + "\n/bin/tidy\n" + taskLine(2) + "\n",
        afterSplitTaskLines(taskLine(1) + "/bin/tidy;" + taskLine(2) + "\n"));
}

TEST(SplitTaskLines, KeepsATextBeforeATaskLineOfAnotherScheduleWithIt)
{
    const std::string other = taskLine(2, "2 2 * * *");
    EXPECT_EQ(
        taskLine(1) + "\n/bin/tidy;" + other + "\n", afterSplitTaskLines(taskLine(1) + "/bin/tidy;" + other + "\n"));
}

TEST(SplitTaskLines, WritesATextOfThreeCharactersAfterATaskLineAsALine)
{
    EXPECT_EQ(taskLine(12) + "\nabc\n" + backup, afterSplitTaskLines(taskLine(12) + "abc\n" + backup));
}

TEST(SplitTaskLines, JoinsATextOfTwoCharactersAfterATaskLineToTheNextLine)
{
    EXPECT_EQ(taskLine(12) + "\nab" + backup, afterSplitTaskLines(taskLine(12) + "ab\n" + backup));
}

TEST(SplitTaskLines, JoinsATextOfOneCharacterAfterATaskLineToTheNextLine)
{
    EXPECT_EQ(
        taskLine(12) + "\n " + taskLine(13) + "\n", afterSplitTaskLines(taskLine(12) + " \n" + taskLine(13) + "\n"));
}

TEST(SplitTaskLines, TreatsACarriageReturnAfterATaskLineAsText)
{
    EXPECT_EQ(taskLine(12) + "\n\r" + backup, afterSplitTaskLines(taskLine(12) + "\r\n" + backup));
}

TEST(SplitTaskLines, EndsATaskLine14CharactersAfterTheStartOfItsNullDevice)
{
    EXPECT_EQ("1 1 * * * " + manager + " 1 > /dev/null;1234\n5678\n",
        afterSplitTaskLines("1 1 * * * " + manager + " 1 > /dev/null;12345678\n"));
}

TEST(SplitTaskLines, KeepsALineTogetherThatEndsBeforeTheRedirectionWould)
{
    for (const std::string end : {"", " ", " 2>&", " 2>&1"})
        EXPECT_EQ("1 1 * * * " + manager + " 1 > /dev/null" + end + "\n",
            afterSplitTaskLines("1 1 * * * " + manager + " 1 > /dev/null" + end + "\n"));
}

TEST(SplitTaskLines, KeepsATaskLineWithoutANullDeviceAndGoesOnWithTheNextLine)
{
    const std::string line = nightly + " " + manager + " 12 > /tmp/log\n";
    EXPECT_EQ(line + backup, afterSplitTaskLines(line + backup));
    EXPECT_EQ("ab 1" + line + backup, afterSplitTaskLines("ab 1" + line + backup, "9 9 * * *"));
}

TEST(SplitTaskLines, SplitsATaskLineWithoutANullDeviceAtItsSchedule)
{
    const std::string line = nightly + " " + manager + " 12 > /tmp/log\n";
    EXPECT_EQ("a\n" + line + backup, afterSplitTaskLines("ab" + line + backup));
}

TEST(SplitTaskLines, WritesTheRestOfALineWithoutAnotherNullDeviceAsALine)
{
    const std::string second = "2 2 * * * " + manager + " 2 > /tmp/log";
    EXPECT_EQ(taskLine(1) + "\n" + second + "\n" + backup, afterSplitTaskLines(taskLine(1) + second + "\n" + backup));
}

TEST(SplitTaskLines, LooksForTheNullDeviceAfterTheMentionOfTheTaskManager)
{
    const std::string line = "1 1 * * * cat /dev/null 2>&1 | " + manager + " 1";
    EXPECT_EQ(line + "\n" + backup, afterSplitTaskLines(line + "\n" + backup));
    EXPECT_EQ(line + discarded + "\nabc\n", afterSplitTaskLines(line + discarded + "abc\n"));
}

TEST(SplitTaskLines, LooksForTheNullDeviceOfASecondTaskLineAfterItsMention)
{
    const std::string second = "2 2 * * * cat /dev/null 2>&1 | " + manager + " 2" + discarded;
    EXPECT_EQ(taskLine(1) + "\n" + second + "\nabc\n", afterSplitTaskLines(taskLine(1) + second + "abc\n"));
}

TEST(SplitTaskLines, LooksForTheNullDeviceAfterTheScheduleOfALaterTaskLine)
{
    const std::string first = taskLine(1, "9 9 * * *");
    EXPECT_EQ(
        first + "\n" + taskLine(2) + "\n" + backup, afterSplitTaskLines(first + ";" + taskLine(2) + "\n" + backup));
}

TEST(SplitTaskLines, EndsAPieceBeforeItBeginsWhereTheRedirectionOfAnEarlierTaskLineEnds)
{
    const std::string first = taskLine(1, "9 9 * * *");
    EXPECT_EQ(first.substr(0, first.size() - 1) + "\n\n" + taskLine(2) + "\n" + backup,
        afterSplitTaskLines(first + taskLine(2) + "\n" + backup));
}

TEST(SplitTaskLines, EndsAPieceWhereTheRedirectionOfAnEarlierTaskLineEndsInsideIt)
{
    const std::string first = "9 9 * * * " + manager + " 1 > /dev/null";
    EXPECT_EQ(first.substr(0, first.size() - 1) + "\n5 3 *\n * * " + manager + " 2" + discarded + "\n" + backup,
        afterSplitTaskLines(first + taskLine(2) + "\n" + backup));
}

TEST(SplitTaskLines, LooksForTheNullDeviceInsideAScheduleAfterAnEarlierTaskLine)
{
    const std::string first = "9 9 * * * " + manager + " 1";
    const std::string schedule = "5 3 * * * cat /dev/null 2>&1 |";
    EXPECT_EQ(first + "\n5 3 * * * cat /dev/null 2>&1\n | " + manager + " 2\n",
        afterSplitTaskLines(first + ";" + schedule + " " + manager + " 2\n", schedule));
}

TEST(SplitTaskLines, SplitsAtTheFirstPlaceWithTheSchedule)
{
    EXPECT_EQ("a\n" + taskLine(1) + "\nc\n" + taskLine(2) + "\n",
        afterSplitTaskLines("ab" + taskLine(1) + "cd" + taskLine(2) + "\n"));
}

TEST(SplitTaskLines, HandlesTheFirst499CharactersOfALineThatIsTooLongAndEndsTheCopyThere)
{
    const std::string line = "ab" + taskLine(12) + longLine(500);
    EXPECT_EQ("a\n" + taskLine(12) + "\n" + line.substr(2 + taskLine(12).size(), 497 - taskLine(12).size()) + "\n",
        afterSplitTaskLines(line + "\n" + backup));
    EXPECT_EQ(longLine(499) + "\n", afterSplitTaskLines(longLine(500) + "\n" + backup));
}

TEST(SplitTaskLines, KeepsALineOf499CharactersWhole)
{
    const std::string line = filledTo(499, " " + manager + " 12" + discarded);
    EXPECT_EQ(
        line + "\n" + longLine(499) + "\n" + backup, afterSplitTaskLines(line + "\n" + longLine(499) + "\n" + backup));
}

TEST(SplitTaskLines, FindsNothingAfterTheFirst499CharactersOfALine)
{
    const std::string manager500 = filledTo(500, manager);
    EXPECT_EQ(manager500.substr(0, 499) + "\n", afterSplitTaskLines(manager500 + "\n"));
    const std::string device500 = filledTo(500, taskLine(12).substr(0, taskLine(12).size() - 5)); // up to "/dev/null"
    EXPECT_EQ(device500.substr(0, 499) + "\n", afterSplitTaskLines(device500 + "\n", "9 9 * * *"));
}

TEST(SplitTaskLines, CutsALineAtItsZeroByte)
{
    EXPECT_EQ("ab\n" + backup, afterSplitTaskLines("ab\0"s + taskLine(12) + "\n" + backup));
    EXPECT_EQ("", afterSplitTaskLines("\0"s + taskLine(12) + "\n" + backup));
}

TEST(SplitTaskLines, FlushesAfterEachLineFeedOnly)
{
    std::istringstream in("ab" + taskLine(1) + "abc\n" + taskLine(2) + "xy\n" + backup);
    FlushedText text;
    std::ostream out(&text);
    splitTaskLines([](int) { return nightly; }, in, out);
    const std::string first = "a\n";
    const std::string second = first + taskLine(1) + "\n";
    const std::string third = second + "abc\n";
    const std::string fourth = third + taskLine(2) + "\n";
    EXPECT_EQ((Texts{first, second, third, fourth, fourth + "xy" + backup}), text.flushed);
}

TEST(SplitTaskLines, PassesOnAnExceptionOfTheScheduleAndLeavesWhatWasWritten)
{
    std::istringstream in(backup + taskLine(12) + "\n" + backup);
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
