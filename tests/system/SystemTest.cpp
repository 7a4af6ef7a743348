#include "SystemTest.h"

#include <sstream>
#include <string>
#include <vector>

using namespace support;

const std::string program = ORV_CRON_CLEANER;
const std::string message = "Exception while cleaning cron";

void SystemTest::SetUp()
{
    WorldTest::SetUp();
    execSql(createTaskTable);
}

void RecordedSystemTest::SetUp()
{
    SystemTest::SetUp();
    useRecordingCrontab();
}

void addTask(const Task& task)
{
    std::ostringstream sql;
    sql << "insert into TaskTable(id,description,type,crontime,status,userId) values(" << task.id << ",'task "
        << task.id << "'," << task.type << ",'" << task.cronTime << "'," << task.status << "," << task.user << ")";
    execSql(sql.str());
}

static std::string runQuietly(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
{
    const auto end = runProgram(arguments, StandardOutput::captured, environment);
    EXPECT_EQ(0, end.status);
    EXPECT_EQ(0, end.signal);
    EXPECT_EQ("", end.output);
    return end.errors;
}

std::string clean(const std::vector<std::string>& environment)
{
    return runQuietly({program}, environment);
}

std::string rebuild(const std::vector<std::string>& environment)
{
    return runQuietly({program, "rebuild"}, environment);
}

std::vector<std::string> failingPopen(const std::string& calls)
{
    // A build with the address sanitizer wants to be the first library; here it must not be.
    return {"LD_PRELOAD=" ORV_FAILING_POPEN, "FAILING_POPEN_CALLS=" + calls, "ASAN_OPTIONS=verify_asan_link_order=0"};
}
