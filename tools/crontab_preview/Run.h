#pragma once

#include "CrontabLines.h"
#include "CrontabProgram.h"
#include "Owners.h"

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// What to preview: a run without an argument, a run with one, or the first and then the second.
enum class Command { clean, rebuild, update };

/// What happens to a line that is not the product's.
enum class Fate { kept, lost, cut, commented, changed };

/// How many lines of each kind have which fate.
using Fates = std::map<std::pair<Kind, Fate>, std::size_t>;

/// What a run does to neighbouring lines.
struct Event {
    std::size_t first; ///< number of the first line, from 1
    std::size_t last;
    Fate fate;
    std::map<Kind, std::size_t> kinds; ///< how many lines of each kind
    std::string one; ///< what happens to a single line: "is lost"
    std::string many; ///< the same for several: "are lost"
    std::vector<std::string> shown; ///< the lines, or what they become; only the first few
    std::size_t notShown = 0;
};

/// What a run does to one crontab, and to the lines in it that are not the product's.
struct Run {
    std::string after; ///< the crontab afterwards
    bool installs = false; ///< whether a crontab is installed
    std::string whyAlone; ///< why the run, or a part of it, leaves the crontab alone; "" if it does not
    bool failed = false; ///< whether that reason is a failure
    std::vector<Event> events;
    Fates lines;
    std::vector<std::string> warnings; ///< anything else that the user should know
    std::size_t taskLinesBefore = 0;
    std::size_t taskLinesAfter = 0;
    std::size_t startedTwice = 0; ///< tasks that cron would start from two lines
};

/// What `command` would do to the crontab of `owner` now.
Run preview(const Owner& owner, Command command, const CrontabCheck& check);
