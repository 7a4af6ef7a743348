#include "CfRef.h"
#include "TaskInfo.h"
#include <CoreFoundation/CoreFoundation.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <string>
#include <type_traits>
#include <unistd.h>

#include "CfObjects.h"
#include "StoreTest.h"

using namespace support;

namespace {

constexpr time_t secondOfMarch = 1425287103; // Monday 2 March 2015, 09:05:03 UTC

class TaskInfoTest : public testing::Test {
protected:
    TimeZone utc{"UTC0"};
};

std::string descriptionOf(int type)
{
    const Clock clock(secondOfMarch);
    return TaskInfo(static_cast<TaskType>(type)).description;
}

/// The schedule text that is made at this UTC time.
std::string scheduleAt(int exact, int year, int month, int day, int hour, int minute)
{
    tm moment{};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    moment.tm_hour = hour;
    moment.tm_min = minute;
    const Clock clock(timegm(&moment));
    return TaskInfo::getCronCurrentTime(exact);
}

TEST_F(TaskInfoTest, IsDescribedByItsTypeAndTheTime)
{
    EXPECT_EQ("Scan Task Mon Mar  2 09:05:03 2015\n", descriptionOf(1));
    EXPECT_EQ("E-update Task Mon Mar  2 09:05:03 2015\n", descriptionOf(2));
    EXPECT_EQ("Scan Now Task Mon Mar  2 09:05:03 2015\n", descriptionOf(3));
    EXPECT_EQ("NXC Scan Task Mon Mar  2 09:05:03 2015\n", descriptionOf(4));
    EXPECT_EQ("Full ODS Task Mon Mar  2 09:05:03 2015\n", descriptionOf(5));
    EXPECT_EQ("Quick ODS Task Mon Mar  2 09:05:03 2015\n", descriptionOf(6));
}

TEST_F(TaskInfoTest, IsDescribedByTheTimeAloneIfItsTypeHasNoName)
{
    for (const int type : {0, 7, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ("Mon Mar  2 09:05:03 2015\n", descriptionOf(type)) << type;
        EXPECT_EQ(type, TaskInfo(static_cast<TaskType>(type)).type);
    }
}

TEST_F(TaskInfoTest, IsDescribedInLocalTime)
{
    const TimeZone east("XXX-15");
    EXPECT_EQ("Scan Task Tue Mar  3 00:05:03 2015\n", descriptionOf(1));
}

TEST_F(TaskInfoTest, ANewTaskHasItsDefaults)
{
    const Clock clock(secondOfMarch);
    const TaskInfo task(taskTypeUpdate);
    EXPECT_EQ(0, task.id);
    EXPECT_EQ(taskTypeUpdate, task.type);
    EXPECT_EQ("5 * * * *", task.cronTime);
    EXPECT_EQ(nullptr, task.parameter);
    EXPECT_EQ(nullptr, task.result);
    EXPECT_EQ(secondOfMarch, task.created);
    EXPECT_EQ(secondOfMarch, task.lastRun);
    EXPECT_EQ(1, task.status);
    EXPECT_EQ(0, task.count);
    EXPECT_EQ(0, task.recType);
}

TEST_F(TaskInfoTest, ReadsTheTimeForDescriptionScheduleCreationAndLastRunInThisOrder)
{
    const Clock clock(secondOfMarch, 60);
    const TaskInfo task(taskTypeScan);
    EXPECT_EQ("Scan Task Mon Mar  2 09:05:03 2015\n", task.description);
    EXPECT_EQ("6 * * * *", task.cronTime);
    EXPECT_EQ(secondOfMarch + 120, task.created);
    EXPECT_EQ(secondOfMarch + 180, task.lastRun);
}

TEST_F(TaskInfoTest, BelongsToTheEffectiveUser)
{
    EXPECT_EQ(0, TaskInfo(taskTypeScan).userId);
    ASSERT_EQ(0, seteuid(static_cast<uid_t>(anna)));
    const TaskInfo task(taskTypeScan);
    ASSERT_EQ(0, seteuid(0));
    EXPECT_EQ(anna, task.userId);
}

TEST_F(TaskInfoTest, HasItsFieldsInTheOrderOfTheColumns)
{
    TaskInfo task(taskTypeScan);
    const void* const fields[] = {&task.id, &task.description, &task.type, &task.cronTime, &task.parameter,
        &task.result, &task.created, &task.lastRun, &task.status, &task.count, &task.userId, &task.recType};
    EXPECT_EQ(static_cast<void*>(&task), fields[0]);
    for (std::size_t field = 1; field < std::size(fields); ++field)
        EXPECT_LT(reinterpret_cast<std::uintptr_t>(fields[field - 1]), reinterpret_cast<std::uintptr_t>(fields[field]));
}

TEST_F(TaskInfoTest, TypesAndStatusesAre32BitNumbers)
{
    EXPECT_FALSE(std::is_polymorphic_v<TaskInfo>);
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<TaskType>, std::int32_t>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<TaskStatus>, std::int32_t>));
    EXPECT_EQ(6, taskTypeQuickOds);
}

TEST_F(TaskInfoTest, RunsHourlyAtTheMinuteAtWhichItWasMade)
{
    EXPECT_EQ("7 * * * *", scheduleAt(0, 2015, 3, 2, 14, 7));
    EXPECT_EQ("0 * * * *", scheduleAt(0, 2015, 3, 2, 14, 0));
    EXPECT_EQ("59 * * * *", scheduleAt(0, 2015, 3, 2, 14, 59));
}

TEST_F(TaskInfoTest, RunsOnceAYearAtTheMomentAtWhichItWasMade)
{
    EXPECT_EQ("7 14 2 3 *", scheduleAt(1, 2015, 3, 2, 14, 7));
    EXPECT_EQ("0 0 1 1 *", scheduleAt(1, 2015, 1, 1, 0, 0));
    EXPECT_EQ("59 23 31 12 *", scheduleAt(1, 2015, 12, 31, 23, 59));
}

TEST_F(TaskInfoTest, AnyNumberButZeroMeansTheOneMoment)
{
    EXPECT_EQ("7 14 2 3 *", scheduleAt(-1, 2015, 3, 2, 14, 7));
    EXPECT_EQ("7 14 2 3 *", scheduleAt(INT_MIN, 2015, 3, 2, 14, 7));
}

TEST_F(TaskInfoTest, SchedulesInLocalTime)
{
    const TimeZone india("IST-5:30");
    EXPECT_EQ("37 19 2 3 *", scheduleAt(1, 2015, 3, 2, 14, 7));
    EXPECT_EQ("37 * * * *", scheduleAt(0, 2015, 3, 2, 14, 7));
}

TEST_F(TaskInfoTest, AskingATaskForAScheduleDoesNotChangeIt)
{
    const Clock clock(secondOfMarch);
    TaskInfo task(taskTypeScan);
    task.cronTime = "kept";
    EXPECT_EQ("5 9 2 3 *", task.getCronCurrentTime(1));
    EXPECT_EQ("kept", task.cronTime);
}

TEST_F(TaskInfoTest, DoesNotReleaseItsPropertyLists)
{
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xmlDocument("<dict/>"));
    {
        TaskInfo task(taskTypeScan);
        task.parameter = parameter.get();
    }
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
}

TEST_F(TaskInfoTest, AnOwnedTaskReleasesItsPropertyLists)
{
    const orv::CfRef<CFPropertyListRef> parameter = listOf(xmlDocument("<dict/>"));
    const auto result = newDictionary();
    {
        const orv::OwnedTask task(new TaskInfo(taskTypeScan));
        task->parameter = CFRetain(parameter.get());
        task->result = static_cast<CFMutableDictionaryRef>(const_cast<void*>(CFRetain(result.get())));
        EXPECT_EQ(2, CFGetRetainCount(parameter.get()));
    }
    EXPECT_EQ(1, CFGetRetainCount(parameter.get()));
    EXPECT_EQ(1, CFGetRetainCount(result.get()));
}

} // namespace
