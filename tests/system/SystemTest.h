#pragma once

#include <string>
#include <vector>

#include "Process.h" // IWYU pragma: export
#include "TaskLine.h" // IWYU pragma: export
#include "WorldTest.h" // IWYU pragma: export

/// Tests of the built program, from outside: what it makes of the crontabs and the scratch directory.
class SystemTest : public support::WorldTest {
protected:
    /// A world with an empty TaskTable.
    void SetUp() override;
};

/// As SystemTest, with the recording crontab in the place of the real one.
class RecordedSystemTest : public SystemTest {
protected:
    void SetUp() override;
};

/// A row of TaskTable.
struct Task {
    int id;
    int user;
    std::string cronTime = "0 3 * * *";
    int type = 1;
    int status = 1;
};

void addTask(const Task& task);

/// Runs the program without an argument, or with one. The run must end with status 0 and print nothing on standard
/// output; what came on standard error is returned.
std::string clean(const std::vector<std::string>& environment = {});
std::string rebuild(const std::vector<std::string>& environment = {});

/// The path of the built program.
extern const std::string program;
/// What the program prints when something is thrown.
extern const std::string message;
inline const std::string crontabCopy = support::scratchDirectory + "crontemp.txt";
inline const std::string filteredCopy = support::scratchDirectory + "temp2.txt";

/// Environment in which these calls of popen (counted from 1) fail in the program: "2" or "1,2".
std::vector<std::string> failingPopen(const std::string& calls);

using Calls = std::vector<std::string>;
using Files = std::vector<std::string>;
