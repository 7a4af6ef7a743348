#include "SystemTest.h"

#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

// The code of docs/task-library.md, taken out of it when this is built.
#include "task-library.inc"

using namespace support;

namespace {

class Guide : public SystemTest {
protected:
    void TearDown() override { TaskEditor::ReleaseInstance(); }
};

using Rows = std::vector<std::string>;

TEST_F(Guide, CreatesATask)
{
    EXPECT_EQ(1, createNightlyScan(anna));
    EXPECT_EQ(Rows{"1|Nightly scan|5|30 2 * * *|501|1"},
        queryRows("select id,description,type,crontime,userId,status from TaskTable"));
}

TEST_F(Guide, CreatesATaskWithSettings)
{
    const int id = createScanOfFolder(CFSTR("/home/anna"), anna);
    TaskInfo* read = nullptr;
    TaskEditor::getInstance()->getTaskInfoObject(id, &read);
    const OwnedTask task(read);
    const auto settings = static_cast<CFDictionaryRef>(task->parameter);
    EXPECT_TRUE(CFEqual(CFSTR("/home/anna"), CFDictionaryGetValue(settings, CFSTR("folder"))));
}

TEST_F(Guide, ListsTheTasksOfAUser)
{
    createNightlyScan(anna);
    createNightlyScan(ben);
    createNightlyScan(anna);
    EXPECT_EQ((std::vector<int>{1, 3}), tasksOfUser(anna));
    EXPECT_THROW(tasksOfUser(carla), SqliteException);
}

TEST_F(Guide, ReadsATask)
{
    EXPECT_EQ("Nightly scan", descriptionOf(createNightlyScan(anna)));
}

TEST_F(Guide, ChangesATask)
{
    moveTo(createNightlyScan(anna), "45 3 * * *");
    EXPECT_EQ(Rows{"1|Nightly scan|45 3 * * *"}, queryRows("select id,description,crontime from TaskTable"));
}

TEST_F(Guide, RecordsARun)
{
    const int id = createNightlyScan(anna);
    execSql("update TaskTable set lastRun='0,0,0,1,0,70,4,0,0,'");
    const auto outcome = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    const time_t before = time(nullptr);
    recordRun(id, outcome);
    CFRelease(outcome);
    EXPECT_EQ(Rows{"1|1"}, queryRows("select count, cast(result as text) like '%<dict/>%' from TaskTable"));
    EXPECT_LE(before, convertStringToTm(queryRows("select lastRun from TaskTable").at(0)));
}

TEST_F(Guide, DeletesATaskAndSaysWhyItCannot)
{
    EXPECT_TRUE(forget(createNightlyScan(anna)));
    EXPECT_EQ(Rows{}, queryRows("select id from TaskTable"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(forget(1));
    EXPECT_EQ("task 1: Database: taskId not found (0)\n", testing::internal::GetCapturedStderr());
}

TEST_F(Guide, BringsTheCrontabsUpToDate)
{
    setCrontab("anna", "0 3 * * * /bin/backup\n");
    moveTo(createNightlyScan(anna), "45 3 * * *");
    bringCrontabsUpToDate();
    bringCrontabsUpToDate();
    EXPECT_EQ("0 3 * * * /bin/backup\n" + taskLine("45 3 * * *", 1), crontabOf("anna"));
}

} // namespace
