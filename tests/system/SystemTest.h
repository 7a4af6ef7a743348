#pragma once

#include <string>
#include <vector>

#include "Process.h" // IWYU pragma: export
#include "TaskLine.h" // IWYU pragma: export
#include "WorldTest.h" // IWYU pragma: export

/// Tests of the built program from outside: what it does to the crontabs and the scratch directory.
class SystemTest : public support::WorldTest {
protected:
    /// A world with an empty TaskTable.
    void SetUp() override;
};

/// The same with the recording crontab instead of the real one.
class RecordedSystemTest : public SystemTest {
protected:
    void SetUp() override;
};

/// The row of a task.
struct Task {
    int id;
    int user;
    std::string cronTime = "0 3 * * *";
    int type = 1;
    int status = 1;
    std::string description = "task " + std::to_string(id);
};

void addTask(const Task& task);

/// Jobs of the owners.
inline const std::string backup = "0 1 * * * /bin/backup\n";
inline const std::string report = "30 6 * * 1 /bin/report --all\n";

/// Anna and Ben own a task each. Their crontabs have a job each, and below it the line of the task.
class TwoOwnersTest : public SystemTest {
protected:
    void SetUp() override;

    static void expectCrontabs(const std::string& annas, const std::string& bens);
    static void expectUnchanged() { expectCrontabs(backup + annasTask, report + bensTask); }
    static void expectCleaned() { expectCrontabs(backup, report); }
    static void expectRebuilt() { expectCrontabs(backup + annasTask + annasTask, report + bensTask + bensTask); }

    static inline const std::string annasTask = support::taskLine(3);
    static inline const std::string bensTask = support::taskLine(4);
};

/// Replaces TaskTable with a view that fails to read `column` in the rows that meet `condition`: SQLite reports an
/// integer overflow there.
void makeUnreadable(const std::string& column, const std::string& condition);

/// The path of the built program.
inline const std::string program = ORV_CRON_CLEANER;
inline const std::vector<std::string> cleanCommand = {program};
inline const std::vector<std::string> rebuildCommand = {program, "rebuild"};

/// Runs the program without an argument, or with one. The run must end with status 0 and print nothing on standard
/// output. Returns its standard error.
std::string clean(const std::vector<std::string>& environment = {});
std::string rebuild(const std::vector<std::string>& environment = {});

/// Runs a copy of a program as anna, who may have no access to the build folder.
support::ProgramEnd runAsAnna(const std::string& executable, const std::vector<std::string>& arguments = {});

/// The standard output of a program that succeeded. Its standard error must be empty.
std::string outputOf(const support::ProgramEnd& end);

/// The standard error of a program that failed with `status`. Its standard output must be empty.
std::string errorsOf(const support::ProgramEnd& end, int status = 1);

bool contains(const std::string& text, const std::string& part);

/// What the program prints after an exception.
inline const std::string message = "Exception while cleaning cron";
inline const std::string crontabCopy = support::scratchDirectory + "crontemp.txt";
inline const std::string filteredCopy = support::scratchDirectory + "temp2.txt";

/// The environment that makes these calls of popen fail in the program, counted from 1: "2" or "1,2".
std::vector<std::string> failingPopen(const std::string& calls);

using Calls = std::vector<std::string>;
using Files = std::vector<std::string>;
