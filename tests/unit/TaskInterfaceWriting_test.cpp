#include <climits>
#include <ctime>
#include <sqlite3.h>
#include <string>
#include <utility>
#include <vector>

#include "CfObjects.h"
#include "CfRef.h"
#include "StoreTest.h"
#include <CoreFoundation/CoreFoundation.h>

using namespace support;

namespace {

using Lines = std::vector<std::string>;

constexpr time_t creation = 1794817805; // "5,30,8,16,10,126,1,319,0," in UTC
const std::string everyColumn
    = "select id, description, type, crontime, parameter, result, created, lastRun, status, count, userId, recType"
      " from TaskTable";

class TaskWriting : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        task.id = 77;
        task.description = "Nightly scan";
        task.cronTime = "0 3 * * *";
        task.created = creation;
        task.lastRun = creation + 1;
        task.status = TaskStatus(2);
        task.count = 9;
        task.userId = anna;
        task.recType = 1;
    }

    /// Makes the deletion of one task fail.
    void protectTask(int id)
    {
        execSql("create trigger Protect before delete on TaskTable when old.id=" + std::to_string(id)
            + " begin select raise(abort, 'protected'); end");
    }

    Lines ids() { return queryRows("select id from TaskTable order by id"); }
    std::string rows() { return queryRows("select count(*) from TaskTable").at(0); }

    std::string insertFailure()
    {
        return failureOf([this] { store->writeDbTask(task); });
    }
    std::string updateFailure()
    {
        return failureOf([this] { store->modifyDbTask(task); });
    }

    /// Every field differs from what a new task has.
    TaskInfo task{taskTypeQuickOds};
};

/// A list that holds what no property list can hold: a key that is no text.
Owned<CFMutableDictionaryRef> unstorableList()
{
    auto list = newDictionary();
    CFDictionarySetValue(list.get(), kCFBooleanTrue, CFSTR("value"));
    return list;
}

// Inserting.

TEST_F(TaskWriting, AnInsertStoresTheTaskWithANewIdAndTheTablesDefaults)
{
    EXPECT_EQ(1, store->writeDbTask(task));
    EXPECT_EQ(
        Lines{"1|Nightly scan|6|0 3 * * *|NULL|NULL|5,30,8,16,10,126,1,319,0,|6,30,8,16,10,126,1,319,0,|1|0|501|1"},
        queryRows(everyColumn));
}

TEST_F(TaskWriting, AnInsertOrUpdateChangesNothingOfTheTask)
{
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xmlDocument("<dict/>"));
    task.parameter = parameter.get();
    store->writeDbTask(task);
    store->modifyDbTask(task);
    EXPECT_EQ(77, task.id);
    EXPECT_EQ("Nightly scan", task.description);
    EXPECT_EQ("0 3 * * *", task.cronTime);
    EXPECT_EQ(parameter.get(), task.parameter);
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
    EXPECT_EQ(creation, task.created);
    EXPECT_EQ(2, task.status);
    EXPECT_EQ(9, task.count);
}

TEST_F(TaskWriting, AnInsertReturnsTheIdOfTheNewRowWhichIsNeverReused)
{
    addRow("id=41");
    EXPECT_EQ(42, store->writeDbTask(task));
    EXPECT_EQ(43, store->writeDbTask(task));
    EXPECT_EQ((Lines{"41", "42", "43"}), ids());
    store->deleteDbTask(43);
    EXPECT_EQ(44, store->writeDbTask(task));
    store->clearDatabase();
    EXPECT_EQ(45, store->writeDbTask(task));
}

TEST_F(TaskWriting, ANewTaskIsReadBackAsItWas)
{
    TaskInfo fullScan(taskTypeFullOds);
    fullScan.userId = ben;
    const orv::OwnedTask read = readTask(store->writeDbTask(fullScan));
    EXPECT_EQ(fullScan.description, read->description);
    EXPECT_EQ('\n', read->description.back());
    EXPECT_EQ(fullScan.cronTime, read->cronTime);
    EXPECT_EQ(fullScan.created, read->created);
    EXPECT_EQ(fullScan.lastRun, read->lastRun);
    EXPECT_EQ(taskTypeFullOds, read->type);
    EXPECT_EQ(ben, read->userId);
}

TEST_F(TaskWriting, ADescriptionIsStoredExactly)
{
    const std::string description("it's \"a\", b;\n-- ?1 %d \u00e4\0 end", 29);
    task.description = description;
    const int id = store->writeDbTask(task);
    EXPECT_EQ(description, readTask(id)->description);
    EXPECT_EQ(Lines{"text"}, queryRows("select typeof(description) from TaskTable"));

    task.id = id;
    task.description = "'" + description;
    store->modifyDbTask(task);
    EXPECT_EQ("'" + description, readTask(id)->description);
}

TEST_F(TaskWriting, AnEmptyDescriptionIsAText)
{
    const std::string stored = "select typeof(description), length(description) from TaskTable";
    task.description = "";
    task.id = store->writeDbTask(task);
    EXPECT_EQ(Lines{"text|0"}, queryRows(stored));
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{"text|0"}, queryRows(stored));
}

TEST_F(TaskWriting, ALongDescriptionIsStoredWhole)
{
    task.description = std::string(100000, 'd');
    task.cronTime = std::string(100000, 'c');
    const orv::OwnedTask read = readTask(store->writeDbTask(task));
    EXPECT_EQ(task.description, read->description);
    EXPECT_EQ(task.cronTime, read->cronTime);
}

TEST_F(TaskWriting, TheRecordFlagIsStoredAsOneOrZero)
{
    for (const auto& [flag, stored] : {std::pair(1, "1"), {0, "0"}, {2, "0"}, {-1, "0"}, {257, "0"}}) {
        task.recType = flag;
        task.id = store->writeDbTask(task);
        const std::string query = "select recType from TaskTable where id=" + std::to_string(task.id);
        EXPECT_EQ(Lines{stored}, queryRows(query)) << flag;
        execSql("update TaskTable set recType=5");
        store->modifyDbTask(task);
        EXPECT_EQ(Lines{stored}, queryRows(query)) << flag;
    }
}

TEST_F(TaskWriting, ExtremeNumbersAreStored)
{
    task.type = static_cast<TaskType>(INT_MIN);
    task.userId = INT_MIN;
    task.id = store->writeDbTask(task);
    EXPECT_EQ(Lines{"-2147483648|-2147483648"}, queryRows("select type, userId from TaskTable"));
    task.type = static_cast<TaskType>(INT_MAX);
    task.userId = INT_MAX;
    task.count = INT_MIN;
    task.status = TaskStatus(INT_MIN);
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{"2147483647|2147483647|-2147483648|-2147483648"},
        queryRows("select type, userId, count, status from TaskTable"));
}

TEST_F(TaskWriting, ApostrophesInTheScheduleAreStored)
{
    task.cronTime = "it's ' * '";
    EXPECT_EQ("it's ' * '", readTask(store->writeDbTask(task))->cronTime);
}

TEST_F(TaskWriting, AMomentWithoutALocalTimeIsStoredAsAnEmptyTextAndLogged)
{
    task.created = LONG_MAX;
    task.lastRun = LONG_MIN;
    task.id = store->writeDbTask(task);
    EXPECT_EQ(
        Lines{"text||text|"}, queryRows("select typeof(created), created, typeof(lastRun), lastRun from TaskTable"));
    const std::string line = "3: convertTmToString : Error while getting localtime() ";
    EXPECT_EQ((Lines{line, line}), takeLog());
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{line}, takeLog());
}

TEST_F(TaskWriting, AParameterIsStoredAsItsXml)
{
    const std::string xml = xmlDocument("<dict>\n\t<key>Depth</key>\n\t<integer>3</integer>\n</dict>");
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xml);
    task.parameter = parameter.get();
    const int id = store->writeDbTask(task);
    EXPECT_EQ(Lines{"blob|" + xml}, queryRows("select typeof(parameter), parameter from TaskTable"));
    EXPECT_EQ(xml, xmlOf(readTask(id)->parameter));
    EXPECT_EQ(Lines{"Nightly scan|6|0 3 * * *|NULL|501"},
        queryRows("select description, type, crontime, result, userId from TaskTable"));
}

TEST_F(TaskWriting, TheResultOfATaskIsNotStoredWithIt)
{
    const auto result = newDictionary();
    task.result = result.get();
    task.id = store->writeDbTask(task);
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{"NULL"}, queryRows("select result from TaskTable"));
}

TEST_F(TaskWriting, AParameterThatIsNotAPropertyListCannotBeInsertedButTheTableIsBounded)
{
    addRows(45, "status=3");
    const auto parameter = unstorableList();
    task.parameter = parameter.get();
    EXPECT_EQ("Database: Write failed (21)", insertFailure());
    EXPECT_EQ((Lines{"3|40"}), queryRows("select status, count(*) from TaskTable group by status"));
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
}

TEST_F(TaskWriting, AFailedInsertIsReportedWithThePrimaryCode)
{
    execSql("create unique index OneName on TaskTable (description)");
    store->writeDbTask(task);
    EXPECT_EQ("Database: Write failed (19)", insertFailure());
}

// Modifying.

TEST_F(TaskWriting, AnUpdateStoresAllButCreationAndResult)
{
    const std::string list = blobLiteral(xmlDocument("<dict/>"));
    const int id = addRow("created='then', result=" + list + ", parameter=" + list);
    task.id = id;
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ(Lines{"1|Nightly scan|6|0 3 * * *|" + xmlDocument("<dict/>") + "|" + xmlDocument("<dict/>")
                  + "|then|6,30,8,16,10,126,1,319,0,|2|9|501|1"},
        queryRows(everyColumn));
}

TEST_F(TaskWriting, AnUpdateTouchesOnlyItsOwnRowAndSucceedsWithoutOne)
{
    addRow("description='first'");
    addRow("description='second'");
    task.id = 2;
    EXPECT_TRUE(store->modifyDbTask(task));
    task.id = 7;
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ((Lines{"1|first", "2|Nightly scan"}), queryRows("select id, description from TaskTable"));
}

TEST_F(TaskWriting, AnUpdateReplacesTheParameter)
{
    const std::string xml = xmlDocument("<array>\n\t<string>new</string>\n</array>");
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xml);
    task.id = addRow("parameter=x'00'");
    task.parameter = parameter.get();
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{"blob|" + xml}, queryRows("select typeof(parameter), parameter from TaskTable"));
}

TEST_F(TaskWriting, AnUpdateLeavesOutAParameterThatIsNotAPropertyList)
{
    const auto parameter = unstorableList();
    task.id = addRow("parameter=x'6b657074'");
    task.parameter = parameter.get();
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ(Lines{"kept|Nightly scan"}, queryRows("select parameter, description from TaskTable"));
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
}

TEST_F(TaskWriting, ADoubleQuoteInTheScheduleMakesTheInsertAndTheUpdateFail)
{
    task.id = addRow("description='kept'");
    for (const char* schedule : {"0 3 * * \"1\"", "\""}) {
        task.cronTime = schedule;
        EXPECT_EQ("Database: Write failed (1)", insertFailure()) << schedule;
        EXPECT_EQ("Database: Write failed (1)", updateFailure()) << schedule;
    }
    EXPECT_EQ(Lines{"kept"}, queryRows("select description from TaskTable"));
}

// Deleting.

TEST_F(TaskWriting, ADeletionDeletesOnlyItsOwnRowAndSucceedsWithoutOne)
{
    addRows(12, "");
    EXPECT_TRUE(store->deleteDbTask(1));
    EXPECT_TRUE(store->deleteDbTask(77));
    EXPECT_TRUE(store->deleteDbTask(-1));
    EXPECT_EQ("11", rows());
    EXPECT_EQ(Lines{"2"}, queryRows("select min(id) from TaskTable"));
}

TEST_F(TaskWriting, ADeletionThatFailsIsReported)
{
    const int id = addRow();
    protectTask(id);
    EXPECT_EQ("Deletion failed (19)", failureOf([&] { store->deleteDbTask(id); }));
    EXPECT_EQ("Deletion failed (19)", failureOf([&] { store->clearDatabase(); }));
    EXPECT_EQ("1", rows());
}

TEST_F(TaskWriting, ClearingDeletesEveryRowAndKeepsTheTable)
{
    addRows(3, "");
    EXPECT_TRUE(store->clearDatabase());
    EXPECT_EQ("0", rows());
    EXPECT_TRUE(store->clearDatabase());
}

TEST_F(TaskWriting, ADeletionDoesNotBoundTheTable)
{
    addRows(45, "status=3");
    store->deleteDbTask(1);
    EXPECT_EQ("44", rows());
}

// The bound of 40 tasks.

TEST_F(TaskWriting, FortyTasksAreNotTooMany)
{
    addRows(40, "status=3");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("40", rows());
}

TEST_F(TaskWriting, OfFortyOneTasksTheFirstFinishedOneGoes)
{
    addRow("status=1");
    addRows(40, "status=5");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("40", rows());
    EXPECT_EQ(Lines{"1"}, queryRows("select count(*) from TaskTable where id=1"));
    EXPECT_EQ(Lines{"0"}, queryRows("select count(*) from TaskTable where id=2"));
}

TEST_F(TaskWriting, TooManyTasksStayWhenTooFewAreFinished)
{
    addRows(42, "status=1");
    addRows(2, "status=3");
    addRow("status=5");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("42", rows());
    EXPECT_EQ(Lines{"1"}, queryRows("select distinct status from TaskTable"));
}

TEST_F(TaskWriting, NoMoreFinishedTasksGoThanNecessary)
{
    addRows(30, "status=3");
    addRows(15, "status=5");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ((Lines{"3|25", "5|15"}), queryRows("select status, count(*) from TaskTable group by status"));
    EXPECT_EQ(Lines{"6"}, queryRows("select min(id) from TaskTable"));
}

TEST_F(TaskWriting, TasksOfOtherStatesAreNeverRemovedByTheBound)
{
    for (const char* status : {"-3", "0", "1", "2", "4", "6", "7", "35", "NULL"})
        addRows(5, std::string("status=") + status);
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("45", rows());
}

TEST_F(TaskWriting, TheBoundGoesByTheOrderInWhichSqliteReturnsTheRows)
{
    addRows(40, "status=1");
    addRow("id=500, status=3");
    addRow("id=300, status=5");
    addRow("id=400, status=3");
    execSql("delete from TaskTable where id<=1");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ(Lines{"500"}, queryRows("select id from TaskTable where status<>1"));
}

TEST_F(TaskWriting, TheBoundHoldsAfterAnInsert)
{
    addRows(40, "status=3");
    EXPECT_EQ(41, store->writeDbTask(task));
    EXPECT_EQ("40", rows());
    EXPECT_EQ(Lines{"2|41"}, queryRows("select min(id), max(id) from TaskTable"));
}

TEST_F(TaskWriting, TheBoundHoldsAfterAnUpdate)
{
    addRows(44, "status=3");
    task.id = addRow();
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ("40", rows());
}

TEST_F(TaskWriting, AFailedUpdateDoesNotBoundTheTableAndAFailedInsertDoes)
{
    addRows(45, "status=3");
    task.cronTime = "\"";
    EXPECT_EQ("Database: Write failed (1)", updateFailure());
    EXPECT_EQ("45", rows());
    EXPECT_EQ("Database: Write failed (1)", insertFailure());
    EXPECT_EQ("40", rows());
}

TEST_F(TaskWriting, TheBoundMayDeleteTheTaskThatHasJustFinished)
{
    addRows(41, "status=1");
    task.id = 20;
    task.status = TaskStatus(5);
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ("40", rows());
    EXPECT_EQ(Lines{"0"}, queryRows("select count(*) from TaskTable where id=20"));
}

TEST_F(TaskWriting, ADeletionThatFailsEndsTheBoundAndKeepsWhatWasDone)
{
    addRows(45, "status=3");
    protectTask(3);
    EXPECT_FALSE(store->dbMaxRecordCleaner());
    EXPECT_EQ("43", rows());
    EXPECT_EQ(Lines{"3"}, queryRows("select min(id) from TaskTable"));
}

TEST_F(TaskWriting, ADeletionThatFailsInTheBoundNeitherFailsTheInsertOrTheUpdateNorHidesAFailedInsert)
{
    addRows(45, "status=3");
    protectTask(1);
    EXPECT_EQ(46, store->writeDbTask(task));
    task.id = 46;
    EXPECT_TRUE(store->modifyDbTask(task));
    EXPECT_EQ("46", rows());
    task.cronTime = "\"";
    EXPECT_EQ("Database: Write failed (1)", insertFailure());
}

TEST_F(TaskWriting, FinishedTasksThatCannotBeListedAreLeft)
{
    addRows(45, "status=3");
    execSql("alter table TaskTable rename column status to state");
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("45", rows());
}

TEST_F(TaskWriting, TheBoundReadsAnIdBeyond32BitsAsItsLowBits)
{
    addRows(40, "status=1");
    addRow("id=4294967308, status=3"); // its low 32 bits are 12
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ("40", rows());
    EXPECT_EQ(Lines{"0"}, queryRows("select count(*) from TaskTable where id=12"));
}

TEST_F(TaskWriting, TheTableIsCountedOnceForTheBound)
{
    addRows(43, "status=3");
    SqliteWatch watch;
    watch.beforePreparing("delete from TaskTable where id=1", [] { execSql("delete from TaskTable where id>20"); });
    EXPECT_TRUE(store->dbMaxRecordCleaner());
    EXPECT_EQ(Lines{"17"}, queryRows("select count(*) from TaskTable"));
}

TEST_F(TaskWriting, ATaskIsStoredEvenIfTheTableCannotBeCountedForTheBound)
{
    const auto hideTable = [] { execSql("alter table TaskTable rename to Hidden"); };
    SqliteWatch watch;
    watch.beforePreparing("select count(*) from TaskTable", hideTable);
    EXPECT_EQ("TaskTable doesn't exist-1 (1)", insertFailure());
    EXPECT_EQ(Lines{"1|Nightly scan"}, queryRows("select id, description from Hidden"));
    execSql("alter table Hidden rename to TaskTable");
    watch.beforePreparing("select count(*) from TaskTable", hideTable);
    task.id = 1;
    task.description = "changed";
    EXPECT_EQ("TaskTable doesn't exist-1 (1)", updateFailure());
    EXPECT_EQ(Lines{"1|changed"}, queryRows("select id, description from Hidden"));
}

TEST_F(TaskWriting, BuffersAreReleasedWhenTheBoundThrows)
{
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xmlDocument("<dict/>"));
    task.parameter = parameter.get();
    execSql("drop table TaskTable");
    EXPECT_EQ("TaskTable doesn't exist-1 (1)", insertFailure()); // a leak checker sees what was not released
    EXPECT_EQ("Database: Write failed (1)", updateFailure());
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
}

TEST_F(TaskWriting, ANegativeIdIsUpdatedAndDeletedLikeAnyOther)
{
    addRow("id=-5");
    task.id = -5;
    store->modifyDbTask(task);
    EXPECT_EQ(Lines{"-5|Nightly scan"}, queryRows("select id, description from TaskTable"));
    store->deleteDbTask(-5);
    EXPECT_EQ("0", rows());
}

TEST_F(TaskWriting, AppendsValuesForPlaceholders)
{
    std::vector<SqliteDataContainer> values;
    char bytes[] = "bytes";
    TaskInterface::PushSqliteDataContainerIntoVector(values, bytes, 5, sqliteDataText, 1);
    TaskInterface::PushSqliteDataContainerIntoVector(values, nullptr, 0x100000007, sqliteDataBlob, 2);
    ASSERT_EQ(2U, values.size());
    EXPECT_EQ(sqliteDataText, values[0].type);
    EXPECT_EQ(static_cast<void*>(bytes), values[0].data);
    EXPECT_EQ(5, values[0].length);
    EXPECT_EQ(1, values[0].index);
    EXPECT_EQ(sqliteDataBlob, values[1].type);
    EXPECT_EQ(nullptr, values[1].data);
    EXPECT_EQ(7, values[1].length); // cut to 32 bits
    EXPECT_EQ(2, values[1].index);
}

} // namespace
