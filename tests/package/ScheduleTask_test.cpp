#include "DatabaseOpenings.h"
#include "SystemTest.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace support;

namespace {

class ScheduleTask : public WorldTest {
protected:
    static ProgramEnd run(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command = {ORV_SCHEDULE_TASK};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProgram(command);
    }

    /// What the program prints when nothing is wrong.
    static std::string output(const std::vector<std::string>& arguments) { return outputOf(run(arguments)); }
};

using Rows = std::vector<std::string>;

const std::string head = "  ID USER      TYPE STATUS  RUNS LAST RUN          SCHEDULE      DESCRIPTION\n";
/// SQL: whether the property list in a column contains a text.
std::string holds(const std::string& column, const std::string& text)
{
    return "cast(" + column + " as text) like '%" + text + "%'";
}

const std::string seeHelp = "; schedule_task --help shows how to call it";

TEST_F(ScheduleTask, CreatesATaskWithWhatIsGiven)
{
    EXPECT_EQ("1\n",
        output({"create", "--type", "2", "--schedule", "30 3 * * 1", "--user", "anna", "--description",
            "it's \"weekly\"", "path=/home/anna"}));
    EXPECT_EQ(Rows{"1|it's \"weekly\"|2|30 3 * * 1|1|0|501|0"},
        queryRows("select id,description,type,crontime,status,count,userId,recType from TaskTable"));
    const std::string parameter = queryRows("select parameter from TaskTable").at(0);
    EXPECT_TRUE(contains(parameter, "<key>path</key>")) << parameter;
    EXPECT_TRUE(contains(parameter, "<string>/home/anna</string>")) << parameter;
}

TEST_F(ScheduleTask, CreatesAnHourlyScanForItsCallerByDefault)
{
    EXPECT_EQ("1\n", output({"create"}));
    EXPECT_EQ(Rows{"1|0|NULL|1"},
        queryRows("select type,userId,parameter,description like 'Scan Task %' and crontime like '% * * * *' from "
                  "TaskTable"));
}

TEST_F(ScheduleTask, CreatesATaskForAUserWithoutAnAccount)
{
    output({"create", "--user", "777", "--schedule", "@daily"});
    EXPECT_EQ(Rows{"777|@daily"}, queryRows("select userId,crontime from TaskTable"));
}

TEST_F(ScheduleTask, NamesANewTaskAfterItsType)
{
    output({"create", "--type", "6"});
    EXPECT_EQ(Rows{"1"}, queryRows("select description like 'Quick ODS Task %' from TaskTable"));
}

TEST_F(ScheduleTask, StartsATaskAtOnceWhenAsked)
{
    writeFile(taskManager,
        "#!/bin/sh\necho \"$*\" >" + testDirectory + "started.part\nmv " + testDirectory + "started.part "
            + testDirectory + "started\n");
    ASSERT_EQ(0, chmod(taskManager.c_str(), 0755));
    output({"create"});
    EXPECT_EQ("2\n", output({"create", "--run-now"}));
    struct stat started { };
    for (int tenths = 0; stat((testDirectory + "started").c_str(), &started) != 0 && tenths < 100; ++tenths) {
        const timespec tenth = {0, 100000000};
        nanosleep(&tenth, nullptr); // it runs in the background
    }
    EXPECT_EQ("2\n", readFile(testDirectory + "started"));
}

TEST_F(ScheduleTask, ListsTheTasksOfAllOrOfOneUser)
{
    output({"create", "--user", "anna", "--schedule", "30 3 * * 1", "--description", "Weekly"});
    output({"create", "--user", "ben", "--schedule", "0,30 8-18 1-15 1-6 1-5", "--type", "5", "--description",
        "A description that is too long"});
    addAccount("dora", nobodysUid);
    output({"create", "--user", "dora", "--schedule", "0 0 * * *", "--description", "Gone"});
    removeAccount("dora");
    const std::string weekly = "   1 anna         1      1     0 never             30 3 * * 1    Weekly\n";
    EXPECT_EQ(head + weekly
            + "   2 ben          5      1     0 never             0,30 8-18 1-15 1-6 1-5 A des~\n"
              "   3 777          1      1     0 never             0 0 * * *     Gone\n",
        output({"list"}));
    EXPECT_EQ(head + weekly, output({"list", "--user", "anna"}));
    EXPECT_EQ(head, output({"list", "--user", "carla"}));
}

TEST_F(ScheduleTask, ListsWhatIsTooLongWithin80Columns)
{
    const std::string schedule = "0,5,10,15,20,25,30,35,40,45,50,55 8-18 * * 1-5";
    addAccount("annamariamagdalena", 600);
    output({"create", "--user", "600", "--schedule", schedule, "--description", "Office"});
    execSql("update TaskTable set id=2147483647,type=-2147483648,status=2147483647,count=2147483647");
    EXPECT_EQ(head + "2147483647 annamari~ -2147483648 2147483647 2147483647 "
            + queryRows("select strftime('%Y-%m-%d %H:%M','now','localtime')").at(0) + "  0,5,10,\n"
            + std::string(50, ' ') + "~15,20,25,30,35,40,45,50,55 8-\n" + std::string(50, ' ') + "~18 * * 1-5\n",
        output({"list"}));
}

TEST_F(ScheduleTask, LetsNoControlCharacterReachTheTerminal)
{
    output({"create", "--user", "anna", "--schedule", "@daily", "--description", "a\033[2J\nb\a\r"});
    output({"create", "--user", "anna", "--schedule", "@daily", "--description", "\u00fcbern\u00e4chste W\u00f6che"});
    output({"create", "--user", "anna", "--schedule", "@daily", "--description",
        "\u6bce\u9031\u306e\u30b9\u30ad\u30e3\u30f3"});
    execSql("insert into TaskTable(description,crontime,userId) values('', char(27) || '[1m', 501)");
    EXPECT_EQ(head
            + "   1 anna         1      1     0 never             @daily        a\\x1b[2J\\nb\\x0~\n"
              "   2 anna         1      1     0 never             @daily        \u00fcbern\u00e4chste W\u00f6~\n"
              "   3 anna         1      1     0 never             @daily        "
              "\u6bce\u9031\u306e\u30b9\u30ad\u30e3\u30f3\n"
              "   4 anna         1      1     0 never             \\x1b[1m\n",
        output({"list"}));
}

TEST_F(ScheduleTask, ListsNoTaskThatIsDeletedWhileItRuns)
{
    execSql(createTaskTable);
    constexpr int tasks = 30;
    for (int id = 1; id <= tasks; ++id)
        addTask({id, anna});
    const std::vector<std::string> command = {ORV_SCHEDULE_TASK, "list"};
    const std::size_t count = databaseOpenings(command) - tasks - 1; // then come the list, and each task
    const std::string listed = outputOf(runWithChange(command, count, "delete from TaskTable where id>1"));
    EXPECT_EQ(2, std::count(listed.begin(), listed.end(), '\n')) << listed;
}

TEST_F(ScheduleTask, ListsNothingFromAnEmptyTable)
{
    EXPECT_EQ(head, output({"list"}));
}

TEST_F(ScheduleTask, ModifiesWhatIsNamedAndNothingElse)
{
    output({"create", "--user", "anna", "--schedule", "1 2 3 4 5", "--description", "One", "a=b"});
    const std::string all
        = "select description,type,crontime,status,count,userId,parameter,result,created from TaskTable";
    const std::string before = queryRows(all).at(0);
    EXPECT_EQ("", output({"modify", "1"}));
    EXPECT_EQ(before, queryRows(all).at(0));
    output({"modify", "1", "--status", "7", "--user", "ben", "--type", "4"});
    EXPECT_EQ(Rows{"One|4|1 2 3 4 5|7|502|1"},
        queryRows(
            "select description,type,crontime,status,userId," + holds("parameter", "<key>a<") + " from TaskTable"));
    output({"modify", "1", "--description", "Two", "--schedule", "0 0 1 1 *", "c=d"});
    EXPECT_EQ(Rows{"Two|0 0 1 1 *|7|0|1"},
        queryRows("select description,crontime,status," + holds("parameter", "<key>a<") + ","
            + holds("parameter", "<key>c<") + " from TaskTable"));
}

TEST_F(ScheduleTask, RecordsARun)
{
    output({"create", "--user", "anna", "a=b"});
    execSql("update TaskTable set lastRun='0,0,0,1,0,100,6,0,0,'");
    EXPECT_EQ("", output({"record", "1", "found=3", "state=done"}));
    EXPECT_EQ("", output({"record", "1", "--status", "2", "found=4"}));
    EXPECT_EQ(Rows{"2|2|1|1|0|1"},
        queryRows("select count,status," + holds("result", "<key>found<") + "," + holds("result", "<string>4<") + ","
            + holds("result", "state") + "," + holds("parameter", "<key>a<") + " from TaskTable"));
    const std::string list = output({"list"});
    EXPECT_TRUE(contains(list, "   2 " + queryRows("select date('now','localtime')").at(0))) << list;
    output({"record", "1"});
    EXPECT_EQ(Rows{"3|0"}, queryRows("select count," + holds("result", "<key>") + " from TaskTable"));
}

TEST_F(ScheduleTask, WaitsForARunToEndBeforeItDeletes)
{
    output({"create", "--user", "anna", "--schedule", "7 * * * *"});
    rebuild();
    const int scratch = open(scratchDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(0, flock(scratch, LOCK_EX));
    StartedProgram deleting({ORV_SCHEDULE_TASK, "delete", "1"});
    usleep(500000);
    EXPECT_TRUE(deleting.running());
    EXPECT_EQ(taskLine(1, "7 * * * *"), crontabOf("anna"));
    EXPECT_EQ(Rows{"1"}, queryRows("select id from TaskTable"));
    ASSERT_EQ(0, close(scratch));
    EXPECT_EQ(0, deleting.wait().status);
    EXPECT_EQ("", crontabOf("anna"));
    EXPECT_EQ(Rows{}, queryRows("select id from TaskTable"));
}

TEST_F(ScheduleTask, DeletesNothingIfNoCrontabCanBeEdited)
{
    output({"create", "--user", "anna"});
    std::filesystem::remove(scratchDirectory);
    EXPECT_EQ(
        "schedule_task: no crontab can be edited without " + scratchDirectory + "\n", errorsOf(run({"delete", "1"})));
    EXPECT_EQ(Rows{"1"}, queryRows("select id from TaskTable"));
}

TEST_F(ScheduleTask, IsForRootOnly)
{
    EXPECT_EQ("schedule_task: only root may look at the tasks of others and change them\n",
        errorsOf(runAsAnna(ORV_SCHEDULE_TASK, {"list"})));
}

TEST_F(ScheduleTask, ReportsThatItsOutputCannotBeWritten)
{
    for (const char* argument : {"list", "--help"})
        EXPECT_EQ("schedule_task: the output could not be written\n",
            errorsOf(runProgram({ORV_SCHEDULE_TASK, argument}, StandardOutput::full)));
}

TEST_F(ScheduleTask, PutsTasksIntoEffectTogetherWithTheTool)
{
    setCrontab("anna", "0 4 * * * /bin/own\n");
    output({"create", "--user", "anna", "--schedule", "7 * * * *"});
    output({"create", "--user", "anna", "--schedule", "8 * * * *"});
    output({"create", "--user", "anna", "--schedule", "9 * * * *", "--type", "3"});
    output({"modify", "2", "--status", "6"});
    EXPECT_EQ("0 4 * * * /bin/own\n", crontabOf("anna"));
    rebuild();
    EXPECT_EQ("0 4 * * * /bin/own\n" + taskLine(1, "7 * * * *"), crontabOf("anna"));
    output({"modify", "1", "--schedule", "30 3 * * 1"});
    output({"modify", "2", "--status", "5"});
    clean();
    rebuild();
    EXPECT_EQ("0 4 * * * /bin/own\n" + taskLine(1, "30 3 * * 1") + taskLine(2, "8 * * * *"), crontabOf("anna"));
    EXPECT_EQ("", output({"delete", "1"}));
    EXPECT_EQ("0 4 * * * /bin/own\n" + taskLine(2, "8 * * * *"), crontabOf("anna"));
    EXPECT_EQ((Rows{"2", "3"}), queryRows("select id from TaskTable order by id"));
}

TEST_F(ScheduleTask, ExplainsItselfIn80Columns)
{
    const std::string help = output({"--help"});
    std::istringstream lines(help);
    for (std::string text; std::getline(lines, text);)
        EXPECT_LE(text.size(), 80U) << text;
    for (const char* word : {"create", "list", "modify", "record", "delete", "--type", "--schedule", "--user",
             "--description", "--status", "--run-now", "KEY=VALUE replace all", "below an empty line", "as root"})
        EXPECT_TRUE(contains(help, word)) << word;
}

TEST_F(ScheduleTask, SaysWhenTheDatabaseCannotBeOpened)
{
    execSql("create table Other(id)");
    writeFile(databasePath, "this is no database");
    EXPECT_EQ("schedule_task: " + databasePath + ": Database: table cannot be created: file is not a database (26)\n",
        errorsOf(run({"list"})));
}

TEST_F(ScheduleTask, AcceptsSchedulesThatCronCanKeep)
{
    for (const char* const schedule : {"* * * * *", "0 0 1 1 0", "59 23 31 12 7", "*/5 0-23/2 1,15 Jan,dec MON-fri",
             "0,30-40/5,50 * * feb-apr sun", "@reboot", "@hourly"})
        EXPECT_EQ(0, run({"create", "--schedule", schedule}).status) << schedule;
}

TEST_F(ScheduleTask, RefusesImpossibleSchedules)
{
    for (const std::string schedule :
        {"60 * * * *", "* 24 * * *", "* * 0 * *", "* * 32 * *", "* * * 0 *", "* * * 13 *", "* * * * 8", "-1 * * * *",
            "5-1 * * * *", "1-2-3 * * * *", "*/0 * * * *", "5/2 * * * *", "*/2/2 * * * *", ", * * * *", "1, * * * *",
            "**  * * *", " * * * * *", "mon * * * *", "* * * tue *", "* * * * jan", "@dayly", "@", "", "1e1 * * * *",
            "* * * * *\t", "99999999999 * * * *", "7 * * *", "7 * * * * *", "7 * * * \"", "7 * * * *\n0 0 * * *"})
        EXPECT_EQ("schedule_task: '" + schedule + "' is not a schedule such as '30 3 * * 1' or @daily" + seeHelp + "\n",
            errorsOf(run({"create", "--schedule", schedule}), 2));
    EXPECT_EQ(Rows{}, queryRows("select id from TaskTable"));
}

struct Mistake {
    std::vector<std::string> arguments;
    std::string message;
    int status = 2;
};

std::ostream& operator<<(std::ostream& out, const Mistake& mistake)
{
    for (const std::string& argument : mistake.arguments)
        out << argument << ' ';
    return out << mistake.status;
}

class ScheduleTaskMistakes : public ScheduleTask, public testing::WithParamInterface<Mistake> { };

TEST_P(ScheduleTaskMistakes, AreExplainedAndChangeNothing)
{
    output({"create", "--user", "anna", "--description", "There already"});
    const std::vector<std::string> before = queryRows("select * from TaskTable");
    const ProgramEnd end = run(GetParam().arguments);
    EXPECT_EQ(GetParam().status, end.status);
    EXPECT_EQ("", end.output);
    EXPECT_EQ("schedule_task: " + GetParam().message + "\n", end.errors.substr(end.errors.find("schedule_task: ")));
    EXPECT_EQ(before, queryRows("select * from TaskTable"));
}

const std::string getoptSeeHelp = "\nschedule_task: " + seeHelp.substr(2);

const std::vector<Mistake> mistakes = {
    {{}, "a command is missing" + seeHelp},
    {{"crate"}, "there is no command crate" + seeHelp},
    {{"list", "--status", "3"}, "list does not take all of these options" + seeHelp},
    {{"delete"}, "delete takes one task's id" + seeHelp},
    {{"delete", "1", "2"}, "delete takes one task's id" + seeHelp},
    {{"list", "1"}, "list takes no argument" + seeHelp},
    {{"delete", "one"}, "'one' is not a number" + seeHelp},
    {{"delete", "1x"}, "'1x' is not a number" + seeHelp},
    {{"delete", ""}, "'' is not a number" + seeHelp},
    {{"delete", "4294967297"}, "'4294967297' is not a number" + seeHelp},
    {{"delete", "2"}, "there is no task 2", 1},
    {{"modify", "2", "--status", "1"}, "there is no task 2", 1},
    {{"record", "2"}, "there is no task 2", 1},
    {{"create", "--user", "dora"}, "no such user: dora" + seeHelp},
    {{"create", "--type", "0"}, "there is no type 0: it is a number from 1 to 6" + seeHelp},
    {{"create", "--type", "7"}, "there is no type 7: it is a number from 1 to 6" + seeHelp},
    {{"modify", "1", "--type", "7"}, "there is no type 7: it is a number from 1 to 6" + seeHelp},
    {{"create", "word"}, "'word' is not KEY=VALUE" + seeHelp},
    {{"create", "key=\xff"}, "'\xff' is not UTF-8" + seeHelp},
    {{"create", "--type"}, "option '--type' requires an argument" + getoptSeeHelp},
    {{"create", "--colour", "red"}, "unrecognized option '--colour'" + getoptSeeHelp},
};

INSTANTIATE_TEST_SUITE_P(All, ScheduleTaskMistakes, testing::ValuesIn(mistakes));

} // namespace
