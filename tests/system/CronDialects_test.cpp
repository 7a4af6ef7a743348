#include "SystemTest.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

// What docs/cron-dialects.md says about Debian's crontab, tested on it, and about FreeBSD's and Apple's, tested on the
// recording crontab with a hook that imitates them. The others that Debian packages are in Crontabs_test.cpp.

using namespace support;

namespace {

const std::string annasSpoolFile = "/var/spool/cron/crontabs/anna";
const std::string annasTab = "/usr/local/private-world/crontab/tabs/anna";
const std::string job = "0 3 * * * /bin/backup\n";
const std::string task12 = taskLine(12, "7 * * * *");

int headersInSpool()
{
    const std::string text = readFile(annasSpoolFile);
    int count = 0;
    for (size_t at = 0; (at = text.find("# DO NOT EDIT", at)) != std::string::npos; ++at)
        ++count;
    return count;
}

/// `text` without its last line break.
std::string open(const std::string& text)
{
    return text.substr(0, text.size() - 1);
}

class DebianCrontab : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({12, anna, "7 * * * *"});
    }
};

TEST_F(DebianCrontab, WritesThreeLinesBeforeACrontabAndDoesNotListThem)
{
    setCrontab("anna", job);
    clean();
    rebuild();
    EXPECT_EQ(1, headersInSpool());
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

TEST_F(DebianCrontab, ListsThemWithNoheaderNSoThatEachRunKeepsThreeMore)
{
    setCrontab("anna", job);
    clean({"CRONTAB_NOHEADER=N"});
    EXPECT_EQ(2, headersInSpool());
    clean({"CRONTAB_NOHEADER=N"});
    EXPECT_EQ(3, headersInSpool());
}

TEST_F(DebianCrontab, TakesThreeCommentsOfAFilePutThereByHandForItsOwn)
{
    writeFile(annasSpoolFile, "# one\n# two\n# three\n# four\n" + job);
    clean();
    EXPECT_EQ("# four\n" + job, crontabOf("anna"));
}

TEST_F(DebianCrontab, TakesASingleCommentOfAFilePutThereByHandForItsOwnInARebuildToo)
{
    writeFile(annasSpoolFile, "#!/bin/sh\n" + job);
    rebuild();
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

TEST_F(DebianCrontab, LosesAllOfAFilePutThereByHandWithThreeCommentsAndABlankLineInAClean)
{
    writeFile(annasSpoolFile, "# one\n# two\n# three\n\n" + job);
    clean();
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(DebianCrontab, ListsACarriageReturnAsABackslashAndAnRSoThatEveryRunKeepsThese)
{
    setCrontab("anna", "A=b\r\n");
    EXPECT_EQ("", rebuild());
    EXPECT_EQ("A=b\\r\n" + task12, storedCrontab("anna"));
}

TEST_F(DebianCrontab, ListsABackspaceAsABackslashAndABSoThatEveryRunKeepsThese)
{
    setCrontab("anna", "A=b\b\n" + task12);
    EXPECT_EQ("", clean());
    EXPECT_EQ("A=b\\b\n", storedCrontab("anna"));
}

TEST_F(DebianCrontab, KeepsTheCrontabOfAnOwnerInCronDenyAndSaysSoTwice)
{
    setCrontab("anna", job + task12);
    denyCron("anna");
    const std::string refusal = "The user anna cannot use this program (crontab)\n";
    EXPECT_EQ(refusal + refusal, clean());
    EXPECT_EQ(refusal + refusal, rebuild());
    EXPECT_EQ(job + task12, storedCrontab("anna"));
}

TEST_F(DebianCrontab, CountsTheRefusedLineOneTooLow)
{
    addTask({15, anna, "61 * * * *"});
    EXPECT_NE(std::string::npos, rebuild().find("\"" + crontabCopy + "\":1: bad minute\n")); // it is the second
}

TEST_F(DebianCrontab, RefusesSchedulesThatOthersTake)
{
    for (const std::string schedule : {"5/10 * * * *", "* * * * * *", "@every 5m", "@every_minute", "1-5/0 * * * *"}) {
        execSql("update TaskTable set crontime='" + schedule + "'");
        EXPECT_NE("", rebuild()) << schedule;
        EXPECT_FALSE(hasCrontab("anna")) << schedule;
    }
}

TEST_F(DebianCrontab, ListsAJobWithoutALineBreakSoThatTheTaskLineJoinsIt)
{
    writeFile(annasSpoolFile, open(job));
    rebuild();
    EXPECT_EQ(open(job) + task12, crontabOf("anna"));
}

TEST_F(DebianCrontab, RefusesAJobWithoutALineBreak)
{
    writeFile(testDirectory + "open", open(job));
    const auto end = runProgram({"/usr/bin/crontab", "-u", "anna", testDirectory + "open"});
    EXPECT_EQ(1, end.status);
    EXPECT_EQ("new crontab file is missing newline before EOF, can't install.\n", end.errors);
    EXPECT_FALSE(hasCrontab("anna"));
}

/// Debian 12's crontab takes no setting without a value. Debian 13's does.
bool isDebian12()
{
    return readFile("/etc/os-release").find("VERSION_ID=\"12\"") != std::string::npos;
}

TEST_F(DebianCrontab, RefusesASettingWithoutAValueOn12AndKeepsACrontabThatEndsInOneOn13)
{
    const std::string crontab = job + task12 + "A=\n";
    writeFile(testDirectory + "setting", crontab);
    const auto end = runProgram({"/usr/bin/crontab", "-u", "anna", testDirectory + "setting"});
    if (isDebian12()) {
        EXPECT_TRUE(contains(end.errors, "bad minute\nerrors in crontab file, can't install."));
        EXPECT_FALSE(hasCrontab("anna"));
    } else {
        EXPECT_EQ("", end.errors);
        EXPECT_EQ("new crontab file is missing newline before EOF, can't install.\n", clean());
        EXPECT_EQ(crontab, crontabOf("anna"));
    }
}

TEST_F(DebianCrontab, InstallsACommentWithoutALineBreakSoThatTheTaskLineBecomesOne)
{
    setCrontab("anna", job + task12 + "#\n");
    EXPECT_EQ("", clean());
    EXPECT_EQ(job + "#", crontabOf("anna"));
    EXPECT_EQ("", rebuild());
    EXPECT_EQ(job + "#" + task12, crontabOf("anna"));
}

TEST_F(DebianCrontab, KeepsAnEmptyCrontabForAUserWhoHadNone)
{
    EXPECT_EQ("no crontab for anna\n", clean());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
    EXPECT_EQ(1, headersInSpool());
}

TEST_F(DebianCrontab, KeepsTheOldCrontabWhenALineOfTheNewOneIsNoJob)
{
    addTask({15, anna, "61 * * * *"});
    setCrontab("anna", job);
    EXPECT_TRUE(contains(rebuild(), "bad minute\nerrors in crontab file, can't install."));
    EXPECT_EQ(job, crontabOf("anna"));
}

TEST_F(DebianCrontab, KeepsTheOldCrontabWhenARebuildWouldMakeMoreThan10000Lines)
{
    std::string longest;
    for (int line = 1; line < 10000; ++line)
        longest += job;
    setCrontab("anna", longest);
    longest += task12;
    EXPECT_EQ("", rebuild());
    EXPECT_TRUE(longest == crontabOf("anna"));
    EXPECT_EQ("crontab is too long; maximum number of lines is 10000.\n", rebuild());
    EXPECT_TRUE(longest == crontabOf("anna"));
}

class OtherCrontab : public RecordedSystemTest {
protected:
    void SetUp() override
    {
        RecordedSystemTest::SetUp();
        addTask({12, anna, "7 * * * *"});
    }
};

/// Writes three comments before what it installs, does not list up to three at the top, and accepts a last line without
/// a line break.
const std::string likeFreeBsd = R"sh(
if [ $operation = list ] && [ -e $state/tabs/$user ]; then
    skipped=0
    while [ $skipped -lt 3 ] && sed -n "$((skipped + 1))p" $state/tabs/$user | grep -q '^#'; do
        skipped=$((skipped + 1))
    done
    exec tail -n +$((skipped + 1)) $state/tabs/$user
elif [ $operation = install ]; then
    { printf '# DO NOT EDIT\n# (installed)\n# (version)\n'; cat $file; } >$state/tabs/$user
    exit
fi
)sh";

class FreeBsdCrontab : public OtherCrontab {
protected:
    void SetUp() override
    {
        OtherCrontab::SetUp();
        onCrontabCall(likeFreeBsd);
    }
};

const std::string freeBsdHeader = "# DO NOT EDIT\n# (installed)\n# (version)\n";

TEST_F(FreeBsdCrontab, WritesThreeLinesBeforeACrontabAndDoesNotListThem)
{
    setCrontab("anna", freeBsdHeader + "# mine\n" + job);
    clean();
    rebuild();
    EXPECT_EQ(freeBsdHeader + "# mine\n" + job + task12, readFile(annasTab));
}

TEST_F(FreeBsdCrontab, TakesThreeCommentsOfAFilePutThereByHandForItsOwn)
{
    setCrontab("anna", "# one\n# two\n# three\n# four\n" + job);
    clean();
    EXPECT_EQ(freeBsdHeader + "# four\n" + job, readFile(annasTab));
}

TEST_F(FreeBsdCrontab, TakesASingleCommentToo)
{
    setCrontab("anna", "#!/bin/sh\n" + job);
    rebuild();
    EXPECT_EQ(freeBsdHeader + job + task12, readFile(annasTab));
}

TEST_F(FreeBsdCrontab, InstallsALastLineWithoutALineBreakSoThatTheTaskLineJoinsIt)
{
    for (const auto& last : {job, std::string("A=b\n"), std::string("# mine\n"), task12}) {
        setCrontab("anna", freeBsdHeader + job + open(last));
        rebuild();
        EXPECT_EQ(freeBsdHeader + job + open(last) + task12, readFile(annasTab));
    }
}

TEST_F(FreeBsdCrontab, HasTheLastLineBreakOfAJobAfterAClean)
{
    setCrontab("anna", freeBsdHeader + open(job));
    clean();
    EXPECT_EQ(freeBsdHeader + job, readFile(annasTab));
}

TEST_F(FreeBsdCrontab, KeepsAnEmptyCrontabForAUserWhoHadNone)
{
    EXPECT_EQ("no crontab for anna\n", clean());
    EXPECT_EQ(freeBsdHeader, readFile(annasTab));
}

class AppleCrontab : public OtherCrontab { };

// What Apple's program prints without Full Disk Access.
const std::string mayNotRead
    = R"sh([ $operation = install ] || { echo "crontab: tabs/$user: Operation not permitted" >&2; exit 1; })sh";
const std::string mayNotInstall
    = R"sh([ $operation = list ] || { echo "crontab: tmp/tmp.64365: Operation not permitted" >&2; exit 1; })sh";

TEST_F(AppleCrontab, SaysSoTwiceWhereItMayNeitherReadNorInstallAndKeepsTheCrontab)
{
    setCrontab("anna", job + task12);
    onCrontabCall(mayNotRead + "\n" + mayNotInstall);
    const std::string said
        = "crontab: tabs/anna: Operation not permitted\ncrontab: tmp/tmp.64365: Operation not permitted\n";
    EXPECT_EQ(said, clean());
    EXPECT_EQ(said, rebuild());
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

TEST_F(AppleCrontab, KeepsTheCrontabWhereItMayReadButNotInstall)
{
    setCrontab("anna", job + task12);
    onCrontabCall(mayNotInstall);
    EXPECT_EQ("crontab: tmp/tmp.64365: Operation not permitted\n", clean());
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

} // namespace
