#pragma once

#include <string>

/// Whether `text` is a valid schedule: the five time fields of a crontab line with single blanks between them, each
/// within its range ("30 3 * * mon-fri"), or a word such as @daily.
bool isSchedule(const std::string& text);
