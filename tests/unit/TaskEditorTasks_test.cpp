#include "TaskEditor.h"

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "EditorTest.h"

using namespace support;

namespace fs = std::filesystem;

namespace {

/// The command that starts the task manager, with what follows the id.
std::string starting(int id, const std::string& rest = " &")
{
    return "/usr/local/Quarno/Kestrelcore/TessaraTaskManager " + std::to_string(id) + rest;
}

TaskInfo newTask(TaskType type = taskTypeScan)
{
    TaskInfo task(type);
    task.description = "nightly";
    task.cronTime = "0 3 * * *";
    task.userId = anna;
    return task;
}

/// Makes every deletion of a task fail, with SQLite's code 19.
void forbidDeletion()
{
    execSql("create trigger forbid before delete on TaskTable begin select raise(abort, 'no'); end");
}

class CreateTaskTest : public EditorTest {
protected:
    /// Installs a task manager that ends at once.
    void SetUp() override
    {
        EditorTest::SetUp();
        writeFile(taskManager, "#!/bin/sh\n");
        fs::permissions(taskManager, fs::perms::owner_all);
    }

    int create(bool runNow, const std::string& source, TaskInfo task = newTask())
    {
        return editor->createTask(task, runNow, source);
    }
};

TEST_F(CreateTaskTest, StoresTheTaskAndReturnsItsId)
{
    const int id = create(false, "LocalTask");
    EXPECT_EQ(Lines{std::to_string(id) + "|nightly|1|0 3 * * *|501|1"},
        queryRows("select id, description, type, crontime, userId, status from TaskTable"));
    EXPECT_EQ(id + 1, create(false, "LocalTask"));
}

TEST_F(CreateTaskTest, StartsNothingIfItIsNotToRunNow)
{
    create(false, "LocalTask");
    create(false, "Remote");
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(CreateTaskTest, StartsALocalTaskWithItsIdAlone)
{
    const int id = create(true, "LocalTask");
    EXPECT_EQ(Lines{"/usr/local/Quarno/Kestrelcore/TessaraTaskManager " + std::to_string(id) + " &"},
        commands.takeCommands());
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(CreateTaskTest, StartsATaskFromAnyOtherSourceWithItAfterTheIdUnchanged)
{
    for (const std::string source :
        {"Console", "", "'two words' %s%n $HOME", "localTask", "LocalTask ", " LocalTask", "LocalTas", "LocalTasks"}) {
        const int id = create(true, source);
        EXPECT_EQ(Lines{starting(id, " " + source + " &")}, commands.takeCommands());
        EXPECT_EQ(Lines(), takeLog());
    }
}

TEST_F(CreateTaskTest, TouchesNoCrontab)
{
    setCrontab("anna", backup);
    create(true, "LocalTask");
    EXPECT_EQ(Lines(), crontabCalls());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(CreateTaskTest, LogsACommandThatCannotBeStartedAndReturnsTheId)
{
    commands.refuse(starting(1));
    EXPECT_EQ(1, create(true, "LocalTask"));
    EXPECT_EQ(Lines{"3: popen failed for " + starting(1)}, takeLog());
    EXPECT_EQ(Lines{"1"}, queryRows("select id from TaskTable"));
}

TEST_F(CreateTaskTest, LogsACommandThatEndsWithAStatusOtherThan0OrIsKilledAndReturnsTheId)
{
    int id = 0;
    for (const std::string source : {"; exit 3 #", "; kill -9 $$ #"}) {
        EXPECT_EQ(++id, create(true, source));
        EXPECT_EQ(Lines{"3: command " + starting(id, " " + source + " &") + " didn't run successfully"}, takeLog());
    }
    EXPECT_EQ((Lines{"1", "2"}), queryRows("select id from TaskTable"));
}

TEST_F(CreateTaskTest, DoesNotLogAFailureOfTheTaskManagerItself)
{
    writeFile(taskManager, "#!/bin/sh\nexit 3\n");
    EXPECT_EQ(1, create(true, "LocalTask"));
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(CreateTaskTest, DoesNotUseTheCommandAsTheFormatOfTheLog)
{
    commands.refuse(starting(1, " %d%s%n%% &"));
    EXPECT_EQ(1, create(true, "%d%s%n%%"));
    EXPECT_EQ(Lines{"3: popen failed for " + starting(1, " %d%s%n%% &")}, takeLog());
    EXPECT_EQ(2, create(true, "; exit 1 # %s"));
    EXPECT_EQ(Lines{"3: command " + starting(2, " ; exit 1 # %s &") + " didn't run successfully"}, takeLog());
}

TEST_F(CreateTaskTest, RunsACommandOf1023Characters)
{
    const std::string source(1023 - starting(1, "  &").size(), 's');
    EXPECT_EQ(1, create(true, source));
    EXPECT_EQ(Lines{starting(1, " " + source + " &")}, commands.takeCommands());
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(CreateTaskTest, DoesNotRunALongerCommandButLogsItsFirst1023CharactersAndReturnsTheId)
{
    int id = 0;
    for (const std::size_t size : {std::size_t{1024}, std::size_t{100000}}) {
        const std::string source(size - starting(1, "  &").size(), 's');
        EXPECT_EQ(++id, create(true, source));
        const std::string command = starting(id, " " + source + " &");
        EXPECT_EQ(Lines{"3: popen failed for " + command.substr(0, 1023)}, takeLog());
    }
    EXPECT_EQ(Lines(), commands.takeCommands());
}

TEST_F(CreateTaskTest, StartsNothingIfTheTaskCannotBeStored)
{
    TaskInfo task = newTask();
    task.cronTime = "0 3 * * \"";
    EXPECT_EQ("Database: Write failed (1)", failureOf([&] { create(true, "LocalTask", task); }));
    execSql("drop table TaskTable");
    EXPECT_EQ("TaskTable doesn't exist-1 (1)", failureOf([this] { create(true, "LocalTask"); }));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(CreateTaskTest, HoldsTheTaskLockFromItsFirstCallOfTheStoreToTheStart)
{
    std::vector<bool> held;
    const auto look = [&held] { held.push_back(taskLockHeld()); };
    ConnectionWatch connections;
    connections.beforeEach(look);
    commands.beforeEach(look);
    create(true, "LocalTask");
    EXPECT_EQ((std::vector<bool>{true, true, true}), held); // the insert, the count of the rows, the command
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(CreateTaskTest, HoldsNoConnectionWhileTheCommandRuns)
{
    int descriptors = 0;
    commands.beforeEach([&descriptors] { descriptors = openDatabaseDescriptors(); });
    create(true, "LocalTask");
    EXPECT_EQ(1, descriptors); // the editor's own
}

class ModifyTaskTest : public EditorTest { };

TEST_F(ModifyTaskTest, WritesTheTaskOverItsRowWhateverTheFlag)
{
    TaskInfo task = newTask();
    task.id = addRow();
    for (const bool flag : {false, true}) {
        task.cronTime = flag ? "1 1 * * *" : "2 2 * * *";
        EXPECT_TRUE(editor->modifyTask(task, flag));
        EXPECT_EQ(Lines{"nightly|" + task.cronTime + "|501"},
            queryRows("select description, crontime, userId from TaskTable"));
    }
}

TEST_F(ModifyTaskTest, IsTrueForAMissingTask)
{
    TaskInfo task = newTask();
    task.id = 4711;
    EXPECT_TRUE(editor->modifyTask(task, false));
    EXPECT_EQ(Lines(), queryRows("select * from TaskTable"));
}

TEST_F(ModifyTaskTest, RunsNoCommand)
{
    TaskInfo task = newTask();
    task.id = addRow("userId=501");
    setCrontab("anna", taskLine(task.id));
    EXPECT_TRUE(editor->modifyTask(task, true));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(taskLine(task.id), crontabOf("anna"));
}

TEST_F(ModifyTaskTest, ReleasesTheTaskLockWhenItFails)
{
    TaskInfo task = newTask();
    execSql("drop table TaskTable");
    EXPECT_EQ("Database: Write failed (1)", failureOf([&] { editor->modifyTask(task, false); }));
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(ModifyTaskTest, HoldsTheTaskLock)
{
    TaskInfo task = newTask();
    task.id = addRow();
    std::vector<bool> held;
    ConnectionWatch connections;
    connections.beforeEach([&held] { held.push_back(taskLockHeld()); });
    EXPECT_TRUE(editor->modifyTask(task, false));
    EXPECT_EQ((std::vector<bool>{true, true}), held); // the update, the count of the rows
    EXPECT_FALSE(taskLockHeld());
}

class DeleteTaskTest : public EditorTest {
protected:
    /// Adds the task 12 of anna, of this type; her crontab has a line for it, another task's and a foreign one.
    void setUpTask(int type)
    {
        addRow("id=12, userId=501, type=" + std::to_string(type));
        setCrontab("anna", backup + taskLine(12) + taskLine(123));
    }

    Lines ids() { return queryRows("select id from TaskTable"); }

    const std::string withoutLine = backup + taskLine(123);
    const std::string withLine = backup + taskLine(12) + taskLine(123);
    const Lines rewriting{reading("anna"), installing("anna")};
};

TEST_F(DeleteTaskTest, DeletesTheRowAndTheLineOfAPeriodicTask)
{
    setUpTask(1);
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ(Lines(), ids());
    EXPECT_EQ(withoutLine, crontabOf("anna"));
    EXPECT_EQ(rewriting, commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteTaskTest, LeavesTheCrontabForATaskOfType3WhetherItsRowStaysOrNot)
{
    setUpTask(3);
    EXPECT_TRUE(editor->deleteTask(12, false, false));
    EXPECT_EQ(Lines{"12"}, ids());
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ(Lines(), ids());
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(withLine, crontabOf("anna"));
}

TEST_F(DeleteTaskTest, DeletesTheLineOfATaskOfAnyOtherType)
{
    for (const int type : {-3, 0, 2, 4, 5, 6, 7}) {
        setUpTask(type);
        EXPECT_TRUE(editor->deleteTask(12, true, false)) << type;
        EXPECT_EQ(withoutLine, crontabOf("anna")) << type;
    }
}

TEST_F(DeleteTaskTest, IgnoresItsLastFlagAndIsTrueEvenIfThereIsNoLine)
{
    setUpTask(1);
    for (const bool flag : {true, false}) {
        EXPECT_TRUE(editor->deleteTask(12, false, flag));
        EXPECT_EQ(Lines{"12"}, ids());
        EXPECT_EQ(withoutLine, crontabOf("anna"));
    }
    EXPECT_TRUE(editor->deleteTask(12, true, true));
    EXPECT_EQ(Lines(), ids());
}

TEST_F(DeleteTaskTest, IsTrueEvenIfTheCrontabCannotBeInstalled)
{
    setUpTask(1);
    commands.refuse(installing("anna"));
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ(Lines(), ids());
    EXPECT_EQ(withLine, crontabOf("anna"));
}

TEST_F(DeleteTaskTest, EditsTheCrontabOfTheUserInTheRow)
{
    setUpTask(1);
    execSql("update TaskTable set userId=502");
    setCrontab("ben", taskLine(12) + tidy);
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ(withLine, crontabOf("anna"));
    EXPECT_EQ(tidy, crontabOf("ben"));
}

TEST_F(DeleteTaskTest, DeletesTheRowEvenOfAUserWithoutAnAccount)
{
    addRow("id=12, userId=777");
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ(Lines(), ids());
    EXPECT_EQ(Lines(), commands.takeCommands());
}

TEST_F(DeleteTaskTest, ReadsTheTaskThenDeletesTheRowThenEditsTheCrontab)
{
    setUpTask(1);
    Lines idsAtCommands;
    commands.beforeEach([&] { idsAtCommands.push_back("rows: " + std::to_string(ids().size())); });
    SqliteWatch sqlite;
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    const std::string open = "open " + databasePath;
    const Lines calls = sqlite.takeCalls();
    ASSERT_LE(6U, calls.size());
    EXPECT_EQ((Lines{open, "select * from TaskTable where id=12", "close", open, "delete from TaskTable where id=12",
                  "close"}),
        Lines(calls.begin(), calls.begin() + 6));
    EXPECT_EQ((Lines{"rows: 0", "rows: 0"}), idsAtCommands);
}

TEST_F(DeleteTaskTest, DeletesNothingIfThereIsNoSuchTaskOrItCannotBeRead)
{
    setUpTask(1);
    EXPECT_EQ("Database: taskId not found (0)", failureOf([this] { editor->deleteTask(13, true, false); }));
    EXPECT_EQ(Lines{"12"}, ids());
    execSql("drop table TaskTable");
    EXPECT_EQ("Error in querying table (1)", failureOf([this] { editor->deleteTask(12, true, false); }));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(DeleteTaskTest, LeavesTheCrontabAsItIsIfTheRowCannotBeDeleted)
{
    setUpTask(1);
    forbidDeletion();
    EXPECT_EQ("Deletion failed (19)", failureOf([this] { editor->deleteTask(12, true, false); }));
    EXPECT_EQ(Lines{"12"}, ids());
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(withLine, crontabOf("anna"));
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(DeleteTaskTest, DeletesOnlyTheLineIfTheRowStays)
{
    setUpTask(1);
    forbidDeletion();
    EXPECT_TRUE(editor->deleteTask(12, false, false));
    EXPECT_EQ(Lines{"12"}, ids());
    EXPECT_EQ(withoutLine, crontabOf("anna"));
}

TEST_F(DeleteTaskTest, HoldsTheTaskLockFromItsFirstCallOfTheStoreToTheInstallation)
{
    setUpTask(1);
    std::vector<bool> held;
    const auto look = [&held] { held.push_back(taskLockHeld()); };
    ConnectionWatch connections;
    connections.beforeEach(look);
    commands.beforeEach(look);
    EXPECT_TRUE(editor->deleteTask(12, true, false));
    EXPECT_EQ((std::vector<bool>{true, true, true, true}), held); // reading, deleting; list, install
    EXPECT_FALSE(taskLockHeld());
}

TEST_F(DeleteTaskTest, ReleasesTheTaskWithItsPropertyLists)
{
    const std::string list = blobLiteral(xmlDocument("<dict>\n\t<key>a</key>\n\t<string>b</string>\n</dict>"));
    addRow("id=12, userId=501, type=3, parameter=" + list + ", result=" + list);
    EXPECT_TRUE(editor->deleteTask(12, false, false)); // a leak checker looks at what is left
    forbidDeletion();
    EXPECT_EQ("Deletion failed (19)", failureOf([this] { editor->deleteTask(12, true, false); }));
}

class DeleteCronEntryTest : public EditorTest {
protected:
    /// What is left of anna's crontab when the lines of a task are deleted.
    std::string afterDeleting(int taskId, const std::string& crontab)
    {
        setCrontab("anna", crontab);
        EXPECT_TRUE(editor->deleteCronEntry(taskId, anna));
        return crontabOf("anna");
    }
};

TEST_F(DeleteCronEntryTest, AsRootEditsTheCrontabOfTheUserOfTheTask)
{
    setCrontab("root", taskLine(12));
    EXPECT_EQ(backup, afterDeleting(12, backup + taskLine(12)));
    EXPECT_EQ((Lines{"/usr/bin/crontab -u anna -l",
                  "/usr/bin/crontab -u anna /usr/local/Quarno/Kestrelcore/var/tmp/temp2.txt"}),
        commands.takeCommands());
    EXPECT_EQ(taskLine(12), crontabOf("root"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteCronEntryTest, AsAnotherUserEditsThatUsersOwnCrontabWhateverTheUserOfTheTask)
{
    openScratchDirectory();
    setCrontab("anna", backup + taskLine(12));
    setCrontab("ben", taskLine(12));
    asUser(anna, anna, [this] {
        EXPECT_TRUE(editor->deleteCronEntry(12, ben));
        EXPECT_EQ((Lines{"/usr/bin/crontab -l", "/usr/bin/crontab /usr/local/Quarno/Kestrelcore/var/tmp/temp2.txt"}),
            commands.takeCommands());
    });
    EXPECT_EQ(backup, crontabOf("anna"));
    EXPECT_EQ(taskLine(12), crontabOf("ben"));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteCronEntryTest, ChoosesByTheRealUserAndReadsAndInstallsAsTheEffectiveOne)
{
    openScratchDirectory();
    asUser(anna, 0, [this] {
        EXPECT_TRUE(editor->deleteCronEntry(12, ben));
        EXPECT_EQ((Lines{reading("root"), installing("root")}), commands.takeCommands());
    });
    asUser(0, anna, [this] {
        EXPECT_TRUE(editor->deleteCronEntry(12, ben));
        EXPECT_EQ((Lines{reading("ben"), installing("ben")}), commands.takeCommands());
    });
}

TEST_F(DeleteCronEntryTest, HasTheRulesOfDropLinesOfTask)
{
    EXPECT_EQ("ab\n" + taskLine(123), afterDeleting(12, "ab\n" + taskLine(12) + taskLine(123) + "\n" + tidy));
}

TEST_F(DeleteCronEntryTest, IsTrueEvenIfTheCrontabCannotBeInstalled)
{
    commands.refuse(installing("anna"));
    EXPECT_EQ(taskLine(12), afterDeleting(12, taskLine(12)));
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteCronEntryTest, LeavesTheCrontabAsItIsIfTheScratchDirectoryIsMissing)
{
    fs::remove(scratchDirectory);
    EXPECT_EQ(taskLine(12), afterDeleting(12, taskLine(12)));
    EXPECT_EQ((Lines{reading("anna"), installing("anna")}), commands.takeCommands());
}

TEST_F(DeleteCronEntryTest, DoesNotInstallACopyThatIsCutOffByAFullDisk)
{
    std::string large;
    while (large.size() < 6000)
        large += backup;
    limitScratchDirectory(4096, 0);
    EXPECT_EQ(large, afterDeleting(12, large));
    EXPECT_EQ(Lines{reading("anna")}, commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteCronEntryTest, RunsNothingForAUserWithoutAnAccount)
{
    EXPECT_TRUE(editor->deleteCronEntry(12, nobodysUid));
    EXPECT_EQ(Lines(), commands.takeCommands());
    EXPECT_EQ(Lines(), scratchFiles());
}

TEST_F(DeleteCronEntryTest, TakesNoLock)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    EXPECT_EQ("", afterDeleting(12, taskLine(12)));
}

} // namespace
