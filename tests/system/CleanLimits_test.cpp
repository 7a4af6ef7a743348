#include "SystemTest.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

using namespace support;
using namespace std::string_literals;

// Which lines of a crontab a clean keeps, byte for byte.
namespace {

struct Rule {
    std::string name;
    std::string before;
    std::string after;
};

std::ostream& operator<<(std::ostream& out, const Rule& rule)
{
    return out << rule.name;
}

std::string ofLength(size_t length)
{
    return std::string(length, 'x');
}

/// `text` after as many letters as make it `length` characters long.
std::string filledTo(size_t length, const std::string& text)
{
    return ofLength(length - text.size()) + text;
}

const std::string mentions = taskManager + "\n0 1 * * * /bin/ls " + taskManager + "\nx" + taskManager
    + "Backup 7\n/usr/local/Quarno" + taskManager + taskManager + "\n";
const std::string otherPaths = "0 3 * * * /opt/Kestrelcore/TessaraTaskManager 3\n"
                               "0 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManage 3\n"
                               "0 3 * * * /usr/local/quarno/kestrelcore/tessarataskmanager 3\n"
                               "0 3 * * * /usr/local/Quarno/Kestrelcore//TessaraTaskManager 3\n"
                               "0 3 * * * cd /usr/local/Quarno/Kestrelcore/ && ./TessaraTaskManager 3\n";

const std::vector<Rule> rules = {
    {"KeepsALineOf3Characters", "abc\n" + backup, "abc\n" + backup},
    {"JoinsALineOf2CharactersToTheNext", "ab\n" + backup, "ab" + backup},
    {"JoinsShortLinesToEachOther", "ab\nc\nde\n" + backup, "abcde" + backup},
    {"KeepsALineOf499CharactersAndGoesOn", ofLength(499) + "\n" + backup, ofLength(499) + "\n" + backup},
    {"CutsALineOf500CharactersAndStops", ofLength(500) + "\n" + backup, ofLength(499) + "\n"},
    {"CutsALineOf5000CharactersAndStops", ofLength(5000) + "\n" + backup, ofLength(499) + "\n"},

    {"WritesNoNewlineAfterAShortLastLine", backup + "ab\n" + taskLine(3), backup + "ab"},
    {"KeepsAShortLastLineWithoutANewline", backup + "a", backup + "a"},
    {"AddsAMissingLastNewline", backup + "0 2 * * * /bin/x", backup + "0 2 * * * /bin/x\n"},
    {"AddsAMissingLastNewlineAfter499Characters", ofLength(499), ofLength(499) + "\n"},
    {"CutsALastLineOf500CharactersWithoutANewline", ofLength(500), ofLength(499) + "\n"},
    {"DropsALastTaskLineWithoutANewline", backup + openTaskLine(3), backup},
    {"LeavesAnEmptyCrontabEmpty", "", ""},

    {"DropsALineThatMentionsTheTaskManagerAnywhere", mentions + backup, backup},
    {"DropsALineOfTwoJoinedTaskLinesAsAWhole", openTaskLine(3) + taskLine(4) + backup, backup},
    {"KeepsALineWithAnotherPath", otherPaths + backup, otherPaths + backup},
    {"DropsALineWhoseMentionEndsAtCharacter499", filledTo(499, taskManager) + "\n" + backup, backup},
    {"DropsALongLineWhoseMentionEndsAtCharacter499AndStops", filledTo(499, taskManager) + " 3\n" + backup, ""},
    {"KeepsTheStartOfALongLineWhoseMentionEndsAtCharacter500", filledTo(500, taskManager) + "\n" + backup,
        filledTo(500, taskManager).substr(0, 499) + "\n"},

    {"TreatsACarriageReturnAsACharacter", "0 1 * * * /bin/x\r\n\r\n" + backup, "0 1 * * * /bin/x\r\n\r" + backup},
    {"TreatsBlanksAsCharacters", "   \n\t\t\n" + backup, "   \n\t\t" + backup},
    {"KeepsBytesAbove127", "# \xc3\xa4\xff\x80\n" + backup, "# \xc3\xa4\xff\x80\n" + backup},
    {"CutsALineAtItsZeroByteAndGoesOn", "abc\0"s + taskManager + "\n" + backup, "abc\n" + backup},
    {"JoinsALineWithAZeroByteAfter2CharactersToTheNext", "ab\0cdef\n"s + backup, "ab" + backup},
    {"StopsAtALineThatBeginsWithAZeroByte", backup + "\0abc\n"s + backup, backup},
};

class CleanLimits : public RecordedSystemTest, public testing::WithParamInterface<Rule> { };

} // namespace

TEST_P(CleanLimits, Hold)
{
    addTask({3, anna});
    setCrontab("anna", GetParam().before);
    clean();
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ(GetParam().after, crontabOf("anna"));
}

INSTANTIATE_TEST_SUITE_P(
    Rule, CleanLimits, testing::ValuesIn(rules), [](const auto& instance) { return instance.param.name; });
