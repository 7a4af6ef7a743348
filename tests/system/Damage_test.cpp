#include "SystemTest.h"
#include <cstddef>
#include <string>

using namespace support;

// What is left of the crontabs when the system lets the program down.
namespace {

const std::string backup = "0 1 * * * /bin/backup\n";
const std::string report = "30 6 * * 1 /bin/report --all\n";
const std::string annasTask = taskLine(3);
const std::string bensTask = taskLine(4);

// Anna and Ben have a task each, and a crontab with a foreign line and a task line.
class Damage : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({3, anna});
        addTask({4, ben});
        setCrontab("anna", backup + annasTask);
        setCrontab("ben", report + bensTask);
    }

    static void expectCrontabs(const std::string& ofAnna, const std::string& ofBen)
    {
        EXPECT_EQ(ofAnna, crontabOf("anna"));
        EXPECT_EQ(ofBen, crontabOf("ben"));
    }

    static void expectTheFirstCrontabs() { expectCrontabs(backup + annasTask, report + bensTask); }
};

std::string jobsOfSize(size_t bytes)
{
    std::string text;
    while (text.size() + backup.size() <= bytes)
        text += backup;
    return text;
}

} // namespace

// The calls of popen: 1 lists Anna's crontab, 2 installs it, 3 lists Ben's, 4 installs it.

TEST_F(Damage, CleanEmptiesACrontabWhoseListingCannotBeStarted)
{
    EXPECT_EQ("", clean(failingPopen("1")));
    EXPECT_TRUE(hasCrontab("anna"));
    expectCrontabs("", report);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanNeverInstallsOneUsersJobsForAnother)
{
    EXPECT_EQ("", clean(failingPopen("3")));
    EXPECT_TRUE(hasCrontab("ben"));
    expectCrontabs(backup, "");
}

TEST_F(Damage, CleanNeverInstallsJobsThatAnEarlierRunHasLeftInTheScratchDirectory)
{
    writeFile(crontabCopy, "0 0 * * * /bin/somebody-elses\n");
    writeFile(filteredCopy, "0 0 * * * /bin/somebody-elses\n");
    clean(failingPopen("1,3"));
    expectCrontabs("", "");
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanLeavesACrontabAsItWasWhenItsInstallCannotBeStarted)
{
    EXPECT_EQ("", clean(failingPopen("2")));
    expectCrontabs(backup + annasTask, report);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanLeavesAllCrontabsAsTheyWereWhenNothingCanBeStarted)
{
    EXPECT_EQ("", clean(failingPopen("1,2,3,4")));
    expectTheFirstCrontabs();
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, RebuildReplacesACrontabWhoseListingCannotBeStartedWithItsTaskLines)
{
    EXPECT_EQ("", rebuild(failingPopen("1")));
    expectCrontabs(annasTask, report + bensTask + bensTask);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, RebuildNeverInstallsOneUsersJobsForAnother)
{
    execSql("update TaskTable set status=6 where userId=501"); // Anna's copy is left behind
    EXPECT_EQ("", rebuild(failingPopen("2"))); // Ben's listing: nothing is installed for Anna
    expectCrontabs(backup + annasTask, bensTask);
}

TEST_F(Damage, RebuildNeverInstallsJobsThatAnEarlierRunHasLeftInTheScratchDirectory)
{
    writeFile(crontabCopy, "0 0 * * * /bin/somebody-elses\n");
    rebuild(failingPopen("1"));
    expectCrontabs(annasTask, report + bensTask + bensTask);
}

TEST_F(Damage, RebuildLeavesACrontabAsItWasWhenItsInstallCannotBeStarted)
{
    EXPECT_EQ("", rebuild(failingPopen("2")));
    expectCrontabs(backup + annasTask, report + bensTask + bensTask);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, NothingIsChangedWithoutTheScratchDirectory)
{
    ASSERT_EQ(0, runProgram({"/bin/rmdir", scratchDirectory}).status);
    clean();
    expectTheFirstCrontabs();
    rebuild();
    expectTheFirstCrontabs();
}

TEST_F(Damage, CleanEmptiesTheCrontabsWhenTheirCopiesCannotBeMade)
{
    blockScratchFile("crontemp.txt");
    EXPECT_EQ("", clean());
    EXPECT_TRUE(hasCrontab("anna"));
    expectCrontabs("", "");
    EXPECT_EQ(Files{"crontemp.txt"}, scratchFiles());
}

TEST_F(Damage, CleanChangesNothingWhenTheFilteredCopiesCannotBeMade)
{
    blockScratchFile("temp2.txt");
    clean();
    expectTheFirstCrontabs();
    EXPECT_EQ(Files{"temp2.txt"}, scratchFiles());
}

TEST_F(Damage, RebuildChangesNothingWhenTheCopiesCannotBeMade)
{
    blockScratchFile("crontemp.txt");
    rebuild();
    expectTheFirstCrontabs();
}

TEST_F(Damage, RebuildStillAsksForTheInstallWhenTheCopyCannotBeMade)
{
    useRecordingCrontab();
    execSql("delete from TaskTable where userId=502");
    blockScratchFile("crontemp.txt");
    rebuild();
    EXPECT_EQ((Calls{"-u anna -l", "-u anna /usr/local/Quarno/Kestrelcore/var/tmp/crontemp.txt"}), crontabCalls());
    EXPECT_FALSE(hasCrontab("anna"));
}

TEST_F(Damage, NothingIsChangedWhenTheScratchDirectoryCanTakeNoFile)
{
    limitScratchDirectory(0, 0);
    ASSERT_EQ(0, runProgram({"/bin/mount", "-o", "remount,ro", scratchDirectory}).status);
    clean();
    expectTheFirstCrontabs();
    rebuild();
    expectTheFirstCrontabs();
}

TEST_F(Damage, CleanChangesNothingWhenTheScratchDirectoryCanTakeOneFileOnly)
{
    limitScratchDirectory(0, 1);
    clean();
    expectTheFirstCrontabs();
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanNeverInstallsACrontabThatDidNotFitOnTheDisk)
{
    const std::string large = jobsOfSize(10000);
    setCrontab("anna", large);
    limitScratchDirectory(8192, 0);
    EXPECT_EQ("", clean());
    expectCrontabs(large, report);
    EXPECT_EQ(Files{}, scratchFiles());
}

// Then nothing is left to be written to the full disk.
TEST_F(Damage, CleanNeverInstallsTheStartOfACrontabWhoseTaskLinesFillTheDisk)
{
    std::string large;
    while (large.size() < 10000)
        large += annasTask;
    setCrontab("anna", large + backup);
    limitScratchDirectory(8192, 0);
    EXPECT_EQ("", clean());
    expectCrontabs(large + backup, report);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanNeverInstallsAFilteredCrontabThatDidNotFitOnTheDisk)
{
    const std::string large = jobsOfSize(10000);
    setCrontab("anna", large);
    limitScratchDirectory(3 * 4096 + 4096, 0); // the copy takes three pages, the filtered one would too
    EXPECT_EQ("", clean());
    expectCrontabs(large, report);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, RebuildNeverInstallsACrontabThatDidNotFitOnTheDisk)
{
    const std::string large = jobsOfSize(10000);
    setCrontab("anna", large);
    limitScratchDirectory(8192, 0);
    EXPECT_EQ("", rebuild());
    expectCrontabs(large, report + bensTask + bensTask);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, RebuildNeverInstallsTheStartOfACrontabToWhichItAddsNothing)
{
    const std::string large = jobsOfSize(10000);
    setCrontab("anna", large);
    execSql("update TaskTable set type=3 where userId=501");
    limitScratchDirectory(8192, 0);
    EXPECT_EQ("", rebuild());
    expectCrontabs(large, report + bensTask + bensTask);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, RebuildNeverInstallsTaskLinesThatDidNotFitOnTheDisk)
{
    const std::string large = jobsOfSize(8192 - 60); // no room for the 80 characters of a task line
    setCrontab("anna", large);
    limitScratchDirectory(8192, 0);
    EXPECT_EQ("", rebuild());
    expectCrontabs(large, report + bensTask + bensTask);
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Damage, CleanFillsTheDiskAtEverySizeWithoutLosingAJob)
{
    const std::string large = jobsOfSize(20000);
    for (const long pages : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
        setCrontab("anna", large + annasTask);
        limitScratchDirectory(pages * 4096, 0);
        clean();
        const bool fits = pages >= 10; // five pages for each of the two files
        EXPECT_EQ(fits ? large : large + annasTask, crontabOf("anna")) << pages;
    }
}
