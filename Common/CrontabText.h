#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace orv {

// Each edit reads a crontab's text from one stream and writes the result to another.
//
// A line ends at its line feed. What follows a zero byte in a line is ignored. Reading stops at the first empty line,
// and after the first 499 characters of a longer line; the rest of the crontab is not written. A stream that cannot be
// read has no lines. Lines keep their order. A task line is a line that starts the task manager for one task.

/// The shell command that starts the task manager for the task `id`: its path and the id.
std::string taskManagerCommand(int id);

/// Writes the task line of the task `id` and flushes `out`: `cronTime` unchanged, then the task manager's command, with
/// the output discarded.
void writeTaskLine(std::ostream& out, const std::string& cronTime, int id);

/// Copies the lines that do not contain the task manager's path. A line of 1 or 2 characters is written without its
/// line feed, so the next kept line joins it.
void dropTaskLines(std::istream& in, std::ostream& out);

/// Copies the lines that do not start the task manager for the task `id`, each with a line feed.
///
/// The id of a line starts one character after the first "TessaraTaskManager" in it. It ends at the next blank, or
/// after 15 characters, and is read as atoi reads it. With `id` 12, "@daily /x/TessaraTaskManager 12
/// now" is dropped. With `id` 0, a line that ends in "TessaraTaskManager" is dropped too, because no digits count as 0.
void dropLinesOfTask(int id, std::istream& in, std::ostream& out);

/// Returns the schedule of a task, or throws.
using CronTimeOf = std::function<std::string(int id)>;

/// Copies the lines, each with a line feed. A line that contains the task manager's path is cut into pieces, each on a
/// line of its own: the task lines in it, and the text before, between and after them.
///
/// A task line begins where the schedule of task 0 is followed by a blank and the task manager's path; the one
/// character before it is dropped. It ends after its output redirection, "/dev/null 2>&1". With the schedule "@daily",
/// "@hourly job;@daily .../TessaraTaskManager 5 >> /dev/null 2>&1# note" gives three lines: "@hourly job", the task
/// line and "# note". Text after the last task line is written without a line feed if it has fewer than 3 characters.
/// If no redirection follows, the rest of the line is one piece.
///
/// Calls cronTimeOf(0) for each piece, and throws what that throws. The id is always 0, whichever task a line starts.
void splitTaskLines(const CronTimeOf& cronTimeOf, std::istream& in, std::ostream& out);

} // namespace orv
