#include "SystemTest.h"
#include <cstddef>
#include <string>
#include <vector>

using namespace support;

namespace {

class Clean : public SystemTest { };
class CleanRecorded : public RecordedSystemTest { };

const std::string backup = "0 1 * * * /bin/backup\n";
const std::string report = "30 6 * * 1 /bin/report --all\n";
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

TEST_F(Clean, EmptiesACrontabThatHoldsTaskLinesOnly)
{
    addTask({3, anna});
    setCrontab("anna", scan + taskLine(9, "5 4 * * *"));
    clean();
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(Clean, KeepsCommentsAndVariables)
{
    addTask({3, anna});
    setCrontab("anna", "# the jobs of the night\nMAILTO=\"\"\n" + scan + "PATH = /bin:/usr/bin\n" + backup);
    clean();
    EXPECT_EQ("# the jobs of the night\nMAILTO=\"\"\nPATH = /bin:/usr/bin\n" + backup, crontabOf("anna"));
}

TEST_F(Clean, DeletesTaskLinesWithoutARow)
{
    addTask({3, anna});
    setCrontab("anna", taskLine(4711) + backup + taskLine(-1, "@daily"));
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(Clean, EmptiesACrontabWhoseFirstLineIsEmpty)
{
    addTask({3, anna});
    setCrontab("anna", "\n" + backup + scan + report);
    clean();
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(Clean, DropsEverythingBelowTheFirstBlankLine)
{
    addTask({3, anna});
    setCrontab("anna", backup + "\n" + scan + report);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(Clean, JoinsAShortCommentToTheNextLine)
{
    addTask({3, anna});
    setCrontab("anna", "#a\n" + backup + report);
    clean();
    EXPECT_EQ("#a0 1 * * * /bin/backup\n" + report, crontabOf("anna"));
}

TEST_F(Clean, JoinsAShortCommentToTheNextKeptLineAcrossATaskLine)
{
    addTask({3, anna});
    setCrontab("anna", "#\n" + scan + backup);
    clean();
    EXPECT_EQ("#0 1 * * * /bin/backup\n", crontabOf("anna"));
}

TEST_F(Clean, LeavesACrontabAsItWasWhenCronRefusesTheNewOne)
{
    addTask({3, anna});
    const std::string quoted = "LIST=\"" + std::string(600, 'x') + "\"\n"; // loses its second quotation mark
    setCrontab("anna", backup + scan + quoted);
    EXPECT_NE(std::string::npos, clean().find("errors in crontab file, can't install."));
    EXPECT_EQ(backup + scan + quoted, crontabOf("anna"));
    EXPECT_EQ(Files{}, scratchFiles());
}

TEST_F(Clean, DeletesACommentThatMentionsTheTaskManager)
{
    addTask({3, anna});
    setCrontab("anna", "# do not start /usr/local/Quarno/Kestrelcore/TessaraTaskManager by hand\n" + backup);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(Clean, CutsALineOf600CharactersAndLosesWhatFollows)
{
    addTask({3, anna});
    const std::string longLine = "0 5 * * * /bin/sort " + std::string(580, 'x');
    ASSERT_EQ(600u, longLine.size());
    setCrontab("anna", backup + longLine + "\n" + report);
    clean();
    EXPECT_EQ(backup + longLine.substr(0, 499) + "\n", crontabOf("anna"));
}

TEST_F(Clean, LeavesNothingInTheScratchDirectory)
{
    addTask({3, anna});
    addTask({4, ben});
    setCrontab("anna", backup + scan);
    setCrontab("ben", scan + report);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
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

TEST_F(Clean, CleansAUserWhoseTasksAreAllFinished)
{
    addTask({3, anna, "0 3 * * *", 1, 6});
    setCrontab("anna", backup + scan);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(Clean, CleansAUserWhoHasOneOffTasksOnly)
{
    addTask({3, anna, "0 3 * * *", 3});
    setCrontab("anna", backup + scan);
    clean();
    EXPECT_EQ(backup, crontabOf("anna"));
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
}

TEST_F(Clean, CleansFortyUsers)
{
    std::vector<std::string> names;
    for (int number = 1; number <= 40; ++number) {
        names.push_back("user" + std::to_string(number));
        addAccount(names.back(), 1000 + number);
        addTask({number, 1000 + number});
        setCrontab(names.back(), "0 1 * * * /bin/job" + std::to_string(number) + "\n" + taskLine(number));
    }
    clean();
    for (int number = 1; number <= 40; ++number)
        EXPECT_EQ(
            "0 1 * * * /bin/job" + std::to_string(number) + "\n", crontabOf(names[static_cast<size_t>(number - 1)]));
}

TEST_F(CleanRecorded, ReadsAndInstallsUserByUserInTheOrderOfTheTable)
{
    addTask({3, carla});
    addTask({4, anna});
    addTask({5, carla});
    addTask({6, 0});
    clean();
    EXPECT_EQ((Calls{"-u carla -l", "-u carla /usr/local/Quarno/Kestrelcore/var/tmp/temp2.txt", "-u anna -l",
                  "-u anna /usr/local/Quarno/Kestrelcore/var/tmp/temp2.txt", "-u root -l",
                  "-u root /usr/local/Quarno/Kestrelcore/var/tmp/temp2.txt"}),
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

TEST_F(CleanRecorded, KeepsWhatTheListingComplainsAboutOutOfTheCrontab)
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

TEST_F(CleanRecorded, EmptiesTheCrontabWhenItsListingFails)
{
    addTask({3, anna});
    setCrontab("anna", backup + scan);
    onCrontabCall("[ $operation = install ] || exit 1");
    clean();
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_F(CleanRecorded, GoesOnWithTheNextUserWhenAnInstallFails)
{
    addTask({3, anna});
    addTask({4, ben});
    setCrontab("anna", backup + scan);
    setCrontab("ben", scan + report);
    onCrontabCall("[ $operation$user != installanna ] || exit 1");
    clean();
    EXPECT_EQ(backup + scan, crontabOf("anna"));
    EXPECT_EQ(report, crontabOf("ben"));
    EXPECT_EQ(Files{}, scratchFiles());
}
