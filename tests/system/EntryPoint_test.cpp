#include "SystemTest.h"

#include <filesystem>
#include <string>
#include <vector>

using namespace support;

namespace {

// Anna owns a task, and has a crontab with a job.
class EntryPoint : public SystemTest {
protected:
    void SetUp() override
    {
        SystemTest::SetUp();
        addTask({3, anna});
        setCrontab("anna", backup);
    }

    const std::string rebuilt = backup + taskLine(3);
};

class EntryPointRecorded : public RecordedSystemTest {
protected:
    static void expectOnlyTheMessage()
    {
        for (const auto& command : {cleanCommand, rebuildCommand}) {
            const auto end = runProgram(command);
            EXPECT_EQ(0, end.status);
            EXPECT_EQ(message, end.output);
            EXPECT_EQ("", end.errors);
            EXPECT_EQ(Calls{}, crontabCalls());
        }
    }
};

const StandardOutput uselessOutputs[] = {StandardOutput::closed, StandardOutput::full, StandardOutput::withoutReader};

} // namespace

TEST_F(EntryPoint, RebuildsWithAnyArguments)
{
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"x"}, {""}, {"", "--", "three"}, {"--help"}, {"--version"}, {"-c"}, {"clean"}, {"0"}}) {
        SCOPED_TRACE(arguments.back());
        setCrontab("anna", backup);
        std::vector<std::string> command = {program};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto end = runProgram(command);
        EXPECT_EQ(0, end.status);
        EXPECT_EQ("", end.output);
        EXPECT_EQ("", end.errors);
        EXPECT_EQ(rebuilt, crontabOf("anna"));
    }
}

TEST_F(EntryPoint, EndsWithStatus0WhateverHappensToItsOutput)
{
    for (const auto output : uselessOutputs) {
        setCrontab("anna", backup);
        const auto rebuilding = runProgram(rebuildCommand, output);
        EXPECT_EQ(0, rebuilding.status);
        EXPECT_EQ("", rebuilding.errors);
        EXPECT_EQ(rebuilt, crontabOf("anna"));
        EXPECT_EQ(0, runProgram(cleanCommand, output).status);
        EXPECT_EQ(backup, crontabOf("anna"));
    }
}

TEST_F(EntryPoint, EndsWithStatus0WhenItsMessageCannotBeWritten)
{
    execSql("drop table TaskTable; create table TaskTable(somethingElse)");
    for (const auto output : uselessOutputs) {
        for (const auto& command : {cleanCommand, rebuildCommand}) {
            const auto end = runProgram(command, output);
            EXPECT_EQ(0, end.status);
            EXPECT_EQ(0, end.signal);
            EXPECT_EQ("", end.errors);
        }
    }
    EXPECT_EQ(backup, crontabOf("anna"));
}

TEST_F(EntryPoint, DoesItsWorkWithoutAnyOpenDescriptor)
{
    const std::string closeAll = "exec \"$0\" \"$@\" <&- >&- 2>&-";
    EXPECT_EQ(0, runProgram({"/bin/sh", "-c", closeAll, program, "x"}).status);
    EXPECT_EQ(rebuilt, crontabOf("anna"));
    EXPECT_EQ(0, runProgram({"/bin/sh", "-c", closeAll, program}).status);
    EXPECT_EQ(backup, crontabOf("anna"));
}

// If standard output is closed, the next file that is opened gets its descriptor.
TEST_F(EntryPoint, WritesItsMessageIntoNoFileWhenStandardOutputIsClosed)
{
    makeUnreadable("status", "true");
    const auto before = readFile(databasePath);
    EXPECT_EQ(0, runProgram({"/bin/sh", "-c", "exec \"$0\" x <&- >&- 2>&-", program}).status);
    EXPECT_EQ(before, readFile(databasePath));
    EXPECT_EQ(Files{"crontemp.txt"}, scratchFiles());
    EXPECT_EQ(backup, readFile(crontabCopy));
}

TEST_F(EntryPoint, ChangesNoCrontabWhenSomebodyOtherThanRootStartsIt)
{
    setCrontab("anna", rebuilt);
    for (const auto& arguments : std::vector<std::vector<std::string>>{{}, {"x"}}) {
        const auto end = runAsAnna(program, arguments);
        EXPECT_EQ(0, end.status);
        EXPECT_EQ("", end.output);
        EXPECT_EQ(rebuilt, crontabOf("anna"));
    }
}

TEST_F(EntryPointRecorded, MakesTheTaskTableOnItsFirstRun)
{
    resetWorld();
    useRecordingCrontab();
    clean();
    EXPECT_EQ(
        std::vector<std::string>{createTaskTable}, queryRows("select sql from sqlite_schema where name='TaskTable'"));
    EXPECT_EQ(Calls{}, crontabCalls());
}

TEST_F(EntryPointRecorded, PrintsItsMessageWhenTheDatabaseHasNoDirectory)
{
    ASSERT_EQ(0, runProgram({"/bin/rm", "-r", productDirectory + "var"}).status);
    expectOnlyTheMessage();
}

TEST_F(EntryPointRecorded, PrintsItsMessageWhenTheDatabaseIsADirectory)
{
    ASSERT_EQ(0, runProgram({"/bin/rm", databasePath}).status);
    ASSERT_EQ(0, runProgram({"/bin/mkdir", databasePath}).status);
    expectOnlyTheMessage();
}

TEST_F(EntryPointRecorded, PrintsItsMessageWhenTheFileIsNoDatabase)
{
    writeFile(databasePath, std::string(4096, 'x'));
    expectOnlyTheMessage();
}

TEST_F(EntryPointRecorded, PrintsItsMessageWhenTheUsersCannotBeRead)
{
    execSql("drop table TaskTable; create table TaskTable(id integer primary key, somethingElse)");
    expectOnlyTheMessage();
}

TEST_F(EntryPointRecorded, RunsTheSystemsCrontabCommandWhateverIsOnThePath)
{
    addTask({3, anna});
    writeFile(testDirectory + "crontab", "#!/bin/sh\ntouch " + testDirectory + "trapped\n");
    ASSERT_EQ(0, runProgram({"/bin/chmod", "755", testDirectory + "crontab"}).status);
    clean({"PATH=" + testDirectory + ":/usr/bin:/bin"});
    rebuild({"PATH=" + testDirectory + ":/usr/bin:/bin"});
    EXPECT_EQ(4u, crontabCalls().size());
    EXPECT_FALSE(std::filesystem::exists(testDirectory + "trapped"));
}

TEST_F(EntryPoint, KeepsWhatARebuildHasDoneBeforeAnException)
{
    addTask({4, ben});
    addTask({5, carla});
    makeUnreadable("status", "userId=502");
    const auto end = runProgram(rebuildCommand);
    EXPECT_EQ(0, end.status);
    EXPECT_EQ(message, end.output);
    EXPECT_EQ(rebuilt, crontabOf("anna"));
    EXPECT_FALSE(hasCrontab("ben"));
    EXPECT_FALSE(hasCrontab("carla"));
}
