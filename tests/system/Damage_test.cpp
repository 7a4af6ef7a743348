#include "SystemTest.h"

#include <cstddef>
#include <string>

using namespace support;

// What happens to the crontabs when the system fails.
namespace {

class Damage : public TwoOwnersTest {
protected:
    /// If the disk has no room for the new text of Anna's crontab, a rebuild leaves that as it is, and rebuilds Ben's.
    static void expectNoRebuildOf(const std::string& crontab)
    {
        setCrontab("anna", crontab);
        limitScratchDirectory(8192, 0);
        EXPECT_EQ("", rebuild());
        expectCrontabs(crontab, report + bensTask + bensTask);
        EXPECT_EQ(Files{}, scratchFiles());
    }
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

TEST_F(Damage, CleanNeverInstallsJobsThatAnEarlierRunLeftInTheScratchDirectory)
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
    expectUnchanged();
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
    execSql("update TaskTable set status=6 where userId=501"); // nothing is installed for Anna, and her copy stays
    EXPECT_EQ("", rebuild(failingPopen("2"))); // Ben's listing
    expectCrontabs(backup + annasTask, bensTask);
}

TEST_F(Damage, RebuildNeverInstallsJobsThatAnEarlierRunLeftInTheScratchDirectory)
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
    expectUnchanged();
    rebuild();
    expectUnchanged();
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
    expectUnchanged();
    EXPECT_EQ(Files{"temp2.txt"}, scratchFiles());
}

TEST_F(Damage, RebuildChangesNothingWhenTheCopiesCannotBeMade)
{
    blockScratchFile("crontemp.txt");
    rebuild();
    expectUnchanged();
}

TEST_F(Damage, RebuildStillAsksForTheInstallWhenTheCopyCannotBeMade)
{
    useRecordingCrontab();
    execSql("delete from TaskTable where userId=502");
    blockScratchFile("crontemp.txt");
    rebuild();
    EXPECT_EQ((Calls{"-u anna -l", "-u anna " + crontabCopy}), crontabCalls());
    EXPECT_FALSE(hasCrontab("anna"));
}

TEST_F(Damage, NothingIsChangedWhenTheScratchDirectoryCanTakeNoFile)
{
    limitScratchDirectory(0, 0);
    ASSERT_EQ(0, runProgram({"/bin/mount", "-o", "remount,ro", scratchDirectory}).status);
    clean();
    expectUnchanged();
    rebuild();
    expectUnchanged();
}

TEST_F(Damage, CleanChangesNothingWhenTheScratchDirectoryCanTakeOneFileOnly)
{
    limitScratchDirectory(0, 1);
    clean();
    expectUnchanged();
    EXPECT_EQ(Files{}, scratchFiles());
}

// The clean drops the task lines, so it never writes to the full disk itself.
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

TEST_F(Damage, RebuildNeverInstallsACrontabThatDidNotFitOnTheDisk)
{
    expectNoRebuildOf(jobsOfSize(10000));
}

TEST_F(Damage, RebuildNeverInstallsTheStartOfACrontabToWhichItAddsNothing)
{
    execSql("update TaskTable set type=3 where userId=501");
    expectNoRebuildOf(jobsOfSize(10000));
}

TEST_F(Damage, RebuildNeverInstallsTaskLinesThatDidNotFitOnTheDisk)
{
    expectNoRebuildOf(jobsOfSize(8192 - 60)); // a task line has 80 characters
}

TEST_F(Damage, CleanNeverInstallsACrontabThatDidNotFitOnTheDiskWhateverItsSize)
{
    const std::string large = jobsOfSize(20000);
    for (const long pages : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
        SCOPED_TRACE(pages);
        setCrontab("anna", large + annasTask);
        setCrontab("ben", report + bensTask);
        limitScratchDirectory(pages * 4096, 0);
        EXPECT_EQ("", clean());
        const bool fits = pages >= 10; // five pages for each of the two files
        expectCrontabs(fits ? large : large + annasTask, pages > 1 ? report : report + bensTask);
        EXPECT_EQ(Files{}, scratchFiles());
    }
}
