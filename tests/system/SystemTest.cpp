#include "SystemTest.h"

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using namespace support;

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

void TwoOwnersTest::SetUp()
{
    SystemTest::SetUp();
    addTask({3, anna});
    addTask({4, ben});
    setCrontab("anna", backup + annasTask);
    setCrontab("ben", report + bensTask);
}

void TwoOwnersTest::expectCrontabs(const std::string& annas, const std::string& bens)
{
    EXPECT_EQ(annas, crontabOf("anna"));
    EXPECT_EQ(bens, crontabOf("ben"));
}

void addTask(const Task& task)
{
    std::ostringstream sql;
    sql << "insert into TaskTable(id,description,type,crontime,status,userId) values(" << task.id << ",'"
        << task.description << "'," << task.type << ",'" << task.cronTime << "'," << task.status << "," << task.user
        << ")";
    execSql(sql.str());
}

void makeUnreadable(const std::string& column, const std::string& condition)
{
    std::string columns;
    for (const std::string name : {"id", "type", "crontime", "status", "userId"})
        columns += (columns.empty() ? "" : ", ")
            + (name == column ? "case when " + condition + " then abs(-9223372036854775808) else " + name + " end as "
                              : "")
            + name;
    execSql("alter table TaskTable rename to Tasks; create view TaskTable as select " + columns + " from Tasks");
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
    return runQuietly(cleanCommand, environment);
}

std::string rebuild(const std::vector<std::string>& environment)
{
    return runQuietly(rebuildCommand, environment);
}

ProgramEnd runAsAnna(const std::string& executable, const std::vector<std::string>& arguments)
{
    const std::string copy = testDirectory + "program";
    writeFile(copy, readFile(executable));
    std::filesystem::permissions(copy, std::filesystem::perms(0755));
    std::vector<std::string> command = {"/usr/bin/setpriv", "--reuid=501", "--regid=501", "--clear-groups", copy};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
}

std::string outputOf(const ProgramEnd& end)
{
    EXPECT_EQ(0, end.status) << end.errors;
    EXPECT_EQ("", end.errors);
    return end.output;
}

std::string errorsOf(const ProgramEnd& end, int status)
{
    EXPECT_EQ(status, end.status);
    EXPECT_EQ("", end.output);
    return end.errors;
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::vector<std::string> failingPopen(const std::string& calls)
{
    // The address sanitizer insists on being the first library, unless told otherwise.
    return {"LD_PRELOAD=" ORV_FAILING_POPEN, "FAILING_POPEN_CALLS=" + calls, "ASAN_OPTIONS=verify_asan_link_order=0"};
}
