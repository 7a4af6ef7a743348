#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace orv {

// What happens to the text of a crontab, from a stream to a stream.
//
// All of them read a line as at most 499 characters up to a line feed; of a line with a zero byte in it, the text
// before that. They stop at the first empty line, and after the first 499 characters of a line that is longer: what
// follows is not written. A stream that cannot be read gives no lines. Lines keep their order.

/// Writes the task line of the task `id`: its schedule `cronTime` as it stands, the task manager's path and the id,
/// with its output discarded. The line ends in a line feed, and `out` is flushed.
void writeTaskLine(std::ostream& out, const std::string& cronTime, int id);

/// Copies the lines that do not mention the task manager's path. A line of 1 or 2 characters is written without a line
/// feed, so that the next one joins it.
void dropTaskLines(std::istream& in, std::ostream& out);

/// Copies the lines that do not run the task manager for the task `id`, each with a line feed. The number that decides
/// is the text behind the first "TessaraTaskManager" of the line and one more character, up to a blank (at most 15
/// characters), read as atoi reads it: nothing there is task 0.
void dropLinesOfTask(int id, std::istream& in, std::ostream& out);

/// Gives the schedule of a task, or throws.
using CronTimeOf = std::function<std::string(int id)>;

/// Copies the lines, each with a line feed; of a line that mentions the task manager's path, each task line in it and
/// each text before, between and behind them becomes a line of its own. Where a task line begins is found with the
/// schedule that `cronTimeOf` gives for the id that is read from it (which is 0, see the source), asked anew for each
/// piece; the character before it is dropped. A task line ends behind its output redirection; what follows the last one
/// is written without a line feed if it has less than 3 characters. A piece without a redirection is written as it
/// stands. Throws what cronTimeOf throws.
void splitTaskLines(const CronTimeOf& cronTimeOf, std::istream& in, std::ostream& out);

} // namespace orv
