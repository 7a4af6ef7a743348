#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

/// The kind of a task. Any 32-bit number may stand in the table; those without a name here have no name text either.
enum TaskType : std::int32_t {
    taskTypeScan = 1,
    taskTypeUpdate = 2,
    taskTypeScanNow = 3, ///< runs once, and never gets a crontab line
    taskTypeNxcScan = 4,
    taskTypeFullOds = 5,
    taskTypeQuickOds = 6,
};

/// The state of a task, a number without names. A new task has 1. The store removes tasks of 3 and 5 first when there
/// are too many, and does not count a task above 5 as one of its user's.
enum TaskStatus : std::int32_t {};

/// One task, as a row of TaskTable holds it. Owns its strings. Does not release `parameter` and `result`: whoever made
/// them does (see orv::OwnedTask for one that the store has made).
struct TaskInfo {
    /// A new task, not yet stored: description the name text of `type` (none if it has no name) and the present local
    /// time as asctime gives it, line break included; cronTime getCronCurrentTime(0); status 1; owner the effective
    /// user; created and lastRun now; all else 0 or null. Throws std::bad_alloc only.
    explicit TaskInfo(TaskType type);

    /// The present local time as the five time fields of a crontab line. `exact` 0: every hour at this minute,
    /// "7 * * * *". Any other: once a year at this moment, "7 14 2 3 *".
    static std::string getCronCurrentTime(int exact);

    int id; ///< the row's key; 0 if not stored
    std::string description;
    TaskType type;
    std::string cronTime; ///< the time fields of a crontab line, or a word such as @daily
    CFPropertyListRef parameter; ///< the task's settings, or null
    /// Outcome of the last run, or null. One that the store has read can be changed, but not the containers in it:
    /// what is to be changed there is copied first.
    CFMutableDictionaryRef result;
    time_t created;
    time_t lastRun;
    TaskStatus status;
    int count; ///< number of runs
    int userId; ///< the user in whose crontab the task runs
    int recType; ///< record kind, a flag: stored as 1 if it is 1, else as 0
};

namespace orv {

/// Releases a task that the store has made, and the property lists that the store has made for it.
struct TaskReleaser {
    void operator()(TaskInfo* task) const;
};

/// Owns a task that the store has made.
using OwnedTask = std::unique_ptr<TaskInfo, TaskReleaser>;

} // namespace orv
