#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The path of the task manager, by which the clean knows its lines.
extern const std::string managerPath;

/// What cron takes a line of a crontab for. A task line is a job that a rebuild may have written; a line that is
/// nothing that cron knows is `other`.
enum class Kind { blank, comment, setting, job, taskLine, other };

/// The lines of `text`, each with its line feed; the last one without, if it has none.
std::vector<std::string> linesOf(const std::string& text);

std::string withoutLineEnd(const std::string& line);

/// `line` has no line feed.
Kind kindOf(const std::string& line);

/// The name of the setting in a line of that kind.
std::string settingIn(const std::string& line);

/// The task that cron would start from `line`, which has no line feed; none for a comment or a setting.
std::optional<int> startedTask(const std::string& line);

/// The line that a rebuild appends for a task, with its line feed.
std::string taskLine(const std::string& schedule, int id);

/// How many lines of `text` are task lines.
std::size_t countTaskLines(const std::string& text);
