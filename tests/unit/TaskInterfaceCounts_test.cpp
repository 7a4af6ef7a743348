#include <climits>
#include <gtest/gtest.h>
#include <numeric>
#include <ostream>
#include <vector>

#include "StoreTest.h"

using namespace support;

namespace {

using Ids = std::vector<int>;

class TaskCounts : public StoreTest {
protected:
    Ids allIds() { return takeArray(store->getTaskIdArray(), store->getNumTaskRecord()); }
    Ids idsOfType(int type) { return takeArray(store->getTaskIdArray(type), store->getNumTaskRecord(type)); }
    Ids idsOfUser(int uid) { return takeArray(store->getTaskIdArrayForUser(uid), store->getNumTaskRecordForUser(uid)); }
    Ids users() { return takeArray(store->getNumUserArray(), store->getNumUser()); }
};

TEST_F(TaskCounts, OfAnEmptyTableAreZero)
{
    EXPECT_EQ(0, store->getNumTaskRecord());
    EXPECT_EQ(0, store->getNumTaskRecord(1));
    EXPECT_EQ(0, store->getNumTaskRecordForUser(anna));
    EXPECT_EQ(0, store->getNumUser());
}

TEST_F(TaskCounts, AnEmptyListIsAnError)
{
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdArray(); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdArray(1); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdArrayForUser(anna); }));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getNumUserArray(); }));
}

TEST_F(TaskCounts, ListsAllTasks)
{
    addRow("type=1, status=1");
    addRow("type=3, status=9, userId=501");
    addRow("type=7, status=NULL, userId=-2");
    EXPECT_EQ(3, store->getNumTaskRecord());
    EXPECT_EQ((Ids{1, 2, 3}), allIds());
}

TEST_F(TaskCounts, ListsTheTasksOfOneType)
{
    addRow("type=2");
    addRow("type=1");
    addRow("type=2, status=9");
    addRow("type=-4");
    EXPECT_EQ(2, store->getNumTaskRecord(2));
    EXPECT_EQ((Ids{1, 3}), idsOfType(2));
    EXPECT_EQ((Ids{4}), idsOfType(-4));
}

TEST_F(TaskCounts, ATaskOfAUserCountsWithAnyStatusThatIsNotAbove5)
{
    for (const char* status : {"-2147483648", "-1", "0", "3", "4", "5", "6", "2147483647", "NULL"})
        addRow(std::string("userId=501, status=") + status);
    EXPECT_EQ(6, store->getNumTaskRecordForUser(anna));
    EXPECT_EQ((Ids{1, 2, 3, 4, 5, 6}), idsOfUser(anna));
}

TEST_F(TaskCounts, ATaskCountsForItsOwnerOnly)
{
    addRow("userId=501");
    addRow("userId=502");
    addRow("userId=-2");
    EXPECT_EQ((Ids{1}), idsOfUser(anna));
    EXPECT_EQ((Ids{2}), idsOfUser(ben));
    EXPECT_EQ((Ids{3}), idsOfUser(-2));
    EXPECT_EQ(0, store->getNumTaskRecordForUser(carla));
}

TEST_F(TaskCounts, ListsEachOwnerOnce)
{
    addRow("userId=0");
    addRow("userId=501");
    addRow("userId=501");
    EXPECT_EQ(2, store->getNumUser());
    EXPECT_EQ((Ids{0, anna}), users());
}

TEST_F(TaskCounts, ListsInTheOrderInWhichSqliteReturnsTheRows)
{
    addRow("id=30, userId=503");
    addRow("id=10, userId=501");
    addRow("id=20, userId=502");
    EXPECT_EQ((Ids{10, 20, 30}), allIds());
    EXPECT_EQ((Ids{501, 502, 503}), users());

    execSql("create index ByDescendingOwner on TaskTable (userId desc)");
    EXPECT_EQ((Ids{503, 502, 501}), users());
}

TEST_F(TaskCounts, AnOwnerWithNothingButHighStatusesIsListedAndHasNoTasks)
{
    addRow("userId=501, status=6");
    EXPECT_EQ((Ids{anna}), users());
    EXPECT_EQ(0, store->getNumTaskRecordForUser(anna));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->getTaskIdArrayForUser(anna); }));
}

TEST_F(TaskCounts, IdsAndOwnersAreCutTo32Bits)
{
    addRow("id=4294967308, userId=4294967797");
    EXPECT_EQ((Ids{12}), allIds());
    EXPECT_EQ((Ids{anna}), users());
    EXPECT_EQ(0, store->getNumTaskRecordForUser(anna));
}

TEST_F(TaskCounts, TakesTheSmallestAndTheLargestNumbers)
{
    addRow("type=-2147483648, userId=-2147483648");
    addRow("type=2147483647, userId=2147483647");
    EXPECT_EQ((Ids{1}), idsOfType(INT_MIN));
    EXPECT_EQ((Ids{2}), idsOfType(INT_MAX));
    EXPECT_EQ((Ids{1}), idsOfUser(INT_MIN));
    EXPECT_EQ((Ids{2}), idsOfUser(INT_MAX));
}

TEST_F(TaskCounts, ListsManyTasks)
{
    execSql("with recursive n(i) as (values (1) union all select i+1 from n where i<5000)"
            " insert into TaskTable (description, crontime, userId) select 'task', '* * * * *', 501 from n");
    Ids expected(5000);
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_EQ(expected, allIds());
    EXPECT_EQ(expected, idsOfUser(anna));
}

TEST_F(TaskCounts, AListThatKnowsItsLengthHoldsTheSame)
{
    addRow("userId=501");
    addRow("userId=502");
    addRow("userId=501, status=7");
    addRow("userId=501");
    const auto tasks = store->taskIdsForUser(anna);
    EXPECT_EQ(2, tasks.count);
    EXPECT_EQ((Ids{1, 4}), Ids(tasks.begin(), tasks.end()));
    const auto all = store->taskIds();
    EXPECT_EQ(4, all.count);
    EXPECT_EQ((Ids{1, 2, 3, 4}), Ids(all.begin(), all.end()));
    const auto owners = store->userIds();
    EXPECT_EQ(2, owners.count);
    EXPECT_EQ((Ids{anna, ben}), Ids(owners.begin(), owners.end()));
    EXPECT_EQ("Data not found (401)", failureOf([this] { store->taskIdsForUser(carla); }));
}

/// The list operations, and the statement that each of them lists with.
struct ListOperation {
    const char* name;
    int* (*run)(TaskInterface&);
    const char* statement;
    const char* failure;
};

std::ostream& operator<<(std::ostream& out, const ListOperation& operation)
{
    return out << operation.name;
}

const ListOperation listOperations[] = {
    {"AllTasks", [](TaskInterface& store) { return store.getTaskIdArray(); }, "select id from TaskTable",
        "TaskTable not found (1)"},
    {"TasksOfAType", [](TaskInterface& store) { return store.getTaskIdArray(2); },
        "select id from TaskTable where type=2", "Error in taskType (1)"},
    {"TasksOfAUser", [](TaskInterface& store) { return store.getTaskIdArrayForUser(501); },
        "select id from TaskTable where userId=501 AND status<=5", "Error in taskType (1)"},
    {"Users", [](TaskInterface& store) { return store.getNumUserArray(); }, "select distinct userId from TaskTable",
        "Error in reading values (1)"},
};

class TaskList : public StoreTest, public testing::WithParamInterface<ListOperation> {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        addRow("type=2, userId=501");
        addRow("type=2, userId=501");
        if (GetParam().name == std::string("Users"))
            execSql("update TaskTable set userId=502 where id=2");
    }

    std::string failureWhenBetweenCountAndList(const std::string& change)
    {
        SqliteWatch watch;
        bool changed = false;
        watch.beforePreparing(GetParam().statement, [&] {
            execSql(change);
            changed = true;
        });
        const std::string failure = failureOf([this] { takeArray(GetParam().run(*store), 0); });
        EXPECT_TRUE(changed);
        return failure;
    }
};

TEST_P(TaskList, IsWholeWhenNothingChangesBetweenCountAndList)
{
    EXPECT_EQ(2U, takeArray(GetParam().run(*store), 2).size());
    EXPECT_EQ("no exception", failureWhenBetweenCountAndList("select 1"));
}

TEST_P(TaskList, ReportsTasksThatAppearBetweenCountAndList)
{
    EXPECT_EQ("Data not found (401)",
        failureWhenBetweenCountAndList("insert into TaskTable (description, crontime, type, userId)"
                                       " values ('a', '', 2, 501), ('b', '', 2, 501), ('c', '', 2, 503)"));
}

TEST_P(TaskList, ReportsATaskThatVanishesBetweenCountAndList)
{
    EXPECT_EQ("Data not found (401)", failureWhenBetweenCountAndList("delete from TaskTable where id=1"));
}

TEST_P(TaskList, ReportsThatAllTasksVanishBetweenCountAndList)
{
    EXPECT_EQ("Data not found (401)", failureWhenBetweenCountAndList("delete from TaskTable"));
}

TEST_P(TaskList, HasAMessageOfItsOwnWhenTheTableVanishesBetweenCountAndList)
{
    EXPECT_EQ(GetParam().failure, failureWhenBetweenCountAndList("drop table TaskTable"));
}

INSTANTIATE_TEST_SUITE_P(
    , TaskList, testing::ValuesIn(listOperations), [](const auto& list) { return std::string(list.param.name); });

} // namespace
