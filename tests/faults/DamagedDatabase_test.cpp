#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "DamagedDatabase.h"
#include "FailingVfs.h"
#include "OrvException.h"
#include "Process.h"
#include "StoreOperations.h"
#include "TaskEditor.h"
#include "WorldTest.h"

namespace fs = std::filesystem;

namespace support {
namespace {

using Put = std::function<void()>;

const std::string foreignJobs = "MAILTO=nobody\n# backup, every night\n0 3 * * * /bin/backup --all\n";
const std::string oldTaskLine = "7 4 * * * " + taskManager + " 99 >> /dev/null 2>&1\n";
const std::string lastForeignJob = "30 5 * * 1 /bin/report # weekly\n";
const std::string crontabBefore = foreignJobs + oldTaskLine + lastForeignJob;
const std::string crontabCleaned = foreignJobs + lastForeignJob;
const std::vector<std::string> accounts = {"root", "anna", "ben", "carla"};

// How the operation ends when its editor was made first, and then `put` changed the database.
Ending endingOver(const Put& put, const StoreOperation& operation)
{
    putSoundDatabase();
    TaskEditor editor;
    put();
    const int descriptors = openDescriptors();
    const sqlite3_int64 memory = sqlite3_memory_used();
    const Ending ending = endingOf(operation, editor);
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(memory, sqlite3_memory_used());
    return ending;
}

std::string resultOver(const Put& put, const std::string& operation)
{
    return textOf(endingOver(put, storeOperation(operation)));
}

// The code of the exception that making an editor throws; 0 if it throws none.
int codeOfMaking()
{
    try {
        TaskEditor editor;
    } catch (SqliteException& failure) {
        EXPECT_GT(failure.getErrorCode(), 0);
        return failure.getErrorCode();
    }
    return 0;
}

int codeOfMakingOver(const Put& put)
{
    put();
    return codeOfMaking();
}

void expectEveryOperationDocumented(const Put& put)
{
    for (const StoreOperation& operation : storeOperations()) {
        const Ending ending = endingOver(put, operation);
        EXPECT_TRUE(isDocumented(operation, ending)) << operation << ": " << ending;
    }
    codeOfMakingOver(put);
}

ProgramEnd runTool(bool rebuild)
{
    return rebuild ? runProgram({ORV_CRON_CLEANER, "rebuild"}) : runProgram({ORV_CRON_CLEANER});
}

void expectForeignJobsKept(bool rebuild)
{
    for (const std::string& account : accounts) {
        const std::string now = crontabOf(account);
        if (rebuild) {
            EXPECT_EQ(crontabBefore, now.substr(0, crontabBefore.size())) << account;
        } else {
            EXPECT_TRUE(now == crontabBefore || now == crontabCleaned) << account << ":\n" << now;
        }
    }
}

// True if the tool did its work, false if it printed its message.
bool toolWorksOver(const Put& put, bool rebuild)
{
    put();
    for (const std::string& account : accounts)
        setCrontab(account, crontabBefore);
    const ProgramEnd end = runTool(rebuild);
    EXPECT_EQ(0, end.status) << end.signal;
    EXPECT_EQ("", end.errors);
    EXPECT_TRUE(end.output.empty() || end.output == "Exception while cleaning cron") << end.output;
    expectForeignJobsKept(rebuild);
    return end.output.empty();
}

void expectToolLosesNothing(const Put& put)
{
    toolWorksOver(put, false);
    toolWorksOver(put, true);
}

class DamagedDatabase : public WorldTest {
protected:
    void SetUp() override
    {
        WorldTest::SetUp();
        useRecordingCrontab();
        putSoundDatabase();
    }
};

// --- Files that are no database, or no whole one ---

struct Damage {
    const char* name;
    void (*put)();
    int makingCode; // of the exception of making an editor; 0 if it can be made
    int readingCode; // of the exception of a read
};

void PrintTo(const Damage& damage, std::ostream* out)
{
    *out << damage.name;
}

class DamagedFile : public DamagedDatabase, public testing::WithParamInterface<Damage> { };

TEST_P(DamagedFile, IsReportedByEveryOperation)
{
    expectEveryOperationDocumented(GetParam().put);
    const std::string code = " (" + std::to_string(GetParam().readingCode) + ")";
    EXPECT_EQ("TaskTable doesn't exist-1" + code, resultOver(GetParam().put, "getNumTaskRecord"));
    EXPECT_EQ("Error in querying table" + code, resultOver(GetParam().put, "getTaskInfoObject"));
    EXPECT_EQ("Deletion failed" + code, resultOver(GetParam().put, "clearDatabase"));
    EXPECT_EQ("false", resultOver(GetParam().put, "incrementCount"));
    EXPECT_EQ(GetParam().makingCode, codeOfMakingOver(GetParam().put));
}

TEST_P(DamagedFile, CostsNobodyAJob)
{
    for (const bool rebuild : {false, true})
        EXPECT_EQ(GetParam().makingCode == 0, toolWorksOver(GetParam().put, rebuild));
    for (const std::string& account : accounts)
        EXPECT_EQ(crontabBefore, crontabOf(account)); // no task, no change
}

INSTANTIATE_TEST_SUITE_P(, DamagedFile,
    testing::Values(Damage{"Missing", putNoDatabase, 0, SQLITE_ERROR}, // SQLite makes it
        Damage{"Empty", putEmptyFile, 0, SQLITE_ERROR}, Damage{"WithoutTaskTable", putForeignDatabase, 0, SQLITE_ERROR},
        Damage{"Text", putTextFile, SQLITE_NOTADB, SQLITE_NOTADB},
        Damage{"Directory", putDirectory, SQLITE_CANTOPEN, SQLITE_CANTOPEN}),
    [](const auto& damage) { return std::string(damage.param.name); });

std::vector<std::size_t> cuts()
{
    constexpr std::size_t page = 4096;
    std::vector<std::size_t> sizes = {1, 15, 16, 17, 50, 99, 100, 101, 107, 108, 511, 512, 513, 1023, 1025, 4000};
    for (std::size_t end = page; end < soundDatabase().size(); end += page)
        for (const std::size_t size : {end - 1, end, end + 1, end + 100, end + 513})
            sizes.push_back(size);
    sizes.push_back(soundDatabase().size() - 1);
    return sizes;
}

TEST_F(DamagedDatabase, CutAnywhereEndsEveryOperationAsDocumented)
{
    ASSERT_GE(soundDatabase().size(), 6 * 4096u); // several pages, or this shows little
    int reported = 0;
    for (const std::size_t size : cuts()) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        const Put put = [size] { putCutDatabase(size); };
        expectEveryOperationDocumented(put);
        reported += endingOver(put, storeOperation("taskIdsForUser")).threw ? 1 : 0;
    }
    EXPECT_GT(reported, 0);
    RecordProperty("points", static_cast<int>(cuts().size()));
}

TEST_F(DamagedDatabase, CutAnywhereCostsNobodyAJob)
{
    for (const std::size_t size : cuts()) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        expectToolLosesNothing([size] { putCutDatabase(size); });
    }
}

constexpr std::size_t headerSize = 100;

TEST_F(DamagedDatabase, WithAnyHeaderByteFlippedEndsEveryOperationAsDocumented)
{
    for (std::size_t offset = 0; offset < headerSize; ++offset)
        for (const int mask : {0xff, 0x01, 0x80}) {
            SCOPED_TRACE("byte " + std::to_string(offset) + ", bits " + std::to_string(mask));
            expectEveryOperationDocumented([=] { putFlippedDatabase(offset, static_cast<unsigned char>(mask)); });
        }
}

TEST_F(DamagedDatabase, WithAnyHeaderByteFlippedCostsNobodyAJob)
{
    int refused = 0;
    for (std::size_t offset = 0; offset < headerSize; ++offset) {
        SCOPED_TRACE("byte " + std::to_string(offset));
        const Put put = [offset] { putFlippedDatabase(offset, 0xff); };
        refused += toolWorksOver(put, offset % 2 == 0) ? 0 : 1;
    }
    EXPECT_GT(refused, 0);
    EXPECT_LT(refused, static_cast<int>(headerSize));
}

TEST_F(DamagedDatabase, WithBytesFlippedAfterTheHeaderEndsEveryOperationAsDocumented)
{
    constexpr std::size_t step = 61; // shares no factor with the page size
    int points = 0;
    for (std::size_t offset = headerSize; offset < soundDatabase().size(); offset += step, ++points) {
        SCOPED_TRACE("byte " + std::to_string(offset));
        expectEveryOperationDocumented([offset] { putFlippedDatabase(offset, 0xff); });
    }
    RecordProperty("points", points);
}

// --- Another schema ---

// The columns that the statements of an operation name, those of its cleaning left out.
const std::map<std::string, std::set<std::string>> namedColumns = {
    {"getNumTaskRecord", {}},
    {"getNumTaskRecordOfType", {"type"}},
    {"getNumTaskRecordForUser", {"userId", "status"}},
    {"getNumUser", {"userId"}},
    {"getTaskIdArray", {"id"}},
    {"getTaskIdArrayOfType", {"id", "type"}},
    {"getTaskIdArrayForUser", {"id", "userId", "status"}},
    {"getNumUserArray", {"userId"}},
    {"taskIdsForUser", {"id", "userId", "status"}},
    {"userIds", {"userId"}},
    {"getTaskInfoObject", {"id"}},
    {"getTaskInfoObjectWithLongParameter", {"id"}},
    {"getTaskParameter", {"id", "crontime"}},
    {"getTaskIdByName", {"id", "description"}},
    {"getTaskType", {"id", "type"}},
    {"getTaskStatus", {"id", "status"}},
    {"writeDbTask", {"description", "type", "crontime", "parameter", "created", "lastRun", "userId", "recType"}},
    {"modifyDbTask",
        {"id", "description", "type", "crontime", "parameter", "userId", "recType", "count", "status", "lastRun"}},
    {"deleteDbTask", {"id"}},
    {"clearDatabase", {}},
    {"dbMaxRecordCleaner", {}},
    {"setTaskStatus", {"id", "status"}},
    {"incrementCount", {"id", "count"}},
    {"setLastRunTime", {}},
    {"setResult", {"id", "result"}},
};

bool readsByPosition(const StoreOperation& operation)
{
    return std::string(operation.name).rfind("getTaskInfoObject", 0) == 0;
}

void expectOnlyNamingOperationsFail(const Put& put, const std::string& column)
{
    for (const StoreOperation& operation : storeOperations()) {
        const Ending sound = endingOver(putSoundDatabase, operation);
        const Ending ending = endingOver(put, operation);
        EXPECT_TRUE(isDocumented(operation, ending)) << operation << ": " << ending;
        if (namedColumns.at(operation.name).count(column) == 0) {
            EXPECT_TRUE(readsByPosition(operation) || textOf(sound) == textOf(ending)) << operation << ": " << ending;
        } else if (operation.failures.empty()) {
            EXPECT_EQ("false", ending.text) << operation;
        } else {
            EXPECT_EQ(SQLITE_ERROR, ending.code) << operation << ": " << ending;
        }
    }
}

class WrongSchema : public DamagedDatabase, public testing::WithParamInterface<std::string> { };

TEST_P(WrongSchema, WithoutAColumnOrWithARenamedOneFailsWhatNamesIt)
{
    for (const auto& change : {putDatabaseWithoutColumn, putDatabaseWithRenamedColumn}) {
        SCOPED_TRACE(change == putDatabaseWithoutColumn ? "without it" : "renamed");
        const Put put = [change, column = GetParam()] { change(column); };
        expectOnlyNamingOperationsFail(put, GetParam());
        EXPECT_EQ(0, codeOfMakingOver(put));
        expectToolLosesNothing(put);
    }
}

INSTANTIATE_TEST_SUITE_P(
    , WrongSchema, testing::ValuesIn(taskColumns), [](const auto& column) { return column.param; });

TEST_F(DamagedDatabase, WithReversedColumnsGivesEveryOperationWhatItNames)
{
    for (const StoreOperation& operation : storeOperations()) {
        const Ending sound = endingOver(putSoundDatabase, operation);
        const Ending ending = endingOver(putDatabaseWithReversedColumns, operation);
        EXPECT_TRUE(readsByPosition(operation) || textOf(sound) == textOf(ending)) << operation << ": " << ending;
        EXPECT_FALSE(ending.threw) << operation << ": " << ending;
    }
    EXPECT_TRUE(toolWorksOver(putDatabaseWithReversedColumns, true));
    EXPECT_EQ(foreignJobs + oldTaskLine + lastForeignJob + "31 4 * * * " + taskManager + " 31 >> /dev/null 2>&1\n"
            + "32 4 * * * " + taskManager + " 32 >> /dev/null 2>&1\n",
        crontabOf("root"));
    EXPECT_TRUE(toolWorksOver(putDatabaseWithReversedColumns, false));
}

TEST_F(DamagedDatabase, WithAViewForTheTableCanBeReadAndNotWritten)
{
    for (const StoreOperation& operation : storeOperations()) {
        const Ending sound = endingOver(putSoundDatabase, operation);
        const Ending ending = endingOver(putDatabaseWithView, operation);
        if (operation.effect == Effect::none) {
            EXPECT_EQ(textOf(sound), textOf(ending)) << operation;
        } else {
            EXPECT_TRUE(ending.text == "false" || ending.code == SQLITE_ERROR) << operation << ": " << ending;
        }
    }
    expectToolLosesNothing(putDatabaseWithView);
}

// --- Journals ---

TEST_F(DamagedDatabase, InWalModeWorksAndStaysInIt)
{
    for (const StoreOperation& operation : storeOperations()) {
        const Ending sound = endingOver(putSoundDatabase, operation);
        const auto rows = taskRows();
        EXPECT_EQ(textOf(sound), textOf(endingOver(putWalDatabase, operation))) << operation;
        EXPECT_EQ(rows, taskRows()) << operation;
        EXPECT_EQ(std::vector<std::string>{"wal"}, queryRows("PRAGMA journal_mode"));
    }
    EXPECT_TRUE(toolWorksOver(putWalDatabase, true));
    EXPECT_TRUE(toolWorksOver(putWalDatabase, false));
    EXPECT_EQ(crontabCleaned, crontabOf("anna"));
}

// The sound database, and what the killed writer's transaction would have made of it.
class KilledWriter : public DamagedDatabase {
protected:
    // What each operation returns before the transaction and after it.
    struct Expected {
        std::set<std::string> results;
        std::set<std::vector<std::string>> tables;
    };

    static Expected expectedOf(const StoreOperation& operation, const DatabaseFiles& whole)
    {
        Expected expected;
        for (const Put& put : {Put(putSoundDatabase), Put([&whole] { putFiles(whole); })}) {
            expected.results.insert(textOf(endingOver(put, operation)));
            expected.tables.insert(taskRows());
        }
        return expected;
    }

    // Every point at which the writer can be killed, in this mode of its journal.
    static std::vector<DatabaseFiles> wrecks(const std::string& mode)
    {
        std::vector<DatabaseFiles> all;
        for (const FileCall call : {FileCall::write, FileCall::sync, FileCall::remove, FileCall::truncate})
            for (int n = 1; putDatabaseOfKilledWriter(mode, call, n); ++n)
                all.push_back(databaseFiles());
        return all;
    }

    static DatabaseFiles unharmed(const std::string& mode)
    {
        constexpr int never = 1000000;
        EXPECT_FALSE(putDatabaseOfKilledWriter(mode, FileCall::write, never));
        return databaseFiles();
    }

    static void expectAllOrNothing(const std::string& mode, const std::vector<DatabaseFiles>& wrecks)
    {
        const DatabaseFiles whole = unharmed(mode);
        for (const StoreOperation& operation : storeOperations()) {
            const Expected expected = expectedOf(operation, whole);
            for (const DatabaseFiles& wreck : wrecks) {
                const std::string result = textOf(endingOver([&wreck] { putFiles(wreck); }, operation));
                EXPECT_EQ(1u, expected.results.count(result)) << operation << ": " << result;
                EXPECT_EQ(1u, expected.tables.count(taskRows())) << operation;
                EXPECT_EQ("ok", integrity());
            }
        }
    }
};

TEST_F(KilledWriter, LeavesItsTransactionUndoneWhateverReadsTheFileNext)
{
    const auto all = wrecks("delete");
    const auto hot
        = [](const DatabaseFiles& files) { return !files.journal.empty() && files.database != soundDatabase(); };
    EXPECT_GT(std::count_if(all.begin(), all.end(), hot), 2); // partly changed, with a journal to undo that
    expectAllOrNothing("delete", all);
    for (const DatabaseFiles& wreck : all) {
        putFiles(wreck);
        EXPECT_EQ(42, TaskEditor().getNumTaskRecord());
        putFiles(wreck);
        EXPECT_EQ("41 4 * * *", TaskEditor().getTaskParameter(41, "crontime"));
    }
    RecordProperty("points", static_cast<int>(all.size()));
}

TEST_F(KilledWriter, InWalModeLeavesItsTransactionDoneOrUndone)
{
    const auto all = wrecks("wal");
    const auto pending = [](const DatabaseFiles& files) { return !files.wal.empty(); };
    EXPECT_GT(std::count_if(all.begin(), all.end(), pending), 2);
    expectAllOrNothing("wal", all);
    RecordProperty("points", static_cast<int>(all.size()));
}

TEST_F(KilledWriter, CostsNobodyAJob)
{
    for (const char* mode : {"delete", "wal"})
        for (const DatabaseFiles& wreck : wrecks(mode)) {
            EXPECT_TRUE(toolWorksOver([&wreck] { putFiles(wreck); }, true));
            EXPECT_TRUE(toolWorksOver([&wreck] { putFiles(wreck); }, false));
            EXPECT_EQ(crontabCleaned, crontabOf("anna"));
        }
}

// --- Values of other types than their columns promise ---

const std::vector<std::string> strangeValues = {"'text'", "'12 and more'", "''", "null", "0.5", "-1e300", "4294967308",
    "-4294967297", "9223372036854775807", "-9223372036854775808", "x''", "x'3132'", "x'00ff31'", "zeroblob(100000)",
    "cast(x'c328' as text)", "cast(x'310032' as text)", "printf('%100000d', 5)"};

// A column that must not be NULL keeps what it has.
Put puttingStrange(const std::string& column, const std::string& value)
{
    return [=] { putDatabaseAfter("update or ignore TaskTable set " + column + "=" + value); };
}

// Calls `check` over the sound database with each strange value in the column. Ids are unique and integers only.
void forEachStrangeValue(const std::string& column, const std::function<void(const Put&)>& check)
{
    for (const std::string& value : strangeValues) {
        SCOPED_TRACE(value);
        if (column != "id")
            check(puttingStrange(column, value));
        else if (value.find_first_not_of("-0123456789") == std::string::npos)
            check([&value] { putDatabaseAfter("update or ignore TaskTable set id=" + value + " where id=1"); });
    }
}

class StrangeValues : public DamagedDatabase, public testing::WithParamInterface<std::string> { };

TEST_P(StrangeValues, EndEveryOperationAsDocumented)
{
    forEachStrangeValue(GetParam(), expectEveryOperationDocumented);
}

TEST_P(StrangeValues, CostNobodyAJob)
{
    const std::set<std::string> toolReads = {"id", "type", "crontime", "status", "userId"};
    if (toolReads.count(GetParam()) == 0)
        expectToolLosesNothing(puttingStrange(GetParam(), "x'3132'"));
    else
        forEachStrangeValue(GetParam(), expectToolLosesNothing);
}

INSTANTIATE_TEST_SUITE_P(
    , StrangeValues, testing::ValuesIn(taskColumns), [](const auto& column) { return column.param; });

// What a task's type is read as.
std::string typeRead(const std::string& value)
{
    return resultOver(puttingStrange("type", value), "getTaskType");
}

TEST_F(DamagedDatabase, WithTextForANumberGivesTheNumberItBeginsWith)
{
    EXPECT_EQ("0", typeRead("'text'"));
    EXPECT_EQ("12", typeRead("'12 and more'"));
    EXPECT_EQ("0", typeRead("''"));
}

TEST_F(DamagedDatabase, WithANumberBeyond32BitsGivesItsLowBits)
{
    EXPECT_EQ("12", typeRead("4294967308"));
    EXPECT_EQ("-1", typeRead("9223372036854775807"));
    EXPECT_EQ("501,", resultOver(puttingStrange("userId", "4294967797"), "userIds"));
}

TEST_F(DamagedDatabase, WithABlobForANumberGivesTheNumberItBeginsWith)
{
    EXPECT_EQ("12", typeRead("x'3132'"));
    EXPECT_EQ("0", typeRead("x''"));
    EXPECT_EQ("0", typeRead("x'00ff31'"));
    EXPECT_EQ("501,", resultOver(puttingStrange("userId", "x'353031'"), "userIds"));
}

// --- Files and directories that a program without root's rights may not use ---

class NoPermission : public DamagedDatabase {
protected:
    void SetUp() override
    {
        DamagedDatabase::SetUp();
        m_tool = testDirectory + "tool"; // anna may not read the build's directory
        fs::copy_file(ORV_CRON_CLEANER, m_tool);
    }

    // Runs `checks` as anna, in a process of their own. A failed one fails the test.
    static void asAnna(const std::function<void()>& checks)
    {
        std::cout << std::flush;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            if (setgid(anna) != 0 || setuid(anna) != 0)
                _exit(2);
            checks();
            std::cout << std::flush;
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }

    static void setMode(const std::string& path, mode_t mode) { ASSERT_EQ(0, chmod(path.c_str(), mode)); }

    // The tool prints its message and changes no crontab.
    void expectToolRefuses() const
    {
        for (const std::string& account : accounts)
            setCrontab(account, crontabBefore);
        const std::string tool = m_tool;
        asAnna([tool] {
            const ProgramEnd end = runProgram({tool});
            EXPECT_EQ(0, end.status);
            EXPECT_EQ("Exception while cleaning cron", end.output);
        });
        for (const std::string& account : accounts)
            EXPECT_EQ(crontabBefore, crontabOf(account));
    }

    // The editor is made while the file can still be read.
    static void expectEveryOperationFailsWith(int code)
    {
        for (const StoreOperation& operation : storeOperations()) {
            TaskEditor editor;
            asAnna([&] {
                const Ending ending = endingOf(operation, editor);
                EXPECT_TRUE(isDocumented(operation, ending)) << operation << ": " << ending;
                EXPECT_TRUE(ending.text == "false" || ending.code == code) << operation << ": " << ending;
            });
        }
        asAnna([code] { EXPECT_EQ(code, codeOfMaking()); });
    }

    // Reads return what they return to root, writes fail.
    static void expectOnlyReadsWork(int code)
    {
        for (const StoreOperation& operation : storeOperations()) {
            const std::string sound = resultOver(putSoundDatabase, operation.name);
            putSoundDatabase();
            TaskEditor editor;
            asAnna([&] {
                const Ending ending = endingOf(operation, editor);
                EXPECT_TRUE(isDocumented(operation, ending)) << operation << ": " << ending;
                if (operation.effect == Effect::none) {
                    EXPECT_EQ(sound, textOf(ending)) << operation;
                } else {
                    EXPECT_TRUE(ending.text == "false" || ending.code == code) << operation << ": " << ending;
                }
            });
        }
    }

    std::string m_tool;
};

TEST_F(NoPermission, ForTheFileIsReportedByEveryOperation)
{
    setMode(databasePath, 0600);
    expectEveryOperationFailsWith(SQLITE_CANTOPEN);
    expectToolRefuses();
}

TEST_F(NoPermission, ForTheDirectoryIsReportedByEveryOperation)
{
    setMode(productDirectory + "var", 0700);
    expectEveryOperationFailsWith(SQLITE_CANTOPEN);
    expectToolRefuses();
}

TEST_F(NoPermission, ToWriteTheFileIsReportedByEveryWriteAndByNoRead)
{
    umask(022); // anna may read every file that is put, but not write it
    expectOnlyReadsWork(SQLITE_READONLY);
    asAnna([] { EXPECT_EQ(0, codeOfMaking()); }); // the table exists, so there is nothing to write
}

TEST_F(NoPermission, ToWriteTheDirectoryIsReportedByEveryWriteAndByNoRead)
{
    umask(0); // anybody may write the files, but not the directory
    expectOnlyReadsWork(SQLITE_READONLY);
    umask(022);
}

} // namespace
} // namespace support
