#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// How cron reads a line of a crontab. A task line is a job exactly as a rebuild would write it for some task; `other`
/// is a line that cron does not understand.
enum class Kind { blank, comment, setting, job, taskLine, other };

/// The lines of `text`, each with its line feed. The last one may have none.
std::vector<std::string> linesOf(const std::string& text);

std::string withoutLineEnd(const std::string& line);

/// The kind of `line`, which is given without its line feed.
Kind kindOf(const std::string& line);

/// The name that a setting sets.
std::string settingIn(const std::string& line);

/// The task that cron starts from `line`, which is given without its line feed. A comment or a setting starts none.
std::optional<int> startedTask(const std::string& line);

/// The line that a rebuild appends for a task, with its line feed.
std::string taskLine(const std::string& schedule, int id);

std::size_t countTaskLines(const std::string& text);
