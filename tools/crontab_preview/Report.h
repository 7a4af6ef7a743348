#pragma once

#include "Owners.h"
#include "Run.h"

#include <string>
#include <vector>

/// An owner, and what a run does to the owner's crontab.
struct OwnersRun {
    Owner owner;
    Run run;
};

/// Whether the run changes the crontab. True, too, if it installs one in place of one that could not be listed.
bool changes(const OwnersRun& of);

/// Whether a line that is not the product's is lost, cut, turned into a comment or changed, or may be, because
/// crontab could not list it.
bool mayLoseLines(const OwnersRun& of);

/// The change to the listed crontab, as a diff for patch(1); "" if there is none.
std::string diffOf(const OwnersRun& of, Command command);

struct Style {
    bool details; ///< show the lines and tasks of every owner; otherwise one line for each owner who is harmed
    bool folded; ///< fold lines of more than 80 columns
    bool coloured;
};

/// What the runs do. `crontabWasAsked` tells whether crontab has checked their results.
std::string report(const std::vector<OwnersRun>& all, Command command, const Style& style, bool crontabWasAsked);

/// The command as it is written in the program's arguments.
std::string nameOf(Command command);
