#include "TaskEditor.h"

#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "EditorTest.h"

using namespace support;

namespace fs = std::filesystem;

namespace {

const std::string countUsers = "select count(*) from (select distinct userId from TaskTable)";
const std::string listUsers = "select distinct userId from TaskTable";
const std::string annasTaskCount = "select count(*) from TaskTable where userId=501 and status<=5";
const std::string annasTaskList = "select id from TaskTable where userId=501 AND status<=5";

const std::string annasLine = taskLine(100);
const std::string bensLine = taskLine(200);

/// The statements among the calls of SQLite.
Lines statementsOf(const Lines& calls)
{
    Lines statements;
    for (const auto& call : calls)
        if (call.rfind("select", 0) == 0)
            statements.push_back(call);
    return statements;
}

Lines databaseRows()
{
    return queryRows("select * from TaskTable");
}

void dropTable()
{
    execSql("drop table TaskTable");
}

/// A text of `size` bytes in lines of ten characters.
std::string linesOf(std::size_t size)
{
    std::string text;
    while (text.size() < size)
        text += "# a line.\n";
    return text;
}

struct NamedPass {
    const char* name;
    bool (*run)(TaskEditor&);
    const char* installed; ///< the scratch file that it installs
    bool appends; ///< the line of each task
};

std::ostream& operator<<(std::ostream& out, const NamedPass& pass)
{
    return out << pass.name;
}

/// What the three passes have in common. Each test is run for each.
class PassTest : public EditorTest, public testing::WithParamInterface<NamedPass> {
protected:
    bool runPass() { return GetParam().run(*editor); }

    std::string installed() const { return GetParam().installed; }

    /// What the pass makes of a crontab of one foreign job.
    std::string passed(const std::string& job, const std::string& line) const
    {
        return GetParam().appends ? job + line : job;
    }
};

const NamedPass cleaning = {"Cleaning", [](TaskEditor& editor) { return editor.cleanCron(); }, "temp2.txt", false};
const NamedPass rebuilding
    = {"Rebuilding", [](TaskEditor& editor) { return editor.putCronFromDB(); }, "crontemp.txt", true};
const NamedPass refreshing
    = {"Refreshing", [](TaskEditor& editor) { return editor.refreshCron(); }, "temp2.txt", false};
const NamedPass removing = {"RemovingTheLinesOfTwoTasks",
    [](TaskEditor& editor) { return editor.deleteCronEntry(100, anna) && editor.deleteCronEntry(200, ben); },
    "temp2.txt", false};
const auto nameOf = [](const auto& pass) { return std::string(pass.param.name); };

/// A pass over the crontabs of anna, who has task 100, and ben, who has task 200. Each has a foreign job.
class PassOverTwoCrontabs : public PassTest {
protected:
    void SetUp() override
    {
        EditorTest::SetUp();
        addRow("id=100, userId=501");
        addRow("id=200, userId=502");
        setCrontab("anna", backup);
        setCrontab("ben", tidy);
    }

    /// The commands that edit both crontabs.
    Lines editingBoth() const
    {
        return {reading("anna"), installing("anna", installed()), reading("ben"), installing("ben", installed())};
    }

    /// `change` comes before the connection of this number. The first counts the users, the second counts them again
    /// for their list, which is the third.
    void expectToEnd(const std::string& failure, int connection, const std::string& change)
    {
        ConnectionWatch connections;
        connections.before(connection, [&change] { execSql(change); });
        EXPECT_EQ(failure, failureOf([this] { runPass(); }));
        EXPECT_EQ(Lines(), commands.takeCommands());
    }
};

INSTANTIATE_TEST_SUITE_P(, PassTest, testing::Values(cleaning, rebuilding, refreshing), nameOf);
INSTANTIATE_TEST_SUITE_P(, PassOverTwoCrontabs, testing::Values(cleaning, rebuilding, refreshing), nameOf);

TEST_P(PassTest, RunsNothingIfThereIsNoTaskAndDoesNotAskForTheUsers)
{
    setCrontab("anna", annasLine);
    SqliteWatch sqlite;
    EXPECT_TRUE(runPass());
    EXPECT_EQ(Lines{countUsers}, statementsOf(sqlite.takeCalls()));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(annasLine, crontabOf("anna"));
}

TEST_P(PassTest, ReadsAndInstallsTheCrontabsInTheOrderOfTheTable)
{
    addRow("userId=502");
    addRow("userId=501");
    addRow("userId=502");
    addRow("userId=0");
    EXPECT_TRUE(runPass());
    EXPECT_EQ((Lines{reading("ben"), installing("ben", installed()), reading("anna"), installing("anna", installed()),
                  reading("root"), installing("root", installed())}),
        commands.takeCommands());
}

TEST_P(PassOverTwoCrontabs, LeavesNoScratchFile)
{
    EXPECT_TRUE(runPass());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(PassOverTwoCrontabs, ChangesNothingInTheDatabase)
{
    const Lines before = databaseRows();
    EXPECT_TRUE(runPass());
    EXPECT_EQ(before, databaseRows());
}

TEST_P(PassOverTwoCrontabs, TouchesNoCrontabOfAUserWithoutATask)
{
    setCrontab("carla", annasLine + "\n" + bensLine);
    setCrontab("root", annasLine);
    EXPECT_TRUE(runPass());
    EXPECT_EQ(annasLine + "\n" + bensLine, crontabOf("carla"));
    EXPECT_EQ(annasLine, crontabOf("root"));
}

TEST_P(PassOverTwoCrontabs, HoldsNoConnectionWhileACommandRuns)
{
    std::vector<int> descriptors;
    commands.beforeEach([&descriptors] { descriptors.push_back(openDatabaseDescriptors()); });
    EXPECT_TRUE(runPass());
    EXPECT_EQ((std::vector<int>{1, 1, 1, 1}), descriptors); // the editor's own
}

TEST_P(PassOverTwoCrontabs, TakesNoLock)
{
    std::vector<bool> held;
    commands.beforeEach([&held] { held.push_back(taskLockHeld()); });
    EXPECT_TRUE(runPass());
    EXPECT_EQ((std::vector<bool>{false, false, false, false}), held);
}

TEST_P(PassOverTwoCrontabs, GoesOnWithTheNextUserIfACrontabCannotBeInstalled)
{
    commands.refuse(installing("anna", installed()));
    EXPECT_TRUE(runPass());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(passed(tidy, bensLine), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(PassOverTwoCrontabs, GoesOnWithTheNextUserIfACrontabIsRejected)
{
    onCrontabCall("[ $operation = list ] || [ $user = ben ] || exit 1");
    EXPECT_TRUE(runPass());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(passed(tidy, bensLine), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(PassOverTwoCrontabs, DoesNotInstallTheCopyThatAnEarlierRunLeftIfACrontabCannotBeRead)
{
    writeFile(scratchDirectory + "crontemp.txt", "0 0 * * * /bin/of-somebody-else\n");
    commands.refuse(reading("anna"));
    EXPECT_TRUE(runPass());
    EXPECT_EQ(passed("", annasLine), crontabOf("anna"));
    EXPECT_EQ(passed(tidy, bensLine), crontabOf("ben"));
}

TEST_P(PassOverTwoCrontabs, DoesNotInstallThePreviousUsersCrontabIfACrontabCannotBeRead)
{
    commands.refuse(reading("ben"));
    EXPECT_TRUE(runPass());
    EXPECT_EQ(passed(backup, annasLine), crontabOf("anna"));
    EXPECT_EQ(passed("", bensLine), crontabOf("ben"));
}

TEST_P(PassOverTwoCrontabs, RunsNothingForAnIdWithoutAnAccountAndGoesOn)
{
    addRow("id=1, userId=777"); // the first in the table
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(PassOverTwoCrontabs, EndsIfTheUsersCannotBeCounted)
{
    expectToEnd("Error in taskType (1)", 1, "drop table TaskTable");
}

TEST_P(PassOverTwoCrontabs, EndsIfTheUsersCannotBeCountedAgainForTheList)
{
    expectToEnd("Error in taskType (1)", 2, "drop table TaskTable");
}

TEST_P(PassOverTwoCrontabs, EndsIfTheUsersCannotBeListed)
{
    expectToEnd("Error in reading values (1)", 3, "drop table TaskTable");
}

TEST_P(PassOverTwoCrontabs, EndsIfNoUsersAreLeftWhenTheyAreListed)
{
    expectToEnd("Data not found (401)", 2, "delete from TaskTable");
}

TEST_P(PassOverTwoCrontabs, EndsIfTheNumberOfUsersChangedSinceTheCount)
{
    expectToEnd("Data not found (401)", 3, "delete from TaskTable where userId=502");
}

TEST_P(PassOverTwoCrontabs, EditsTheUsersThatAreLeftIfSomeHaveGoneSinceTheCount)
{
    addRow("userId=503");
    ConnectionWatch connections;
    connections.before(2, [] { execSql("delete from TaskTable where userId<>502"); });
    EXPECT_TRUE(runPass());
    EXPECT_EQ((Lines{reading("ben"), installing("ben", installed())}), commands.takeCommands());
}

TEST_P(PassOverTwoCrontabs, EditsAsManyUsersAsWereCountedIfOthersHaveCome)
{
    ConnectionWatch connections;
    connections.before(2, [] { addRow("userId=503"); });
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
}

TEST_P(PassOverTwoCrontabs, LeavesTheCrontabAsItIsIfTheScratchDirectoryIsMissing)
{
    fs::remove(scratchDirectory);
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
    EXPECT_FALSE(fs::exists(scratchDirectory));
}

TEST_P(PassOverTwoCrontabs, DoesNotInstallACopyThatIsCutOffByAFullDisk)
{
    const std::string large = linesOf(10000);
    setCrontab("anna", large);
    limitScratchDirectory(8192, 0);
    EXPECT_TRUE(runPass());
    EXPECT_EQ(large, crontabOf("anna"));
    EXPECT_EQ((Lines{reading("anna"), reading("ben"), installing("ben", installed())}), commands.takeCommands());
    EXPECT_EQ(passed(tidy, bensLine), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(PassOverTwoCrontabs, DoesNotInstallACopyWithAGapFromADiskThatWasFullForAWhile)
{
    limitScratchDirectory(100 * 4096, 0);
    writeFile(scratchDirectory + "filler", std::string(98 * 4096, ' '));
    // 100000 bytes are more than the pipe holds and the disk has room for, so some are lost before there is room again.
    onCrontabCall("if [ $operation$user = listanna ]; then\n"
                  "yes '# a line.' | head -n 10000; rm "
        + scratchDirectory + "filler; echo '# the last line'; exit\nfi");
    EXPECT_TRUE(runPass());
    EXPECT_EQ((Lines{reading("anna"), reading("ben"), installing("ben", installed())}), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
}

/// What copies the crontab into a second file. None of it changes the foreign jobs of these tests.
class FilteringPassTest : public PassOverTwoCrontabs { };

INSTANTIATE_TEST_SUITE_P(, FilteringPassTest, testing::Values(cleaning, refreshing, removing), nameOf);

TEST_P(FilteringPassTest, InstallsAnEmptyCrontabForAUserWithoutOne)
{
    useRecordingCrontab(); // without any crontab
    EXPECT_TRUE(runPass());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_P(FilteringPassTest, EmptiesACrontabThatCannotBeRead)
{
    commands.refuse(reading("anna"));
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_P(FilteringPassTest, EmptiesACrontabWhoseCopyCannotBeMade)
{
    blockScratchFile("crontemp.txt");
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_TRUE(hasCrontab("anna"));
    EXPECT_EQ("", crontabOf("anna"));
}

TEST_P(FilteringPassTest, LeavesACrontabWhoseFilteredCopyCannotBeMade)
{
    limitScratchDirectory(0, 1);
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(FilteringPassTest, DoesNotInstallAFilteredCopyThatIsCutOffByAFullDisk)
{
    const std::string large = linesOf(8000);
    setCrontab("anna", large);
    limitScratchDirectory(3 * 4096, 0);
    EXPECT_TRUE(runPass());
    EXPECT_EQ((Lines{reading("anna"), reading("ben"), installing("ben")}), commands.takeCommands());
    EXPECT_EQ(large, crontabOf("anna"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_P(FilteringPassTest, TreatsACrontabAsEmptyWhenItsCopyCannotBeMade)
{
    fs::create_directories(scratchDirectory + "crontemp.txt/in-the-way");
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_EQ("", crontabOf("anna"));
    EXPECT_EQ("", crontabOf("ben"));
}

TEST_P(FilteringPassTest, ReplacesTheFilteredCopyThatAnEarlierRunLeft)
{
    writeFile(scratchDirectory + "temp2.txt", linesOf(5000));
    EXPECT_TRUE(runPass());
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_P(FilteringPassTest, RemovesTheFilteredCopyThatAnEarlierRunLeftBeforeItReads)
{
    limitScratchDirectory(0, 1); // there is room for one of the two files
    writeFile(scratchDirectory + "temp2.txt", "0 0 * * * /bin/of-somebody-else\n");
    EXPECT_TRUE(runPass());
    EXPECT_EQ(editingBoth(), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_P(FilteringPassTest, HasBothScratchFilesInPlaceWhenItInstalls)
{
    onCrontabCall("[ $operation = list ] || ls ${file%/*} >>$state/seen");
    EXPECT_TRUE(runPass());
    EXPECT_EQ("crontemp.txt\ntemp2.txt\ncrontemp.txt\ntemp2.txt\n", readFile("/usr/local/private-world/crontab/seen"));
}

class CleanCronTest : public EditorTest {
protected:
    /// What is left of the crontab of a user with a task.
    std::string afterCleaning(const std::string& crontab)
    {
        addRow("userId=501");
        setCrontab("anna", crontab);
        EXPECT_TRUE(editor->cleanCron());
        EXPECT_TRUE(hasCrontab("anna"));
        return crontabOf("anna");
    }
};

TEST_F(CleanCronTest, DropsTheTaskLinesBetweenForeignOnesWhateverTheTable)
{
    EXPECT_EQ(backup + tidy, afterCleaning(backup + annasLine + taskLine(4711) + tidy));
}

TEST_F(CleanCronTest, HasTheRulesOfDropTaskLines)
{
    EXPECT_EQ("ab" + backup, afterCleaning("ab\n" + taskLine(4711) + backup + "\n" + tidy));
}

TEST_F(CleanCronTest, CleansTheCrontabOfAUserWhoseTasksDoNotCount)
{
    addRow("userId=501, status=6");
    setCrontab("anna", annasLine + backup);
    EXPECT_TRUE(editor->cleanCron());
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(CleanCronTest, CleansTheCrontabsOfTwoUsers)
{
    addRow("userId=502");
    addRow("userId=501");
    setCrontab("anna", annasLine + backup);
    setCrontab("ben", tidy + bensLine);
    EXPECT_TRUE(editor->cleanCron());
    EXPECT_EQ((Lines{reading("ben"), installing("ben"), reading("anna"), installing("anna")}), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(CleanCronTest, DoesNotInstallWhatIsLeftOfACopyThatLacksItsEnd)
{
    std::string crontab;
    while (crontab.size() < 8192) // of which nothing is left, so that the filtered copy needs no room
        crontab += "# " + std::string(128 - 3 - openTaskLine(100).size(), 'x') + taskLine(100);
    ASSERT_EQ(8192U, crontab.size());
    limitScratchDirectory(8192, 0);
    EXPECT_EQ(crontab + backup, afterCleaning(crontab + backup));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
}

TEST_F(CleanCronTest, AsksTheStoreForTheUsersOnly)
{
    addRow("userId=501");
    addRow("userId=502");
    SqliteWatch sqlite;
    EXPECT_TRUE(editor->cleanCron());
    EXPECT_EQ((Lines{countUsers, countUsers, listUsers}), statementsOf(sqlite.takeCalls()));
}

class PutCronFromDbTest : public EditorTest {
protected:
    /// anna's crontab after a rebuild.
    std::string afterRebuild()
    {
        EXPECT_TRUE(editor->putCronFromDB());
        return crontabOf("anna");
    }

    /// anna's crontab after a rebuild, before a connection of which `change` comes.
    std::string afterRebuildWith(int connection, const std::string& change)
    {
        ConnectionWatch connections;
        connections.before(connection, [&change] { execSql(change); });
        return afterRebuild();
    }
};

/// The numbers of the connections of a rebuild with anna for its first user: three for the users, then hers.
constexpr int countOfTasks = 4;
constexpr int countForList = 5;
constexpr int listOfTasks = 6;
constexpr int firstCronTime = 7;
constexpr int firstType = 8;

TEST_F(PutCronFromDbTest, WritesALineForEachTaskInTheOrderOfTheList)
{
    addRow("id=3, userId=501, type=1, crontime='0 3 * * *'");
    addRow("id=9, userId=501, type=2, crontime='30 4 1 * *'");
    EXPECT_EQ("0 3 * * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 3 >> /dev/null 2>&1\n"
              "30 4 1 * * /usr/local/Quarno/Kestrelcore/TessaraTaskManager 9 >> /dev/null 2>&1\n",
        afterRebuild());
    EXPECT_EQ((Lines{reading("anna"), installing("anna", "crontemp.txt")}), commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(PutCronFromDbTest, WritesEachTaskToItsOwnersCrontab)
{
    addRow("id=3, userId=502");
    addRow("id=4, userId=501");
    addRow("id=5, userId=502");
    EXPECT_EQ(taskLine(4), afterRebuild());
    EXPECT_EQ(taskLine(3) + taskLine(5), crontabOf("ben"));
}

TEST_F(PutCronFromDbTest, WritesTasksOfAnyTypeBut3)
{
    for (int type = 0; type <= 7; ++type)
        addRow("userId=501, id=" + std::to_string(10 + type) + ", type=" + std::to_string(type));
    addRow("userId=501, id=18, type=-3");
    std::string expected;
    for (const int id : {10, 11, 12, 14, 15, 16, 17, 18})
        expected += taskLine(id);
    EXPECT_EQ(expected, afterRebuild());
}

TEST_F(PutCronFromDbTest, ReadsTheScheduleThenTheTypeOfEachTaskEvenIfItGetsNoLine)
{
    addRow("id=3, userId=501, type=3");
    addRow("id=9, userId=501");
    SqliteWatch sqlite;
    EXPECT_EQ(taskLine(9), afterRebuild());
    EXPECT_EQ((Lines{countUsers, countUsers, listUsers, annasTaskCount, annasTaskCount, annasTaskList,
                  "select crontime from TaskTable where id=3", "select type from TaskTable where id=3",
                  "select crontime from TaskTable where id=9", "select type from TaskTable where id=9"}),
        statementsOf(sqlite.takeCalls()));
}

TEST_F(PutCronFromDbTest, WritesTasksOfStatus5OrLessOnly)
{
    addRow("id=1, userId=501, status=5");
    addRow("id=2, userId=501, status=6");
    addRow("id=3, userId=501, status=-1");
    addRow("id=4, userId=501, status=NULL");
    addRow("id=5, userId=501, status=3");
    EXPECT_EQ(taskLine(1) + taskLine(3) + taskLine(5), afterRebuild());
}

TEST_F(PutCronFromDbTest, WritesASchedulesTextUnchanged)
{
    addRow("id=1, userId=501, crontime=''");
    addRow("id=2, userId=501, crontime=' never, '");
    addRow("id=3, userId=501, crontime='@daily'");
    EXPECT_EQ(taskLine(1, "") + taskLine(2, " never, ") + taskLine(3, "@daily"), afterRebuild());
}

TEST_F(PutCronFromDbTest, KeepsExistingLinesFirstAndUnchanged)
{
    const std::string crontab = "\n#\nab\n" + tidy + "\r\n" + std::string(700, 'x') + "\n\n" + annasLine + backup;
    addRow("id=9, userId=501");
    setCrontab("anna", crontab);
    EXPECT_EQ(crontab + taskLine(9), afterRebuild());
}

TEST_F(PutCronFromDbTest, AppendsToALastLineWithoutALineFeed)
{
    addRow("id=9, userId=501");
    setCrontab("anna", "# no line feed");
    EXPECT_EQ("# no line feed" + taskLine(9), afterRebuild());
}

TEST_F(PutCronFromDbTest, DoublesTheTaskLinesWhenItIsRunTwice)
{
    addRow("id=3, userId=501");
    addRow("id=9, userId=501");
    setCrontab("anna", backup);
    const std::string lines = taskLine(3) + taskLine(9);
    EXPECT_EQ(backup + lines, afterRebuild());
    EXPECT_EQ(backup + lines + lines, afterRebuild());
}

TEST_F(PutCronFromDbTest, InstallsTheCrontabUnchangedIfNoTaskGetsALine)
{
    addRow("userId=501, type=3");
    setCrontab("anna", backup);
    EXPECT_EQ(backup, afterRebuild());
    EXPECT_EQ((Lines{reading("anna"), installing("anna", "crontemp.txt")}), commands.takeCommands());
}

TEST_F(PutCronFromDbTest, ListsAndInstallsNothingForAUserWithoutATaskThatCountsAndLeavesTheCopy)
{
    addRow("userId=501, status=6");
    setCrontab("anna", backup);
    SqliteWatch sqlite;
    EXPECT_EQ(backup, afterRebuild());
    EXPECT_EQ((Lines{countUsers, countUsers, listUsers, annasTaskCount}), statementsOf(sqlite.takeCalls()));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(Lines{"crontemp.txt"}, scratchFiles());
    EXPECT_EQ(backup, scratchFile("crontemp.txt"));
}

TEST_F(PutCronFromDbTest, GoesOnAfterAUserWithoutATaskThatCounts)
{
    addRow("id=3, userId=501, status=6");
    addRow("id=9, userId=502");
    setCrontab("anna", backup);
    EXPECT_EQ(backup, afterRebuild());
    EXPECT_EQ(taskLine(9), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(PutCronFromDbTest, MakesAnEmptyCopyForAUserWhoseCrontabCannotBeReadAndWhoHasNoTaskThatCounts)
{
    addRow("userId=501, status=6");
    commands.refuse(reading("anna"));
    EXPECT_TRUE(editor->putCronFromDB());
    EXPECT_EQ("", scratchFile("crontemp.txt"));
}

TEST_F(PutCronFromDbTest, AsksForNothingAndTouchesNoScratchFileForAUserWithoutAnAccount)
{
    addRow("userId=777");
    writeFile(scratchDirectory + "crontemp.txt", backup);
    SqliteWatch sqlite;
    EXPECT_TRUE(editor->putCronFromDB());
    EXPECT_EQ((Lines{countUsers, countUsers, listUsers}), statementsOf(sqlite.takeCalls()));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(backup, scratchFile("crontemp.txt"));
}

TEST_F(PutCronFromDbTest, FindsUsersWithAnAccountBetweenOthersWithoutOne)
{
    for (const char* task : {"id=1, userId=777", "id=2, userId=501", "id=3, userId=778", "id=4, userId=-1",
             "id=5, userId=502", "id=6, userId=779"})
        addRow(task);
    EXPECT_EQ(taskLine(2), afterRebuild());
    EXPECT_EQ(taskLine(5), crontabOf("ben"));
    EXPECT_EQ(
        (Lines{reading("anna"), installing("anna", "crontemp.txt"), reading("ben"), installing("ben", "crontemp.txt")}),
        commands.takeCommands());
}

TEST_F(PutCronFromDbTest, ReplacesACrontabThatCannotBeReadWithTheTaskLinesAlone)
{
    addRow("id=9, userId=501");
    setCrontab("anna", backup);
    commands.refuse(reading("anna"));
    EXPECT_EQ(taskLine(9), afterRebuild());
    EXPECT_EQ((Lines{reading("anna"), installing("anna", "crontemp.txt")}), commands.takeCommands());
}

TEST_F(PutCronFromDbTest, LeavesACrontabWhoseCopyCannotBeMade)
{
    addRow("id=9, userId=501");
    setCrontab("anna", backup);
    limitScratchDirectory(0, 1);
    writeFile(scratchDirectory + "in-the-way", "");
    EXPECT_EQ(backup, afterRebuild());
    EXPECT_EQ((Lines{reading("anna"), installing("anna", "crontemp.txt")}), commands.takeCommands());
}

TEST_F(PutCronFromDbTest, DoesNotInstallACopyThatHasNoRoomForTheTaskLines)
{
    addRow("id=9, userId=501");
    setCrontab("anna", linesOf(4090));
    limitScratchDirectory(4096, 0);
    EXPECT_EQ(linesOf(4090), afterRebuild());
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(PutCronFromDbTest, EndsIfTheTasksOfAUserCannotBeCounted)
{
    addRow("id=9, userId=501");
    addRow("id=10, userId=502");
    setCrontab("anna", backup);
    ConnectionWatch connections;
    connections.before(countOfTasks, dropTable);
    EXPECT_EQ("TaskTable doesn't exist-2 (1)", failureOf([this] { editor->putCronFromDB(); }));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(backup, scratchFile("crontemp.txt"));
}

TEST_F(PutCronFromDbTest, KeepsTheCrontabsThatItInstalledBeforeItEnded)
{
    addRow("id=9, userId=501");
    addRow("id=10, userId=502");
    setCrontab("ben", tidy);
    ConnectionWatch connections;
    connections.before(firstType + 1, dropTable);
    EXPECT_EQ("TaskTable doesn't exist-2 (1)", failureOf([this] { editor->putCronFromDB(); }));
    EXPECT_EQ(taskLine(9), crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
    EXPECT_EQ(tidy, scratchFile("crontemp.txt"));
}

/// A rebuild for anna and ben, during which the tasks of anna cannot be listed: the connection of this number fails.
class UnlistedTasksTest : public PutCronFromDbTest, public testing::WithParamInterface<int> { };

INSTANTIATE_TEST_SUITE_P(, UnlistedTasksTest, testing::Values(countForList, listOfTasks),
    [](const auto& connection) { return connection.param == countForList ? "AtTheCount" : "AtTheList"; });

TEST_P(UnlistedTasksTest, LeaveTheirOwnersCrontabAsItIsAndTheOthersAreRebuilt)
{
    addRow("id=9, userId=501");
    addRow("id=10, userId=502");
    setCrontab("anna", backup);
    ConnectionWatch connections;
    connections.before(GetParam(), [] { execSql("alter table TaskTable rename to Hidden"); });
    connections.before(GetParam() + 1, [] { execSql("alter table Hidden rename to TaskTable"); });
    EXPECT_EQ(backup, afterRebuild());
    EXPECT_EQ(taskLine(10), crontabOf("ben"));
    EXPECT_EQ((Lines{reading("anna"), reading("ben"), installing("ben", "crontemp.txt")}), commands.takeCommands());
}

TEST_P(UnlistedTasksTest, LeaveTheCopyOfTheirOwnersCrontab)
{
    addRow("userId=501");
    setCrontab("anna", backup);
    EXPECT_EQ(backup, afterRebuildWith(GetParam(), "drop table TaskTable"));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(backup, scratchFile("crontemp.txt"));
}

TEST_F(PutCronFromDbTest, SkipsAUserWhoseTasksHaveGoneSinceTheCount)
{
    addRow("userId=501");
    setCrontab("anna", backup);
    EXPECT_EQ(backup, afterRebuildWith(countForList, "delete from TaskTable"));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
}

TEST_F(PutCronFromDbTest, SkipsAUserWhoseNumberOfTasksChangedSinceTheCount)
{
    addRow("id=3, userId=501");
    addRow("id=9, userId=501");
    setCrontab("anna", backup);
    EXPECT_EQ(backup, afterRebuildWith(listOfTasks, "delete from TaskTable where id=3"));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
}

TEST_F(PutCronFromDbTest, WritesTheTasksThatAreLeftIfSomeHaveGoneSinceTheCount)
{
    for (const char* task : {"id=3, userId=501", "id=9, userId=501", "id=10, userId=501", "id=11, userId=501"})
        addRow(task);
    ConnectionWatch connections;
    connections.before(countForList, [] { execSql("delete from TaskTable where id<>9"); });
    EXPECT_EQ(taskLine(9), afterRebuild());
    EXPECT_EQ(firstType, connections.count());
}

TEST_F(PutCronFromDbTest, WritesAsManyTasksAsWereCountedIfOthersHaveCome)
{
    addRow("id=3, userId=501");
    EXPECT_EQ(taskLine(3),
        afterRebuildWith(countForList, "insert into TaskTable (description, crontime, userId) values ('', '', 501)"));
}

TEST_F(PutCronFromDbTest, SkipsATaskThatHasGoneBeforeItsScheduleIsRead)
{
    addRow("id=3, userId=501");
    addRow("id=9, userId=501");
    EXPECT_EQ(taskLine(9), afterRebuildWith(firstCronTime, "delete from TaskTable where id=3"));
}

TEST_F(PutCronFromDbTest, SkipsATaskThatHasGoneBeforeItsTypeIsRead)
{
    addRow("id=3, userId=501");
    addRow("id=9, userId=501");
    EXPECT_EQ(taskLine(9), afterRebuildWith(firstType, "delete from TaskTable where id=3"));
}

TEST_F(PutCronFromDbTest, InstallsTheLinesOfTheOtherTasksIfTheLastOneHasGone)
{
    addRow("id=3, userId=501");
    addRow("id=9, userId=501");
    setCrontab("anna", backup);
    EXPECT_EQ(backup + taskLine(3), afterRebuildWith(firstType + 1, "drop table TaskTable"));
    EXPECT_EQ(Lines(), scratchFiles());
}

class RefreshCronTest : public EditorTest { };

TEST_F(RefreshCronTest, KeepsTheLinesOfACrontabWithoutATaskLineUpToTheFirstEmptyOne)
{
    addRow("userId=501");
    setCrontab("anna", "#\nab\n" + backup + "TessaraTaskManager 12\n" + tidy + "\n" + backup);
    EXPECT_TRUE(editor->refreshCron());
    EXPECT_EQ("#\nab\n" + backup + "TessaraTaskManager 12\n" + tidy, crontabOf("anna"));
    EXPECT_EQ((Lines{reading("anna"), installing("anna")}), commands.takeCommands());
}

TEST_F(RefreshCronTest, EndsAtATaskLineIfThereIsNoTask0AndLeavesTheCrontabAndBothScratchFiles)
{
    addRow("id=100, userId=501");
    setCrontab("anna", backup + annasLine + tidy);
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { editor->refreshCron(); }));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(backup + annasLine + tidy, crontabOf("anna"));
    EXPECT_EQ(backup + annasLine + tidy, scratchFile("crontemp.txt"));
    EXPECT_EQ(backup, scratchFile("temp2.txt"));
}

TEST_F(RefreshCronTest, RefreshesTheUsersBeforeTheOneAtWhoseTaskLineItEnds)
{
    addRow("userId=502");
    addRow("userId=501");
    addRow("userId=503");
    for (const char* name : {"anna", "ben", "carla"})
        setCrontab(name, backup + "\n" + tidy);
    setCrontab("anna", annasLine);
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { editor->refreshCron(); }));
    EXPECT_EQ((Lines{reading("ben"), installing("ben"), reading("anna")}), commands.takeCommands());
    EXPECT_EQ(backup, crontabOf("ben"));
    EXPECT_EQ(backup + "\n" + tidy, crontabOf("carla"));
}

TEST_F(RefreshCronTest, EndsIfTheTaskCannotBeRead)
{
    addRow("id=0, userId=501");
    setCrontab("anna", backup + annasLine);
    ConnectionWatch connections;
    connections.before(4, dropTable);
    EXPECT_EQ("Error in querying table (1)", failureOf([this] { editor->refreshCron(); }));
    EXPECT_EQ(backup + annasLine, crontabOf("anna"));
    EXPECT_EQ((Lines{"crontemp.txt", "temp2.txt"}), scratchFiles());
}

TEST_F(RefreshCronTest, EndsIfTask0HasGoneBeforeTheLastPiece)
{
    addRow("id=0, userId=501");
    setCrontab("anna", "ab" + annasLine);
    ConnectionWatch connections;
    connections.before(5, [] { execSql("delete from TaskTable"); });
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { editor->refreshCron(); }));
    EXPECT_EQ("ab" + annasLine, crontabOf("anna"));
    EXPECT_EQ("a\n", scratchFile("temp2.txt"));
}

TEST_F(RefreshCronTest, GivesATaskLineAfterOtherTextALineOfItsOwn)
{
    addRow("id=0, userId=501");
    setCrontab("anna", "ab" + annasLine + backup);
    EXPECT_TRUE(editor->refreshCron());
    EXPECT_EQ("a\n" + annasLine + backup, crontabOf("anna"));
    EXPECT_EQ((Lines{reading("anna"), installing("anna")}), commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(RefreshCronTest, TakesTask0OfAnyUserTypeAndStatus)
{
    addRow("id=0, userId=777, type=3, status=6");
    addRow("userId=501");
    setCrontab("anna", "ab" + annasLine);
    EXPECT_TRUE(editor->refreshCron());
    EXPECT_EQ("a\n" + annasLine, crontabOf("anna"));
}

TEST_F(RefreshCronTest, ReadsTask0AgainForEachPiece)
{
    addRow("id=0, userId=501");
    setCrontab("anna", "ab" + openTaskLine(1) + taskLine(2));
    SqliteWatch sqlite;
    EXPECT_TRUE(editor->refreshCron());
    const std::string readTask0 = "select * from TaskTable where id=0";
    EXPECT_EQ(
        (Lines{countUsers, countUsers, listUsers, readTask0, readTask0, readTask0}), statementsOf(sqlite.takeCalls()));
}

TEST_F(RefreshCronTest, ReleasesTask0WithItsPropertyLists)
{
    const std::string list = blobLiteral(xmlDocument("<dict>\n\t<key>a</key>\n\t<string>b</string>\n</dict>"));
    addRow("id=0, userId=501, parameter=" + list + ", result=" + list);
    setCrontab("anna", "ab" + annasLine + annasLine);
    EXPECT_TRUE(editor->refreshCron()); // a leak checker looks at what is left
    EXPECT_EQ("a\n" + annasLine + annasLine, crontabOf("anna"));
}

} // namespace
