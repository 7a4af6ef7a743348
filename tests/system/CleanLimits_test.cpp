#include "SystemTest.h"
#include <cstddef>
#include <string>

using namespace support;

// Which lines of a crontab a clean keeps, byte for byte.
namespace {

class CleanLimits : public RecordedSystemTest {
protected:
    /// What a clean makes of a crontab.
    static std::string cleaned(const std::string& text)
    {
        execSql("delete from TaskTable");
        addTask({3, anna});
        setCrontab("anna", text);
        clean();
        return crontabOf("anna");
    }
};

const std::string backup = "0 1 * * * /bin/backup\n";
const std::string marker = "/usr/local/Quarno/Kestrelcore/TessaraTaskManager";

std::string ofLength(size_t length)
{
    return std::string(length, 'x');
}

} // namespace

TEST_F(CleanLimits, KeepsALineOf3Characters)
{
    EXPECT_EQ("abc\n" + backup, cleaned("abc\n" + backup));
}

TEST_F(CleanLimits, JoinsALineOf2CharactersToTheNext)
{
    EXPECT_EQ("ab" + backup, cleaned("ab\n" + backup));
}

TEST_F(CleanLimits, JoinsALineOf1CharacterToTheNext)
{
    EXPECT_EQ("a" + backup, cleaned("a\n" + backup));
}

TEST_F(CleanLimits, JoinsShortLinesToEachOther)
{
    EXPECT_EQ("abcde" + backup, cleaned("ab\nc\nde\n" + backup));
}

TEST_F(CleanLimits, EndsWithoutANewlineWhenTheLastKeptLineIsShort)
{
    EXPECT_EQ(backup + "ab", cleaned(backup + "ab\n" + taskLine(3)));
}

TEST_F(CleanLimits, GivesALastLineWithoutANewlineOne)
{
    EXPECT_EQ(backup + "0 2 * * * /bin/x\n", cleaned(backup + "0 2 * * * /bin/x"));
}

TEST_F(CleanLimits, DropsALastTaskLineWithoutANewline)
{
    EXPECT_EQ(backup, cleaned(backup + "0 3 * * * " + marker + " 3"));
}

TEST_F(CleanLimits, KeepsALastShortLineWithoutANewlineAsItIs)
{
    EXPECT_EQ(backup + "a", cleaned(backup + "a"));
}

TEST_F(CleanLimits, LeavesAnEmptyCrontabEmpty)
{
    EXPECT_EQ("", cleaned(""));
    EXPECT_TRUE(hasCrontab("anna"));
}

TEST_F(CleanLimits, KeepsALineOf499CharactersAndGoesOn)
{
    EXPECT_EQ(ofLength(499) + "\n" + backup, cleaned(ofLength(499) + "\n" + backup));
}

TEST_F(CleanLimits, KeepsALastLineOf499CharactersWithoutANewline)
{
    EXPECT_EQ(backup + ofLength(499) + "\n", cleaned(backup + ofLength(499)));
}

TEST_F(CleanLimits, CutsALineOf500CharactersAndStops)
{
    EXPECT_EQ(ofLength(499) + "\n", cleaned(ofLength(500) + "\n" + backup));
}

TEST_F(CleanLimits, CutsALastLineOf500CharactersWithoutANewline)
{
    EXPECT_EQ(backup + ofLength(499) + "\n", cleaned(backup + ofLength(500)));
}

TEST_F(CleanLimits, CutsALineOf5000CharactersAndStops)
{
    EXPECT_EQ(backup + ofLength(499) + "\n", cleaned(backup + ofLength(5000) + "\n" + backup));
}

TEST_F(CleanLimits, DropsALineWhoseMentionEndsAtCharacter499)
{
    EXPECT_EQ(backup, cleaned(ofLength(499 - marker.size()) + marker + "\n" + backup));
}

TEST_F(CleanLimits, DropsALongLineWhoseMentionEndsAtCharacter499AndStops)
{
    EXPECT_EQ(backup, cleaned(backup + ofLength(499 - marker.size()) + marker + " 3\n" + backup));
}

TEST_F(CleanLimits, KeepsTheStartOfALongLineWhoseMentionEndsAtCharacter500)
{
    const std::string line = ofLength(500 - marker.size()) + marker;
    EXPECT_EQ(backup + line.substr(0, 499) + "\n", cleaned(backup + line + "\n" + backup));
}

TEST_F(CleanLimits, KeepsTheStartOfALongLineThatMentionsTheTaskManagerTooLate)
{
    EXPECT_EQ(ofLength(499) + "\n", cleaned(ofLength(520) + marker + "\n" + backup));
}

TEST_F(CleanLimits, DropsALineThatMentionsTheTaskManagerAnywhere)
{
    EXPECT_EQ(backup, cleaned(marker + "\n" + backup));
    EXPECT_EQ(backup, cleaned("0 1 * * * /bin/ls " + marker + "\n" + backup));
    EXPECT_EQ(backup, cleaned("x" + marker + "Backup 7\n" + backup));
    EXPECT_EQ(backup, cleaned("/usr/local/Quarno" + marker + marker + "\n" + backup));
}

TEST_F(CleanLimits, KeepsALineWithAnotherPath)
{
    for (const std::string other : {"0 3 * * * /opt/Kestrelcore/TessaraTaskManager 3\n",
             "0 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManage 3\n",
             "0 3 * * * /usr/local/quarno/kestrelcore/tessarataskmanager 3\n",
             "0 3 * * * /usr/local/Quarno/Kestrelcore//TessaraTaskManager 3\n",
             "0 3 * * * cd /usr/local/Quarno/Kestrelcore/ && ./TessaraTaskManager 3\n"})
        EXPECT_EQ(other + backup, cleaned(other + backup));
}

TEST_F(CleanLimits, DropsALineOfTwoJoinedTaskLinesAsAWhole)
{
    EXPECT_EQ(backup, cleaned("0 3 * * * " + marker + " 3 >> /dev/null 2>&10 3 * * * " + marker + " 4\n" + backup));
}

TEST_F(CleanLimits, TreatsACarriageReturnAsACharacter)
{
    EXPECT_EQ("0 1 * * * /bin/x\r\n\r" + backup, cleaned("0 1 * * * /bin/x\r\n\r\n" + backup));
}

TEST_F(CleanLimits, TreatsBlanksAsCharacters)
{
    EXPECT_EQ("   \n\t\t" + backup, cleaned("   \n\t\t\n" + backup));
}

TEST_F(CleanLimits, KeepsBytesAbove127)
{
    EXPECT_EQ("# \xc3\xa4\xff\x80\n" + backup, cleaned("# \xc3\xa4\xff\x80\n" + backup));
}

TEST_F(CleanLimits, CutsALineAtItsZeroByteAndGoesOn)
{
    const std::string zero(1, '\0');
    EXPECT_EQ("0 1 * * * a\n" + backup, cleaned("0 1 * * * a" + zero + "bc\n" + backup));
    EXPECT_EQ("ab" + backup, cleaned("ab" + zero + "cdef\n" + backup));
    EXPECT_EQ("abc\n" + backup, cleaned("abc" + zero + marker + "\n" + backup));
}

TEST_F(CleanLimits, StopsAtALineThatBeginsWithAZeroByte)
{
    EXPECT_EQ(backup, cleaned(backup + std::string(1, '\0') + "abc\n" + backup));
}

TEST_F(CleanLimits, KeepsThousandsOfLinesInTheirOrder)
{
    std::string before;
    std::string after;
    for (int number = 0; number < 3000; ++number) {
        const std::string line = "0 1 * * * /bin/job " + std::to_string(number) + "\n";
        before += line + taskLine(number);
        after += line;
    }
    EXPECT_EQ(after, cleaned(before));
}
