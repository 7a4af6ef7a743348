#pragma once

#include "CrontabLines.h"
#include "CrontabProgram.h"
#include "Owners.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// What a person runs: OrvCronCleaner without an argument, with one, or both, one after the other.
enum class Command { clean, rebuild, update };

/// What becomes of a line that is not the product's.
enum class Fate { kept, lost, cut, commented, changed };

/// What a run does to neighbouring lines.
struct Event {
    std::size_t first; ///< number of the first line, from 1
    std::size_t last;
    Fate fate;
    std::map<Kind, std::size_t> kinds; ///< how many lines of each kind
    std::string one; ///< what happens, of one line: "is lost"
    std::string many; ///< the same of several: "are lost"
    std::vector<std::string> shown; ///< the lines, or what they become; only the first few
    std::size_t notShown = 0;
};

/// What a run does to one crontab, and to the lines in it that are not the product's.
struct Run {
    std::string after; ///< the crontab afterwards
    bool installs = false; ///< false if no crontab is installed
    std::string whyAlone; ///< why none is, or not by a part of the run; "" if there is no reason to tell
    bool failed = false; ///< that reason is a fault
    std::vector<Event> events;
    std::map<Kind, std::map<Fate, std::size_t>> lines;
    std::vector<std::string> warnings; ///< what there is to know besides
    std::size_t taskLinesBefore = 0;
    std::size_t taskLinesAfter = 0;
    std::size_t startedTwice = 0; ///< tasks that cron would start from two lines
};

/// What `command` would do to the crontab of `owner` now.
Run preview(const Owner& owner, Command command, const CrontabCheck& check);
