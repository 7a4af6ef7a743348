#include <climits>
#include <cstdio>
#include <gtest/gtest.h>
#include <ostream>
#include <sqlite3.h>
#include <string>
#include <vector>

#include "CfObjects.h"
#include "CfRef.h"
#include "StoreTest.h"
#include <CoreFoundation/CoreFoundation.h>

using namespace support;

namespace {

using Lines = std::vector<std::string>;

/// What an operation makes of SQLite: a line for each connection that is opened and closed and for each statement.
struct Statements {
    const char* name;
    void (*run)(TaskInterface&);
    Lines calls;
};

std::ostream& operator<<(std::ostream& out, const Statements& statements)
{
    return out << statements.name;
}

const std::string opened = "open " + databasePath;
const std::string count = "select count(*) from TaskTable";
const std::string countOfAnna = "select count(*) from TaskTable where userId=501 and status<=5";
const std::string listOfAnna = "select id from TaskTable where userId=501 AND status<=5";
const std::string countOfUsers = "select count(*) from (select distinct userId from TaskTable)";
const std::string listOfUsers = "select distinct userId from TaskTable";

template <class Operation> void withTask(Operation operation, bool withParameter)
{
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xmlDocument("<dict/>"));
    TaskInfo task(taskTypeUpdate);
    task.id = 3;
    task.description = "it's bound";
    task.cronTime = "0 3 * * *";
    task.parameter = withParameter ? parameter.get() : nullptr;
    task.created = 1794817805;
    task.lastRun = 1794817806;
    task.status = TaskStatus(4);
    task.count = 12;
    task.userId = 501;
    task.recType = 1;
    operation(task);
}

template <bool withParameter> void insert(TaskInterface& store)
{
    withTask([&store](TaskInfo& task) { store.writeDbTask(task); }, withParameter);
}

template <bool withParameter> void update(TaskInterface& store)
{
    withTask([&store](TaskInfo& task) { store.modifyDbTask(task); }, withParameter);
}

void storeResult(TaskInterface& store)
{
    store.setResult(3, newDictionary().get());
}

void readWhole(TaskInterface& store)
{
    TaskInfo* task = nullptr;
    store.getTaskInfoObject(3, &task);
    const orv::OwnedTask owner(task);
}

const std::string insertStatement
    = "insert into TaskTable (description,type,cronTime,created,lastRun,userId,recType) values (?1,2,\"0 3 * * *\","
      "\"5,30,8,16,10,126,1,319,0,\",\"6,30,8,16,10,126,1,319,0,\",501,1)";
const std::string insertWithParameter
    = "insert into TaskTable (description,type,cronTime,parameter,created,lastRun,userId,recType) values (?1,2,"
      "\"0 3 * * *\",?2,\"5,30,8,16,10,126,1,319,0,\",\"6,30,8,16,10,126,1,319,0,\",501,1)";
const std::string updateStatement
    = "update TaskTable set description=?1, type=2, cronTime=\"0 3 * * *\", userId=501, recType=1, count=12,"
      " status=4, lastRun=\"6,30,8,16,10,126,1,319,0,\" where id=3";
const std::string updateWithParameter
    = "update TaskTable set description=?1, type=2, cronTime=\"0 3 * * *\", parameter=?2, userId=501, recType=1,"
      " count=12, status=4, lastRun=\"6,30,8,16,10,126,1,319,0,\" where id=3";

const Statements statements[] = {
    {"getNumTaskRecord", [](TaskInterface& store) { store.getNumTaskRecord(); }, {opened, count, "close"}},
    {"getNumTaskRecordOfAType", [](TaskInterface& store) { store.getNumTaskRecord(-7); },
        {opened, "select count(*) from TaskTable where type=-7", "close"}},
    {"getNumTaskRecordForUser", [](TaskInterface& store) { store.getNumTaskRecordForUser(501); },
        {opened, countOfAnna, "close"}},
    {"getNumUser", [](TaskInterface& store) { store.getNumUser(); }, {opened, countOfUsers, "close"}},
    {"getTaskIdArray", [](TaskInterface& store) { takeArray(store.getTaskIdArray(), 0); },
        {opened, count, "close", opened, "select id from TaskTable", "close"}},
    {"getTaskIdArrayOfAType", [](TaskInterface& store) { takeArray(store.getTaskIdArray(1), 0); },
        {opened, "select count(*) from TaskTable where type=1", "close", opened,
            "select id from TaskTable where type=1", "close"}},
    {"getTaskIdArrayForUser", [](TaskInterface& store) { takeArray(store.getTaskIdArrayForUser(501), 0); },
        {opened, countOfAnna, "close", opened, listOfAnna, "close"}},
    {"taskIds", [](TaskInterface& store) { store.taskIds(); },
        {opened, count, "close", opened, "select id from TaskTable", "close"}},
    {"taskIdsForUser", [](TaskInterface& store) { store.taskIdsForUser(501); },
        {opened, countOfAnna, "close", opened, listOfAnna, "close"}},
    {"getNumUserArray", [](TaskInterface& store) { takeArray(store.getNumUserArray(), 0); },
        {opened, countOfUsers, "close", opened, listOfUsers, "close"}},
    {"userIds", [](TaskInterface& store) { store.userIds(); },
        {opened, countOfUsers, "close", opened, listOfUsers, "close"}},
    {"getTaskInfoObject", readWhole, {opened, "select * from TaskTable where id=3", "close"}},
    {"getTaskParameter", [](TaskInterface& store) { store.getTaskParameter(3, "crontime"); },
        {opened, "select crontime from TaskTable where id=3", "close"}},
    {"getTaskIdByName", [](TaskInterface& store) { store.getTaskIdByName("task"); },
        {opened, "select id from TaskTable where description = 'task'", "close"}},
    {"getTaskType", [](TaskInterface& store) { store.getTaskType(3); },
        {opened, "select type from TaskTable where id=3", "close"}},
    {"getTaskStatus", [](TaskInterface& store) { store.getTaskStatus(3); },
        {opened, "select status from TaskTable where id=3", "close"}},
    {"writeDbTask", insert<false>, {opened, insertStatement, opened, count, "close", "close"}},
    {"writeDbTaskWithParameter", insert<true>, {opened, insertWithParameter, opened, count, "close", "close"}},
    {"modifyDbTask", update<false>, {opened, updateStatement, opened, count, "close", "close"}},
    {"modifyDbTaskWithParameter", update<true>, {opened, updateWithParameter, opened, count, "close", "close"}},
    {"deleteDbTask", [](TaskInterface& store) { store.deleteDbTask(3); },
        {opened, "delete from TaskTable where id=3", "close"}},
    {"clearDatabase", [](TaskInterface& store) { store.clearDatabase(); }, {opened, "delete from TaskTable", "close"}},
    {"dbMaxRecordCleaner", [](TaskInterface& store) { store.dbMaxRecordCleaner(); }, {opened, count, "close"}},
    {"setTaskStatus", [](TaskInterface& store) { store.setTaskStatus(3, TaskStatus(-4)); },
        {opened, "update TaskTable set status=-4 where id=3", "close"}},
    {"incrementCount", [](TaskInterface& store) { store.incrementCount(3); },
        {opened, "update TaskTable set count=count+1 where id=3", "close"}},
    {"setLastRunTime", [](TaskInterface& store) { store.setLastRunTime(3); },
        {opened, "update TaskTable set lastRun=5,30,8,16,10,126,1,319,0, where id=3", "close"}},
    {"setResult", storeResult, {opened, "update TaskTable set result=? where id=3", "close"}},
    {"extremeIds", [](TaskInterface& store) { store.incrementCount(INT_MIN); },
        {opened, "update TaskTable set count=count+1 where id=-2147483648", "close"}},
};

class StoreStatements : public StoreTest, public testing::WithParamInterface<Statements> { };

TEST_P(StoreStatements, RunOnConnectionsOfTheirOwn)
{
    addRows(3, "userId=501");
    const Clock clock(1794817805);
    SqliteWatch watch;
    GetParam().run(*store);
    EXPECT_EQ(GetParam().calls, watch.takeCalls());
}

INSTANTIATE_TEST_SUITE_P(, StoreStatements, testing::ValuesIn(statements),
    [](const auto& operation) { return std::string(operation.param.name); });

class StoreConnections : public StoreTest { };

TEST_F(StoreConnections, TheStoresOwnConnectionMakesTheTableAndStaysOpen)
{
    SqliteWatch watch;
    {
        const TaskInterface another;
        EXPECT_EQ((Lines{opened, createTaskTable}), watch.takeCalls());
    }
    EXPECT_EQ(Lines{"close"}, watch.takeCalls());
}

TEST_F(StoreConnections, AnEmptyListOpensNoSecondConnection)
{
    SqliteWatch watch;
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdArrayForUser(501); }));
    EXPECT_EQ((Lines{opened, countOfAnna, "close"}), watch.takeCalls());
}

TEST_F(StoreConnections, TheBoundDeletesEachTaskOnAConnectionOfItsOwn)
{
    addRows(42, "status=3");
    SqliteWatch watch;
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ(
        (Lines{opened, count, "close", opened, "select id from TaskTable where status=3 or status=5", opened,
            "delete from TaskTable where id=1", "close", opened, "delete from TaskTable where id=2", "close", "close"}),
        watch.takeCalls());
}

TEST_F(StoreConnections, AResultThatCannotBeStoredTakesNoConnection)
{
    SqliteWatch watch;
    EXPECT_FALSE(store->setResult(1, nullptr));
    EXPECT_EQ(Lines(), watch.takeCalls());
}

TEST_F(StoreConnections, OnlyTheStoresOwnIsOpenBetweenOperations)
{
    const int id = addRow("userId=501");
    const int before = openDatabaseDescriptors();
    EXPECT_EQ(1, before);
    for (const auto& operation : statements) {
        operation.run(*store);
        addRow("userId=501");
        EXPECT_EQ(before, openDatabaseDescriptors()) << operation.name;
        execSql("delete from TaskTable; update sqlite_sequence set seq=0");
        addRows(3, "userId=501");
    }
    for (int failure = 0; failure < 3; ++failure)
        failureOf([&] { store->getTaskType(-id); });
    EXPECT_EQ(before, openDatabaseDescriptors());
}

TEST_F(StoreConnections, AreOpenedForTheDatabaseAsItIsAtThatMoment)
{
    addRow("description='old'");
    ASSERT_EQ(0, std::rename(databasePath.c_str(), (databasePath + ".kept").c_str()));
    execSql(createTaskTable);
    addRow("id=8, description='new'");
    EXPECT_EQ(8, store->getTaskIdByName("new"));
    store->deleteDbTask(8);
    EXPECT_EQ(0, store->getNumTaskRecord());
}

TEST_F(StoreConnections, ReadBesideAWriterThatHasNotCommitted)
{
    addRow("status=2");
    SqliteDb writer(databasePath.c_str(), false);
    ASSERT_TRUE(writer.doWriteSql("begin immediate"));
    ASSERT_TRUE(writer.doWriteSql("update TaskTable set status=4"));
    EXPECT_EQ(2, store->getTaskStatus(1));
    ASSERT_TRUE(writer.doWriteSql("commit"));
    EXPECT_EQ(4, store->getTaskStatus(1));
}

} // namespace
