#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

/// The kind of a task. The table may hold any other 32-bit number; such a type has no name text.
enum TaskType : std::int32_t {
    taskTypeScan = 1,
    taskTypeUpdate = 2,
    taskTypeScanNow = 3, ///< runs once, and never gets a task line
    taskTypeNxcScan = 4,
    taskTypeFullOds = 5,
    taskTypeQuickOds = 6,
};

/// The state of a task, a number that the programs of the product agree on. To this library, a new task has 1; tasks
/// with 3 and 5 may be deleted when there are more than 40; a task with more than 5 gets no task line.
enum TaskStatus : std::int32_t {};

/// One task, a row of TaskTable. It does not release `parameter` and `result`: their creator does. For a task that the
/// store created, use orv::OwnedTask.
struct TaskInfo {
    /// A new task, not yet stored. description: the name text of `type`, if it has one, and the local time as asctime
    /// writes it, with its line feed; cronTime: getCronCurrentTime(0); status: 1; owner: the effective user; created
    /// and lastRun: now; all else 0 or null. Throws only std::bad_alloc.
    explicit TaskInfo(TaskType type);

    /// The local time as the five time fields of a crontab line. With `exact` 0, hourly at this minute: "7 * * * *".
    /// Else yearly, at this minute of this day: "7 14 2 3 *".
    static std::string getCronCurrentTime(int exact);

    int id; ///< the row's key; 0 if not stored
    std::string description;
    TaskType type;
    std::string cronTime; ///< the time fields of a crontab line, or a word such as @daily
    CFPropertyListRef parameter; ///< the task's settings, or null; the store makes its containers mutable
    /// Outcome of the last run, or null. In a task that the store has read, this dictionary can be changed, but the
    /// containers in it cannot.
    CFMutableDictionaryRef result;
    time_t created;
    time_t lastRun;
    TaskStatus status;
    int count; ///< number of runs
    int userId; ///< the owner: the user in whose crontab the task runs
    int recType; ///< a flag: 1 is stored as 1, any other number as 0
};

namespace orv {

/// Releases a task that the store has created, with its property lists.
struct TaskReleaser {
    void operator()(TaskInfo* task) const;
};

/// Owns a task that the store has created.
using OwnedTask = std::unique_ptr<TaskInfo, TaskReleaser>;

} // namespace orv
