#include "SystemTest.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

// What docs/cron-dialects.md says: of Debian's crontab with Debian's crontab, of the others with the recording one,
// which does by a hook what their sources do.

using namespace support;

namespace {

const std::string annasSpoolFile = "/var/spool/cron/crontabs/anna";
const std::string annasTab = "/usr/local/private-world/crontab/tabs/anna";
const std::string job = "0 3 * * * /bin/backup\n";
const std::string task12 = taskLine("7 * * * *", 12);

size_t headersIn(const std::string& text)
{
    size_t count = 0;
    for (size_t at = text.find("# DO NOT EDIT"); at != std::string::npos; at = text.find("# DO NOT EDIT", at + 1))
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
    EXPECT_EQ(1u, headersIn(readFile(annasSpoolFile)));
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

TEST_F(DebianCrontab, ListsThemWithNoheaderNSoThatEachRunKeepsThreeMore)
{
    setCrontab("anna", job);
    clean({"CRONTAB_NOHEADER=N"});
    EXPECT_EQ(2u, headersIn(readFile(annasSpoolFile)));
    clean({"CRONTAB_NOHEADER=N"});
    EXPECT_EQ(3u, headersIn(readFile(annasSpoolFile)));
}

TEST_F(DebianCrontab, TakesThreeCommentsOfAFilePutThereByHandForItsOwn)
{
    writeFile(annasSpoolFile, "# one\n# two\n# three\n# four\n" + job);
    clean();
    EXPECT_EQ("# four\n" + job, crontabOf("anna"));
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

TEST_F(DebianCrontab, RefusesASettingWithoutAValue)
{
    writeFile(testDirectory + "setting", "A=\n");
    const auto end = runProgram({"/usr/bin/crontab", "-u", "anna", testDirectory + "setting"});
    EXPECT_EQ(1, end.status);
    EXPECT_NE(std::string::npos, end.errors.find("bad minute\nerrors in crontab file, can't install."));
    EXPECT_FALSE(hasCrontab("anna"));
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
    EXPECT_EQ(1u, headersIn(readFile(annasSpoolFile)));
}

TEST_F(DebianCrontab, KeepsTheOldCrontabWhenALineOfTheNewOneIsNoJob)
{
    addTask({15, anna, "61 * * * *"});
    setCrontab("anna", job);
    EXPECT_NE(std::string::npos, rebuild().find("bad minute\nerrors in crontab file, can't install."));
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

/// Three comment lines written before what is installed, up to three not listed; nothing said about the last line
/// break.
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

TEST_F(FreeBsdCrontab, InstallsAJobWithoutALineBreakSoThatTheTaskLineJoinsIt)
{
    setCrontab("anna", freeBsdHeader + open(job));
    rebuild();
    EXPECT_EQ(freeBsdHeader + open(job) + task12, readFile(annasTab));
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

/// What is installed is stored and listed as it is; a last line without a line break is refused unless it is a comment.
const std::string likeCronie = R"sh(
if [ $operation = install ] && [ -n "$(tail -c 1 $file)" ] && ! tail -n 1 $file | grep -q '^#'; then
    echo 'premature EOF' >&2
    echo "errors in crontab file, can't install." >&2
    exit 1
fi
)sh";

class CronieCrontab : public OtherCrontab {
protected:
    void SetUp() override
    {
        OtherCrontab::SetUp();
        onCrontabCall(likeCronie);
    }
};

TEST_F(CronieCrontab, ListsAllThatIsThere)
{
    setCrontab("anna", "# one\n# two\n# three\n" + job);
    clean();
    EXPECT_EQ("# one\n# two\n# three\n" + job, crontabOf("anna"));
}

TEST_F(CronieCrontab, KeepsTheHeaderOfACrontabThatComesFromAnotherSystemAsComments)
{
    setCrontab("anna", freeBsdHeader + job);
    clean();
    rebuild();
    EXPECT_EQ(freeBsdHeader + job + task12, crontabOf("anna"));
}

TEST_F(CronieCrontab, KeepsTheOldCrontabWhenAShortLastSettingLosesItsLineBreak)
{
    setCrontab("anna", job + task12 + "A=\n");
    EXPECT_EQ("premature EOF\nerrors in crontab file, can't install.\n", clean());
    EXPECT_EQ(job + task12 + "A=\n", crontabOf("anna"));
}

TEST_F(CronieCrontab, InstallsAJobThatTheTaskLineHasJoined)
{
    setCrontab("anna", open(job));
    EXPECT_EQ("", rebuild());
    EXPECT_EQ(open(job) + task12, crontabOf("anna"));
}

TEST_F(CronieCrontab, KeepsAnEmptyCrontabForAUserWhoHadNone)
{
    EXPECT_EQ("no crontab for anna\n", clean());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

/// Nothing may be read, and nothing installed.
const std::string permitsNothing = R"sh(echo "crontab: tmp/tmp.$$: Operation not permitted" >&2; exit 1)sh";

TEST_F(OtherCrontab, ThatPermitsNothingLeavesTheCrontabAlone)
{
    setCrontab("anna", job + task12);
    onCrontabCall(permitsNothing);
    EXPECT_NE(std::string::npos, clean().find("Operation not permitted"));
    EXPECT_NE(std::string::npos, rebuild().find("Operation not permitted"));
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

TEST_F(OtherCrontab, ThatPermitsReadingAloneLeavesTheCrontabAlone)
{
    setCrontab("anna", job + task12);
    onCrontabCall("[ $operation = list ] || { " + permitsNothing + "; }");
    EXPECT_NE(std::string::npos, clean().find("Operation not permitted"));
    EXPECT_EQ(job + task12, crontabOf("anna"));
}

} // namespace
