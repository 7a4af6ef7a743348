#include <climits>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CfObjects.h"
#include "StoreTest.h"
#include <CoreFoundation/CoreFoundation.h>

using namespace support;

namespace {

using Lines = std::vector<std::string>;

const std::string localTimeFailure = "3: convertTmToString : Error while getting localtime() ";

class TaskBookkeeping : public StoreTest {
protected:
    /// That every operation on task 1 fails.
    void expectFailures()
    {
        EXPECT_FALSE(store->setTaskStatus(1, TaskStatus(2)));
        EXPECT_FALSE(store->incrementCount(1));
        EXPECT_FALSE(store->setLastRunTime(1));
        EXPECT_FALSE(store->setResult(1, newDictionary().get()));
        EXPECT_FALSE(store->setResult(1, nullptr));
    }
};

TEST_F(TaskBookkeeping, SetsTheStatusOfOneTask)
{
    addRows(2, "status=1");
    EXPECT_TRUE(store->setTaskStatus(2, TaskStatus(4)));
    EXPECT_EQ((Lines{"1|1", "2|4"}), queryRows("select id, status from TaskTable"));
}

TEST_F(TaskBookkeeping, ATaskOfStatus7NoLongerCountsForItsUser)
{
    const int id = addRow("userId=501");
    EXPECT_EQ(1, store->getNumTaskRecordForUser(anna));
    EXPECT_TRUE(store->setTaskStatus(id, TaskStatus(7)));
    EXPECT_EQ(7, store->getTaskStatus(id));
    EXPECT_EQ(0, store->getNumTaskRecordForUser(anna));
}

TEST_F(TaskBookkeeping, AnyNumberCanBeAStatus)
{
    const int id = addRow();
    for (const int status : {0, -1, 255, INT_MAX, INT_MIN}) {
        EXPECT_TRUE(store->setTaskStatus(id, TaskStatus(status)));
        EXPECT_EQ(status, store->getTaskStatus(id));
    }
}

TEST_F(TaskBookkeeping, AddsOneToTheCountOfOneTask)
{
    addRows(2, "count=4");
    EXPECT_TRUE(store->incrementCount(2));
    EXPECT_EQ((Lines{"1|4", "2|5"}), queryRows("select id, count from TaskTable"));
}

TEST_F(TaskBookkeeping, AMissingTaskIsNoFailure)
{
    addRow("count=4");
    EXPECT_TRUE(store->setTaskStatus(7, TaskStatus(2)));
    EXPECT_TRUE(store->incrementCount(7));
    EXPECT_TRUE(store->setResult(7, newDictionary().get()));
    EXPECT_EQ(Lines{"1|1|4|NULL"}, queryRows("select id, status, count, result from TaskTable"));
}

TEST_F(TaskBookkeeping, TheTimeOfTheLastRunIsNeverSet)
{
    const int id = addRow("lastRun='then'");
    for (const time_t moment : {time_t(0), time_t(1794817805), time_t(LONG_MAX)}) {
        const Clock clock(moment);
        EXPECT_FALSE(store->setLastRunTime(id));
        EXPECT_FALSE(store->setLastRunTime(7));
    }
    EXPECT_EQ(Lines{"then"}, queryRows("select lastRun from TaskTable"));
}

TEST_F(TaskBookkeeping, ATimeThatIsNotLocalIsLoggedOnce)
{
    const int id = addRow();
    const Clock clock(LONG_MAX);
    EXPECT_FALSE(store->setLastRunTime(id));
    EXPECT_EQ(Lines{localTimeFailure}, takeLog());
    EXPECT_TRUE(store->setResult(id, newDictionary().get()));
    EXPECT_EQ(Lines{localTimeFailure}, takeLog());
}

TEST_F(TaskBookkeeping, StoresAResultAsItsXml)
{
    addRows(2, "");
    const auto result = newDictionary();
    CFDictionarySetValue(result.get(), CFSTR("Threats"), kCFBooleanFalse);
    EXPECT_TRUE(store->setResult(2, result.get()));
    EXPECT_EQ((Lines{"1|null|NULL", "2|blob|" + xmlDocument("<dict>\n\t<key>Threats</key>\n\t<false/>\n</dict>")}),
        queryRows("select id, typeof(result), result from TaskTable"));
    EXPECT_EQ(1, CFGetRetainCount(result.get()));
    EXPECT_EQ(1, CFDictionaryGetCount(result.get()));
}

TEST_F(TaskBookkeeping, AnEmptyResultIsNotNull)
{
    const int id = addRow();
    EXPECT_TRUE(store->setResult(id, newDictionary().get()));
    EXPECT_EQ(Lines{xmlDocument("<dict/>")}, queryRows("select result from TaskTable"));
    const orv::OwnedTask task = readTask(id);
    ASSERT_NE(nullptr, task->result);
    CFDictionarySetValue(task->result, CFSTR("Threats"), kCFBooleanFalse);
    EXPECT_EQ(1, CFDictionaryGetCount(task->result));
}

TEST_F(TaskBookkeeping, AResultThatIsNullChangesNothing)
{
    const int id = addRow("result=x'6b657074'");
    EXPECT_FALSE(store->setResult(id, nullptr));
    EXPECT_EQ(Lines{"kept"}, queryRows("select result from TaskTable"));
}

TEST_F(TaskBookkeeping, AResultThatIsNotAPropertyListChangesNothing)
{
    const int id = addRow("result=x'6b657074'");
    const auto result = newDictionary();
    CFDictionarySetValue(result.get(), kCFBooleanTrue, CFSTR("value"));
    EXPECT_FALSE(store->setResult(id, result.get()));
    EXPECT_EQ(Lines{"kept"}, queryRows("select result from TaskTable"));
    EXPECT_EQ(1, CFGetRetainCount(result.get()));
}

TEST_F(TaskBookkeeping, AFailedStatementReturnsFalseAndIsNeitherThrownNorLogged)
{
    execSql("drop table TaskTable");
    expectFailures();
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(TaskBookkeeping, AFileThatIsNoDatabaseReturnsFalseAndIsNeitherThrownNorLogged)
{
    ASSERT_EQ(0, unlink(databasePath.c_str()));
    writeFile(databasePath, std::string(4096, 'x'));
    expectFailures();
    EXPECT_EQ(Lines(), takeLog());
}

TEST_F(TaskBookkeeping, DoesNotBoundTheTable)
{
    addRows(45, "status=3");
    store->setTaskStatus(1, TaskStatus(5));
    store->incrementCount(1);
    store->setLastRunTime(1);
    store->setResult(1, newDictionary().get());
    EXPECT_EQ(Lines{"45"}, queryRows("select count(*) from TaskTable"));
}

TEST_F(TaskBookkeeping, NegativeIdsAreLikeAnyOther)
{
    addRow("id=-5, count=4");
    EXPECT_TRUE(store->incrementCount(-5));
    EXPECT_TRUE(store->setTaskStatus(-5, TaskStatus(2)));
    EXPECT_TRUE(store->setResult(-5, newDictionary().get()));
    EXPECT_EQ(Lines{"5|2|blob"}, queryRows("select count, status, typeof(result) from TaskTable"));
}

TEST_F(TaskBookkeeping, NoIncrementOfManyThreadsIsLost)
{
    const int id = addRow();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread)
        threads.emplace_back([this, id] {
            for (int run = 0; run < 5; ++run)
                EXPECT_TRUE(store->incrementCount(id));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(Lines{"40"}, queryRows("select count from TaskTable"));
}

TEST_F(TaskBookkeeping, NoIncrementOfManyProcessesIsLost)
{
    const int id = addRow();
    store.reset(); // a connection must not be carried into another process
    std::vector<pid_t> processes;
    for (int process = 0; process < 4; ++process) {
        const pid_t child = fork();
        ASSERT_NE(-1, child);
        if (child == 0) {
            TaskInterface own;
            bool counted = true;
            for (int run = 0; run < 5; ++run)
                counted = own.incrementCount(id) && counted;
            _exit(counted ? 0 : 1);
        }
        processes.push_back(child);
    }
    for (const pid_t process : processes) {
        int status = -1;
        ASSERT_EQ(process, waitpid(process, &status, 0));
        EXPECT_EQ(0, status);
    }
    EXPECT_EQ(Lines{"20"}, queryRows("select count from TaskTable"));
}

} // namespace
