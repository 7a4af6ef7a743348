#pragma once

#include "Owners.h"
#include "Run.h"

#include <string>
#include <vector>

/// An owner, and what a run does to the crontab.
struct OwnersRun {
    Owner owner;
    Run run;
};

/// Whether the crontab is another one afterwards.
bool changes(const OwnersRun& of);

/// Whether a line that is not the product's is lost, cut or made something else.
bool losesLines(const Run& run);

/// How the listed crontab changes, whole and byte for byte, for patch(1); "" if it does not.
std::string diffOf(const OwnersRun& of, Command command);

/// How a report is written.
struct Style {
    bool details; ///< each owner with lines and tasks; or else those alone who are harmed, in a line each
    bool folded; ///< in 80 columns: what is longer goes on in the next line, behind a "~"
    bool coloured;
};

/// What a run does, for a reader. What is no text is made visible.
std::string report(const std::vector<OwnersRun>& all, Command command, const Style& style, bool crontabWasAsked);

/// What a reader calls the command.
std::string nameOf(Command command);
