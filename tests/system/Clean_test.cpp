#include "SystemTest.h"

#include <string>

using namespace support;

namespace {

class Clean : public SystemTest { };
class CleanRecorded : public RecordedSystemTest { };

const std::string scan = taskLine(3);

} // namespace

TEST_F(Clean, DeletesTheTaskLineBetweenForeignLines)
{
    addTask({3, anna});
    setCrontab("anna",
        "0 1 * * * /bin/backup\n"
        "0 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 3 >> /dev/null 2>&1\n"
        "30 6 * * 1 /bin/report --all\n");
    EXPECT_EQ("", clean());
    EXPECT_EQ("0 1 * * * /bin/backup\n"
              "30 6 * * 1 /bin/report --all\n",
        crontabOf("anna"));
}

TEST_F(Clean, EmptiesACrontabOfTaskLinesEvenOfTasksWithoutARow)
{
    addTask({3, anna});
    setCrontab("anna", scan + taskLine(4711, "5 4 * * *") + taskLine(-1, "@daily"));
    clean();
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(Clean, LeavesACrontabAsItWasWhenCronRefusesTheNewOne)
{
    addTask({3, anna});
    addTask({4, ben});
    const std::string quoted = "LIST=\"" + std::string(600, 'x') + "\"\n"; // loses its second quotation mark
    setCrontab("anna", backup + scan + quoted);
    setCrontab("ben", scan + report);
    EXPECT_TRUE(contains(clean(), "errors in crontab file, can't install."));
    EXPECT_EQ(backup + scan + quoted, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Clean, DoesNotTouchUsersWithoutARow)
{
    addTask({3, anna});
    for (const std::string name : {"anna", "ben", "root"})
        setCrontab(name, backup + scan);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(backup + scan, crontabOf("ben"));
    EXPECT_EQ(backup + scan, crontabOf("root"));
    EXPECT_FALSE(hasCrontab("carla"));
}

TEST_F(Clean, CleansRootsCrontab)
{
    addTask({3, 0});
    setCrontab("root", scan + report);
    clean();
    EXPECT_EQ(report, crontabOf("root"));
}

TEST_F(Clean, CleansUsersWhoseTasksGetNoLine)
{
    addTask({3, anna, "0 3 * * *", 1, 6}); // finished
    addTask({4, ben, "0 3 * * *", 3}); // runs only once
    setCrontab("anna", backup + scan);
    setCrontab("ben", report + scan);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
}

TEST_F(Clean, GivesAUserWithoutACrontabAnEmptyOne)
{
    addTask({3, anna});
    EXPECT_EQ("no crontab for anna\n", clean());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(Clean, SkipsAnIdWithoutAnAccount)
{
    addTask({3, anna});
    addTask({4, nobodysUid});
    addTask({5, ben});
    setCrontab("anna", backup + scan);
    setCrontab("ben", scan + report);
    EXPECT_EQ("", clean());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Clean, UndoesARebuild)
{
    addTask({3, anna});
    addTask({4, anna, "*/5 * * * *", 2});
    addTask({5, ben, "@reboot", 6});
    setCrontab("anna", "# mine\n" + backup);
    setCrontab("ben", report);
    rebuild();
    EXPECT_EQ("# mine\n" + backup + scan + taskLine(4, "*/5 * * * *"), crontabOf("anna"));
    EXPECT_EQ(report + taskLine(5, "@reboot"), crontabOf("ben"));
    clean();
    EXPECT_EQ("# mine\n" + backup, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Clean, CleansFortyUsers)
{
    const auto name = [](int number) { return "user" + std::to_string(number); };
    const auto job = [](int number) { return "0 1 * * * /bin/job" + std::to_string(number) + "\n"; };
    for (int number = 1; number <= 40; ++number) {
        addAccount(name(number), 1000 + number);
        addTask({number, 1000 + number});
        setCrontab(name(number), job(number) + taskLine(number));
    }
    clean();
    for (int number = 1; number <= 40; ++number)
        EXPECT_EQ(job(number), crontabOf(name(number)));
}

TEST_F(CleanRecorded, ReadsAndInstallsUserByUserInTheOrderOfTheTable)
{
    addTask({3, carla});
    addTask({4, anna});
    addTask({5, carla});
    addTask({6, 0});
    clean();
    EXPECT_EQ((Calls{"-u carla -l", "-u carla " + filteredCopy, "-u anna -l", "-u anna " + filteredCopy, "-u root -l",
                  "-u root " + filteredCopy}),
        crontabCalls());
}

TEST_F(CleanRecorded, RunsNothingForAnIdWithoutAnAccount)
{
    addTask({3, nobodysUid});
    addTask({4, -1});
    EXPECT_EQ("", clean());
    EXPECT_EQ(Calls{}, crontabCalls());
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(CleanRecorded, KeepsThousandsOfLinesInTheirOrder)
{
    std::string before;
    std::string after;
    for (int number = 0; number < 3000; ++number) {
        const std::string line = "0 1 * * * /bin/job " + std::to_string(number) + "\n";
        before += line + taskLine(number);
        after += line;
    }
    addTask({3, anna});
    setCrontab("anna", before);
    clean();
    EXPECT_EQ(after, crontabOf("anna"));
}

TEST_F(CleanRecorded, InstallsACompleteFileWhileTheCopyIsStillThere)
{
    addTask({3, anna});
    setCrontab("anna", backup + scan + report);
    onCrontabCall("[ $operation = list ] || cp " + crontabCopy + " " + filteredCopy + " " + testDirectory);
    clean();
    EXPECT_EQ(backup + scan + report, readFile(testDirectory + "crontemp.txt"));
    EXPECT_EQ(backup + report, readFile(testDirectory + "temp2.txt"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(CleanRecorded, DoesNotInstallWhatTheListingPrintsOnStandardError)
{
    addTask({3, anna});
    setCrontab("anna", backup);
    onCrontabCall("[ $operation = install ] || echo 'the disk is old' >&2");
    EXPECT_EQ("the disk is old\n", clean());
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(CleanRecorded, InstallsWhatAListingPrintedBeforeItFailed)
{
    addTask({3, anna});
    setCrontab("anna", backup + scan + report);
    onCrontabCall("[ $operation = install ] || { echo '0 1 * * * /bin/backup'; exit 1; }");
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
}
