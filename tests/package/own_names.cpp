// A program of the product can use the names of the library's helpers, because these are in a namespace or in a class.
// So this compiles, and links with all of the library's objects.

#include "CfRef.h" // IWYU pragma: keep
#include "Constants.h" // IWYU pragma: keep
#include "CrontabText.h" // IWYU pragma: keep
#include "OrvException.h" // IWYU pragma: keep
#include "PassLock.h" // IWYU pragma: keep
#include "SqliteDb.h" // IWYU pragma: keep
#include "TaskEditor.h" // IWYU pragma: keep
#include "TaskInfo.h" // IWYU pragma: keep
#include "TaskInterface.h" // IWYU pragma: keep

#include <ctime>
#include <functional>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

std::string decimal(int);
bool toLocalTime(time_t, tm&);
time_t fromLocalTime(tm);
int toInt(std::string_view);
int toInt(const std::string&);
void writeTaskLine(std::ostream&, const std::string&, int);
void dropTaskLines(std::istream&, std::ostream&);
void dropLinesOfTask(int, std::istream&, std::ostream&);
void splitTaskLines(const std::function<std::string(int)>&, std::istream&, std::ostream&);
bool started(const std::string&);
void rewriteCrontab();

std::string decimal(int)
{
    return {};
}
bool toLocalTime(time_t, tm&)
{
    return false;
}
time_t fromLocalTime(tm)
{
    return 0;
}
int toInt(std::string_view)
{
    return 0;
}
int toInt(const std::string&)
{
    return 0;
}
void writeTaskLine(std::ostream&, const std::string&, int) { }
void dropTaskLines(std::istream&, std::ostream&) { }
void dropLinesOfTask(int, std::istream&, std::ostream&) { }
void splitTaskLines(const std::function<std::string(int)>&, std::istream&, std::ostream&) { }
bool started(const std::string&)
{
    return false;
}
void rewriteCrontab() { }

int columnNull;
int columnBlob;
int resultMisuse;
int sqliteText;
int sqliteBlob;
int scanTask;
int scanNowTask;
int nxcScanTask;
int fullOdsTask;
int quickOdsTask;
int text;
int blob;
int codeNotFound;
void updateTask(int id);
void updateTask(int) { }

class IdList { };
class PassLock { };
class OwnedTask { };
class TaskReleaser { };
class CfRef { };
class CfReleaser { };
class CronTimeOf { };
class Copy { };
class Crontab { };
class Pipe { };
class File { };
class Bytes { };
class LineSplitter { };
class Value { };

// Callers pass and get these as plain numbers.
static_assert(sizeof(TaskType) == 4 && std::is_convertible_v<TaskType, int>);
static_assert(sizeof(TaskStatus) == 4 && std::is_convertible_v<TaskStatus, int>);
static_assert(sizeof(SqliteDataType) == 4 && std::is_convertible_v<SqliteDataType, int>);

int main()
{
    updateTask(taskTypeUpdate);
    return decimal(sqliteDataText).empty() ? 0 : 1;
}
