#pragma once

#include "CrontabProgram.h"

#include <optional>
#include <string>
#include <vector>

/// A task, and the line that a rebuild would append for it.
struct TaskPreview {
    int id;
    std::string description;
    std::string schedule; ///< the beginning of the line
    std::string line; ///< with its line feed; "" if there is none
    std::string whyNone; ///< why there is none
};

/// A user who owns tasks.
struct Owner {
    int uid;
    std::optional<std::string> account; ///< none if the user id has no account
    Listing crontab;
    std::vector<TaskPreview> tasks;
    std::string whyNotAll; ///< why `tasks` may be incomplete; "" if it is complete
    std::string whyNoRebuild; ///< why a rebuild leaves the crontab alone; "" if it does not
    bool rebuildFails = false; ///< whether that reason is a failure
};

/// All owners of tasks, in the order of the passes. Empty if there is no task database, or no task table in it; neither
/// is created. Throws SqliteException where every run fails before it edits a crontab, and std::runtime_error if a
/// crontab cannot be listed because no process can be started.
std::vector<Owner> readOwners();

/// What is wrong with the scratch directory, so that no run can edit a crontab; "" if nothing is.
std::string scratchProblem();
