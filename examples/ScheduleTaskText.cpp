#include "ScheduleTaskText.h"

#include "TaskInfo.h"
#include "TerminalText.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <pwd.h>
#include <string>

namespace {

constexpr std::size_t userColumns = 9;
constexpr std::size_t scheduleColumns = 13; // at least
constexpr std::size_t scheduleIndent = 51;

std::string ownerOf(const TaskInfo& task)
{
    const passwd* account = getpwuid(static_cast<uid_t>(task.userId));
    return visible(account == nullptr ? std::to_string(task.userId) : account->pw_name);
}

std::string lastRunOf(const TaskInfo& task)
{
    const tm* local = task.count > 0 ? std::localtime(&task.lastRun) : nullptr;
    char text[32] = "never";
    if (local != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", local);
    return text;
}

// A default description ends with a line feed.
std::string descriptionOf(const TaskInfo& task)
{
    return visible(task.description.substr(0, task.description.find_last_not_of('\n') + 1));
}

} // namespace

std::string taskTableRow(const TaskInfo& task)
{
    char numbers[200];
    std::snprintf(numbers, sizeof numbers, "%4d %s %4d %6d %5d %-16s  ", task.id,
        padded(ownerOf(task), userColumns).c_str(), task.type, task.status, task.count, lastRunOf(task).c_str());
    std::string schedule = visible(task.cronTime);
    schedule.resize(std::max(schedule.size(), scheduleColumns), ' ');
    std::string row = numbers + schedule + " ";
    row += cut(descriptionOf(task), terminalColumns - std::min(terminalColumns, columnsOf(row)));
    return wrapped(row.substr(0, row.find_last_not_of(' ') + 1), scheduleIndent);
}
