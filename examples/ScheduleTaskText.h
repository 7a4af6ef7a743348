#pragma once

#include "TaskInfo.h"

#include <string>

constexpr auto scheduleTaskHelp = R"(schedule_task: schedules, lists, changes and deletes the product's tasks

  schedule_task create [OPTION]... [KEY=VALUE]...      prints the new task's id
  schedule_task list   [--user NAME|UID]
  schedule_task modify ID [OPTION]... [KEY=VALUE]...   changes what is given
  schedule_task record ID [--status N] [KEY=VALUE]...  records a finished run
  schedule_task delete ID                              and its crontab line

  --type N            1 scan (the default), 2 update, 3 scan now, 4 NXC scan,
                      5 full scan on demand, 6 quick scan on demand
  --schedule TIMES    '30 3 * * 1' or @daily; by default hourly from now
  --user NAME|UID     in whose crontab it runs; by default in your own
  --description TEXT  by default its type and the time
  --status N          (modify, record) a new task has 1
  --run-now           (create) also starts the task at once

KEY=VALUE replace all parameters of the task or, with record, its whole result.
The next rebuild gives the task its crontab line, unless it has type 3 or a
status above 5. An existing line stays until a clean or a delete.
delete also removes the user's own lines below an empty line of the crontab, or
below a line of 500 or more characters.
Run this as root. The exit status is 0, 1 after a failure, 2 after wrong usage.
)";

/// The heading of the rows, with its line feed.
constexpr auto taskTableHead = "  ID USER      TYPE STATUS  RUNS LAST RUN          SCHEDULE      DESCRIPTION\n";

/// `task` as a line of at most 80 columns, with its line feed. A long schedule shortens the description or, if that is
/// not enough, takes a second line.
std::string taskTableRow(const TaskInfo& task);
