#include "Process.h"
#include "WorldTest.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;

namespace {

std::string taskLine(const std::string& schedule, int id)
{
    return schedule + " " + taskManager + " " + std::to_string(id) + " >> /dev/null 2>&1\n";
}

ProgramEnd preview(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {ORV_CRONTAB_PREVIEW};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
}

/// What the program prints when nothing is wrong.
std::string output(const std::vector<std::string>& arguments)
{
    const ProgramEnd end = preview(arguments);
    EXPECT_EQ(0, end.status) << end.errors;
    EXPECT_EQ("", end.errors);
    return end.output;
}

void runPass(const std::string& pass)
{
    const ProgramEnd end = pass == "clean" ? runProgram({ORV_CRON_CLEANER}) : runProgram({ORV_CRON_CLEANER, pass});
    EXPECT_EQ("", end.output);
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

/// Everything below a directory: names, sizes, what they are, and when they were last changed.
std::string everythingIn(const std::string& directory)
{
    std::map<std::string, std::string> entries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        struct stat state { };
        EXPECT_EQ(0, lstat(entry.path().c_str(), &state));
        std::ostringstream text;
        text << state.st_ino << ' ' << state.st_mode << ' ' << state.st_size << ' ' << state.st_mtim.tv_sec << '.'
             << state.st_mtim.tv_nsec << ' ' << state.st_ctim.tv_sec << '.' << state.st_ctim.tv_nsec << '\n';
        entries[entry.path().string()] = text.str();
    }
    std::ostringstream all;
    for (const auto& [path, state] : entries)
        all << path << ' ' << state;
    return all.str();
}

std::string wholeWorld()
{
    return everythingIn("/usr/local/Quarno") + everythingIn("/var/spool/cron") + everythingIn(testDirectory);
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

class CrontabPreview : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        execSql(createTaskTable);
    }

    static void addTask(int id, int uid, const std::string& schedule, const std::string& typeAndStatus = "1,1",
        const std::string& description = "Scan")
    {
        execSql("insert into TaskTable(id,userId,crontime,type,status,description) values(" + std::to_string(id) + ","
            + std::to_string(uid) + ",'" + schedule + "'," + typeAndStatus + ",'" + description + "')");
    }
};

TEST_F(CrontabPreview, ShowsWhichTaskGetsWhichLineAndWhyOthersGetNone)
{
    addTask(1, anna, "7 * * * *", "1,1", "Scan Task Mon Mar  2 09:05:03 2015\n");
    addTask(2, anna, "30 3 * * 1", "2,5", "A description of more than 24 characters");
    addTask(3, anna, "1 * * * *", "3,1");
    addTask(4, anna, "2 * * * *", "1,6");
    addTask(5, anna, "3 * * * *", "1,NULL");
    addTask(6, anna, "4 * * * *", "3,7");
    setCrontab("anna", "0 4 * * * /bin/own\n" + taskLine("7 * * * *", 1));
    EXPECT_EQ("anna (uid 501)\n"
              "==============\n"
              "  task  description               schedule of its crontab line\n"
              "     1  Scan Task Mon Mar  2 09~  7 * * * *\n"
              "     2  A description of more t~  30 3 * * 1\n"
              "     3  Scan                      none: type 3 runs only once\n"
              "     4  Scan                      none: status 6 is above 5\n"
              "     5  Scan                      none: it has no status\n"
              "     6  Scan                      none: status 7 is above 5\n"
              "\n"
              "A clean would change the crontab:\n"
              "@@ -1,2 +1 @@\n"
              " 0 4 * * * /bin/own\n"
              "-7 * * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 1 >> /dev/null 2>&1\n"
              "\n"
              "A rebuild would change the crontab:\n"
              "@@ -1,2 +1,4 @@\n"
              " 0 4 * * * /bin/own\n"
              " 7 * * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 1 >> /dev/null 2>&1\n"
              "+7 * * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 1 >> /dev/null 2>&1\n"
              "+30 3 * * 1 /usr/local/Quarno/Kestrelcore/TessaraTaskManager 2 >> /dev/null 2>&1\n"
              "warning: line 2 starts task 1 already, and stays beside the new line\n"
              "  7 * * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 1 >> /dev/null 2>&1\n"
              "\n"
              "1 owner, 6 tasks, 2 task lines, 1 warning. Nothing has been changed.\n"
              "Whether crontab accepts it shows only in a run.\n",
        output({}));
}

TEST_F(CrontabPreview, ShowsOwnersWhoseCrontabStaysAlone)
{
    addTask(1, nobodysUid, "7 * * * *");
    addTask(2, ben, "8 * * * *", "1,6");
    setCrontab("ben", "0 4 * * * /bin/own\n");
    EXPECT_EQ("uid 777\n"
              "=======\n"
              "  task  description               schedule of its crontab line\n"
              "     1  Scan                      none: uid 777 has no account\n"
              "\n"
              "A clean would leave the crontab alone: there is no account with this id.\n"
              "\n"
              "A rebuild would leave the crontab alone: there is no account with this id.\n"
              "\n"
              "ben (uid 502)\n"
              "=============\n"
              "  task  description               schedule of its crontab line\n"
              "     2  Scan                      none: status 6 is above 5\n"
              "\n"
              "A clean would change nothing.\n"
              "\n"
              "A rebuild would leave the crontab alone: none of these tasks counts.\n"
              "\n"
              "2 owners, 2 tasks, 0 task lines, 0 warnings. Nothing has been changed.\n"
              "Whether crontab accepts it shows only in a run.\n",
        output({}));
}

TEST_F(CrontabPreview, ShowsThatACrontabWouldComeToBe)
{
    addTask(1, anna, "7 * * * *");
    addTask(2, ben, "7 * * * *", "3,1");
    const std::string annas = output({"anna"});
    EXPECT_NE(std::string::npos, annas.find("A clean would install an empty crontab; there is none now.\n")) << annas;
    EXPECT_NE(std::string::npos, annas.find("A rebuild would install a crontab; there is none now.\n")) << annas;
    const std::string bens = output({"ben"});
    EXPECT_NE(std::string::npos, bens.find("A rebuild would install an empty crontab; there is none now.\n")) << bens;
    runPass("clean");
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

/// A text of the report in which each line that goes on in the next one is one again.
std::string rejoined(const std::string& report)
{
    std::istringstream lines(report);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = line.find_first_not_of(' ');
        if (begin != std::string::npos && line[begin] == '~')
            text.pop_back();
        text += (begin != std::string::npos && line[begin] == '~' ? line.substr(begin + 1) : line) + "\n";
    }
    return text;
}

/// The warnings of the report for a crontab of anna's, who owns task 1.
std::string warningsFor(const std::string& crontab)
{
    setCrontab("anna", crontab);
    const std::string report = output({"anna"});
    expectFor80Columns(report);
    std::istringstream lines(rejoined(report));
    std::string warnings;
    for (std::string line; std::getline(lines, line);)
        if (line.find("warning: ") == 0) {
            warnings += line.substr(9) + "\n";
            std::getline(lines, line);
            EXPECT_EQ("  ", line.substr(0, 2));
            warnings += line.substr(2) + "\n";
        }
    return warnings;
}

class CrontabPreviewWarnings : public CrontabPreview {
protected:
    void SetUp() override
    {
        CrontabPreview::SetUp();
        useRecordingCrontab();
        addTask(1, anna, "7 * * * *");
    }
    const std::string own = "0 4 * * * /bin/own\n";
};

TEST_F(CrontabPreviewWarnings, AreNotGivenForACrontabThatLosesNothing)
{
    EXPECT_EQ("", warningsFor(own + taskLine("9 * * * *", 12) + "# comment\n" + own));
    EXPECT_EQ("", warningsFor(own + "\n" + taskLine("9 * * * *", 12) + "\n\n"));
    EXPECT_EQ("", warningsFor(own + "@daily " + taskManager + " 3 >> /dev/null 2>&1\n"));
    EXPECT_EQ("", warningsFor(""));
}

TEST_F(CrontabPreviewWarnings, TellOfLinesBelowABlankLine)
{
    EXPECT_EQ("line 4 is lost: it stands below line 2, which is empty\n# mine\n"
              "line 6 is lost: it stands below line 2, which is empty\n0 4 * * * /bin/own\n",
        warningsFor(own + "\n" + taskLine("9 * * * *", 12) + "# mine\n\n" + own));
}

TEST_F(CrontabPreviewWarnings, TellOfALongLineAndOfThoseBelow)
{
    const std::string fits = std::string(499, '#') + "\n";
    EXPECT_EQ("line 2 loses what follows its first 499 characters\n#\n"
              "line 3 is lost: it stands below line 2, where the clean stops\n0 4 * * * /bin/own\n",
        warningsFor(fits + "#" + fits + own));
    EXPECT_EQ("", warningsFor(fits + own));
}

TEST_F(CrontabPreviewWarnings, TellOfALongLineThatMentionsTheTaskManager)
{
    const std::string line = "0 4 * * * " + taskManager + " 3 " + std::string(500, 'x') + "\n";
    EXPECT_EQ("line 1 is lost: it mentions the task manager\n" + line
            + "line 2 is lost: it stands below line 1, where the clean stops\n0 4 * * * /bin/own\n",
        warningsFor(line + own));
}

TEST_F(CrontabPreviewWarnings, TellOfShortLinesThatJoinOthers)
{
    EXPECT_EQ("line 1 is joined to the front of line 3\n#a0 4 * * * /bin/own\n",
        warningsFor("#a\n" + taskLine("9 * * * *", 12) + own));
    EXPECT_EQ("lines 1 to 2 are joined to the front of line 3\n#a#b0 4 * * * /bin/own\n",
        warningsFor("#a\n#b\n" + own + own));
    EXPECT_EQ("lines 2 to 4 are last and have no line end: crontab may refuse it all\n#a#b\n",
        warningsFor(own + "#a\n" + taskLine("9 * * * *", 12) + "#b\n"));
    EXPECT_EQ("line 2 is last and has no line end: crontab may refuse it all\n#\n", warningsFor(own + "#\n"));
    EXPECT_EQ("line 3 is lost: it stands below line 2, which is empty\n0 4 * * * /bin/own\n"
              "line 1 is last and has no line end: crontab may refuse it all\n#a\n",
        warningsFor("#a\n\n" + own));
}

TEST_F(CrontabPreviewWarnings, TellOfAPersonsOwnLinesThatMentionTheTaskManager)
{
    const std::string commented = "#" + taskLine("9 * * * *", 12);
    const std::string longer = "0 4 * * * cd / && " + taskManager + " 3 >> /dev/null 2>&1\n";
    const std::string other = "0 4 * * * " + taskManager + " 3 >> /var/log/scan 2>&1\n";
    const std::string lost = " is lost: it mentions the task manager\n";
    EXPECT_EQ("line 1" + lost + commented + "line 2" + lost + longer + "line 3" + lost + other,
        warningsFor(commented + longer + other));
}

TEST_F(CrontabPreviewWarnings, AreNotGivenForTaskLinesWithAnyIdAndAnyBlanks)
{
    EXPECT_EQ("", warningsFor(taskLine("9 * * * *", 2147483647) + taskLine("9 * * * *", -2147483647 - 1)));
    EXPECT_EQ("", warningsFor(taskLine(" 9  * *\t* *", 12)));
    EXPECT_EQ("line 1 is lost: it mentions the task manager\n" + taskLine("9 * * * * nice", 12),
        warningsFor(taskLine("9 * * * * nice", 12)));
}

TEST_F(CrontabPreviewWarnings, TellOfZeroBytes)
{
    EXPECT_EQ("line 1 loses what follows its first 3 characters\n\\x00def\n"
              "line 3 is lost: it begins with a zero byte\n\\x00def\n"
              "line 4 is lost: it stands below line 3, where the clean stops\n0 4 * * * /bin/own\n",
        warningsFor(std::string("abc\0def\n", 8) + own + std::string("\0def\n", 5) + own));
}

TEST_F(CrontabPreviewWarnings, TellThatALineWithoutEndGetsATaskLineBehindIt)
{
    EXPECT_EQ("the last line has no line end: the first new one is joined to it\n"
              "0 4 * * * /bin/own"
            + taskLine("7 * * * *", 1),
        warningsFor("0 4 * * * /bin/own"));
}

TEST_F(CrontabPreviewWarnings, TellOfEachLineThatStartsATaskAlready)
{
    const std::string other = "@daily nice " + taskManager + " 1\n";
    const std::string already = " starts task 1 already, and stays beside the new line\n";
    const std::string lost = "line 2 is lost: it mentions the task manager\n" + other;
    EXPECT_EQ(lost + "line 1" + already + taskLine("9 * * * *", 1) + "line 2" + already + other + "line 4" + already
            + taskLine("7 * * * *", 1),
        warningsFor(taskLine("9 * * * *", 1) + other + taskLine("7 * * * *", 12) + taskLine("7 * * * *", 1)));
    EXPECT_EQ("", warningsFor(taskLine("7 * * * *", 12) + taskLine("7 * * * *", -1)));
}

TEST_F(CrontabPreviewWarnings, TakeACommentForNoStart)
{
    const std::string comment = " #" + taskLine("9 * * * *", 1);
    EXPECT_EQ("line 1 is lost: it mentions the task manager\n" + comment, warningsFor(comment));
}

TEST_F(CrontabPreview, CutsNothingThatMatters)
{
    const std::string schedule = "0,5,10,15,20,25,30,35,40,45,50,55 8-18 * 1-6,9-12 1-5";
    const std::string own
        = "30 7 * * 1-5 /home/anna/bin/report --all --to=office --of=\u00fcbermorgen --and=the-day-after\n";
    addTask(1234567890, anna, schedule, "1,1",
        "\u5b9a\u671f\u30b9\u30ad\u30e3\u30f3\u3092\u5b9f\u884c\u3059\u308b\u4e88\u5b9a");
    setCrontab("anna", own);
    const std::string report = output({});
    expectFor80Columns(report);
    const std::string text = rejoined(report);
    for (const std::string& line :
        {"1234567890  \u5b9a\u671f\u30b9\u30ad\u30e3\u30f3\u3092\u5b9f\u884c\u3059\u308b~   " + schedule + "\n",
            "\n " + own, "\n+" + taskLine(schedule, 1234567890)})
        EXPECT_NE(std::string::npos, text.find(line)) << line << report;
    EXPECT_NE(std::string::npos,
        report.find("\n+0,5,10,15,20,25,30,35,40,45,50,55 8-18 * 1-6,9-12 1-5 /usr/local/Quarno/Kestrel\n~core/"))
        << report;
}

TEST_F(CrontabPreview, ChangesNothingAndLeavesNoFile)
{
    addTask(1, anna, "7 * * * *");
    addTask(2, ben, "7 * * * *");
    addTask(3, nobodysUid, "7 * * * *");
    setCrontab("anna", "#a\n0 4 * * * /bin/own\n\n" + taskLine("7 * * * *", 1));
    const std::string before = wholeWorld();
    for (const auto& arguments :
        std::vector<std::vector<std::string>>{{}, {"anna"}, {"--diff", "clean"}, {"--diff", "rebuild"}})
        output(arguments);
    EXPECT_EQ(before, wholeWorld());
    EXPECT_FALSE(hasCrontab("ben"));
}

/// Whether the tool leaves anna's crontab as it is.
bool changesNothing(const std::string& pass)
{
    const std::string before = crontabOf("anna");
    runProgram(pass == "clean" ? std::vector<std::string>{ORV_CRON_CLEANER}
                               : std::vector<std::string>{ORV_CRON_CLEANER, pass});
    return crontabOf("anna") == before;
}

TEST_F(CrontabPreview, DoesWithoutDescriptions)
{
    addTask(1, anna, "7 * * * *");
    addTask(2, anna, "8 * * * *", "1,6");
    execSql("alter table TaskTable rename column description to title");
    const std::string report = output({});
    EXPECT_NE(std::string::npos,
        report.find("     1  (unreadable)              7 * * * *\n"
                    "     2  (unreadable)              none: status 6 is above 5\n"))
        << report;
    EXPECT_EQ(taskLine("7 * * * *", 1), patched("", output({"--diff", "rebuild"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine("7 * * * *", 1), crontabOf("anna"));
}

TEST_F(CrontabPreview, LeavesOutAUserWhoseTasksCannotBeListed)
{
    addTask(1, anna, "7 * * * *");
    setCrontab("anna", "0 4 * * * /bin/own\n");
    execSql("alter table TaskTable rename column id to number");
    EXPECT_EQ("anna (uid 501)\n"
              "==============\n"
              "  task  description               schedule of its crontab line\n"
              "        there may be more, which cannot be listed: TaskTable not found\n"
              "\n"
              "A clean would change nothing.\n"
              "\n"
              "A rebuild would leave the crontab alone: its tasks cannot be listed.\n"
              "\n"
              "1 owner, 0 tasks, 0 task lines, 0 warnings. Nothing has been changed.\n"
              "Whether crontab accepts it shows only in a run.\n",
        output({}));
    EXPECT_TRUE(changesNothing("rebuild"));
}

TEST_F(CrontabPreview, GoesOnWhereATaskCannotBeRead)
{
    addTask(1, anna, "7 * * * *");
    addTask(2, anna, "8 * * * *", "1,6");
    const std::string before = output({});
    execSql(
        "insert into TaskTable(id,userId,crontime,status,description) values(4294967308,501,'9 * * * *',6,'Far off')");
    EXPECT_EQ(before, output({})); // as task 12 it is not there
    execSql("update TaskTable set status=1 where id>12");
    const std::string report = output({});
    EXPECT_NE(std::string::npos, report.find("    12  (unreadable)              none: unreadable: Data not found\n"))
        << report;
    EXPECT_EQ(taskLine("7 * * * *", 1), patched("", output({"--diff", "rebuild"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine("7 * * * *", 1), crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysWhereTheRebuildEnds)
{
    addTask(1, nobodysUid, "7 * * * *");
    addTask(2, anna, "7 * * * *");
    addTask(3, ben, "7 * * * *");
    setCrontab("anna", taskLine("9 * * * *", 1));
    execSql("alter table TaskTable rename column status to state");
    const std::string report = output({});
    EXPECT_NE(std::string::npos, report.find("     1  Scan                      none: uid 777 has no account\n"))
        << report;
    EXPECT_NE(std::string::npos, report.find("     2  Scan                      none: the rebuild ends before it\n"))
        << report;
    EXPECT_NE(std::string::npos,
        rejoined(report).find("A rebuild would leave the crontab alone: it ends here: TaskTable doesn't exist-2.\n"))
        << report;
    EXPECT_NE(
        std::string::npos, report.find("A rebuild would leave the crontab alone: it has ended before, at anna's.\n"))
        << report;
    EXPECT_TRUE(changesNothing("rebuild"));
    EXPECT_FALSE(changesNothing("clean"));
}

TEST_F(CrontabPreview, KnowsTheTableByAnyCase)
{
    addTask(1, anna, "7 * * * *");
    execSql("alter table TaskTable rename to Other; alter table Other rename to tasktable");
    EXPECT_EQ(taskLine("7 * * * *", 1), patched("", output({"--diff", "rebuild"})));
    execSql("alter table tasktable rename to Other; create view TaskTABLE as select * from Other");
    EXPECT_EQ(taskLine("7 * * * *", 1), patched("", output({"--diff", "rebuild"})));
    runPass("rebuild");
    EXPECT_EQ(taskLine("7 * * * *", 1), crontabOf("anna"));
}

TEST_F(CrontabPreview, SaysThatNoRunChangesAnythingWithoutTheScratchDirectory)
{
    addTask(1, anna, "7 * * * *");
    addTask(2, anna, "7 * * * *", "3,1");
    addTask(3, nobodysUid, "7 * * * *");
    setCrontab("anna", "#a\n" + taskLine("7 * * * *", 1));
    std::filesystem::remove(scratchDirectory);
    EXPECT_EQ("anna (uid 501)\n"
              "==============\n"
              "  task  description               schedule of its crontab line\n"
              "     1  Scan                      none: the scratch directory is missing\n"
              "     2  Scan                      none: type 3 runs only once\n"
              "\n"
              "A clean would leave the crontab alone: the scratch directory is missing.\n"
              "\n"
              "A rebuild would leave the crontab alone: the scratch directory is missing.\n"
              "\n"
              "uid 777\n"
              "=======\n"
              "  task  description               schedule of its crontab line\n"
              "     3  Scan                      none: uid 777 has no account\n"
              "\n"
              "A clean would leave the crontab alone: there is no account with this id.\n"
              "\n"
              "A rebuild would leave the crontab alone: there is no account with this id.\n"
              "\n"
              "2 owners, 3 tasks, 0 task lines, 0 warnings. Nothing has been changed.\n"
              "Whether crontab accepts it shows only in a run.\n",
        output({}));
    EXPECT_EQ("", output({"--diff", "clean"}) + output({"--diff", "rebuild"}));
    EXPECT_TRUE(changesNothing("clean"));
    EXPECT_TRUE(changesNothing("rebuild"));
}

/// What strace wrote down of the preview's openings of the database.
const std::string openingsLog = testDirectory + "openings";

std::size_t openings()
{
    std::istringstream lines(readFile(openingsLog));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.find("openat(") == 0 && line.find(") = ") != std::string::npos ? 1 : 0;
    return count;
}

ProgramEnd previewWithOpeningsLogged()
{
    return runProgram(
        {"/usr/bin/strace", "-o", openingsLog, "-P", databasePath, "-e", "trace=openat", ORV_CRONTAB_PREVIEW},
        StandardOutput::captured, {"ASAN_OPTIONS=detect_leaks=0"}); // it cannot look for them below strace
}

/// The preview; between its `opening`th opening of the database (from 1) and what it then reads, `sql` is run.
ProgramEnd previewWithChange(std::size_t opening, const std::string& sql)
{
    writeFile(openingsLog, "");
    StartedProgram program({"/usr/bin/strace", "-o", openingsLog, "-P", databasePath, "-e", "trace=openat", "-e",
                               "inject=openat:delay_exit=2000000:when=" + std::to_string(opening), ORV_CRONTAB_PREVIEW},
        StandardOutput::captured, {"ASAN_OPTIONS=detect_leaks=0"});
    while (openings() < opening && program.running())
        usleep(1000);
    execSql(sql);
    return program.wait();
}

TEST_F(CrontabPreview, ListsNoMoreTasksThanThereAreWhenSomeGo)
{
    constexpr std::size_t tasks = 20;
    constexpr std::size_t readsOfATask = 3; // whose it is, its description, its status
    for (int id = 1; id <= static_cast<int>(tasks); ++id)
        addTask(id, anna, "7 * * * *", "1,6");
    const std::string all = previewWithOpeningsLogged().output;
    EXPECT_NE(std::string::npos, all.find("\n    20  Scan")) << all;
    const std::size_t list = openings() - tasks * readsOfATask;
    const ProgramEnd counted = previewWithChange(list - 1, "delete from TaskTable where id>1");
    EXPECT_EQ(0, counted.status) << counted.errors;
    EXPECT_NE(std::string::npos, counted.output.find("\n1 owner, 1 task, 0 task lines,")) << counted.output;
    for (int id = 2; id <= static_cast<int>(tasks); ++id)
        addTask(id, anna, "7 * * * *", "1,6");
    const ProgramEnd listed = previewWithChange(list, "delete from TaskTable where id>1");
    EXPECT_EQ(0, listed.status) << listed.errors;
    EXPECT_NE(
        std::string::npos, listed.output.find("\n        there may be more, which cannot be listed: Data not found\n"))
        << listed.output;
}

TEST_F(CrontabPreview, MakesNoDatabase)
{
    std::filesystem::remove(databasePath);
    const std::string before = wholeWorld();
    EXPECT_EQ("Nobody owns a task: neither a clean nor a rebuild would change a crontab.\n", output({}));
    EXPECT_EQ(before, wholeWorld());
}

TEST_F(CrontabPreview, MakesNoTable)
{
    execSql("drop table TaskTable");
    const std::string before = wholeWorld();
    EXPECT_EQ("Nobody owns a task: neither a clean nor a rebuild would change a crontab.\n", output({}));
    EXPECT_EQ(before, wholeWorld());
}

TEST_F(CrontabPreview, SaysWhenTheDatabaseCannotBeRead)
{
    writeFile(databasePath, "this is no database, but long enough to look like one: " + std::string(100, '-'));
    const ProgramEnd end = preview({});
    EXPECT_EQ(1, end.status);
    EXPECT_EQ("", end.output);
    EXPECT_EQ("crontab_preview: " + databasePath + ": the task database cannot be read (26)\n", end.errors);
}

TEST_F(CrontabPreview, SaysWhatIsWrongWithItsArguments)
{
    addTask(1, anna, "7 * * * *");
    const ProgramEnd stranger = preview({"anna", "dora"});
    EXPECT_EQ(1, stranger.status);
    EXPECT_EQ("crontab_preview: dora owns no task\n", stranger.errors);
    EXPECT_EQ("", stranger.output);
    const ProgramEnd pass = preview({"--diff", "refresh"});
    EXPECT_EQ(2, pass.status);
    EXPECT_EQ("crontab_preview: --diff takes clean or rebuild, not refresh\n", pass.errors);
    EXPECT_EQ(2, preview({"--diff"}).status);
    EXPECT_EQ(2, preview({"--nothing"}).status);
}

TEST_F(CrontabPreview, IsForRootOnly)
{
    const std::string copy = testDirectory + "crontab_preview";
    std::filesystem::copy_file(ORV_CRONTAB_PREVIEW, copy);
    ASSERT_EQ(0, chmod(copy.c_str(), 0755));
    const ProgramEnd end = runProgram({"/usr/bin/setpriv", "--reuid", "501", "--regid", "501", "--clear-groups", copy});
    EXPECT_EQ(1, end.status);
    EXPECT_EQ("crontab_preview: only root can read the crontabs of others\n", end.errors);
}

TEST_F(CrontabPreview, ExplainsItselfIn80Columns)
{
    const std::string help = output({"--help"});
    expectFor80Columns(help);
    for (const char* words : {"--diff clean|rebuild", "accepts it shows only in a run"})
        EXPECT_NE(std::string::npos, help.find(words)) << help;
}

TEST_F(CrontabPreview, SaysWhenItsOutputIsLost)
{
    addTask(1, anna, "7 * * * *");
    const ProgramEnd end = runProgram({ORV_CRONTAB_PREVIEW}, StandardOutput::full);
    EXPECT_EQ(1, end.status);
    EXPECT_EQ("crontab_preview: the output could not be written\n", end.errors);
}

/// What the program writes to a terminal.
std::string onTerminal(const std::string& term, const std::string& noColour)
{
    const ProgramEnd end = runProgram({"/usr/bin/env", "TERM=" + term, "NO_COLOR=" + noColour, "/usr/bin/script",
        "--quiet", "--command", ORV_CRONTAB_PREVIEW, "/dev/null"});
    EXPECT_EQ("", end.errors); // no terminal can be had without /dev/pts, say
    return end.output;
}

TEST_F(CrontabPreview, IsColouredOnATerminalOnly)
{
    addTask(1, anna, "7 * * * *");
    const std::string coloured = onTerminal("xterm", "");
    EXPECT_NE(std::string::npos, coloured.find("\033[1manna (uid 501)\033[0m")) << coloured;
    EXPECT_NE(std::string::npos, coloured.find("\033[32m+7 * * * *")) << coloured;
    EXPECT_EQ(std::string::npos, output({}).find('\033'));
    EXPECT_EQ(std::string::npos, onTerminal("dumb", "").find('\033'));
    const std::string plain = onTerminal("xterm", "1");
    EXPECT_NE(std::string::npos, plain.find("anna (uid 501)")) << plain;
    EXPECT_EQ(std::string::npos, plain.find('\033'));
}

TEST_F(CrontabPreview, LetsNoControlCharacterOfACrontabReachTheTerminal)
{
    useRecordingCrontab();
    addTask(1, anna, "7 * * * *", "1,1", "\033[2J\302\233 \303\244 \344");
    setCrontab("anna", "# \033[2J\a\177\t\302\233 \303\244 \344\r\n\n# \033[2J\n");
    const std::string shown = output({});
    expectFor80Columns(shown);
    EXPECT_NE(std::string::npos, shown.find("# \\x1b[2J\\x07\\x7f\\t\\xc2\\x9b \303\244 \\xe4\\x0d\n")) << shown;
    EXPECT_NE(std::string::npos, shown.find("\\x1b[2J\\xc2\\x9b \303\244 \\xe4")) << shown;
}

TEST_F(CrontabPreview, ShowsWhatOnlyLooksLikeTextForWhatItIs)
{
    useRecordingCrontab();
    addTask(1, anna, "7 * * * *");
    // Turned, invisible, a line feed and an A in two bytes, a line feed in three, half a pair, behind the last
    // character, cut off.
    setCrontab("anna", "# \u202e \u200b \xc0\x8a \xc1\x81 \xe0\x80\x8a \xed\xa0\x80 \xf4\x90\x80\x80 \xf0\x9f\x98\n\n");
    const std::string shown = output({});
    expectFor80Columns(shown);
    EXPECT_NE(std::string::npos,
        rejoined(shown).find(
            "\n # \\xe2\\x80\\xae \\xe2\\x80\\x8b \\xc0\\x8a \\xc1\\x81 \\xe0\\x80\\x8a \\xed\\xa0\\x80 "
            "\\xf4\\x90\\x80\\x80 \\xf0\\x9f\\x98\n"))
        << shown;
}

/// Crontabs and task tables, from a seed.
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

    /// A line that every crontab program accepts, with its line end.
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
            return "#a" + taskLine("7 * * * *", below(5));
        case 5:
        case 6:
        case 7:
            return taskLine(std::to_string(below(60)) + " * * * *", below(12));
        default:
            return std::to_string(below(60)) + " 4 * * * /bin/job-" + std::to_string(below(4)) + "\n";
        }
    }

    std::string crontab()
    {
        std::string text;
        for (int lines = below(20); lines > 0; --lines)
            text += line();
        return text;
    }

    /// What no crontab program but the recording one takes.
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
        for (int id = generator.below(15); id > 0; --id)
            addTask(id, generator.oneOf<int>({0, anna, ben, carla, nobodysUid}),
                generator.oneOf<std::string>({"7 * * * *", "30 3 * * 1", "0 0 1 1 *", "@daily", "*/5 8-18 * * 1-5"}),
                std::to_string(generator.below(8)) + ","
                    + generator.oneOf<std::string>({"NULL", "-1", "1", "1", "3", "5", "6", "7"}),
                generator.oneOf<std::string>(
                    {"", "Scan\n", "A long description of the task that this row stands for"}));
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

    /// The crontabs that the preview foretells, by account.
    static std::map<std::string, std::string> foretold(const std::string& pass)
    {
        std::map<std::string, std::string> texts;
        for (const std::string& name : accounts())
            texts[name] = patched(crontabOf(name), ownsTask(name) ? output({"--diff", pass, name}) : "");
        return texts;
    }
};

TEST_F(CrontabPreviewOfGenerated, IsWhatTheToolThenInstallsByteForByte)
{
    for (unsigned seed = 1; seed <= 24; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Generator generator(seed);
        resetWorld();
        execSql(createTaskTable);
        useRecordingCrontab();
        addTasks(generator);
        for (const std::string& name : accounts())
            if (generator.below(4) != 0)
                setCrontab(name, generator.anyText());
        expectFor80Columns(output({}));
        for (const std::string pass : {"rebuild", "clean", "rebuild"}) {
            SCOPED_TRACE(pass);
            const auto expected = foretold(pass);
            runPass(pass);
            for (const std::string& name : accounts())
                EXPECT_EQ(expected.at(name), crontabOf(name)) << name;
        }
        if (HasFailure())
            return;
    }
}

/// What diff(1) finds between two texts, under the names that the preview gives them.
std::string differences(const std::string& before, const std::string& after, const std::string& pass)
{
    writeFile(testDirectory + "before", before);
    writeFile(testDirectory + "after", after);
    return runProgram({"/usr/bin/diff", "--unified", "--label", "anna\tnow", "--label", "anna\tafter a " + pass,
                          testDirectory + "before", testDirectory + "after"})
        .output;
}

TEST_F(CrontabPreviewOfGenerated, IsWrittenAsDiffWritesIt)
{
    useRecordingCrontab();
    addTask(1, anna, "7 * * * *");
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Generator generator(seed);
        std::string crontab; // with no line twice, so that there is one shortest difference
        std::string own;
        for (int number = generator.below(30); number > 0; --number) {
            const bool task = generator.below(seed % 2 == 0 ? 2 : 8) == 0;
            const std::string line = std::to_string(number) + " 4 * * * /bin/own\n";
            crontab += task ? taskLine("7 * * * *", 100 + number) : line;
            own += task ? "" : line;
        }
        setCrontab("anna", crontab);
        EXPECT_EQ(differences(crontab, own, "clean"), output({"--diff", "clean"}));
        EXPECT_EQ(differences(crontab, crontab + taskLine("7 * * * *", 1), "rebuild"), output({"--diff", "rebuild"}));
    }
}

/// Sanitizers take memory of their own, for more than what is looked at here.
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
    addTask(1, anna, "7 * * * *");
    std::string crontab = taskLine("7 * * * *", 1);
    std::string own;
    for (int number = 2; number < 10000; ++number) {
        const std::string line = std::to_string(number) + " 4 * * * /bin/own\n";
        crontab += number % 10 == 0 ? taskLine("7 * * * *", number) : line;
        own += number % 10 == 0 ? "" : line;
    }
    crontab += taskLine("7 * * * *", 10000);
    setCrontab("anna", crontab);
    EXPECT_EQ(differences(crontab, own, "clean"), output({"--diff", "clean"}));
    EXPECT_GT(50, peakMegabytes());
}

TEST_F(CrontabPreviewOfGenerated, TakesLittleMemoryWhereLinesJoinOrAreLostOneAfterTheOther)
{
    useRecordingCrontab();
    addTask(1, anna, "7 * * * *");
    std::string crontab;
    for (int number = 1; number <= 5000; ++number)
        crontab += "#a\n";
    crontab += "0 4 * * * /bin/own\n\n";
    for (int number = 5003; number <= 10000; ++number)
        crontab += std::to_string(number) + " 4 * * * /bin/own\n";
    setCrontab("anna", crontab);
    expectFor80Columns(output({}));
    EXPECT_GT(50, peakMegabytes());
}

/// What becomes of a crontab when the real crontab program is given `text` for it: it refuses some.
std::string afterInstalling(const std::string& name, const std::string& text)
{
    const std::string file = testDirectory + "foretold";
    writeFile(file, text);
    runProgram({"/usr/bin/crontab", "-u", name, file});
    return crontabOf(name);
}

TEST_F(CrontabPreviewOfGenerated, IsWhatTheToolThenMakesOfRealCrontabs)
{
    int changes = 0;
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Generator generator(seed);
        resetWorld();
        execSql(createTaskTable);
        addTasks(generator);
        for (const std::string& name : accounts())
            if (generator.below(4) != 0)
                setCrontab(name, generator.crontab());
        for (const std::string pass : {"clean", "rebuild"}) {
            SCOPED_TRACE(pass);
            std::map<std::string, std::string> before;
            for (const std::string& name : accounts())
                before[name] = crontabOf(name);
            const auto expected = foretold(pass);
            runPass(pass);
            for (const std::string& name : accounts()) {
                const std::string made = crontabOf(name);
                changes += made != before.at(name) ? 1 : 0;
                const bool had = hasCrontab(name);
                if (!had)
                    continue;
                afterInstalling(name, before.at(name));
                EXPECT_EQ(afterInstalling(name, expected.at(name)), made) << name;
            }
        }
        if (HasFailure())
            return;
    }
    EXPECT_GT(changes, 40); // or nothing was tried
}

TEST_F(CrontabPreviewOfGenerated, ReportsTheLinesThatTheRebuildWrites)
{
    for (int type = -1; type <= 7; ++type)
        for (int status = -1; status <= 7; ++status)
            addTask(100 + 10 * type + status, anna, "7 * * * *", std::to_string(type) + "," + std::to_string(status));
    const std::string shown = output({});
    runPass("rebuild");
    const std::string made = crontabOf("anna");
    for (int type = -1; type <= 7; ++type)
        for (int status = -1; status <= 7; ++status) {
            const int id = 100 + 10 * type + status;
            const std::string number = std::to_string(id);
            const std::size_t row = shown.find("\n" + std::string(6 - number.size(), ' ') + number + "  Scan");
            ASSERT_NE(std::string::npos, row) << id;
            const std::string line = shown.substr(row + 1, shown.find('\n', row + 1) - row - 1).substr(34);
            const bool written = made.find(taskLine("7 * * * *", id)) != std::string::npos;
            EXPECT_EQ(written    ? "7 * * * *"
                    : status > 5 ? "none: status " + std::to_string(status) + " is above 5"
                                 : "none: type 3 runs only once",
                line)
                << id;
            EXPECT_EQ(type != 3 && status <= 5, written) << id;
        }
}

} // namespace
