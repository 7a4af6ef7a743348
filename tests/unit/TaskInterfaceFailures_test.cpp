#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <sqlite3.h>
#include <string>
#include <thread>
#include <vector>

#include "StoreTest.h"

using namespace support;

namespace {

/// An operation of the store, its message for a statement that fails, and, for a read, the message and code if there is
/// no row.
struct Operation {
    const char* name;
    void (*run)(TaskInterface&);
    const char* failure;
    const char* noRow = "Data not found (401)";
};

std::ostream& operator<<(std::ostream& out, const Operation& operation)
{
    return out << operation.name;
}

void readWhole(TaskInterface& store)
{
    TaskInfo* task = nullptr;
    store.getTaskInfoObject(1, &task);
    const orv::OwnedTask owner(task);
}

TaskInfo newTask()
{
    TaskInfo task(taskTypeScan);
    task.id = 1;
    return task;
}

const Operation counts[] = {
    {"CountingAllTasks", [](TaskInterface& store) { store.getNumTaskRecord(); }, "TaskTable doesn't exist-1"},
    {"CountingTasksOfAType", [](TaskInterface& store) { store.getNumTaskRecord(1); }, "Error in taskType"},
    {"CountingTasksOfAUser", [](TaskInterface& store) { store.getNumTaskRecordForUser(501); },
        "TaskTable doesn't exist-2"},
    {"CountingUsers", [](TaskInterface& store) { store.getNumUser(); }, "Error in taskType"},
};

// A list counts first: what its count throws comes out.
const Operation lists[] = {
    {"ListingAllTasks", [](TaskInterface& store) { takeArray(store.getTaskIdArray(), 0); },
        "TaskTable doesn't exist-1"},
    {"ListingTasksOfAType", [](TaskInterface& store) { takeArray(store.getTaskIdArray(1), 0); }, "Error in taskType"},
    {"ListingTasksOfAUser", [](TaskInterface& store) { takeArray(store.getTaskIdArrayForUser(501), 0); },
        "TaskTable doesn't exist-2"},
    {"ListingUsers", [](TaskInterface& store) { takeArray(store.getNumUserArray(), 0); }, "Error in taskType"},
};

const Operation singleReads[] = {
    {"ReadingATask", readWhole, "Error in querying table", "Database: taskId not found (0)"},
    {"ReadingAColumn", [](TaskInterface& store) { store.getTaskParameter(1, "crontime"); }, "Error in the parameter"},
    {"FindingAName", [](TaskInterface& store) { store.getTaskIdByName("name"); }, "Error in taskName"},
    {"ReadingAType", [](TaskInterface& store) { store.getTaskType(1); }, "Database error"},
    {"ReadingAStatus", [](TaskInterface& store) { store.getTaskStatus(1); }, "Error in taskId"},
};

const Operation writes[] = {
    {"Modifying",
        [](TaskInterface& store) {
            TaskInfo task = newTask();
            store.modifyDbTask(task);
        },
        "Database: Write failed"},
    {"Deleting", [](TaskInterface& store) { store.deleteDbTask(1); }, "Deletion failed"},
    {"Clearing", [](TaskInterface& store) { store.clearDatabase(); }, "Deletion failed"},
    // The cleaner runs after a failed insert, too, and what it throws takes the place of "Database: Write failed".
    {"Inserting",
        [](TaskInterface& store) {
            TaskInfo task = newTask();
            store.writeDbTask(task);
        },
        "TaskTable doesn't exist-1"},
    {"Bounding", [](TaskInterface& store) { store.dbMaxRecordCleaner(); }, "TaskTable doesn't exist-1"},
};

class StoreOperation : public StoreTest, public testing::WithParamInterface<Operation> {
protected:
    std::string failure()
    {
        return failureOf([this] { GetParam().run(*store); });
    }

    std::string expectedFailure(int code) { return GetParam().failure + (" (" + std::to_string(code) + ")"); }
};

TEST_P(StoreOperation, ReportsAMissingTable)
{
    execSql("drop table TaskTable");
    EXPECT_EQ(expectedFailure(SQLITE_ERROR), failure());
}

TEST_P(StoreOperation, ReportsAFileThatCannotBeOpened)
{
    std::filesystem::remove(databasePath);
    std::filesystem::create_directory(databasePath);
    EXPECT_EQ(expectedFailure(SQLITE_CANTOPEN), failure());
}

TEST_P(StoreOperation, ReportsAFileThatIsNotADatabase)
{
    writeFile(databasePath, std::string(4096, 'x'));
    EXPECT_EQ(expectedFailure(SQLITE_NOTADB), failure());
}

const auto nameOf = [](const auto& operation) { return std::string(operation.param.name); };

INSTANTIATE_TEST_SUITE_P(Counts, StoreOperation, testing::ValuesIn(counts), nameOf);
INSTANTIATE_TEST_SUITE_P(Lists, StoreOperation, testing::ValuesIn(lists), nameOf);
INSTANTIATE_TEST_SUITE_P(Reads, StoreOperation, testing::ValuesIn(singleReads), nameOf);
INSTANTIATE_TEST_SUITE_P(Writes, StoreOperation, testing::ValuesIn(writes), nameOf);

/// A read of a table that holds no row for it.
class StoreRead : public StoreOperation { };

TEST_P(StoreRead, ReportsThatThereIsNoRow)
{
    SqliteWatch watch;
    watch.hideRows(); // a count always has its row, so only this shows what becomes of none
    EXPECT_EQ(GetParam().noRow, failure());
}

INSTANTIATE_TEST_SUITE_P(Counts, StoreRead, testing::ValuesIn(counts), nameOf);
INSTANTIATE_TEST_SUITE_P(Lists, StoreRead, testing::ValuesIn(lists), nameOf);
INSTANTIATE_TEST_SUITE_P(Reads, StoreRead, testing::ValuesIn(singleReads), nameOf);

/// A read by an id or a name that is not in the table.
class StoreLookup : public StoreOperation { };

TEST_P(StoreLookup, ReportsThatThereIsNoSuchTask)
{
    addRow("id=2");
    EXPECT_EQ(GetParam().noRow, failure());
}

INSTANTIATE_TEST_SUITE_P(, StoreLookup, testing::ValuesIn(singleReads), nameOf);

class StoreOpening : public WorldTest { };

TEST_F(StoreOpening, MakesTheTable)
{
    const TaskInterface store;
    EXPECT_EQ(
        std::vector<std::string>{createTaskTable}, queryRows("select sql from sqlite_master where name='TaskTable'"));
}

TEST_F(StoreOpening, ManyThreadsMayMakeTheTableAtOnce)
{
    for (int round = 0; round < 5; ++round) {
        resetWorld();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 8; ++thread)
            threads.emplace_back([] { EXPECT_NO_THROW(TaskInterface()); });
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(std::vector<std::string>{"0"}, queryRows("select count(*) from TaskTable"));
    }
}

} // namespace
