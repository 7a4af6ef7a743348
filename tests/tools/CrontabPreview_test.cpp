#include "DatabaseOpenings.h"
#include "SystemTest.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <vector>

using namespace support;

namespace {

ProgramEnd preview(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {ORV_CRONTAB_PREVIEW};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
}

/// What the program prints when nothing is wrong.
std::string output(const std::vector<std::string>& arguments)
{
    return outputOf(preview(arguments));
}

void runPass(const std::string& pass)
{
    if (pass != "rebuild")
        clean();
    if (pass != "clean")
        rebuild();
}

/// `text` after patch(1) has applied `diff` to it, exactly where the diff says.
std::string patched(const std::string& text, const std::string& diff)
{
    if (diff.empty())
        return text;
    const std::string before = testDirectory + "before";
    const std::string after = testDirectory + "after";
    writeFile(before, text);
    writeFile(testDirectory + "diff", diff);
    std::filesystem::remove(after);
    const ProgramEnd end = runProgram(
        {"/usr/bin/patch", "--binary", "--fuzz=0", "--batch", "--posix", "-o", after, before, testDirectory + "diff"});
    EXPECT_EQ(0, end.status) << end.output << end.errors << diff;
    EXPECT_EQ(std::string::npos, end.output.find("offset")) << end.output << diff;
    return readFile(after);
}

/// Everything that the preview could change: names, sizes, what they are, and when they last changed.
std::set<std::string> wholeWorld()
{
    std::set<std::string> entries;
    for (const std::string& directory :
        {std::string("/usr/local/Quarno"), std::string("/var/spool/cron"), testDirectory})
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
            struct stat state { };
            EXPECT_EQ(0, lstat(entry.path().c_str(), &state));
            std::ostringstream text;
            text << entry.path() << ' ' << state.st_ino << ' ' << state.st_mode << ' ' << state.st_size;
            if (!entry.is_directory()) // to check a crontab, crontab makes and removes a file in the spool's directory
                text << ' ' << state.st_mtim.tv_sec << '.' << state.st_mtim.tv_nsec << ' ' << state.st_ctim.tv_sec
                     << '.' << state.st_ctim.tv_nsec;
            entries.insert(text.str());
        }
    return entries;
}

std::size_t charactersOf(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

void expectFor80Columns(const std::string& report)
{
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(charactersOf(line), 80U) << line;
        EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](char byte) { return byte >= 0 && byte < ' '; })) << line;
    }
}

class CrontabPreview : public SystemTest { };

const std::string own = "0 4 * * * /bin/own\n";

TEST_F(CrontabPreview, ListsHarmedOwnersFirstAndOnlyCountsTheOthers)
{
    addTask({1, anna});
    addTask({2, ben});
    addTask({3, carla});
    addTask({4, 0});
    addTask({5, nobodysUid});
    setCrontab("root", own + taskLine(4));
    setCrontab("anna", own + "#\n30 7 * * 1 /bin/report\n\n" + own);
    setCrontab("ben", "\nMAILTO=ben\n# mine\n" + own + taskLine(2));
    setCrontab("carla", own + "\n# mine\n" + taskLine(3));
    EXPECT_EQ("anna  loses 1 of 3 jobs; 1 job becomes a comment\n"
              "ben   loses 1 of 1 job, 1 of 1 setting; task lines 1 -> 0; left empty\n"
              "1 owner loses nothing but comments: 1 line\n"
              "2 others lose nothing; 1 of their crontabs changes\n"
              "A clean would change 4 of 5 crontabs; lost: 2 of 6 jobs, 1 of 1 setting, 2 of 3 comments; 1 job becomes "
              "a comment; task lines 3 -> 0.\n",
        output({"clean"}));
}

TEST_F(CrontabPreview, GivesDetailsOfTheOwnersNamedOrOfAll)
{
    addTask({1, anna});
    addTask({2, ben});
    setCrontab("anna", own + "#\n30 7 * * 1 /bin/report\n\n@reboot /bin/hello\n# mine\n");
    const std::string annas = "anna (uid 501): loses 1 of 3 jobs, 1 of 2 comments; 1 job becomes a comment\n"
                              "  line 2 is joined to the front of line 3, a job, which becomes a comment\n"
                              "    #30 7 * * 1 /bin/report\n"
                              "  lines 5 to 6, 1 job and 1 comment, are lost: they are below line 4, which is empty\n"
                              "    @reboot /bin/hello\n"
                              "    # mine\n"
                              "\n";
    EXPECT_EQ(annas
            + "A clean would change 1 of 1 crontab; lost: 1 of 3 jobs, 1 of 2 comments; 1 job becomes a comment; task "
              "lines 0 -> 0.\n",
        output({"clean", "anna"}));
    EXPECT_TRUE(contains(output({"--all", "clean"}), annas + "ben (uid 502): gets an empty crontab\n\n"));
    EXPECT_FALSE(contains(output({"clean"}), "@reboot"));
}

TEST_F(CrontabPreview, ShowsWhichTaskGetsWhichLineAndWhyOthersGetNone)
{
    addTask({1, anna, "0 3 * * *", 1, 1, "Scan Task Mon Mar  2 09:05:03 2015\n"});
    addTask({2, anna, "30 3 * * 1", 2, 5, "A description of more than 24 characters"});
    addTask({3, anna, "1 * * * *", 3, 1});
    addTask({4, anna, "2 * * * *", 1, 6});
    addTask({5, anna, "3 * * * *"});
    execSql("update TaskTable set status=NULL where id=5");
    addTask({6, anna, "4 * * * *", 3, 7});
    setCrontab("anna", own);
    EXPECT_EQ("anna (uid 501): task lines 0 -> 2\n"
              "    task  description               schedule of its new line\n"
              "       1  Scan Task Mon Mar  2 09~  0 3 * * *\n"
              "       2  A description of more t~  30 3 * * 1\n"
              "       3  task 3                    none: type 3 runs only once\n"
              "       4  task 4                    none: status 6 is above 5\n"
              "       5  task 5                    none: it has no status\n"
              "       6  task 6                    none: status 7 is above 5\n"
              "\n"
              "A rebuild would change 1 of 1 crontab; no line is lost; task lines 0 -> 2.\n",
        output({"rebuild", "anna"}));
}

TEST_F(CrontabPreview, SaysWhyACrontabStaysAsItIs)
{
    addTask({1, nobodysUid});
    addTask({2, ben, "8 * * * *", 1, 6});
    setCrontab("ben", own);
    const std::string report = output({"rebuild", "--all"});
    EXPECT_TRUE(contains(report, "uid 777: stays as it is: there is no account with this id\n")) << report;
    EXPECT_TRUE(contains(report, "       1  task 1                    none: uid 777 has no account\n")) << report;
    EXPECT_TRUE(contains(report, "ben (uid 502): stays as it is: no task has a status of 5 or less\n")) << report;
    EXPECT_TRUE(
        contains(output({"update", "ben"}), "the rebuild leaves it alone: no task has a status of 5 or less\n"));
}

TEST_F(CrontabPreview, SaysThatAnOwnerWouldGetACrontab)
{
    addTask({1, anna});
    addTask({2, ben, "0 3 * * *", 3, 1});
    EXPECT_TRUE(contains(output({"clean", "anna"}), "gets an empty crontab\n"));
    EXPECT_TRUE(contains(output({"rebuild", "anna"}), "task lines 0 -> 1; gets a crontab\n"));
    EXPECT_TRUE(contains(output({"rebuild", "ben"}), "gets an empty crontab\n"));
    runPass("clean");
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(CrontabPreview, ShowsAnUpdateAsACleanAndThenARebuild)
{
    addTask({1, anna});
    setCrontab("anna", own + taskLine(1));
    EXPECT_EQ("1 owner loses nothing; the crontab stays as it is\n"
              "An update would change 0 of 1 crontab; no line is lost; task lines 1 -> 1.\n",
        output({"update"}));
    EXPECT_EQ("", output({"update", "--diff"}));
    EXPECT_TRUE(contains(output({"rebuild"}), "anna  1 task starts twice; task lines 1 -> 2\n"));
}

TEST_F(CrontabPreview, FitsOnAScreenForAnOrdinaryRebuildOf31Owners)
{
    for (int i = 1; i <= 31; ++i) {
        const std::string name = "user" + std::to_string(i);
        addAccount(name, 1000 + i);
        std::string crontab = own;
        for (int task = 1; task <= 3; ++task) {
            addTask({i * 10 + task, 1000 + i});
            crontab += taskLine(i * 10 + task);
        }
        setCrontab(name, crontab);
    }
    const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    const std::string rebuild = output({"rebuild"});
    expectFor80Columns(rebuild.substr(0, rebuild.find("A rebuild would")));
    EXPECT_EQ(32, lines(rebuild)) << rebuild;
    EXPECT_TRUE(contains(rebuild, "user31  3 tasks start twice; task lines 3 -> 6\n")) << rebuild;
    EXPECT_EQ("31 owners lose nothing; 31 of their crontabs change\n"
              "A clean would change 31 of 31 crontabs; no line is lost; task lines 93 -> 0.\n",
        output({"clean"}));
}

/// The details of what a run does to this crontab of anna's, who owns task 1: each sentence, and below it the lines
/// that it is about.
std::string details(const std::string& crontab, const std::string& command = "clean")
{
    setCrontab("anna", crontab);
    std::istringstream lines(output({command, "anna"}));
    std::string text;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && !line.empty() && !contains(line, "task  description"))
        text += line.substr(2) + "\n";
    return text;
}

class CrontabPreviewDetails : public CrontabPreview {
protected:
    void SetUp() override
    {
        CrontabPreview::SetUp();
        useRecordingCrontab();
        addTask({1, anna});
    }
};

TEST_F(CrontabPreviewDetails, AreNotGivenForACrontabThatLosesNothing)
{
    EXPECT_EQ("", details(own + taskLine(12, "9 * * * *") + "# comment\n" + own));
    EXPECT_EQ("", details(own + "\n" + taskLine(12, "9 * * * *") + "\n\n"));
    EXPECT_EQ("", details(own + "@daily " + taskManager + " 3 >> /dev/null 2>&1\n"));
    EXPECT_EQ("", details(taskLine(2147483647, "9 * * * *") + taskLine(-2147483647 - 1, " 9  * *\t* *")));
    EXPECT_EQ("", details(""));
}

TEST_F(CrontabPreviewDetails, GiveNeighbouringLinesWithTheSameFateAsOneRange)
{
    EXPECT_EQ("lines 4 to 6, 1 job and 1 comment, are lost: they are below line 2, which is empty\n"
              "  # mine\n  0 4 * * * /bin/own\n",
        details(own + "\n" + taskLine(12, "9 * * * *") + "# mine\n\n" + own));
    std::string crontab = own + "\n";
    for (int number = 0; number < 2498; ++number)
        crontab += own;
    EXPECT_EQ("lines 3 to 2500, 2,498 jobs, are lost: they are below line 2, which is empty\n"
              "  0 4 * * * /bin/own\n  0 4 * * * /bin/own\n  0 4 * * * /bin/own\n  0 4 * * * /bin/own\n"
              "  0 4 * * * /bin/own\n  ... and 2,493 more lines\n",
        details(crontab));
}

TEST_F(CrontabPreviewDetails, TellOfALongLineAndTheLinesBelowIt)
{
    const std::string fits = std::string(499, '#') + "\n";
    EXPECT_EQ("line 2, a comment, loses what follows its first 499 characters\n  #\n"
              "line 3, a job, is lost: it is below line 2, where the clean stops\n  0 4 * * * /bin/own\n",
        details(fits + "#" + fits + own));
    EXPECT_EQ("", details(fits + own));
    setCrontab("anna", "#" + fits);
    EXPECT_TRUE(contains(output({"clean", "anna"}), " 1 comment is cut"));
}

TEST_F(CrontabPreviewDetails, TellOfLinesThatMentionTheTaskManager)
{
    const std::string commented = "#" + taskLine(12, "9 * * * *");
    const std::string longer = "0 4 * * * cd / && " + taskManager + " 3 >> /dev/null 2>&1\n";
    const std::string setting = "A=" + taskManager + "\n";
    EXPECT_EQ("lines 1 to 3, 1 job and 1 setting and 1 comment, are lost: they mention the task manager\n  " + commented
            + "  " + longer + "  " + setting,
        details(commented + longer + setting + own));
    const std::string line = "0 4 * * * " + taskManager + " 3 " + std::string(500, 'x') + "\n";
    EXPECT_EQ("line 1, a job, is lost: it mentions the task manager\n  " + line
            + "line 2, a job, is lost: it is below line 1, where the clean stops\n  0 4 * * * /bin/own\n",
        details(line + own));
}

TEST_F(CrontabPreviewDetails, SayWhatBecomesOfALineThatOthersJoin)
{
    const std::string to2 = "line 1 is joined to the front of line 2, ";
    EXPECT_EQ(to2 + "a job, which becomes a comment\n  #a0 4 * * * /bin/own\n", details("#a\n" + own));
    EXPECT_EQ(to2 + "a job, which stays one\n   \t0 4 * * * /bin/own\n",
        std::string(details(" \t\n" + own)).replace(details(" \t\n" + own).find("\\t"), 2, "\t"));
    EXPECT_EQ(to2 + "a comment, which stays one\n  ## b\n", details("#\n# b\n"));
    EXPECT_EQ(to2 + "a setting, which becomes a comment\n  #A=b\n", details("#\nA=b\n"));
    EXPECT_EQ(to2 + "a job, which becomes part of the setting A\n  A=0 4 * * * /bin/own\n", details("A=\n" + own));
    EXPECT_EQ(to2 + "a job, which becomes something else\n  ab0 4 * * * /bin/own\n", details("ab\n" + own));
    EXPECT_EQ(to2 + "a job, which becomes something else\n  \\x0d0 4 * * * /bin/own\n", details("\r\n" + own));
    EXPECT_EQ("lines 1 to 2 are joined to the front of line 4, a job, which becomes a comment\n"
              "  #a#b0 4 * * * /bin/own\n",
        details("#a\n#b\n" + taskLine(12, "9 * * * *") + own));
}

TEST_F(CrontabPreviewDetails, TellOfShortLastLines)
{
    EXPECT_EQ("line 2 is last and loses its line end\n  #\n", details(own + "#\n"));
    EXPECT_EQ("lines 2 to 4 are last and become one without a line end\n  #a#b\n",
        details(own + "#a\n" + taskLine(12, "9 * * * *") + "#b\n"));
    EXPECT_EQ("line 1 is last and loses its line end\n  #a\n"
              "line 3, a job, is lost: it is below line 2, which is empty\n  0 4 * * * /bin/own\n",
        details("#a\n\n" + own));
}

TEST_F(CrontabPreviewDetails, TellOfZeroBytes)
{
    EXPECT_EQ("line 1 loses what follows its first 3 characters\n  \\x00def\n"
              "line 3 is lost: it begins with a zero byte\n  \\x00def\n"
              "line 4, a job, is lost: it is below line 3, where the clean stops\n  0 4 * * * /bin/own\n",
        details(std::string("abc\0def\n", 8) + own + std::string("\0def\n", 5) + own));
}

TEST_F(CrontabPreviewDetails, TellWhatATaskLineJoins)
{
    const std::string line = taskLine(1);
    const std::string joins = ", has no line end: the line of task 1 joins it";
    EXPECT_EQ("line 1, a job" + joins + ", and that task does not run\n  0 4 * * * /bin/own" + line,
        details("0 4 * * * /bin/own", "rebuild"));
    EXPECT_EQ("line 1, a comment" + joins + ", and that task does not run\n  #" + line, details("#", "rebuild"));
    EXPECT_EQ(
        "line 2, a setting" + joins + ", and that task does not run\n  A=b" + line, details(own + "A=b", "rebuild"));
    EXPECT_TRUE(contains(output({"rebuild"}), "anna  1 setting changes; task 1 does not run"));
    EXPECT_EQ("line 1, a blank line" + joins + "\n   " + line, details(" ", "rebuild"));
}

TEST_F(CrontabPreviewDetails, NumberTheLinesOfAnUpdateAsInTheUsersOwnCrontab)
{
    const std::string gone = taskLine(12, "9 * * * *");
    const std::string joins = "the line of task 1 joins it, and that task does not run\n  ";
    EXPECT_EQ("line 5 is last and loses its line end\n  #\n"
              "line 5, a comment, has no line end: "
            + joins + "#" + taskLine(1),
        details(own + gone + gone + own + "#\n", "update"));
    EXPECT_EQ("lines 3 to 5 are last and become one without a line end\n  A=#\n"
              "lines 3 to 5 are one now, with no line end: "
            + joins + "A=#" + taskLine(1),
        details(gone + own + "A=\n" + gone + "#\n", "update"));
}

TEST_F(CrontabPreviewDetails, TellOfATaskLineThatACleanPutsTogether)
{
    const std::string line = taskLine(1);
    const std::size_t inPath = line.find("/usr") + 2;
    const std::string parts = "0 \n3 \n* \n* \n* \n/u\n" + line.substr(inPath);
    EXPECT_TRUE(contains(details(taskLine(12) + parts, "update"),
        "line 8 already starts a task, and stays beside the task's new line\n  " + line));
}

TEST_F(CrontabPreviewDetails, TellOfLinesThatStartATaskAlready)
{
    const std::string nice = "@daily nice " + taskManager + " 1\n";
    const std::string line = taskLine(1, "9 * * * *");
    EXPECT_EQ("lines 1 to 2 already start tasks, and stay beside the tasks' new lines\n  " + line + "  " + nice
            + "line 4 already starts a task, and stays beside the task's new line\n  " + line,
        details(line + nice + taskLine(12) + line, "rebuild"));
    EXPECT_EQ("", details("#" + line + " # " + line + "A=" + line + taskManager + " 1\n" + taskLine(-1), "rebuild"));
}

TEST_F(CrontabPreviewDetails, DistinguishATabFromABackslashAndAT)
{
    EXPECT_EQ("line 2, a job, is lost: it is below line 1, which is empty\n  0 4 * * * "
              "a\\tb\\\\tc\\%d\\\\\\\\\\t\\\\\\x1b\\\\x1b\n",
        details("\n0 4 * * * a\tb\\tc\\%d\\\\\t\\\033\\x1b\n"));
}

TEST_F(CrontabPreviewDetails, TellOfControlCharactersThatCrontabListsAsOthers)
{
    useRealCrontab();
    const std::string crontab = "# mine\r\n0 4 * * * /bin/own\r\n" + own;
    setCrontab("anna", crontab);
    EXPECT_EQ("# mine\\r\n0 4 * * * /bin/own\\r\n" + own, crontabOf("anna"));
    for (const char* const command : {"clean", "rebuild", "update"}) {
        const std::string report = output({command, "anna"});
        EXPECT_TRUE(contains(report, "have control characters, which the run replaces with what crontab -l prints"))
            << report;
        EXPECT_TRUE(contains(report, "1 job changes; 1 comment changes")) << report;
        EXPECT_TRUE(contains(report, "    # mine\\x0d\n    # mine\\r\n")) << report;
        EXPECT_EQ(4, preview({command, "--exit-code"}).status);
    }
    runPass("clean");
    EXPECT_TRUE(contains(readFile("/var/spool/cron/crontabs/anna"), "/bin/own\\r\n"));
    EXPECT_FALSE(contains(output({"clean", "anna"}), "control characters"));
}

const std::string usageFile = "/usr/local/private-world/crontab/usage";

TEST_F(CrontabPreviewDetails, TellWhenCrontabCannotList)
{
    setCrontab("anna", own);
    onCrontabCall("[ $operation != list ] || { echo 'broken, badly' >&2; exit 1; }");
    EXPECT_TRUE(contains(output({"clean"}),
        "anna  crontab -l fails, so a run takes the crontab for empty: broken, badly; gets an empty crontab\n"))
        << output({"clean"});
    onCrontabCall("");
    runPass("rebuild");
}

constexpr auto listingFails = "[ $operation != list ] || { echo 'broken, badly' >&2; exit 1; }";
constexpr auto listingIsCut
    = R"([ $operation != list ] || { head -n 2 "$state/tabs/$user"; echo broken >&2; exit 1; })";

TEST_F(CrontabPreviewDetails, TellThatLinesMayBeLostWhenCrontabCannotList)
{
    setCrontab("anna", own + own + own);
    for (const char* const listing : {listingFails, listingIsCut}) {
        onCrontabCall(listing);
        for (const char* const command : {"clean", "rebuild", "update"}) {
            const ProgramEnd end = preview({command, "--exit-code"});
            EXPECT_EQ(4, end.status);
            EXPECT_TRUE(contains(end.output,
                " would change 1 of 1 crontab; lines that crontab -l does not print may be lost; task lines 0 -> "))
                << end.output;
        }
    }
    setCrontab("anna", "\n" + own + own);
    EXPECT_TRUE(contains(output({"clean"}),
        "; lost: 1 of 1 job; lines that crontab -l does not print may be lost; task lines 0 -> 0.\n"));
}

TEST_F(CrontabPreviewDetails, TellThatNoLineIsLostWhenCrontabWouldRefuseTheResult)
{
    writeFile(usageFile, " -T <file>  test a crontab file syntax\n");
    onCrontabCall("[ $operation = install ] || { echo broken >&2; exit 1; }");
    const ProgramEnd end = preview({"clean", "--exit-code"});
    EXPECT_EQ(0, end.status);
    EXPECT_TRUE(contains(end.output, "A clean would change 0 of 1 crontab; no line is lost;")) << end.output;
}

TEST_F(CrontabPreviewDetails, SaveNothingWhenACrontabCannotBeListed)
{
    addTask({2, ben});
    setCrontab("anna", own);
    setCrontab("ben", own + own + own);
    const std::string directory = testDirectory + "saved";
    for (const auto& [listing, reason] :
        std::map<std::string, std::string>{{listingFails, "broken, badly"}, {listingIsCut, "broken"}}) {
        onCrontabCall("[ $user = anna ] || " + listing);
        EXPECT_EQ("crontab_preview: cannot save the crontab of ben: crontab -l fails: " + reason + "\n",
            errorsOf(preview({"clean", "--save", directory})));
        EXPECT_FALSE(std::filesystem::exists(directory));
    }
    output({"clean", "--save", directory, "anna"});
    EXPECT_EQ(own, readFile(directory + "/anna"));
}

TEST_F(CrontabPreviewDetails, TakeAMissingCrontabForNoFailure)
{
    for (const std::string words : {"no crontab for anna", "bcrontab: Fatal: Crontab does not exist",
             "crontab: can't open 'anna': No such file or directory"}) {
        onCrontabCall("[ $operation != list ] || { echo \"" + words + "\" >&2; exit 1; }");
        EXPECT_TRUE(contains(output({"clean", "--save", testDirectory}), "\nSaved 0 crontabs in "));
        EXPECT_TRUE(contains(output({"clean"}), " would change 1 of 1 crontab; no line is lost;"));
        EXPECT_EQ(3, preview({"clean", "--exit-code"}).status);
        onCrontabCall("[ $operation != list ] || { echo '# mine'; echo \"" + words + "\" >&2; exit 1; }");
        EXPECT_EQ(4, preview({"clean", "--exit-code"}).status);
    }
    onCrontabCall("[ $operation != list ] || { echo '/var/spool/cron: No such file or directory' >&2; exit 1; }");
    EXPECT_EQ(4, preview({"clean", "--exit-code"}).status);
}

TEST_F(CrontabPreviewDetails, TellWhoMayNotUseCron)
{
    setCrontab("anna", own);
    for (const std::string words : {"The user $user cannot use this program (crontab)",
             "crontab: you ($user) are not allowed to use this program"}) {
        onCrontabCall("echo \"" + words + "\" >&2; exit 1");
        const std::string kept = "anna  stays as it is: cron.allow and cron.deny keep anna from cron\n";
        for (const char* const command : {"clean", "rebuild", "update"})
            EXPECT_EQ(0U, output({command}).find(kept)) << output({command});
        EXPECT_EQ(0, preview({"update", "--exit-code"}).status);
        EXPECT_TRUE(contains(output({"clean", "--save", testDirectory}), "\nSaved 0 crontabs in "));
        runPass("update");
    }
    onCrontabCall("");
    EXPECT_EQ(own, crontabOf("anna"));
}

TEST_F(CrontabPreviewDetails, SayOnceThatCrontabCannotCheckAFile)
{
    addTask({2, ben});
    const std::string words
        = "Only a run will show whether crontab accepts the result: this crontab cannot check a file.\n";
    writeFile(usageFile, "usage:\n -n <host>  set host in cluster\n -T <name>  translate\n");
    const std::string report = output({"update", "--all"});
    ASSERT_TRUE(contains(report, words)) << report;
    EXPECT_EQ(report.find(words), report.rfind(words));
    for (const std::string& call : crontabCalls())
        EXPECT_TRUE(call == "-u anna -l" || call == "-u ben -l") << call;
}

TEST_F(CrontabPreviewDetails, SayWhichTaskIsRefusedByACrontabWithAnOptionToTestFiles)
{
    writeFile(
        usageFile, " -n <host>  set host in cluster to run users' crontabs\n -T <file>  test a crontab file syntax\n");
    addTask({2, anna, "8 * * * *"});
    setCrontab("anna", own);
    onCrontabCall(
        R"([ $operation != check ] || ! grep -q '^8 ' "$file" || { echo "\"$file\":9: bad hour" >&2; exit 1; })");
    const std::string report = output({"rebuild"});
    EXPECT_EQ(0U,
        report.find("anna  stays as it is: crontab refuses what the rebuild makes of it: line 3 (task 2): bad hour\n"))
        << report;
    EXPECT_FALSE(contains(report, "cannot check a file"));
    EXPECT_EQ(own, crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysWhoseCrontabIsRefusedForWhichTask)
{
    addTask({1, anna});
    addTask({2, anna, "61 * * * *"});
    addTask({3, ben});
    setCrontab("anna", own);
    EXPECT_EQ("anna  stays as it is: crontab refuses what the rebuild makes of it: line 3 (task 2): bad minute\n"
              "1 other loses nothing; the crontab changes\n"
              "A rebuild would change 1 of 2 crontabs; no line is lost; task lines 0 -> 1.\n",
        output({"rebuild"}));
    EXPECT_EQ("", output({"rebuild", "anna", "--diff"}));
    rebuild();
    EXPECT_EQ(own, crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysThatACrontabWouldBeTooLong)
{
    addTask({1, anna});
    addTask({2, anna});
    std::string crontab;
    for (int line = 0; line < 9999; ++line)
        crontab += own;
    setCrontab("anna", crontab);
    const std::string report = output({"rebuild"});
    const std::string words = "line 10001 (task 2): crontab is too long";
    EXPECT_EQ(0U, report.find("anna  stays as it is: crontab refuses what the rebuild makes of it: " + words))
        << report;
}

TEST_F(CrontabPreview, TellsAScriptWhetherLinesWouldBeLost)
{
    const auto status = [](const std::string& command) { return preview({command, "--exit-code"}).status; };
    EXPECT_EQ(0, status("clean"));
    addTask({1, anna});
    setCrontab("anna", own + taskLine(1));
    EXPECT_EQ(3, status("clean"));
    EXPECT_EQ(3, status("rebuild"));
    EXPECT_EQ(0, status("update"));
    EXPECT_EQ(0, preview({"clean"}).status);
    setCrontab("anna", own + "\n# mine\n");
    EXPECT_EQ(4, status("clean"));
    EXPECT_EQ(3, status("rebuild"));
    EXPECT_EQ(4, preview({"clean", "--diff", "--exit-code"}).status);
    setCrontab("anna", "#\n" + own);
    EXPECT_EQ(4, status("clean"));
    addTask({2, ben});
    setCrontab("ben", own);
    EXPECT_EQ(0, preview({"clean", "--exit-code", "ben"}).status);
}

TEST_F(CrontabPreview, SavesACopyOfEachCrontab)
{
    addTask({1, anna});
    addTask({2, ben});
    addTask({3, nobodysUid});
    const std::string crontab = own + "\n0 5 * * * /bin/dos\r\n";
    setCrontab("anna", crontab);
    const std::string directory = testDirectory + "saved";
    EXPECT_TRUE(contains(output({"clean", "--save", directory}), "Saved 1 crontab in " + directory + ".\n"));
    struct stat state { };
    ASSERT_EQ(0, stat((directory + "/anna").c_str(), &state));
    EXPECT_EQ(0600U, state.st_mode & 07777U);
    ASSERT_EQ(0, stat(directory.c_str(), &state));
    EXPECT_EQ(0700U, state.st_mode & 07777U);
    EXPECT_EQ(crontab, readFile(directory + "/anna"));
    EXPECT_FALSE(std::filesystem::exists(directory + "/ben"));
    const std::string before = readFile("/var/spool/cron/crontabs/anna");
    runPass("clean");
    runProgram({"/usr/bin/crontab", "-u", "anna", directory + "/anna"});
    const std::string after = readFile("/var/spool/cron/crontabs/anna");
    EXPECT_EQ(before.substr(before.find(own)), after.substr(after.find(own)));
}

TEST_F(CrontabPreview, NeverSavesOverAnExistingFile)
{
    addTask({1, anna});
    addTask({2, ben});
    setCrontab("anna", own);
    setCrontab("ben", own);
    writeFile(testDirectory + "ben", "precious");
    EXPECT_EQ("crontab_preview: cannot save " + testDirectory + "/ben: File exists\n",
        errorsOf(preview({"clean", "--save", testDirectory})));
    EXPECT_EQ("precious", readFile(testDirectory + "ben"));
    EXPECT_FALSE(std::filesystem::exists(testDirectory + "anna"));
    EXPECT_EQ("crontab_preview: cannot save /nowhere/at/all: No such file or directory\n",
        errorsOf(preview({"clean", "--save", "/nowhere/at/all"})));
}

TEST_F(CrontabPreview, TakesNamesAndUserIds)
{
    addTask({1, anna});
    addTask({2, nobodysUid});
    EXPECT_EQ(output({"rebuild", "anna"}), output({"rebuild", "501"}));
    EXPECT_EQ(output({"rebuild", "anna"}), output({"rebuild", "501", "anna"}));
    EXPECT_TRUE(contains(output({"rebuild", "777"}), "uid 777: stays"));
    EXPECT_EQ("crontab_preview: ben owns no task\n", errorsOf(preview({"clean", "anna", "ben"})));
    EXPECT_EQ("crontab_preview: 888 owns no task\n", errorsOf(preview({"clean", "888"})));
    for (const std::string user : {"dora", "501x", "-"})
        EXPECT_EQ("crontab_preview: no such user: " + user + "\n", errorsOf(preview({"clean", user})));
}

TEST_F(CrontabPreview, PointsToItsHelpWhenCalledWrongly)
{
    const std::string see = "see crontab_preview --help\n";
    for (const auto& [arguments, errors] : std::map<std::vector<std::string>, std::string>{
             {{}, "crontab_preview: a command is missing; "}, {{"anna"}, "crontab_preview: there is no command anna; "},
             {{"--diff"}, "crontab_preview: a command is missing; "},
             {{"clean", "--save", ""}, "crontab_preview: --save takes a directory; "}})
        EXPECT_EQ(errors + see, errorsOf(preview(arguments), 2));
    const std::string option = errorsOf(preview({"clean", "--nothing"}), 2);
    EXPECT_TRUE(contains(option, "'--nothing'\ncrontab_preview: " + see)) << option;
}

TEST_F(CrontabPreview, ExplainsItselfIn80Columns)
{
    const std::string help = output({"--help"});
    expectFor80Columns(help);
    for (const char* words : {"clean|rebuild|update", "--diff", "--exit-code", "--save DIR"})
        EXPECT_TRUE(contains(help, words)) << help;
}

TEST_F(CrontabPreview, ChangesNothingAndLeavesNoFile)
{
    addTask({1, anna});
    addTask({2, ben});
    addTask({3, nobodysUid});
    setCrontab("anna", "#a\n0 4 * * * /bin/own\n\n" + taskLine(1));
    const auto before = wholeWorld();
    for (const std::string command : {"clean", "rebuild", "update"})
        for (const auto& rest :
            std::vector<std::vector<std::string>>{{command}, {command, "anna"}, {command, "--diff"}})
            output(rest);
    EXPECT_EQ(before, wholeWorld());
    EXPECT_FALSE(hasCrontab("ben"));
}

/// Whether the tool leaves anna's crontab as it is.
bool changesNothing(const std::string& pass)
{
    const std::string before = crontabOf("anna");
    runProgram(pass == "clean" ? cleanCommand : rebuildCommand);
    return crontabOf("anna") == before;
}

TEST_F(CrontabPreview, WorksWithoutDescriptions)
{
    addTask({1, anna});
    addTask({2, anna, "8 * * * *", 1, 6});
    execSql("alter table TaskTable rename column description to title");
    const std::string report = output({"rebuild", "anna"});
    EXPECT_TRUE(contains(report,
        "       1  (unreadable)              0 3 * * *\n"
        "       2  (unreadable)              none: status 6 is above 5\n"))
        << report;
    EXPECT_EQ(taskLine(1), patched("", output({"rebuild", "--diff"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine(1), crontabOf("anna"));
}

TEST_F(CrontabPreview, SkipsAnOwnerWhoseTasksCannotBeListed)
{
    addTask({1, anna});
    setCrontab("anna", own);
    execSql("alter table TaskTable rename column id to number");
    EXPECT_EQ("anna (uid 501): stays as it is: its owner's tasks cannot be listed\n"
              "          there may be more that cannot be listed: TaskTable not found\n"
              "\n"
              "A rebuild would change 0 of 1 crontab; no line is lost; task lines 0 -> 0.\n",
        output({"rebuild", "anna"}));
    EXPECT_TRUE(contains(output({"rebuild"}), "anna  stays as it is: its owner's tasks cannot be listed\n"));
    EXPECT_TRUE(changesNothing("rebuild"));
}

TEST_F(CrontabPreview, ContinuesAfterATaskThatCannotBeRead)
{
    addTask({1, anna});
    addTask({2, anna, "8 * * * *", 1, 6});
    const std::string before = output({"rebuild", "anna"});
    execSql(
        "insert into TaskTable(id,userId,crontime,status,description) values(4294967308,501,'9 * * * *',6,'Far off')");
    EXPECT_EQ(before, output({"rebuild", "anna"})); // its id is read as 12, and there is no task 12
    execSql("update TaskTable set status=1 where id>12");
    const std::string report = output({"rebuild", "anna"});
    EXPECT_TRUE(contains(report, "      12  (unreadable)              none: unreadable: Data not found\n")) << report;
    EXPECT_EQ(taskLine(1), patched("", output({"rebuild", "--diff"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine(1), crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysWhereTheRebuildEnds)
{
    addTask({1, nobodysUid});
    addTask({2, anna});
    addTask({3, ben});
    setCrontab("anna", taskLine(1, "9 * * * *"));
    execSql("alter table TaskTable rename column status to state");
    const std::string report = output({"rebuild", "--all"});
    for (const std::string words : {"       1  task 1                    none: uid 777 has no account\n",
             "       2  task 2                    none: the rebuild ends before it\n",
             "anna (uid 501): stays as it is: an error ends the rebuild here: TaskTable doesn't exist-2\n",
             "ben (uid 502): stays as it is: an error has ended the rebuild at anna\n"})
        EXPECT_TRUE(contains(report, words)) << words << report;
    EXPECT_TRUE(changesNothing("rebuild"));
    EXPECT_FALSE(changesNothing("clean"));
}

TEST_F(CrontabPreview, FindsTheTableWhateverTheCaseOfItsName)
{
    addTask({1, anna});
    execSql("alter table TaskTable rename to Other; alter table Other rename to tasktable");
    EXPECT_EQ(taskLine(1), patched("", output({"rebuild", "--diff"})));
    execSql("alter table tasktable rename to Other; create view TaskTABLE as select * from Other");
    EXPECT_EQ(taskLine(1), patched("", output({"rebuild", "--diff"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine(1), crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysThatNoRunChangesAnythingWithoutTheScratchDirectory)
{
    addTask({1, anna});
    addTask({2, anna, "0 3 * * *", 3, 1});
    addTask({3, nobodysUid});
    setCrontab("anna", "#a\n" + taskLine(1));
    std::filesystem::remove(scratchDirectory);
    const std::string report = output({"update", "--all"});
    for (const std::string words : {"anna (uid 501): stays as it is: the scratch directory is missing\n",
             "       1  task 1                    none: the scratch directory is missing\n",
             "       2  task 2                    none: type 3 runs only once\n",
             "uid 777: stays as it is: there is no account with this id\n", "An update would change 0 of 2 crontabs;"})
        EXPECT_TRUE(contains(report, words)) << words << report;
    EXPECT_EQ("", output({"clean", "--diff"}) + output({"rebuild", "--diff"}));
    EXPECT_TRUE(changesNothing("clean"));
    EXPECT_TRUE(changesNothing("rebuild"));
}

TEST_F(CrontabPreview, ListsNoTaskThatIsDeletedWhileItRuns)
{
    constexpr std::size_t tasks = 20;
    constexpr std::size_t readsOfATask = 3; // its owner, its description, its status
    const std::vector<std::string> command = {ORV_CRONTAB_PREVIEW, "rebuild", "anna"};
    const auto addTasks = [](int from) {
        for (int id = from; id <= static_cast<int>(tasks); ++id)
            addTask({id, anna, "0 3 * * *", 1, 6});
    };
    addTasks(1);
    const std::size_t list = databaseOpenings(command) - tasks * readsOfATask;
    const ProgramEnd counted = runWithChange(command, list - 1, "delete from TaskTable where id>1");
    EXPECT_EQ(0, counted.status) << counted.errors;
    EXPECT_FALSE(contains(counted.output, "  task 2 ")) << counted.output;
    EXPECT_TRUE(contains(counted.output, "  task 1 ")) << counted.output;
    addTasks(2);
    const ProgramEnd listed = runWithChange(command, list, "delete from TaskTable where id>1");
    EXPECT_EQ(0, listed.status) << listed.errors;
    EXPECT_TRUE(contains(listed.output, "\n          there may be more that cannot be listed: Data not found\n"))
        << listed.output;
}

TEST_F(CrontabPreview, CreatesNoDatabaseAndNoTable)
{
    const std::string nobody = "Nobody owns a task: no run would change a crontab.\n";
    execSql("drop table TaskTable");
    const auto before = wholeWorld();
    EXPECT_EQ(nobody, output({"clean"}));
    EXPECT_EQ(before, wholeWorld());
    std::filesystem::remove(databasePath);
    const auto without = wholeWorld();
    EXPECT_EQ(nobody, output({"update"}));
    EXPECT_EQ(without, wholeWorld());
}

TEST_F(CrontabPreview, SaysWhenTheDatabaseCannotBeRead)
{
    writeFile(databasePath, "this is no database, but long enough to look like one: " + std::string(100, '-'));
    EXPECT_EQ("crontab_preview: " + databasePath + ": the task database cannot be read: file is not a database (26)\n",
        errorsOf(preview({"clean"})));
}

TEST_F(CrontabPreview, SaysWhenDiffFails)
{
    addTask({1, anna});
    const ProgramEnd end = runProgram({"/usr/bin/unshare", "--mount", "--propagation", "unchanged", "/bin/sh", "-c",
        std::string("mount --bind /bin/false /usr/bin/diff && exec ") + ORV_CRONTAB_PREVIEW + " rebuild --diff"});
    EXPECT_EQ("crontab_preview: diff fails\n", errorsOf(end));
}

TEST_F(CrontabPreview, IsForRootOnly)
{
    EXPECT_EQ("crontab_preview: only root can read the crontabs of others\n",
        errorsOf(runAsAnna(ORV_CRONTAB_PREVIEW, {"clean"})));
}

TEST_F(CrontabPreview, ReportsThatItsOutputCannotBeWritten)
{
    addTask({1, anna});
    EXPECT_EQ("crontab_preview: the output could not be written\n",
        errorsOf(runProgram({ORV_CRONTAB_PREVIEW, "clean"}, StandardOutput::full)));
}

/// What the program writes to a terminal.
std::string onTerminal(const std::string& arguments, const std::string& term, const std::string& noColour = "")
{
    const ProgramEnd end = runProgram({"/usr/bin/env", "TERM=" + term, "NO_COLOR=" + noColour, "/usr/bin/script",
        "--quiet", "--command", ORV_CRONTAB_PREVIEW " " + arguments, "/dev/null"});
    EXPECT_EQ("", end.errors); // for example, script(1) cannot open a terminal without /dev/pts
    std::string text = end.output;
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

TEST_F(CrontabPreview, IsColouredOnATerminalOnly)
{
    addTask({1, anna});
    const std::string coloured = onTerminal("rebuild anna", "xterm");
    EXPECT_TRUE(contains(coloured, "\033[1manna (uid 501): task lines 0 -> 1; gets a crontab\033[0m")) << coloured;
    EXPECT_FALSE(contains(output({"rebuild", "anna"}), "\033"));
    EXPECT_FALSE(contains(onTerminal("rebuild anna", "dumb"), "\033"));
    const std::string plain = onTerminal("rebuild anna", "xterm", "1");
    EXPECT_TRUE(contains(plain, "anna (uid 501)")) << plain;
    EXPECT_FALSE(contains(plain, "\033"));
}

TEST_F(CrontabPreview, FoldsLongLinesOnATerminalOnly)
{
    const std::string schedule = "0,5,10,15,20,25,30,35,40,45,50,55 8-18 * 1-6,9-12 1-5";
    const std::string job
        = "30 7 * * 1-5 /home/anna/bin/report --all --to=office --of=\u00fcbermorgen --and=the-day-after";
    addTask({1234567890, anna, schedule, 1, 1,
        "\u5b9a\u671f\u30b9\u30ad\u30e3\u30f3\u3092\u5b9f\u884c\u3059\u308b\u4e88\u5b9a"});
    setCrontab("anna", "\n" + job + "\n");
    const std::string row = "1234567890  \u5b9a\u671f\u30b9\u30ad\u30e3\u30f3\u3092\u5b9f\u884c\u3059\u308b~   ";
    EXPECT_TRUE(contains(output({"update", "anna"}), "\n    " + job + "\n"));
    EXPECT_TRUE(contains(output({"update", "anna"}), "\n" + row + schedule + "\n"));
    const std::string folded = onTerminal("update anna", "dumb");
    expectFor80Columns(folded);
    EXPECT_TRUE(contains(folded,
        "\n    30 7 * * 1-5 /home/anna/bin/report --all --to=office --of=\u00fcbermorgen --and=t\n    ~he-day-after\n"))
        << folded;
    EXPECT_TRUE(contains(
        folded, row + "0,5,10,15,20,25,30,35,40,45,50,55 8-18 * 1\n" + std::string(35, ' ') + "~-6,9-12 1-5\n"))
        << folded;
    EXPECT_TRUE(contains(folded, "\nAn update would change 1 of 1 crontab; lost: 1 of 1 job; task lines 0 -> 1.\n"))
        << folded;
}

TEST_F(CrontabPreview, LetsNoControlCharacterReachTheTerminal)
{
    useRecordingCrontab();
    addTask({1, anna, "0 3 * * *", 1, 1, "\033[2J\302\233 \303\244 \344"});
    setCrontab("anna", "\n# \033[2J\a\177\t\302\233 \303\244 \344\r\n");
    const std::string shown = output({"update", "anna"});
    expectFor80Columns(shown.substr(0, shown.find("An update")));
    EXPECT_TRUE(contains(shown, "# \\x1b[2J\\x07\\x7f\\t\\xc2\\x9b \303\244 \\xe4\\x0d\n")) << shown;
    EXPECT_TRUE(contains(shown, "\\x1b[2J\\xc2\\x9b \303\244 \\xe4")) << shown;
}

TEST_F(CrontabPreview, WritesOutInvisibleCharactersAndInvalidUtf8)
{
    useRecordingCrontab();
    addTask({1, anna});
    // Right-to-left, invisible, a line feed and an A in two bytes, a line feed in three, half a surrogate pair, beyond
    // the last character, cut off.
    setCrontab("anna", "\n# \u202e \u200b \xc0\x8a \xc1\x81 \xe0\x80\x8a \xed\xa0\x80 \xf4\x90\x80\x80 \xf0\x9f\x98\n");
    const std::string shown = output({"clean", "anna"});
    EXPECT_TRUE(contains(shown,
        "\n    # \\xe2\\x80\\xae \\xe2\\x80\\x8b \\xc0\\x8a \\xc1\\x81 \\xe0\\x80\\x8a \\xed\\xa0\\x80 "
        "\\xf4\\x90\\x80\\x80 \\xf0\\x9f\\x98\n"))
        << shown;
}

/// Runs the examples of the manual page, with the test's directory instead of /root.
class CrontabPreviewManual : public CrontabPreview {
protected:
    void SetUp() override
    {
        CrontabPreview::SetUp();
        addTask({1, anna});
        addTask({2, ben, "8 * * * *"});
        setCrontab("anna", annas);
        setCrontab("ben", bens);
        const std::string page = readFile(ORV_MANUAL);
        const std::string begin = ".Bd -literal -offset indent\n";
        for (std::size_t at = page.find(begin, page.find(".Sh EXAMPLES")); at != std::string::npos;
             at = page.find(begin, at + 1))
            examples.push_back(page.substr(at + begin.size(), page.find(".Ed", at) - at - begin.size()));
        ASSERT_EQ(5U, examples.size());
    }

    static ProgramEnd run(std::string example)
    {
        for (std::size_t at; (at = example.find("/root/")) != std::string::npos;)
            example.replace(at, 6, testDirectory);
        const auto directory = [](const std::string& path) { return path.substr(0, path.rfind('/')); };
        return runProgram({"/bin/sh", "-c", "cd " + testDirectory + "\n" + example}, StandardOutput::captured,
            {"PATH=" + directory(ORV_CRON_CLEANER) + ":" + directory(ORV_CRONTAB_PREVIEW) + ":/usr/bin:/bin"});
    }

    const std::string annas = own + taskLine(1);
    const std::string bens = own + "\n" + own + taskLine(2, "8 * * * *");
    std::vector<std::string> examples;
};

TEST_F(CrontabPreviewManual, ShowsHowToLookAndHowToStopAScript)
{
    const ProgramEnd shown = run(examples[0]);
    EXPECT_EQ(0U, shown.output.find("ben  loses 1 of 2 jobs; task lines 1 -> 0\n")) << shown.output << shown.errors;
    EXPECT_TRUE(contains(shown.output, "\nben (uid 502): loses 1 of 2 jobs; task lines 1 -> 0\n")) << shown.output;
    EXPECT_EQ("The crontabs were not cleaned.\n", run(examples[1]).errors);
    EXPECT_EQ(annas, crontabOf("anna"));
    setCrontab("ben", own);
    EXPECT_EQ(0, run(examples[1]).status);
    EXPECT_EQ(own, crontabOf("anna"));
}

TEST_F(CrontabPreviewManual, ShowsHowToPutCopiesBack)
{
    const ProgramEnd one = run(examples[2]);
    EXPECT_EQ(0, one.status) << one.errors;
    EXPECT_EQ(own, crontabOf("anna"));
    EXPECT_EQ(bens, crontabOf("ben"));
    runPass("clean");
    EXPECT_EQ(own, crontabOf("ben"));
    const ProgramEnd all = run(examples[3]);
    EXPECT_EQ(0, all.status) << all.errors;
    EXPECT_EQ(annas, crontabOf("anna"));
    EXPECT_EQ(bens, crontabOf("ben"));
}

TEST_F(CrontabPreviewManual, ShowsHowToPatch)
{
    const ProgramEnd end = run(examples[4]);
    EXPECT_EQ(0, end.status) << end.output << end.errors;
    EXPECT_EQ(own + taskLine(2, "8 * * * *"), readFile(testDirectory + "ben.next"));
    runPass("update");
    EXPECT_EQ(crontabOf("ben"), readFile(testDirectory + "ben.next"));
}

/// Generates crontabs from a seed.
class Generator {
public:
    explicit Generator(unsigned seed)
        : m_random(seed)
    {
    }

    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }
    template <class Value> Value oneOf(const std::vector<Value>& values)
    {
        return values[static_cast<std::size_t>(below(static_cast<int>(values.size())))];
    }

    /// A line, with its line end, that every crontab program accepts.
    std::string line()
    {
        switch (below(12)) {
        case 0:
            return "\n";
        case 1:
            return oneOf<std::string>({"#", "#a", "  ", " ", "#\t"}) + "\n";
        case 2:
            return "#"
                + std::string(static_cast<std::size_t>(oneOf<int>({1, 2, 3, 40, 497, 498, 499, 500, 501, 700})), '-')
                + "\n";
        case 3:
            return "# " + taskManager + " was here\n";
        case 4:
            return "#a" + taskLine(below(5));
        case 5:
        case 6:
        case 7: {
            const int id = below(12); // in a statement of its own: compilers draw in different orders within one
            return taskLine(id, std::to_string(below(60)) + " * * * *");
        }
        default: {
            const std::string minute = std::to_string(10 + below(50)); // two digits: no line is a part of another
            return minute + " 4 * * * /bin/job-" + std::to_string(below(4)) + "\n";
        }
        }
    }

    std::string crontab()
    {
        std::string text;
        for (int lines = below(20); lines > 0; --lines)
            text += line();
        return text;
    }

    /// Text that only the recording crontab accepts.
    std::string anyText()
    {
        std::string text = crontab();
        for (int changes = below(4); changes > 0 && !text.empty(); --changes)
            text.insert(static_cast<std::size_t>(below(static_cast<int>(text.size()))),
                oneOf<std::string>(
                    {"\r", "\377", "\033[1m", "\302", "-- ", "\\ No newline at end of file\n", "@@ -1 +1 @@\n"}));
        if (below(3) == 0 && !text.empty())
            text.pop_back();
        return text;
    }

private:
    std::mt19937 m_random;
};

class CrontabPreviewOfGenerated : public CrontabPreview {
protected:
    static void addTasks(Generator& generator)
    {
        constexpr int null = 99;
        for (int id = generator.below(15); id > 0; --id)
            addTask({id, generator.oneOf<int>({0, anna, ben, carla, nobodysUid}),
                generator.oneOf<std::string>({"0 3 * * *", "30 3 * * 1", "0 0 1 1 *", "@daily", "*/5 8-18 * * 1-5"}),
                generator.below(8), generator.oneOf<int>({null, -1, 1, 1, 3, 5, 6, 7}),
                generator.oneOf<std::string>(
                    {"", "Scan\n", "A long description of the task that this row stands for"})});
        execSql("update TaskTable set status=NULL where status=" + std::to_string(null));
    }

    static const std::vector<std::string>& accounts()
    {
        static const std::vector<std::string> names = {"root", "anna", "ben", "carla"};
        return names;
    }

    static bool ownsTask(const std::string& name)
    {
        const std::map<std::string, int> uids = {{"root", 0}, {"anna", anna}, {"ben", ben}, {"carla", carla}};
        return queryRows("select count(*) from TaskTable where userId=" + std::to_string(uids.at(name))).at(0) != "0";
    }

    /// Runs `check` with generators of the seeds 1, 2, ..., each in a fresh world, until one fails.
    static void forSeeds(unsigned last, const std::function<void(Generator&)>& check)
    {
        for (unsigned seed = 1; seed <= last && !HasFailure(); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            Generator generator(seed);
            resetWorld();
            execSql(createTaskTable);
            check(generator);
        }
    }

    /// The crontabs that the preview predicts, by account.
    static std::map<std::string, std::string> predicted(const std::string& pass)
    {
        std::map<std::string, std::string> texts;
        for (const std::string& name : accounts())
            texts[name] = patched(crontabOf(name), ownsTask(name) ? output({pass, "--diff", name}) : "");
        return texts;
    }
};

TEST_F(CrontabPreviewOfGenerated, MatchesWhatTheToolInstallsByteForByte)
{
    forSeeds(12, [](Generator& generator) {
        useRecordingCrontab();
        addTasks(generator);
        for (const std::string& name : accounts())
            if (generator.below(4) != 0)
                setCrontab(name, generator.anyText());
        for (const std::string pass : {"rebuild", "clean", "rebuild", "update"}) {
            SCOPED_TRACE(pass);
            const auto expected = predicted(pass);
            runPass(pass);
            for (const std::string& name : accounts())
                EXPECT_EQ(expected.at(name), crontabOf(name)) << name;
        }
    });
}

/// Sanitizers take much memory themselves.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

/// The most memory that a program started by this process has taken, in megabytes.
long peakMegabytes()
{
    rusage usage{};
    EXPECT_EQ(0, getrusage(RUSAGE_CHILDREN, &usage));
    return sanitized ? 0 : usage.ru_maxrss / 1024;
}

TEST_F(CrontabPreviewOfGenerated, TakesLittleMemoryForALongCrontab)
{
    useRecordingCrontab();
    addTask({1, anna});
    std::string crontab = taskLine(1);
    std::string kept;
    for (int number = 2; number < 10000; ++number) {
        const std::string line = std::to_string(number) + " 4 * * * /bin/own\n";
        crontab += number % 10 == 0 ? taskLine(number) : line;
        kept += number % 10 == 0 ? "" : line;
    }
    crontab += taskLine(10000);
    setCrontab("anna", crontab);
    EXPECT_EQ(kept, patched(crontab, output({"clean", "--diff"})));
    EXPECT_GT(50, peakMegabytes());
}

TEST_F(CrontabPreviewOfGenerated, TakesLittleMemoryWhenManyLinesJoinOrAreLost)
{
    useRecordingCrontab();
    addTask({1, anna});
    std::string crontab;
    for (int number = 1; number <= 5000; ++number)
        crontab += "#a\n";
    crontab += "0 4 * * * /bin/own\n\n";
    for (int number = 5003; number <= 10000; ++number)
        crontab += std::to_string(number) + " 4 * * * /bin/own\n";
    setCrontab("anna", crontab);
    output({"update", "--all"});
    EXPECT_GT(50, peakMegabytes());
}

/// The crontab after the real crontab program was told to install `text`, which it may refuse.
std::string afterInstalling(const std::string& name, const std::string& text)
{
    const std::string file = testDirectory + "predicted";
    writeFile(file, text);
    runProgram({"/usr/bin/crontab", "-u", name, file});
    return crontabOf(name);
}

TEST_F(CrontabPreviewOfGenerated, MatchesWhatTheToolMakesOfRealCrontabs)
{
    int changes = 0;
    forSeeds(14, [&changes](Generator& generator) {
        addTasks(generator);
        for (const std::string& name : accounts())
            if (generator.below(4) != 0)
                setCrontab(name, generator.crontab());
        for (const std::string pass : {"clean", "rebuild", "update"}) {
            SCOPED_TRACE(pass);
            std::map<std::string, std::string> before;
            for (const std::string& name : accounts())
                before[name] = crontabOf(name);
            const auto expected = predicted(pass);
            runPass(pass);
            for (const std::string& name : accounts()) {
                const std::string made = crontabOf(name);
                changes += made != before.at(name) ? 1 : 0;
                if (!hasCrontab(name))
                    continue;
                afterInstalling(name, before.at(name));
                EXPECT_EQ(afterInstalling(name, expected.at(name)), made) << name;
            }
        }
    });
    EXPECT_GT(changes, 30); // or the test proves nothing
}

TEST_F(CrontabPreviewOfGenerated, ReportsTheLinesThatTheRebuildWrites)
{
    for (int type = -1; type <= 7; ++type)
        for (int status = -1; status <= 7; ++status)
            addTask({100 + 10 * type + status, anna, "0 3 * * *", type, status});
    const std::string shown = output({"rebuild", "anna"});
    runPass("rebuild");
    const std::string made = crontabOf("anna");
    for (int type = -1; type <= 7; ++type)
        for (int status = -1; status <= 7; ++status) {
            const int id = 100 + 10 * type + status;
            const bool written = contains(made, taskLine(id));
            EXPECT_EQ(type != 3 && status <= 5, written) << id;
            const std::string schedule = written ? "0 3 * * *"
                : status > 5                     ? "none: status " + std::to_string(status) + " is above 5"
                                                 : "none: type 3 runs only once";
            const std::string number = std::to_string(id);
            EXPECT_TRUE(
                contains(shown, number + "  task " + number + std::string(21 - number.size(), ' ') + schedule + "\n"))
                << id;
        }
}

/// What became of a line of the owner's in a run: it is whole, ends another line, is only a beginning, or is gone.
std::string fateOf(const std::string& line, const std::vector<std::string>& after)
{
    const auto any = [&](const auto& is) { return std::any_of(after.begin(), after.end(), is); };
    const auto endsWithIt = [&](const std::string& each) {
        return each.size() >= line.size() && each.compare(each.size() - line.size(), line.size(), line) == 0;
    };
    const auto isBlankBefore = [&](const std::string& each) {
        return endsWithIt(each) && each.find_first_not_of(" \t") + line.size() >= each.size();
    };
    if (any(isBlankBefore))
        return "kept";
    if (any([&](const std::string& each) { return endsWithIt(each) && each[each.find_first_not_of(" \t")] == '#'; }))
        return "commented";
    if (any([&](const std::string& each) { return contains(each, line.substr(0, 60)); }))
        return contains(line, std::string(60, 'x')) ? "cut" : "changed";
    return "lost";
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// How the preview says what becomes of the owner's jobs and settings.
std::string countedFates(const std::string& before, const std::string& after)
{
    std::map<std::string, std::map<std::string, int>> numbers;
    for (const std::string& line : splitLines(before))
        if (contains(line, "/bin/job-") || contains(line, "VALUE="))
            ++numbers[contains(line, "VALUE=") ? "setting" : "job"][fateOf(line, splitLines(after))];
    const auto counted = [](int number, const std::string& what) {
        return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
    };
    std::string lost;
    std::string others;
    for (const std::string kind : {"job", "setting"}) {
        auto& of = numbers[kind];
        if (of["lost"] > 0)
            lost += (lost.empty() ? "loses " : ", ") + std::to_string(of["lost"]) + " of "
                + counted(of["lost"] + of["kept"] + of["commented"] + of["cut"] + of["changed"], kind);
        for (const auto& [fate, one, many] :
            std::vector<std::tuple<std::string, std::string, std::string>>{{"cut", " is cut", " are cut"},
                {"commented", " becomes a comment", " become comments"}, {"changed", " changes", " change"}})
            if (of[fate] > 0)
                others += "; " + counted(of[fate], kind) + (of[fate] == 1 ? one : many);
    }
    return (lost + others).substr(lost.empty() && !others.empty() ? 2 : 0);
}

/// A crontab with jobs and settings whose fates can be told apart.
std::string crontabWithFates(Generator& generator)
{
    std::string crontab;
    for (int number = 1 + generator.below(15); number > 0; --number) {
        const int kind = generator.below(24);
        const std::string job = "0 4 * * * /bin/job-" + std::to_string(number) + "-";
        crontab += kind < 10 ? job + "\n"
            : kind < 13      ? "N" + std::to_string(number) + "_VALUE=x\n"
            : kind < 15      ? job + std::string(500, 'x') + "\n"
            : kind == 15     ? job + " " + taskManager + " 3\n"
                             : generator.line();
    }
    return crontab;
}

TEST_F(CrontabPreviewOfGenerated, CountsWhatARunReallyDoes)
{
    int losses = 0;
    forSeeds(120, [&losses](Generator& generator) {
        addTask({1, anna, generator.below(6) == 0 ? "61 * * * *" : "0 3 * * *"});
        setCrontab("anna", crontabWithFates(generator));
        const std::string before = crontabOf("anna");
        const std::string pass = generator.oneOf<std::string>({"clean", "clean", "update", "rebuild"});
        const std::string said = output({pass});
        const int status = preview({pass, "--exit-code"}).status;
        runPass(pass);
        const std::string fates = countedFates(before, crontabOf("anna"));
        losses += fates.empty() ? 0 : 1;
        const std::string line = said.substr(0, said.find('\n'));
        if (fates.empty()) {
            EXPECT_FALSE(contains(line, "anna  loses") || contains(line, "becomes")) << line << before;
        } else {
            EXPECT_TRUE(contains(line, "anna  ") && contains(line, fates)) << fates << "\n" << line << "\n" << before;
        }
        EXPECT_EQ(crontabOf("anna") == before, status == 0) << said;
        EXPECT_TRUE(fates.empty() || status == 4) << said;
    });
    EXPECT_GT(losses, 40); // or the test proves nothing
}

} // namespace
