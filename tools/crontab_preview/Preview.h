#pragma once

#include <optional>
#include <string>
#include <vector>

// What the two passes would make of the crontabs now, found without changing anything: the texts come from the
// functions with which the passes edit, the tasks from the reads with which they look.

/// Something about a crontab that a person should know before the pass runs, and the line that it is about.
struct Warning {
    std::string sentence;
    std::string line;
};

/// What a pass would do to one crontab.
struct Outcome {
    std::optional<std::string> text; ///< what it would install; nothing if it would leave the crontab alone
    std::string whyNone; ///< why it would leave it alone
    std::vector<Warning> warnings;
};

/// A task, and the line that a rebuild would append for it.
struct TaskPreview {
    int id;
    std::string description;
    std::string schedule; ///< what the line begins with
    std::string line; ///< with its line feed; "" for none
    std::string whyNone; ///< why there is none
};

/// A user who owns tasks.
struct OwnerPreview {
    int uid;
    std::optional<std::string> account; ///< none if the user id has no account
    std::optional<std::string>
        crontab; ///< what `crontab -l` prints; none if it ends with an error: there is no crontab
    std::vector<TaskPreview> tasks;
    std::string whyNotAll; ///< why some of the tasks may be missing; "" if none is
    Outcome clean;
    Outcome rebuild;
};

/// All owners of tasks, in the order in which the passes go through them. None if there is no task database, or no
/// table in it; neither is made. Throws SqliteException where both passes would end with one before they have edited a
/// crontab, and std::runtime_error if a crontab cannot be read for want of a process.
std::vector<OwnerPreview> previewOwners();
