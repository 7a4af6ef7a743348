#pragma once

#include "TaskInfo.h"

#include <string>

// What schedule_task shows.

constexpr auto scheduleTaskHelp = R"(schedule_task: schedule, list, change and delete the product's tasks

  schedule_task create [OPTION]... [KEY=VALUE]...      prints the task's new id
  schedule_task list   [--user NAME|UID]
  schedule_task modify ID [OPTION]... [KEY=VALUE]...   changes what is named
  schedule_task record ID [--status N] [KEY=VALUE]...  a run has just ended
  schedule_task delete ID                              its crontab line, too

  --type N            1 scan (if none is given), 2 update, 3 scan now,
                      4 NXC scan, 5 full scan on demand, 6 quick one
  --schedule TIMES    '30 3 * * 1', @daily; if none is given, hourly from now
  --user NAME|UID     in whose crontab it runs; if none is given, in your own
  --description TEXT  if none is given, its type and the time
  --status N          a new task has 1
  --run-now           (create) starts the task at once, too

KEY=VALUE replace all parameters of the task or, with record, its whole result.
A task gets its crontab line with the next rebuild, but not with type 3 or a
status above 5. A line that is there already stays until a clean or a delete.
delete takes the user's own lines, too, that stand below an empty line of the
crontab, or below one of 500 or more characters.
Run this as root. It ends with 0, with 1 on failure, with 2 if called wrongly.
)";

/// What stands above the rows, with its line feed.
constexpr auto taskTableHead = "  ID USER      TYPE STATUS  RUNS LAST RUN          SCHEDULE      DESCRIPTION\n";

/// `task` as a line for a terminal, with its line feed, in 80 columns: a long schedule takes room from the description,
/// or else a line more.
std::string taskTableRow(const TaskInfo& task);
