// What docs/task-library.md and docs/formats.md show. The build extracts the code of the first into task-library.inc.
// It comes before all other headers here, so that it must include its own.
#include "OrvException.h"
#include "TaskEditor.h"
#include "TaskInfo.h"
#include "TaskInterface.h"
#include "task-library.inc"
#include <CoreFoundation/CoreFoundation.h>

#include "SystemTest.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

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
    const orv::OwnedTask task = TaskEditor::getInstance()->task(id);
    const auto settings = static_cast<CFDictionaryRef>(task->parameter);
    EXPECT_TRUE(CFEqual(CFSTR("/home/anna"), CFDictionaryGetValue(settings, CFSTR("folder"))));
}

TEST_F(Guide, ReadsASettingBack)
{
    EXPECT_EQ("/home/anna", folderOf(createScanOfFolder(CFSTR("/home/anna"), anna)));
    EXPECT_EQ("", folderOf(createNightlyScan(anna)));
}

TEST_F(Guide, ReportsAFailureInWords)
{
    EXPECT_EQ("", failureOf([] {}));
    EXPECT_EQ("Database: Write failed: attempt to write a readonly database",
        failureOf([] { throw SqliteException(8, "Database: Write failed"); }));
    EXPECT_EQ("no memory", failureOf([] { throw std::runtime_error("no memory"); }));
}

/// What the table of the statuses says.
TEST_F(Guide, GivesTasksOfAStatusBelow6ACrontabLine)
{
    for (int status = 1; status <= 7; ++status)
        TaskEditor::getInstance()->setTaskStatus(createNightlyScan(anna), TaskStatus(status));
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5}), tasksOfUser(anna));
    bringCrontabsUpToDate();
    const std::string crontab = crontabOf("anna");
    EXPECT_EQ(5, std::count(crontab.begin(), crontab.end(), '\n')) << crontab;
}

TEST_F(Guide, DeletesTasksOfStatus3And5Above40Tasks)
{
    for (int status = 1; status <= 7; ++status)
        TaskEditor::getInstance()->setTaskStatus(createNightlyScan(anna), TaskStatus(status));
    for (int more = 0; more < 40; ++more)
        createNightlyScan(anna);
    EXPECT_EQ((Rows{"1", "2", "4", "6", "7"}), queryRows("select id from TaskTable where id < 8 order by id"));
}

TEST_F(Guide, ListsTheTasksOfAUser)
{
    createNightlyScan(anna);
    createNightlyScan(ben);
    createNightlyScan(anna);
    EXPECT_EQ((std::vector<int>{1, 3}), tasksOfUser(anna));
    EXPECT_EQ(std::vector<int>{}, tasksOfUser(carla));
}

TEST_F(Guide, DoesNotMistakeAFailureForAUserWithoutTasks)
{
    TaskEditor::getInstance();
    execSql("drop table TaskTable");
    EXPECT_THROW(tasksOfUser(anna), SqliteException);
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

TEST_F(Guide, ReportsThatARunCouldNotBeRecorded)
{
    const int id = createNightlyScan(anna);
    EXPECT_THROW(recordRun(id, nullptr), std::runtime_error);
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
    EXPECT_EQ("0 3 * * * /bin/backup\n" + taskLine(1, "45 3 * * *"), crontabOf("anna"));
}

TEST_F(Guide, TouchesNothingWithoutTheLock)
{
    const int id = createNightlyScan(anna);
    std::filesystem::remove(scratchDirectory);
    EXPECT_FALSE(forget(id));
    EXPECT_THROW(bringCrontabsUpToDate(), std::runtime_error);
    EXPECT_EQ(Rows{"1"}, queryRows("select id from TaskTable"));
}

TEST_F(Guide, ReleasesTheLockWhenAPassFails)
{
    TaskEditor::getInstance();
    execSql("drop table TaskTable");
    EXPECT_THROW(bringCrontabsUpToDate(), SqliteException);
    EXPECT_FALSE(forget(1)); // would wait for ever
}

/// The first text between "```LANGUAGE" and "```" after `heading` in docs/formats.md.
std::string shownInFormats(const std::string& heading, const std::string& language)
{
    const std::string document = readFile(std::string(ORV_DOCUMENTS) + "/formats.md");
    const std::string opening = "\n```" + language + "\n";
    const size_t begin = document.find(opening, document.find("\n## " + heading)) + opening.size();
    return document.substr(begin, document.find("```", begin) - begin);
}

std::string withoutLayout(std::string text)
{
    for (const std::string layout : {"\n", "  "})
        for (size_t at = text.find(layout); at != std::string::npos; at = text.find(layout))
            text.erase(at, layout.size());
    return text;
}

class Formats : public Guide { };

TEST_F(Formats, ShowTheTableAsItIs)
{
    EXPECT_EQ(createTaskTable, withoutLayout(shownInFormats("The database", "sql")));
}

TEST_F(Formats, ShowATaskLine)
{
    std::string line = taskLine(12, "SCHEDULE");
    line.replace(line.find("12"), 2, "ID");
    EXPECT_EQ(line, shownInFormats("The crontab line", ""));
}

TEST_F(Formats, ShowATimeStamp)
{
    setenv("TZ", "UTC0", 1);
    tm moment{};
    moment.tm_year = 126;
    moment.tm_mon = 10;
    moment.tm_mday = 16;
    moment.tm_hour = 8;
    moment.tm_min = 30;
    moment.tm_sec = 5;
    EXPECT_EQ(convertTmToString(timegm(&moment)) + "\n", shownInFormats("Time stamps", ""));
}

TEST_F(Formats, ShowAPropertyList)
{
    createScanOfFolder(CFSTR("/home/anna"), anna);
    EXPECT_EQ(queryRows("select parameter from TaskTable").at(0), shownInFormats("Property lists", "xml"));
}

} // namespace
