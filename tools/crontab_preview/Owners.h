#pragma once

#include "CrontabProgram.h"

#include <optional>
#include <string>
#include <vector>

/// A task, and the line that a rebuild would append for it.
struct TaskPreview {
    int id;
    std::string description;
    std::string schedule; ///< what the line begins with
    std::string line; ///< with its line feed; "" for none
    std::string whyNone; ///< why there is none
};

/// A user who owns tasks.
struct Owner {
    int uid;
    std::optional<std::string> account; ///< none if the user id has no account
    Listing crontab;
    std::vector<TaskPreview> tasks;
    std::string whyNotAll; ///< why some of the tasks may be missing; "" if none is
    std::string whyNoRebuild; ///< why a rebuild leaves the crontab alone; "" if it does not
    bool rebuildFails = false; ///< that reason is a fault
};

/// All owners of tasks, in the order in which the passes go through them. None if there is no task database, or no
/// table in it; neither is made. Throws SqliteException where both passes would end with one before they have edited a
/// crontab, and std::runtime_error if a process cannot be started.
std::vector<Owner> readOwners();

/// Why no run can edit a crontab; "" if one can.
std::string scratchProblem();
