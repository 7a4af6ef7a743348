#include "SystemTest.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// How the other crontab programs that Debian packages differ. Each suite needs one of them as /usr/bin/crontab:
// scripts/test-crontabs installs them in turn. Debian's own crontab is in CronDialects_test.cpp.

using namespace support;

namespace {

const std::string job = "0 3 * * * /bin/backup\n";
const std::string task12 = taskLine(12, "7 * * * *");
const std::string header = "# DO NOT EDIT\n# (installed)\n# (version)\n";

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int time = 0; time < times; ++time)
        all += text;
    return all;
}

class OtherProgram : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({12, anna, "7 * * * *"});
    }
};

/// What the program prints when it refuses to install this for anna. Empty if it installs it.
std::string refusal(const std::string& text)
{
    writeFile(testDirectory + "new", text);
    const auto end = runProgram({"/usr/bin/crontab", "-u", "anna", testDirectory + "new"});
    EXPECT_EQ(end.status == 0, end.errors.empty()) << end.errors;
    return end.errors;
}

/// What several of the programs do, with root's crontab: busybox changes no other.
class SeveralCrontabs : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({12, 0, "7 * * * *"});
    }
};

TEST_F(SeveralCrontabs, KeepThreeCommentsOfAFilePutThereByHand)
{
    storeCrontab("root", "# one\n# two\n# three\n" + job);
    clean();
    EXPECT_EQ("# one\n# two\n# three\n" + job, storedCrontab("root"));
}

TEST_F(SeveralCrontabs, InstallAJobWithoutALineBreakSoThatTheTaskLineJoinsIt)
{
    setCrontab("root", "0 3 * * * /bin/backup");
    rebuild();
    EXPECT_EQ("0 3 * * * /bin/backup" + task12, storedCrontab("root"));
}

TEST_F(SeveralCrontabs, InstallALineThatACarriageReturnHasJoined)
{
    storeCrontab("root", job + "\r\n30 6 * * 1 /bin/report\n" + task12);
    clean();
    EXPECT_EQ(job + "\r30 6 * * 1 /bin/report\n", storedCrontab("root"));
}

TEST_F(SeveralCrontabs, InstallALineThatIsNoJob)
{
    addTask({15, 0, "61 * * * *"});
    setCrontab("root", job);
    rebuild();
    EXPECT_EQ(job + task12 + taskLine(15, "61 * * * *"), storedCrontab("root"));
}

TEST_F(SeveralCrontabs, LetRootPastCronDeny)
{
    execSql("update TaskTable set userId=501");
    setCrontab("anna", job + task12);
    denyCron("anna");
    EXPECT_EQ("", clean());
    EXPECT_EQ(job, storedCrontab("anna"));
}

class CronieCrontab : public OtherProgram { };

TEST_F(CronieCrontab, KeepsTheHeaderOfACrontabThatComesFromAnotherSystemAsComments)
{
    storeCrontab("anna", header + job);
    clean();
    rebuild();
    EXPECT_EQ(header + job + task12, crontabOf("anna"));
}

TEST_F(CronieCrontab, RefusesAJobWithoutALineBreak)
{
    EXPECT_EQ("\"/usr/local/private-world/test/new\":1: premature EOF\nInvalid crontab file, can't install.\n",
        refusal("0 3 * * * /bin/backup"));
}

TEST_F(CronieCrontab, InstallsAJobThatTheTaskLineHasJoined)
{
    storeCrontab("anna", "0 3 * * * /bin/backup");
    EXPECT_EQ("", rebuild());
    EXPECT_EQ("0 3 * * * /bin/backup" + task12, storedCrontab("anna"));
}

TEST_F(CronieCrontab, KeepsTheOldCrontabWhenAShortLastSettingLosesItsLineBreak)
{
    setCrontab("anna", job + task12 + "A=\n");
    EXPECT_TRUE(contains(clean(), "temp2.txt\":2: premature EOF\nInvalid crontab file, can't install.\n"));
    EXPECT_EQ(job + task12 + "A=\n", storedCrontab("anna"));
}

TEST_F(CronieCrontab, KeepsTheOldCrontabWhenALineOfTheNewOneIsNoJob)
{
    addTask({15, anna, "61 * * * *"});
    setCrontab("anna", job);
    EXPECT_TRUE(contains(rebuild(), "bad minute\nInvalid crontab file, can't install.\n"));
    EXPECT_EQ(job, storedCrontab("anna"));
}

TEST_F(CronieCrontab, KeepsACrontabWhoseCarriageReturnJoinsTheNextLine)
{
    storeCrontab("anna", job + "\r\n" + job + task12);
    EXPECT_TRUE(contains(clean(), "bad minute"));
    EXPECT_EQ(job + "\r\n" + job + task12, storedCrontab("anna"));
}

TEST_F(CronieCrontab, KeepsACarriageReturnInARebuild)
{
    storeCrontab("anna", "0 3 * * * /bin/backup\r\n");
    EXPECT_EQ("", rebuild());
    EXPECT_EQ("0 3 * * * /bin/backup\r\n" + task12, storedCrontab("anna"));
}

TEST_F(CronieCrontab, RefusesMoreThan10000Jobs)
{
    EXPECT_EQ("", refusal(repeated("# a comment\n" + job, 10000)));
    EXPECT_TRUE(
        contains(refusal(repeated(job, 10001)), "There are too many entries in the crontab file. Limit: 10000"));
}

TEST_F(CronieCrontab, Refuses32768CharactersOfCommentsInARow)
{
    const std::string comment = "#" + std::string(62, 'x') + "\n";
    EXPECT_EQ("", refusal(repeated(comment, 510) + job + repeated(comment, 510)));
    EXPECT_TRUE(contains(refusal(repeated(comment, 513) + job), "too much non-parseable content"));
}

TEST_F(CronieCrontab, RefusesACommandThatBeginsWithAMinus)
{
    EXPECT_TRUE(contains(refusal("0 3 * * * -/bin/backup\n"), "bad option"));
}

TEST_F(CronieCrontab, RefusesSchedulesThatOthersTake)
{
    EXPECT_TRUE(contains(refusal("5/10 * * * * /bin/backup\n"), "bad minute"));
    EXPECT_TRUE(contains(refusal("0 3 * * * * /bin/backup\n"), "bad command"));
    EXPECT_TRUE(contains(refusal("@every 5m /bin/backup\n"), "bad time specifier"));
}

TEST_F(CronieCrontab, LeavesABackupInTheCacheOfWhoeverRunsIt)
{
    setCrontab("anna", job + task12);
    EXPECT_EQ("", clean({"XDG_CACHE_HOME=" + testDirectory}));
    EXPECT_EQ(job + task12, readFile(testDirectory + "crontab/crontab.anna.bak"));
    EXPECT_EQ("", rebuild({"XDG_CACHE_HOME=" + testDirectory}));
    EXPECT_EQ(job, readFile(testDirectory + "crontab/crontab.anna.bak"));
}

TEST_F(CronieCrontab, SaysThatItLeavesNoBackupWithoutAHome)
{
    setCrontab("anna", job + task12);
    const auto end = runProgram({"/usr/bin/env", "-i", program});
    EXPECT_EQ("Could not find environment variable XDG_CACHE_HOME or HOME to save the backup\n", end.errors);
    EXPECT_EQ(job, storedCrontab("anna"));
}

class SystemdCronCrontab : public OtherProgram { };

TEST_F(SystemdCronCrontab, KeepsTheOldCrontabWhenALineOfTheNewOneIsNoJob)
{
    addTask({15, anna, "61 * * * *"});
    setCrontab("anna", job);
    EXPECT_TRUE(contains(rebuild(), "not replacing crontab\n"));
    EXPECT_EQ(job, storedCrontab("anna"));
}

TEST_F(SystemdCronCrontab, RefusesNamesOfMonthsAndRangesThatGoBack)
{
    EXPECT_TRUE(contains(refusal("0 3 1 jan * /bin/backup\n"), "field month=jan"));
    EXPECT_TRUE(contains(refusal("0 22-2 * * * /bin/backup\n"), "field hour=22-2"));
    EXPECT_TRUE(contains(refusal("@every 5m /bin/backup\n"), "unknown schedule"));
}

TEST_F(SystemdCronCrontab, TakesAStepAfterANumberAndASixthStar)
{
    EXPECT_EQ("", refusal("5/10 * * * * /bin/backup\n"));
    EXPECT_EQ("", refusal("0 3 * * * * /bin/backup\n"));
}

double processorSecondsOfChildren()
{
    struct rusage used { };
    getrusage(RUSAGE_CHILDREN, &used);
    const auto micros
        = (used.ru_utime.tv_sec + used.ru_stime.tv_sec) * 1000000L + used.ru_utime.tv_usec + used.ru_stime.tv_usec;
    return static_cast<double>(micros) / 1e6;
}

// The check never ends by itself: the limit kills its process.
TEST_F(SystemdCronCrontab, SpinsOnAStepOf0AndKeepsTheCrontabWhenItsCheckIsKilled)
{
    setCrontab("anna", job);
    execSql("update TaskTable set crontime='1-5/0 * * * *'");
    const double before = processorSecondsOfChildren();
    const auto end = runProgram({"/bin/sh", "-c", "ulimit -t 1; exec " + program + " rebuild"});
    EXPECT_EQ("not replacing crontab\n", end.errors);
    EXPECT_GT(processorSecondsOfChildren() - before, 0.5);
    EXPECT_EQ(job, storedCrontab("anna"));
}

class BcronCrontab : public OtherProgram { };

TEST_F(BcronCrontab, SaysThatItHasSavedACrontab)
{
    setCrontab("anna", job + task12);
    EXPECT_EQ("bcrontab: crontab saved successfully\n", clean());
    EXPECT_EQ(job, storedCrontab("anna"));
}

TEST_F(BcronCrontab, GivesAUserWithoutACrontabAnEmptyOne)
{
    EXPECT_EQ("bcrontab: Fatal: Crontab does not exist\nbcrontab: crontab saved successfully\n", clean());
    EXPECT_EQ("", storedCrontab("anna"));
}

/// The service runs as the user cron, who cannot read a file of another user.
class BcronCrontabOfAnother : public BcronCrontab {
protected:
    void SetUp() override
    {
        BcronCrontab::SetUp();
        storeCrontab("anna", job);
        giveTo(0, "/var/spool/cron/crontabs/anna");
    }

    static void giveTo(uid_t owner, const std::string& path)
    {
        ASSERT_EQ(0, chown(path.c_str(), owner, static_cast<gid_t>(-1)));
    }
};

TEST_F(BcronCrontabOfAnother, IsKeptInASpoolThatIsRoots)
{
    EXPECT_TRUE(contains(rebuild(), "bcrontab: Fatal: "));
    EXPECT_EQ(job, storedCrontab("anna"));
}

TEST_F(BcronCrontabOfAnother, IsReplacedByTheTaskLinesAloneInASpoolThatIsTheServices)
{
    struct stat folder { };
    ASSERT_EQ(0, stat("/var/spool/cron/tmp", &folder));
    giveTo(folder.st_uid, "/var/spool/cron/crontabs");
    rebuild();
    giveTo(0, "/var/spool/cron/crontabs");
    EXPECT_EQ(task12, storedCrontab("anna"));
}

class BusyboxCrontab : public OtherProgram {
protected:
    void SetUp() override
    {
        OtherProgram::SetUp();
        addTask({15, 0, "7 * * * *"});
        setCrontab("anna", job + task12);
    }

    const std::string task15 = taskLine(15, "7 * * * *");
};

TEST_F(BusyboxCrontab, CleansAndRebuildsRootsCrontab)
{
    setCrontab("root", job);
    rebuild();
    EXPECT_EQ(job + task15, storedCrontab("root"));
    clean();
    EXPECT_EQ(job, storedCrontab("root"));
}

TEST_F(BusyboxCrontab, KeepsTheCrontabsOfAllOthersAsTheyMayNotReadTheScratchDirectory)
{
    setCrontab("root", "");
    EXPECT_EQ("crontab: can't open '" + filteredCopy + "': Permission denied\n", clean());
    EXPECT_EQ("crontab: can't open '" + crontabCopy + "': Permission denied\n", rebuild());
    EXPECT_EQ(job + task12, storedCrontab("anna"));
}

TEST_F(BusyboxCrontab, GivesRootAnEmptyCrontabWhereThereWasNone)
{
    EXPECT_TRUE(contains(clean(), "crontab: can't open 'root': No such file or directory\n"));
    EXPECT_EQ("", storedCrontab("root"));
}

} // namespace
