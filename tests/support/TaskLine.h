#pragma once

#include <string>

namespace support {

/// The crontab line that starts the task manager for a task, without its line feed.
inline std::string openTaskLine(int id, const std::string& schedule = "0 3 * * *")
{
    return schedule + " /usr/local/Quarno/Kestrelcore/TessaraTaskManager " + std::to_string(id) + " >> /dev/null 2>&1";
}

/// The same with its line feed.
inline std::string taskLine(int id, const std::string& schedule = "0 3 * * *")
{
    return openTaskLine(id, schedule) + "\n";
}

} // namespace support
