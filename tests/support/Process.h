#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

/// Where a started program's standard output goes.
enum class StandardOutput {
    captured, ///< kept, to be compared
    closed, ///< there is none: descriptor 1 is not open
    full, ///< a device on which every write fails for want of space
    withoutReader ///< a pipe whose reading end is closed
};

/// How a program ended.
struct ProgramEnd {
    int status = -1; ///< exit status; -1 if a signal ended the program
    int signal = 0; ///< the signal that ended the program, or 0
    std::string output; ///< what it wrote to standard output, if that was captured
    std::string errors; ///< what it, and what it started, wrote to standard error
};

/// A program that is started by the constructor, in the test's own environment but for what `environment`
/// ("NAME=value") sets, with standard input from /dev/null. Throws std::runtime_error if it cannot be started.
class StartedProgram {
public:
    explicit StartedProgram(const std::vector<std::string>& arguments,
        StandardOutput standardOutput = StandardOutput::captured, const std::vector<std::string>& environment = {});
    /// Kills and collects a program that wait() was not called for.
    ~StartedProgram();
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;

    pid_t pid() const { return m_pid; }
    /// Whether the program has not ended yet.
    bool running() const;
    /// Waits for the end. To be called once.
    ProgramEnd wait();

private:
    pid_t m_pid = -1;
    int m_output = -1;
    int m_errors = -1;
};

/// Runs a program, arguments[0] being its path, to its end.
ProgramEnd runProgram(const std::vector<std::string>& arguments,
    StandardOutput standardOutput = StandardOutput::captured, const std::vector<std::string>& environment = {});

} // namespace support
